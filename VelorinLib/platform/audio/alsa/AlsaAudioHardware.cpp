#include "platform/audio/alsa/AlsaAudioHardware.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

#include "foundation/Log.h"
#include "platform/audio/alsa/AlsaOutputUnit.h"

namespace velorin {
namespace {

constexpr std::string_view kPrefix = "alsa:";

AudioStatus noDevice(AudioDeviceID device) {
  return AudioStatus::failure(-ENODEV, fmt::format("no ALSA device with id {}", device));
}

}  // namespace

AlsaAudioHardware::AlsaAudioHardware() : AlsaAudioHardware(System{}) {}

AlsaAudioHardware::AlsaAudioHardware(System system)
    : _system(std::move(system)), _watcher(_system.nodeFolder, [this] { rescan(); }) {
  rescan();
}

AlsaAudioHardware::~AlsaAudioHardware() = default;

std::string AlsaAudioHardware::backendName() const {
  return "ALSA";
}

// --- The table of devices ---

std::shared_ptr<AlsaDevice> AlsaAudioHardware::find(AudioDeviceID device) const {
  MutexLock lock(_mutex);
  if (device == kNoDevice || device > _entries.size()) return nullptr;
  const Entry& entry = _entries[device - 1];
  return entry.isPresent ? entry.device : nullptr;
}

const AlsaAudioHardware::Entry* AlsaAudioHardware::findByAddress(std::string_view pcm) const {
  const auto wanted = parseHardwareName(pcm);
  for (const Entry& entry : _entries) {
    if (!entry.isPresent) continue;
    const AlsaPcmAddress address = entry.device->address();
    if (address.pcm == pcm || entry.uid.substr(kPrefix.size()) == pcm) return &entry;
    if (!wanted || !address.isHardware() || wanted->device != address.device) continue;
    const auto byID = parseHardwareName(std::string_view(entry.uid).substr(kPrefix.size()));
    if (wanted->card == std::to_string(address.card) || (byID && wanted->card == byID->card)) {
      return &entry;
    }
  }
  return nullptr;
}

void AlsaAudioHardware::rescan() {
  MutexLock one(_scanning);  // an older answer must not be taken in after a newer one
  const std::vector<AlsaPcmAddress> found = _system.hardware();
  bool hasChanged = false;
  {
    MutexLock lock(_mutex);
    for (Entry& entry : _entries) {
      const bool isNamed = !entry.device->address().isHardware();
      const bool isFound = std::ranges::find(found, entry.uid, &AlsaPcmAddress::uid) != found.end();
      if (!entry.isPresent || isNamed || isFound) continue;
      entry.isPresent = false;
      hasChanged = true;
    }
    for (const AlsaPcmAddress& address : found) {
      const auto known = std::ranges::find(_entries, address.uid, &Entry::uid);
      if (known == _entries.end()) {
        const auto id = static_cast<AudioDeviceID>(_entries.size() + 1);
        _entries.push_back({std::make_shared<AlsaDevice>(id, address), address.uid});
        hasChanged = true;
      } else if (!known->isPresent || !(known->device->address() == address)) {
        known->device->setAddress(address);
        known->isPresent = true;
        hasChanged = true;
      }
    }
  }
  const AudioDeviceID byDefault = _system.offersDefault ? openByName("default") : kNoDevice;
  bool hasNewDefault = false;
  {
    MutexLock lock(_mutex);
    const auto first = std::ranges::find(_entries, true, &Entry::isPresent);
    const AudioDeviceID now = byDefault != kNoDevice    ? byDefault
                              : first == _entries.end() ? kNoDevice
                                                        : first->device->id();
    hasNewDefault = std::exchange(_default, now) != now;
  }
  if (hasChanged) _listeners.notify(AudioProperty::devices);
  if (hasNewDefault) _listeners.notify(AudioProperty::defaultOutput);
}

AudioDeviceID AlsaAudioHardware::openByName(const std::string& pcm) {
  AlsaPcmAddress address;
  address.pcm = pcm;
  address.uid = fmt::format("{}{}", kPrefix, pcm);
  address.control = pcm;
  address.name = pcm == "default" ? "Default (ALSA)" : fmt::format("{} (ALSA)", pcm);
  AlsaCapabilities can;
  auto device = std::make_shared<AlsaDevice>(kNoDevice, address);
  if (const AudioStatus status = device->capabilities(can); !status.ok() && status.code != -EBUSY) {
    if (pcm != "default") log::line("⚠️ {}", status.text);
    MutexLock lock(_mutex);
    const auto gone = std::ranges::find(_entries, address.uid, &Entry::uid);
    if (gone != _entries.end()) gone->isPresent = false;
    return kNoDevice;
  }
  MutexLock lock(_mutex);
  const auto known = std::ranges::find(_entries, address.uid, &Entry::uid);
  if (known != _entries.end()) {
    known->isPresent = true;
    return known->device->id();
  }
  const auto id = static_cast<AudioDeviceID>(_entries.size() + 1);
  _entries.push_back({std::make_shared<AlsaDevice>(id, address), address.uid});
  return id;
}

std::vector<AudioDeviceID> AlsaAudioHardware::devices() const {
  MutexLock lock(_mutex);
  std::vector<AudioDeviceID> ids;
  for (const Entry& entry : _entries) {
    if (entry.isPresent) ids.push_back(entry.device->id());
  }
  return ids;
}

AudioDeviceID AlsaAudioHardware::defaultOutputDevice() const {
  MutexLock lock(_mutex);
  return _default;
}

AudioDeviceID AlsaAudioHardware::deviceForUID(std::string_view uid) {
  if (!uid.starts_with(kPrefix)) return kNoDevice;
  const std::string pcm(uid.substr(kPrefix.size()));
  {
    MutexLock lock(_mutex);
    if (const Entry* known = findByAddress(pcm)) return known->device->id();
  }
  if (parseHardwareName(pcm)) {
    // A card's own PCM is never made by name: it has just come and was not told yet, or is not.
    rescan();
    MutexLock lock(_mutex);
    const Entry* found = findByAddress(pcm);
    return found ? found->device->id() : kNoDevice;
  }
  const AudioDeviceID made = openByName(pcm);
  if (made != kNoDevice) _listeners.notify(AudioProperty::devices);
  return made;
}

// --- A device ---

bool AlsaAudioHardware::hasOutputStreams(AudioDeviceID device) const {
  return find(device) != nullptr;
}

std::string AlsaAudioHardware::deviceName(AudioDeviceID device) const {
  const auto found = find(device);
  return found ? found->address().name : std::string();
}

std::string AlsaAudioHardware::manufacturer(AudioDeviceID device) const {
  const auto found = find(device);
  return found ? found->address().manufacturer : std::string();
}

std::string AlsaAudioHardware::deviceUID(AudioDeviceID device) const {
  const auto found = find(device);
  return found ? found->address().uid : std::string();
}

TransportType AlsaAudioHardware::transportType(AudioDeviceID device) const {
  const auto found = find(device);
  return found ? found->address().transport : TransportType::unknown;
}

std::vector<RateRange> AlsaAudioHardware::availableSampleRates(AudioDeviceID device) const {
  std::vector<RateRange> ranges;
  AlsaCapabilities can;
  if (const auto found = find(device); found && found->capabilities(can).ok()) {
    for (const std::uint32_t rate : can.rates) {
      ranges.push_back({static_cast<double>(rate), static_cast<double>(rate)});
    }
  }
  return ranges;
}

double AlsaAudioHardware::nominalSampleRate(AudioDeviceID device) const {
  const auto found = find(device);
  return found ? found->nominalRate() : 0;
}

AudioStatus AlsaAudioHardware::setNominalSampleRate(AudioDeviceID device, double rate) {
  const auto found = find(device);
  if (!found) return noDevice(device);
  bool hasChanged = false;
  AudioStatus status = found->setNominalRate(rate, hasChanged);
  if (hasChanged) _listeners.notify(AudioProperty::nominalSampleRate, device);
  return status;
}

std::vector<PhysicalFormat> AlsaAudioHardware::physicalFormats(AudioDeviceID device) const {
  std::vector<PhysicalFormat> formats;
  AlsaCapabilities can;
  const auto found = find(device);
  if (!found || !found->capabilities(can).ok()) return formats;
  const std::uint32_t channels = can.channels.empty() ? 0 : can.channels.back();
  const auto add = [&](PhysicalFormat format) {
    // S24_LE and S24_3LE are the same bits in other boxes.
    if (std::ranges::find(formats, format) == formats.end()) formats.push_back(format);
  };
  for (const AlsaFormatOffer& offer : can.formats) {
    add({offer.significantBits, offer.word == vector::PCMWord::float32, channels});
  }
  if (can.nativeDSD) add({1, false, channels});
  return formats;
}

std::optional<PhysicalFormat> AlsaAudioHardware::currentPhysicalFormat(AudioDeviceID device) const {
  const auto found = find(device);
  if (!found) return std::nullopt;
  if (const auto grant = found->grant()) {
    return PhysicalFormat{grant->significantBits, grant->word == vector::PCMWord::float32,
                          grant->channels};
  }
  const std::vector<PhysicalFormat> formats = physicalFormats(device);
  if (formats.empty()) return std::nullopt;
  return *std::ranges::max_element(formats, {}, &PhysicalFormat::bits);
}

std::uint32_t AlsaAudioHardware::outputChannels(AudioDeviceID device) const {
  AlsaCapabilities can;
  const auto found = find(device);
  if (!found || !found->capabilities(can).ok() || can.channels.empty()) return 0;
  return can.channels.back();
}

std::optional<std::uint32_t> AlsaAudioHardware::bufferFrameSize(AudioDeviceID device) const {
  const auto found = find(device);
  if (!found) return std::nullopt;
  return found->periodFrames();
}

std::optional<FrameRange> AlsaAudioHardware::bufferFrameSizeRange(AudioDeviceID device) const {
  const auto found = find(device);
  const FrameRange range = found ? found->periodRange() : FrameRange{};
  if (range.maximum == 0) return std::nullopt;
  return range;
}

AudioStatus AlsaAudioHardware::setBufferFrameSize(AudioDeviceID device, std::uint32_t frames) {
  const auto found = find(device);
  return found ? found->setPeriodFrames(frames) : noDevice(device);
}

std::uint32_t AlsaAudioHardware::latency(AudioDeviceID device) const {
  const auto found = find(device);
  return found ? found->latencyFrames() : 0;
}

std::uint32_t AlsaAudioHardware::safetyOffset(AudioDeviceID) const {
  return 0;
}

pid_t AlsaAudioHardware::hogOwner(AudioDeviceID device) const {
  const auto found = find(device);
  return found ? found->hogOwner() : -1;
}

AudioStatus AlsaAudioHardware::setHogOwner(AudioDeviceID device, pid_t owner) {
  const auto found = find(device);
  return found ? found->setHogOwner(owner) : noDevice(device);
}

bool AlsaAudioHardware::hasVolume(AudioDeviceID device, std::uint32_t element) const {
  return volume(device, element).has_value();
}

std::optional<float> AlsaAudioHardware::volume(AudioDeviceID device, std::uint32_t element) const {
  const auto found = find(device);
  const auto mixer = found ? found->mixer() : nullptr;
  return mixer ? mixer->volume(element) : std::nullopt;
}

AudioStatus AlsaAudioHardware::setVolume(AudioDeviceID device, std::uint32_t element, float value) {
  const auto found = find(device);
  if (!found) return noDevice(device);
  const auto mixer = found->mixer();
  return mixer ? mixer->setVolume(element, value)
               : AudioStatus::failure(-ENOTSUP, "no volume control");
}

AudioStatus AlsaAudioHardware::createAggregate(const AggregateDescription&,
                                               AudioDeviceID& created) {
  created = kNoDevice;
  return AudioStatus::failure(-ENOTSUP, "ALSA cannot play on several devices as one");
}

AudioStatus AlsaAudioHardware::destroyAggregate(AudioDeviceID device) {
  return noDevice(device);
}

AudioHardware::Listener AlsaAudioHardware::addListener(AudioProperty property, AudioDeviceID device,
                                                       std::uint32_t element, SerialQueue& queue,
                                                       std::function<void()> changed) {
  if (property == AudioProperty::volume) {
    const auto found = find(device);
    if (!found || !hasVolume(device, element)) return {};
    found->listenToVolume([listeners = _listeners, device]() mutable {
      for (const std::uint32_t each : {0u, 1u, 2u}) {
        listeners.notify(AudioProperty::volume, device, each);
      }
    });
  }
  return _listeners.add(property, device, element, queue, std::move(changed));
}

std::unique_ptr<OutputUnit> AlsaAudioHardware::createOutputUnit(AudioStatus& status) {
  status = AudioStatus::success();
  return std::make_unique<AlsaOutputUnit>([this](AudioDeviceID device) { return find(device); });
}

}  // namespace velorin
