// Tags into a file.
#pragma once

#include <string>

#include "foundation/Result.h"
#include "library/metadata/TagChanges.h"
#include "platform/files/FileRewrite.h"

namespace velorin {

/// Writes the changes into the tags of the file: an edited text or number replaces all values of
/// its field, whatever else the tags hold stays. The version of an ID3v2 tag stays, and no kind of
/// tag is added that the file did not have unless it had none that can hold the fields.
///
/// The file is rewritten by way of a copy (see rewriteFile). Before the copy takes the file's
/// place its whole audio stream is compared with that of the file, packet by packet, and the tags
/// are read back: a file whose sound would not be bit-identical, or that does not hold what it was
/// told, is not written.
///
/// Fails with a reason for a kind of file that cannot hold tags (DFF, CAF …), one whose tags cannot
/// hold a field, one whose sound cannot be read, and for all that rewriteFile fails for. Any thread
/// but the main thread and the render thread.
Result<RewrittenFile, RewriteError> writeTags(const std::string& path, const TagChanges& changes);

}  // namespace velorin
