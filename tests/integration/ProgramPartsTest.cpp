// The parts of the program that decide something by themselves.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "KeyReader.h"
#include "PlayList.h"
#include "SignalPathText.h"
#include "Terminal.h"
#include "TextTable.h"
#include "WavRecorder.h"
#include "support/FlacFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

std::string textAt(const std::vector<std::byte>& bytes, std::size_t at) {
  return {reinterpret_cast<const char*>(bytes.data()) + at, 4};
}

template <class Number>
Number numberAt(const std::vector<std::byte>& bytes, std::size_t at) {
  Number value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

TEST(WavHeader, TurnsIntoRF64WhereSizesDoNotFit) {
  const WavSpec spec{WavSpec::Sample::int32, 2, 96'000};
  const std::uint64_t header = wavHeader(spec, 0).size();
  const std::uint64_t lastRiff = (std::uint64_t{0xFFFFFFFF} + 8 - header) / spec.bytesPerFrame();
  const auto riff = wavHeader(spec, lastRiff);
  EXPECT_EQ(textAt(riff, 0), "RIFF");
  EXPECT_EQ(numberAt<std::uint32_t>(riff, 4), header - 8 + lastRiff * 8);
  EXPECT_EQ(textAt(riff, 12), "JUNK");
  EXPECT_EQ(numberAt<std::uint32_t>(riff, riff.size() - 4), lastRiff * 8);

  const std::uint64_t frames = lastRiff + 1;
  const auto large = wavHeader(spec, frames);
  ASSERT_EQ(large.size(), riff.size()) << "the samples would have to move";
  EXPECT_EQ(textAt(large, 0), "RF64");
  EXPECT_EQ(numberAt<std::uint32_t>(large, 4), 0xFFFFFFFFu);
  EXPECT_EQ(textAt(large, 12), "ds64");
  EXPECT_EQ(numberAt<std::uint32_t>(large, 16), 28u);
  EXPECT_EQ(numberAt<std::uint64_t>(large, 20), header - 8 + frames * 8);
  EXPECT_EQ(numberAt<std::uint64_t>(large, 28), frames * 8);
  EXPECT_EQ(numberAt<std::uint64_t>(large, 36), frames);
  EXPECT_EQ(numberAt<std::uint32_t>(large, large.size() - 4), 0xFFFFFFFFu);
}

// Silence counts only between programme of one stream; each change of format is a new file.
TEST(WavRecorder, RecordsTheProgrammeAlone) {
  const test::TemporaryFolder folder;
  WavRecorder recorder(folder / "o.wav", {}, [] { ADD_FAILURE(); });
  PlanarBuffers buffers(1, 8, sizeof(float));
  float* samples = buffers.list().channel<float>(0);
  const auto record = [&](float value, std::uint32_t frames, std::uint32_t programme) {
    for (std::uint32_t i = 0; i < frames; ++i) samples[i] = i < programme ? value : 0;
    recorder.record(buffers.list(), frames, programme);
  };
  recorder.begin(StreamFormat::planarFloat(44'100, 1));
  record(1, 8, 3);
  record(0, 8, 0);
  record(2, 8, 1);
  record(0, 8, 0);
  recorder.end();
  recorder.begin(StreamFormat::planarFloat(44'100, 1));
  record(3, 8, 2);
  recorder.end();
  recorder.begin(StreamFormat::planarFloat(48'000, 1));
  record(4, 8, 8);
  recorder.end();
  EXPECT_FALSE(fs::exists(folder / "o.wav")) << "the file appeared before it was complete";
  ASSERT_TRUE(recorder.finish());
  EXPECT_EQ(recorder.files(), (std::vector<fs::path>{folder / "o.wav", folder / "o.2.wav"}));

  std::ifstream file(folder / "o.wav", std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  std::vector<float> expected = {1, 1, 1};
  expected.insert(expected.end(), 5 + 8, 0);
  expected.insert(expected.end(), {2, 3, 3});
  ASSERT_GT(bytes.size(), expected.size() * sizeof(float));
  std::vector<float> found(expected.size());
  const std::size_t dataBytes = found.size() * sizeof(float);
  std::memcpy(found.data(), bytes.data() + bytes.size() - dataBytes, dataBytes);
  EXPECT_EQ(found, expected);
  EXPECT_EQ(bytes.substr(bytes.size() - dataBytes - 8, 4), "data");
}

TEST(PlayList, WalksFoldersInNaturalOrder) {
  const test::TemporaryFolder folder;
  const auto put = [&](const std::string& name) {
    fs::create_directories((folder / name).parent_path());
    std::ofstream(folder / name) << "x";
  };
  for (const char* name : {"b/10.flac", "b/9.flac", "b/09b.FLAC", "a.flac", "C.flac", "b/cover.jpg",
                           "b/._9.flac", ".hidden/x.flac", "d/e/\xff.flac"}) {
    put(name);
  }
  fs::create_directory_symlink("..", folder / "b" / "up");
  std::vector<std::string> found;
  const PlayList list = expandInputs({folder.path(), folder / "b" / "cover.jpg"});
  for (const PlayListEntry& entry : list.entries) {
    found.push_back(fs::path(entry.path).lexically_relative(folder.path()).native());
  }
  EXPECT_EQ(found, (std::vector<std::string>{"a.flac", "b/9.flac", "b/09b.FLAC", "b/10.flac",
                                             "C.flac", "d/e/\xff.flac", "b/cover.jpg"}));
  EXPECT_TRUE(list.problems.empty());
  EXPECT_EQ(expandInputs({folder / ".hidden" / "none"}).entries.size(), 1U);
  fs::create_directory(folder / "empty");
  EXPECT_EQ(expandInputs({folder / "empty"}).problems.size(), 1U);
}

// What a sheet stands for is played once, wherever it is come to.
TEST(PlayList, SheetsStandForTheirFilesAndListsForTheirLines) {
  const test::TemporaryFolder folder;
  fs::create_directory(folder / "CD1");
  for (const char* name : {"a.flac", "CD1/album.flac", "z.flac"}) {
    test::FlacFixture::make({.frames = 3 * 44'100}).write(folder / name);
  }
  const std::string tracks =
      "TRACK 01 AUDIO\nINDEX 01 00:00:00\nTRACK 02 AUDIO\nINDEX 01 00:01:00\n";
  std::ofstream(folder / "0.cue") << "FILE \"CD1/album.flac\" WAVE\n" << tracks;
  std::ofstream(folder / "CD1" / "same.cue") << "FILE \"album.flac\" WAVE\n" << tracks;
  std::ofstream(folder / "lost.cue") << "FILE \"gone.flac\" WAVE\n" << tracks;
  std::ofstream(folder / "list.m3u8") << "#EXTM3U\nz.flac\nCD1\\same.cue\nnone.flac\n";
  using Strings = std::vector<std::string>;
  const auto names = [](const PlayList& list) {
    Strings found;
    for (const PlayListEntry& entry : list.entries) {
      const auto start = entry.info ? entry.info->track.cueStartTime : std::nullopt;
      found.push_back(fs::path(entry.path).filename().native() +
                      (start ? "@" + std::to_string(static_cast<int>(*start)) : ""));
    }
    return found;
  };
  EXPECT_EQ(names(expandInputs({folder.path()})),
            (Strings{"album.flac@0", "album.flac@1", "a.flac", "z.flac"}));
  EXPECT_EQ(names(expandInputs({folder / "list.m3u8"})),
            (Strings{"z.flac", "album.flac@0", "album.flac@1", "none.flac"}));
  const PlayList bad = expandInputs({folder / "lost.cue", folder / "none.m3u"});
  EXPECT_TRUE(bad.entries.empty());
  EXPECT_EQ(bad.problems.size(), 2U);
}

TEST(PlayList, NaturalOrderIsAnOrder) {
  const std::vector<std::string> names = {
      "",    "0", "00", "1",   "01",  "2",   "10",
      "a",   "A", "a1", "a01", "a1b", "a10", "99999999999999999999999",
      "\xff"};
  for (const auto& a : names) {
    EXPECT_FALSE(naturalLess(a, a));
    for (const auto& b : names) {
      EXPECT_EQ(naturalLess(a, b) || naturalLess(b, a), a != b) << a << " and " << b;
      for (const auto& c : names) {
        if (naturalLess(a, b) && naturalLess(b, c)) {
          EXPECT_TRUE(naturalLess(a, c)) << a << " < " << b << " < " << c;
        }
      }
    }
  }
}

TEST(KeyParser, FindsKeysHoweverTheBytesArrive) {
  using enum Key;
  const std::string all = " \x1b[C\x1bOD\x1b[1;5Cn\x1bxp\x1b\x1b[A\x1b[B\x80q?";
  const std::vector<Key> expected = {pause,  forward, back, next, previous,
                                     louder, quieter, quit, help};
  EXPECT_EQ(KeyParser().feed(all), expected);
  KeyParser parser;
  std::vector<Key> keys;
  for (const char byte : all) {
    for (const Key key : parser.feed({&byte, 1})) keys.push_back(key);
  }
  EXPECT_EQ(keys, expected);
}

TEST(TextTable, LinesUpInEveryWidth) {
  terminal::useUTF8();
  using Cut = TextColumn::Cut;
  TextTable table({{.cut = Cut::atEnd, .least = 6},
                   {.alignRight = true},
                   {},
                   {.cut = Cut::atStart, .least = 8}});
  table.addRow({"日本語の長い題名です", "1", "", "/music/夜/e\u0301tude.flac"});
  table.addRow({"short", "1,234", "", ""});
  const std::vector<std::string> whole = {"日本語の長い題名です      1  /music/夜/e\u0301tude.flac",
                                          "short                 1,234"};
  EXPECT_EQ(table.lines(1000), whole);
  for (int columns = 23; columns < 60; ++columns) {
    const auto lines = table.lines(columns);
    for (const std::string& line : lines) {
      EXPECT_LE(terminal::columnsTaken(line), columns) << line;
    }
    // The numbers end in the same column.
    const auto numberEnd = [](const std::string& line, const char* number) {
      return terminal::columnsTaken(line.substr(0, line.find(number))) +
             static_cast<int>(std::strlen(number));
    };
    EXPECT_EQ(numberEnd(lines[0], " 1  "), numberEnd(lines[1], " 1,234") + 2) << lines[0];
    EXPECT_TRUE(lines[0].ends_with("de.flac")) << lines[0];
  }
  EXPECT_EQ(terminal::fittedEnd("abce\u0301f", 2), "…f") << "a mark without its letter";
}

TEST(StatusLine, FitsEveryWidth) {
  terminal::useUTF8();
  const std::vector<std::string> paths = {"FLAC 44.1 kHz 16-bit → float → DAC · bit-perfect",
                                          "44.1 kHz/16 · bit-perfect", "bit-perfect"};
  const std::string title = "日本語の題名 with a tail of some length";
  for (int columns = 0; columns < 120; ++columns) {
    const std::string line = composeStatus("▶ 0:12 / 4:56", title, paths, columns);
    EXPECT_LE(terminal::columnsTaken(line), columns) << line;
  }
  EXPECT_EQ(composeStatus("▶ 0:12 / 4:56", title, paths, 120),
            "▶ 0:12 / 4:56  " + title + "  " + paths[0]);
  EXPECT_EQ(timeText(3723.9), "1:02:03");
  EXPECT_EQ(timeText(-1), "0:00");
  EXPECT_EQ(rateText(11'025), "11.025 kHz");
  EXPECT_EQ(rateText(96'000), "96 kHz");
  EXPECT_EQ(rateText(705'600), "705.6 kHz");
}

}  // namespace
}  // namespace velorin
