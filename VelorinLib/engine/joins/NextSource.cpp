#include "engine/joins/NextSource.h"

#include "foundation/Log.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

constexpr std::uint32_t kMost16BitDepth = 16;

bool isDSD(const std::string& path) {
  const std::string extension = text::fileExtension(path);
  return extension == "dsf" || extension == "dff";
}

OpenedTrack open(JoinDesk& desk, const std::string& path) {
  if (OpenedTrack ahead = desk.preOpened.take(path); ahead.decoder) return ahead;
  auto opened = desk.files.open(path);
  return opened ? std::move(opened).value() : OpenedTrack{};
}

/// An integer stream carries words of one size, which a decoder fills by its own depth.
bool fitsIntegers(const PlaybackSession& session, const FileDecoder& decoder,
                  const std::string& name) {
  if (!session.isIntegerOutput) return true;
  if (decoder.isFloatSource()) return false;
  const std::uint32_t bits = decoder.bitsPerSample();
  const std::uint32_t needed = bits > kMost16BitDepth ? 4 : 2;
  if (session.clientFormat.bytesPerFrame == needed) return true;
  log::line("🔗 {} aborted: bit-depth mismatch in integer mode ({} → {})", name,
            session.clientFormat.bitsPerChannel, bits);
  return false;
}

void moveToCueStart(FileDecoder& decoder, const Track& track, const std::string& name) {
  if (!track.cueStartTime) return;
  decoder.seek(framesAt(*track.cueStartTime, decoder.sampleRate()));
  const DecoderInfo info = decoder.info();
  log::line("⏩ {} CUE ({}): seek to {:.1f}s", name, info.formatTag.value_or(info.library),
            *track.cueStartTime);
}

}  // namespace

RateBridge::Resampling resamplingOf(const SourceFacts& facts) noexcept {
  using enum RateBridge::Resampling;
  if (facts.targetSampleRate <= 0) return none;
  return facts.isBridgeResampling ? bridge : byStrategy;
}

std::optional<NextSource> openNextSource(const PlaybackSession& session, const Track& track,
                                         const std::string& name, bool mayBreakNative) {
  if (isDSD(track.filePath)) return std::nullopt;
  NextSource next;
  OpenedTrack opened = open(*session.joins, track.filePath);
  if (!opened.decoder) return std::nullopt;
  next.decoder = std::move(opened.decoder);
  moveToCueStart(*next.decoder, track, name);

  const SourceFacts& old = *session.source;
  const StreamFormat& client = session.clientFormat;
  next.facts = describeSource(track, *next.decoder);
  next.facts.isInMemory = opened.isInMemory;
  const double newRate = next.facts.fileFormat.sampleRate;
  if (next.facts.fileFormat.channelsPerFrame != client.channelsPerFrame) return std::nullopt;
  if (!fitsIntegers(session, *next.decoder, name)) return std::nullopt;

  const RatePlan fresh = planRates(session.rateSettings, session.rateOffer, newRate);
  const RateBridge::Decision rates = RateBridge::decide(
      {.newRate = newRate,
       .fileRate = old.fileFormat.sampleRate,
       .clientRate = client.sampleRate,
       .plannedRate = fresh.clientRate(newRate),
       .resampling = resamplingOf(old),
       .isNative = session.rateSettings.strategy == SampleRateStrategy::native && !mayBreakNative},
      name);
  // Of a bridge that a fade merely goes on with there is nothing to say.
  const bool isNews = !mayBreakNative || resamplingOf(old) == RateBridge::Resampling::none;
  if (isNews && !rates.line.empty()) log::line("{}", rates.line);
  if (rates.action == RateBridge::Action::refuse) return std::nullopt;

  // A resampler goes on only where its reader does.
  next.continuesResampler = rates.action == RateBridge::Action::goOn &&
                            (session.reader != nullptr || old.targetSampleRate <= 0);
  if (!next.continuesResampler) next.resampler = ResampleStage::create(newRate, client);
  const bool resamples =
      next.continuesResampler ? old.targetSampleRate > 0 : next.resampler != nullptr;
  next.facts.targetSampleRate = resamples ? client.sampleRate : 0;
  next.facts.isBridgeResampling = resamples && rates.isBridge;
  return next;
}

std::unique_ptr<SourceReader> reopenSource(const PlaybackSession& session, SharedFacts facts) {
  auto opened = session.joins->files.open(facts->track.filePath);
  if (!opened) return nullptr;
  auto decoder = std::move(opened.value().decoder);
  if (describeSource(facts->track, *decoder).fileFormat != facts->fileFormat) return nullptr;
  std::unique_ptr<ResampleStage> resampler;
  if (facts->targetSampleRate > 0) {
    resampler = ResampleStage::create(facts->fileFormat.sampleRate, session.clientFormat);
    if (!resampler) return nullptr;
  }
  return std::make_unique<SourceReader>(std::move(decoder), std::move(facts), std::move(resampler),
                                        session.clientFormat);
}

}  // namespace velorin
