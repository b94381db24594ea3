// The states that PreferencesWriter writes and PreferencesCrashTest expects to find.
#pragma once

#include <cstdint>
#include <string>

#include "foundation/Preferences.h"

namespace velorin::test {

/// A value in which everything follows from the number, so that a mixture of two states shows.
/// Up to 200 kB, to make the time in which a kill can fall within a write long.
inline PreferenceMap stateOf(std::int64_t number) {
  const auto length = static_cast<std::size_t>(number * 7919 % 200'000);
  const char letter = static_cast<char>('a' + number % 26);
  return {{"number", {number}}, {"echo", {number}}, {"load", {std::string(length, letter)}}};
}

}  // namespace velorin::test
