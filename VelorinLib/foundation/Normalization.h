// One form for texts that look the same.
#pragma once

#include <string>
#include <string_view>

namespace velorin::unicode {

/// Normalization form C of Unicode: "é" as one character, however it was written. Text that is not
/// UTF-8, such as some file names, stays as it is. Pure; any thread but the render thread.
std::string precomposed(std::string_view text);

}  // namespace velorin::unicode
