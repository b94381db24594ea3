// What is known of the sound of tracks: the table "trackSounds".
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "library/DatabaseHandle.h"

namespace velorin {

/// One thread at a time; both outlive it. Failures throw VelorinDatabaseError.
class TrackSounds {
 public:
  /// The hash of a file's sound: "" when it has none, such as one that is silent or that nobody can
  /// decode; nothing when the file cannot be reached now.
  using HashSound = std::function<std::optional<std::string>(const std::string& path)>;

  TrackSounds(const DatabaseHandle& database, const HashSound& hashSound)
      : _database(database), _hashSound(hashSound) {}

  enum class State {
    unknown,   ///< never listened to
    outdated,  ///< the file was written since
    current,
  };

  struct Subject {
    std::int64_t trackId = 0;
    std::string filePath;
    double duration = 0;  ///< seconds
    std::optional<std::int64_t> fileSize;
    std::optional<std::string> lastModified;  ///< in the library's text form
    std::optional<std::string> soundHash;     ///< empty: unknown, or it has none
    State state = State::unknown;
  };

  /// Columns of "tracks AS t" and "trackSounds AS s" in the order in which read() takes them.
  static constexpr const char* kColumns =
      "t.id, t.filePath, t.duration, t.fileSize, t.lastModified, s.soundHash, "
      "CASE WHEN s.trackId IS NULL THEN 0 "
      "WHEN s.fileSize IS t.fileSize AND s.lastModified IS t.lastModified THEN 2 ELSE 1 END";
  static void read(sqlite::RowReader& columns, Subject& subject);

  /// Tracks whose file was written since its sound was noted; at most so many.
  std::vector<Subject> outdated(std::size_t limit) const;

  /// Tracks of unknown sound.
  struct Unknown {
    std::vector<Subject> tracks;
    /// The id up to which all were looked at, from which the next call goes on; 0 after the last.
    std::int64_t upTo = 0;
  };
  /// Those, at most so many, that the listener did something to, played, rated, marked, pinned or
  /// put into a playlist. Looks at some ten thousand behind an id, so that it costs little however
  /// large the library is.
  Unknown unknown(std::int64_t after, std::size_t limit) const;

  /// Decodes the beginning of the file and notes its hash, unless it is known. Where a file that
  /// was written since holds another sound than before, what the listener did to the track is
  /// parked (see parkBesideRow), to go where that sound is now. Returns what HashSound returns.
  std::optional<std::string> learn(const Subject& subject);

  /// How many files it has decoded.
  std::size_t decoded() const noexcept { return _decoded; }

 private:
  static void addUnknown(sqlite::Reader& reader, Unknown& found, std::size_t limit);
  std::optional<std::string> decode(const std::string& path);

  const DatabaseHandle& _database;
  const HashSound& _hashSound;
  std::size_t _decoded = 0;
  // CUE tracks of one file come one after the other.
  std::string _lastPath;
  std::optional<std::string> _lastHash;
};

}  // namespace velorin
