#include <gtest/gtest.h>

#include "engine/decoders/APEDecoder.h"
#include "engine/decoders/DecoderFactory.h"
#include "engine/decoders/FileHandle.h"
#include "engine/memory/MemoryFileHandle.h"
#include "support/EncodedFile.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using Bytes = std::vector<std::byte>;

Bytes bytesOf(const fs::path& path) {
  return FileHandle::open(path).value()->read(fs::file_size(path));
}

std::unique_ptr<FileDecoder> opened(const fs::path& path) {
  auto made = DecoderFactory::open(path);
  if (!made) throw std::runtime_error(path.string() + ": " + made.error().text);
  return std::move(made).value();
}

/// The words of both channels, one after the other, each as its bits in an integer.
using Words = std::vector<std::int32_t>;
Words readSome(FileDecoder& decoder, std::uint32_t frames, bool asFloat) {
  const std::uint32_t size = !asFloat && decoder.bitsPerSample() <= 16 ? 2 : 4;
  PlanarBuffers buffers(2, frames, size);
  const DecodeResult result = decoder.read(buffers.list(), frames, asFloat);
  EXPECT_EQ(result.status, 0);
  Words words;
  for (std::uint32_t i = 0; i < result.frames * 2; ++i) {
    const std::size_t channel = i % 2;
    words.push_back(size == 2 ? buffers.list().channel<std::int16_t>(channel)[i / 2]
                              : buffers.list().channel<std::int32_t>(channel)[i / 2]);
  }
  return words;
}

Words readAll(FileDecoder& decoder, bool asFloat) {
  Words all;
  for (Words some; !(some = readSome(decoder, 1000, asFloat)).empty();) {
    all.insert(all.end(), some.begin(), some.end());
    EXPECT_EQ(decoder.currentPosition() * 2, static_cast<std::int64_t>(all.size()));
  }
  return all;
}

constexpr std::size_t kFrames = 3 * 44'100 + 777;

