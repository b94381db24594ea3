// The fill loop and its thread over a decoder that counts.
#include "engine/fill/FillPCM.h"

#include <gtest/gtest.h>

#include <latch>

#include "engine/fill/FillThread.h"
#include "engine/output/ClientFormat.h"
#include "engine/render/RenderPath.h"
#include "support/Eventually.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Every sample is the number of its frame, as float or as a 32-bit word.
class CountingDecoder : public FileDecoder {
 public:
  explicit CountingDecoder(std::int64_t total) : _total(total) {}

  DecodeResult read(const AudioBufferList& target, std::uint32_t frames,
                    bool asFloat) noexcept override {
    ++reads;
    {
      MutexLock hold(_mutex);
      _asked.push_back(frames);
    }
    if (stuckUntil != nullptr) {
      entered.count_down();
      stuckUntil->wait();
    }
    const std::int64_t end = failAt >= 0 ? failAt : _total;
    if (_position >= end) return {failAt >= 0 ? -5 : 0, 0};
    const auto n = static_cast<std::uint32_t>(std::min<std::int64_t>(frames, end - _position));
    for (std::uint32_t c = 0; c < target.bufferCount; ++c) {
      for (std::uint32_t i = 0; i < n; ++i) {
        if (asFloat) {
          target.channel<float>(c)[i] = static_cast<float>(_position + i);
        } else {
          target.channel<std::int32_t>(c)[i] = static_cast<std::int32_t>(_position + i);
        }
      }
    }
    _position += n;
    return {0, n};
  }
  std::int64_t currentPosition() const noexcept override { return _position; }
  double sampleRate() const noexcept override { return 44100; }
  std::uint32_t channels() const noexcept override { return 2; }
  std::uint32_t bitsPerSample() const noexcept override { return 24; }
  std::int64_t totalFrames() const noexcept override { return statesTotal ? _total : 0; }
  DecoderInfo info() const override { return {}; }
  bool seek(std::int64_t frame) noexcept override {
    if (!canSeek) return false;
    _position = std::max<std::int64_t>(0, frame);
    return true;
  }

  std::vector<std::uint32_t> asked() const {
    MutexLock hold(_mutex);
    return _asked;
  }

  std::atomic<int> reads{0};
  std::int64_t failAt = -1;  ///< frame at which a read error lies
  bool canSeek = true;
  bool statesTotal = true;
  std::shared_ptr<std::latch> stuckUntil;  ///< shared with a thread that nobody joins
  std::latch entered{1};

 private:
  const std::int64_t _total;
  std::int64_t _position = 0;
  mutable Mutex _mutex;
  std::vector<std::uint32_t> _asked GUARDED_BY(_mutex);
};

using test::eventually;

// A session over such a decoder, its fill thread, and a render path that the test pulls.
struct Rig {
  explicit Rig(std::int64_t total, std::int64_t ringFrames = 1 << 17, double clientRate = 44100,
               bool isInteger = false)
      : session(std::make_shared<PlaybackSession>(clientFormatFor(isInteger, 24, clientRate, 2),
                                                  ringFrames, std::make_shared<JoinDesk>())) {
    auto made = std::make_unique<CountingDecoder>(total);
    decoder = made.get();
    session->source = std::make_shared<const SourceFacts>(describeSource(Track{}, *made));
    session->reader = std::make_unique<SourceReader>(
        std::move(made), session->source, ResampleStage::create(44100, session->clientFormat),
        session->clientFormat);
    session->clock.jump(session->source, 0);
  }

  void setBounds(std::int64_t start, std::int64_t end) {
    SourceFacts facts = *session->source;
    facts.bounds = {start, end};
    session->source = std::make_shared<const SourceFacts>(facts);
    session->reader->setFacts(session->source);
  }
  std::int64_t frame() const { return std::llround(session->clock.read(0).seconds * 44100); }

  void start() {
    thread.start(
        session, std::make_unique<FillPCM>(*session), [this] { ++ended; }, false);
  }

  bool decodesAll() {
    return eventually(
        [&] { return !session->seek.isPending() && session->cells.eofReached.load(); });
  }

  // The transport's way to seek.
  void seek(std::int64_t usec) {
    session->seek.ask(usec);
    session->waker.signal();
  }

