// Changing a file so that at any moment, killed or out of space, it is whole: the old or the new.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "foundation/Result.h"

namespace velorin {

/// Of a file that was rewritten.
struct RewrittenFile {
  std::uint64_t size = 0;
  std::chrono::system_clock::time_point lastModified;
};

/// Why a file was not rewritten, in one line without its path.
struct RewriteError {
  std::string reason;
};

/// Changes the copy at that path, or says why it cannot. May write by any means but a rename.
using FileEdit = std::function<std::optional<std::string>(const std::string& copyPath)>;

/// Copies the file beside itself (sharing its blocks where the file system can), has the copy
/// edited, syncs it, renames it over the file and syncs the folder.
///
/// The copy carries over the mode, the extended attributes with access lists, the time of the last
/// access, and the owner and group as far as the system permits; the time of change is new. A
/// symbolic link is followed, so that the file it names is replaced. Of a file with several hard
/// links only the one under this path is replaced: the other names keep the old content, which is
/// the only way to leave every name whole at every moment.
///
/// On any failure (also a file or folder that may not be written, and a file that another program
/// changed meanwhile) the file is untouched and no copy stays. A file without any write permission
/// in its mode counts as read-only for everyone, root included. What a killed run left is removed
/// by the next edit of the same file; the copy is called ".<name>.velorin-tmp", with the name cut
/// and marked by a hash where the system allows no longer one.
///
/// Two edits of one file at a time: the later is refused. Any thread but the render thread; blocks
/// for the disk.
Result<RewrittenFile, RewriteError> rewriteFile(const std::string& path, const FileEdit& edit);

/// The name, without folder, of the copy of a file of that name. Pure.
std::string rewriteCopyName(const std::string& fileName);

}  // namespace velorin
