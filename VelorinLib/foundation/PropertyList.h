// Values as XML property lists, the form in which preferences and backups keep them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/Preferences.h"

namespace velorin::propertyList {

/// Lists and maps may stand this deep in one another; deeper text or values are refused.
inline constexpr std::size_t kMaxDepth = 128;

/// The value as an XML property list (Apple's PropertyList-1.0 DTD). Empty when it is nested
/// deeper than kMaxDepth.
///
/// XML cannot hold every text: bytes that are not UTF-8, control characters and carriage returns
/// would be refused or changed by a reader. Such a text is written as a dictionary whose one key
/// is "velorin:bytes of text" and whose value is its bytes, and such a key as "velorin:hex:" and
/// its bytes in hexadecimal. parse() turns both back, so that every value survives.
std::optional<std::string> format(const PreferenceValue& value);

/// Empty when the text is no XML property list. Dates become text ("2024-05-01T12:00:00Z");
/// other kinds that have no counterpart here are left out.
std::optional<PreferenceValue> parse(std::string_view xml);

}  // namespace velorin::propertyList
