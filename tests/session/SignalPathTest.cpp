// The stages of the signal path, and that none promises more than was read back.
#include <gtest/gtest.h>

#include <functional>

#include "engine/output/ClientFormat.h"
#include "session/SignalPath.h"

namespace velorin {
namespace {

using Change = std::function<void(SignalPathInput&)>;

/// A CD track on a device of our own, with everything that a bit-perfect path needs.
SignalPathInput perfect() {
  SignalPathInput in;
  in.facts.fileFormat = fileFormatOf(44100, 2, 16, false);
  in.facts.clientFormat = clientFormatFor(true, 16, 44100, 2);
  in.facts.sourceBitDepth = 16;
  in.facts.decoder = DecoderInfo{"FLAC Decoder", "libFLAC", true, "FLAC"};
  in.facts.isIntegerOutput = true;
  in.facts.deviceRateVerified = true;
  in.facts.deviceName = "DAC";
  in.facts.transport = "USB";
  in.facts.output.backend = "ALSA";
  in.facts.output.deviceRate = 44100;
  in.facts.output.deviceBits = 16;
  in.facts.output.exclusive = true;
  in.exclusiveMode = in.integerMode = true;
  return in;
}

void playFloats(SignalPathInput& in) {
  in.integerMode = in.facts.isIntegerOutput = false;
  in.facts.clientFormat = clientFormatFor(false, 16, 44100, 2);
  in.facts.output.deviceBits = 32;
}

void resample(SignalPathInput& in, double from, double to) {
  playFloats(in);
  in.strategy = SampleRateStrategy::powerOf2;
  in.facts.fileFormat.sampleRate = in.facts.resampledFrom = from;
  in.facts.resampledTo = in.facts.clientFormat.sampleRate = in.facts.output.deviceRate = to;
}

void playDSD(SignalPathInput& in, double rate) {
  playFloats(in);
  in.facts.dsdRate = rate;
  in.facts.sourceBitDepth = 1;
  in.facts.fileFormat.sampleRate = in.facts.clientFormat.sampleRate = 88200;
  in.facts.output.deviceRate = 88200;
}

/// "name|format|detail|rank" of each stage.
std::string textOf(const SignalPath& path) {
  std::string text;
  for (const SignalPath::Stage& stage : path.stages) {
    EXPECT_TRUE(stage.isActive);
    EXPECT_FALSE(stage.id.empty() || stage.icon.empty());
    text += stage.name + "|" + stage.format + "|" + stage.detail.value_or("none") + "|" +
            std::to_string(static_cast<int>(stage.quality)) + "\n";
  }
  return text;
}

TEST(SignalPath, TellsEveryStageInOrder) {
  SignalPathInput in = perfect();
  EXPECT_EQ(textOf(buildSignalPath(in)),
            "Source|16-bit / 44.1 kHz|FLAC|1\n"
            "FLAC Decoder|Int16 / 44.1 kHz|libFLAC|1\n"
            "Volume|100%|none|1\n"
            "DAC|Int16 / 44.1 kHz|Bit-perfect, USB|0\n");
  resample(in, 44100, 96000);
  in.facts.isInMemory = true;
  in.volume = 0.579;
  in.effects = {{DSPEffectType::replayGain, detailOf::replayGain(-6.25, true)},
                {DSPEffectType::preAmp, detailOf::preAmp(3)},
                {DSPEffectType::crossfeed, {}},
                {DSPEffectType::dither, detailOf::dither(16, "TPDF")}};
  in.headroomDB = 0.5;
  const SignalPath path = buildSignalPath(in);
  EXPECT_EQ(textOf(path),
            "Source|16-bit / 44.1 kHz|FLAC|1\n"
            "Memory Playback|16-bit / 44.1 kHz|none|1\n"
            "FLAC Decoder|Float32 / 96 kHz|libFLAC|1\n"
            "ReplayGain|Float32 / 96 kHz|-6.2 dB (Album)|2\n"
            "Pre-Amp|Float32 / 96 kHz|+3.0 dB|2\n"
            "Crossfeed|Float32 / 96 kHz|none|2\n"
            "Dither|Float32 / 96 kHz|16-bit TPDF|2\n"
            "Headroom|-0.5 dB|none|2\n"
            "Resampling|Float32 / 96 kHz|soxr ×2|2\n"
            "Volume|57%|none|2\n"
            "DAC|Float32 / 96 kHz|Exclusive, USB|1\n");
  EXPECT_EQ(labelOf(overallQuality(path.stages)), "Enhanced");
  EXPECT_EQ(labelOf(overallQuality({})), "Lossless");
}

TEST(SignalPath, EachStageFollowsWhatWasReadBack) {
  const struct {
    const char* line;  ///< one that the path has, or with a leading "!" one that it has not
    Change change;
  } cases[] = {
      {"Source|24-bit / —|none|1",
       [](auto& in) {
         in.facts = {};
         in.track.emplace().bitDepth = 24;
       }},
      {"Source|Float32 / —|none|1", [](auto& in) { in.facts = {}; }},
      {"Unknown Device|Float32 / —|Shared|1", [](auto& in) { in.facts = {}; }},
      {"Source|Float32 / 48 kHz|MP3 320 kbps|2",
       [](auto& in) {
         in.facts.decoder->isLossless = false;
         in.facts.sourceBitDepth = 0;
         in.facts.fileFormat = fileFormatOf(48000, 2, 0, true);
         in.track.emplace().format = "mp3";
         in.track->bitRate = 320'999;
       }},
      {"FLAC Decoder|Int16 / 44.1 kHz|libFLAC|2",
       [](auto& in) { in.facts.decoder->isLossless = false; }},
      {"Source|16-bit / 44.1 kHz|OGG|1", [](auto& in) { in.track.emplace().format = "ogg"; }},
      {"Source|Float32 / 44.1 kHz|FLAC|1",
       [](auto& in) {
         in.facts.sourceBitDepth = 32;
         in.facts.fileFormat = fileFormatOf(44100, 2, 32, true);
       }},
      {"Source|DSD64 → Float32/88.2 kHz|DSD→PCM|2", [](auto& in) { playDSD(in, 2822400); }},
      {"Source|DSD512 → Float32/88.2 kHz|DSD→PCM|2", [](auto& in) { playDSD(in, 22579200); }},
      {"Source|DSD → Float32/88.2 kHz|DSD→PCM|2", [](auto& in) { playDSD(in, 3072000); }},
      {"Source|DSD64|DoP 88.2 kHz|1",
       [](auto& in) {
         playDSD(in, 2822400);
         in.isDoP = true;
       }},
      {"!Crossfeed|Float32 / 88.2 kHz|none|2",
       [](auto& in) {
         playDSD(in, 2822400);
         in.isDoP = true;
         in.effects = {{DSPEffectType::crossfeed, {}}};
       }},
      // Integers pass by the chain; floats do not, although integers were wanted.
      {"!Crossfeed|Float32 / 44.1 kHz|none|2",
       [](auto& in) {
         in.effects = {{DSPEffectType::crossfeed, {}}};
       }},
      {"Crossfeed|Float32 / 44.1 kHz|none|2",
       [](auto& in) {
         playFloats(in);
         in.integerMode = true;
         in.effects = {{DSPEffectType::crossfeed, {}}};
       }},
      {"!Headroom|-0.4 dB|none|2",
       [](auto& in) {
         playFloats(in);
         in.headroomDB = 0.4;
       }},
      {"Resampling|Float32 / 44.1 kHz|soxr|2", [](auto& in) { resample(in, 48000, 44100); }},
      {"Resampling|Float32 / 88.2 kHz|soxr ×2", [](auto& in) { resample(in, 44100, 88200); }},
      {"!Resampling|", [](auto& in) { in.strategy = SampleRateStrategy::max; }},
      {"Volume|99%|none|1",
       [](auto& in) {
         playFloats(in);
         in.volume = 0.99995;
       }},
      {"Volume|50%|Not applied to integers|1", [](auto& in) { in.volume = 0.5; }},
      {"Hardware Volume|50%|DAC control, 0 dB digital|1",
       [](auto& in) {
         in.volumeMode = VolumeMode::hardware;
         in.volume = 0.5;
       }},
      {"Fixed Output|0 dB|No attenuation|1", [](auto& in) { in.volumeMode = VolumeMode::fixed; }},
      {"Fixed Output|0 dB|The system's volume is not at 100 %|2",
       [](auto& in) {
         in.volumeMode = VolumeMode::fixed;
         in.facts.output.volumeUnity = false;
       }},
      {"DAC|Int16 / 48 kHz|Exclusive, Integer, USB|1",
       [](auto& in) {
         in.facts.output.deviceRate = 48000;
         in.facts.deviceRateVerified = false;
       }},
      {"DAC|Int16 / 44.1 kHz|Shared, Integer|1",
       [](auto& in) {
         in.exclusiveMode = false;
         in.facts.transport = "Unknown";
       }},
      {"DAC|Int16 / 44.1 kHz|Bit-perfect|0", [](auto& in) { in.facts.transport = "Unknown"; }},
  };
  for (const auto& each : cases) {
    SignalPathInput in = perfect();
    each.change(in);
    const std::string text = "\n" + textOf(buildSignalPath(in));
    const bool isAbsent = *each.line == '!';
    const std::string line = "\n" + std::string(each.line + (isAbsent ? 1 : 0));
    EXPECT_EQ(text.find(line) == std::string::npos, isAbsent) << line << text;
  }
}

TEST(SignalPath, IsBitPerfectOnlyWhenSettingsAndFactsAgree) {
  EXPECT_EQ(buildSignalPath(perfect()).reason, "");
  const struct {
    const char* reason;
    Change change;
  } cases[] = {
      {"exclusive mode is off; no bit changes all the same",
       [](auto& in) { in.exclusiveMode = false; }},
      {"the device is not ours alone; no bit changes all the same",
       [](auto& in) { in.facts.output.exclusive = false; }},
      {"integer mode is off; no bit changes all the same", playFloats},
      {"the device is not given integers; no bit changes all the same",
       [](auto& in) {
         playFloats(in);
         in.integerMode = true;
       }},
      {"the rate need not be the file's; no bit changes all the same",
       [](auto& in) { in.strategy = SampleRateStrategy::fixed; }},
      {"volume below 100 %; no bit changes all the same", [](auto& in) { in.volume = 0.5; }},
      {"DSD is converted to PCM", [](auto& in) { playDSD(in, 2822400); }},
      {"resampled to 96000 Hz", [](auto& in) { resample(in, 44100, 96000); }},
      {"device runs at 44100 Hz", [](auto& in) { in.facts.deviceRateVerified = false; }},
      {"converted on the way to the device", [](auto& in) { in.facts.output.converted = true; }},
      {"nothing is playing", [](auto& in) { in.facts = {}; }},
  };
  for (const auto& each : cases) {
    SignalPathInput in = perfect();
    each.change(in);
    const SignalPath path = buildSignalPath(in);
    EXPECT_EQ(path.reason, each.reason);
    EXPECT_NE(path.stages.back().quality, SignalPath::Quality::bitPerfect) << each.reason;
  }
}

TEST(SignalPath, WritesRatesInAFewCharacters) {
  const std::pair<double, const char*> cases[] = {{0, "—"},
                                                  {-1, "—"},
                                                  {800, "800 Hz"},
                                                  {44100, "44.1 kHz"},
                                                  {88200, "88.2 kHz"},
                                                  {96000, "96 kHz"},
                                                  {768000, "768 kHz"}};
  for (const auto& [hertz, text] : cases) EXPECT_EQ(signalPathRate(hertz), text);
}

}  // namespace
}  // namespace velorin
