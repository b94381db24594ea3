// Hears which track a device plays: each stands at levels of its own, and the angle between its
// first two channels survives gains, filters and sample types.
#pragma once

#include <cmath>
#include <numbers>
#include <vector>

#include "foundation/Mutex.h"
#include "platform/audio/virtual/VirtualAudioHardware.h"

namespace velorin::test {

class TrackEar : public VirtualRecorder {
 public:
  /// Radians. A blend of two tracks moves through the angles between theirs.
  static constexpr double kSameAngle = 0.0004;
  static constexpr double kAngleOfMono = std::numbers::pi / 4;
  /// Frames of one angle that are a track, and no moment of a blend.
  static constexpr std::uint64_t kShortest = 2048;

  struct Run {
    double angle = 0;
    std::uint64_t begin = 0;  ///< in frames of programme on all devices so far
    std::uint64_t frames = 0;
  };

  /// What was heard, without what was too short. Any thread, as frames().
  std::vector<Run> runs() const {
    MutexLock hold(_mutex);
    auto all = _runs;
    if (_run.frames >= kShortest) all.push_back(_run);
    return all;
  }
  std::uint64_t frames() const {
    MutexLock hold(_mutex);
    return _frames;
  }

  void begin(const StreamFormat& format) override {
    MutexLock hold(_mutex);
    _format = format;
  }
  void record(const AudioBufferList& list, std::uint32_t, std::uint32_t programme) override {
    MutexLock hold(_mutex);
    const std::uint32_t second = list.bufferCount > 1 ? 1 : 0;
    for (std::uint32_t i = 0; i < programme; ++i) hear(at(list, 0, i), at(list, second, i));
  }
  void end() override {}

 private:
  double at(const AudioBufferList& list, std::uint32_t channel, std::uint32_t i) const
      REQUIRES(_mutex) {
    if (_format.isFloat()) return list.channel<float>(channel)[i];
    if (_format.bytesPerFrame == 2) return list.channel<std::int16_t>(channel)[i] / 32768.0;
    return list.channel<std::int32_t>(channel)[i] / 2147483648.0;
  }

  void hear(double first, double second) REQUIRES(_mutex) {
    ++_frames;
    const double level = std::hypot(first, second);
    if (level < 0.001) return close();
    if (_run.frames > 0 && std::abs(second * _cos - first * _sin) < kSameAngle * level) {
      ++_run.frames;
      return;
    }
    close();
    _run = {std::atan2(second, first), _frames - 1, 1};
    _cos = first / level;
    _sin = second / level;
  }

  void close() REQUIRES(_mutex) {
    if (_run.frames >= kShortest) _runs.push_back(_run);
    _run = {};
  }

  mutable Mutex _mutex;
  StreamFormat _format GUARDED_BY(_mutex);
  std::vector<Run> _runs GUARDED_BY(_mutex);
  Run _run GUARDED_BY(_mutex);
  double _cos GUARDED_BY(_mutex) = 0;
  double _sin GUARDED_BY(_mutex) = 0;
  std::uint64_t _frames GUARDED_BY(_mutex) = 0;
};

}  // namespace velorin::test
