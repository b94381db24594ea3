// What the listener chose about track changes. Read by the fill thread, set by the transport.
#pragma once

#include <atomic>
#include <cmath>

namespace velorin {

/// Any thread but the render thread.
class JoinSettings {
 public:
  static constexpr double kDefaultCrossfadeSeconds = 3.0;

  bool gaplessEnabled() const noexcept { return _gapless.load(); }
  void setGaplessEnabled(bool on) noexcept { _gapless.store(on); }

  bool crossfadeEnabled() const noexcept { return _crossfade.load(); }
  void setCrossfadeEnabled(bool on) noexcept { _crossfade.store(on); }

  /// Seconds, above 0.
  double crossfadeDuration() const noexcept { return _crossfadeSeconds.load(); }
  void setCrossfadeDuration(double seconds) noexcept {
    const bool usable = std::isfinite(seconds) && seconds > 0;
    _crossfadeSeconds.store(usable ? seconds : kDefaultCrossfadeSeconds);
  }

 private:
  std::atomic<bool> _gapless{true};
  std::atomic<bool> _crossfade{false};
  std::atomic<double> _crossfadeSeconds{kDefaultCrossfadeSeconds};
};

}  // namespace velorin
