#include "library/listening/SoundSearch.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "library/listening/DepartedTracks.h"

namespace velorin {
namespace {

// Seconds. Lengths come from the same reader for the same audio.
constexpr double kSameLength = 0.002;

// A walk in steps: other work of the database gets its turn between them.
constexpr std::int64_t kStep = 20'000;

// More tracks of one length than this are not music but a test disc.
constexpr std::size_t kMostCandidates = 1000;

std::string_view fileName(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

/// The only one that is meant; of several the only one that has kept its file name.
template <class Candidates, class Meant>
auto theOnly(const Candidates& candidates, Meant&& meant) -> decltype(candidates.data()) {
  decltype(candidates.data()) only = nullptr;
  decltype(candidates.data()) onlyOfName = nullptr;
  int count = 0;
  int countOfName = 0;
  for (const auto& each : candidates) {
    if (each.isTaken || !meant(each)) continue;
    only = &each;
    ++count;
    if (!each.hasName) continue;
    onlyOfName = &each;
    ++countOfName;
  }
  if (count == 1) return only;
  return countOfName == 1 ? onlyOfName : nullptr;
}

}  // namespace

/// What a departed track is known by.
struct SoundSearch::Sought {
  std::int64_t id = 0;
  std::int64_t lastId = 0;  ///< ids above came after it went
  std::string filePath;
  std::string title;
  std::string artist;
  std::string album;
  std::optional<std::int64_t> fileSize;
  std::optional<std::string> lastModified;
  std::optional<std::string> soundHash;
};

struct SoundSearch::Candidate {
  TrackSounds::Subject track;
  bool isTaken = false;
  bool isNew = false;
  bool hasName = false;
  bool hasAlbum = false;
  bool hasSizeAndTitle = false;
  bool hasDate = false;

