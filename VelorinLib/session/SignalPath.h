// What happens to the sound from the file to the device, stage by stage, with a quality for each.
//
// Settings say what was wanted, PlaybackFacts what was read back. Where the two differ, the facts
// decide: a stage stands for something that really happens, and no stage promises more than that.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dsp/DSPEffectType.h"
#include "engine/PlaybackFacts.h"
#include "records/PlaybackTypes.h"
#include "records/Track.h"

namespace velorin {

struct SignalPath {
  /// In rank order, the best first.
  enum class Quality : std::uint8_t { bitPerfect = 0, lossless = 1, enhanced = 2 };

  struct Stage {
    std::string id;  ///< UUID, new at each build
    std::string name;
    std::string format;
    std::optional<std::string> detail;
    bool isActive = true;
    Quality quality = Quality::lossless;
    std::string icon;  ///< name of a symbol
  };

  std::vector<Stage> stages;  ///< from the file to the device
  /// Why the path is not bit-perfect, such as "volume below 100 %"; empty when it is.
  std::string reason;
};

/// "Bit-Perfect", "Lossless", "Enhanced".
std::string_view labelOf(SignalPath::Quality quality) noexcept;

/// The lowest rank among the stages, so that one enhanced stage makes the whole path enhanced;
/// lossless for an empty path.
SignalPath::Quality overallQuality(const std::vector<SignalPath::Stage>& stages) noexcept;

/// "44.1 kHz", "96 kHz", "800 Hz", and "—" for a rate that is not known.
std::string signalPathRate(double hertz);

/// What a path is made of: the facts of the engine, and what the listener set.
struct SignalPathInput {
  /// An effect of the chain that is on.
  struct Effect {
    DSPEffectType type = DSPEffectType::preAmp;
    std::optional<std::string> detail;  ///< see detailOf() for those that have one
  };

  PlaybackFacts facts;
  std::optional<Track> track;  ///< the current one
  /// One-bit audio goes to the device as it is, packed into PCM words (DoP). No route of the engine
  /// does that so far.
  bool isDoP = false;

  bool exclusiveMode = false;
  bool integerMode = false;
  SampleRateStrategy strategy = SampleRateStrategy::native;
  VolumeMode volumeMode = VolumeMode::software;
  double volume = 1;  ///< linear, 0 to 1

  std::vector<Effect> effects;  ///< in the order of the chain
  double headroomDB = 0;        ///< taken away before the effects
};

/// What a stage of an effect tells beside its name: "+3.0 dB", "-6.2 dB (Album)", "16-bit TPDF".
namespace detailOf {
std::string preAmp(double gainDB);
std::string replayGain(double gainDB, bool isAlbum);
std::string dither(int bits, std::string_view algorithm);
}  // namespace detailOf

/// Source, memory, decoder, effects, headroom, resampling, volume and output, each where it takes
/// part. Pure; any thread.
///
/// The path is bit-perfect when exclusive and integer mode are on and were granted, the rate is the
/// file's, the software volume is full, and judge() of the facts finds nothing that changes a bit.
SignalPath buildSignalPath(const SignalPathInput& input);

}  // namespace velorin
