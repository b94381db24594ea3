// What belongs to a file, brought over to a copy of it.
#pragma once

namespace velorin {

/// Copies the content of one open file into another, which is empty: by sharing blocks where the
/// file system can, else inside the kernel, else byte by byte. 0, or the error number.
int copyContent(int from, int to);

/// Mode, extended attributes with access lists, time of last access; owner and group as far as
/// permitted. Where the owner cannot be kept, bits that lend the owner's rights are dropped.
/// Attributes of the system's own name spaces that only it may set are passed over. 0, or the
/// error number.
int copyAttributes(int from, int to);

}  // namespace velorin
