// Files of every kind become items, and what cannot be read says why.
#include "library/metadata/MetadataExtractor.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <sstream>

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/metadata/AudioProperties.h"
#include "library/metadata/MadeFiles.h"
#include "library/metadata/TagText.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;
using Bits = std::optional<int>;

class ExtractorTest : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return (_folder / name).string(); }

  Result<ScannedItem, ExtractFailure> extract(const std::string& name) const {
    return MetadataExtractor().extract(path(name), {_folder.path().string()}, nullptr);
  }

  /// The item of a file that can be read; fails the test and gives an empty one otherwise.
  ScannedItem item(const std::string& name) const {
    auto extracted = extract(name);
    EXPECT_TRUE(extracted) << name << ": " << (extracted ? "" : extracted.error().reason);
    return extracted ? std::move(extracted).value() : ScannedItem{};
  }

  const TemporaryFolder _folder;
};

struct Kind {
  std::string name;
  std::string encoding;  ///< FFmpeg's arguments
  std::string format;
  int rate;
  int channels;
  Bits bitDepth;
  bool hasBitRate;
  double tolerance;  ///< of the duration: lossy codecs pad
};

TEST_F(ExtractorTest, ReadsTheSoundOfEveryKindOfFile) {
  const std::vector<Kind> kinds = {
      {"16.flac", "-ac 2", "FLAC", 44100, 2, 16, false, 0},
      {"24.FLAC", "-f flac -ar 96000 -ac 6 -sample_fmt s32", "FLAC", 96000, 6, 24, false, 0},
      {"lame.mp3", "-b:a 128k", "MP3", 44100, 1, {}, true, 0.06},
      {"aac.m4a", "-c:a aac -ac 2", "ALAC", 44100, 2, {}, true, 0.06},
      {"mono.m4a", "-c:a aac", "ALAC", 44100, 1, {}, true, 0.06},
      {"six.m4a", "-c:a aac -ac 6 -movflags +faststart", "ALAC", 44100, 6, {}, true, 0.06},
      {"alac.m4a", "-c:a alac -sample_fmt s32p", "ALAC", 44100, 1, 24, true, 0.001},
      {"16.aiff", "", "AIFF", 44100, 1, 16, true, 0.001},
      {"24.aif", "-c:a pcm_s24be", "AIFF", 44100, 1, 24, true, 0.001},
      {"16.wav", "", "WAV", 44100, 1, 16, true, 0.001},
      {"24.wav", "-c:a pcm_s24le -ac 4", "WAV", 44100, 4, 24, true, 0.001},
      {"rf64.wav", "-c:a pcm_f32le -rf64 always", "WAV", 44100, 1, 32, true, 0.001},
      {"lossy.wav", "-c:a adpcm_ima_wav", "WAV", 44100, 1, {}, true, 0.06},
      {"lossy.aif", "-f aiff -c:a pcm_mulaw", "AIFF", 44100, 1, {}, true, 0.06},
      {"vorbis.ogg", "-c:a libvorbis", "OGG", 44100, 1, {}, true, 0.01},
      {"opus.opus", "-c:a libopus", "Opus", 48000, 1, {}, true, 0.02},
      {"alac.caf", "-c:a alac", "CAF", 44100, 1, 16, true, 0.06},
      {"tta.tta", "-c:a tta", "TTA", 44100, 1, 16, true, 0.001},
      {"mono.wv", "-c:a wavpack", "WavPack", 44100, 1, 16, false, 0},
      {"odd.wv", "-c:a wavpack -ar 37000 -ac 6 -sample_fmt s32p", "WavPack", 37000, 6, 32, false,
       0}};
  for (const Kind& kind : kinds) {
    std::istringstream words(kind.encoding);
    Arguments arguments(std::istream_iterator<std::string>(words), {});
    arguments.push_back(path(kind.name));
    makeTone(arguments);
  }
  runProgram({"jmac", "c2", path("16.wav"), path("16.ape")}, std::chrono::seconds(30));
  std::vector<Kind> all = kinds;
  all.push_back({"16.ape", "", "APE", 44100, 1, 16, false, 0});
  writeBytes(path("64.dsf"), dsfBytes(2'822'400, 2, 2 * 2'822'400));
  all.push_back({"64.dsf", "", "DSD", 2'822'400, 2, 1, false, 0});
  writeBytes(path("128.dff"), dffBytes(5'644'800, 6, 2 * 5'644'800 / 8));
  all.push_back({"128.dff", "", "DSD", 5'644'800, 6, 1, false, 0});

  for (const Kind& kind : all) {
    SCOPED_TRACE(kind.name);
    const log::Capture capture;
    const ScannedItem found = item(kind.name);
    const Track& track = found.track;
    EXPECT_EQ(track.format, kind.format);
    EXPECT_NEAR(track.duration, 2, kind.tolerance);
    EXPECT_EQ(track.sampleRate, kind.rate);
    EXPECT_EQ(track.channels, kind.channels);
    EXPECT_EQ(track.bitDepth, kind.bitDepth);
    EXPECT_EQ(track.bitRate.has_value(), kind.hasBitRate);
    EXPECT_EQ(track.fileSize, static_cast<std::int64_t>(fs::file_size(path(kind.name))));
    EXPECT_FALSE(capture.contains("⚠️"));
  }
}

