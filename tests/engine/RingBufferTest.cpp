// The ring alone, and between two threads.
#include "engine/ring/AudioRingBuffer.h"

#include <gtest/gtest.h>

#include <bit>
#include <new>
#include <random>

#include "engine/render/RenderGate.h"

namespace velorin {
namespace {

// A sample that tells its frame and its channel, cut to the sample size.
std::uint32_t stampOf(std::uint64_t frame, std::uint32_t channel, std::uint32_t sampleSize) {
  const auto value = static_cast<std::uint32_t>((frame << 3) + channel);
  return sampleSize == 4 ? value : value & ((1u << (8 * sampleSize)) - 1);
}

void put(const AudioBufferList& list, std::uint32_t at, std::uint32_t count,
         std::uint32_t sampleSize, std::uint64_t firstFrame) {
  for (std::uint32_t channel = 0; channel < list.bufferCount; ++channel) {
    auto* bytes = list.channel<std::byte>(channel);
    if (bytes == nullptr) continue;
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t stamp = stampOf(firstFrame + i, channel, sampleSize);
      std::memcpy(bytes + std::size_t{at + i} * sampleSize, &stamp, sampleSize);
    }
  }
}

std::uint32_t sampleAt(const AudioBufferList& list, std::uint32_t channel, std::uint32_t frame,
                       std::uint32_t sampleSize) {
  std::uint32_t value = 0;
  std::memcpy(&value, list.channel<std::byte>(channel) + std::size_t{frame} * sampleSize,
              sampleSize);
  return value;
}

// The first frame whose stamp is not the expected one, or -1.
std::int64_t firstWrong(const AudioBufferList& list, std::uint32_t count, std::uint32_t sampleSize,
                        std::uint64_t firstFrame) {
  for (std::uint32_t i = 0; i < count; ++i) {
    for (std::uint32_t channel = 0; channel < list.bufferCount; ++channel) {
      if (sampleAt(list, channel, i, sampleSize) != stampOf(firstFrame + i, channel, sampleSize)) {
        return i;
      }
    }
  }
  return -1;
}

TEST(RingBuffer, CapacityIsThePowerOfTwoAtOrAboveTheWish) {
  struct Case {
    std::int64_t wanted, capacity;
  };
  for (const Case& c : {Case{-5, 1}, Case{0, 1}, Case{1, 1}, Case{2, 2}, Case{3, 4}, Case{4, 4},
                        Case{5, 8}, Case{4095, 4096}, Case{4096, 4096}, Case{4097, 8192},
                        Case{30 * 44'100, 2'097'152}, Case{30 * 192'000, 8'388'608}}) {
    const AudioRingBuffer ring(2, c.wanted, 4);
    EXPECT_EQ(ring.capacity(), c.capacity) << "wanted " << c.wanted;
    EXPECT_EQ(ring.freeSpace(), c.capacity);
    EXPECT_EQ(ring.framesHeld(), 0);
  }
}

TEST(RingBuffer, RefusesWhatItCannotHold) {
  EXPECT_THROW(AudioRingBuffer(0, 16, 4), std::invalid_argument);
  EXPECT_THROW(AudioRingBuffer(kMaxChannels + 1, 16, 4), std::invalid_argument);
  EXPECT_THROW(AudioRingBuffer(2, 16, 0), std::invalid_argument);
#if !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__)  // their malloc ends the program
  // 2^62 frames of 4 bytes are 2^64 bytes: the product must not wrap to a block of none.
  EXPECT_THROW(AudioRingBuffer(1, std::int64_t{1} << 62, 4), std::bad_alloc);
  EXPECT_THROW(AudioRingBuffer(2, std::int64_t{1} << 44, 4), std::bad_alloc);
#endif
}

TEST(RingBuffer, KeepsEverySampleSizeInOrderAcrossTheWrap) {
  for (const std::uint32_t sampleSize : {2u, 3u, 4u}) {
    for (const std::uint32_t channels : {1u, 2u, 6u}) {
      SCOPED_TRACE(testing::Message() << sampleSize << " bytes, " << channels << " channels");
      AudioRingBuffer ring(channels, 64, sampleSize);
      PlanarBuffers in(channels, 64, sampleSize);
      PlanarBuffers out(channels, 64, sampleSize);
      std::uint64_t written = 0;
      std::uint64_t taken = 0;
      const std::uint32_t sizes[] = {1, 63, 7, 64, 13, 31, 2, 40};
      for (std::uint32_t turn = 0; turn < 400; ++turn) {
        const std::uint32_t offered = sizes[turn % 8];
        const auto room = static_cast<std::uint32_t>(ring.freeSpace());
        put(in.list(), 0, offered, sampleSize, written);
        const std::uint32_t accepted = ring.write(in.list(), offered);
        ASSERT_EQ(accepted, std::min(offered, room)) << "a partial write takes what fits";
        written += accepted;
        ASSERT_EQ(ring.framesHeld(), static_cast<std::int64_t>(written - taken));

        const std::uint32_t asked = sizes[(turn * 3 + 1) % 8];
        const auto held = static_cast<std::uint32_t>(written - taken);
        const std::uint32_t got = ring.read(out.list(), asked);
        ASSERT_EQ(got, std::min(asked, held));
        ASSERT_EQ(firstWrong(out.list(), got, sampleSize, taken), -1) << "in turn " << turn;
        taken += got;
      }
      EXPECT_GT(written, 64u * 20);
    }
  }
}

TEST(RingBuffer, ShortReadZeroesTheRestOfEachBufferAndNoMore) {
  for (const std::uint32_t sampleSize : {2u, 3u, 4u}) {
    AudioRingBuffer ring(2, 16, sampleSize);
    PlanarBuffers in(2, 16, sampleSize);
    put(in.list(), 0, 5, sampleSize, 100);
    ASSERT_EQ(ring.write(in.list(), 5), 5u);

    PlanarBuffers out(2, 16, sampleSize);
    for (std::uint32_t c = 0; c < 2; ++c) {
      std::memset(out.list().buffers[c].data, 0xAA, std::size_t{16} * sampleSize);
    }
    EXPECT_EQ(ring.read(out.list(), 12), 5u);
    EXPECT_EQ(firstWrong(out.list(), 5, sampleSize, 100), -1);
    std::uint32_t untouched = 0;
    std::memset(&untouched, 0xAA, sampleSize);
    for (std::uint32_t c = 0; c < 2; ++c) {
      for (std::uint32_t i = 5; i < 12; ++i) EXPECT_EQ(sampleAt(out.list(), c, i, sampleSize), 0u);
      for (std::uint32_t i = 12; i < 16; ++i) {
        EXPECT_EQ(sampleAt(out.list(), c, i, sampleSize), untouched);
      }
    }
    EXPECT_EQ(ring.read(out.list(), 4), 0u);
    EXPECT_EQ(sampleAt(out.list(), 1, 3, sampleSize), 0u);
  }
}

TEST(RingBuffer, ListsThatDoNotMatchItsChannels) {
  AudioRingBuffer ring(3, 16, 4);
  PlanarBuffers three(3, 16, 4);
  PlanarBuffers four(4, 16, 4);

  // A list of more channels than the ring: the extra one is neither read nor written.
  put(four.list(), 0, 8, 4, 10);
  ASSERT_EQ(ring.write(four.list(), 8), 8u);
  std::memset(four.list().buffers[3].data, 0x55, 16 * 4);
  ASSERT_EQ(ring.read(four.list(), 8), 8u);
  four.list().bufferCount = 3;
  EXPECT_EQ(firstWrong(four.list(), 8, 4, 10), -1);
  four.list().bufferCount = 4;
  EXPECT_EQ(sampleAt(four.list(), 3, 0, 4), 0x55555555u);

  // Fewer channels, or a null pointer: the others arrive, and the frames count all the same.
  put(three.list(), 0, 8, 4, 50);
  AudioBufferList oneMissing = three.list();
  oneMissing.buffers[0].data = nullptr;
  ASSERT_EQ(ring.write(oneMissing, 8), 8u);
  AudioBufferList firstOnly = three.list();
  firstOnly.bufferCount = 1;
  ASSERT_EQ(ring.write(firstOnly, 8), 8u);
  EXPECT_EQ(ring.framesHeld(), 16);

  PlanarBuffers out(3, 16, 4);
  AudioBufferList lastMissing = out.list();
  lastMissing.buffers[2].data = nullptr;
  ASSERT_EQ(ring.read(lastMissing, 8), 8u);
  EXPECT_EQ(sampleAt(out.list(), 1, 0, 4), stampOf(50, 1, 4));
  EXPECT_EQ(sampleAt(out.list(), 2, 0, 4), 0u) << "was not given to read";
  ASSERT_EQ(ring.read(out.list(), 8), 8u);
  EXPECT_EQ(sampleAt(out.list(), 0, 0, 4), stampOf(50, 0, 4));
}

// A ring with a producer and a consumer on threads of their own, in chunks that fit nothing.
// Frames are stamped with their number within a generation; a flush begins the next one.
class Stress {
 public:
  static constexpr std::uint32_t kSampleSize = 4;
  static constexpr std::uint32_t kChannels = 2;
  static constexpr std::uint32_t kLargestChunk = 300;
  // The stamp leaves 29 bits for the number: the generation takes the upper ones.
  static constexpr unsigned kGenerationShift = 20;

