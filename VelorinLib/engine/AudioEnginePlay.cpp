// From a track to the first sound.
#include <filesystem>
#include <new>
#include <thread>

#include "engine/AudioEngineImpl.h"
#include "engine/decoders/DecoderFactory.h"
#include "engine/output/ClientFormat.h"
#include "foundation/Log.h"
#include "foundation/Text.h"
#include "records/Events.h"

namespace velorin {
namespace {

using std::chrono::milliseconds;

constexpr double kRingSeconds = 30;
constexpr std::int64_t kSmallestPrefill = 8192;
constexpr double kPrefillShare = 0.05;
constexpr milliseconds kPrefillPoll{2};
constexpr milliseconds kFirstPrefillWait{1000};
constexpr milliseconds kSecondPrefillWait{2000};

std::string titleOf(const Track& track) {
  const std::string_view title = text::trimWhitespaceAndNewlines(track.title);
  if (!title.empty()) return std::string(track.title);
  return std::filesystem::path(track.filePath).filename().string();
}

/// Frames of a time; nearest, because CUE times are fractions of a second that binary cannot hold.
std::int64_t framesAt(double seconds, double rate) {
  return std::llround(seconds * rate);
}

/// Seconds that the track lasts, of a file of so many seconds (0 when unknown).
double durationOf(const Track& track, double fileDuration) {
  const double start = track.cueStartTime.value_or(0);
  const double end = track.cueEndTime.value_or(0);
  if (end > 0) return end - start;
  return fileDuration > 0 ? fileDuration - start : 0;
}

void setCueBounds(TransportCells& cells, const Track& track, double rate) {
  const double start = track.cueStartTime.value_or(0);
  const double end = track.cueEndTime.value_or(0);
  cells.cueStartOffsetFrames.store(start > 0 ? framesAt(start, rate) : 0);
  cells.cueEndFrame.store(end > 0 ? framesAt(end, rate) : 0);
}

std::string cueRangeText(const Track& track) {
  if (!track.cueStartTime) return {};
  return fmt::format(" (CUE {:.1f}→{:.1f}s)", *track.cueStartTime, track.cueEndTime.value_or(0));
}

double fileSeconds(const PlaybackSession& session) {
  const auto frames = static_cast<double>(session.decoder->totalFrames());
  return session.fileFormat.sampleRate > 0 ? frames / session.fileFormat.sampleRate : 0;
}

/// True when the ring holds enough to start, or all there is.
bool waitForPrefill(const PlaybackSession& session, milliseconds timeout) {
  const auto target = std::max(
      static_cast<std::int64_t>(kPrefillShare * static_cast<double>(session.ring->capacity())),
      kSmallestPrefill);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (session.ring->framesHeld() < target && !session.cells.eofReached.load()) {
    if (std::chrono::steady_clock::now() >= deadline) return session.ring->framesHeld() > 0;
    std::this_thread::sleep_for(kPrefillPoll);
  }
  return true;
}

void prefill(const PlaybackSession& session) {
  if (waitForPrefill(session, kFirstPrefillWait)) return;
  log::line("⚠️ Prefill: 0 frames after 1s — retrying");
  if (waitForPrefill(session, kSecondPrefillWait)) return;
  log::line("⚠️ Prefill: still 0 frames after retry — fill thread may be stuck");
}

std::unique_ptr<AudioRingBuffer> makeRing(const StreamFormat& format) {
  return std::make_unique<AudioRingBuffer>(
      format.channelsPerFrame, static_cast<std::int64_t>(kRingSeconds * format.sampleRate),
      format.bytesPerFrame);
}

}  // namespace

void AudioEngine::Impl::play(const Track& track, std::optional<double> startTime) {
  if (jumpWithinCueFile(track, startTime)) return;
  stop();
  std::error_code error;
  if (!std::filesystem::exists(track.filePath, error)) {
    log::line("❌ File not found: {}", track.filePath);
    bus.postOnMain(PlaybackFileUnavailable{titleOf(track), track.filePath});
    return;
  }
  nowPlaying.setTrack(track);
  playPCM(track, startTime);
}

void AudioEngine::Impl::playPCM(const Track& track, std::optional<double> startTime) {
  const double start = std::max(0.0, startTime.value_or(0));
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
      log::line("❌ Failed to start audio output");
      stop();
      return;
    }
  } catch (const std::bad_alloc&) {
    log::line("❌ Not enough memory to play {}", track.filePath);
    stop();
    return;
  }
  const auto playing = currentSession();
  log::line("▶️ Playing: {} [{:.0f}Hz / {}bit]{}", titleOf(track),
            playing->fileFormat.sampleRate, playing->sourceBitDepth, cueRangeText(track));
}

