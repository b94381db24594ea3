// Changes a library as fast as it can, until it is killed.
// Usage: library_writer FILE FIRST_STEP     runs steps from that one on
//        library_writer FILE migrate        brings the file to the present schema
// To standard output: 'w' at the first row that a transaction changes, 'c' when its commit begins,
// ')' after each step that was reported as done.

#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>

#include "library/LibrarySteps.h"
#include "library/schema/Migrator.h"

namespace {

bool hasChanged = false;

void report(char byte) {
  if (::write(STDOUT_FILENO, &byte, 1) != 1) std::_Exit(1);
}

void watch(velorin::sqlite::Connection& connection) {
  sqlite3_update_hook(
      connection.handle(),
      [](void*, int, const char*, const char*, sqlite3_int64) {
        if (!std::exchange(hasChanged, true)) report('w');
      },
      nullptr);
  sqlite3_commit_hook(
      connection.handle(),
      [](void*) {
        if (std::exchange(hasChanged, false)) report('c');
        return 0;
      },
      nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const auto queue = std::make_shared<velorin::ConnectionQueue>(argv[1]);
  queue->withConnection(watch);
  if (argv[2] == std::string_view("migrate")) {
    queue->withConnection(
        [](velorin::sqlite::Connection& connection) { velorin::schema::migrate(connection); });
    report(')');
    return 0;
  }
  const velorin::DatabaseHandle database(queue);
  velorin::test::LibrarySteps steps(database);
  for (std::int64_t step = std::atoll(argv[2]);; ++step) {
    steps.run(step);
    report(')');
  }
}
