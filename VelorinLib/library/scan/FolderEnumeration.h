// Enumerates music folders, each watched for a file system that does not answer.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "library/scan/EnumAccumulator.h"
#include "library/scan/ScanSettings.h"

namespace velorin {

/// The results of several folders, in the order of the folders.
struct EnumeratedFolders {
  std::vector<FolderEnumResult> folders;
  double elapsed = 0;  ///< seconds

  std::size_t cueCount() const;
  std::size_t audioCount() const;
  std::vector<std::string> timedOut() const;
};

/// The folders without those that a walk of another one comes to, and each only once: what is
/// found twice would be imported twice. Pure.
std::vector<std::string> outermostFolders(const std::vector<std::string>& folders);

/// Any thread; blocks until the folders were walked, stalled, or the scan was cancelled. The thread
/// that walks a stalled folder cannot be ended, since it hangs in the file system: it is left
/// behind, touches nothing but what it owns, and ends by itself at its next step. Nobody waits for
/// it, not even the end of the process.
class FolderEnumeration {
 public:
  using IsCancelled = std::function<bool()>;
  using UpdateStatus = std::function<void(const std::string& text)>;
  /// Takes an audio file in place of the list, on the walking thread; false ends the walk. It may
  /// be called by a walk that was left behind, so it must own, or share, what it uses.
  using TakeAudio = std::function<bool(const WalkedFile& file)>;

  /// isCancelled and updateStatus are copied, and called on any thread.
  FolderEnumeration(const ScanSettings& settings, IsCancelled isCancelled,
                    UpdateStatus updateStatus);

  FolderEnumResult enumerateFolder(const std::string& folder, ScanSettings::Milliseconds stall,
                                   const TakeAudio& takeAudio = {}) const;

  /// All of them at once, up to concurrency() at a time.
  EnumeratedFolders enumerateFolders(const std::vector<std::string>& folders,
                                     ScanSettings::Milliseconds stall) const;

  /// The same, where each audio file is handed over.
  EnumeratedFolders stream(const std::vector<std::string>& folders,
                           ScanSettings::Milliseconds stall, const TakeAudio& takeAudio) const;

  /// Folders that are walked at a time: twice as many as processors, at most 16.
  static std::size_t concurrency();

 private:
  const ScanSettings& _settings;
  const IsCancelled _isCancelled;
  const UpdateStatus _updateStatus;
};

}  // namespace velorin
