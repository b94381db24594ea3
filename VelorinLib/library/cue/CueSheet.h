// What a CUE sheet says: which part of which audio file is which track.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace velorin {

/// What a line outside the remarks is about. A kind of line without a name here is `others` with
/// its first word in lower case, such as "catalog" or "flags".
struct CSMetaKey {
  enum class Kind { performer, title, isrc, songWriter, others };

  static CSMetaKey others(std::string text) { return {Kind::others, std::move(text)}; }

  Kind kind = Kind::others;
  std::string text = {};  ///< of `others`; lower case

  auto operator<=>(const CSMetaKey&) const = default;
};

/// What a remark is about; `others` as above.
struct CSRemKey {
  enum class Kind { title, genre, date, discId, comment, composer, others };

  static CSRemKey others(std::string text) { return {Kind::others, std::move(text)}; }

  Kind kind = Kind::others;
  std::string text = {};

  auto operator<=>(const CSRemKey&) const = default;
};

/// A key that comes twice keeps its last value.
using CSMeta = std::map<CSMetaKey, std::string>;
using CSRemarks = std::map<CSRemKey, std::string>;

/// The value of a key; nothing where the sheet has none.
template <class Map, class Kind>
std::optional<std::string> valueOf(const Map& map, Kind kind) {
  const auto found = map.find({kind});
  if (found == map.end()) return std::nullopt;
  return found->second;
}

/// A place in a file. A frame is a sector of a compact disc.
struct CSIndexTime {
  static constexpr double kFramesPerSecond = 75;

  std::int64_t frames = 0;  ///< 0 or more

  double seconds() const noexcept { return static_cast<double>(frames) / kFramesPerSecond; }
  auto operator<=>(const CSIndexTime&) const = default;
};

/// A mark in a track: 0 is where its pre-gap begins, 1 where it itself begins.
class CSIndex {
 public:
  CSIndex(std::uint8_t number, CSIndexTime time) : _indexNum(number), _indexTime(time) {}

  std::uint8_t number() const noexcept { return _indexNum; }
  CSIndexTime time() const noexcept { return _indexTime; }
  bool operator==(const CSIndex&) const = default;

 private:
  std::uint8_t _indexNum;
  CSIndexTime _indexTime;
};

struct CSTrack {
  CSMeta meta;
  int trackNum = 0;
  std::string trackType;  ///< "AUDIO"; empty where the sheet does not tell
  std::vector<CSIndex> index;
  CSRemarks rem;

  /// Where it begins: index 1, else its first index, else 0.
  CSIndexTime start() const noexcept;

  bool operator==(const CSTrack&) const = default;
};

struct CSFile {
  std::vector<CSTrack> tracks;
  std::string fileName;  ///< as the sheet has it, perhaps with folders
  std::string fileType;  ///< "WAVE", "MP3" …

  bool operator==(const CSFile&) const = default;
};

/// All texts are UTF-8. A plain value, any thread.
struct CueSheet {
  CSMeta meta;
  CSRemarks rem;
  std::vector<CSFile> file;
  std::optional<double> ownAudioLength;  ///< seconds; of the first file, once it was looked at

  bool operator==(const CueSheet&) const = default;
};

}  // namespace velorin
