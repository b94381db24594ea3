// The program's log: plain lines, written from any thread but the render thread.
//
// A line begins with an emoji that tells its kind ("❌" failure, "⚠️" fallback, "🔊" output
// …) or with a bracketed tag such as "[Remote]". The level follows from that beginning, so that a
// line reads the same on a terminal, in journald and in a test.
#pragma once

#include <fmt/format.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace velorin::log {

enum class Level { debug, info, warning, error };

/// error for "❌", warning for "⚠️", info for everything else.
Level levelOf(std::string_view line) noexcept;

/// Where lines go until told otherwise: journald when stderr is a journal stream, else stderr.
/// Call once, early, on the main thread; lines written before go to stderr.
void configure(Level minimum, bool useJournalIfConnected = true);

/// Lines below this level are dropped. Any thread.
void setMinimumLevel(Level minimum) noexcept;

/// Writes one line. Control characters (also a newline in a file name) and bytes that are not
/// UTF-8 are escaped, so that one event is one line. Any thread but the render thread.
void write(Level level, std::string_view text);

/// Formats and writes a line; the level comes from its first character.
template <class... Args>
void line(fmt::format_string<Args...> format, Args&&... args) {
  const std::string text = fmt::format(format, std::forward<Args>(args)...);
  write(levelOf(text), text);
}

/// Replaces the default sink, e.g. for a terminal that redraws a status line around each log
/// line. An empty function restores the default. Called on the writer's thread, one at a time;
/// a line that is written inside a sink goes to stderr.
void setSink(std::function<void(Level, std::string_view)> sink);

/// Collects every line of every thread while it lives, and keeps them off the default sink.
/// For tests; captures nest, the innermost one gets the lines.
class Capture {
 public:
  Capture();
  ~Capture();
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  std::vector<std::string> lines() const;
  /// True when some line contains the text.
  bool contains(std::string_view text) const;
  /// Blocks until a line contains the text; false after the timeout.
  bool waitFor(std::string_view text, std::chrono::milliseconds timeout) const;

  struct State;

 private:
  std::shared_ptr<State> _state;
};

}  // namespace velorin::log
