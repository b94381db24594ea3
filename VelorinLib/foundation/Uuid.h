// Random identifiers.
#pragma once

#include <string>
#include <string_view>

namespace velorin {

/// A random UUID (RFC 4122, version 4) as 36 upper-case characters, such as
/// "1B4E28BA-2FA1-41D2-883F-0016D3CCA427". Any thread but the render thread.
std::string makeUuid();

/// True for the 36 characters of a UUID of any version, in either case.
bool isUuid(std::string_view text) noexcept;

}  // namespace velorin
