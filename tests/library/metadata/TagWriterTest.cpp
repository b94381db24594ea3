// Tags written into files of every kind: what stays, what changes, and what a kill leaves.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>

#include "foundation/EventBus.h"
#include "foundation/MainThread.h"
#include "library/TestLibrary.h"
#include "library/metadata/MadeFiles.h"
#include "library/metadata/TagFileWriter.h"
#include "library/metadata/TagReader.h"
#include "library/metadata/TagWriter.h"
#include "platform/media/SoundHash.h"
#include "records/Events.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;

/// What FFmpeg decodes of a file, as a digest.
std::string decoded(const fs::path& path) {
  return runProgram({"ffmpeg", "-v", "error", "-i", path, "-map", "0:a", "-f", "md5", "-"},
                    std::chrono::seconds(30));
}

TagChanges everyField() {
  return {.title = "Überschrift “1”",
          .artistName = "AC/DC; X",
          .albumTitle = "B",
          .trackNumber = 7,
          .discNumber = 2,
          .year = 1999,
          .genre = "A Genre of Its Own",
          .composer = "Cömposer",
          .conductor = "Conductor",
          .comment = "one\ntwo",
          // Longer than any padding, so that what follows moves.
          .lyrics = fmt::format("{:l>300000}\nÄ", "")};
}

class TagWriting : public testing::Test {
 protected:
  fs::path made(const std::string& name, const std::vector<std::string>& codec = {}) const {
    std::vector<std::string> arguments = {"-metadata", "title=Old", "-metadata", "genre=Rock"};
    arguments.insert(arguments.end(), codec.begin(), codec.end());
    arguments.push_back(_folder / name);
    makeTone(arguments);
    return _folder / name;
  }
  std::size_t entries() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(_folder.path()), fs::directory_iterator()));
  }

  const TemporaryFolder _folder;
};

TEST_F(TagWriting, EveryKindOfFileTakesEveryFieldAndKeepsItsSound) {
  std::vector<fs::path> files = {made("a.flac"),
                                 made("a.mp3"),
                                 made("v23.mp3", {"-id3v2_version", "3", "-write_id3v1", "1"}),
                                 made("aac.m4a"),
                                 made("alac.m4a", {"-c:a", "alac", "-movflags", "+faststart"}),
                                 made("fragments.m4a", {"-movflags", "+frag_keyframe"}),
                                 made("a.ogg", {"-c:a", "libvorbis"}),
                                 made("a.opus"),
                                 made("a.oga", {"-c:a", "flac"}),
                                 made("a.wv"),
                                 made("a.aiff"),
                                 made("a.wav"),
                                 made("a.tta"),
                                 made("a.wma")};
  runProgram({"jmac", "c2", _folder / "a.wav", _folder / "a.ape"});
  files.push_back(_folder / "a.ape");
  fs::copy(files.front(), _folder / "really flac.mp3");
  files.push_back(_folder / "really flac.mp3");
  std::string dsf = dsfBytes(2822400, 2, 1 << 20);
  for (std::size_t i = 92; i < dsf.size(); ++i) dsf[i] = static_cast<char>(i * i >> 7);
  writeBytes(_folder / "a.dsf", dsf);
  files.push_back(_folder / "a.dsf");

  const TagChanges changes = everyField();
  for (const fs::path& file : files) {
    SCOPED_TRACE(file);
    const std::string sound = decoded(file);
    const auto hash = hashSound(file);
    ASSERT_TRUE(hash) << hash.error().reason;
    const auto written = writeTags(file, changes);
    ASSERT_TRUE(written) << written.error().reason;
    EXPECT_EQ(written.value().size, fs::file_size(file));
    EXPECT_EQ(decoded(file), sound);
    EXPECT_EQ(hashSound(file).value(), hash.value());
    const TagFields tags = readTags(file).value();
    EXPECT_EQ(std::tie(tags.title, tags.artist, tags.album, tags.genre, tags.composer,
                       tags.conductor, tags.comment, tags.lyrics),
              std::tie(changes.title, changes.artistName, changes.albumTitle, changes.genre,
                       changes.composer, changes.conductor, changes.comment, changes.lyrics));
    EXPECT_EQ(std::tie(tags.trackNumber, tags.discNumber, tags.year),
              std::tie(changes.trackNumber, changes.discNumber, changes.year));

    ASSERT_TRUE(writeTags(
        file,
        {.discNumber = 0, .genre = "", .lyrics = "", .clearTrackNumber = true, .clearYear = true}));
    EXPECT_EQ(decoded(file), sound);
    const TagFields left = readTags(file).value();
    EXPECT_EQ(left.title, changes.title);
    EXPECT_EQ(left.discNumber, 2);
    EXPECT_FALSE(left.trackNumber || left.year || left.genre || left.lyrics);
  }
  EXPECT_EQ(readBytes(_folder / "v23.mp3").substr(0, 4), "ID3\x03");
  EXPECT_EQ(entries(), files.size());
}