  /// Frames that the consumer saw in the wrong place, and how many it saw of the last generation.
  struct Outcome {
    std::int64_t wrong = 0;
    std::int64_t fellBack = 0;
    std::uint64_t seenOfLast = 0;
  };

  Outcome run(std::uint32_t generations, std::uint64_t framesEach) {
    std::thread consumer([&] { consume(); });
    produce(generations, framesEach);
    _done = true;
    consumer.join();
    return _outcome;
  }

 private:
  void produce(std::uint32_t generations, std::uint64_t framesEach) {
    std::minstd_rand random(7);
    PlanarBuffers in(kChannels, kLargestChunk, kSampleSize);
    for (std::uint64_t generation = 0; generation < generations; ++generation) {
      if (generation > 0) {
        RenderGate::Closed closed(_gate);
        _ring.flush();
        _generation.store(generation, std::memory_order_relaxed);
      }
      for (std::uint64_t written = 0; written < framesEach;) {
        const auto wanted = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(1 + random() % kLargestChunk, framesEach - written));
        put(in.list(), 0, wanted, kSampleSize, (generation << kGenerationShift) + written);
        const std::uint32_t accepted = _ring.write(in.list(), wanted);
        written += accepted;
        if (accepted < wanted) std::this_thread::yield();
      }
    }
  }

