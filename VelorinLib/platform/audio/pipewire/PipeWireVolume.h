// The channel volumes of a sink as its device shows them, cleaned of our own echo.
//
// A volume that is set comes back from the server a moment later, like one that somebody else has
// set; for a card's mixer rounded to what it can do. While a slider is drawn many such echoes are
// on their way, and taken for news they would make the slider jump back.
#pragma once

#include <chrono>
#include <vector>

namespace velorin {

/// A value: no locks, no clock of its own. Gains are linear factors, one a channel.
class PipeWireVolume {
 public:
  using Clock = std::chrono::steady_clock;
  using Gains = std::vector<float>;
  /// How long after setting a volume its echo may come.
  static constexpr std::chrono::milliseconds kEchoTime{500};

  /// What was set last, or was told since. Empty when the sink has no volume.
  const Gains& gains() const noexcept { return _shown; }

  /// These were sent to the server. It is then due to be asked for settle() after kEchoTime.
  void sent(Gains gains, Clock::time_point now);

  /// The server tells these. True when somebody else has changed them.
  bool told(const Gains& gains, Clock::time_point now);

  /// Takes what the server told last for true, once no echo can be under way any more. True when
  /// that is not what is shown: what was sent last has been refused.
  bool settle(Clock::time_point now);

  /// All channels scaled so that the loudest has that gain. A sink that was turned down to nothing
  /// gets the balance back that it had before.
  Gains scaledTo(float loudest) const;

 private:
  bool isEcho(const Gains& gains) const;
  void show(Gains gains);

  Gains _shown;
  Gains _balance;            ///< the last gains that were not all zero
  Gains _told;               ///< by the server, echo or not
  std::vector<Gains> _sent;  ///< within kEchoTime
  Clock::time_point _sentAt{};
};

}  // namespace velorin
