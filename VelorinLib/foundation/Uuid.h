// Random identifiers.
#pragma once

#include <string>

namespace velorin {

/// A random UUID (RFC 4122, version 4) as 36 upper-case characters, such as
/// "1B4E28BA-2FA1-41D2-883F-0016D3CCA427". Any thread but the render thread.
std::string makeUuid();

}  // namespace velorin