  // As a running device: what a render call gives of the first channel.
  std::vector<float> render(std::uint32_t frames) {
    if (!path) {
      session->cells.rendering = true;
      session->waker.signal();
      path.emplace(RenderPath::Stream{session->ring, session->cells, session->gate, 44100, 4,
                                      session->isIntegerOutput, 1e8},
                   controls, DSPStages{headroom, chain, clipping}, spectrum);
    }
    PlanarBuffers out(2, frames, 4);
    const std::uint32_t taken = RenderPath::render(&*path, out.list(), frames);
    return {out.list().channel<float>(0), out.list().channel<float>(0) + taken};
  }

  std::vector<float> renderAllThereIs() {
    std::vector<float> all;
    while (session->ring.framesHeld() > 0) {
      const auto some = render(1000);
      all.insert(all.end(), some.begin(), some.end());
    }
    return all;
  }

  std::shared_ptr<PlaybackSession> session;
  CountingDecoder* decoder = nullptr;
  RenderControls controls;
  DSPChain chain;
  ClippingDetector clipping;
  HeadroomDSP headroom{clipping};
  SpectrumCaptureRing spectrum{64};
  std::optional<RenderPath> path;
  std::atomic<int> ended{0};
  FillThread thread;  // last: it stops before what it uses goes
};

bool isCount(const std::vector<float>& samples, std::int64_t from) {
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (samples[i] != static_cast<float>(from + static_cast<std::int64_t>(i))) return false;
  }
  return true;
}

