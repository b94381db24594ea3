#include "platform/audio/CombinedAudioHardware.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "platform/audio/CombinedOutputUnit.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

/// A session manager notices the free card and makes its device again.
constexpr auto kReturnTime = 2s;

using Hold = CombinedDevices::Hold;

AudioStatus noDevice(AudioDeviceID device) {
  return AudioStatus::failure(-ENODEV, fmt::format("no device with id {}", device));
}

}  // namespace

CombinedAudioHardware::CombinedAudioHardware(std::unique_ptr<AudioHardware> server,
                                             std::unique_ptr<AudioHardware> alsa, AlsaUID alsaUID)
    : _server(std::move(server)), _alsa(std::move(alsa)), _alsaUID(std::move(alsaUID)) {
  for (AudioHardware* side : {_server.get(), _alsa.get()}) {
    for (const auto property : {AudioProperty::devices, AudioProperty::defaultOutput}) {
      _sides.push_back(side->addListener(property, kNoDevice, 0, _queue, [this] { refresh(); }));
    }
  }
  refresh();
}

CombinedAudioHardware::~CombinedAudioHardware() = default;

std::string CombinedAudioHardware::backendName() const {
  return fmt::format("{} + {}", _server->backendName(), _alsa->backendName());
}

// --- The table ---

void CombinedAudioHardware::refresh() {
  bool hasChanged = false;
  bool hasNewDefault = false;
  {
    // The sides are asked before the table is locked: an answer may take time.
    MutexLock one(_refreshing);
    std::vector<CombinedDevices::ServerDevice> server;
    for (const AudioDeviceID id : _server->devices()) {
      const std::string alsaUID = _alsaUID(id);
      server.push_back(
          {id, _server->deviceUID(id), alsaUID.empty() ? kNoDevice : _alsa->deviceForUID(alsaUID)});
    }
    std::vector<CombinedDevices::AlsaDeviceEntry> alsa;
    for (const AudioDeviceID id : _alsa->devices()) alsa.push_back({id, _alsa->deviceUID(id)});
    const AudioDeviceID serverDefault = _server->defaultOutputDevice();
    const AudioDeviceID alsaDefault = _alsa->defaultOutputDevice();

    noticeLostHogs();

    MutexLock lock(_mutex);
    hasChanged = _devices.update(server, alsa);
    const CombinedDevices::Entry* byDefault = _devices.findByServer(serverDefault);
    if (!byDefault) byDefault = _devices.findByAlsa(alsaDefault);
    const AudioDeviceID now = byDefault ? byDefault->id : kNoDevice;
    hasNewDefault = std::exchange(_default, now) != now;
    _refreshed.notifyAll();
  }
  if (hasChanged) _listeners.notify(AudioProperty::devices);
  if (hasNewDefault) _listeners.notify(AudioProperty::defaultOutput);
}

// A program of higher priority may have taken a card from us; its side does not announce that.
void CombinedAudioHardware::noticeLostHogs() {
  std::vector<AudioDeviceID> held;
  {
    MutexLock lock(_mutex);
    held = _devices.heldAlsa();
  }
  for (const AudioDeviceID alsa : held) {
    if (_alsa->hogOwner(alsa) == getpid()) continue;
    MutexLock lock(_mutex);
    const CombinedDevices::Entry* entry = _devices.findByAlsa(alsa);
    if (entry && entry->hold == Hold::held) _devices.find(entry->id)->hold = Hold::none;
  }
}

void CombinedAudioHardware::refreshLater() {
  _queue.async([this] { refresh(); });
}

CombinedAudioHardware::Route CombinedAudioHardware::route(AudioDeviceID device) const {
  MutexLock lock(_mutex);
  const CombinedDevices::Entry* entry = _devices.findPresent(device);
  if (!entry) return {};
  const bool isExclusive = entry->hold == Hold::held && entry->alsa != kNoDevice;
  if (!isExclusive && entry->server != kNoDevice) return {_server.get(), entry->server};
  return {_alsa.get(), entry->alsa};
}

std::vector<AudioDeviceID> CombinedAudioHardware::devices() const {
  MutexLock lock(_mutex);
  return _devices.present();
}

AudioDeviceID CombinedAudioHardware::defaultOutputDevice() const {
  MutexLock lock(_mutex);
  return _default;
}