  void consume() {
    std::minstd_rand random(11);
    PlanarBuffers out(kChannels, kLargestChunk, kSampleSize);
    std::uint64_t generation = 0;
    std::uint64_t next = 0;
    while (true) {
      // Before the read: what was written before the producer ended is then sure to be seen.
      const bool last = _done.load();
      std::uint32_t got = 0;
      if (_gate.enter()) {
        // As the render path reads its cells: whoever flushes has changed this by now, or waits.
        const std::uint64_t now = _generation.load(std::memory_order_relaxed);
        if (now < generation) ++_outcome.fellBack;
        if (now != generation) next = 0;
        generation = now;
        got = _ring.read(out.list(), 1 + static_cast<std::uint32_t>(random() % kLargestChunk));
      }
      _gate.leave();
      const std::uint64_t first = (generation << kGenerationShift) + next;
      if (firstWrong(out.list(), got, kSampleSize, first) >= 0) ++_outcome.wrong;
      next += got;
      if (last && got == 0) break;
      if (got == 0) std::this_thread::yield();
    }
    _outcome.seenOfLast = next;
  }

  AudioRingBuffer _ring{kChannels, 1000, kSampleSize};
  RenderGate _gate;
  std::atomic<std::uint64_t> _generation{0};
  std::atomic<bool> _done{false};
  Outcome _outcome;
};

TEST(RingBuffer, TwoThreadsSeeEveryFrameOnceInOrder) {
  constexpr std::uint64_t kFrames = 1'000'000;
  Stress stress;
  const Stress::Outcome outcome = stress.run(1, kFrames);
  EXPECT_EQ(outcome.wrong, 0);
  EXPECT_EQ(outcome.seenOfLast, kFrames);
}

TEST(RingBuffer, AfterAFlushTheConsumerSeesOnlyNewFramesAndAllOfThem) {
  constexpr std::uint64_t kFrames = 3'001;
  Stress stress;
  const Stress::Outcome outcome = stress.run(500, kFrames);
  EXPECT_EQ(outcome.wrong, 0) << "a frame of before the flush, or one out of order";
  EXPECT_EQ(outcome.fellBack, 0);
  EXPECT_EQ(outcome.seenOfLast, kFrames) << "frames of the new generation were lost";
}

}  // namespace
}  // namespace velorin
