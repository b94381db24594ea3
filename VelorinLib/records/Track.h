// One playable piece of music as the library keeps it: a file, or one CUE track of a file.
//
// A plain value record. The fields carry the names of the columns of the table "tracks"; what a
// file does not tell is empty. Any thread may copy one; nobody shares one between threads.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velorin {

/// A place in a track that the listener has marked. In JSON the keys are the field names.
struct TrackBookmark {
  std::string id;       ///< UUID, upper-case text
  double position = 0;  ///< seconds from the start of the track
  std::optional<std::string> label;
  std::string color;

  bool operator==(const TrackBookmark&) const = default;
};

/// The JSON list that the column "bookmarks" holds.
std::string toJSON(const std::vector<TrackBookmark>& bookmarks);
/// Empty when the text is not such a list.
std::optional<std::vector<TrackBookmark>> bookmarksFromJSON(std::string_view json);

struct Track {
  std::optional<std::int64_t> id;  ///< empty until the row is inserted, and for external files
  std::string title;
  std::optional<int> trackNumber;
  std::optional<int> discNumber;
  double duration = 0;        ///< seconds, of this track rather than of its file
  std::string filePath;       ///< native bytes of the path; CUE tracks of a file share it
  std::int64_t albumId = 0;   ///< 0 until the album is known
  std::int64_t artistId = 0;  ///< 0 until the artist is known

  // What the file holds.
  std::optional<int> sampleRate;  ///< Hz; a DSD track has its one-bit rate
  std::optional<int> bitDepth;    ///< 1 for DSD
  std::optional<int> channels;
  std::optional<std::string> format;                                  ///< "FLAC", "DSD" …
  std::optional<int> bitRate;                                         ///< bits per second
  std::optional<std::int64_t> fileSize;                               ///< bytes
  std::optional<std::chrono::system_clock::time_point> lastModified;  ///< of the file

  // Tags.
  std::optional<std::string> composer;
  std::optional<std::string> conductor;
  std::optional<std::string> comment;
  std::optional<std::string> lyrics;
  std::optional<std::string> genre;
  std::optional<int> year;  ///< the track's own, the album may have another

  /// Range of a CUE track in its file, seconds; both empty for a whole file.
  std::optional<double> cueStartTime;
  std::optional<double> cueEndTime;

  // From tags: gains in dB, peaks linear with 1.0 as full scale.
  std::optional<double> replayGainTrackGain;
  std::optional<double> replayGainAlbumGain;
  std::optional<double> replayGainTrackPeak;
  std::optional<double> replayGainAlbumPeak;

  std::optional<std::string> syncedLyrics;  ///< time-coded
  std::optional<std::vector<TrackBookmark>> bookmarks;
  std::optional<int> rating;
  int totalPlays = 0;
  int totalSkips = 0;

  // Measured by the loudness scan.
  std::optional<double> scannedLoudness;  ///< LUFS
  std::optional<double> scannedTruePeak;
  std::optional<int> loudnessScanVersion;
  std::optional<int> dynamicRange;  ///< DR value, whole dB

  bool operator==(const Track&) const = default;
};

}  // namespace velorin