TEST(MediaDecoder, LosslessFilesKeepEveryBit) {
  // Words of each source, and what they are to become.
  struct Source {
    RawSound raw;
    Words words;
    std::uint32_t bits;
    bool isFloat = false;
  };
  std::mt19937 random(4);
  const auto noise = [&](const std::string& format, std::uint32_t bits) {
    Source source{{.format = format, .bytes = {}}, {}, bits, format[0] == 'f'};
    for (std::size_t i = 0; i < 2 * 20'012; ++i) {
      const auto word = static_cast<std::int32_t>(random());
      const float real = static_cast<float>(word) * 0x1p-29f;  // beyond full scale too
      if (bits == 8) source.raw.add(static_cast<std::uint8_t>((word >> 24) + 128));
      if (bits == 16) source.raw.add(static_cast<std::int16_t>(word >> 16));
      if (bits == 24) source.raw.add(word >> 8, 3);
      if (bits == 32 && !source.isFloat) source.raw.add(word);
      if (bits == 32 && source.isFloat) source.raw.add(real);
      if (bits == 64) source.raw.add(double{real});
      source.words.push_back(source.isFloat ? std::bit_cast<std::int32_t>(real)
                             : bits <= 16   ? word >> (32 - bits) << (16 - bits)
                                            : word >> (32 - bits) << (32 - bits));
    }
    return source;
  };
  const Source s8 = noise("u8", 8), s16 = noise("s16le", 16), s24 = noise("s24le", 24),
               s32 = noise("s32le", 32), f32 = noise("f32le", 32), f64 = noise("f64le", 64);
  struct Case {
    const char* file;
    const Source& source;
    Strings options;
    const char* name;
  };
  const Case cases[] = {
      {"8.wav", s8, {"-c:a", "pcm_u8"}, "WAV"},
      {"16.wav", s16, {}, "WAV"},
      {"24.wav", s24, {"-c:a", "pcm_s24le"}, "WAV"},
      {"32.wav", s32, {"-c:a", "pcm_s32le"}, "WAV"},
      {"float.wav", f32, {"-c:a", "pcm_f32le"}, "WAV"},
      {"double.wav", f64, {"-c:a", "pcm_f64le"}, "WAV"},
      {"rf64.wav", s24, {"-c:a", "pcm_s24le", "-rf64", "always"}, "WAV"},
      {"24.w64", s24, {"-c:a", "pcm_s24le"}, "Wave64"},
      {"24.AIFF", s24, {"-c:a", "pcm_s24be", "-f", "aiff"}, "AIFF"},
      {"float.aifc", f32, {"-c:a", "pcm_f32be", "-f", "aiff"}, "AIFF"},
      {"24.caf", s24, {"-c:a", "pcm_s24le"}, "CAF"},
      {"alac.caf", s16, {"-c:a", "alac"}, "ALAC"},
      {"alac16.m4a", s16, {"-c:a", "alac"}, "ALAC"},
      {"alac24.m4a", s24, {"-c:a", "alac"}, "ALAC"},
      {"24.tta", s24, {"-c:a", "tta"}, "TTA"},
      {"flac.mka", s24, {"-c:a", "flac"}, "FLAC"},
      {"flac.oga", s24, {"-c:a", "flac", "-f", "ogg"}, "FLAC Decoder"},
      {"8.ape", s8, {"-c:a", "pcm_u8", "-f", "wav", "-bitexact"}, "APE"},
      {"24.ape", s24, {"-c:a", "pcm_s24le", "-f", "wav", "-bitexact"}, "APE"},
      {"16.ape", s16, {"-c:a", "pcm_s16le", "-f", "wav", "-bitexact"}, "APE"},
  };
  const TemporaryFolder folder;
  for (const Case& each : cases) {
    SCOPED_TRACE(each.file);
    const fs::path file = encode(each.source.raw, folder / each.file, each.options);
    if (file.extension() == ".ape") {
      const fs::path wav = folder / "ape.wav";
      fs::rename(file, wav);
      // Its encoder wants the plain form of the header.
      std::fstream(wav).seekp(20).write("\1", 2);
      runProgram({"jmac", "c2", wav, file}, std::chrono::seconds(60));
    }
    // What follows the chunk of sound is none.
    if (std::string_view("WAV Wave64 AIFF CAF").find(each.name) != std::string_view::npos) {
      std::ofstream(file, std::ios::app) << std::string(64, '~');
    }
    const auto decoder = opened(file);
    EXPECT_EQ(decoder->info().name, each.name);
    EXPECT_TRUE(decoder->info().isLossless);
    EXPECT_EQ(decoder->bitsPerSample(), each.source.bits);
    EXPECT_EQ(decoder->isFloatSource(), each.source.isFloat);
    // FFmpeg does not go back to write the length into FLAC, and Matroska counts milliseconds.
    EXPECT_NEAR(decoder->totalFrames(), file.extension() == ".oga" ? 0 : 20'012,
                file.extension() == ".mka" ? 44 : 0);
    EXPECT_TRUE(readAll(*decoder, each.source.isFloat) == each.source.words);
    // The same bytes from memory, from the middle on, as floats.
    auto memory = DecoderFactory::open(std::make_unique<MemoryFileHandle>(bytesOf(file)),
                                       file.extension().string().substr(1));
    ASSERT_TRUE(memory) << memory.error().text;
    ASSERT_TRUE(memory.value()->seek(10'005));
    const float first = std::bit_cast<float>(readSome(*memory.value(), 1, true)[0]);
    const auto word = each.source.words[2 * 10'005];
    EXPECT_EQ(first, each.source.isFloat      ? std::bit_cast<float>(word)
                     : each.source.bits <= 16 ? static_cast<float>(word) * 0x1p-15f
                                              : static_cast<float>(word) * 0x1p-31f);
  }
}

struct Lossy {
  const char* file;
  Strings options;
  bool isGapless = true;
  int slack = 0;  ///< frames by which a container rounds the length
};
const Lossy kLossy[] = {
    {"cbr.mp3", {"-c:a", "libmp3lame", "-b:a", "192k"}},
    {"vbr.mp3", {"-c:a", "libmp3lame", "-q:a", "5"}},
    {"notag.mp3", {"-c:a", "libmp3lame", "-q:a", "2", "-write_xing", "0"}, false},
    {"aac.m4a", {"-c:a", "aac", "-aac_pns", "0", "-b:a", "192k"}},
    {"vorbis.ogg", {"-c:a", "libvorbis", "-q:a", "6"}},
    {"adts.aac", {"-c:a", "aac", "-aac_pns", "0"}, false},
    {"layer2.mp2", {"-c:a", "mp2"}, false},
    {"dolby.ac3", {"-c:a", "ac3"}, false},
    {"aac.mka", {"-c:a", "aac", "-aac_pns", "0"}, false, 2205},
    {"opus.webm", {"-c:a", "libopus", "-ar", "48000"}, false, 2205},
    {"vorbis.mka", {"-c:a", "libvorbis"}, false, 2205},
    {"windows.wma", {"-c:a", "wmav2"}, false, 4410},
};

TEST(MediaDecoder, SeeksMeetTheFullDecodeInEveryLossyFormat) {
  const TemporaryFolder folder;
  const RawSound tone = risingTone(0, kFrames);
  std::mt19937 random(6);
  for (const Lossy& each : kLossy) {
    SCOPED_TRACE(each.file);
    const fs::path file = encode(tone, folder / each.file, each.options);
    const auto decoder = opened(file);
    EXPECT_EQ(decoder->bitsPerSample(), 0U);
    EXPECT_FALSE(decoder->info().isLossless);
    const Words all = readAll(*decoder, true);
    const auto frames = static_cast<std::int64_t>(all.size() / 2);
    const auto memory = DecoderFactory::open(std::make_unique<MemoryFileHandle>(bytesOf(file)),
                                             file.extension().string().substr(1));
    EXPECT_TRUE(readAll(*memory.value(), true) == all);
    if (each.isGapless) {
      EXPECT_EQ(frames, kFrames);
    }
    EXPECT_NEAR(decoder->totalFrames(), frames, each.slack);
    std::vector<std::int64_t> targets = {0, 1, frames - 1, frames - 300, frames - 5000};
    for (int i = 0; i < 20; ++i) targets.push_back(random() % frames);
    for (const std::int64_t target : targets) {
      ASSERT_TRUE(decoder->seek(target)) << target;
      ASSERT_EQ(decoder->currentPosition(), target);
      const Words some = readSome(*decoder, 700, true);
      ASSERT_EQ(static_cast<std::int64_t>(some.size()),
                2 * std::min<std::int64_t>(700, frames - target));
      ASSERT_TRUE(std::equal(some.begin(), some.end(), all.begin() + 2 * target)) << target;
    }
    EXPECT_TRUE(decoder->seek(5));
    EXPECT_FALSE(decoder->seek(frames + 100'000));
    EXPECT_EQ(decoder->currentPosition(), 5);
    EXPECT_EQ(readSome(*decoder, 1, true)[0], all[10]);
  }
}

TEST(MediaDecoder, FilesCutFromOneToneJoinWithoutASeam) {
  const TemporaryFolder folder;
  const std::size_t cut = 70'001;
  const RawSound whole = risingTone(0, kFrames);
  for (const Lossy& each : kLossy) {
    if (!each.isGapless) continue;
    SCOPED_TRACE(each.file);
    std::vector<float> joined;
    for (const auto& [from, frames] : {std::pair{std::size_t{0}, cut}, {cut, kFrames - cut}}) {
      const auto decoder =
          opened(encode(risingTone(from, frames), folder / each.file, each.options));
      for (const std::int32_t word : readAll(*decoder, true)) {
        joined.push_back(std::bit_cast<float>(word));
      }
    }
    ASSERT_EQ(joined.size(), 2 * kFrames);
    std::vector<float> original(joined.size());
    std::memcpy(original.data(), whole.bytes.data(), whole.bytes.size());
    const auto error = [&](std::size_t from, std::size_t to, std::int64_t lag) {
      double sum = 0;
      for (std::size_t i = 2 * from; i < 2 * to; ++i) {
        sum += std::pow(joined[i] - original[i + static_cast<std::size_t>(2 * lag)], 2);
      }
      return std::sqrt(sum / static_cast<double>(2 * (to - from)));
    };
    // Before and after the cut, and at the end, nothing fits better than the frame itself.
    for (const std::size_t from : {cut - 6000, cut + 4000, kFrames - 6000}) {
      const double there = error(from, from + 5000, 0);
      EXPECT_LT(there, 0.015);
      for (const int lag : {-3, -2, -1, 1, 2, 3}) {
        EXPECT_LT(there, 0.9 * error(from, from + 5000, lag)) << from << ' ' << lag;
      }
    }
    // The tone itself is 0.28; what an encoder makes of a sudden start is short.
    EXPECT_LT(error(cut - 500, cut + 500, 0), 0.07);
  }
}

TEST(MediaDecoder, HostileFilesEndSoonAndOrderly) {
  const TemporaryFolder folder;
  const RawSound tone = risingTone(0, kFrames);
  std::mt19937 random(7);
  for (const Lossy& each : {kLossy[0], kLossy[3], kLossy[4], Lossy{"pcm.wav", {}},
                            Lossy{"alac.caf", {"-c:a", "alac"}}}) {
    SCOPED_TRACE(each.file);
    const fs::path file = encode(tone, folder / each.file, each.options);
    const Bytes good = bytesOf(file);
    for (int turn = 0; turn < 12; ++turn) {
      Bytes bytes = good;
      if (turn % 2 == 0) bytes.resize(bytes.size() * (turn + 1) / 14);
      for (int flips = turn % 3 == 0 ? 0 : 20; flips > 0; --flips) {
        bytes[random() % bytes.size()] ^= std::byte(1U << random() % 8);
      }
      auto made = DecoderFactory::open(std::make_unique<MemoryFileHandle>(bytes),
                                       file.extension().string().substr(1));
      if (!made) continue;
      PlanarBuffers buffers(3, 5000, 4);
      FileDecoder& decoder = *made.value();
      std::uint64_t frames = 0;
      for (DecodeResult result{.frames = 1}; result.frames > 0 && frames < 20 * kFrames;) {
        result = decoder.read(buffers.list(), 5000, true);
        frames += result.frames;
      }
      EXPECT_LT(frames, 20 * kFrames);
      decoder.seek(1000);
      decoder.read(buffers.list(), 100, false);
    }
  }
  // What names other files or hosts opens none of them.
  for (const char* text : {"ffconcat version 1.0\nfile /etc/passwd\n",
                           "#EXTM3U\n#EXT-X-VERSION:3\n"
                           "#EXTINF:1,\nhttp://127.0.0.1:9/a.ts\n",
                           "RIFF", ""}) {
    std::ofstream(folder / "list.mp3") << text;
    const auto made = DecoderFactory::open(folder / "list.mp3");
    EXPECT_NE(made ? "" : made.error().text, "");
  }
}

TEST(MediaDecoder, WhatAFileSaysOfItsShapeIsHeldToWhatCanBePlayed) {
  const TemporaryFolder folder;
  const auto append = [](const fs::path& file, const fs::path& more) {
    std::ofstream(file, std::ios::binary | std::ios::app)
        << std::ifstream(more, std::ios::binary).rdbuf();
  };
  // One channel after two: the other one falls silent; a rate that changes is not followed.
  const fs::path file = encode(risingTone(0, 20'000), folder / "a.aac", {"-c:a", "aac"});
  const auto before = static_cast<std::size_t>(opened(file)->totalFrames());
  append(file, encode(risingTone(0, 20'000), folder / "b.aac", {"-c:a", "aac", "-ac", "1"}));
  append(file, encode(risingTone(0, 20'000), folder / "c.aac", {"-c:a", "aac", "-ar", "22050"}));
  const auto changing = opened(file);
  EXPECT_EQ(changing->channels(), 2U);
  EXPECT_EQ(changing->sampleRate(), 44'100);
  const Words all = readAll(*changing, true);
  EXPECT_EQ(static_cast<std::int64_t>(all.size() / 2), changing->totalFrames());
  ASSERT_GT(all.size(), 5 * before);
  EXPECT_NE(all[2 * before + 20'000], 0);
  EXPECT_EQ(all[2 * before + 20'001], 0);

  RawSound wide;
  wide.bytes = "RIFF\xff\xff\xff\x7fWAVEfmt \x10";
  for (const int word : {0, 1 + (200 << 16), 44'100, 44'100 * 400, 400 + (16 << 16)}) {
    wide.add(word, word == 0 ? 3 : 4);
  }
  wide.bytes += "data" + std::string(2, '\x10') + std::string(5000, '\0');
  std::ofstream(folder / "wide.wav", std::ios::binary) << wide.bytes;
  const auto made = DecoderFactory::open(folder / "wide.wav");
  EXPECT_NE((made ? "" : made.error().text).find("200 channels"), std::string::npos);

  // 2048 frames of priming where the edit says 1024.
  const auto plain = opened(encode(risingTone(0, 20'000), folder / "d.mp4", {"-c:a", "aac"}));
  const auto told = opened(encode(risingTone(0, 20'000), folder / "e.mp4",
                                  {"-c:a", "aac", "-movflags", "use_metadata_tags", "-metadata",
                                   "iTunSMPB= 00000000 00000800 000001CA 0000000000001388"}));
  EXPECT_EQ(told->totalFrames(), 5000);
  const Words words = readAll(*plain, true);
  EXPECT_TRUE(readAll(*told, true) == Words(words.begin() + 2048, words.begin() + 2048 + 10'000));

  // The same packets in CAF, which no encoder here writes.
  const Bytes adts = bytesOf(encode(risingTone(0, 20'000), folder / "f.aac", {"-c:a", "aac"}));
  const auto big = [](std::uint64_t value, int size) {
    std::string text;
    while (size-- > 0) text.push_back(static_cast<char>(value >> 8 * size));
    return text;
  };
  const auto chunk = [&](const char* name, const std::string& content) {
    return name + big(content.size(), 8) + content;
  };
  std::string sizes, data = big(0, 4);
  for (std::size_t at = 0, size = 0; at + 7 < adts.size(); at += size) {
    size = std::to_integer<std::size_t>(adts[at + 3] & std::byte{3}) << 11 |
           std::to_integer<std::size_t>(adts[at + 4]) << 3 |
           std::to_integer<std::size_t>(adts[at + 5]) >> 5;
    if (size < 7) break;
    sizes += big((size - 7) >> 7 | 0x80, 1) + big((size - 7) & 0x7f, 1);
    data.append(reinterpret_cast<const char*>(&adts[at + 7]), size - 7);
  }
  const std::string caf =
      "caff" + big(1 << 16, 4) +
      chunk("desc", big(std::bit_cast<std::uint64_t>(44'100.0), 8) + "aac " + big(0, 8) +
                        big(1024, 4) + big(2, 4) + big(0, 4)) +
      chunk("kuki", big(0x0380808022000000, 8) + big(0x04808080144015, 7) + std::string(11, '\0') +
                        big(0x05808080021210, 7) + big(0x068080800102, 6)) +
      chunk("pakt",
            big(sizes.size() / 2, 8) + big(20'000, 8) + big(1024, 4) + big(480, 4) + sizes) +
      chunk("data", data);
  Bytes bytes(caf.size());
  std::memcpy(bytes.data(), caf.data(), caf.size());
  const auto primed =
      std::move(DecoderFactory::open(std::make_unique<MemoryFileHandle>(bytes), "caf")).value();
  EXPECT_EQ(primed->totalFrames(), 20'000);
  EXPECT_TRUE(readAll(*primed, true) == words);
}

/// Says that it is huge; nothing may be read of it.
class HugeFile final : public ReadableFile {
 public:
  std::vector<std::byte> read(std::size_t) override { return {}; }
  std::size_t readInto(std::span<std::byte>) noexcept override { return 0; }
  void seek(std::uint64_t) override {}
  std::uint64_t offset() const noexcept override { return 0; }
  std::uint64_t size() const noexcept override { return APEDecoder::kMemoryLimit; }
};

TEST(MediaDecoder, TargetsMayHaveOtherChannelsAndAPEHasItsLimits) {
  const TemporaryFolder folder;
  const auto decoder = opened(encode(risingTone(0, 9000), folder / "a.wav", {}));
  PlanarBuffers more(3, 64, 2), fewer(1, 64, 2);
  std::memset(more.list().buffers[2].data, 0x55, 128);
  more.setFrames(50);
  EXPECT_EQ(decoder->read(more.list(), 1000, false).frames, 50U);
  EXPECT_EQ(more.list().channel<std::int16_t>(2)[49], 0);
  EXPECT_EQ(more.list().channel<std::int16_t>(2)[50], 0x5555);
  EXPECT_EQ(decoder->read(fewer.list(), 64, false).frames, 64U);
  EXPECT_TRUE(decoder->seek(0));
  decoder->read(fewer.list(), 64, false);
  EXPECT_EQ(fewer.list().channel<std::int16_t>(0)[49], more.list().channel<std::int16_t>(0)[49]);

  EXPECT_FALSE(APEDecoder::create(std::make_unique<HugeFile>()));
  runProgram({"jmac", "c1", folder / "a.wav", folder / "a.ape"}, std::chrono::seconds(60));
  auto ape = std::move(APEDecoder::create(FileHandle::open(folder / "a.ape").value())).value();
  EXPECT_EQ(readAll(*ape, false).size(), 2 * 9000U);
  EXPECT_TRUE(ape->isEOF());
  EXPECT_TRUE(ape->seek(8999));
  EXPECT_FALSE(ape->isEOF());
  ape->close();
  EXPECT_NE(ape->read(fewer.list(), 10, false).status, 0);
}

}  // namespace
}  // namespace velorin::test
