#include "engine/decoders/FLACDecoder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <random>

#include "engine/decoders/DecoderFactory.h"
#include "engine/decoders/FileHandle.h"
#include "engine/memory/MemoryFileHandle.h"
#include "support/FlacFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using test::FlacFixture;
using test::FlacRecipe;
using test::patchStreamInfo;
using test::TemporaryFolder;

using Planes = std::vector<std::vector<std::int32_t>>;

std::unique_ptr<FLACDecoder> opened(std::vector<std::byte> bytes) {
  auto made = FLACDecoder::create(std::make_unique<MemoryFileHandle>(std::move(bytes)));
  if (!made) throw std::runtime_error(made.error().text);  // ends the test as a failure
  return std::move(made).value();
}

// One read, turned back into integers of the source's depth. Fails the test where a word carries
// bits that the source does not have.
Planes readSome(FLACDecoder& decoder, std::uint32_t frames, bool asFloat) {
  const unsigned bits = decoder.bitsPerSample();
  const unsigned wordBits = asFloat || bits > 16 ? 32 : 16;
  PlanarBuffers buffers(decoder.channels(), std::max(frames, 1u), wordBits / 8);
  const DecodeResult result = decoder.read(buffers.list(), frames, asFloat);
  EXPECT_EQ(result.status, 0);
  EXPECT_LE(result.frames, frames);
  Planes planes(decoder.channels());
  for (std::uint32_t channel = 0; channel < decoder.channels(); ++channel) {
    for (std::uint32_t i = 0; i < result.frames; ++i) {
      if (asFloat) {
        const double value = buffers.list().channel<float>(channel)[i];
        planes[channel].push_back(
            static_cast<std::int32_t>(std::min(std::ldexp(value, bits - 1), 2147483647.0)));
        continue;
      }
      const std::int32_t word = wordBits == 16 ? buffers.list().channel<std::int16_t>(channel)[i]
                                               : buffers.list().channel<std::int32_t>(channel)[i];
      const unsigned shift = wordBits - bits;
      EXPECT_EQ(static_cast<std::uint32_t>(word) & ((1u << shift) - 1), 0u);
      planes[channel].push_back(word >> shift);
    }
  }
  return planes;
}

Planes readAll(FLACDecoder& decoder, const std::vector<std::uint32_t>& sizes, bool asFloat) {
  Planes all(decoder.channels());
  for (std::size_t turn = 0;; ++turn) {
    const Planes some = readSome(decoder, sizes[turn % sizes.size()], asFloat);
    if (some[0].empty()) return all;
    for (std::size_t channel = 0; channel < all.size(); ++channel) {
      all[channel].insert(all[channel].end(), some[channel].begin(), some[channel].end());
    }
    EXPECT_EQ(decoder.currentPosition(), static_cast<std::int64_t>(all[0].size()));
  }
}

// What a float can hold of an integer: 24 significant bits, rounded to nearest.
Planes asFloats(Planes planes) {
  for (auto& plane : planes) {
    for (auto& sample : plane) {
      sample =
          static_cast<std::int32_t>(std::min<double>(static_cast<float>(sample), 2147483647.0));
    }
  }
  return planes;
}

