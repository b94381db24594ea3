#include "dsp/effects/ReplayGainDSP.h"

#include "dsp/effects/Level.h"

namespace velorin {
namespace {

constexpr double kReferenceLUFS = -18;

double firstOf(std::initializer_list<std::optional<double>> candidates) {
  for (const auto& each : candidates) {
    if (each && std::isfinite(*each)) return *each;
  }
  return 0;
}

}  // namespace

void ReplayGainDSP::setTrackGain(double gainDB, double peak) noexcept {
  _peak.set(std::isfinite(peak) ? peak : 0);
  _gainDB.set(gainDB);
  _cachedBaseGain.store(linearGain(_gainDB.get()), std::memory_order_relaxed);
}

void ReplayGainDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                            double /*sampleRate*/) noexcept {
  if (_gainDB.get() == 0) return;
  float gain = _cachedBaseGain.load(std::memory_order_relaxed);
  const float peak = _peak.get();
  if (peak > 0 && 1 / peak < gain) gain = 1 / peak;
  multiplyChannels(buffers, gain, frameCount);
}

std::vector<EffectParameter> ReplayGainDSP::parameters() {
  return {{.name = "mode",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0,
           .choices = {"track", "album"},
           .get = [this] { return static_cast<double>(mode()); },
           .set = [this](double value) { setMode(choiceOf(value, Mode::album)); }}};
}

TrackGain trackGain(const Track& track, ReplayGainDSP::Mode mode) {
  std::optional<double> scannedGain;
  if (track.scannedLoudness) scannedGain = kReferenceLUFS - *track.scannedLoudness;
  std::optional<double> scannedPeak;
  if (track.scannedTruePeak) scannedPeak = std::pow(10.0, *track.scannedTruePeak / 20);
  if (mode == ReplayGainDSP::Mode::track) {
    return {firstOf({track.replayGainTrackGain, scannedGain}),
            firstOf({track.replayGainTrackPeak, scannedPeak})};
  }
  return {firstOf({track.replayGainAlbumGain, track.replayGainTrackGain, scannedGain}),
          firstOf({track.replayGainAlbumPeak, track.replayGainTrackPeak, scannedPeak})};
}

}  // namespace velorin
