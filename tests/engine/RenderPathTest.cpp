// One render call after the other, by hand: what comes out for what stood in the ring.
#include "engine/render/RenderPath.h"

#include <gtest/gtest.h>

#include <random>

#include "support/GainEffect.h"

namespace velorin {
namespace {

using test::GainEffect;

constexpr std::uint32_t kMost = 8192;

// Everything a render call touches, with the ring to be filled by the test.
struct Rig {
  explicit Rig(std::uint32_t channels = 2, std::uint32_t sampleSize = 4, bool isInteger = false,
               double deadlineUs = 1e8, std::uint32_t listChannels = 0)
      : isFloat(!isInteger),
        ring(channels, 16384, sampleSize),
        path(RenderPath::Stream{.ring = ring,
                                .cells = cells,
                                .gate = gate,
                                .sampleRate = 96000,
                                .bytesPerFrame = sampleSize,
                                .isIntegerOutput = isInteger,
                                .bufferDeadlineUs = deadlineUs},
             controls, DSPStages{headroom, chain, clipping}, spectrum),
        in(channels, kMost, sampleSize),
        out(listChannels > 0 ? listChannels : channels, kMost, sampleSize) {
    // What a device's buffer holds before it is written is nobody's business: make it show.
    for (std::uint32_t c = 0; c < out.list().bufferCount; ++c) {
      std::memset(out.list().buffers[c].data, 0x7B, out.list().buffers[c].byteSize);
    }
  }

  // Random bits, of any pattern for integers, finite in -1 to 1 for float.
  void fill(std::uint32_t frames) {
    for (std::uint32_t c = 0; c < in.list().bufferCount; ++c) {
      for (std::uint32_t i = 0; i < frames; ++i) {
        const std::uint32_t bits = random();
        const float sample = static_cast<float>(static_cast<std::int32_t>(bits)) * 0x1p-31f;
        const void* source = isFloat ? static_cast<const void*>(&sample) : &bits;
        std::memcpy(in.list().channel<std::byte>(c) + std::size_t{i} * in.sampleSize(), source,
                    in.sampleSize());
      }
    }
    ASSERT_EQ(ring.write(in.list(), frames), frames);
  }

  std::uint32_t render(std::uint32_t frames) {
    out.setFrames(frames);
    return RenderPath::render(&path, out.list(), frames);
  }

  bool sameAsWritten(std::uint32_t channel, std::uint32_t from, std::uint32_t count) {
    const std::size_t size = in.sampleSize();
    return std::memcmp(out.list().channel<std::byte>(channel),
                       in.list().channel<std::byte>(channel) + from * size, count * size) == 0;
  }
  bool isSilent(std::uint32_t channel, std::uint32_t from, std::uint32_t to) {
    const std::size_t size = out.sampleSize();
    const auto* bytes = out.list().channel<std::byte>(channel);
    return std::all_of(bytes + from * size, bytes + to * size,
                       [](std::byte b) { return b == std::byte{0}; });
  }

