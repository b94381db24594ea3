// How far the join under way has come: `gaplessTransitionPending` and more.
//
//   idle ──begin──▶ waiting ──heard──▶ applying ──applied──▶ idle
//
// waiting: the next track is decoded behind the old one and its first frame has not been rendered.
// applying: it is heard; the main thread announces it. A new join begins only from idle, so that
// every track change is told, one after the other.
#pragma once

#include <atomic>
#include <cstdint>

namespace velorin {

/// A join is named by the serial of the track that takes over (SourceFacts). Lock-free.
class PendingJoin {
 public:
  enum class State : std::uint64_t { idle, waiting, applying };

  /// Any thread.
  State state() const noexcept { return static_cast<State>(_word.load() & kStateMask); }
  bool isIdle() const noexcept { return state() == State::idle; }

  // --- Fill thread ---

  void begin(std::uint64_t serial) noexcept { _word.store(word(serial, State::waiting)); }
  void heard(std::uint64_t serial) noexcept { _word.store(word(serial, State::applying)); }
  /// Given up: taken back, or overtaken by a jump.
  void cancel() noexcept { _word.store(word(0, State::idle)); }

  // --- Main thread ---

  /// Announced. Nothing happens when the fill side has gone on without this join.
  void applied(std::uint64_t serial) noexcept {
    std::uint64_t expected = word(serial, State::applying);
    _word.compare_exchange_strong(expected, word(0, State::idle));
  }

 private:
  static constexpr std::uint64_t kStateMask = 3;
  static std::uint64_t word(std::uint64_t serial, State state) noexcept {
    return serial * (kStateMask + 1) + static_cast<std::uint64_t>(state);
  }
  std::atomic<std::uint64_t> _word{0};
};

}  // namespace velorin
