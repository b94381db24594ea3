// From a track to the first sound.
#include <filesystem>
#include <new>
#include <thread>

#include "engine/AudioEngineImpl.h"
#include "engine/dsd/DSDPreparation.h"
#include "engine/files/FormatNames.h"
#include "engine/joins/Prefetch.h"
#include "engine/output/ClientFormat.h"
#include "foundation/Log.h"
#include "records/Events.h"

namespace velorin {
namespace {

using std::chrono::milliseconds;

constexpr double kRingSeconds = 30;
/// Two seconds or more: no device holds as much. Thirty are left.
constexpr std::int64_t kShareKept = 16;
constexpr std::int64_t kSmallestPrefill = 8192;
constexpr double kPrefillShare = 0.05;
constexpr milliseconds kPrefillPoll{2};
constexpr milliseconds kFirstPrefillWait{1000};
constexpr milliseconds kSecondPrefillWait{2000};

/// True when the ring holds enough to start, or all there is.
bool waitForPrefill(const PlaybackSession& session, milliseconds timeout) {
  const auto target = std::max(
      static_cast<std::int64_t>(kPrefillShare * static_cast<double>(session.ring.capacity())),
      kSmallestPrefill);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const TransportCells& cells = session.cells;
  while (session.ring.framesHeld() < target && !cells.eofReached && !cells.fillStalled) {
    if (std::chrono::steady_clock::now() >= deadline) return session.ring.framesHeld() > 0;
    std::this_thread::sleep_for(kPrefillPoll);
  }
  return true;
}

std::shared_ptr<PlaybackSession> makeStream(const StreamFormat& clientFormat,
                                            std::shared_ptr<JoinDesk> joins) {
  auto made = std::make_shared<PlaybackSession>(
      clientFormat, static_cast<std::int64_t>(kRingSeconds * clientFormat.sampleRate),
      std::move(joins));
  made->framesKept = made->ring.capacity() / kShareKept;
  return made;
}

/// Of one-bit audio it is told how its PCM is made.
std::string startLine(const SourceFacts& facts) {
  if (!facts.dsd) {
    return fmt::format("▶️ Playing: {} [{:.0f}Hz / {}bit]{}", titleOf(facts.track),
                       facts.fileFormat.sampleRate, facts.sourceBitDepth,
                       cueRangeText(facts.track));
  }
  const int decimation = facts.dsd->decimation;
  return fmt::format("▶️ Playing DSD (PCM): {} [{}] dsd2pcm 8:1{}", titleOf(facts.track),
                     conversionText(*facts.dsd),
                     decimation >= 2 ? fmt::format(" + {}:1 FIR", decimation) : std::string());
}

}  // namespace

void AudioEngine::Impl::prefill() {
  const auto playing = currentSession();
  // Of a short file the fill thread may have joined the next one already.
  const bool isDSD = playing->clock.read(0).facts->dsd.has_value();
  if (waitForPrefill(*playing, kFirstPrefillWait)) return;
  log::line("{}", isDSD ? "⚠️ DSD Prefill: 0 frames — retrying"
                        : "⚠️ Prefill: 0 frames after 1s — retrying");
  if (waitForPrefill(*playing, kSecondPrefillWait) || isDSD) return;
  log::line("⚠️ Prefill: still 0 frames after retry — fill thread may be stuck");
}

void AudioEngine::Impl::play(const Track& track, std::optional<double> startTime) {
  if (jumpWithinCueFile(track, startTime)) return;
  // Kept across the stop: the track that plays may be the one that is asked for.
  const auto image = joins->files.memory().imageInUse(track.filePath);
  if (quickRestartDSD(track, startTime)) return;
  stop();
  if (!joins->files.volumes().resolveTrackURL(track.filePath, whileWanted())) {
    log::line("❌ File not found: {}", track.filePath);
    bus.postOnMain(PlaybackFileUnavailable{titleOf(track), track.filePath});
    return;
  }
  nowPlaying.setTrack(track);
  playPCM(track, startTime);
}

void AudioEngine::Impl::playPCM(const Track& track, std::optional<double> startTime) {
  const double start = std::max(0.0, startTime.value_or(0));
  outputFailed = false;
  (void)ensureDeviceInUse();
  try {
    Started started = startStream(track, start, settings.exclusiveMode);
    if (started == Started::noOutput && devices.isHogMode()) {
      // What the card cannot do by itself (more channels than it has, say) the server may.
      log::line("⚠️ The device does not play this exclusively: going on in shared mode");
      releaseStream();
      devices.disableHogMode();
      started = startStream(track, start, /*exclusively=*/false);
    }
    if (started == Started::noFile) return;
    if (started == Started::noOutput) {
      log::line("❌ Failed to start audio output{}",
                isDSDFile(track.filePath) ? " for DSD track" : "");
      outputFailed = true;
      stop();
      return;
    }
    // A device that refused was replaced by another one, which has a mode of its own.
    if (devices.current() != inUse.id) moveToFallback();
  } catch (const std::bad_alloc&) {
    log::line("❌ Not enough memory to play {}", track.filePath);
    stop();
    return;
  }
}

AudioEngine::Impl::Started AudioEngine::Impl::startStream(const Track& track, double start,
                                                          bool exclusively) {
  OpenedTrack opened = openDecoder(track);
  if (!opened.decoder) return Started::noFile;
  // Before the rates are decided: an exclusively held device offers others than the shared one.
  if (exclusively && devices.ensureValidOutputDevice()) devices.enableHogMode();
  makeSession(track, std::move(opened));
  startFilling(start);
  prefill();
  return startAudioOutput(start) ? Started::playing : Started::noOutput;
}

VolumeRemount::IsWanted AudioEngine::Impl::whileWanted() {
  return [this, stops = stopsWanted.load(), isWanted = isStillWanted] {
    return stopsWanted.load() == stops && (!isWanted || isWanted());
  };
}

OpenedTrack AudioEngine::Impl::openDecoder(const Track& track) {
  auto opened = joins->files.open(track.filePath, whileWanted());
  if (opened) return std::move(opened).value();

  if (isDSDFile(track.filePath)) {
    log::line("❌ Cannot parse DSD file: {}: {}",
              std::filesystem::path(track.filePath).filename().string(), opened.error().text);
  } else {
    log::line("❌ Cannot open {}file: {}", formatNamesOf(track.filePath).inErrors,
              opened.error().text);
  }
  bus.postOnMain(PlaybackFileUnavailable{titleOf(track), track.filePath});
  return {};
}

void AudioEngine::Impl::makeSession(const Track& track, OpenedTrack opened) {
  auto decoder = std::move(opened.decoder);
  const RateOffer offer = devices.rateOffer();
  const auto dsd = prepareDSD(*decoder, settings.rates, offer);
  SourceFacts facts = describeSource(track, *decoder, dsd);
  facts.isInMemory = opened.isInMemory;
  const double fileRate = facts.fileFormat.sampleRate;
  if (dsd) log::line("ℹ️ Converting DSD→PCM via dsd2pcm (96-tap FIR, -160dB stopband)");
  const RatePlan plan = dsd ? planRates(*dsd, offer) : planRates(settings.rates, offer, fileRate);
  for (const std::string& line : plan.linesBefore) log::line("{}", line);
  if (plan.deviceRate > 0) devices.setDeviceSampleRate(plan.deviceRate);
  for (const std::string& line : plan.linesAfter) log::line("{}", line);

  const bool integerWanted = settings.integerMode && !decoder->isFloatSource() && !dsd;
  const auto formatAt = [&](double rate) {
    return clientFormatFor(integerWanted, facts.sourceBitDepth, rate, decoder->channels());
  };
  StreamFormat clientFormat = formatAt(plan.clientRate(fileRate));
  auto resampler = ResampleStage::create(fileRate, clientFormat);
  if (!resampler) clientFormat = formatAt(fileRate);
  if (clientFormat.isInteger()) {
    log::line("🔢 Integer mode: {}-bit signed integer output", clientFormat.bitsPerChannel);
  } else if (settings.integerMode && decoder->isFloatSource() && !dsd) {
    const std::string_view format = formatNamesOf(track.filePath).preOpened;
    log::line(
        "ℹ️ Float-source {}: using Float32 output (integer mode would corrupt float samples)",
        format);
  }
  auto made = makeStream(clientFormat, joins);
  made->rateSettings = settings.rates;
  made->rateOffer = offer;
  useSession(std::move(made), std::move(decoder), std::move(resampler), std::move(facts));
}

void AudioEngine::Impl::useSession(std::shared_ptr<PlaybackSession> made,
                                   std::unique_ptr<FileDecoder> decoder,
                                   std::unique_ptr<ResampleStage> resampler, SourceFacts facts) {
  facts.targetSampleRate = resampler ? made->clientFormat.sampleRate : 0;
  made->generation = playGeneration.load();
  made->source = std::make_shared<const SourceFacts>(std::move(facts));
  made->reader = std::make_unique<SourceReader>(std::move(decoder), made->source,
                                                std::move(resampler), made->clientFormat);
  nowPlaying.setSource(*made->source);
  setSession(std::move(made));
}

void AudioEngine::Impl::startFilling(double start) {
  const auto playing = currentSession();
  playing->clock.jump(playing->source, start);
  auto fill = std::make_unique<FillPCM>(*playing);
  if (start > 0 || playing->source->bounds.start > 0) {
    playing->seek.ask(std::llround(start * 1e6));
    playing->cells.fillThreadShouldRun.store(true);
    fill->handlePendingSeek();
  }
  const int generation = playGeneration.load();
  fillThread.start(
      playing, std::move(fill),
      [this, generation] {
        advanceQueue.async([this, generation] { stopAndAdvance(generation); });
      },
      settings.lowLatencyMode);
}

bool AudioEngine::Impl::jumpWithinCueFile(const Track& track, std::optional<double> startTime) {
  const auto playing = currentSession();
  const SharedFacts heard = heardSource();
  if (!heard || !output.isOpen() || heard->track.filePath != track.filePath ||
      !track.cueStartTime) {
    return false;
  }
  const auto facts = std::make_shared<const SourceFacts>(sameFile(*heard, track));
  // Before the fill thread hears of it: a join that is announced from here on is overtaken.
  nowPlaying.setSource(*facts);
  playing->cells.eofReached.store(false);
  playing->seek.ask(std::llround(std::max(0.0, startTime.value_or(0)) * 1e6), facts);
  // A thread that has ended has asked for the end of everything; the track starts anew.
  if (!fillThread.isRunning()) return false;
  log::line("⏩ CUE seek: {}{}", titleOf(track), cueRangeText(track));
  playing->waker.signal();
  bus.postOnMain(
      TrackDidChange{.track = track, .sourceBitDepth = facts->sourceBitDepth, .join = {}});
  resume();
  return true;
}

bool AudioEngine::Impl::startAudioOutput(double start) {
  auto playing = currentSession();
  effects->formatChanged(playing->clientFormat.sampleRate, playing->clientFormat.channelsPerFrame);

  outputGeneration.store(playGeneration.load());
  const auto prepared =
      output.prepare(formatForDevice(playing->clientFormat),
                     [this](OutputEvent event) { onOutputEvent(event, outputGeneration.load()); });
  if (prepared == OutputSession::Prepared::failed) return false;
  if (prepared == OutputSession::Prepared::formatRefused) {
    if (!fallBackToFloat(start)) return false;
    playing = currentSession();
    output.useFormat(formatForDevice(playing->clientFormat));
  }

  // A short track may be over by the time that its start is told.
  const SharedFacts first = heardSource();
  auto renderPath = makeRenderPath(*playing);
  setRendering(true);
  if (!output.begin(std::move(renderPath), playing->clientFormat.sampleRate)) return false;
  announceStart(*first, {});
  return true;
}

std::unique_ptr<RenderPath> AudioEngine::Impl::makeRenderPath(PlaybackSession& playing) {
  playing.cells.ioBufferFrameSize.store(output.ioBufferFrameSize());
  playing.cells.playbackLatencyFrames.store(output.playbackLatencyFrames());
  renderingSession.store(&playing);
  const RenderPath::Stream stream{.ring = playing.ring,
                                  .cells = playing.cells,
                                  .gate = playing.gate,
                                  .sampleRate = playing.clientFormat.sampleRate,
                                  .bytesPerFrame = playing.clientFormat.bytesPerFrame,
                                  .isIntegerOutput = playing.isIntegerOutput,
                                  .bufferDeadlineUs = output.bufferDeadlineUs()};
  return std::make_unique<RenderPath>(stream, *controls, effects->stages(), spectrumCaptureRing);
}

void AudioEngine::Impl::announceStart(const SourceFacts& first, std::string_view how) {
  refreshReport();
  sleepInhibitor.acquire();
  changeState(PlaybackState::playing);
  progressTimer.start();
  bus.postOnMain(
      TrackDidChange{.track = first.track, .sourceBitDepth = first.sourceBitDepth, .join = {}});
  currentSession()->isAnnounced.store(true);
  // A wish that was there before: what the last stop closed is opened again.
  prefetchNextTrack(joins, first.track);
  log::line("{}{}", startLine(first), how);
}

bool AudioEngine::Impl::fallBackToFloat(double start) {
  const auto refused = currentSession();
  // The file is opened once more: what is decoded may be another track by now.
  fillThread.stop(/*quick=*/true);
  const SharedFacts old = refused->clock.read(0).facts;
  OpenedTrack opened = openDecoder(old->track);
  if (!opened.decoder) return false;
  auto decoder = std::move(opened.decoder);
  auto made = makeStream(StreamFormat::planarFloat(refused->clientFormat.sampleRate,
                                                   refused->clientFormat.channelsPerFrame),
                         joins);
  made->rateSettings = refused->rateSettings;
  made->rateOffer = refused->rateOffer;
  const auto dsd = prepareDSD(*decoder, refused->rateSettings, refused->rateOffer);
  SourceFacts facts = describeSource(old->track, *decoder, dsd);
  facts.isInMemory = opened.isInMemory;
  auto resampler = ResampleStage::create(facts.fileFormat.sampleRate, made->clientFormat);
  useSession(std::move(made), std::move(decoder), std::move(resampler), std::move(facts));
  startFilling(start);
  prefill();
  return true;
}

}  // namespace velorin
