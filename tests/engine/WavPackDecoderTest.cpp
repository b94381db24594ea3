#include "engine/decoders/WavPackDecoder.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <random>

#include "engine/decoders/DecoderFactory.h"
#include "engine/memory/MemoryFileHandle.h"
#include "foundation/Log.h"
#include "support/EncodedFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

std::unique_ptr<FileDecoder> opened(DecoderFactory::Opened made) {
  if (!made) throw std::runtime_error(made.error().text);  // ends the test as a failure
  return std::move(made).value();
}

/// The file from disk, or, companion included, from RAM.
std::unique_ptr<FileDecoder> openFile(const std::filesystem::path& path, bool fromRAM) {
  if (!fromRAM) return opened(DecoderFactory::open(path));
  const std::string beside = DecoderFactory::companionPath(path);
  std::unique_ptr<ReadableFile> companion;
  if (std::filesystem::exists(beside)) {
    companion = std::make_unique<MemoryFileHandle>(bytesOf(beside));
  }
  return opened(DecoderFactory::open(std::make_unique<MemoryFileHandle>(bytesOf(path)), "wv",
                                     std::move(companion)));
}

/// Up to so many frames, as makeSignal() gives them: integers at the top of 32 bits, floats as
/// bits.
Words readSome(FileDecoder& decoder, std::uint32_t frames, bool asFloat) {
  const bool isShort = !asFloat && decoder.bitsPerSample() <= 16;
  PlanarBuffers buffers(decoder.channels(), frames, isShort ? 2 : 4);
  const DecodeResult result = decoder.read(buffers.list(), frames, asFloat);
  EXPECT_EQ(result.status, 0);
  Words words(decoder.channels(), std::vector<std::int32_t>(result.frames));
  for (std::uint32_t c = 0; c < decoder.channels(); ++c) {
    for (std::uint32_t i = 0; i < result.frames; ++i) {
      words[c][i] = isShort ? buffers.list().channel<std::int16_t>(c)[i] * 65536
                            : buffers.list().channel<std::int32_t>(c)[i];
    }
  }
  return words;
}

void append(Words& all, const Words& more) {
  for (std::size_t c = 0; c < all.size(); ++c) {
    all[c].insert(all[c].end(), more[c].begin(), more[c].end());
  }
}

Words readAll(FileDecoder& decoder, std::uint32_t size, bool asFloat) {
  Words all(decoder.channels());
  for (Words some; !(some = readSome(decoder, size, asFloat))[0].empty();) append(all, some);
  EXPECT_EQ(decoder.currentPosition(), static_cast<std::int64_t>(all[0].size()));
  return all;
}

/// What the float route makes of integers: rounded once, full scale 1.
Words asFloatBits(Words words) {
  for (auto& channel : words) {
    for (auto& word : channel) {
      word = std::bit_cast<std::int32_t>(std::ldexp(static_cast<float>(word), -31));
    }
  }
  return words;
}

Words slice(const Words& words, std::size_t from, std::size_t count) {
  Words part(words.size());
  for (std::size_t c = 0; c < words.size(); ++c) {
    part[c].assign(
        words[c].begin() + static_cast<std::ptrdiff_t>(from),
        words[c].begin() + static_cast<std::ptrdiff_t>(std::min(from + count, words[c].size())));
  }
  return part;
}

void expectSampleExactSeeks(FileDecoder& decoder, const Words& truth, bool asFloat) {
  const auto total = static_cast<std::int64_t>(truth[0].size());
  std::mt19937 random(3);
  for (int i = 0; i < 60; ++i) {
    const std::int64_t target = i == 0 ? total - 1 : static_cast<std::int64_t>(random() % total);
    ASSERT_TRUE(decoder.seek(target));
    ASSERT_EQ(decoder.currentPosition(), target);
    ASSERT_EQ(readSome(decoder, 50, asFloat), slice(truth, static_cast<std::size_t>(target), 50))
        << "from " << target;
  }
  const std::int64_t before = decoder.currentPosition();
  EXPECT_FALSE(decoder.seek(total));
  EXPECT_EQ(decoder.currentPosition(), before);
  EXPECT_EQ(readSome(decoder, 50, asFloat), slice(truth, static_cast<std::size_t>(before), 50));
  EXPECT_TRUE(decoder.seek(INT64_MIN));
  EXPECT_EQ(decoder.currentPosition(), 0);
}

