// Is a music folder there, and on what kind of volume.
#pragma once

#include <string>
#include <vector>

namespace velorin {

/// Any thread but the main thread and the render thread: answers may wait for a slow volume, and a
/// volume that does not answer at all counts as offline after a bounded time.
class VolumeResolving {
 public:
  virtual ~VolumeResolving() = default;

  struct Availability {
    std::vector<std::string> available;
    std::vector<std::string> offline;
    std::vector<std::string> silent = {};  ///< of the offline ones, those that do not answer
  };

  /// Sorts the folders, in order. A folder whose volume is not mounted is offline even where an
  /// empty folder stands in its place. attemptRemount: try to mount what is missing, at most once
  /// in eight seconds a folder.
  virtual Availability availability(const std::vector<std::string>& folders,
                                    bool attemptRemount) = 0;

  /// Mount points inside the folders at which a volume was mounted before and none is now. Their
  /// emptiness tells nothing of what is on those volumes.
  virtual std::vector<std::string> missingInside(const std::vector<std::string>& /*folders*/) {
    return {};
  }

  /// False for network and FUSE file systems.
  virtual bool isLocalVolume(const std::string& path) = 0;

  /// True when the path can be reached now, after a touch that lets an automount do its work.
  virtual bool ensureAccess(const std::string& path) = 0;
};

}  // namespace velorin
