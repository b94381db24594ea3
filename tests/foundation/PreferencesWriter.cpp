// Writes changing preferences as fast as it can, until it is killed.
// Usage: preferences_writer FILE FIRST_NUMBER KEY. After each state that is on disk it writes one
// byte to standard output.

#include <unistd.h>

#include <cstdlib>

#include "foundation/PreferencesState.h"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  velorin::Preferences store(argv[1]);
  for (std::int64_t number = std::atoll(argv[2]);; ++number) {
    store.setMap(argv[3], velorin::test::stateOf(number));
    if (!store.flush() || ::write(STDOUT_FILENO, "+", 1) != 1) return 1;
  }
}
