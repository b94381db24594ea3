#include "engine/joins/NextSource.h"

#include <cmath>

#include "engine/dsd/DSDPreparation.h"
#include "engine/files/FormatNames.h"
#include "foundation/Log.h"

namespace velorin {
namespace {

constexpr std::uint32_t kMost16BitDepth = 16;
constexpr double kSameRate = 1.0;  // Hz

OpenedTrack open(const PlaybackSession& session, const std::string& path) {
  JoinDesk& desk = *session.joins;
  if (OpenedTrack ahead = desk.preOpened.take(path); ahead.decoder) return ahead;
  auto opened =
      desk.files.open(path, [&session] { return session.cells.fillThreadShouldRun.load(); });
  return opened ? std::move(opened).value() : OpenedTrack{};
}

/// An integer stream carries words of one size, which a decoder fills by its own depth.
bool fitsIntegers(const PlaybackSession& session, const FileDecoder& decoder,
                  const std::string& name) {
  if (!session.isIntegerOutput) return true;
  if (decoder.isFloatSource()) return false;
  const std::uint32_t bits = decoder.bitsPerSample();
  // A lossy file has no depth, and no form in integers that would be its own.
  const std::uint32_t needed = bits > kMost16BitDepth ? 4 : 2;
  if (bits > 0 && session.clientFormat.bytesPerFrame == needed) return true;
  log::line("🔗 {} aborted: bit-depth mismatch in integer mode ({} → {})", name,
            session.clientFormat.bitsPerChannel, bits);
  return false;
}

void moveToCueStart(FileDecoder& decoder, const Track& track, const std::string& name) {
  if (!track.cueStartTime) return;
  decoder.seek(framesAt(*track.cueStartTime, decoder.sampleRate()));
  log::line("⏩ {} CUE ({}): seek to {:.1f}s", name, formatNamesOf(track.filePath).cueSeek,
            *track.cueStartTime);
}

/// One-bit audio is joined where its PCM comes at the same rate; the listener's strategy is not
/// asked.
RateBridge::Decision fitRates(const PlaybackSession& session, const SourceFacts& next,
                              const std::string& name, bool mayBreakNative) {
  const SourceFacts& old = *session.source;
  const double newRate = next.fileFormat.sampleRate;
  if (next.dsd) {
    const bool isSame = std::abs(newRate - old.fileFormat.sampleRate) <= kSameRate;
    return {.action = isSame ? RateBridge::Action::goOn : RateBridge::Action::refuse};
  }
  const RatePlan fresh = planRates(session.rateSettings, session.rateOffer, newRate);
  const RateBridge::Decision rates = RateBridge::decide(
      {.newRate = newRate,
       .fileRate = old.fileFormat.sampleRate,
       .clientRate = session.clientFormat.sampleRate,
       .plannedRate = fresh.clientRate(newRate),
       .resampling = resamplingOf(old),
       .isNative = session.rateSettings.strategy == SampleRateStrategy::native && !mayBreakNative},
      name);
  // Of a bridge that a fade merely goes on with there is nothing to say.
  const bool isNews = !mayBreakNative || resamplingOf(old) == RateBridge::Resampling::none;
  if (isNews && !rates.line.empty()) log::line("{}", rates.line);
  return rates;
}

}  // namespace

RateBridge::Resampling resamplingOf(const SourceFacts& facts) noexcept {
  using enum RateBridge::Resampling;
  if (facts.targetSampleRate <= 0) return none;
  return facts.isBridgeResampling ? bridge : byStrategy;
}

std::optional<NextSource> openNextSource(const PlaybackSession& session, const Track& track,
                                         const std::string& name, bool mayBreakNative) {
  const SourceFacts& old = *session.source;
  const StreamFormat& client = session.clientFormat;
  if (isDSDFile(track.filePath) != old.dsd.has_value()) return std::nullopt;
  NextSource next;
  OpenedTrack opened = open(session, track.filePath);
  if (!opened.decoder) return std::nullopt;
  next.decoder = std::move(opened.decoder);
  const auto dsd = prepareDSD(*next.decoder, session.rateSettings, session.rateOffer);
  moveToCueStart(*next.decoder, track, name);

  next.facts = describeSource(track, *next.decoder, dsd);
  next.facts.isInMemory = opened.isInMemory;
  if (next.facts.fileFormat.channelsPerFrame != client.channelsPerFrame) return std::nullopt;
  if (!fitsIntegers(session, *next.decoder, name)) return std::nullopt;
  const RateBridge::Decision rates = fitRates(session, next.facts, name, mayBreakNative);
  if (rates.action == RateBridge::Action::refuse) return std::nullopt;

  // A resampler goes on only where its reader does.
  next.continuesResampler = rates.action == RateBridge::Action::goOn &&
                            (session.reader != nullptr || old.targetSampleRate <= 0);
  if (!next.continuesResampler) {
    next.resampler = ResampleStage::create(next.facts.fileFormat.sampleRate, client);
  }
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
  if (facts->dsd && decoder->dsd()) decoder->dsd()->prepareDSDtoPCM(facts->dsd->decimation);
  if (describeSource(facts->track, *decoder, facts->dsd).fileFormat != facts->fileFormat) {
    return nullptr;
  }
  std::unique_ptr<ResampleStage> resampler;
  if (facts->targetSampleRate > 0) {
    resampler = ResampleStage::create(facts->fileFormat.sampleRate, session.clientFormat);
    if (!resampler) return nullptr;
  }
  return std::make_unique<SourceReader>(std::move(decoder), std::move(facts), std::move(resampler),
                                        session.clientFormat);
}

}  // namespace velorin