TEST_F(ExtractorTest, TakesTagsCleaned) {
  const std::string name = "Artist - 01 \xff.flac";
  makeTone({path("tone.wav")});
  Arguments encoding = {"flac", "-s", path("tone.wav"), "-o", path(name)};
  for (const char* tag :
       {"TITLE= A Title ", "ARTIST=UNKNOWN", "ALBUM=Album", "TRACKNUMBER=3/12", "DISCNUMBER=2",
        "DATE=1999-05-01", "GENRE=Jazz", "COMPOSER=none", "CONDUCTOR=C", "COMMENT=line\nline",
        "LYRICS=la", "REPLAYGAIN_TRACK_GAIN=-6.50 dB"}) {
    encoding.insert(encoding.end(), {"-T", tag});
  }
  runProgram(encoding, std::chrono::seconds(30));
  const timeval times[2] = {{1'000'000'000, 0}, {1'234'567'890, 250'000}};
  ASSERT_EQ(::utimes(path(name).c_str(), times), 0);
  std::vector<std::string> searched;
  const auto extracted = MetadataExtractor().extract(
      path(name), {}, [&searched](const std::string& folder) -> std::optional<std::string> {
        searched.push_back(folder);
        return folder + "/cover.jpg";
      });
  ASSERT_TRUE(extracted);
  const ScannedItem& found = extracted.value();
  EXPECT_EQ(searched, std::vector{_folder.path().string()});
  EXPECT_EQ(found.artworkPath, path("cover.jpg"));
  EXPECT_NE(found.artistName, "UNKNOWN");
  EXPECT_EQ(found.albumTitle, "Album");
  EXPECT_EQ(found.year, 1999);
  EXPECT_EQ(found.albumGenre, "Jazz");
  Track expected = found.track;
  expected.title = "A Title";
  expected.trackNumber = 3;
  expected.discNumber = 2;
  expected.filePath = path(name);
  expected.conductor = "C";
  expected.composer.reset();
  expected.comment = "line\nline";
  expected.lyrics = "la";
  expected.genre = "Jazz";
  expected.year = 1999;
  expected.replayGainTrackGain = -6.5;
  expected.lastModified = std::chrono::system_clock::time_point(
      std::chrono::seconds(1'234'567'890) + std::chrono::milliseconds(250));
  EXPECT_EQ(found.track, expected);
}

TEST_F(ExtractorTest, TakesTagsOfContainersThatOnlyTheDemuxersKnow) {
  for (const char* name : {"a.caf", "a.mka"}) {
    Arguments arguments;
    for (const char* tag : {"title= T ", "artist=A", "album=Al", "track=3/12", "disc=2",
                            "date=1999-05-01", "genre=G", "composer=C", "comment=none"}) {
      arguments.insert(arguments.end(), {"-metadata", tag});
    }
    arguments.push_back(path(name));
    makeTone(arguments);
    const ScannedItem found = item(name);
    EXPECT_EQ(found.track.title, "T") << name;
    EXPECT_EQ(found.artistName, "A") << name;
    EXPECT_EQ(found.albumTitle, "Al") << name;
    EXPECT_EQ(found.track.trackNumber, 3) << name;
    EXPECT_EQ(found.year, 1999) << name;
    EXPECT_EQ(found.track.composer, "C") << name;
    EXPECT_EQ(found.track.comment, std::nullopt) << name;
  }
  EXPECT_EQ(item("a.caf").track.discNumber, 2);
}

TEST_F(ExtractorTest, TakesNoNoiseForMusic) {
  std::uint32_t x = 1;
  const auto noise = [&x](std::size_t bytes, bool isQuietPcm) {
    std::string made;
    while (made.size() < bytes) {
      x = x * 1'664'525 + 1'013'904'223;
      // Small negative samples begin with the bits that mark a frame of MPEG audio.
      made += isQuietPcm ? littleEndianBytes((x >> 28) - 8, 2) : littleEndianBytes(x >> 8, 3);
    }
    return made;
  };
  for (int i = 0; i < 24; ++i) {
    for (const char* name : {"n.mp3", "n.m4a", "n.opus", "n.ogg", "n.aac", "n.ac3", "n.raw"}) {
      writeBytes(path(name), noise(1000U << (i % 10), i % 2 == 0));
      EXPECT_FALSE(extract(name)) << name << i;
    }
  }
  // Music that is nearly too short to be known.
  for (const char* name : {"short.mp3", "short.aac", "short.ac3", "short.mp2"}) {
    makeTone({"-t", "0.06", path(name)});
    EXPECT_GT(item(name).track.duration, 0.02) << name;
  }
}

TEST_F(ExtractorTest, NamesWhatHasNoTagsByItsFile) {
  makeTone({path("bare.mp3")});
  fs::rename(path("bare.mp3"), path("bare\n\xff.mp3"));
  const ScannedItem found = item("bare\n\xff.mp3");
  EXPECT_EQ(found.track.title, "bare\n\uFFFD");
  EXPECT_EQ(found.track.filePath, path("bare\n\xff.mp3"));
  EXPECT_EQ(found.artistName, kUnknownArtist);
  EXPECT_EQ(found.albumTitle, kUnknownAlbum);
  fs::rename(path("bare\n\xff.mp3"), path("Artist - Title (2001).mp3"));
  const ScannedItem named = item("Artist - Title (2001).mp3");
  EXPECT_EQ(named.track.title, "Title");
  EXPECT_EQ(named.artistName, "Artist");
  EXPECT_EQ(named.albumTitle, "Title");
  EXPECT_EQ(named.year, 2001);
}

TEST_F(ExtractorTest, FindsTheLengthOfAWavPackThatWasPiped) {
  makeTone({path("a.wav")});
  // A sum at the end makes the last block one without samples.
  runProgram({"wavpack", "-q", "-m", path("a.wav"), "-o", path("a.wv")});
  std::string bytes = readBytes(path("a.wv"));
  ASSERT_GT(bytes.size(), 16U);
  for (std::size_t at = bytes.find("wvpk"); at != std::string::npos;
       at = bytes.find("wvpk", at + 1)) {
    bytes.replace(at + 12, 4, "\xff\xff\xff\xff");
  }
  writeBytes(path("a.wv"), std::string(10, ' ') + bytes);
  const log::Capture capture;
  EXPECT_EQ(item("a.wv").track.duration, 2);
  EXPECT_TRUE(capture.contains("ℹ️ WavPack: wvpk found at offset 10 in a.wv"));
  writeBytes(path("a.wv"), bytes + std::string(40'000, ' '));
  EXPECT_EQ(item("a.wv").track.duration, 0) << "no block in the last 32768 bytes";
}

TEST_F(ExtractorTest, FallsBackWhenItsOwnReadersFail) {
  makeTone({path("a.mp3")});
  makeTone({path("a.flac")});
  // A tag of another kind in front, as some programs put it.
  writeBytes(path("tagged.flac"), "ID3\x03" + std::string(5, '\0') + "\x0a" +
                                      std::string(10, '\0') + readBytes(path("a.flac")));
  for (const auto& [name, line] : std::vector<std::pair<std::string, std::string>>{
           {"tagged.flac", "⚠️ FLAC native parser failed, falling back: "},
           {"b.flac", "⚠️ FLAC native parser failed, falling back: "},
           {"b.ape", "⚠️ APE native parser failed: "},
           {"b.wv", "⚠️ WavPack native parser failed: "}}) {
    if (name != "tagged.flac") fs::copy_file(path("a.mp3"), path(name));
    const log::Capture capture;
    EXPECT_NEAR(item(name).track.duration, 2, 0.06) << name;
    EXPECT_TRUE(capture.contains(line + name)) << name;
    EXPECT_TRUE(capture.contains(" bad magic: " + name)) << name;
  }
}

TEST_F(ExtractorTest, SaysWhyAFileCannotBeRead) {
  const std::string noise = [] {
    std::string bytes;
    for (unsigned i = 0, x = 1; i < 20'000; ++i)
      bytes += static_cast<char>((x = x * 69069 + 1) >> 24);
    return bytes;
  }();
  makeTone({path("whole.flac")});
  const std::map<std::string, std::pair<std::string, std::string>> files = {
      {"empty.mp3", {"", "empty"}},
      {"noise.mp3", {noise, ""}},
      {"noise.m4a", {noise, ""}},
      {"noise.flac", {noise, "not a FLAC file"}},
      {"cut.flac", {readBytes(path("whole.flac")).substr(0, 30), "cut off"}},
      {"cut.ape", {"MAC ", "cut off"}},
      {"noise.wv", {noise, "not a WavPack file"}},
      {"text.wav", {"Just a text.\n", ""}},
      {"rate.dsf", {dsfBytes(2'822'401, 2, 8000), "2822401 Hz"}},
      {"cut.dsf", {dsfBytes(2'822'400, 2, 8000).substr(0, 91), "cut off"}},
      {"packed.dff", {dffBytes(2'822'400, 2, 1000, "DST "), "DST"}},
      {"silent.dff", {dffBytes(2'822'400, 2, 0), "cut off"}}};
  for (const auto& [name, content] : files) writeBytes(path(name), content.first);
  const auto expectFailure = [this](const std::string& name, const std::string& reason) {
    const log::Capture capture;
    const auto extracted = extract(name);
    ASSERT_FALSE(extracted) << name;
    EXPECT_NE(extracted.error().reason.find(reason), std::string::npos)
        << name << ": " << extracted.error().reason;
    EXPECT_FALSE(extracted.error().reason.empty()) << name;
    EXPECT_EQ(extracted.error().reason.find('\n'), std::string::npos) << name;
    EXPECT_FALSE(readAudioProperties(path(name))) << name;
  };
  for (const auto& [name, content] : files) expectFailure(name, content.second);
  fs::create_directory(path("folder.flac"));
  expectFailure("folder.flac", "folder");
  ASSERT_EQ(::mkfifo(path("pipe.mp3").c_str(), 0600), 0);
  expectFailure("pipe.mp3", "no regular file");
  expectFailure("gone.mp3", "No such file");
}

}  // namespace
}  // namespace velorin::test