  const bool isFloat;
  AudioRingBuffer ring;
  TransportCells cells;
  RenderGate gate;
  RenderControls controls;
  DSPChain chain;
  ClippingDetector clipping;
  HeadroomDSP headroom{clipping};
  SpectrumCaptureRing spectrum{16384};
  RenderPath path;
  PlanarBuffers in;
  PlanarBuffers out;
  std::mt19937 random{5};
};

TEST(RenderPath, PassesEveryBitAtUnityGain) {
  struct Case {
    std::uint32_t channels, sampleSize;
    bool isInteger;
  };
  for (const Case& c : {Case{2, 4, false}, Case{1, 4, false}, Case{6, 4, false}, Case{2, 2, true},
                        Case{2, 4, true}, Case{8, 4, true}, Case{2, 3, true}}) {
    SCOPED_TRACE(testing::Message() << c.channels << " channels of " << c.sampleSize << " bytes, "
                                    << (c.isInteger ? "integer" : "float"));
    Rig rig(c.channels, c.sampleSize, c.isInteger);
    // Neither a disabled effect nor a gain of all but 1 may touch a bit; nor, for integers, any.
    GainEffect effect(0.5f, c.isInteger);
    rig.chain.setProcessors({&effect});
    rig.controls.volume = c.isInteger ? 0.25f : 0.99995f;
    rig.controls.spectrumCaptureEnabled = true;
    rig.fill(kMost);
    std::uint32_t taken = 0;
    for (const std::uint32_t frames : {512u, 1u, 4096u, 37u, 3000u}) {
      ASSERT_EQ(rig.render(frames), frames);
      for (std::uint32_t channel = 0; channel < c.channels; ++channel) {
        EXPECT_TRUE(rig.sameAsWritten(channel, taken, frames)) << "channel " << channel;
      }
      taken += frames;
    }
    EXPECT_EQ(rig.ring.framesRead(), taken);
    EXPECT_EQ(effect.calls, 0);
  }
}

TEST(RenderPath, VolumeActsInSoftwareModeOnFloatOnly) {
  struct Case {
    VolumeMode mode;
    bool isInteger;
    float volume;
    float expectedGain;
  };
  for (const Case& c :
       {Case{VolumeMode::software, false, 0.5f, 0.5f},
        Case{VolumeMode::software, false, 0.0f, 0.0f},
        Case{VolumeMode::software, false, 0.9998f, 0.9998f},
        Case{VolumeMode::hardware, false, 0.5f, 1.0f}, Case{VolumeMode::fixed, false, 0.5f, 1.0f},
        Case{VolumeMode::software, true, 0.5f, 1.0f}}) {
    SCOPED_TRACE(testing::Message()
                 << nameOf(c.mode) << ", integer " << c.isInteger << ", volume " << c.volume);
    Rig rig(2, 4, c.isInteger);
    rig.controls.volumeMode = c.mode;
    rig.controls.volume = c.volume;
    rig.fill(600);
    ASSERT_EQ(rig.render(600), 600u);
    for (std::uint32_t channel = 0; channel < 2; ++channel) {
      if (c.expectedGain == 1.0f) {
        EXPECT_TRUE(rig.sameAsWritten(channel, 0, 600));
        continue;
      }
      for (std::uint32_t i = 0; i < 600; ++i) {
        ASSERT_EQ(rig.out.list().channel<float>(channel)[i],
                  rig.in.list().channel<float>(channel)[i] * c.volume);
      }
    }
  }
}

TEST(RenderPath, EffectsRunBeforeTheVolumeAtTheStreamsRate) {
  Rig rig;
  GainEffect effect(-2.0f);
  rig.chain.setProcessors({&effect});
  rig.controls.volume = 0.5f;
  rig.fill(100);
  ASSERT_EQ(rig.render(100), 100u);
  for (std::uint32_t i = 0; i < 100; ++i) {
    EXPECT_EQ(rig.out.list().channel<float>(1)[i], -rig.in.list().channel<float>(1)[i]);
  }
  EXPECT_EQ(effect.lastRate, 96000);
}

TEST(RenderPath, UnderrunPadsWithSilenceAndCountsOnlyWhatWasRead) {
  for (const std::uint32_t sampleSize : {2u, 3u, 4u}) {
    Rig rig(2, sampleSize, true);
    rig.fill(300);
    EXPECT_EQ(rig.render(512), 300u);
    EXPECT_TRUE(rig.sameAsWritten(1, 0, 300));
    EXPECT_TRUE(rig.isSilent(0, 300, 512) && rig.isSilent(1, 300, 512));
    EXPECT_EQ(rig.render(512), 0u);
    EXPECT_TRUE(rig.isSilent(0, 0, 512) && rig.isSilent(1, 0, 512));
    EXPECT_EQ(rig.ring.framesRead(), 300);
    EXPECT_EQ(rig.cells.framesAfterEnd, 0) << "an underrun is not the end";
  }
}

TEST(RenderPath, CountsTheSilenceAfterTheEnd) {
  Rig rig;
  rig.fill(300);
  rig.cells.eofReached = true;
  EXPECT_EQ(rig.render(200), 200u);
  EXPECT_EQ(rig.cells.framesAfterEnd, 0);
  EXPECT_EQ(rig.render(200), 100u);
  EXPECT_EQ(rig.cells.framesAfterEnd, 100);
  EXPECT_EQ(rig.render(512), 0u);
  EXPECT_EQ(rig.cells.framesAfterEnd, 612);
  EXPECT_EQ(rig.ring.framesRead(), 300);
}

TEST(RenderPath, BehindAClosedGateIsSilenceThatCountsForNothing) {
  Rig rig;
  rig.fill(300);
  rig.cells.eofReached = true;
  {
    RenderGate::Closed closed(rig.gate);
    EXPECT_EQ(rig.render(512), 0u);
    EXPECT_TRUE(rig.isSilent(0, 0, 512) && rig.isSilent(1, 0, 512));
    EXPECT_EQ(rig.ring.framesRead(), 0);
    EXPECT_EQ(rig.cells.framesAfterEnd, 0);
    EXPECT_EQ(rig.ring.framesHeld(), 300);
  }
  EXPECT_EQ(rig.render(300), 300u);
  EXPECT_TRUE(rig.sameAsWritten(0, 0, 300));
}

TEST(RenderPath, EveryPairOfAnAggregateGetsTheSameStereoAfterTheEffects) {
  for (const std::uint32_t buffers : {4u, 5u, 8u}) {
    SCOPED_TRACE(testing::Message() << buffers << " buffers");
    Rig rig(2, 4, false, 1e8, buffers);
    GainEffect effect(0.5f);
    rig.chain.setProcessors({&effect});
    rig.controls.multiOutputChannelCount = static_cast<int>(buffers);
    rig.fill(256);
    rig.out.setFrames(256);
    AudioBufferList list = rig.out.list();
    void* const fourth = list.buffers[3].data;
    if (buffers == 8) {
      list.buffers[3].data = nullptr;
      list.buffers[6].byteSize -= 4;  // a frame too small: left alone
    }
    ASSERT_EQ(RenderPath::render(&rig.path, list, 256), 256u);

    EXPECT_EQ(list.bufferCount, buffers);
    EXPECT_EQ(effect.lastBufferCount, 2u);
    for (std::uint32_t i = 0; i < 256; ++i) {
      ASSERT_EQ(list.channel<float>(0)[i], rig.in.list().channel<float>(0)[i] * 0.5f);
    }
    for (std::uint32_t channel = 2; channel < buffers; ++channel) {
      const void* data = channel == 3 ? fourth : list.buffers[channel].data;
      const bool isCopy = std::memcmp(data, list.buffers[channel % 2].data, 256 * 4) == 0;
      const bool wasSkipped = buffers == 8 && (channel == 3 || channel == 6);
      EXPECT_EQ(isCopy, !wasSkipped) << "channel " << channel;
    }
  }
}

// What the spectrum must get of one sample, as the device's word has it.
float expectedMono(const Rig& rig, PlanarBuffers& out, std::uint32_t i) {
  float sum = 0;
  for (std::uint32_t c = 0; c < 2; ++c) {
    const auto* bytes = out.list().channel<unsigned char>(std::min(c, out.list().bufferCount - 1)) +
                        std::size_t{i} * out.sampleSize();
    if (rig.isFloat) {
      float sample = 0;
      std::memcpy(&sample, bytes, 4);
      sum += sample;
      continue;
    }
    std::uint32_t word = 0;  // little-endian, moved to the top
    for (std::uint32_t b = 0; b < out.sampleSize(); ++b) {
      word |= std::uint32_t{bytes[b]} << (8 * (4 - out.sampleSize() + b));
    }
    sum += static_cast<float>(static_cast<std::int32_t>(word)) * 0x1p-31f;
  }
  return sum * 0.5f;
}

TEST(RenderPath, SpectrumSeesTheMeanOfTheFirstTwoChannels) {
  struct Case {
    std::uint32_t channels, sampleSize;
    bool isInteger;
    std::uint32_t frames, captured;
  };
  for (const Case& c :
       {Case{2, 4, false, 512, 512}, Case{1, 4, false, 512, 512}, Case{2, 2, true, 512, 512},
        Case{2, 3, true, 511, 511}, Case{2, 4, true, 512, 512}, Case{1, 2, true, 512, 512},
        Case{2, 4, false, 6000, 6000}, Case{2, 4, true, 6000, 4096},
        Case{2, 2, true, 6000, 4096}}) {
    SCOPED_TRACE(testing::Message() << c.channels << " channels of " << c.sampleSize << " bytes, "
                                    << c.frames << " frames");
    Rig rig(c.channels, c.sampleSize, c.isInteger);
    rig.controls.volume = 0.5f;
    rig.fill(c.frames);
    std::vector<float> captured(16384);
    ASSERT_EQ(rig.render(1), 1u);
    EXPECT_EQ(rig.spectrum.read(captured.data(), captured.size()), 0u) << "not switched on";

    rig.controls.spectrumCaptureEnabled = true;
    rig.fill(1);
    rig.render(c.frames);
    ASSERT_EQ(rig.spectrum.read(captured.data(), captured.size()), c.captured);
    for (std::uint32_t i = 0; i < c.captured; ++i) {
      ASSERT_FLOAT_EQ(captured[i], expectedMono(rig, rig.out, i)) << "frame " << i;
    }
  }
}

TEST(RenderPath, SpectrumRingDropsWhatDoesNotFit) {
  SpectrumCaptureRing ring(100);
  EXPECT_EQ(ring.capacity(), 128u);
  std::vector<float> left(200);
  for (std::size_t i = 0; i < left.size(); ++i) left[i] = static_cast<float>(i);
  std::vector<float> got(200);
  for (int turn = 0; turn < 5; ++turn) {
    ring.write(left.data(), left.data(), 100);
    ring.write(left.data() + 100, left.data() + 100, 100);
    ASSERT_EQ(ring.read(got.data(), 50), 50u);
    ASSERT_EQ(ring.read(got.data() + 50, 200), 78u);
    for (std::size_t i = 0; i < 128; ++i) ASSERT_EQ(got[i], left[i]);
  }
}

TEST(RenderPath, OverloadLimit) {
  struct Case {
    double deadlineUs;
    std::int64_t limitUs;
  };
  for (const Case& c :
       {Case{10'700, 5'000}, Case{4'000, 2'000}, Case{93'000, 9'300}, Case{0, 0},
        Case{10'000, 5'000}, Case{9'999.9, 4'999}, Case{50'000, 5'000}, Case{50'010, 5'001}}) {
    EXPECT_EQ(renderOverloadLimitUs(c.deadlineUs), c.limitUs) << c.deadlineUs;
  }
}

TEST(RenderPath, CountsACallThatTookTooLong) {
  struct Slow : GainEffect {
    Slow() : GainEffect(1.0f) {}
    void process(AudioBufferList&, std::int64_t, double) noexcept override {
      const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(3);
      while (std::chrono::steady_clock::now() < until) continue;
    }
  } slow;
  for (const bool isSlow : {false, true}) {
    // Half of 4 ms is the limit for the slow one; the other has all the time in the world.
    Rig rig(2, 4, false, isSlow ? 4'000 : 1e8);
    if (isSlow) rig.chain.setProcessors({&slow});
    rig.fill(64);
    rig.render(64);
    EXPECT_EQ(rig.controls.renderOverloadCount, isSlow ? 1 : 0);
  }
}

}  // namespace
}  // namespace velorin
