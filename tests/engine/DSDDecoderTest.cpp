#include "engine/dsd/DSDDecoder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "engine/decoders/DecoderFactory.h"
#include "engine/memory/MemoryFileHandle.h"
#include "foundation/Log.h"
#include "support/DSDFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using test::cut;
using test::dsdFile;
using test::DSDRecipe;
using test::oneBitNoise;
using test::OneBitSound;
using Planes = std::vector<std::vector<float>>;

constexpr DSDFormat kFormats[] = {DSDFormat::dsf, DSDFormat::dsdiff};

std::unique_ptr<ReadableFile> inMemory(std::vector<std::byte> bytes) {
  return std::make_unique<MemoryFileHandle>(std::move(bytes));
}

std::unique_ptr<DSDDecoder> opened(std::vector<std::byte> bytes, DSDFormat format, int decimation) {
  auto made = DSDDecoder::create(inMemory(std::move(bytes)), format);
  if (!made) throw std::runtime_error(made.error().text);  // ends the test as a failure
  made.value()->prepareDSDtoPCM(decimation);
  return std::move(made).value();
}

std::unique_ptr<DoPEncoder> encoderOf(const OneBitSound& sound, const DSDRecipe& recipe) {
  return DoPEncoder::create(inMemory(dsdFile(sound, recipe)), recipe.format).value();
}

Planes readAll(FileDecoder& decoder, std::vector<std::uint32_t> sizes = {4096}) {
  Planes all(decoder.channels());
  for (std::size_t turn = 0;; ++turn) {
    const std::uint32_t size = sizes[turn % sizes.size()];
    PlanarBuffers buffers(decoder.channels(), size, sizeof(float));
    const DecodeResult result = decoder.read(buffers.list(), size, true);
    EXPECT_EQ(result.status, 0);
    for (std::uint32_t c = 0; c < decoder.channels(); ++c) {
      const float* const samples = buffers.list().channel<float>(c);
      all[c].insert(all[c].end(), samples, samples + result.frames);
    }
    if (result.frames == 0) return all;
  }
}

Planes converted(const OneBitSound& sound, int decimation) {
  Planes planes;
  for (const auto& channel : sound) {
    DSDConverter converter(decimation, false);
    auto& plane = planes.emplace_back(channel.size());
    plane.resize(converter.translate(channel.data(), channel.size(), plane.data()));
  }
  return planes;
}

