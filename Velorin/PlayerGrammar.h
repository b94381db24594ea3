// The part of the command line that starts the player and speaks to it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Options.h"

namespace CLI {
class App;
}

namespace velorin {

/// `run`, `open`, `control` and `path`. Lives as long as the parse.
class PlayerGrammar {
 public:
  explicit PlayerGrammar(CLI::App& app);
  ~PlayerGrammar();
  PlayerGrammar(const PlayerGrammar&) = delete;
  PlayerGrammar& operator=(const PlayerGrammar&) = delete;

  /// What the parse found; nothing when it was another command.
  std::optional<Command> chosen() const;

 private:
  struct Fields;
  std::unique_ptr<Fields> _fields;
};

/// The arguments with the command that a start without one means: "velorin FILE..." runs the
/// player. argv as main() has it. A lone word that is no file is left to be refused.
std::vector<std::string> withPlayerCommand(const CLI::App& app, int argc, const char* const* argv);

}  // namespace velorin
