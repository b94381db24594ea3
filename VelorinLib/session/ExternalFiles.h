// Files from outside the library become tracks, in the background.
#pragma once

#include <filesystem>
#include <functional>
#include <vector>

#include "foundation/SerialQueue.h"
#include "records/TrackInfo.h"

namespace velorin {

/// Main thread; nothing blocks. Requests are answered in their order.
class ExternalFiles {
 public:
  /// `done` is called on the reader's thread, with the tracks in the order of the files: a sheet
  /// (".cue") stands for its tracks, and what is not there is dropped, with a line in the log.
  void read(std::vector<std::filesystem::path> files,
            std::function<void(std::vector<TrackInfo>)> done);

 private:
  SerialQueue _queue{"com.velorin.files"};
};

}  // namespace velorin
