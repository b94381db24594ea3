// Nothing the listener did is lost while its audio exists, whatever happens to the files and to the
// scans: real files, the built program, and a model of which sound lies where.

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <random>
#include <set>

#include "foundation/Paths.h"
#include "foundation/Preferences.h"
#include "integration/Program.h"
#include "library/LibraryFile.h"
#include "library/metadata/TagFileWriter.h"
#include "library/queries/Pins.h"
#include "library/queries/PlaybackHistory.h"
#include "library/queries/Playlists.h"
#include "support/FlacFixture.h"
#include "support/ReportingChild.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;
using Id = std::int64_t;
using Seconds = std::chrono::seconds;

constexpr int kSounds = 16;
constexpr int kPlaylists = 2;
constexpr const char* kFavorites = "favoriteTrackIds";

class World {
 public:
  explicit World(unsigned seed) : _random(seed) {
    ::setenv("VELORIN_HOME", (_folder / "home").c_str(), 1);
    fs::create_directories(paths::configDirectory());
    for (const char* root : {"a", "b"}) {
      for (const char* sub : {"0", "1"}) fs::create_directories(_folder / root / sub);
    }
    fs::create_directories(_folder / "pool");
    for (int sound = 0; sound < kSounds; ++sound) makeSound(sound);
    for (int sound = 0; sound < kSounds; ++sound) bringIn(sound);
    const auto added =
        test::run({"library", "add", (_folder / "a").string(), (_folder / "b").string()});
    EXPECT_EQ(added.exitCode, 0) << added.err;
    DatabaseHandle library(openLibraryFile(defaultLibraryFile()));
    for (int i = 0; i < kPlaylists; ++i) Playlists(library).createPlaylist(std::to_string(i));
  }

  /// One change of the files that are within reach.
  void change() {
    switch (upTo(9)) {
      case 0:
      case 1:
        return retag(anyFile());
      case 2:
      case 3: {
        const std::string from = anyFile();
        return moveFile(from, freePath(from));
      }
      case 4: {
        const std::string one = anyFile();
        const std::string other = anyFile();
        if (one == other || fs::path(one).extension() != fs::path(other).extension()) return;
        fs::rename(one, _folder / "pool/x");
        fs::rename(other, one);
        fs::rename(_folder / "pool/x", other);
        return std::swap(files[one], files[other]);
      }
      case 5: {
        const std::string from = anyFile();
        const std::string to = freePath(from);
        fs::copy_file(from, to);
        files[to] = files[from];
        return;
      }
      case 6: {
        const std::string path = anyFile();
        if (files.size() <= kSounds / 2) return;
        fs::remove(path);
        files.erase(path);
        return;
      }
      case 7: {
        // Another song takes the place of one.
        const std::string path = anyFile();
        const int sound = upTo(kSounds);
        if (poolFile(sound).extension() != fs::path(path).extension()) return;
        fs::copy_file(poolFile(sound), path, fs::copy_options::overwrite_existing);
        files[path] = sound;
        return;
      }
      default:
        bringIn(upTo(kSounds));
    }
  }

  /// Takes the second folder away, or puts it back.
  void toggleVolume() {
    const fs::path here = _folder / "b";
    const fs::path away = _folder / "b away";
    _isAway = !_isAway;
    fs::rename(_isAway ? here : away, _isAway ? away : here);
  }

  void scan(bool full = false) {
    std::vector<std::string> arguments{"scan", "--verbose"};
    if (full && !_isAway) arguments.push_back("--full");
    const auto outcome = test::run(arguments);
    _lastScan = outcome.out + outcome.err;
    ASSERT_TRUE(outcome.exitCode) << outcome.err;
    EXPECT_TRUE(_isAway || *outcome.exitCode == 0) << outcome.err << outcome.out;
  }

  /// Starts a scan and kills it after up to so long.
  void killScan(int mostMilliseconds) {
    test::ReportingChild child({VELORIN_PROGRAM, "scan"});
    kills += child.kill(std::chrono::microseconds(upTo(1000 * mostMilliseconds)));
    // Rows that it made are those of the files as they are now.
    DatabaseHandle library(openLibraryForReading(defaultLibraryFile()));
    library.read([&](sqlite::Reader& reader) {
      reader.each("SELECT id, filePath FROM tracks", [&](const sqlite::Row& row) {
        const auto file = files.find(row.get<std::string>(1));
        if (file != files.end()) _soundOf.try_emplace(row.get<Id>(0), file->second);
      });
      return 0;
    });
    releaseGone();
  }

