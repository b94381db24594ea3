// Headers that no encoder here writes.
#include <gtest/gtest.h>

#include "library/metadata/AacConfig.h"
#include "library/metadata/ApeHeader.h"
#include "library/metadata/BitDepth.h"
#include "library/metadata/MadeFiles.h"

namespace velorin::test {
namespace {

const auto le = littleEndianBytes;

HeaderBytes bytesOf(const std::string& text) {
  return std::as_bytes(std::span(text));
}

std::string oldApe(unsigned version, unsigned flags, unsigned frames, unsigned finalBlocks) {
  return "MAC " + le(version, 2) + le(2000, 2) + le(flags, 2) + le(2, 2) + le(44'100, 4) +
         le(0, 8) + le(frames, 4) + le(finalBlocks, 4);
}

TEST(HeaderTest, OldMonkeysAudio) {
  struct Case {
    std::string head;
    std::optional<double> samples;
    int bits;
  };
  for (const Case& each : std::vector<Case>{
           {oldApe(3890, 0, 11, 100), 10 * 9216 + 100, 16},
           {oldApe(3949, 1, 11, 100), 10 * 73728 + 100, 8},
           {oldApe(3950, 8, 0xFFFFFFFF, 100), 4294967294.0 * 294912 + 100, 24},
           {oldApe(3950, 9, 0, 100), 100, 8},
           {oldApe(3950, 0, 1, 100).substr(0, 28), 0, 16},
           {oldApe(3950, 0, 1, 100).substr(0, 27), {}, 0},
           {"MAC " + le(3990, 2) + std::string(2, '\0') + le(0xFFFFFFF0, 4) + std::string(99, 'x'),
            {},
            0}}) {
    const auto parsed = parseApeHeader(bytesOf(each.head));
    ASSERT_EQ(parsed.hasValue(), each.samples.has_value());
    if (!parsed) continue;
    EXPECT_DOUBLE_EQ(parsed.value().duration, *each.samples / 44'100);
    EXPECT_EQ(parsed.value().bitDepth, each.bits);
  }
}

std::string wave(unsigned coding, unsigned container, unsigned valid, unsigned subCoding) {
  return "RIFF" + le(0, 4) + "WAVE" + "JUNK" + le(3, 4) + "abc" + '\0' + "fmt " + le(40, 4) +
         le(coding, 2) + le(2, 2) + le(44'100, 4) + le(0, 6) + le(container, 2) + le(22, 2) +
         le(valid, 2) + le(0, 4) + le(subCoding, 2) + std::string(14, '\0');
}

TEST(HeaderTest, BitDepth) {
  for (const auto& [head, depth] : std::vector<std::pair<std::string, std::optional<int>>>{
           {wave(1, 16, 0, 0), 16},
           {wave(0xFFFE, 32, 24, 1), 24},
           {wave(0xFFFE, 32, 99, 3), 32},
           {wave(0xFFFE, 16, 16, 2), 0},
           {wave(85, 0, 0, 0), 0},
           {wave(1, 0, 0, 0), std::nullopt},
           {wave(1, 16, 0, 0).substr(0, 40), std::nullopt},
           {"FORM", std::nullopt},
           {"", std::nullopt}}) {
    EXPECT_EQ(detectBitDepth(bytesOf(head)), depth) << testing::PrintToString(head);
  }
}

TEST(AacConfig, TellsTheChannels) {
  struct Case {
    const char* name;
    std::string config;
    std::optional<int> channels;
  };
  for (const auto& [name, config, channels] : std::vector<Case>{
           {"low complexity, 44.1 kHz, mono", {'\x12', '\x08'}, 1},
           {"5.1", {'\x12', '\x30'}, 6},
           {"7.1", {'\x12', '\x38'}, 8},
           {"mono at 22.05 kHz may hide parametric stereo", {'\x13', '\x88'}, {}},
           {"parametric stereo", {'\xeb', '\x89', '\x88', '\x00'}, 2},
           {"a rate of its own, 48 kHz, mono", {'\x17', '\x80', '\x5d', '\xc0', '\x08'}, 1},
           {"a layout of its own", {'\x12', '\x00'}, {}},
           {"cut short", {'\x12'}, {}}}) {
    EXPECT_EQ(channelsOfAudioSpecificConfig(bytesOf(config)), channels) << name;
  }
}

}  // namespace
}  // namespace velorin::test
