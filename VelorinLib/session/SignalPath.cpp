#include "session/SignalPath.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "foundation/Text.h"
#include "foundation/Uuid.h"

namespace velorin {
namespace {

using Quality = SignalPath::Quality;
using Stage = SignalPath::Stage;

constexpr double kUnityTolerance = 0.0001;
/// Less than this is not worth a stage.
constexpr double kLeastHeadroomDB = 0.5;
constexpr std::array<std::string_view, 5> kLossyTags{"mp3", "aac", "ogg", "opus", "wma"};

std::string uppercase(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

Stage stage(std::string_view name, std::string format, Quality quality, std::string_view icon,
            std::optional<std::string> detail = std::nullopt) {
  return {.id = makeUuid(),
          .name = std::string(name),
          .format = std::move(format),
          .detail = std::move(detail),
          .quality = quality,
          .icon = std::string(icon)};
}

/// One build: the questions that several stages ask, and the stages.
class Build {
 public:
  explicit Build(const SignalPathInput& input)
      : _in(input), _facts(input.facts), _verdict(judge(input.facts)) {}

  SignalPath path() {
    addSource();
    if (sourceRate() > 0 && _facts.isInMemory) {
      add(stage("Memory Playback", _stages.front().format, Quality::lossless, "memorychip"));
    }
    addDecoder();
    addEffects();
    addResampling();
    addVolume();
    addOutput();
    return {std::move(_stages), reason()};
  }

 private:
  void add(Stage stage) { _stages.push_back(std::move(stage)); }

  // --- The file ---

  double sourceRate() const { return _facts.fileFormat.sampleRate; }
  bool isDSD() const { return _facts.dsdRate > 0 && sourceRate() > 0; }

  /// The track's own name of its format, else the decoder's.
  std::string formatTag() const {
    if (_in.track && _in.track->format) return *_in.track->format;
    return _facts.decoder ? _facts.decoder->formatTag.value_or("") : "";
  }

  /// A name such as "ogg" may hold either kind, so the decoder has the word where there is one.
  bool isLossy() const {
    if (_facts.decoder) return !_facts.decoder->isLossless;
    return std::ranges::find(kLossyTags, text::lowercaseASCII(formatTag())) != kLossyTags.end();
  }

  std::string sourceFormat() const {
    int depth = _facts.sourceBitDepth;
    if (!(sourceRate() > 0)) depth = _in.track ? _in.track->bitDepth.value_or(0) : 0;
    const std::string rate = signalPathRate(sourceRate());
    if (depth <= 0) return "Float32 / " + rate;
    if (_facts.fileFormat.isFloat()) return fmt::format("Float{} / {}", depth, rate);
    return fmt::format("{}-bit / {}", depth, rate);
  }

  std::string dsdName() const {
    for (const int multiple : {64, 128, 256, 512}) {
      if (_facts.dsdRate == multiple * 44100.0) return fmt::format("DSD{}", multiple);
    }
    return "DSD";
  }

  void addSource() {
    constexpr std::string_view kName = "Source";
    constexpr std::string_view kIcon = "music.note";
    const std::string rate = signalPathRate(sourceRate());
    if (isDSD() && _in.isDoP) {
      return add(stage(kName, dsdName(), Quality::lossless, kIcon, "DoP " + rate));
    }
    if (isDSD()) {
      return add(
          stage(kName, dsdName() + " → Float32/" + rate, Quality::enhanced, kIcon, "DSD→PCM"));
    }
    std::optional<std::string> detail;
    if (const std::string tag = formatTag(); !tag.empty()) {
      detail = uppercase(tag);
      const int bitRate = _in.track ? _in.track->bitRate.value_or(0) : 0;
      if (isLossy() && bitRate > 0) *detail += fmt::format(" {} kbps", bitRate / 1000);
    }
    add(stage(kName, sourceFormat(), isLossy() ? Quality::enhanced : Quality::lossless, kIcon,
              std::move(detail)));
  }

  // --- What is done to it ---

  double clientRate() const {
    const double rate = _facts.clientFormat.sampleRate;
    return rate > 0 ? rate : sourceRate();
  }

  std::string clientFormat(double rate) const {
    const std::string type = _facts.isIntegerOutput
                                 ? fmt::format("Int{}", _facts.clientFormat.bitsPerChannel)
                                 : "Float32";
    return type + " / " + signalPathRate(rate);
  }

  void addDecoder() {
    if (!_facts.decoder) return;
    add(stage(_facts.decoder->name, clientFormat(clientRate()),
              isLossy() ? Quality::enhanced : Quality::lossless, "cpu", _facts.decoder->library));
  }

  /// Integers pass by the chain, whether the setting asked for them or not.
  void addEffects() {
    if (_facts.isIntegerOutput || _in.isDoP) return;
    for (const SignalPathInput::Effect& effect : _in.effects) {
      const EffectNames& names = namesOf(effect.type);
      add(stage(names.displayName, "Float32 / " + signalPathRate(clientRate()), Quality::enhanced,
                names.icon, effect.detail));
    }
    if (_in.headroomDB >= kLeastHeadroomDB) {
      add(stage("Headroom", fmt::format("-{:.1f} dB", _in.headroomDB), Quality::enhanced,
                "arrow.down.right"));
    }
  }

  void addResampling() {
    if (!(_facts.resampledTo > 0)) return;
    const double from = _facts.resampledFrom > 0 ? _facts.resampledFrom : sourceRate();
    const int factor = from > 0 ? static_cast<int>(_facts.resampledTo / from) : 0;
    add(stage("Resampling", "Float32 / " + signalPathRate(_facts.resampledTo), Quality::enhanced,
              "arrow.triangle.2.circlepath",
              factor >= 2 ? fmt::format("soxr ×{}", factor) : "soxr"));
  }

  // --- The volume ---

  bool isFullVolume() const { return std::abs(_in.volume - 1) < kUnityTolerance; }

  Stage volumeStage() const {
    constexpr std::string_view kIcon = "speaker.wave.2";
    const std::string percent = fmt::format("{}%", static_cast<int>(_in.volume * 100));
    switch (_in.volumeMode) {
      case VolumeMode::hardware:
        return stage("Hardware Volume", percent, Quality::lossless, kIcon,
                     "DAC control, 0 dB digital");
      case VolumeMode::fixed:
        return stage("Fixed Output", "0 dB", Quality::lossless, kIcon, "No attenuation");
      case VolumeMode::software:
        break;
    }
    if (_facts.isIntegerOutput && !isFullVolume()) {
      return stage("Volume", percent, Quality::lossless, kIcon, "Not applied to integers");
    }
    return stage("Volume", percent, isFullVolume() ? Quality::lossless : Quality::enhanced, kIcon);
  }

  void addVolume() {
    Stage volume = volumeStage();
    // The sound server scales samples, whatever our own volume promises.
    if (!_facts.output.volumeUnity) {
      volume.detail = "The system's volume is not at 100 %";
      volume.quality = Quality::enhanced;
    }
    add(std::move(volume));
  }

  // --- The device ---

  bool isExclusive() const { return _in.exclusiveMode && _facts.output.exclusive; }

  /// What the settings lack for a bit-perfect path; empty for nothing.
  std::string missingSetting() const {
    if (!_in.exclusiveMode) return "exclusive mode is off";
    if (!_facts.output.exclusive) return "the device is not ours alone";
    if (!_in.integerMode) return "integer mode is off";
    if (!_facts.isIntegerOutput) return "the device is not given integers";
    if (_in.strategy != SampleRateStrategy::native) return "the rate need not be the file's";
    if (_in.volumeMode == VolumeMode::software && !isFullVolume()) return "volume below 100 %";
    return {};
  }

  std::string reason() const {
    if (!_verdict.bitPerfect) return _verdict.reason;
    const std::string missing = missingSetting();
    return missing.empty() ? missing : missing + "; no bit changes all the same";
  }

  /// Hz: where the device runs, as far as that was read back.
  double outputRate() const {
    if (_facts.output.deviceRate > 0) return _facts.output.deviceRate;
    if (_facts.resampledTo > 0) return _facts.resampledTo;
    return isDSD() ? clientRate() : sourceRate();
  }

  void addOutput() {
    const bool bitPerfect = reason().empty();
    std::string detail = "Bit-perfect";
    if (!bitPerfect) {
      detail = isExclusive() ? "Exclusive" : "Shared";
      if (_facts.isIntegerOutput) detail += ", Integer";
    }
    if (!_facts.transport.empty() && _facts.transport != "Unknown") {
      detail += ", " + _facts.transport;
    }
    add(stage(_facts.deviceName.empty() ? "Unknown Device" : _facts.deviceName,
              clientFormat(outputRate()), bitPerfect ? Quality::bitPerfect : Quality::lossless,
              "hifispeaker", std::move(detail)));
  }

  const SignalPathInput& _in;
  const PlaybackFacts& _facts;
  const PathVerdict _verdict;
  std::vector<Stage> _stages;
};

}  // namespace

std::string_view labelOf(SignalPath::Quality quality) noexcept {
  switch (quality) {
    case Quality::bitPerfect:
      return "Bit-Perfect";
    case Quality::lossless:
      return "Lossless";
    case Quality::enhanced:
      break;
  }
  return "Enhanced";
}

SignalPath::Quality overallQuality(const std::vector<SignalPath::Stage>& stages) noexcept {
  if (stages.empty()) return Quality::lossless;
  return std::ranges::max(stages, {}, &Stage::quality).quality;
}

std::string signalPathRate(double hertz) {
  if (!(hertz > 0)) return "—";
  if (hertz < 1000) return fmt::format("{:.0f} Hz", hertz);
  const double kilohertz = hertz / 1000;
  const bool isWhole = kilohertz == std::floor(kilohertz);
  return isWhole ? fmt::format("{:.0f} kHz", kilohertz) : fmt::format("{:.1f} kHz", kilohertz);
}

namespace detailOf {

std::string preAmp(double gainDB) {
  return fmt::format("{:+.1f} dB", gainDB);
}

std::string replayGain(double gainDB, bool isAlbum) {
  return fmt::format("{:+.1f} dB ({})", gainDB, isAlbum ? "Album" : "Track");
}

std::string dither(int bits, std::string_view algorithm) {
  return fmt::format("{}-bit {}", bits, algorithm);
}

}  // namespace detailOf

SignalPath buildSignalPath(const SignalPathInput& input) {
  return Build(input).path();
}

}  // namespace velorin
