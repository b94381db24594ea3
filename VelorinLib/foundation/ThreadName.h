// The name under which a thread shows in top, gdb and the kernel's messages.
#pragma once

#include <string_view>

namespace velorin {

/// Names the calling thread after a reverse-domain label. The kernel keeps 15 bytes, so the
/// leading components are dropped as long as the rest still has a name to show:
/// "com.velorin.appdelegate.engine" becomes "engine".
void nameThisThread(std::string_view label) noexcept;

}  // namespace velorin
