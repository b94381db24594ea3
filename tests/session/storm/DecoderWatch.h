// How many files are decoded at once, seen from below: the test program's linker puts these
// functions between our decoder and libFLAC (-Wl,--wrap).
#pragma once

#include <cstddef>

namespace velorin::test {

/// Of decoders that have delivered audio; one that was opened ahead and not read does not count.
/// Any thread.
struct DecoderWatch {
  /// Those that are not closed yet.
  static std::size_t open();
  /// The most reads of one that came after the first read of a later one. A thread that was slow to
  /// stop may be in the middle of its last block.
  static int mostReadsBesideAnother();
  static constexpr int kReadsOfABlock = 4;
  static void forget();
};

}  // namespace velorin::test