  /// Does something to a few tracks.
  void listen() {
    DatabaseHandle library(openLibraryFile(defaultLibraryFile()));
    Preferences preferences(paths::preferencesFile());
    PlaybackHistory history(library);
    for (int i = 0; i < 4; ++i) {
      const std::string path = anyFile();
      const int sound = files.at(path);
      const auto id = *library.read([&](sqlite::Reader& reader) {
        return reader.first<Id>("SELECT id FROM tracks WHERE filePath = ?", path);
      });
      switch (upTo(5)) {
        case 0:
          history.setRating(id, 3);
          _marks.insert({"rated", sound});
          break;
        case 1: {
          const int playlist = 1 + upTo(kPlaylists);
          Playlists(library).addTracks(playlist, {id});
          _marks.insert({fmt::format("in playlist {}", playlist), sound});
          break;
        }
        case 2:
          Pins(library).pin(PinnedItemType::song, std::to_string(id));
          _marks.insert({"pinned", sound});
          break;
        case 3: {
          auto list = preferences.getList(kFavorites).value_or(PreferenceList{});
          list.push_back({id});
          preferences.setList(kFavorites, list);
          _marks.insert({"loved", sound});
          break;
        }
        default:
          history.recordPlay(id, Moment(Seconds(++_played)), 1, false);
          _plays[_played] = sound;
      }
    }
  }

  /// After a scan that came to its end.
  void check() {
    DatabaseHandle library(openLibraryForReading(defaultLibraryFile()));
    library.read([&](sqlite::Reader& reader) {
      checkRows(reader);
      releaseGone();
      checkPlays(reader);
      checkMarks(reader);
      return 0;
    });
  }

  int upTo(int count) { return static_cast<int>(_random() % static_cast<unsigned>(count)); }

  std::map<std::string, int> files;  ///< path and sound, also of those that are away
  int kills = 0;
  int checked = 0;  ///< plays and marks that were found where they belong
  int parked = 0;   ///< of them, those without a track

 private:
  using Moment = std::chrono::system_clock::time_point;

  fs::path poolFile(int sound) const {
    return _folder / fmt::format("pool/{}.{}", sound, sound % 4 == 3 ? "mp3" : "flac");
  }

  /// Several sounds have one length.
  void makeSound(int sound) {
    const auto seed = static_cast<std::uint32_t>(sound + 1);
    const std::uint32_t frames = 8000U + 4000U * (seed % 3);
    const auto fixture = test::FlacFixture::make({.channels = 1, .frames = frames, .seed = seed});
    const fs::path file = poolFile(sound);
    const fs::path flac = file.extension() == ".flac" ? file : fs::path(file) += ".flac";
    fixture.write(flac);
    if (flac == file) return;
    const auto encoded = test::runTool({"ffmpeg", "-v", "error", "-i", flac, file});
    ASSERT_EQ(encoded.exitCode, 0) << encoded.err;
  }

  std::string anyFile() {
    std::vector<std::string> within;
    for (const auto& [path, sound] : files) {
      if (isWithinReach(path)) within.push_back(path);
    }
    return within.at(static_cast<std::size_t>(upTo(static_cast<int>(within.size()))));
  }
  bool isWithinReach(const std::string& path) const {
    return !_isAway || !path.starts_with((_folder / "b/").string());
  }
  /// Few names: what one file leaves, another takes.
  std::string freePath(const fs::path& like) {
    for (;;) {
      const std::string path = _folder / (_isAway || upTo(2) == 0 ? "a" : "b") /
                               std::to_string(upTo(2)) /
                               (std::to_string(upTo(20)) + like.extension().string());
      if (!files.contains(path)) return path;
    }
  }
  void moveFile(const std::string& from, const std::string& to) {
    fs::rename(from, to);
    files[to] = files[from];
    files.erase(from);
  }
  void bringIn(int sound) {
    if (files.size() > 3 * kSounds) return;
    const std::string path = freePath(poolFile(sound));
    fs::copy_file(poolFile(sound), path);
    files[path] = sound;
  }
  void retag(const std::string& path) {
    TagChanges changes;
    changes.title = std::string(static_cast<std::size_t>(upTo(300)), 't');
    changes.albumTitle = std::to_string(upTo(3));
    const auto written = writeTags(path, changes);
    ASSERT_TRUE(written) << path;
  }

  /// The rows are those of the files, and which sound each of them is.
  void checkRows(sqlite::Reader& reader) {
    std::set<std::string> seen;
    _living.clear();
    reader.each("SELECT id, filePath FROM tracks", [&](const sqlite::Row& row) {
      const auto id = row.get<Id>(0);
      const auto path = row.get<std::string>(1);
      _living.insert(id);
      if (!isWithinReach(path)) return;
      EXPECT_TRUE(seen.insert(path).second && files.contains(path)) << path << "\n" << _lastScan;
      if (!files.contains(path)) return;
      _soundOf[id] = files[path];
    });
    for (const auto& [path, sound] : files) {
      EXPECT_EQ(seen.contains(path), isWithinReach(path)) << path << "\n" << _lastScan;
    }
    EXPECT_EQ(reader.first<int>(R"(
SELECT (SELECT COUNT(*) FROM tracks WHERE totalPlays !=
            (SELECT COUNT(*) FROM playbackHistory WHERE trackId = tracks.id))
     + (SELECT COUNT(*) FROM departedTracks gone WHERE totalPlays !=
            (SELECT COUNT(*) FROM departedHistory WHERE trackId = gone.trackId)))"),
              0);
    // What is known by its sound does not wait while that sound is there.
    std::set<int> present;
    for (const Id id : _living) present.insert(soundOf(id));
    reader.each("SELECT trackId, filePath FROM departedTracks WHERE soundHash IS NOT NULL",
                [&](const sqlite::Row& row) {
                  const auto id = row.get<Id>(0);
                  EXPECT_TRUE(_isAway || (id > 0 && !present.contains(soundOf(id))))
                      << row.get<std::string>(1);
                });
  }

