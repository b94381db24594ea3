// What the threads of one scan share: the items on their way into the library, and what was known
// when the scan began.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "foundation/Mutex.h"
#include "library/queries/PathPrefix.h"
#include "library/queries/PathTable.h"
#include "records/ScannedItem.h"

namespace velorin {

/// Lives for one scan. Any number of threads.
class ScanState {
 public:
  using FindArtwork = std::function<std::optional<std::string>(const std::string& folder)>;

  /// What the library held when the scan began; it is not refreshed.
  struct Known {
    PathTable existingKeys;  ///< see LibraryInventory
    std::unordered_map<std::string, double> processedCues;
    /// Of these, those that are gone. What they gave may be for other sheets to give now: all
    /// sheets in their folders are read again.
    std::vector<std::string> vanishedSheets{};
    std::vector<std::string> watchedRoots;
  };

  /// findArtwork: see FolderArtwork.h.
  ScanState(Known known, FindArtwork findArtwork);

  const PathTable& existingKeys() const noexcept { return _known.existingKeys; }
  const std::vector<std::string>& watchedRoots() const noexcept { return _known.watchedRoots; }

  /// True when the sheet had this time, in seconds, when it was last read.
  bool isCueProcessed(const std::string& path, double modified) const;
  const std::vector<std::string>& vanishedSheets() const noexcept { return _known.vanishedSheets; }
  /// True when what the sheet gives takes the place of the CUE tracks that the library has of the
  /// audio file: it was read by an earlier scan, or the sheet of those tracks may be gone.
  bool replacesCueTracks(const std::string& sheet, const std::string& audioPath) const;
  /// The sheet is read again as if it were new.
  void forgetCue(const std::string& path);
  /// True when the library held CUE tracks of the audio file when the scan began.
  bool hadCueTracks(const std::string& audioPath) const;

  /// The folder's cover. Each folder is searched once, or a few times when threads ask at once.
  std::optional<std::string> artwork(const std::string& folder);

  /// Takes an item in. Returns the batch that it fills, or nothing. Batches are small at first, so
  /// that the first albums show up at once, and grow.
  std::optional<std::vector<ScannedItem>> append(ScannedItem item);
  /// Takes items in that are stored in one batch or not at all, such as those of a CUE sheet.
  std::optional<std::vector<ScannedItem>> append(std::vector<ScannedItem> items);
  /// What waits for the next batch.
  std::vector<ScannedItem> takeAll();

  /// A sheet claims its audio file, which is then no track of its own.
  void claimForCue(std::string audioPath);
  /// True for the first sheet that brings the file's tracks: of two sheets of one file that are
  /// read in one scan, only one counts.
  bool takeCueTracksOf(const std::string& audioPath);
  bool isClaimedByCue(const std::string& audioPath) const;
  std::vector<std::string> cueAudioFiles() const;

  /// The sheet may claim anything in its folder.
  void noteUnreadableSheet(const std::string& sheet);
  bool mayBeClaimedByUnreadable(const std::string& audioPath) const;

 private:
  const Known _known;
  const FindArtwork _findArtwork;
  // Constant after construction.
  std::unordered_set<std::string> _hadCueTracks;
  std::unordered_set<std::string> _foldersToReadAgain;

  mutable Mutex _lock;
  std::unordered_set<std::string> _forgottenCues GUARDED_BY(_lock);
  std::unordered_set<std::string> _cueTracksTaken GUARDED_BY(_lock);
  std::vector<ScannedItem> _buffer GUARDED_BY(_lock);
  std::size_t _batchesFlushed GUARDED_BY(_lock) = 0;
  std::unordered_set<std::string> _cueAudioFiles GUARDED_BY(_lock);
  std::vector<PathPrefix> _foldersOfUnreadable GUARDED_BY(_lock);
  std::unordered_map<std::string, std::optional<std::string>> _artworkCache GUARDED_BY(_lock);
};

/// Items of the batch that follows `batchesFlushed` others: 10 for the first 15, then 20, 50, 100
/// and 500 for ten batches each, then 1000.
std::size_t batchSize(std::size_t batchesFlushed) noexcept;

}  // namespace velorin
