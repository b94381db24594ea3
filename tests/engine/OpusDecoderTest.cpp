#include "engine/decoders/OpusDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "engine/memory/MemoryFileHandle.h"
#include "support/EncodedFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

using Planes = std::vector<std::vector<float>>;
using Bytes = std::vector<std::byte>;

constexpr SignalRecipe kSine{.frames = 100'000, .signal = SignalRecipe::Signal::sine};

std::unique_ptr<OpusDecoder> opened(OpusDecoder::Made made) {
  if (!made) throw std::runtime_error(made.error().text);  // ends the test as a failure
  return std::move(made).value();
}
std::unique_ptr<OpusDecoder> fromRAM(const Bytes& bytes) {
  return opened(OpusDecoder::create(std::make_unique<MemoryFileHandle>(bytes)));
}

Planes readSome(OpusDecoder& decoder, std::uint32_t frames, bool asFloat = true) {
  PlanarBuffers buffers(decoder.channels(), frames, 4);
  const DecodeResult result = decoder.read(buffers.list(), frames, asFloat);
  EXPECT_EQ(result.status, 0);
  Planes planes(decoder.channels());
  for (std::uint32_t c = 0; c < decoder.channels(); ++c) {
    for (std::uint32_t i = 0; i < result.frames; ++i) {
      planes[c].push_back(asFloat ? buffers.list().channel<float>(c)[i]
                                  : static_cast<float>(buffers.list().channel<std::int16_t>(c)[i]) /
                                        32768);
    }
  }
  return planes;
}

void append(Planes& all, const Planes& more) {
  for (std::size_t c = 0; c < all.size(); ++c) {
    all[c].insert(all[c].end(), more[c].begin(), more[c].end());
  }
}

Planes readAll(OpusDecoder& decoder, std::uint32_t size, bool asFloat = true) {
  Planes all(decoder.channels());
  for (Planes some; !(some = readSome(decoder, size, asFloat))[0].empty();) append(all, some);
  EXPECT_EQ(decoder.currentPosition(), static_cast<std::int64_t>(all[0].size()));
  EXPECT_EQ(static_cast<std::int64_t>(all[0].size()), decoder.totalFrames());
  return all;
}

/// Largest difference between what was decoded from a frame on and a channel of the source.
double errorFrom(const std::vector<float>& got, const std::vector<std::int32_t>& source,
                 std::size_t from, std::size_t to, double gain = 1) {
  double worst = 0;
  for (std::size_t i = from; i < std::min(to, got.size()); ++i) {
    worst = std::max(worst, std::fabs(got[i] - gain * source[i] / 2147483648.0));
  }
  return worst;
}

/// Below what one frame too early or too late makes of the first sine, 0.5 × 2π × 441 / 48000.
constexpr double kAligned = 0.02;

/// More than shaped dither adds.
constexpr double kDither = 32.0 / 32768;

Bytes encoded(const TemporaryFolder& folder, const SignalRecipe& recipe,
              std::vector<std::string> options = {}, std::size_t from = 0,
              std::size_t to = SIZE_MAX) {
  options.insert(options.end(), {"--bitrate", std::to_string(160 * recipe.channels)});
  encodeOpus(folder / "a.opus", makeSignal(recipe), recipe, options, from, to);
  return bytesOf(folder / "a.opus");
}

TEST(OpusDecoder, GivesTheFramesThatWereEncodedOnBothRoutes) {
  const TemporaryFolder folder;
  const Words signal = makeSignal(kSine);
  encoded(folder, kSine);
  const auto decoder = opened(OpusDecoder::create(folder / "a.opus"));
  EXPECT_EQ(decoder->sampleRate(), 48'000);
  EXPECT_EQ(decoder->bitsPerSample(), 16u);
  EXPECT_EQ(decoder->totalFrames(), kSine.frames);
  EXPECT_FALSE(decoder->info().isLossless);
  const Planes floats = readAll(*decoder, 4096);
  EXPECT_LT(errorFrom(floats[0], signal[0], 0, SIZE_MAX), kAligned);
  EXPECT_LT(errorFrom(floats[1], signal[1], 0, SIZE_MAX), kAligned);

  ASSERT_TRUE(decoder->seek(0));
  const Planes shorts = readAll(*decoder, 777, false);
  ASSERT_TRUE(decoder->seek(0));
  Planes mixed(2);  // the route may change inside a block
  for (int i = 0; i < 20; ++i) append(mixed, readSome(*decoder, 300, i % 2 == 0));
  for (std::size_t i = 0; i < floats[0].size(); ++i) {
    ASSERT_NEAR(shorts[1][i], floats[1][i], kDither) << i;
    if (i < mixed[1].size()) {
      ASSERT_NEAR(mixed[1][i], floats[1][i], kDither) << i;
    }
  }
}

TEST(OpusDecoder, SeeksToTheSampleFromDiskAndRAM) {
  const TemporaryFolder folder;
  const Bytes bytes = encoded(folder, {.frames = 300'000});  // noise: every frame is another
  const Planes truth = readAll(*fromRAM(bytes), 4096);
  for (const auto& decoder : {fromRAM(bytes), opened(OpusDecoder::create(folder / "a.opus"))}) {
    std::mt19937 random(3);
    for (int i = 0; i < 60; ++i) {
      const std::int64_t target = i == 0 ? 299'999 : static_cast<std::int64_t>(random() % 300'000);
      ASSERT_TRUE(decoder->seek(target));
      ASSERT_EQ(decoder->currentPosition(), target);
      const Planes got = readSome(*decoder, 500);
      ASSERT_EQ(got[0].size(), std::min<std::size_t>(500, 300'000 - target));
      for (std::size_t k = 0; k < got[0].size(); ++k) {
        ASSERT_NEAR(got[0][k], truth[0][static_cast<std::size_t>(target) + k], 1e-6)
            << k << " frames behind " << target;
      }
    }
    const std::int64_t before = decoder->currentPosition();
    EXPECT_FALSE(decoder->seek(300'000));
    EXPECT_EQ(decoder->currentPosition(), before);
    EXPECT_TRUE(decoder->seek(-5));
    EXPECT_EQ(readSome(*decoder, 100)[1], std::vector(truth[1].begin(), truth[1].begin() + 100));
  }
}

TEST(OpusDecoder, FilesCutFromOneSignalJoinWithoutALostFrame) {
  const TemporaryFolder folder;
  Planes joined(2);
  for (const auto& [from, to] : {std::pair{0, 33'333}, {33'333, 66'667}, {66'667, 100'000}}) {
    append(joined, readAll(*fromRAM(encoded(folder, kSine, {}, static_cast<std::size_t>(from),
                                            static_cast<std::size_t>(to))),
                           4096));
  }
  ASSERT_EQ(joined[0].size(), kSine.frames);
  const Words signal = makeSignal(kSine);
  EXPECT_LT(errorFrom(joined[0], signal[0], 0, SIZE_MAX), 0.1);
  for (const std::size_t part : {0u, 33'333u, 66'667u}) {
    EXPECT_LT(errorFrom(joined[0], signal[0], part + 1000, part + 32'000), kAligned);
  }
}

TEST(OpusDecoder, ChannelsComeInTheOrderOfWaveFiles) {
  const TemporaryFolder folder;
  SignalRecipe recipe = kSine;
  recipe.channels = 6;
  const Words signal = makeSignal(recipe);  // as Vorbis has it: L C R, back L R, LFE
  const Planes got = readAll(*fromRAM(encoded(folder, recipe)), 4096);
  ASSERT_EQ(got.size(), 6u);
  const std::vector<std::pair<std::size_t, std::size_t>> places = {
      {0, 0}, {1, 2}, {2, 1}, {4, 3}, {5, 4}};
  for (const auto& [ours, theirs] : places) {
    EXPECT_LT(errorFrom(got[ours], signal[theirs], 5000, 90'000), 0.05) << ours;
  }
}

TEST(OpusDecoder, AChainKeepsTheLayoutOfItsFirstLink) {
  const TemporaryFolder folder;
  std::vector<Bytes> links;
  std::vector<Words> signals;
  for (const unsigned channels : {1u, 2u, 6u}) {
    SignalRecipe recipe = kSine;
    recipe.channels = channels;
    recipe.frames = 50'000;
    signals.push_back(makeSignal(recipe));
    links.push_back(encoded(folder, recipe, {"--serial", std::to_string(channels)}));
  }
  for (const std::vector<std::size_t>& order :
       {std::vector<std::size_t>{1, 0, 2}, {0, 1, 2}, {2, 0, 1}}) {
    SCOPED_TRACE(testing::Message() << "first link has " << signals[order[0]].size());
    Bytes chain;
    for (const std::size_t link : order) {
      chain.insert(chain.end(), links[link].begin(), links[link].end());
    }
    const auto decoder = fromRAM(chain);
    ASSERT_EQ(decoder->channels(), signals[order[0]].size());
    ASSERT_EQ(decoder->totalFrames(), 150'000);
    const Planes all = readAll(*decoder, 4096);
    const std::size_t mono = order[0] == 0 ? 0 : 50'000;
    // Mono as it is, in the first channel, unless all is mixed to stereo.
    EXPECT_LT(errorFrom({all[0].begin() + static_cast<long>(mono), all[0].end()}, signals[0][0],
                        2000, 48'000),
              kAligned);
    if (order[0] == 2) {
      EXPECT_EQ(std::ranges::max(std::span(all[4]).subspan(50'000, 50'000)), 0);
    }
    for (const std::int64_t target : {149'999, 50'000, 49'000, 120'000, 3}) {
      ASSERT_TRUE(decoder->seek(target));
      const Planes got = readSome(*decoder, 2000);
      for (std::size_t k = 0; k < got[0].size(); ++k) {
        ASSERT_NEAR(got[0][k], all[0][static_cast<std::size_t>(target) + k], 1e-6);
      }
    }
  }
}

TEST(OpusDecoder, AMissingPageBecomesSilenceAndTheRestKeepsItsTime) {
  const TemporaryFolder folder;
  const Bytes bytes = encoded(folder, kSine, {"--max-delay", "100"});
  std::vector<std::size_t> pages;
  for (std::size_t i = 0; i + 4 < bytes.size(); ++i) {
    if (std::memcmp(bytes.data() + i, "OggS", 4) == 0) pages.push_back(i);
  }
  ASSERT_GT(pages.size(), 12u);
  Bytes damaged(bytes.begin(), bytes.begin() + static_cast<long>(pages[8]));
  damaged.insert(damaged.end(), bytes.begin() + static_cast<long>(pages[9]), bytes.end());
  const Planes got = readAll(*fromRAM(damaged), 4096);
  const Words signal = makeSignal(kSine);
  ASSERT_EQ(got[0].size(), kSine.frames);
  EXPECT_LT(errorFrom(got[0], signal[0], 0, 20'000), kAligned);
  EXPECT_GT(errorFrom(got[0], signal[0], 20'000, 60'000), 0.4);
  EXPECT_LT(errorFrom(got[0], signal[0], 60'000, SIZE_MAX), kAligned);

  const Bytes half(bytes.begin(), bytes.begin() + static_cast<long>(bytes.size() / 2));
  const auto decoder = fromRAM(half);
  EXPECT_LT(readAll(*decoder, 4096)[0].size(), 60'000u);
  EXPECT_FALSE(decoder->seek(90'000));
}

TEST(OpusDecoder, StaysInsideTheTargetAndSaysWhatItCannotOpen) {
  const TemporaryFolder folder;
  const auto decoder = fromRAM(encoded(folder, kSine));
  PlanarBuffers buffers(3, 64, 4);
  std::memset(buffers.list().buffers[2].data, 0x55, 256);
  buffers.setFrames(50);
  EXPECT_EQ(decoder->read(buffers.list(), 1000, true).frames, 50u);
  EXPECT_NE(buffers.list().channel<float>(1)[49], 0);
  EXPECT_EQ(buffers.list().channel<std::int32_t>(2)[49], 0);
  EXPECT_EQ(buffers.list().channel<std::int32_t>(2)[50], 0x55555555);
  decoder->close();
  EXPECT_NE(decoder->read(buffers.list(), 10, true).status, 0);
  EXPECT_FALSE(decoder->seek(0));
  for (const auto& [size, words] : {std::pair{0u, "empty"}, {4000u, "no Opus file"}}) {
    const auto refused =
        OpusDecoder::create(std::make_unique<MemoryFileHandle>(Bytes(size, std::byte{0x77})));
    ASSERT_FALSE(refused);
    EXPECT_NE(refused.error().text.find(words), std::string::npos) << refused.error().text;
  }
}

}  // namespace
}  // namespace velorin::test