  int soundOf(Id id) const {
    const auto known = _soundOf.find(id);
    EXPECT_TRUE(id < 0 || known != _soundOf.end()) << "row " << id << " was never seen";
    return known == _soundOf.end() ? -1 : known->second;
  }
  bool exists(int sound) const {
    return std::ranges::any_of(files, [&](const auto& file) { return file.second == sound; });
  }
  /// What was done to a sound that is nowhere any more may go with it.
  void releaseGone() {
    std::erase_if(_plays, [&](const auto& play) { return !exists(play.second); });
    std::erase_if(_marks, [&](const auto& mark) { return !exists(mark.second); });
  }

  void found(Id id) {
    ++checked;
    if (!_living.contains(id)) ++parked;
  }

  void checkPlays(sqlite::Reader& reader) {
    std::map<std::string, std::vector<Id>> owners;
    reader.each(
        "SELECT playedAt, trackId FROM playbackHistory "
        "UNION ALL SELECT playedAt, trackId FROM departedHistory",
        [&](const sqlite::Row& row) { owners[row.get<std::string>(0)].push_back(row.get<Id>(1)); });
    for (const auto& [second, sound] : _plays) {
      const auto at = *reader.first<std::string>("SELECT ?", Moment(Seconds(second)));
      ASSERT_EQ(owners[at].size(), 1U) << "play " << second;
      const Id owner = owners[at][0];
      // What was taken from a row whose sound has changed may still wait for the folder.
      EXPECT_TRUE((owner < 0 && _isAway) || soundOf(owner) == sound)
          << "play " << second << " of " << sound << " is with row " << owner;
      found(owner);
    }
  }

  void checkMarks(sqlite::Reader& reader) {
    std::set<std::pair<std::string, int>> there;
    const auto waiting = reader.column<Id>("SELECT trackId FROM departedTracks");
    const auto add = [&](const std::string& mark, Id id) {
      if (!_living.contains(id) && std::ranges::count(waiting, id) == 0) return;
      if (!_soundOf.contains(id)) return;
      if (there.insert({mark, _soundOf[id]}).second && _marks.contains({mark, _soundOf[id]})) {
        found(id);
      }
    };
    reader.each(R"(
SELECT 'rated', id FROM tracks WHERE rating IS NOT NULL
UNION ALL SELECT 'rated', trackId FROM departedTracks WHERE rating IS NOT NULL
UNION ALL SELECT 'in playlist ' || playlistId, trackId FROM playlist_tracks
UNION ALL SELECT 'in playlist ' || playlistId, trackId FROM departedPlaces
UNION ALL SELECT 'pinned', referenceId FROM pinnedItems WHERE type = 'song')",
                [&](const sqlite::Row& row) { add(row.get<std::string>(0), row.get<Id>(1)); });
    const Preferences preferences(paths::preferencesFile());
    for (const auto& each : preferences.getList(kFavorites).value_or(PreferenceList{})) {
      add("loved", std::get<Id>(each.value));
    }
    const bool mayWait =
        _isAway && reader.first<int>("SELECT 1 FROM departedTracks WHERE trackId < 0");
    for (const auto& mark : _marks) {
      EXPECT_TRUE(mayWait || there.contains(mark)) << mark.first << ": sound " << mark.second;
    }
  }

  std::mt19937 _random;
  test::TemporaryFolder _folder;
  bool _isAway = false;
  std::string _lastScan;  // what it said
  int _played = 0;
  std::map<int, int> _plays;                     // by its second: the sound
  std::set<std::pair<std::string, int>> _marks;  // what was done, and the sound
  std::set<Id> _living;
  std::map<Id, int> _soundOf;  // of every row that was ever seen
};

TEST(ListeningSurvival, AnyCourseOfEvents) {
  constexpr int kMostRounds = 400;
  const auto deadline = std::chrono::steady_clock::now() + Seconds(50);
  World world(2026);
  int round = 0;
  for (; round < kMostRounds && std::chrono::steady_clock::now() < deadline; ++round) {
    SCOPED_TRACE(fmt::format("round {}", round));
    world.check();
    world.listen();
    world.scan();
    if (world.upTo(6) == 0) {
      world.toggleVolume();
      world.scan();
      world.check();
    }
    for (int kills = world.upTo(3); kills >= 0; --kills) {
      for (int changes = world.upTo(5); changes >= 0; --changes) world.change();
      if (kills > 0) world.killScan(120);
    }
    world.scan(world.upTo(8) == 0);
    if (::testing::Test::HasFailure()) break;
  }
  world.check();
  fmt::print("{} rounds, {} scans killed, {} times something was found, {} of them parked\n", round,
             world.kills, world.checked, world.parked);
  EXPECT_GT(world.checked, 10 * round);
}

}  // namespace
}  // namespace velorin