TEST(FLACDecoder, CarriesEveryBitOfEveryDepthAndChannelCount) {
  for (unsigned bits = 4; bits <= 32; ++bits) {
    for (const unsigned channels : {1u, 2u, 3u, 8u}) {
      SCOPED_TRACE(testing::Message() << bits << " bits, " << channels << " channels");
      const FlacRecipe recipe{.channels = channels, .bits = bits, .blockSize = 192, .frames = 700};
      const FlacFixture fixture = FlacFixture::make(recipe);
      for (const bool asFloat : {false, true}) {
        const auto decoder = opened(fixture.bytes);
        EXPECT_EQ(decoder->channels(), channels);
        EXPECT_EQ(decoder->bitsPerSample(), bits);
        EXPECT_EQ(decoder->sampleRate(), 44'100);
        EXPECT_EQ(decoder->totalFrames(), 700);
        EXPECT_EQ(readAll(*decoder, {331}, asFloat),
                  asFloat ? asFloats(fixture.samples) : fixture.samples);
        EXPECT_TRUE(decoder->isEOF());
      }
    }
  }
}

TEST(FLACDecoder, ReadsOfAnySizeJoinUpAcrossBlocks) {
  for (const unsigned blockSize : {16u, 4096u, 65'535u}) {
    const FlacFixture fixture =
        FlacFixture::make({.sampleRate = 655'350, .blockSize = blockSize, .frames = 70'000});
    for (const std::uint32_t size : {997u, 4095u, 4096u, 4097u, 80'000u}) {
      SCOPED_TRACE(testing::Message() << "block " << blockSize << ", reads of " << size);
      const auto decoder = opened(fixture.bytes);
      EXPECT_EQ(decoder->sampleRate(), 655'350);
      EXPECT_EQ(readAll(*decoder, {size, 1, 3 * blockSize}, false), fixture.samples);
    }
  }
}

TEST(FLACDecoder, StaysInsideTheTargetAndFillsItsExtraChannelsWithSilence) {
  const FlacFixture fixture = FlacFixture::make({.channels = 2, .frames = 1000});
  const auto decoder = opened(fixture.bytes);
  PlanarBuffers buffers(3, 64, 2);
  std::memset(buffers.list().buffers[2].data, 0x55, 128);
  EXPECT_EQ(decoder->read(buffers.list(), 0, false).frames, 0u);
  buffers.setFrames(50);
  EXPECT_EQ(decoder->read(buffers.list(), 1000, false).frames, 50u);
  EXPECT_EQ(buffers.list().channel<std::int16_t>(1)[49], fixture.samples[1][49]);
  EXPECT_EQ(buffers.list().channel<std::int16_t>(2)[49], 0);
  EXPECT_EQ(buffers.list().channel<std::int16_t>(2)[50], 0x5555);
  EXPECT_EQ(buffers.list().buffers[0].byteSize, 100u);
  decoder->close();
  EXPECT_NE(decoder->read(buffers.list(), 10, false).status, 0);
  EXPECT_FALSE(decoder->seek(0));
}

struct SeekCase {
  std::int64_t target;
  bool succeeds;
};

void checkSeeks(const FlacFixture& fixture, const std::vector<SeekCase>& cases) {
  const auto decoder = opened(fixture.bytes);
  const auto total = static_cast<std::int64_t>(fixture.samples[0].size());
  for (const SeekCase& seek : cases) {
    SCOPED_TRACE(testing::Message() << "seek to " << seek.target);
    const std::int64_t before = decoder->currentPosition();
    ASSERT_EQ(decoder->seek(seek.target), seek.succeeds);
    const std::int64_t expected = seek.succeeds ? std::max<std::int64_t>(seek.target, 0) : before;
    ASSERT_EQ(decoder->currentPosition(), expected);
    const Planes got = readSome(*decoder, 100, false);
    const std::int64_t count = std::min<std::int64_t>(100, total - expected);
    ASSERT_EQ(static_cast<std::int64_t>(got[0].size()), count);
    for (std::size_t channel = 0; channel < got.size(); ++channel) {
      const auto* truth = fixture.samples[channel].data() + expected;
      ASSERT_EQ(got[channel], std::vector<std::int32_t>(truth, truth + count));
    }
  }
}

TEST(FLACDecoder, SeeksToTheSampleAndKeepsItsPlaceWhenItCannot) {
  std::vector<SeekCase> cases = {
      {0, true},      {49'999, true},  {49'999, true}, {50'000, false},    {0, true},
      {-5, true},     {4095, true},    {4096, true},   {4097, true},       {1'000'000, false},
      {49'950, true}, {60'000, false}, {12, true},     {INT64_MAX, false}, {INT64_MIN, true},
  };
  std::mt19937 random(7);
  for (int i = 0; i < 60; ++i)
    cases.push_back({static_cast<std::int64_t>(random() % 50'000), true});
  for (const bool statesTotal : {true, false}) {
    for (const unsigned blockSize : {64u, 1152u, 4096u, 65'535u}) {
      SCOPED_TRACE(testing::Message() << "block " << blockSize << ", total stated " << statesTotal);
      checkSeeks(FlacFixture::make({.channels = 1,
                                    .blockSize = blockSize,
                                    .frames = 50'000,
                                    .statesTotal = statesTotal}),
                 cases);
    }
  }
}

TEST(FLACDecoder, PlaysAFileThatDoesNotTellItsLength) {
  const FlacFixture fixture = FlacFixture::make({.frames = 9000, .statesTotal = false});
  const auto decoder = opened(fixture.bytes);
  EXPECT_EQ(decoder->totalFrames(), 0);
  EXPECT_EQ(readAll(*decoder, {1000}, false), fixture.samples);
  EXPECT_FALSE(decoder->seek(9000));
  EXPECT_EQ(decoder->currentPosition(), 9000);
  EXPECT_TRUE(readSome(*decoder, 10, false)[0].empty());
  EXPECT_TRUE(decoder->seek(0));
  EXPECT_EQ(decoder->read(PlanarBuffers(2, 16, 2).list(), 16, false).frames, 16u);
}

TEST(FLACDecoder, ReadsOggFlac) {
  const FlacFixture fixture = FlacFixture::make({.bits = 24, .frames = 60'000, .ogg = true});
  const auto decoder = opened(fixture.bytes);
  EXPECT_EQ(readAll(*decoder, {5000}, false), fixture.samples);
  checkSeeks(fixture, {{30'000, true}, {0, true}, {59'000, true}, {4096, true}});
}

TEST(FLACDecoder, FindsTheStreamBehindTags) {
  FlacFixture fixture = FlacFixture::make({.frames = 500});
  std::vector<std::byte> tag(10 + 200 + 10);
  std::memcpy(tag.data(), "ID3\x04\x00\x10\x00\x00\x01\x48", 10);
  std::memcpy(tag.data() + 210, "3DI\x04\x00\x10\x00\x00\x01\x48", 10);
  for (int i = 0; i < 2; ++i) {
    fixture.bytes.insert(fixture.bytes.begin(), tag.begin(), tag.end());
  }
  const auto decoder = opened(fixture.bytes);
  EXPECT_EQ(readAll(*decoder, {100}, false), fixture.samples);
  ASSERT_TRUE(decoder->seek(123));
  EXPECT_EQ(readSome(*decoder, 1, false)[1][0], fixture.samples[1][123]);
}

TEST(FLACDecoder, ShapesFramesThatContradictTheHeader) {
  FlacRecipe recipe{.channels = 2, .bits = 16, .blockSize = 256, .frames = 1000};
  const FlacFixture fixture = FlacFixture::make(recipe);
  struct Lie {
    unsigned channels;
    unsigned bits;
  };
  for (const Lie lie : {Lie{1, 16}, Lie{4, 16}, Lie{8, 24}, Lie{2, 24}, Lie{2, 32}, Lie{2, 8}}) {
    SCOPED_TRACE(testing::Message() << lie.channels << " channels, " << lie.bits << " bits");
    std::vector<std::byte> bytes = fixture.bytes;
    patchStreamInfo(bytes, {.channels = lie.channels, .bits = lie.bits});
    const auto decoder = opened(bytes);
    const Planes got = readAll(*decoder, {300}, false);
    ASSERT_EQ(got.size(), lie.channels);
    ASSERT_EQ(got[0].size(), 1000u);
    for (std::size_t i = 0; i < got[0].size(); ++i) {
      const std::int32_t truth = fixture.samples[0][i];
      ASSERT_EQ(got[0][i], lie.bits < 16 ? truth >> (16 - lie.bits) : truth << (lie.bits - 16));
      if (lie.channels > 2) {
        ASSERT_EQ(got[2][i], 0);
      }
    }
  }

  // Files put end to end: the second has other channels, another depth and another rate.
  recipe = {.channels = 1, .bits = 8, .sampleRate = 96'000, .blockSize = 256, .frames = 1000};
  const FlacFixture second = FlacFixture::make(recipe);
  std::vector<std::byte> joined = fixture.bytes;
  joined.insert(joined.end(), second.bytes.begin(), second.bytes.end());
  const auto decoder = opened(joined);
  EXPECT_EQ(decoder->sampleRate(), 44'100);
  const Planes got = readAll(*decoder, {4096}, false);
  ASSERT_EQ(got[0].size(), 2000u);
  EXPECT_EQ(got[0][1500], second.samples[0][500] << 8);
  EXPECT_EQ(got[1][1500], 0);
  EXPECT_EQ(got[1][999], fixture.samples[1][999]);
}

TEST(FLACDecoder, AFileThatEndsEarlyGivesWhatItHas) {
  const FlacFixture fixture = FlacFixture::make({.blockSize = 1024, .frames = 40'000});
  std::vector<std::byte> half(fixture.bytes.begin(),
                              fixture.bytes.begin() + static_cast<long>(fixture.bytes.size() / 2));
  auto decoder = opened(half);
  const Planes got = readAll(*decoder, {4096}, false);
  ASSERT_GT(got[0].size(), 15'000u);
  ASSERT_LT(got[0].size(), 21'000u);
  EXPECT_TRUE(std::equal(got[1].begin(), got[1].end(), fixture.samples[1].begin()));
  EXPECT_FALSE(decoder->seek(39'000));
  EXPECT_EQ(decoder->currentPosition(), static_cast<std::int64_t>(got[0].size()));
  EXPECT_TRUE(readSome(*decoder, 4096, false)[0].empty());
  ASSERT_TRUE(decoder->seek(5000));
  EXPECT_FALSE(decoder->seek(39'000));
  EXPECT_EQ(readSome(*decoder, 1, false)[0][0], fixture.samples[0][5000]);

  // Cut under the decoder's hands, under a name that is no UTF-8.
  const TemporaryFolder folder;
  const std::filesystem::path path = folder / "na\xefve \xff\n.flac";
  fixture.write(path);
  auto made = FLACDecoder::create(path);
  ASSERT_TRUE(made) << made.error().text;
  const Planes first = readSome(*made.value(), 4096, false);
  EXPECT_EQ(first[0][4095], fixture.samples[0][4095]);
  std::filesystem::resize_file(path, fixture.bytes.size() / 2);
  std::size_t frames = 4096;
  for (Planes some; !(some = readSome(*made.value(), 4096, false))[0].empty();) {
    ASSERT_TRUE(std::equal(some[0].begin(), some[0].end(), &fixture.samples[0][frames]));
    frames += some[0].size();
  }
  EXPECT_GT(frames, 15'000u);
  EXPECT_LT(frames, 21'000u);
}

TEST(FLACDecoder, DamageBecomesSilenceAndWhatFollowsKeepsItsTime) {
  for (const std::int64_t total : {20'000, 0}) {
    FlacFixture fixture = FlacFixture::make({.channels = 1, .blockSize = 1000, .frames = 20'000});
    patchStreamInfo(fixture.bytes, {.totalSamples = total});
    for (std::size_t i = 0; i < 64; ++i) {
      fixture.bytes[fixture.bytes.size() / 2 + i] ^= std::byte{0xff};
    }
    const auto decoder = opened(fixture.bytes);
    const std::vector<std::int32_t> got = readAll(*decoder, {300}, false)[0];
    const std::vector<std::int32_t>& truth = fixture.samples[0];
    ASSERT_EQ(got.size(), truth.size());
    EXPECT_TRUE(std::equal(got.begin(), got.begin() + 9000, truth.begin()));
    EXPECT_EQ(std::vector(got.begin() + 10'000, got.begin() + 11'000),
              std::vector<std::int32_t>(1000));
    EXPECT_TRUE(std::equal(got.begin() + 12'000, got.end(), truth.begin() + 12'000));
  }
}

void expectRefused(const FLACDecoder::Made& made, const char* words) {
  ASSERT_FALSE(made) << words;
  EXPECT_NE(made.error().text.find(words), std::string::npos) << made.error().text;
  EXPECT_EQ(made.error().text.find('\n'), std::string::npos);
}

TEST(FLACDecoder, SaysWhyABufferCannotBeOpened) {
  const auto create = [](std::vector<std::byte> bytes) {
    return FLACDecoder::create(std::make_unique<MemoryFileHandle>(std::move(bytes)));
  };
  const FlacFixture good = FlacFixture::make({.frames = 100});
  expectRefused(create({}), "empty");
  expectRefused(FLACDecoder::create(std::unique_ptr<ReadableFile>()), "no file");
  expectRefused(create(std::vector<std::byte>(5000, std::byte{0xa5})), "not a FLAC file");
  expectRefused(create({good.bytes.begin(), good.bytes.begin() + 3}), "not a FLAC file");
  expectRefused(create({good.bytes.begin(), good.bytes.begin() + 20}), "STREAMINFO");
  std::vector<std::byte> bytes = good.bytes;
  patchStreamInfo(bytes, {.sampleRate = 0});
  expectRefused(create(bytes), "0 Hz");
  // A last metadata block that is padding, and no STREAMINFO.
  bytes = good.bytes;
  bytes[4] = std::byte{0x81};
  expectRefused(create(bytes), "STREAMINFO");
  // An ID3v2 tag whose length points past the end.
  bytes.assign(64, std::byte{0x7f});
  std::memcpy(bytes.data(), "ID3", 3);
  expectRefused(create(bytes), "not a FLAC file");
  std::memcpy(bytes.data(), "OggS", 4);
  expectRefused(create(bytes), "STREAMINFO");
}

TEST(FLACDecoder, SaysWhyAPathCannotBeOpened) {
  const TemporaryFolder folder;
  const FlacFixture good = FlacFixture::make({.frames = 100});
  good.write(folder / "good.flac");
  expectRefused(FLACDecoder::create(folder / "absent.flac"), "no such file");
  expectRefused(FLACDecoder::create(folder.path()), "folder");
  ASSERT_EQ(::mkfifo((folder / "pipe.flac").c_str(), 0600), 0);
  expectRefused(FLACDecoder::create(folder / "pipe.flac"), "pipe");
  expectRefused(FLACDecoder::create("/dev/null"), "device");
  std::filesystem::create_symlink(folder / "loop.flac", folder / "loop.flac");
  expectRefused(FLACDecoder::create(folder / "loop.flac"), "cannot be opened");

  // Root reads everything, so a privileged run becomes nobody for this one.
  std::filesystem::permissions(folder / "good.flac", std::filesystem::perms::none);
  const bool root = ::geteuid() == 0;
  ASSERT_EQ(root ? ::seteuid(65'534) : 0, 0);
  const auto refused = FLACDecoder::create(folder / "good.flac");
  ASSERT_EQ(root ? ::seteuid(0) : 0, 0);
  expectRefused(refused, "permission");
}

TEST(DecoderFactory, OpensByExtensionWhateverItsCase) {
  EXPECT_TRUE(DecoderFactory::isSupportedExtension("FlaC"));
  EXPECT_FALSE(DecoderFactory::isSupportedExtension("xyz"));
  EXPECT_FALSE(DecoderFactory::isSupportedExtension(""));
  const TemporaryFolder folder;
  const FlacFixture fixture = FlacFixture::make({.frames = 100});
  fixture.write(folder / "A.FLAC");
  auto made = DecoderFactory::open(folder / "A.FLAC");
  ASSERT_TRUE(made) << made.error().text;
  EXPECT_EQ(made.value()->totalFrames(), 100);
  EXPECT_EQ(made.value()->info().name, "FLAC Decoder");
  for (const char* name : {"a.xyz", "noextension"}) {
    const auto refused = DecoderFactory::open(folder / name);
    ASSERT_FALSE(refused);
    EXPECT_FALSE(refused.error().text.empty());
  }
}

TEST(ReadableFile, DiskAndMemoryBehaveAlike) {
  const TemporaryFolder folder;
  std::vector<std::byte> bytes(1000);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::byte>(i * 7);
  FlacFixture{.samples = {}, .bytes = bytes}.write(folder / "f");
  auto disk = FileHandle::open(folder / "f");
  ASSERT_TRUE(disk);
  MemoryFileHandle memory(bytes);
  for (ReadableFile* file :
       {static_cast<ReadableFile*>(disk.value().get()), static_cast<ReadableFile*>(&memory)}) {
    EXPECT_EQ(file->size(), 1000u);
    file->seek(990);
    const std::vector<std::byte> tail = file->read(SIZE_MAX);
    EXPECT_EQ(tail, std::vector<std::byte>(bytes.begin() + 990, bytes.end()));
    EXPECT_EQ(file->offset(), 1000u);
    EXPECT_TRUE(file->read(1).empty());
    file->seek(1);
    std::byte one{};
    EXPECT_EQ(file->readInto({&one, 1}), 1u);
    EXPECT_EQ(one, bytes[1]);
  }
  // Past the end is the end in memory; on disk it is what the file may grow to.
  memory.seek(UINT64_MAX);
  EXPECT_EQ(memory.offset(), 1000u);
  EXPECT_THROW(disk.value()->seek(UINT64_MAX), std::system_error);
  EXPECT_EQ(disk.value()->offset(), 2u);
}

}  // namespace
}  // namespace velorin
