// From one track of one-bit audio to another without giving up the device.
#include "engine/AudioEngineImpl.h"
#include "engine/dsd/DSDPreparation.h"
#include "engine/files/FormatNames.h"
#include "foundation/Log.h"

namespace velorin {
namespace {

constexpr double kSameRate = 1.0;  // Hz

}  // namespace

bool AudioEngine::Impl::quickRestartDSD(const Track& track, std::optional<double> startTime) {
  const SharedFacts heard = heardSource();
  if (!heard || !heard->dsd || !isDSDFile(track.filePath) || !output.isOpen()) return false;
  if (nowPlaying.state() == PlaybackState::stopped) return false;
  // Why a file cannot be opened is told by the start from scratch.
  auto opened = joins->files.open(track.filePath, whileWanted());
  if (!opened || opened.value().decoder->dsd() == nullptr) return false;
  const FileDecoder& decoder = *opened.value().decoder;
  const DSDRatePlan plan = selectDSDOutputRate(devices.rateOffer(), settings.rates.forceHighRate,
                                               opened.value().decoder->dsd()->dsdRate());
  if (std::abs(plan.chosen - heard->fileFormat.sampleRate) > kSameRate ||
      decoder.channels() != heard->fileFormat.channelsPerFrame) {
    return false;
  }
  const double start = std::max(0.0, startTime.value_or(0));
  try {
    return restartOutput(track, std::move(opened).value(), plan, start);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool AudioEngine::Impl::restartOutput(const Track& track, OpenedTrack opened,
                                      const DSDRatePlan& plan, double start) {
  const auto old = currentSession();
  playGeneration.fetch_add(1, std::memory_order_release);
  progressTimer.stop();
  old->seek.cancel();
  output.pause();
  setRendering(false);
  // One that is stuck in its file would go on writing to the ring.
  if (!fillThread.stop(/*quick=*/true)) return false;

  auto made = std::make_shared<PlaybackSession>(old->clientFormat, old->ringOwner, joins);
  made->framesKept = old->framesKept;
  made->rateSettings = settings.rates;
  made->rateOffer = devices.rateOffer();
  opened.decoder->dsd()->prepareDSDtoPCM(plan.decimation);
  SourceFacts facts = describeSource(track, *opened.decoder, plan);
  facts.isInMemory = opened.isInMemory;
  auto resampler = ResampleStage::create(facts.fileFormat.sampleRate, made->clientFormat);
  nowPlaying.replaceTrack(track);
  useSession(made, std::move(opened.decoder), std::move(resampler), std::move(facts));
  startFilling(start);
  prefill();

  effects->formatChanged(made->clientFormat.sampleRate, made->clientFormat.channelsPerFrame);
  const SharedFacts first = heardSource();
  auto renderPath = makeRenderPath(*made);
  outputGeneration.store(playGeneration.load());
  setRendering(true);
  const AudioStatus status = output.restart(std::move(renderPath), made->clientFormat.sampleRate);
  if (!status.ok()) {
    log::line("❌ DSD quick restart AudioOutputUnitStart failed: {}", status.description());
    return false;
  }
  announceStart(*first, " [quick restart]");
  return true;
}

}  // namespace velorin