TEST(DSDDecoder, EveryContainerGivesTheSoundAndNothingButTheSound) {
  for (const unsigned channels : {1u, 2u, 3u, 6u}) {
    const OneBitSound sound = oneBitNoise(channels, 40'003);
    const Planes expected = converted(sound, 4);
    const DSDRecipe recipes[] = {{.hasTrailer = true, .filler = 0xff},
                                 {.blockSize = 1, .filler = 0xff},
                                 {.blockSize = 7},
                                 {.blockSize = 1000, .isMostSignificantFirst = true},
                                 {.blockSize = 65'536},
                                 {.format = DSDFormat::dsdiff, .hasTrailer = true}};
    for (const DSDRecipe& recipe : recipes) {
      SCOPED_TRACE(testing::Message() << channels << " channels, block " << recipe.blockSize);
      const auto decoder = opened(dsdFile(sound, recipe), recipe.format, 4);
      EXPECT_EQ(decoder->channels(), channels);
      EXPECT_EQ(decoder->sampleRate(), 88'200);
      EXPECT_EQ(decoder->totalFrames(), 10'000);
      EXPECT_EQ(decoder->bitsPerSample(), 1u);
      EXPECT_EQ(readAll(*decoder, {1, 1000, 4096, 3}), expected);
      EXPECT_EQ(decoder->currentPosition(), 10'000);
    }
  }
  // Without a count the last block counts in full: its filler is heard, the trailer is not.
  const DSDRecipe recipe{.hasTrailer = true, .statesCount = false};
  EXPECT_EQ(opened(dsdFile(oneBitNoise(2, 4097), recipe), recipe.format, 1)->totalFrames(), 8192);
}

TEST(DSDDecoder, EveryRateOpensFromDiskByItsName) {
  const test::TemporaryFolder folder;
  for (const DSDRate rate : {DSDRate::dsd64, DSDRate::dsd128, DSDRate::dsd256, DSDRate::dsd512}) {
    for (const DSDFormat format : kFormats) {
      const auto path = folder / (format == DSDFormat::dsf ? "a.DSF" : "a.dff");
      const OneBitSound sound = oneBitNoise(2, 9000);
      test::writeFile(path, dsdFile(sound, {.format = format, .rate = rate}));
      auto made = DecoderFactory::open(path);
      ASSERT_TRUE(made) << made.error().text;
      FileDecoder& decoder = *made.value();
      ASSERT_NE(decoder.dsd(), nullptr);
      EXPECT_EQ(decoder.dsd()->dsdRate(), rate);
      EXPECT_EQ(decoder.sampleRate(), rateAfter8To1(rate));
      EXPECT_EQ(decoder.info().formatTag, format == DSDFormat::dsf ? "DSF" : "DFF");
      EXPECT_EQ(readAll(decoder), converted(sound, 1));
    }
  }
}

TEST(DSDDecoder, SeeksToTheSampleOfAFullDecode) {
  const OneBitSound sound = oneBitNoise(2, 60'001);
  std::mt19937 random(7);
  for (const DSDFormat format : kFormats) {
    for (const int decimation : {1, 2, 8, 64, 256}) {
      const auto decoder = opened(dsdFile(sound, {.format = format}), format, decimation);
      const Planes whole = readAll(*decoder);
      const std::int64_t total = decoder->totalFrames();
      for (int turn = 0; turn < 12; ++turn) {
        const std::int64_t target = turn < 2 ? total - 1 - turn : random() % total;
        SCOPED_TRACE(testing::Message() << "1:" << decimation << ", frame " << target);
        ASSERT_TRUE(decoder->seek(target));
        EXPECT_EQ(decoder->currentPosition(), target);
        const Planes rest = readAll(*decoder);
        EXPECT_TRUE(
            std::equal(rest[1].begin(), rest[1].end(), whole[1].begin() + target, whole[1].end()));
      }
      EXPECT_FALSE(decoder->seek(total));
      EXPECT_EQ(decoder->currentPosition(), total);
      ASSERT_TRUE(decoder->seek(-5));
      EXPECT_EQ(readAll(*decoder), whole);
    }
  }
}

TEST(DSDDecoder, ARecordingInTwoFilesPlaysOnWithoutASeam) {
  const OneBitSound sound = test::modulatedSine({.bytes = 40'000});
  const Planes whole = converted(sound, 8);
  for (const DSDFormat second : kFormats) {
    const auto a = opened(dsdFile(cut(sound, 0, 16'000)), DSDFormat::dsf, 8);
    const auto b = opened(dsdFile(cut(sound, 16'000, 40'000), {.format = second}), second, 8);
    Planes joined = readAll(*a);
    b->continueFrom(*a);
    const Planes rest = readAll(*b);
    for (int c = 0; c < 2; ++c) joined[c].insert(joined[c].end(), rest[c].begin(), rest[c].end());
    EXPECT_EQ(joined, whole);
  }
}

TEST(DSDDecoder, KeepsToTheListItIsGiven) {
  const OneBitSound sound = oneBitNoise(2, 3000);
  const auto decoder = opened(dsdFile(sound), DSDFormat::dsf, 1);
  PlanarBuffers three(3, 64, sizeof(float));
  std::fill_n(three.list().channel<float>(2), 64, 5.0f);
  three.setFrames(50);
  EXPECT_EQ(decoder->read(three.list(), 64, true).frames, 50u);
  EXPECT_EQ(three.list().channel<float>(2)[49], 0.0f);
  EXPECT_EQ(three.list().channel<float>(2)[50], 5.0f);
  PlanarBuffers one(1, 64, sizeof(float));
  EXPECT_EQ(decoder->read(one.list(), 64, true).frames, 64u);
  // The channel that nobody wanted for a while is none the worse for it.
  EXPECT_EQ(decoder->read(three.list(), 50, true).frames, 50u);
  EXPECT_EQ(three.list().channel<float>(1)[10], converted(sound, 1)[1][124]);
  EXPECT_EQ(decoder->read(three.list(), 50, false).status, -1);
}

std::vector<std::byte> little(std::uint64_t value, std::size_t size) {
  std::vector<std::byte> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::byte>(value >> 8 * i);
  return bytes;
}

std::vector<std::byte> big(std::uint64_t value, std::size_t size) {
  std::vector<std::byte> bytes = little(value, size);
  std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

TEST(DSDLayout, SaysWhyAFileCannotBePlayed) {
  struct Case {
    DSDFormat format;
    std::size_t at;
    std::vector<std::byte> patch;
    const char* words;  // of the error, or none where the file plays
  };
  const auto text = [](const char* letters) {
    const auto* bytes = reinterpret_cast<const std::byte*>(letters);
    return std::vector<std::byte>(bytes, bytes + std::strlen(letters));
  };
  constexpr std::uint64_t kHuge = ~std::uint64_t{0};
  // In a DSDIFF of ours: PROP at 32, FS at 48, CHNL at 64, CMPR at 86, the sound's chunk at 118.
  const Case cases[] = {
      {DSDFormat::dsf, 0, text("RIFF"), "not a DSF"},
      {DSDFormat::dsf, 28, text("fmtX"), "damaged"},
      {DSDFormat::dsf, 80, text("atad"), "damaged"},
      {DSDFormat::dsf, 84, little(12, 8), "damaged"},
      {DSDFormat::dsf, 84, little(13, 8), "no sound"},
      {DSDFormat::dsf, 84, little(kHuge, 8), nullptr},
      {DSDFormat::dsf, 56, little(2'822'401, 4), "2822401 Hz"},
      {DSDFormat::dsf, 52, little(0, 4), "0 channels"},
      {DSDFormat::dsf, 52, little(65, 4), "65 channels"},
      {DSDFormat::dsf, 52, little(kHuge, 4), "channels"},
      {DSDFormat::dsf, 72, little(0, 4), "block size of 0"},
      {DSDFormat::dsf, 72, little(kHuge, 4), "block size"},
      {DSDFormat::dsf, 72, little(1 << 23, 4), "no sound"},
      {DSDFormat::dsf, 64, little(kHuge, 8), nullptr},
      {DSDFormat::dsdiff, 0, text("FORM"), "not a DSDIFF"},
      {DSDFormat::dsdiff, 12, text("DST "), "not a DSDIFF"},
      {DSDFormat::dsdiff, 60, big(44'100, 4), "44100 Hz"},
      {DSDFormat::dsdiff, 48, text("XXXX"), "0 Hz"},
      {DSDFormat::dsdiff, 76, big(0, 2), "0 channels"},
      {DSDFormat::dsdiff, 76, big(65'535, 2), "65535 channels"},
      {DSDFormat::dsdiff, 118, text("DST "), "DST-compressed"},
      {DSDFormat::dsdiff, 122, big(0, 8), "no sound"},
      {DSDFormat::dsdiff, 122, big(1, 8), "no sound"},
      {DSDFormat::dsdiff, 122, big(kHuge, 8), nullptr},
      {DSDFormat::dsdiff, 118, text("XXXX"), "no sound"},
      {DSDFormat::dsdiff, 36, big(kHuge, 8), "no sound"},
      {DSDFormat::dsdiff, 52, big(kHuge, 8), "0 channels"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(test.format) << " at " << test.at);
    std::vector<std::byte> bytes = dsdFile(oneBitNoise(2, 5000), {.format = test.format});
    std::copy(test.patch.begin(), test.patch.end(),
              bytes.begin() + static_cast<std::ptrdiff_t>(test.at));
    const log::Capture log;
    const auto made = DoPEncoder::create(inMemory(bytes), test.format);
    ASSERT_EQ(made.hasValue(), test.words == nullptr) << (made ? "plays" : made.error().text);
    if (made) continue;
    EXPECT_NE(made.error().text.find(test.words), std::string::npos) << made.error().text;
    EXPECT_EQ(log.contains("⚠️ Unsupported DSD rate: 2822401"), test.at == 56);
  }
  EXPECT_FALSE(DoPEncoder::create(nullptr, DSDFormat::dsf));
}

TEST(DSDLayout, WalksTheChunksOfDSDIFF) {
  const OneBitSound sound = oneBitNoise(2, 5000);
  const std::vector<std::byte> file = dsdFile(sound, {.format = DSDFormat::dsdiff});
  const auto withInserted = [&](std::size_t at, const char* id, std::size_t size) {
    std::vector<std::byte> chunk(12 + size + size % 2);
    std::memcpy(chunk.data(), id, 4);
    const auto count = big(size, 8);
    std::copy(count.begin(), count.end(), chunk.begin() + 4);
    std::vector<std::byte> bytes = file;
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), chunk.begin(), chunk.end());
    return bytes;
  };
  // Chunks of odd size, unknown ones, an empty one of sound before the real one.
  for (const auto& [at, id, size] :
       {std::tuple{16, "XXXX", 33}, {118, "COMT", 1}, {118, "DSD ", 0}}) {
    const auto decoder = opened(withInserted(at, id, size), DSDFormat::dsdiff, 1);
    EXPECT_EQ(readAll(*decoder), converted(sound, 1)) << id;
  }
  // Properties count within the first 1024 bytes of their chunk, whose size holds them all.
  for (const auto& [size, plays] : {std::pair{978, true}, {980, false}}) {
    std::vector<std::byte> bytes = withInserted(48, "COMT", size);
    const auto count = big(74 + 12 + size, 8);
    std::copy(count.begin(), count.end(), bytes.begin() + 36);
    const auto made = DoPEncoder::create(inMemory(bytes), DSDFormat::dsdiff);
    EXPECT_EQ(made.hasValue(), plays) << size << (made ? "" : made.error().text);
  }
}

TEST(DSDDecoder, AFileThatWasCutShortEndsThere) {
  const OneBitSound sound = oneBitNoise(2, 20'000);
  for (const DSDFormat format : kFormats) {
    std::vector<std::byte> bytes = dsdFile(sound, {.format = format});
    bytes.erase(bytes.end() - 10'001, bytes.end());
    const auto decoder = opened(bytes, format, 1);
    // A DSF is left with three block sets and, of the next, what its second channel has.
    const std::size_t left = bytes.size() - (format == DSDFormat::dsf ? 92 : 130);
    const std::size_t last = left % 8192;
    const std::size_t frames =
        format == DSDFormat::dsf ? left / 8192 * 4096 + (last > 4096 ? last - 4096 : 0) : left / 2;
    EXPECT_EQ(decoder->totalFrames(), static_cast<std::int64_t>(frames));
    EXPECT_EQ(readAll(*decoder), converted(cut(sound, 0, frames), 1));
  }
}

// The words of a sound from a byte on, by the rule.
std::vector<std::int32_t> dopWords(const OneBitSound& sound, std::size_t from) {
  std::vector<std::int32_t> words;
  for (std::size_t i = from; i + 1 < sound[0].size(); i += 2) {
    const std::uint32_t marker = (i - from) % 4 == 0 ? 0x05 : 0xfa;
    for (const auto& channel : sound) {
      words.push_back(
          static_cast<std::int32_t>(marker << 24 | channel[i] << 16 | channel[i + 1] << 8));
    }
  }
  return words;
}

TEST(DoPEncoder, PacksBitForBit) {
  for (const unsigned channels : {1u, 2u, 5u}) {
    const OneBitSound sound = oneBitNoise(channels, 30'001);
    for (const DSDRecipe& recipe :
         {DSDRecipe{.hasTrailer = true}, {.blockSize = 333}, {.format = DSDFormat::dsdiff}}) {
      const auto encoder = encoderOf(sound, recipe);
      // 5001 bytes is where 40,008 samples are; a second is past the end.
      for (const std::size_t from : {0, 5001}) {
        encoder->seekDSD(static_cast<double>(from) * 8 / 2'822'400 + 1e-9);
        EXPECT_EQ(encoder->currentPosition(), from * channels);
        std::vector<std::int32_t> words;
        for (std::size_t turn = 0;; ++turn) {
          const auto some = encoder->readDoPFrames(turn % 2 == 0 ? 777 : 4096);
          if (some.empty()) break;
          words.insert(words.end(), some.begin(), some.end());
        }
        EXPECT_EQ(words, dopWords(sound, from));
      }
      encoder->seekDSD(1);
      EXPECT_TRUE(encoder->readDoPFrames(10).empty());
    }
  }
}

TEST(DoPEncoder, FillsPlanarBuffersAsAFillLoopWould) {
  const OneBitSound sound = oneBitNoise(2, 30'001);
  const std::vector<std::int32_t> words = dopWords(sound, 0);
  for (const DSDFormat format : kFormats) {
    const auto encoder = encoderOf(sound, {.format = format});
    PlanarBuffers buffers(2, 4096, sizeof(std::int32_t));
    std::vector<std::int32_t> got;
    while (const std::uint32_t frames = fillDoP(*encoder, buffers.list(), 9000)) {
      for (std::uint32_t i = 0; i < frames; ++i) {
        got.push_back(buffers.list().channel<std::int32_t>(0)[i]);
        got.push_back(buffers.list().channel<std::int32_t>(1)[i]);
      }
    }
    EXPECT_EQ(got, words);
  }
}

}  // namespace
}  // namespace velorin
