#include "support/SyntheticLibrary.h"

#include <fmt/format.h>

#include <array>

#include "support/SyntheticText.h"

namespace velorin::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::array kFolders = {"/music/lossless", "/srv/share/Music", "/home/ann/Music 100%"};
constexpr double kSecondsOf15Years = 15 * 365.25 * 86'400;
constexpr double kNewArtist = 0.35;  // of all albums; the others go to one who has some

struct Quality {
  double upTo;  ///< of all albums, so many have this one or one before it
  const char* format;
  const char* extension;
  std::optional<int> sampleRate;
  std::optional<int> bitDepth;
  int bitRate;  ///< bits per second
};
constexpr std::array<Quality, 15> kQualities{{
    {0.44, "FLAC", "flac", 44'100, 16, 900'000},
    {0.52, "FLAC", "flac", 96'000, 24, 2'900'000},
    {0.56, "FLAC", "flac", 48'000, 24, 1'600'000},
    {0.58, "FLAC", "flac", 192'000, 24, 5'500'000},
    {0.63, "ALAC", "m4a", 44'100, 16, 920'000},
    {0.64, "ALAC", "m4a", 48'000, 24, 1'650'000},
    {0.78, "MP3", "mp3", 44'100, {}, 320'000},
    {0.84, "MP3", "mp3", 44'100, {}, 192'000},
    {0.87, "MP3", "mp3", 48'000, {}, 128'000},
    {0.93, "AAC", "m4a", 44'100, {}, 256'000},
    {0.95, "Opus", "opus", 48'000, {}, 128'000},
    {0.97, "WAV", "wav", 44'100, 16, 1'411'200},
    {0.985, "DSD", "dsf", 2'822'400, 1, 5'644'800},
    {0.99, "DSD", "dsf", 5'644'800, 1, 11'289'600},
    {1.0, "OGG", "ogg", 44'100, {}, 160'000},
}};

/// What the tracks of an album have in common.
struct AlbumPlan {
  std::string artist;
  Script script;
  std::string title;
  std::string folder;
  std::optional<int> year;
  std::optional<std::string> genre;
  std::optional<std::string> composer;
  const Quality* quality;
  int discs;
  int tracksPerDisc;
  bool isCueImage;
  bool isCompilation;
  bool hasReplayGain;
  std::chrono::system_clock::time_point added;
};

class Catalogue {
 public:
  explicit Catalogue(const SyntheticSpec& spec) : _spec(spec), _random(spec.seed) {}

  /// The tracks of the next album.
  std::vector<ScannedItem> nextAlbum() {
    const AlbumPlan plan = planAlbum();
    std::vector<ScannedItem> items;
    for (int disc = 1; disc <= plan.discs; ++disc) {
      const std::size_t first = items.size();
      for (int number = 1; number <= plan.tracksPerDisc; ++number) {
        items.push_back(trackOf(plan, disc, number));
      }
      if (plan.isCueImage) joinIntoImage(plan, disc, items, first);
    }
    return items;
  }

 private:
  AlbumPlan planAlbum() {
    AlbumPlan plan;
    ++_albums;
    plan.isCompilation = _random.chance(0.03);
    const std::uint64_t artistSeed = plan.isCompilation ? 0 : nextArtist();
    Random artist(_spec.seed * 1'000'003 + artistSeed);  // what stays the same with an artist
    plan.script = someScript(artist);
    plan.artist = plan.isCompilation ? "Various Artists" : someArtistName(artist, plan.script);
    const std::string usualGenre = someGenre(artist);
    const int debut = 1960 + static_cast<int>(60 * std::sqrt(artist.unit()));

    plan.title = someTitle(_random, plan.script);
    plan.year = yearFrom(debut);
    plan.genre = genreFrom(usualGenre);
    if (*plan.genre == "Classical" || *plan.genre == "Opera" || _random.chance(0.2)) {
      plan.composer = variant(someArtistName(artist, plan.script));
    }
    if (_random.chance(0.06)) plan.genre.reset();
    const double quality = _random.unit();
    plan.quality = kQualities.begin();
    while (plan.quality->upTo < quality) ++plan.quality;
    plan.discs = _random.chance(0.05) ? 2 + static_cast<int>(_random.below(4)) : 1;
    plan.tracksPerDisc = _random.chance(0.2) ? 1 + static_cast<int>(_random.below(4))
                                             : 8 + static_cast<int>(_random.below(9));
    plan.isCueImage = std::string_view(plan.quality->format) == "FLAC" && _random.chance(0.06);
    plan.hasReplayGain = _random.chance(0.3);
    plan.added = _spec.now -
                 milliseconds(static_cast<std::int64_t>(_random.unit() * kSecondsOf15Years * 1000));
    plan.folder = fmt::format("{}/{}/{}{} #{}", kFolders[_random.zipf(kFolders.size() + 1)],
                              component(plan.artist),
                              plan.year.value_or(0) > 0 ? fmt::format("{} ", *plan.year) : "",
                              component(plan.title), _albums);
    plan.artist = variant(plan.artist);
    return plan;
  }

  /// A new one, or that of any album so far: who has many albums gets more.
  std::uint64_t nextArtist() {
    const bool isNew = _artistOfAlbum.empty() || _random.chance(kNewArtist);
    const std::uint32_t artist =
        isNew ? ++_artists : _artistOfAlbum[_random.below(_artistOfAlbum.size())];
    _artistOfAlbum.push_back(artist);
    return artist;
  }

  std::optional<int> yearFrom(int debut) {
    if (_random.chance(0.04)) return std::nullopt;
    if (_random.chance(0.02)) return 0;
    return std::min(2024, debut + static_cast<int>(_random.exponential(8)));
  }

  std::optional<std::string> genreFrom(const std::string& usual) {
    return variant(_random.chance(0.8) ? usual : someGenre(_random));
  }

  /// Now and then in another case.
  std::string variant(std::string name) {
    return _random.chance(0.03) ? otherCase(_random, std::move(name)) : name;
  }

  static std::string component(std::string name) {
    for (char& c : name) {
      if (c == '/') c = '_';
    }
    return name;
  }

  ScannedItem trackOf(const AlbumPlan& plan, int disc, int number) {
    ScannedItem item;
    item.artistName = plan.artist;
    item.albumTitle = plan.title;
    item.year = plan.year;
    item.albumGenre = plan.genre;

    Track& track = item.track;
    track.title = someTitle(_random, plan.script);
    if (!_random.chance(0.02)) track.trackNumber = number;
    if (plan.discs > 1 || _random.chance(0.3)) track.discNumber = disc;
    track.duration = 20 + std::round(1000 * (100 + _random.exponential(140))) / 1000;
    track.genre = plan.genre;
    track.composer = plan.composer;
    track.year = plan.year;

    const Quality& quality = *plan.quality;
    track.format = quality.format;
    track.sampleRate = quality.sampleRate;
    track.bitDepth = quality.bitDepth;
    track.channels = _random.chance(0.01) ? 6 : 2;
    track.bitRate = static_cast<int>(quality.bitRate * (0.8 + 0.4 * _random.unit()));
    track.fileSize = static_cast<std::int64_t>(track.duration * *track.bitRate / 8);
    track.lastModified = plan.added + seconds(disc * 100 + number);
    track.filePath =
        fmt::format("{}/{}{:02} {}.{}", plan.folder, plan.discs > 1 ? fmt::format("{}-", disc) : "",
                    number, component(track.title), quality.extension);
    // Written on a system of another encoding.
    if (_random.chance(0.0005)) track.filePath.insert(track.filePath.size() - 5, "\xE9");

    if (plan.hasReplayGain) {
      track.replayGainTrackGain = -12 + 12 * _random.unit();
      track.replayGainTrackPeak = 0.5 + 0.5 * _random.unit();
      track.replayGainAlbumGain = -8.0;
      track.replayGainAlbumPeak = 1.0;
    }
    if (_random.chance(0.01)) track.comment = someWords(_random, Script::latin, 12);
    if (_random.chance(0.02)) track.lyrics = someVerses(_random, 2000);
    hear(track);
    return item;
  }

  /// Two plays a track all in all; one track in five has half of them.
  void hear(Track& track) {
    const bool isLiked = _random.chance(0.2);
    track.totalPlays = static_cast<int>(_random.exponential(isLiked ? 6.5 : 1.2));
    track.totalSkips = _random.chance(0.12) ? 1 + static_cast<int>(_random.below(3)) : 0;
    if (_random.chance(isLiked ? 0.3 : 0.03)) track.rating = 1 + static_cast<int>(_random.below(5));
  }

  /// One file for the tracks of a disc, from `first` on.
  static void joinIntoImage(const AlbumPlan& plan, int disc, std::vector<ScannedItem>& items,
                            std::size_t first) {
    const std::string path = fmt::format("{}/CD{}.{}", plan.folder, disc, plan.quality->extension);
    double at = 0;
    std::int64_t size = 0;
    for (std::size_t i = first; i < items.size(); ++i) size += *items[i].track.fileSize;
    for (std::size_t i = first; i < items.size(); ++i) {
      Track& track = items[i].track;
      track.filePath = path;
      track.fileSize = size;
      track.cueStartTime = at;
      at += track.duration;
      track.cueEndTime = at;
    }
  }

  const SyntheticSpec& _spec;
  Random _random;
  std::size_t _albums = 0;
  std::uint32_t _artists = 0;
  std::vector<std::uint32_t> _artistOfAlbum;
};

}  // namespace

void SyntheticLibrary::forEachBatch(std::size_t size, const Use& use) const {
  std::vector<ScannedItem> batch;
  std::size_t made = 0;
  const auto add = [&](ScannedItem item) {
    batch.push_back(std::move(item));
    ++made;
    if (batch.size() < size && made < _spec.tracks) return;
    use(batch);
    batch.clear();
  };
  Catalogue catalogue(_spec);
  while (made < _spec.tracks) {
    for (ScannedItem& item : catalogue.nextAlbum()) {
      if (made < _spec.tracks) add(std::move(item));
    }
  }
}

std::vector<std::string> SyntheticLibrary::musicFolders() const {
  return {kFolders.begin(), kFolders.end()};
}

}  // namespace velorin::test