AudioEngine::Impl::Started AudioEngine::Impl::startStream(const Track& track, double start,
                                                          bool exclusively) {
  auto decoder = openDecoder(track);
  if (!decoder) return Started::noFile;
  // Before the rates are decided: an exclusively held device offers others than the shared one.
  if (exclusively && devices.ensureValidOutputDevice()) devices.enableHogMode();
  setSession(makeSession(track, std::move(decoder)));
  startFilling(track, start);
  prefill(*currentSession());
  return startAudioOutput(track, start) ? Started::playing : Started::noOutput;
}

std::unique_ptr<FileDecoder> AudioEngine::Impl::openDecoder(const Track& track) {
  auto opened = DecoderFactory::open(track.filePath);
  if (opened) return std::move(opened).value();

  const std::string extension = text::fileExtension(track.filePath);
  log::line("❌ Cannot open {}file: {}", extension == "flac" ? "FLAC " : "", opened.error().text);
  bus.postOnMain(PlaybackFileUnavailable{titleOf(track), track.filePath});
  return nullptr;
}

std::shared_ptr<PlaybackSession> AudioEngine::Impl::makeSession(
    const Track& track, std::unique_ptr<FileDecoder> decoder) {
  auto made = std::make_shared<PlaybackSession>();
  const double fileRate = decoder->sampleRate();
  const std::uint32_t channels = decoder->channels();
  made->filePath = track.filePath;
  made->fileFormat =
      fileFormatOf(fileRate, channels, decoder->bitsPerSample(), decoder->isFloatSource());
  made->sourceBitDepth = static_cast<int>(decoder->bitsPerSample());
  made->decoderInfo = decoder->info();
  made->decoder = std::move(decoder);

  const RatePlan plan = planRates(settings.rates, devices.rateOffer(), fileRate);
  for (const std::string& line : plan.linesBefore) log::line("{}", line);
  if (plan.deviceRate > 0) devices.setDeviceSampleRate(plan.deviceRate);
  for (const std::string& line : plan.linesAfter) log::line("{}", line);
  if (plan.targetRate > 0) {
    made->resampler = SoxrResampler::create(fileRate, plan.targetRate, channels);
  }
  if (made->resampler) made->targetSampleRate = plan.targetRate;

  const bool integerWanted = settings.integerMode && !made->decoder->isFloatSource();
  made->clientFormat = clientFormatFor(integerWanted, made->sourceBitDepth,
                                       made->resampler ? plan.targetRate : fileRate, channels);
  made->isIntegerOutput = made->clientFormat.isInteger();
  if (made->isIntegerOutput) {
    log::line("🔢 Integer mode: {}-bit signed integer output", made->clientFormat.bitsPerChannel);
  } else if (settings.integerMode && made->decoder->isFloatSource()) {
    log::line(
        "ℹ️ Float-source WavPack: using Float32 output (integer mode would corrupt float "
        "samples)");
  }
  made->ring = makeRing(made->clientFormat);
  nowPlaying.setStream(durationOf(track, fileSeconds(*made)), made->sourceBitDepth);
  return made;
}

void AudioEngine::Impl::startFilling(const Track& track, double start) {
  const auto playing = currentSession();
  TransportCells& cells = playing->cells;
  const double rate = playing->fileFormat.sampleRate;
  setCueBounds(cells, track, rate);
  cells.eofReached.store(false);
  cells.framesAfterEnd.store(0);
  cells.framesReadFromBuffer.store(0);
  cells.seekFrameOffset.store(framesAt(start, rate));
  const bool startsElsewhere = start > 0 || cells.cueStartOffsetFrames.load() > 0;
  cells.pendingSeekUsec.store(startsElsewhere ? std::llround(start * 1e6)
                                              : TransportCells::kNoSeek);
  auto fill = std::make_unique<FillPCM>(*playing);
  fill->handlePendingSeek();
  startFillThread(std::move(fill));
}

