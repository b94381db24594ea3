#include "platform/audio/virtual/VirtualDevice.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace velorin {

VirtualDevice::VirtualDevice(AudioDeviceID id, VirtualDeviceDescription description)
    : _id(id),
      _description(std::move(description)),
      _bufferFrames(_description.bufferFrames),
      _nominalRate(_description.nominalRate),
      _hogOwner(_description.hogOwner),
      _volume(_description.volume),
      _pullGate(_description.pullGate),
      _recorder(_description.recorder) {}

double VirtualDevice::nominalRate() const {
  MutexLock lock(_mutex);
  return _nominalRate;
}

AudioStatus VirtualDevice::setNominalRate(double rate, bool& changed) {
  const bool isOffered = std::ranges::any_of(_description.rates, [&](const RateRange& range) {
    return rate >= range.minimum - 0.5 && rate <= range.maximum + 0.5;
  });
  if (!isOffered) {
    return AudioStatus::failure(
        -EINVAL, fmt::format("{} does not run at {:.0f} Hz", _description.name, rate));
  }
  MutexLock lock(_mutex);
  const double granted = _description.rateThatSticks != 0 ? _description.rateThatSticks : rate;
  changed = granted != _nominalRate;
  _nominalRate = granted;
  return AudioStatus::success();
}

AudioStatus VirtualDevice::setBufferFrames(std::uint32_t frames) {
  const FrameRange& range = _description.bufferRange;
  if (frames == 0 || frames < range.minimum || frames > range.maximum) {
    return AudioStatus::failure(-EINVAL, fmt::format("{} frames are outside of {} to {}", frames,
                                                     range.minimum, range.maximum));
  }
  _bufferFrames = frames;
  return AudioStatus::success();
}

pid_t VirtualDevice::hogOwner() const {
  MutexLock lock(_mutex);
  return _hogOwner;
}

AudioStatus VirtualDevice::setHogOwner(pid_t owner) {
  MutexLock lock(_mutex);
  if (_hogOwner != -1 && _hogOwner != ::getpid()) {
    return AudioStatus::failure(-EBUSY, fmt::format("held by process {}", _hogOwner));
  }
  _hogOwner = owner;
  return AudioStatus::success();
}

std::optional<float> VirtualDevice::volume() const {
  MutexLock lock(_mutex);
  return _volume;
}

void VirtualDevice::setVolume(float value) {
  MutexLock lock(_mutex);
  _volume = std::clamp(value, 0.0f, 1.0f);
}

VirtualPullGate VirtualDevice::pullGate() const {
  MutexLock lock(_mutex);
  return _pullGate;
}

void VirtualDevice::setPullGate(VirtualPullGate gate) {
  MutexLock lock(_mutex);
  _pullGate = std::move(gate);
}

std::shared_ptr<VirtualRecorder> VirtualDevice::recorder() const {
  MutexLock lock(_mutex);
  return _recorder;
}

void VirtualDevice::setRecorder(std::shared_ptr<VirtualRecorder> recorder) {
  MutexLock lock(_mutex);
  _recorder = std::move(recorder);
}

void VirtualDevice::attach(std::shared_ptr<VirtualStream> stream) {
  MutexLock lock(_mutex);
  _streams.push_back(std::move(stream));
}

void VirtualDevice::detach(const VirtualStream* stream) {
  MutexLock lock(_mutex);
  std::erase_if(_streams, [&](const auto& candidate) { return candidate.get() == stream; });
}

std::vector<std::shared_ptr<VirtualStream>> VirtualDevice::streams() const {
  MutexLock lock(_mutex);
  return _streams;
}

}  // namespace velorin
