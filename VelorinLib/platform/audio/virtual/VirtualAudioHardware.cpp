#include "platform/audio/virtual/VirtualAudioHardware.h"

#include <algorithm>
#include <cerrno>

#include "platform/audio/ListenerList.h"
#include "platform/audio/virtual/VirtualDevice.h"
#include "platform/audio/virtual/VirtualOutputUnit.h"
#include "platform/audio/virtual/VirtualScript.h"
#include "platform/audio/virtual/VirtualStream.h"

namespace velorin {

using DevicePtr = std::shared_ptr<VirtualDevice>;

struct VirtualAudioHardware::Impl {
  ListenerList listeners;
  const std::shared_ptr<VirtualScript> script = std::make_shared<VirtualScript>();

  mutable Mutex mutex;
  std::vector<DevicePtr> present GUARDED_BY(mutex);
  std::map<std::string, AudioDeviceID, std::less<>> idsByUID GUARDED_BY(mutex);
  std::map<AudioDeviceID, std::vector<AudioDeviceID>> aggregates GUARDED_BY(mutex);
  AudioDeviceID defaultDevice GUARDED_BY(mutex) = kNoDevice;

  DevicePtr find(AudioDeviceID id) const {
    MutexLock lock(mutex);
    return findLocked(id);
  }

  DevicePtr findLocked(AudioDeviceID id) const REQUIRES(mutex) {
    const auto found = std::ranges::find(present, id, [](const DevicePtr& d) { return d->id(); });
    return found == present.end() ? nullptr : *found;
  }

