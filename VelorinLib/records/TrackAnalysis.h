// What the analysis found out about a track: rows of "trackAnalysis" and "trackWaveform".
//
// Plain value records whose fields carry the names of the columns.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velorin {

/// What was not analysed, or not found, is empty. Confidences are 0…1.
struct TrackAnalysis {
  std::optional<std::int64_t> id;  ///< empty until the row is inserted
  std::int64_t trackId = 0;        ///< a track has at most one such row
  std::optional<double> bpm;
  std::optional<double> energy;
  std::optional<std::string> mood;
  std::optional<double> moodConfidence;
  std::optional<bool> isVocal;
  std::optional<double> vocalConfidence;
  std::optional<std::string> genre;
  std::optional<double> genreConfidence;
  std::optional<std::string> keySignature;
  std::optional<double> danceability;
  std::chrono::system_clock::time_point analyzedAt;
  int analyzerVersion = 1;
  std::optional<std::vector<std::byte>> embedding;  ///< raw bytes, as the analysis laid them out
  std::optional<std::string> fingerprint;

  bool operator==(const TrackAnalysis&) const = default;
};

struct TrackWaveform {
  std::int64_t trackId = 0;
  std::vector<std::byte> peaks;  ///< raw bytes

  bool operator==(const TrackWaveform&) const = default;
};

}  // namespace velorin
