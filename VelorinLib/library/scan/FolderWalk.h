// Walks a folder with everything below it, fast.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "library/scan/SupportedFiles.h"

namespace velorin {

/// A regular file that a scan takes. The path is valid during the call that tells it.
struct WalkedFile {
  std::string_view path;  ///< native bytes, beginning with the path of the folder as it was given
  FileKind kind;
  std::int64_t stamp = 0;  ///< see FileStamp.h
};

/// A folder, or a symbolic link, behind which nothing could be seen. What the library holds of it
/// may well be there still.
struct UnseenFolder {
  std::string path;
  int error = 0;  ///< an errno value; ENOENT for a link that leads nowhere
};

/// The stamp of a file from its status; a time that the clock cannot hold is left out.
std::int64_t stampOf(const struct stat& status);

/// Who hears what a walk finds, on the walking thread. Each answer is whether to go on.
class FolderVisitor {
 public:
  virtual ~FolderVisitor() = default;

  /// Before each folder and each entry of one: the walk gets on.
  virtual bool step() = 0;
  virtual bool file(const WalkedFile& file) = 0;
  virtual void unseen(UnseenFolder folder) = 0;
};

/// Walks the folder on the calling thread, which may hang in the file system for as long as that
/// does not answer. Memory for the names of the folders that are still to be walked, and the
/// identity of each that was.
///
/// Hidden files and folders are left out, and so are the folders of isPassedOver(). Of a file whose
/// name tells that it is not scanned nothing is read. Links to files and folders are followed; a
/// folder that is reached twice, or lies inside itself, is walked once, under the path without
/// links where there is one. Pipes, sockets and devices are no files, whatever their names.
void walkFolder(const std::string& folder, FolderVisitor& visitor);

/// walkFolder(), or what a test puts in its place.
using WalkFolder = std::function<void(const std::string& folder, FolderVisitor& visitor)>;

}  // namespace velorin