TEST(FillPCM, ReadsUpToTheCueBoundToTheFrame) {
  struct Case {
    std::int64_t start, end, expected;
    std::uint32_t lastAsked;
    std::int64_t failAt = -1;
  };
  for (const Case& c : {Case{0, 3 * 4096 + 100, 3 * 4096 + 100, 100}, Case{0, 8192, 8192, 4096},
                        Case{0, 1, 1, 1}, Case{1000, 1000 + 4097, 4097, 1},
                        Case{5000, 60'000, 45'000, 4096 /* of a file that ends before */},
                        Case{0, 0, 10'001, 4096, 10'001 /* a read error ends the stream */}}) {
    SCOPED_TRACE(testing::Message() << "from " << c.start << " to " << c.end);
    Rig rig(50'000);
    rig.decoder->failAt = c.failAt;
    rig.setBounds(c.start, c.end);
    rig.session->seek.ask(0);
    rig.start();
    ASSERT_TRUE(rig.decodesAll());
    const auto samples = rig.renderAllThereIs();
    EXPECT_EQ(samples.size(), static_cast<std::size_t>(c.expected));
    EXPECT_TRUE(isCount(samples, c.start));
    EXPECT_EQ(rig.decoder->asked().back(), c.lastAsked);
    ASSERT_TRUE(eventually([&] { return rig.ended == 1; }));
  }
}

TEST(FillPCM, TheEndComesOnlyWhenTheDeviceHasPlayedItOut) {
  Rig rig(5'000);
  rig.session->cells.playbackLatencyFrames = 1500;
  rig.start();
  ASSERT_TRUE(rig.decodesAll());
  rig.render(5'000);
  rig.render(1'499);
  EXPECT_EQ(rig.session->cells.framesAfterEnd, 1'499);
  // One frame is still in the device. The thread looks every 10 ms: give it time to be wrong.
  std::this_thread::sleep_for(50ms);
  EXPECT_TRUE(rig.thread.isRunning());
  EXPECT_EQ(rig.ended, 0);
  rig.render(1);
  EXPECT_TRUE(eventually([&] { return rig.ended == 1 && !rig.thread.isRunning(); }));
}

TEST(FillPCM, SeeksToTheFrame) {
  struct Case {
    std::int64_t usec, cueStart, cueEnd, frame, shown;
  };
  constexpr std::int64_t kTotal = 400'000;
  for (const Case& c : {
           Case{1'000'000, 0, 0, 44'100, 44'100}, Case{0, 0, 0, 0, 0},
           Case{2'500'000, 0, 0, 110'250, 110'250}, Case{1'000'000, 10'000, 0, 54'100, 44'100},
           Case{1'000'000, 10'000, 90'000, 54'100, 44'100},
           Case{333'333, 0, 0, 14'699, 14'699},                // 14,699.98
           Case{3'000'000'000, 0, 0, kTotal - 1, kTotal - 1},  // past the end
           Case{3'000'000'000, 0, 90'000, 90'000, 90'000},     // past a CUE end
       }) {
    SCOPED_TRACE(testing::Message() << c.usec << " µs, CUE from " << c.cueStart);
    Rig rig(kTotal);
    TransportCells& cells = rig.session->cells;
    rig.setBounds(c.cueStart, c.cueEnd);
    cells.fillThreadShouldRun = true;
    FillPCM fill(*rig.session);
    EXPECT_FALSE(fill.handlePendingSeek()) << "none is pending";
    cells.framesAfterEnd = 5;
    cells.eofReached = true;
    PlanarBuffers old(2, 4096, 4);
    rig.session->ring.write(old.list(), 4096);

    rig.session->seek.ask(c.usec);
    EXPECT_TRUE(fill.handlePendingSeek());
    EXPECT_FALSE(rig.session->seek.isPending());
    EXPECT_EQ(rig.frame(), c.shown);
    EXPECT_EQ(cells.framesAfterEnd, 0);
    EXPECT_FALSE(cells.eofReached);
    const auto samples = rig.renderAllThereIs();
    EXPECT_TRUE(isCount(samples, c.frame));
    const std::int64_t left = (c.cueEnd > 0 ? c.cueEnd : kTotal) - c.frame;
    EXPECT_EQ(samples.size(), static_cast<std::size_t>(std::min<std::int64_t>(4096, left)));
  }
}

TEST(FillPCM, ASeekIsAudibleAfterOneBufferOfAnySize) {
  struct Case {
    std::uint32_t ioFrames;
    std::int64_t prefill;
  };
  for (const Case& c : {Case{0, 4096}, Case{512, 4096}, Case{2047, 4096}, Case{2048, 4096},
                        Case{4096, 8192}, Case{16'384, 32'768}}) {
    Rig rig(400'000);
    rig.session->cells.fillThreadShouldRun = true;
    rig.session->cells.ioBufferFrameSize = c.ioFrames;
    rig.session->seek.ask(1'000'000);
    FillPCM fill(*rig.session);
    ASSERT_TRUE(fill.handlePendingSeek());
    EXPECT_EQ(rig.session->ring.framesHeld(), c.prefill) << c.ioFrames;
  }
}

TEST(FillPCM, ASeekThatFailsGoesOnFromWhereTheDecoderStands) {
  Rig rig(400'000);
  rig.decoder->canSeek = false;
  rig.session->cells.fillThreadShouldRun = true;
  rig.session->seek.ask(1'000'000);
  FillPCM fill(*rig.session);
  EXPECT_TRUE(fill.handlePendingSeek());
  EXPECT_EQ(rig.frame(), 0);
  EXPECT_TRUE(isCount(rig.renderAllThereIs(), 0));
}

TEST(FillPCM, ASeekAfterTheEndWasDecodedBringsPlaybackBack) {
  Rig rig(100'000);
  rig.start();
  const auto& cells = rig.session->cells;
  ASSERT_TRUE(eventually([&] { return cells.eofReached.load(); }));
  EXPECT_EQ(rig.render(1000).size(), 1000u);
  for (const std::int64_t usec : {2'000'000, 0, 1'000'000}) {
    rig.seek(usec);
    ASSERT_TRUE(rig.decodesAll());
    const std::int64_t frame = usec * 441 / 10'000;
    EXPECT_EQ(rig.session->ring.framesHeld(), 100'000 - frame);
    EXPECT_TRUE(isCount(rig.render(500), frame));
    EXPECT_EQ(rig.ended, 0);
  }
  rig.renderAllThereIs();
  EXPECT_TRUE(eventually([&] { return rig.ended == 1; }));
}

TEST(FillPCM, TheResamplersTailIsInTheRingBeforeTheEndIsSaid) {
  struct Case {
    double rate;
    bool isInteger;
    std::int64_t frames;
  };
  for (const Case& c : {Case{96000, false, 20'000}, Case{48000, true, 20'001},
                        Case{22050, false, 40'000}, Case{88200, false, 1}}) {
    SCOPED_TRACE(testing::Message() << "to " << c.rate << " Hz, integer " << c.isInteger);
    Rig rig(c.frames, 1 << 17, c.rate, c.isInteger);
    rig.start();
    ASSERT_TRUE(rig.decodesAll());
    const auto expected = std::llround(static_cast<double>(c.frames) * c.rate / 44100);
    EXPECT_EQ(rig.session->ring.framesHeld(), expected);

    // And once more after a seek: the filter holds nothing of the first time.
    rig.seek(0);
    ASSERT_TRUE(rig.decodesAll());
    EXPECT_EQ(rig.session->ring.framesHeld(), expected);
  }
}

TEST(FillPCM, SleepsWhilePausedAndWakesWhenTheOutputGoesOn) {
  Rig rig(10'000'000, 1 << 15);
  std::atomic<int> passes{0};
  rig.session->cells.fillThreadShouldRun = true;
  FillPCM fill(*rig.session);
  std::thread thread([&] { fill.run([&] { ++passes; }); });
  ASSERT_TRUE(eventually([&] { return rig.session->ring.freeSpace() < 4096; }));

  // A pass every 5 ms would be 60 in this time, a loop that does not sleep millions.
  const int before = passes;
  std::this_thread::sleep_for(300ms);
  EXPECT_LE(passes - before, 3);

  const int readsBefore = rig.decoder->reads;
  const auto resumed = Clock::now();
  EXPECT_TRUE(isCount(rig.render(20'000), 0));
  EXPECT_TRUE(eventually([&] { return rig.session->ring.freeSpace() < 4096; }));
  EXPECT_GT(rig.decoder->reads, readsBefore);
  EXPECT_LT(Clock::now() - resumed, 5s) << "woke by the clock of a paused session";

  // The ring is full again and the output stands still: the thread looks, but not all the time.
  const int full = passes;
  std::this_thread::sleep_for(300ms);
  EXPECT_LE(passes - full, 75);
  rig.session->cells.fillThreadShouldRun = false;
  rig.session->waker.signal();
  thread.join();
}

TEST(FillThread, StopIsPromptWhateverTheThreadWaitsFor) {
  enum class Waits { forSpaceWhilePaused, forTheRingToDrain, forSpaceWhileRendering };
  for (const Waits waits :
       {Waits::forSpaceWhilePaused, Waits::forTheRingToDrain, Waits::forSpaceWhileRendering}) {
    SCOPED_TRACE(testing::Message() << "case " << static_cast<int>(waits));
    Rig rig(waits == Waits::forTheRingToDrain ? 10'000 : 10'000'000, 1 << 15);
    rig.session->cells.rendering = waits == Waits::forSpaceWhileRendering;
    rig.start();
    ASSERT_TRUE(eventually([&] {
      return rig.session->cells.eofReached.load() || rig.session->ring.freeSpace() < 4096;
    }));
    EXPECT_TRUE(rig.thread.isRunning());
    const auto began = Clock::now();
    EXPECT_TRUE(rig.thread.stop(/*quick=*/false));
    EXPECT_LT(Clock::now() - began, 1s);
    EXPECT_FALSE(rig.thread.isRunning());
    EXPECT_EQ(rig.ended, 0);
    EXPECT_TRUE(rig.thread.stop(true)) << "there is nothing left to stop";
  }
}

TEST(FillThread, LeavesAStuckDecoderBehindWithItsSession) {
  const auto answers = std::make_shared<std::latch>(1);
  Rig rig(10'000);
  rig.decoder->stuckUntil = answers;
  CountingDecoder& decoder = *rig.decoder;
  rig.start();
  decoder.entered.wait();
  const auto began = Clock::now();
  EXPECT_FALSE(rig.thread.stop(/*quick=*/true));
  const auto took = Clock::now() - began;
  EXPECT_GE(took, 100ms);
  EXPECT_LT(took, 1s);

  // The engine goes on with another track on the same object.
  const std::weak_ptr<PlaybackSession> left = std::exchange(rig.session, nullptr);
  EXPECT_FALSE(left.expired()) << "the thread that is stuck in the decoder still uses it";
  Rig next(5'000);
  rig.thread.start(
      next.session, std::make_unique<FillPCM>(*next.session), [] {}, false);
  EXPECT_TRUE(eventually([&] { return next.session->cells.eofReached.load(); }));
  EXPECT_EQ(next.session->ring.framesHeld(), 5'000);

  answers->count_down();
  EXPECT_TRUE(eventually([&] { return left.expired(); })) << "nobody closed the file";
  EXPECT_EQ(rig.ended, 0) << "the end of a track that was left is no news";
  EXPECT_TRUE(rig.thread.stop(false));
}

}  // namespace
}  // namespace velorin
