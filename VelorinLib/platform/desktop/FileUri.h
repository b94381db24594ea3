// Paths as "file" URIs and back.
//
// Source: RFC 8089 and RFC 3986. A path is native bytes; a URI is ASCII.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velorin {

/// "file:///music/100%25.flac" for an absolute path. Pure; any thread.
std::string fileUri(std::string_view path);

/// The absolute path of a URI, or nothing: another scheme, another machine's file, a relative
/// path, a "%" without two hexadecimal digits, a NUL, longer than a path may be. A bare "#" or "?"
/// is taken as part of the name, for programs that forget to encode it. Pure; any thread.
std::optional<std::string> pathOfFileUri(std::string_view uri);

}  // namespace velorin
