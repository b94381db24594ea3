// How long a scan waits for what.
#pragma once

#include <chrono>

#include "library/scan/FolderWalk.h"

namespace velorin {

/// The times of the program; tests shorten them.
struct ScanSettings {
  using Milliseconds = std::chrono::milliseconds;

  /// A walk that finds nothing for so long counts as stalled: in a rescan, which only compares,
  /// and in a scan of folders that are new.
  Milliseconds rescanStall{30'000};
  Milliseconds streamingStall{120'000};
  /// The same for the reading of files: no file came to its end for so long.
  Milliseconds fileStall{120'000};
  /// How often a walk is looked after: how soon a stall is seen, and a cancelled scan ends.
  Milliseconds watchRound{500};
  /// How long a cancelled scan waits for files that are being read.
  Milliseconds cancelGrace{1'000};
  Milliseconds journalReplay{30'000};
  /// Changes of files are looked at when there was none for so long.
  Milliseconds debounce{5'000};

  WalkFolder walk = &walkFolder;
};

}  // namespace velorin
