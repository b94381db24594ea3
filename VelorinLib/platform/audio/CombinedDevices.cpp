#include "platform/audio/CombinedDevices.h"

#include <algorithm>

namespace velorin {

CombinedDevices::Entry& CombinedDevices::entryFor(const std::string& uid) {
  const auto known = std::ranges::find(_entries, uid, &Entry::uid);
  if (known != _entries.end()) return *known;
  Entry& made = _entries.emplace_back();
  made.id = static_cast<AudioDeviceID>(_entries.size());
  made.uid = uid;
  return made;
}

bool CombinedDevices::update(const std::vector<ServerDevice>& server,
                             const std::vector<AlsaDeviceEntry>& alsa) {
  const auto isShown = [&alsa](AudioDeviceID id) {
    return std::ranges::find(alsa, id, &AlsaDeviceEntry::id) != alsa.end();
  };
  for (Entry& entry : _entries) {
    entry.server = kNoDevice;
    if (!isShown(entry.alsa)) entry.alsa = kNoDevice;
    entry.isPresent = entry.alsa != kNoDevice && entry.hold != Hold::none;
  }
  std::vector<AudioDeviceID> now;
  for (const ServerDevice& device : server) {
    Entry& entry = entryFor(device.uid);
    entry.server = device.id;
    if (isShown(device.alsa)) entry.alsa = device.alsa;
    if (entry.hold == Hold::returning) entry.hold = Hold::none;
    entry.isPresent = true;
    now.push_back(entry.id);
  }
  for (const Entry& entry : _entries) {
    if (entry.isPresent && entry.server == kNoDevice) now.push_back(entry.id);
  }
  for (const AlsaDeviceEntry& device : alsa) {
    if (findByAlsa(device.id) != nullptr) continue;
    Entry& entry = entryFor(device.uid);
    entry.alsa = device.id;
    entry.isPresent = true;
    now.push_back(entry.id);
  }
  // The order may differ when a hogged device comes back; that is no change.
  std::vector<AudioDeviceID> before = _present;
  std::vector<AudioDeviceID> after = now;
  std::ranges::sort(before);
  std::ranges::sort(after);
  _present = std::move(now);
  return before != after;
}

std::vector<AudioDeviceID> CombinedDevices::heldAlsa() const {
  std::vector<AudioDeviceID> held;
  for (const Entry& entry : _entries) {
    if (entry.hold == Hold::held) held.push_back(entry.alsa);
  }
  return held;
}

CombinedDevices::Entry* CombinedDevices::find(AudioDeviceID id) noexcept {
  return id == kNoDevice || id > _entries.size() ? nullptr : &_entries[id - 1];
}

const CombinedDevices::Entry* CombinedDevices::findPresent(AudioDeviceID id) const noexcept {
  if (id == kNoDevice || id > _entries.size()) return nullptr;
  return _entries[id - 1].isPresent ? &_entries[id - 1] : nullptr;
}

const CombinedDevices::Entry* CombinedDevices::findByUID(std::string_view uid) const noexcept {
  const auto found = std::ranges::find_if(
      _entries, [uid](const Entry& entry) { return entry.isPresent && entry.uid == uid; });
  return found == _entries.end() ? nullptr : &*found;
}

const CombinedDevices::Entry* CombinedDevices::findByServer(AudioDeviceID server) const noexcept {
  const auto found = std::ranges::find_if(_entries, [server](const Entry& entry) {
    return entry.isPresent && server != kNoDevice && entry.server == server;
  });
  return found == _entries.end() ? nullptr : &*found;
}

const CombinedDevices::Entry* CombinedDevices::findByAlsa(AudioDeviceID alsa) const noexcept {
  const auto found = std::ranges::find_if(_entries, [alsa](const Entry& entry) {
    return entry.isPresent && alsa != kNoDevice && entry.alsa == alsa;
  });
  return found == _entries.end() ? nullptr : &*found;
}

}  // namespace velorin