AudioDeviceID CombinedAudioHardware::deviceForUID(std::string_view uid) {
  {
    MutexLock lock(_mutex);
    if (const auto* known = _devices.findByUID(uid)) return known->id;
  }
  const AudioDeviceID alsa = uid.starts_with("alsa:") ? _alsa->deviceForUID(uid) : kNoDevice;
  const AudioDeviceID server = alsa == kNoDevice ? _server->deviceForUID(uid) : kNoDevice;
  if (alsa == kNoDevice && server == kNoDevice) return kNoDevice;
  refresh();  // it may have been made just now
  MutexLock lock(_mutex);
  const auto* found = alsa != kNoDevice ? _devices.findByAlsa(alsa) : _devices.findByServer(server);
  return found ? found->id : kNoDevice;
}

std::string CombinedAudioHardware::deviceUID(AudioDeviceID device) const {
  MutexLock lock(_mutex);
  const auto* entry = _devices.findPresent(device);
  return entry ? entry->uid : std::string();
}

// --- Exclusive access ---

pid_t CombinedAudioHardware::hogOwner(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->hogOwner(to.id) : -1;
}

AudioStatus CombinedAudioHardware::setHogOwner(AudioDeviceID device, pid_t owner) {
  refresh();  // what the queue has not told yet counts already
  CombinedDevices::Entry entry;
  {
    MutexLock lock(_mutex);
    const auto* found = _devices.findPresent(device);
    if (!found) return noDevice(device);
    entry = *found;
  }
  if (entry.alsa == kNoDevice) return _server->setHogOwner(entry.server, owner);
  return owner == -1 ? giveBackHog(device, entry) : takeHog(device, entry, owner);
}

AudioStatus CombinedAudioHardware::takeHog(AudioDeviceID device,
                                           const CombinedDevices::Entry& entry, pid_t owner) {
  if (entry.hold == Hold::held) return AudioStatus::success();
  // Marked before the card is asked for: the server's device may vanish at any moment from now
  // on, and the entry must not go with it.
  const auto mark = [&](Hold hold) {
    MutexLock lock(_mutex);
    _devices.find(device)->hold = hold;
  };
  mark(Hold::taking);
  AudioStatus status = _alsa->setHogOwner(entry.alsa, owner);
  mark(status.ok() ? Hold::held : Hold::none);
  refresh();
  return status;
}

AudioStatus CombinedAudioHardware::giveBackHog(AudioDeviceID device,
                                               const CombinedDevices::Entry& entry) {
  AudioStatus status = _alsa->setHogOwner(entry.alsa, -1);
  if (!status.ok() || entry.hold != Hold::held) return status;
  const bool isServers = entry.uid != _alsa->deviceUID(entry.alsa);
  // What plays next on it must find the server's device: opened directly, it would keep the server
  // from getting the card back.
  const auto deadline = std::chrono::steady_clock::now() + kReturnTime;
  {
    MutexLock lock(_mutex);
    const auto now = [&]() REQUIRES(_mutex) { return _devices.find(device); };
    now()->hold = isServers && now()->server == kNoDevice ? Hold::returning : Hold::none;
    while (now()->hold == Hold::returning && _refreshed.waitUntil(_mutex, deadline)) {
    }
    now()->hold = Hold::none;
  }
  refresh();
  return status;
}

// --- A device: whoever answers for it now ---

bool CombinedAudioHardware::hasOutputStreams(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware && to.hardware->hasOutputStreams(to.id);
}

std::string CombinedAudioHardware::deviceName(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->deviceName(to.id) : std::string();
}

std::string CombinedAudioHardware::manufacturer(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->manufacturer(to.id) : std::string();
}

TransportType CombinedAudioHardware::transportType(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->transportType(to.id) : TransportType::unknown;
}

std::vector<RateRange> CombinedAudioHardware::availableSampleRates(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->availableSampleRates(to.id) : std::vector<RateRange>();
}

double CombinedAudioHardware::nominalSampleRate(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->nominalSampleRate(to.id) : 0;
}

AudioStatus CombinedAudioHardware::setNominalSampleRate(AudioDeviceID device, double rate) {
  const Route to = route(device);
  return to.hardware ? to.hardware->setNominalSampleRate(to.id, rate) : noDevice(device);
}

std::vector<PhysicalFormat> CombinedAudioHardware::physicalFormats(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->physicalFormats(to.id) : std::vector<PhysicalFormat>();
}