TEST(WavPackDecoder, CarriesEveryBitOfEveryKindOfFileAndSeeksToTheSample) {
  struct Case {
    SignalRecipe recipe;
    std::vector<std::string> options;
  };
  const TemporaryFolder folder;
  for (const auto& [recipe, options] : std::vector<Case>{
           {{.bits = 8}, {}},
           {{.channels = 1, .bits = 12}, {"-h"}},
           {{.bits = 16}, {"-f"}},
           {{.channels = 6, .bits = 16}, {}},
           {{.bits = 20}, {}},
           {{.channels = 3, .bits = 24}, {"-hh"}},
           {{.bits = 32}, {}},
           {{.bits = 32, .isFloat = true}, {}},
           {{.bits = 16, .frames = 60'000, .sampleRate = 44'100}, {"-b4", "-c"}},
           {{.bits = 24, .sampleRate = 192'000}, {"-b6", "-c"}},
           {{.bits = 32, .isFloat = true}, {"-b5", "-c"}},
       }) {
    SCOPED_TRACE(testing::Message() << recipe.bits << " bits, " << recipe.channels << " channels, "
                                    << (options.empty() ? "" : options[0]));
    const Words signal = makeSignal(recipe);
    const std::filesystem::path path = folder / "music.wv";
    std::filesystem::remove(folder / "music.wvc");
    encodeWavPack(path, signal, recipe, options);
    for (const bool fromRAM : {false, true}) {
      const auto decoder = openFile(path, fromRAM);
      EXPECT_EQ(decoder->channels(), recipe.channels);
      EXPECT_EQ(decoder->bitsPerSample(), recipe.bits);
      EXPECT_EQ(decoder->sampleRate(), recipe.sampleRate);
      EXPECT_EQ(decoder->totalFrames(), recipe.frames);
      EXPECT_EQ(decoder->isFloatSource(), recipe.isFloat);
      EXPECT_TRUE(decoder->info().isLossless);
      const Words floats = recipe.isFloat ? signal : asFloatBits(signal);
      EXPECT_EQ(readAll(*decoder, 331, true), floats);
      expectSampleExactSeeks(*decoder, floats, true);
      if (!recipe.isFloat) {
        EXPECT_EQ(readAll(*decoder, 4999, false), signal);
        expectSampleExactSeeks(*decoder, signal, false);
      }
    }
  }
}

TEST(WavPackDecoder, FilesCutFromOneSignalJoinToIt) {
  const TemporaryFolder folder;
  const SignalRecipe recipe{.frames = 30'000, .signal = SignalRecipe::Signal::sine};
  const Words signal = makeSignal(recipe);
  Words joined(2);
  for (const auto& [from, to] : {std::pair{0u, 9'999u}, {9'999u, 10'000u}, {10'000u, 30'000u}}) {
    encodeWavPack(folder / "part.wv", signal, recipe, {}, from, to);
    append(joined, readAll(*openFile(folder / "part.wv", false), 4096, false));
  }
  EXPECT_EQ(joined, signal);
}

TEST(WavPackDecoder, AHybridFileWithoutItsCorrectionIsLossy) {
  const TemporaryFolder folder;
  const SignalRecipe recipe{.frames = 30'000, .signal = SignalRecipe::Signal::sine};
  const Words signal = makeSignal(recipe);
  encodeWavPack(folder / "a.wv", signal, recipe, {"-b3", "-c"});
  const auto correction = bytesOf(folder / "a.wvc");
  const auto check = [&] {
    const auto decoder = openFile(folder / "a.wv", false);
    EXPECT_FALSE(decoder->info().isLossless);
    const Words got = readAll(*decoder, 4096, false);
    EXPECT_NE(got, signal);
    ASSERT_EQ(got[0].size(), signal[0].size());
    for (std::size_t i = 0; i < got[0].size(); ++i) {
      ASSERT_NEAR(got[0][i], signal[0][i], 1 << 27) << i;
    }
  };
  std::filesystem::remove(folder / "a.wvc");
  check();
  const log::Capture log;
  writeBytes(folder / "a.wvc", std::vector<std::byte>(5000));
  check();
  EXPECT_TRUE(log.contains("correction file does not fit"));
}

TEST(WavPackDecoder, MakesPCMOfOneBitAudioTheSameWhereverItStarts) {
  const TemporaryFolder folder;
  const SignalRecipe recipe{.bits = 8, .frames = 100'000};
  SignalRecipe dsd = recipe;
  dsd.bits = 1;
  dsd.sampleRate = 2'822'400;
  encodeWavPack(folder / "dsd.wv", makeSignal(recipe), dsd);
  const auto decoder = openFile(folder / "dsd.wv", true);
  EXPECT_EQ(decoder->sampleRate(), 352'800);
  EXPECT_EQ(decoder->bitsPerSample(), 24u);
  EXPECT_EQ(decoder->totalFrames(), 100'000);
  const Words all = readAll(*decoder, 4096, false);
  ASSERT_EQ(all[0].size(), 100'000u);
  EXPECT_NE(all[0], all[1]);
  expectSampleExactSeeks(*decoder, all, false);
}

TEST(WavPackDecoder, DamageBecomesSilenceAndACutFileGivesWhatItHas) {
  const TemporaryFolder folder;
  const SignalRecipe recipe{.channels = 1, .frames = 60'000};
  const Words signal = makeSignal(recipe);
  encodeWavPack(folder / "a.wv", signal, recipe, {"--blocksize=2000"});
  const auto whole = bytesOf(folder / "a.wv");
  const auto decode = [](const std::vector<std::byte>& bytes) {
    return opened(DecoderFactory::open(std::make_unique<MemoryFileHandle>(bytes), "wv"));
  };

  auto damaged = whole;
  std::memset(damaged.data() + damaged.size() / 2, 0x5a, 64);
  const Words got = readAll(*decode(damaged), 1000, false);
  ASSERT_EQ(got[0].size(), 60'000u);
  EXPECT_EQ(slice(got, 0, 26'000), slice(signal, 0, 26'000));
  EXPECT_EQ(slice(got, 34'000, 26'000), slice(signal, 34'000, 26'000));

  const auto decoder = decode({whole.begin(), whole.begin() + static_cast<long>(whole.size() / 2)});
  EXPECT_FALSE(decoder->seek(55'000));
  const Words half = readAll(*decoder, 1000, false);
  EXPECT_GT(half[0].size(), 25'000u);
  EXPECT_EQ(slice(half, 0, 25'000), slice(signal, 0, 25'000));
  EXPECT_FALSE(decoder->seek(55'000));
  EXPECT_TRUE(readSome(*decoder, 10, false)[0].empty());
  EXPECT_TRUE(decoder->seek(5'000));
  EXPECT_FALSE(decoder->seek(55'000));
  EXPECT_EQ(readSome(*decoder, 100, false), slice(signal, 5'000, 100));
}

TEST(WavPackDecoder, StaysInsideTheTarget) {
  const TemporaryFolder folder;
  const SignalRecipe recipe{.frames = 1000};
  const Words signal = makeSignal(recipe);
  encodeWavPack(folder / "a.wv", signal, recipe);
  auto made = WavPackDecoder::create(folder / "a.wv");
  ASSERT_TRUE(made);
  WavPackDecoder& decoder = *made.value();
  PlanarBuffers buffers(3, 64, 2);
  std::memset(buffers.list().buffers[2].data, 0x55, 128);
  buffers.setFrames(50);
  EXPECT_EQ(decoder.read(buffers.list(), 1000, false).frames, 50u);
  EXPECT_EQ(buffers.list().channel<std::int16_t>(1)[49], signal[1][49] >> 16);
  EXPECT_EQ(buffers.list().channel<std::int16_t>(2)[49], 0);
  EXPECT_EQ(buffers.list().channel<std::int16_t>(2)[50], 0x5555);
  decoder.close();
  EXPECT_NE(decoder.read(buffers.list(), 10, false).status, 0);
  EXPECT_FALSE(decoder.seek(0));
  for (const char* words : {"empty", "no WavPack file"}) {
    const auto refused = WavPackDecoder::create(std::make_unique<MemoryFileHandle>(
        std::vector<std::byte>(std::string_view(words) == "empty" ? 0 : 4000, std::byte{0x77})));
    ASSERT_FALSE(refused);
    EXPECT_NE(refused.error().text.find(words), std::string::npos) << refused.error().text;
  }
}

}  // namespace
}  // namespace velorin::test