  /// The better, the less.
  auto rank() const { return std::tuple(isTaken, !isNew, !hasName, !hasAlbum); }
};

void SoundSearch::run(std::size_t mostDecoded) {
  const auto upTo = _database.read([](sqlite::Reader& reader) {
    return reader.first<std::int64_t>("SELECT MAX(id) FROM tracks").value_or(0);
  });
  auto all = departed(upTo);
  if (all.empty()) return;
  if (!collectCandidates(all, upTo)) return;
  std::ranges::sort(all, {}, &Departed::id);
  std::vector<std::int64_t> notFound;
  for (const Departed& each : all) {
    if (_isCancelled()) break;
    if (search(each, mostDecoded) == Outcome::notFound) notFound.push_back(each.id);
  }
  leave(notFound, upTo);
}

std::vector<SoundSearch::Departed> SoundSearch::departed(std::int64_t upTo) const {
  return _database.read([&](sqlite::Reader& reader) {
    std::vector<Departed> all;
    reader.each(
        "SELECT trackId, duration, cueStartTime, searchedUpTo FROM departedTracks "
        "WHERE searchedUpTo < ?",
        [&](const sqlite::Row& row) {
          Departed& each = all.emplace_back();
          sqlite::RowReader(row) >> each.id >> each.duration >> each.cueStart >> each.searchedUpTo;
        },
        upTo);
    return all;
  });
}

bool SoundSearch::collectCandidates(std::vector<Departed>& all, std::int64_t upTo) const {
  std::ranges::sort(all, {}, &Departed::duration);
  auto last = std::ranges::min(all, {}, &Departed::searchedUpTo).searchedUpTo;
  const auto compare = [&](std::int64_t id, double duration, std::optional<double> cueStart) {
    auto each = std::ranges::lower_bound(all, duration - kSameLength, {}, &Departed::duration);
    for (; each != all.end() && each->duration <= duration + kSameLength; ++each) {
      if (id > each->searchedUpTo && cueStart == each->cueStart &&
          each->candidates.size() < kMostCandidates) {
        each->candidates.push_back(id);
      }
    }
  };
  while (last < upTo) {
    if (_isCancelled()) return false;
    last = _database.read([&](sqlite::Reader& reader) {
      std::int64_t id = upTo;
      std::int64_t rows = 0;
      auto tracks = reader.query(
          "SELECT id, duration, cueStartTime FROM tracks WHERE id > ? AND id <= ? "
          "ORDER BY id LIMIT ?",
          last, upTo, kStep);
      for (; tracks.next(); ++rows) {
        id = tracks.get<std::int64_t>(0);
        compare(id, tracks.get<double>(1), tracks.get<std::optional<double>>(2));
      }
      return rows < kStep ? upTo : id;
    });
  }
  return true;
}

std::vector<SoundSearch::Candidate> SoundSearch::candidates(
    const Sought& sought, const std::vector<std::int64_t>& ids) const {
  std::vector<Candidate> found;
  _database.read([&](sqlite::Reader& reader) {
    sqlite::forEachSlice(ids, [&](std::span<const std::int64_t> slice) {
      reader.each(
          fmt::format(R"(
SELECT {}, t.title, ar.name, al.title
FROM tracks t
JOIN artists ar ON ar.id = t.artistId
JOIN albums al ON al.id = t.albumId
LEFT JOIN trackSounds s ON s.trackId = t.id
WHERE t.id IN ({}))",
                      TrackSounds::kColumns, sqlite::placeholders(slice.size())),
          [&](const sqlite::Row& row) {
            Candidate& each = found.emplace_back();
            std::string title;
            std::string artist;
            std::string album;
            sqlite::RowReader columns(row);
            TrackSounds::read(columns, each.track);
            columns >> title >> artist >> album;
            each.isTaken = std::ranges::binary_search(_taken, each.track.trackId);
            each.isNew = each.track.trackId > sought.lastId;
            each.hasName = fileName(each.track.filePath) == fileName(sought.filePath);
            each.hasAlbum = album == sought.album;
            each.hasSizeAndTitle = sought.fileSize && each.track.fileSize == sought.fileSize &&
                                   title == sought.title && artist == sought.artist;
            each.hasDate = sought.lastModified && each.track.lastModified == sought.lastModified;
          },
          slice);
    });
    return 0;
  });
  std::ranges::sort(found, [](const Candidate& a, const Candidate& b) {
    return std::tuple(a.rank(), std::string_view(a.track.filePath), a.track.trackId) <
           std::tuple(b.rank(), std::string_view(b.track.filePath), b.track.trackId);
  });
  return found;
}

SoundSearch::Outcome SoundSearch::search(const Departed& departed, std::size_t mostDecoded) {
  if (departed.candidates.empty()) return Outcome::notFound;
  Sought sought;
  _database.read([&](sqlite::Reader& reader) {
    reader.each(
        "SELECT trackId, lastId, filePath, title, artistName, albumTitle, fileSize, lastModified, "
        "soundHash FROM departedTracks WHERE trackId = ?",
        [&](const sqlite::Row& row) {
          sqlite::RowReader(row) >> sought.id >> sought.lastId >> sought.filePath >> sought.title >>
              sought.artist >> sought.album >> sought.fileSize >> sought.lastModified >>
              sought.soundHash;
        },
        departed.id);
    return 0;
  });
  const auto ranked = candidates(sought, departed.candidates);

  const Candidate* moved = theOnly(ranked, [&](const Candidate& each) {
    const bool isOther = each.track.state == TrackSounds::State::current && each.track.soundHash &&
                         sought.soundHash && each.track.soundHash != sought.soundHash;
    return each.isNew && each.hasSizeAndTitle && each.hasDate && !isOther;
  });
  if (moved && giveTo(sought.id, moved->track.trackId)) return Outcome::found;

  if (sought.soundHash) return searchBySound(sought, ranked, mostDecoded);
  const Candidate* alike =
      theOnly(ranked, [](const Candidate& each) { return each.hasSizeAndTitle; });
  return alike && giveTo(sought.id, alike->track.trackId) ? Outcome::found : Outcome::notFound;
}

SoundSearch::Outcome SoundSearch::searchBySound(const Sought& sought,
                                                const std::vector<Candidate>& ranked,
                                                std::size_t mostDecoded) {
  Outcome outcome = Outcome::notFound;
  for (const Candidate& each : ranked) {
    if (_isCancelled()) return Outcome::unfinished;
    if (each.track.state != TrackSounds::State::current && _sounds.decoded() >= mostDecoded) {
      return Outcome::unfinished;
    }
    const auto hash = _sounds.learn(each.track);
    if (!hash) outcome = Outcome::unfinished;
    if (hash == sought.soundHash && giveTo(sought.id, each.track.trackId)) return Outcome::found;
  }
  return outcome;
}

bool SoundSearch::giveTo(std::int64_t departedId, std::int64_t trackId) {
  const bool given = _database.write([&](sqlite::Writer& writer) {
    // Either may have gone meanwhile.
    if (!writer.first<int>("SELECT 1 FROM departedTracks WHERE trackId = ?", departedId) ||
        !writer.first<int>("SELECT 1 FROM tracks WHERE id = ?", trackId)) {
      return false;
    }
    PlaylistPlaces places(writer);
    giveBack(writer, departedId, trackId, Sound::same, places);
    places.settle();
    return true;
  });
  if (given) _taken.insert(std::ranges::lower_bound(_taken, trackId), trackId);
  return given;
}

void SoundSearch::leave(const std::vector<std::int64_t>& notFound, std::int64_t upTo) const {
  if (notFound.empty()) return;
  _database.write([&](sqlite::Writer& writer) {
    PlaylistPlaces places(writer);
    for (const std::int64_t id : notFound) {
      const auto successor = writer.first<std::int64_t>(R"(
SELECT t.id FROM departedTracks gone
JOIN tracks t ON t.filePath = gone.filePath AND t.cueStartTime IS gone.cueStartTime
WHERE gone.trackId = ? ORDER BY t.id DESC)",
                                                        id);
      if (successor) {
        giveBack(writer, id, *successor, Sound::other, places);
      } else {
        writer.run("UPDATE departedTracks SET searchedUpTo = ? WHERE trackId = ?", upTo, id);
      }
    }
    places.settle();
  });
}

}  // namespace velorin