void AudioEngine::Impl::startFillThread(std::unique_ptr<FillPCM> fill) {
  const int generation = playGeneration.load();
  fillThread.start(
      currentSession(), std::move(fill),
      [this, generation] {
        advanceQueue.async([this, generation] { stopAndAdvance(generation); });
      },
      settings.lowLatencyMode);
}

bool AudioEngine::Impl::jumpWithinCueFile(const Track& track, std::optional<double> startTime) {
  const auto playing = currentSession();
  if (!playing || !output.isOpen() || playing->filePath != track.filePath || !track.cueStartTime) {
    return false;
  }
  nowPlaying.setTrack(track);
  nowPlaying.setStream(durationOf(track, fileSeconds(*playing)), playing->sourceBitDepth);
  TransportCells& cells = playing->cells;
  setCueBounds(cells, track, playing->fileFormat.sampleRate);
  cells.eofReached.store(false);
  cells.seekFrameOffset.store(0);
  cells.framesReadFromBuffer.store(0);
  cells.pendingSeekUsec.store(std::llround(std::max(0.0, startTime.value_or(0)) * 1e6));
  log::line("⏩ CUE seek: {}{}", titleOf(track), cueRangeText(track));
  if (fillThread.isRunning()) {
    playing->waker.signal();
  } else {
    startFillThread(std::make_unique<FillPCM>(*playing));
  }
  bus.postOnMain(
      TrackDidChange{.track = track, .sourceBitDepth = playing->sourceBitDepth, .join = {}});
  resume();
  return true;
}

bool AudioEngine::Impl::startAudioOutput(const Track& track, double start) {
  auto playing = currentSession();
  effects->formatChanged(playing->clientFormat.sampleRate, playing->clientFormat.channelsPerFrame);

  const int generation = playGeneration.load();
  const auto prepared =
      output.prepare(playing->clientFormat,
                     [this, generation](OutputEvent event) { onOutputEvent(event, generation); });
  if (prepared == OutputSession::Prepared::failed) return false;
  if (prepared == OutputSession::Prepared::formatRefused) {
    if (!fallBackToFloat(track, start)) return false;
    playing = currentSession();
    output.useFormat(playing->clientFormat);
  }

  playing->cells.ioBufferFrameSize.store(output.ioBufferFrameSize());
  playing->cells.playbackLatencyFrames.store(output.playbackLatencyFrames());
  const RenderPath::Stream stream{.ring = *playing->ring,
                                  .cells = playing->cells,
                                  .gate = playing->gate,
                                  .sampleRate = playing->clientFormat.sampleRate,
                                  .bytesPerFrame = playing->clientFormat.bytesPerFrame,
                                  .isIntegerOutput = playing->isIntegerOutput,
                                  .bufferDeadlineUs = output.bufferDeadlineUs()};
  renderingSession.store(playing.get());
  setRendering(true);
  auto renderPath =
      std::make_unique<RenderPath>(stream, *controls, effects->stages(), spectrumCaptureRing);
  if (!output.begin(std::move(renderPath), playing->clientFormat.sampleRate)) return false;

  outputDeviceName = hardware.deviceName(devices.current());
  refreshReport();
  sleepInhibitor.acquire();
  changeState(PlaybackState::playing);
  progressTimer.start();
  bus.postOnMain(
      TrackDidChange{.track = track, .sourceBitDepth = playing->sourceBitDepth, .join = {}});
  return true;
}

bool AudioEngine::Impl::fallBackToFloat(const Track& track, double start) {
  const auto refused = currentSession();
  // The decoder must be ours alone before it is rewound.
  if (!fillThread.stop(/*quick=*/false)) {
    log::line("❌ Cannot restart {}: the file does not answer", titleOf(track));
    return false;
  }
  auto next = std::make_shared<PlaybackSession>();
  next->filePath = refused->filePath;
  next->fileFormat = refused->fileFormat;
  next->clientFormat = StreamFormat::planarFloat(refused->clientFormat.sampleRate,
                                                 refused->clientFormat.channelsPerFrame);
  next->decoderInfo = refused->decoderInfo;
  next->sourceBitDepth = refused->sourceBitDepth;
  next->targetSampleRate = refused->targetSampleRate;
  next->ring = makeRing(next->clientFormat);
  next->decoder = std::move(refused->decoder);
  next->resampler = std::move(refused->resampler);
  if (next->resampler) next->resampler->clear();
  next->decoder->seek(0);
  setSession(next);
  startFilling(track, start);
  prefill(*next);
  return true;
}

}  // namespace velorin