TEST_F(TagWriting, RecordingsThatDifferAreToldApart) {
  const auto hashOf = [this](const std::string& name, std::vector<std::string> codec = {}) {
    return hashSound(made(name, codec)).value();
  };
  const SoundHash sound = hashOf("a.wav");
  EXPECT_EQ(hashOf("a.flac"), sound);
  EXPECT_EQ(hashOf("late.flac", {"-af", "adelay=1500:all=1"}), sound);  // silence before it
  EXPECT_NE(hashOf("a.mp3"), sound);
  EXPECT_NE(hashOf("rate.flac", {"-ar", "48000"}), sound);
  EXPECT_NE(hashOf("faint.flac", {"-af", "volume=0.999"}), sound);
  EXPECT_FALSE(hashSound(made("silence.flac", {"-af", "volume=0"})));
}

TEST_F(TagWriting, WhatBelongsToTheFileStays) {
  const fs::path file = made("a.flac");
  const fs::path link = _folder / "link.flac";
  const fs::path other = _folder / "other name.flac";
  fs::create_symlink("a.flac", link);
  fs::create_hard_link(file, other);
  const std::string before = readBytes(file);
  ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
  const bool hasAttributes = ::setxattr(file.c_str(), "user.note", "x\0y", 3, 0) == 0;
  const std::array<timespec, 2> times = {timespec{1'000'000'000, 5}, timespec{1'100'000'000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times.data(), 0), 0);
  writeBytes(_folder / rewriteCopyName("a.flac"), "left by a run that was killed");

  ASSERT_TRUE(writeTags(link, {.title = "New"}));
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(readTags(file)->title, "New");
  EXPECT_EQ(readBytes(other), before);
  EXPECT_EQ(entries(), 3U);
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
  EXPECT_GT(status.st_mtim.tv_sec, 1'100'000'000);
  if (hasAttributes) {
    std::array<char, 8> value{};
    EXPECT_EQ(::getxattr(file.c_str(), "user.note", value.data(), value.size()), 3);
  }
}

TEST_F(TagWriting, WhatCannotBeWrittenStaysWithAReason) {
  const fs::path flac = made("a.flac");
  const fs::path longName = _folder / (std::string(250, 'n') + ".flac");
  fs::copy(flac, longName);
  EXPECT_TRUE(writeTags(longName, {.title = "New"}));
  EXPECT_LE(rewriteCopyName(std::string(255, 'n')).size(), 255U);
  EXPECT_NE(rewriteCopyName(std::string(254, 'n') + "a"),
            rewriteCopyName(std::string(254, 'n') + "b"));

  writeBytes(_folder / "a.dff", dffBytes(2822400, 2, 4096));
  writeBytes(_folder / "empty.mp3", "");
  ASSERT_EQ(::mkfifo((_folder / "pipe.mp3").c_str(), 0600), 0);
  const fs::path readOnly = made("b.flac");
  ASSERT_EQ(::chmod(readOnly.c_str(), 0444), 0);
  for (const fs::path& path :
       {made("a.caf"), _folder / "a.dff", _folder / "empty.mp3", _folder / "pipe.mp3",
        _folder / "gone.mp3", _folder.path(), readOnly}) {
    SCOPED_TRACE(path);
    const std::string before = fs::is_regular_file(path) ? readBytes(path) : "";
    const std::size_t count = entries();
    const auto written = writeTags(path, {.title = "New"});
    ASSERT_FALSE(written);
    EXPECT_FALSE(written.error().reason.empty());
    EXPECT_EQ(fs::is_regular_file(path) ? readBytes(path) : "", before);
    EXPECT_EQ(entries(), count);
  }

  // The disk is full in the middle of the tag library's own writing.
  const std::string before = readBytes(flac);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit tight{before.size() + 1000, limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
  const std::size_t count = entries();
  const auto written = writeTags(flac, {.lyrics = std::string(100'000, 'x')});
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  ASSERT_FALSE(written);
  EXPECT_NE(written.error().reason.find("File too large"), std::string::npos)
      << written.error().reason;
  EXPECT_EQ(readBytes(flac), before);
  EXPECT_EQ(entries(), count);
}

TEST_F(TagWriting, AKillLeavesTheOldFileOrTheNew) {
  const fs::path file = made("a.m4a", {"-c:a", "alac"});
  const std::string sound = decoded(file);
  const std::string lyrics(200'000, 'l');
  for (int round = 0; round < 12; ++round) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (int i = 0;; ++i) {
        const bool isLong = i % 2 != 0;
        std::ignore =
            writeTags(file, {.title = isLong ? "long" : "short", .lyrics = isLong ? lyrics : "s"});
      }
    }
    // Any moment of the two or three writes that fit in it; which one makes no difference to what
    // is expected.
    ::usleep(static_cast<useconds_t>(3000 + round * 2711));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_EQ(decoded(file), sound);
    const TagFields tags = readTags(file).value();
    if (tags.title == "Old") continue;
    EXPECT_EQ(tags.lyrics, tags.title == "long" ? lyrics : "s");
  }
  ASSERT_TRUE(writeTags(file, {.title = "end"}));
  EXPECT_EQ(entries(), 1U);
}

TEST_F(TagWriting, RowsFollowTheirFile) {
  TestLibrary library;
  const fs::path file = made("a.flac");
  const auto whole = library.add({.title = "Old", .artist = "A", .album = "X", .path = file});
  const auto part =
      library.add({.title = "Part", .artist = "A", .album = "X", .path = file, .cueStart = 60.0});
  const auto gone = library.add({.title = "Gone", .artist = "A", .path = _folder / "gone.flac"});
  library.run("UPDATE albums SET artworkPath = 'cover' WHERE title = 'X'");
  EventBus events;
  std::vector<std::string> heard;
  const auto updates = events.subscribe<LibraryDidUpdate>(
      Delivery::mainThread, [&](const LibraryDidUpdate&) { heard.push_back("update"); });
  const auto changes = events.subscribe<TrackTagsDidChange>(
      Delivery::mainThread, [&](const TrackTagsDidChange& event) {
        heard.push_back(fmt::format("tags of {}", event.trackIds.size()));
      });
  TagWriter writer(library.database(), &events);
  std::vector<TagWriteResult> results;
  MainThread::instance();
  writer.write({whole, part, gone, 4711},
               {.title = "New", .artistName = "B", .albumTitle = "Y", .year = 2001, .genre = ""},
               [&](std::vector<TagWriteResult> all) {
                 EXPECT_TRUE(MainThread::instance().isCurrent());
                 results = std::move(all);
               });
  ASSERT_TRUE(
      MainThread::instance().runUntil([&] { return !results.empty(); }, std::chrono::seconds(30)));
  EXPECT_EQ(heard, (std::vector<std::string>{"update", "tags of 2"}));
  ASSERT_EQ(results.size(), 4U);
  EXPECT_TRUE(results[0].success && results[1].success);
  EXPECT_EQ(results[2].error, "File not accessible");
  EXPECT_EQ(results[3].error, "Track not found in database");
  EXPECT_EQ(readTags(file)->title, "New");

  using Text = std::string;
  EXPECT_EQ(library.column<Text>("SELECT title FROM tracks ORDER BY id"),
            (std::vector<Text>{"New", "New", "Gone"}));
  EXPECT_EQ(library.value<Text>("SELECT artworkPath || year FROM albums WHERE title = 'Y'"),
            "cover2001");
  EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM albums WHERE title = 'X'"), 0);
  EXPECT_EQ(library.value<int>("SELECT COUNT(*) FROM tracks WHERE genre IS NULL AND year = 2001"),
            2);
  EXPECT_EQ(library.column<std::int64_t>(
                "SELECT rowid FROM tracks_fts WHERE tracks_fts MATCH 'title:new artistName:b'"),
            (std::vector<std::int64_t>{whole, part}));
  EXPECT_EQ(library.column<std::int64_t>("SELECT fileSize FROM tracks WHERE id <= 2"),
            std::vector<std::int64_t>(2, static_cast<std::int64_t>(fs::file_size(file))));

  // A track of a sheet leaves the file alone.
  const std::string before = readBytes(file);
  EXPECT_TRUE(writer.writeOne(part, {.title = "Second"}).success);
  EXPECT_EQ(readBytes(file), before);

  library.run("CREATE TRIGGER trouble BEFORE UPDATE ON tracks BEGIN SELECT RAISE(FAIL, 'no'); END");
  const TagWriteResult failed = writer.writeOne(whole, {.title = "Only the file"});
  EXPECT_FALSE(failed.success);
  EXPECT_EQ(failed.error.value_or("").rfind("Database update failed: ", 0), 0U);
  EXPECT_EQ(readTags(file)->title, "Only the file");
  EXPECT_EQ(library.value<Text>("SELECT title FROM tracks WHERE id = 1"), "New");
}

}  // namespace
}  // namespace velorin::test