  AudioDeviceID add(VirtualDeviceDescription description, std::vector<AudioDeviceID> parts = {});
  /// Takes the device and the aggregates that consist of nothing else out.
  std::vector<DevicePtr> takeOut(AudioDeviceID id, bool& defaultChanged);
  AudioDeviceID idFor(const std::string& uid) REQUIRES(mutex) {
    const auto next = static_cast<AudioDeviceID>(idsByUID.size() + 1);
    return idsByUID.try_emplace(uid, next).first->second;
  }
};

AudioDeviceID VirtualAudioHardware::Impl::add(VirtualDeviceDescription description,
                                              std::vector<AudioDeviceID> parts) {
  AudioDeviceID id = kNoDevice;
  bool becomesDefault = false;
  {
    MutexLock lock(mutex);
    id = idFor(description.uid);
    if (findLocked(id)) return id;
    present.push_back(std::make_shared<VirtualDevice>(id, std::move(description)));
    if (!parts.empty()) aggregates[id] = std::move(parts);
    becomesDefault = defaultDevice == kNoDevice;
    if (becomesDefault) defaultDevice = id;
  }
  listeners.notify(AudioProperty::devices);
  if (becomesDefault) listeners.notify(AudioProperty::defaultOutput);
  return id;
}

std::vector<DevicePtr> VirtualAudioHardware::Impl::takeOut(AudioDeviceID id, bool& defaultChanged) {
  std::vector<DevicePtr> gone;
  MutexLock lock(mutex);
  std::vector<AudioDeviceID> ids = {id};
  for (auto& [aggregate, parts] : aggregates) {
    if (std::erase(parts, id) > 0 && parts.empty()) ids.push_back(aggregate);
  }
  for (const AudioDeviceID each : ids) {
    aggregates.erase(each);
    if (DevicePtr device = findLocked(each)) {
      std::erase(present, device);
      gone.push_back(std::move(device));
    }
  }
  if (!findLocked(defaultDevice)) {
    defaultChanged = defaultDevice != kNoDevice;
    defaultDevice = present.empty() ? kNoDevice : present.front()->id();
  }
  return gone;
}

VirtualAudioHardware::VirtualAudioHardware() : _impl(std::make_shared<Impl>()) {}
VirtualAudioHardware::~VirtualAudioHardware() = default;

// --- Script ---

AudioDeviceID VirtualAudioHardware::addDevice(VirtualDeviceDescription description) {
  return _impl->add(std::move(description));
}

void VirtualAudioHardware::removeDevice(AudioDeviceID device) {
  bool defaultChanged = false;
  const std::vector<DevicePtr> gone = _impl->takeOut(device, defaultChanged);
  if (gone.empty()) return;
  for (const DevicePtr& each : gone) {
    for (const auto& stream : each->streams()) stream->lose();
  }
  _impl->listeners.notify(AudioProperty::devices);
  if (defaultChanged) _impl->listeners.notify(AudioProperty::defaultOutput);
}

void VirtualAudioHardware::setDefaultOutputDevice(AudioDeviceID device) {
  {
    MutexLock lock(_impl->mutex);
    if (_impl->defaultDevice == device) return;
    _impl->defaultDevice = device;
  }
  _impl->listeners.notify(AudioProperty::defaultOutput);
}

void VirtualAudioHardware::failNext(VirtualOperation operation, AudioStatus status, int times) {
  _impl->script->failNext(operation, std::move(status), times);
}

void VirtualAudioHardware::setPullGate(AudioDeviceID device, VirtualPullGate gate) {
  if (const DevicePtr found = _impl->find(device)) found->setPullGate(std::move(gate));
}

void VirtualAudioHardware::setRecorder(AudioDeviceID device,
                                       std::shared_ptr<VirtualRecorder> recorder) {
  if (const DevicePtr found = _impl->find(device)) found->setRecorder(std::move(recorder));
}

bool VirtualAudioHardware::pull(AudioDeviceID device, std::uint32_t frames,
                                const VirtualStream::CopyTo& copyTo) {
  const DevicePtr found = _impl->find(device);
  if (!found) return false;
  for (const auto& stream : found->streams()) {
    if (stream->isRunning()) {
      return stream->render(frames == 0 ? found->bufferFrames() : frames, copyTo);
    }
  }
  return false;
}

void VirtualAudioHardware::raise(AudioDeviceID device, OutputEvent event) {
  const DevicePtr found = _impl->find(device);
  if (!found) return;
  for (const auto& stream : found->streams()) {
    if (stream->isRunning()) stream->raise(event);
  }
}

std::uint64_t VirtualAudioHardware::framesRendered(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->framesRendered() : 0;
}

int VirtualAudioHardware::callCount(VirtualOperation operation) const {
  return _impl->script->callCount(operation);
}

bool VirtualAudioHardware::isRunning(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  if (!found) return false;
  return std::ranges::any_of(found->streams(), [](const auto& s) { return s->isRunning(); });
}

// --- AudioHardware ---

std::string VirtualAudioHardware::backendName() const {
  return "virtual";
}

std::vector<AudioDeviceID> VirtualAudioHardware::devices() const {
  MutexLock lock(_impl->mutex);
  std::vector<AudioDeviceID> ids;
  for (const DevicePtr& device : _impl->present) ids.push_back(device->id());
  return ids;
}

AudioDeviceID VirtualAudioHardware::defaultOutputDevice() const {
  MutexLock lock(_impl->mutex);
  return _impl->defaultDevice;
}

AudioDeviceID VirtualAudioHardware::deviceForUID(std::string_view uid) {
  MutexLock lock(_impl->mutex);
  for (const DevicePtr& device : _impl->present) {
    if (device->uid() == uid) return device->id();
  }
  return kNoDevice;
}

bool VirtualAudioHardware::hasOutputStreams(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found && found->fixed().hasStreams;
}

std::string VirtualAudioHardware::deviceName(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->fixed().name : std::string();
}

std::string VirtualAudioHardware::manufacturer(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->fixed().manufacturer : std::string();
}

std::string VirtualAudioHardware::deviceUID(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->uid() : std::string();
}

TransportType VirtualAudioHardware::transportType(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->fixed().transport : TransportType::unknown;
}

std::vector<RateRange> VirtualAudioHardware::availableSampleRates(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->fixed().rates : std::vector<RateRange>();
}

double VirtualAudioHardware::nominalSampleRate(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->nominalRate() : 0;
}

bool VirtualAudioHardware::convertsSampleRates(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found && found->fixed().convertsRates;
}

AudioStatus VirtualAudioHardware::setNominalSampleRate(AudioDeviceID device, double rate) {
  AudioStatus status = _impl->script->call(VirtualOperation::setNominalSampleRate);
  if (!status.ok()) return status;
  const DevicePtr found = _impl->find(device);
  if (!found) return AudioStatus::failure(-ENODEV);
  bool changed = false;
  status = found->setNominalRate(rate, changed);
  if (changed) _impl->listeners.notify(AudioProperty::nominalSampleRate, device);
  return status;
}

std::vector<PhysicalFormat> VirtualAudioHardware::physicalFormats(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->fixed().physicalFormats : std::vector<PhysicalFormat>();
}

std::optional<PhysicalFormat> VirtualAudioHardware::currentPhysicalFormat(
    AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  if (!found || found->fixed().physicalFormats.empty()) return std::nullopt;
  return found->fixed().physicalFormats.back();
}

std::uint32_t VirtualAudioHardware::outputChannels(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->fixed().channels : 0;
}

std::optional<std::uint32_t> VirtualAudioHardware::bufferFrameSize(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  if (!found) return std::nullopt;
  return found->bufferFrames();
}

std::optional<FrameRange> VirtualAudioHardware::bufferFrameSizeRange(AudioDeviceID device) const {
  const AudioStatus status = _impl->script->call(VirtualOperation::bufferFrameSizeRange);
  const DevicePtr found = _impl->find(device);
  if (!status.ok() || !found) return std::nullopt;
  return found->fixed().bufferRange;
}

AudioStatus VirtualAudioHardware::setBufferFrameSize(AudioDeviceID device, std::uint32_t frames) {
  AudioStatus status = _impl->script->call(VirtualOperation::setBufferFrameSize);
  if (!status.ok()) return status;
  const DevicePtr found = _impl->find(device);
  return found ? found->setBufferFrames(frames) : AudioStatus::failure(-ENODEV);
}

std::uint32_t VirtualAudioHardware::latency(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->fixed().latencyFrames : 0;
}

std::uint32_t VirtualAudioHardware::safetyOffset(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->fixed().safetyOffsetFrames : 0;
}

pid_t VirtualAudioHardware::hogOwner(AudioDeviceID device) const {
  const DevicePtr found = _impl->find(device);
  return found ? found->hogOwner() : -1;
}

AudioStatus VirtualAudioHardware::setHogOwner(AudioDeviceID device, pid_t owner) {
  AudioStatus status = _impl->script->call(VirtualOperation::setHogOwner);
  if (!status.ok()) return status;
  const DevicePtr found = _impl->find(device);
  return found ? found->setHogOwner(owner) : AudioStatus::failure(-ENODEV);
}

bool VirtualAudioHardware::hasVolume(AudioDeviceID device, std::uint32_t element) const {
  return volume(device, element).has_value();
}

std::optional<float> VirtualAudioHardware::volume(AudioDeviceID device,
                                                  std::uint32_t element) const {
  const DevicePtr found = _impl->find(device);
  if (!found || element != 0) return std::nullopt;
  return found->volume();
}

AudioStatus VirtualAudioHardware::setVolume(AudioDeviceID device, std::uint32_t element,
                                            float value) {
  const DevicePtr found = _impl->find(device);
  if (!found) return AudioStatus::failure(-ENODEV);
  if (!hasVolume(device, element)) return AudioStatus::failure(-ENOTSUP, "no volume control");
  found->setVolume(value);
  _impl->listeners.notify(AudioProperty::volume, device, element);
  return AudioStatus::success();
}

AudioStatus VirtualAudioHardware::createAggregate(const AggregateDescription& description,
                                                  AudioDeviceID& created) {
  created = kNoDevice;
  AudioStatus status = _impl->script->call(VirtualOperation::createAggregate);
  if (!status.ok()) return status;
  std::vector<AudioDeviceID> parts;
  std::uint32_t channels = 0;
  for (const std::string& uid : description.subDeviceUIDs) {
    const DevicePtr part = _impl->find(deviceForUID(uid));
    if (!part) return AudioStatus::failure(-ENODEV, "no device " + uid);
    parts.push_back(part->id());
    channels += part->fixed().channels;
  }
  if (parts.empty()) return AudioStatus::failure(-EINVAL, "an aggregate of no devices");
  if (channels > kMaxChannels) return AudioStatus::failure(-EINVAL, "too many channels");
  if (deviceForUID(description.uid) != kNoDevice) return AudioStatus::failure(-EEXIST);

  // The first device sets the clock, so it also sets the rates and the buffers.
  VirtualDeviceDescription device = _impl->find(parts.front())->fixed();
  device.uid = description.uid;
  device.name = description.name;
  device.transport = TransportType::aggregate;
  device.channels = channels;
  device.nominalRate = nominalSampleRate(parts.front());
  device.bufferFrames = bufferFrameSize(parts.front()).value_or(device.bufferFrames);
  device.volume.reset();
  for (PhysicalFormat& format : device.physicalFormats) format.channels = channels;
  created = _impl->add(std::move(device), std::move(parts));
  return AudioStatus::success();
}

AudioStatus VirtualAudioHardware::destroyAggregate(AudioDeviceID device) {
  {
    MutexLock lock(_impl->mutex);
    if (!_impl->aggregates.contains(device)) {
      return AudioStatus::failure(-ENODEV, "not an aggregate");
    }
  }
  removeDevice(device);
  return AudioStatus::success();
}

AudioHardware::Listener VirtualAudioHardware::addListener(AudioProperty property,
                                                          AudioDeviceID device,
                                                          std::uint32_t element, SerialQueue& queue,
                                                          std::function<void()> changed) {
  if (property == AudioProperty::volume && !hasVolume(device, element)) return {};
  return _impl->listeners.add(property, device, element, queue, std::move(changed));
}

std::unique_ptr<OutputUnit> VirtualAudioHardware::createOutputUnit(AudioStatus& status) {
  status = _impl->script->call(VirtualOperation::createOutputUnit);
  if (!status.ok()) return nullptr;
  return std::make_unique<VirtualOutputUnit>(
      _impl->script, [impl = _impl](AudioDeviceID id) { return impl->find(id); });
}

VirtualDeviceDescription pacedNullOutput() {
  VirtualDeviceDescription device;
  device.uid = "velorin.null";
  device.name = "Null output (no sound device)";
  device.rates.clear();
  for (const double rate : {8000., 11025., 16000., 22050., 32000., 44100., 48000., 88200., 96000.,
                            176400., 192000., 352800., 384000.}) {
    device.rates.push_back({rate, rate});
  }
  device.bufferRange = {64, 16384};
  device.bufferFrames = 4096;
  device.clock = VirtualClock::paced;
  return device;
}

}  // namespace velorin
