// A stream's resampler with its buffers: planar float in, the client's samples out, every frame
// accounted for.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/resampling/SoxrResampler.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

/// Outlives a track where the next one has the same rates: its filter then hears one unbroken
/// signal. One thread at a time, like the resampler.
class ResampleStage {
 public:
  /// Null where SoxrResampler::create() makes none. Allocates all it will need.
  static std::unique_ptr<ResampleStage> create(double sourceRate, const StreamFormat& clientFormat);

  double sourceRate() const noexcept { return _resampler->sourceRate(); }
  double targetRate() const noexcept { return _resampler->targetRate(); }

  /// Most frames that process() or drain() gives at once.
  std::uint32_t chunk() const noexcept { return _output.capacity(); }

  /// Converts up to SoxrResampler::kMaximumInput frames of planar float. Returns how many frames
  /// stand in output(): 0 while the filter fills.
  std::uint32_t process(const AudioBufferList& input, std::uint32_t frames) noexcept;
  /// One more piece of the tail; 0 when there is none left.
  std::uint32_t drain() noexcept;
  /// As if fresh.
  void clear() noexcept;

  /// How far a stream has come, in frames since it was fresh.
  struct Progress {
    std::int64_t framesIn = 0;
    std::int64_t framesOut = 0;
  };
  Progress progress() const noexcept { return {_framesIn, _framesOut + _toDrop}; }

  /// Takes the place of another stage that has come so far: forgets everything, and returns how
  /// many of the frames that the other was given last, at most `available`, are to be put in again
  /// for the filter to fill. What comes out of them is dropped up to where the other one stands;
  /// from there on the output is the same, to the resampler's own precision.
  std::int64_t resumeAt(const Progress& progress, std::int64_t available) noexcept;

  AudioBufferList& output() noexcept { return _output.list(); }

  /// Frames still to come for what was put in: round(input × ratio) - output since it was fresh.
  /// The first frame of what is put in next stands behind exactly these.
  std::int64_t framesOwed() const noexcept;

 private:
  ResampleStage(std::unique_ptr<SoxrResampler> resampler, const StreamFormat& clientFormat);
  std::uint32_t count(std::uint32_t framesIn, std::uint32_t produced) noexcept;
  void convertChannel(std::uint32_t channel, const double* samples, std::uint32_t count) noexcept;

  std::unique_ptr<SoxrResampler> _resampler;
  const bool _isIntegerOutput;
  const std::uint32_t _clientSampleSize;
  PlanarBuffers _output;
  std::vector<double> _scratch;  ///< one channel's input
  std::int64_t _framesIn = 0;
  std::int64_t _framesOut = 0;
  std::int64_t _toDrop = 0;  ///< of the frames still to come
};

}  // namespace velorin
