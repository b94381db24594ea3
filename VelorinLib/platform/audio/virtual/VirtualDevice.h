// One virtual device: its description, its settings of the moment and the streams on it.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "foundation/Mutex.h"
#include "platform/audio/virtual/VirtualAudioHardware.h"

namespace velorin {

class VirtualStream;

/// Any thread; framesRendered and the buffer size are lock-free for the render thread.
class VirtualDevice {
 public:
  VirtualDevice(AudioDeviceID id, VirtualDeviceDescription description);

  AudioDeviceID id() const noexcept { return _id; }
  const std::string& uid() const noexcept { return _description.uid; }
  /// What does not change after the device was made: names, rates, ranges, formats, clock.
  const VirtualDeviceDescription& fixed() const noexcept { return _description; }

  double nominalRate() const;
  /// -EINVAL for a rate outside of the ranges. True in `changed` when the rate is another now.
  AudioStatus setNominalRate(double rate, bool& changed);

  std::uint32_t bufferFrames() const noexcept { return _bufferFrames; }
  AudioStatus setBufferFrames(std::uint32_t frames);

  pid_t hogOwner() const;
  AudioStatus setHogOwner(pid_t owner);

  std::optional<float> volume() const;
  void setVolume(float value);

  VirtualPullGate pullGate() const;
  void setPullGate(VirtualPullGate gate);
  std::shared_ptr<VirtualRecorder> recorder() const;
  void setRecorder(std::shared_ptr<VirtualRecorder> recorder);

  std::uint64_t framesRendered() const noexcept { return _framesRendered; }
  void addFramesRendered(std::uint32_t frames) noexcept { _framesRendered += frames; }

  void attach(std::shared_ptr<VirtualStream> stream);
  void detach(const VirtualStream* stream);
  std::vector<std::shared_ptr<VirtualStream>> streams() const;

 private:
  const AudioDeviceID _id;
  const VirtualDeviceDescription _description;
  std::atomic<std::uint32_t> _bufferFrames;
  std::atomic<std::uint64_t> _framesRendered = 0;

  mutable Mutex _mutex;
  double _nominalRate GUARDED_BY(_mutex);
  pid_t _hogOwner GUARDED_BY(_mutex);
  std::optional<float> _volume GUARDED_BY(_mutex);
  VirtualPullGate _pullGate GUARDED_BY(_mutex);
  std::shared_ptr<VirtualRecorder> _recorder GUARDED_BY(_mutex);
  std::vector<std::shared_ptr<VirtualStream>> _streams GUARDED_BY(_mutex);
};

}  // namespace velorin