std::optional<PhysicalFormat> CombinedAudioHardware::currentPhysicalFormat(
    AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->currentPhysicalFormat(to.id) : std::nullopt;
}

std::uint32_t CombinedAudioHardware::outputChannels(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->outputChannels(to.id) : 0;
}

std::optional<std::uint32_t> CombinedAudioHardware::bufferFrameSize(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->bufferFrameSize(to.id) : std::nullopt;
}

std::optional<FrameRange> CombinedAudioHardware::bufferFrameSizeRange(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->bufferFrameSizeRange(to.id) : std::nullopt;
}

AudioStatus CombinedAudioHardware::setBufferFrameSize(AudioDeviceID device, std::uint32_t frames) {
  const Route to = route(device);
  return to.hardware ? to.hardware->setBufferFrameSize(to.id, frames) : noDevice(device);
}

std::uint32_t CombinedAudioHardware::latency(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->latency(to.id) : 0;
}

std::uint32_t CombinedAudioHardware::safetyOffset(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->safetyOffset(to.id) : 0;
}

bool CombinedAudioHardware::convertsSampleRates(AudioDeviceID device) const {
  const Route to = route(device);
  return to.hardware && to.hardware->convertsSampleRates(to.id);
}

bool CombinedAudioHardware::hasVolume(AudioDeviceID device, std::uint32_t element) const {
  const Route to = route(device);
  return to.hardware && to.hardware->hasVolume(to.id, element);
}

std::optional<float> CombinedAudioHardware::volume(AudioDeviceID device,
                                                   std::uint32_t element) const {
  const Route to = route(device);
  return to.hardware ? to.hardware->volume(to.id, element) : std::nullopt;
}

AudioStatus CombinedAudioHardware::setVolume(AudioDeviceID device, std::uint32_t element,
                                             float value) {
  const Route to = route(device);
  return to.hardware ? to.hardware->setVolume(to.id, element, value) : noDevice(device);
}

// --- Aggregates, listeners, units ---

AudioStatus CombinedAudioHardware::createAggregate(const AggregateDescription& description,
                                                   AudioDeviceID& created) {
  created = kNoDevice;
  AudioDeviceID made = kNoDevice;
  AudioStatus status = _server->createAggregate(description, made);
  if (!status.ok()) return status;
  refresh();
  MutexLock lock(_mutex);
  if (const auto* entry = _devices.findByServer(made)) created = entry->id;
  return created != kNoDevice ? status
                              : AudioStatus::failure(-ENODEV, "the aggregate is not there");
}

AudioStatus CombinedAudioHardware::destroyAggregate(AudioDeviceID device) {
  const Route to = route(device);
  if (!to.hardware) return noDevice(device);
  AudioStatus status = to.hardware->destroyAggregate(to.id);
  refresh();
  return status;
}

AudioHardware::Listener CombinedAudioHardware::addListener(AudioProperty property,
                                                           AudioDeviceID device,
                                                           std::uint32_t element,
                                                           SerialQueue& queue,
                                                           std::function<void()> changed) {
  if (property == AudioProperty::devices || property == AudioProperty::defaultOutput) {
    return _listeners.add(property, device, element, queue, std::move(changed));
  }
  CombinedDevices::Entry entry;
  {
    MutexLock lock(_mutex);
    const auto* found = _devices.findPresent(device);
    if (!found) return {};
    entry = *found;
  }
  // On both sides: which one counts changes with the hog. The other one's news are the same news
  // again, or none: a volume that the server sets in the card's mixer is a foreign one to ALSA.
  auto both = std::make_shared<std::vector<Listener>>();
  const auto listen = [&](AudioHardware& side, AudioDeviceID id) {
    if (id == kNoDevice) return;
    const auto ifItCounts = [this, device, &side, changed] {
      if (route(device).hardware == &side) changed();
    };
    Listener one = side.addListener(property, id, element, queue, ifItCounts);
    if (one) both->push_back(std::move(one));
  };
  listen(*_server, entry.server);
  listen(*_alsa, entry.alsa);
  return both->empty() ? Listener() : Listener(both);
}

std::unique_ptr<OutputUnit> CombinedAudioHardware::createOutputUnit(AudioStatus& status) {
  status = AudioStatus::success();
  return std::make_unique<CombinedOutputUnit>(*this);
}

}  // namespace velorin
