// Finds the tracks that departed ones have become, by their sound.
#pragma once

#include "library/listening/TrackSounds.h"

namespace velorin {

/// For each departed track the living ones of the same length and CUE start are looked at, at first
/// all of them, later those made since. It goes to
///  1. the only new one of the same size, date, title and artist: a file that was moved;
///  2. else one of the same sound, where the sound of the departed one was known;
///  3. else, where it was not, the only one of the same size, title and artist;
///  4. else to the track that has taken its path: an edit that changed the sound.
/// Among several of one sound the first choice is one that no other departed track has become, then
/// one that came after it went, then one of the same file name, then one of the same album. What
/// finds none stays parked.
///
/// One thread at a time. Failures throw VelorinDatabaseError; what was found before stays found.
class SoundSearch {
 public:
  using IsCancelled = std::function<bool()>;

  SoundSearch(const DatabaseHandle& database, TrackSounds& sounds, const IsCancelled& isCancelled)
      : _database(database), _sounds(sounds), _isCancelled(isCancelled) {}

  /// Decodes no more than so many files; what is left then is left for the next time.
  void run(std::size_t mostDecoded);

 private:
  struct Departed {
    std::int64_t id = 0;
    double duration = 0;
    std::optional<double> cueStart;
    std::int64_t searchedUpTo = 0;
    std::vector<std::int64_t> candidates;
  };
  struct Sought;
  struct Candidate;
  enum class Outcome { found, notFound, unfinished };

  std::vector<Departed> departed(std::int64_t upTo) const;
  /// False when it was cancelled.
  bool collectCandidates(std::vector<Departed>& departed, std::int64_t upTo) const;
  std::vector<Candidate> candidates(const Sought& sought,
                                    const std::vector<std::int64_t>& ids) const;
  Outcome search(const Departed& departed, std::size_t mostDecoded);
  Outcome searchBySound(const Sought& sought, const std::vector<Candidate>& ranked,
                        std::size_t mostDecoded);
  bool giveTo(std::int64_t departedId, std::int64_t trackId);
  void leave(const std::vector<std::int64_t>& notFound, std::int64_t upTo) const;

  const DatabaseHandle& _database;
  TrackSounds& _sounds;
  const IsCancelled& _isCancelled;
  std::vector<std::int64_t> _taken;  // tracks that departed ones have become, sorted
};

}  // namespace velorin
