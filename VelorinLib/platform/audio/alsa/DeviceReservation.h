// Exclusive use of a sound card by agreement: the protocol org.freedesktop.ReserveDevice1.
//
// Whoever owns the bus name org.freedesktop.ReserveDevice1.AudioN of the session bus has card N;
// sound servers give the card up when somebody of higher priority asks them to.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/audio/AudioTypes.h"

namespace velorin {

/// Ours. Sound servers hold cards at -20 to 0 and so give way; a foreground player stands above
/// them and below a session that asks for a card for good (JACK takes the largest integer).
inline constexpr std::int32_t kReservationPriority = 20;

class DeviceReservation {
 public:
  struct Options {
    std::string deviceName;  ///< for people, shown by whoever asks us: "Topping D90"
    std::int32_t priority = kReservationPriority;
    /// Asked when a program of higher priority wants the card; must let go of the device before
    /// it returns true. On a thread of the reservation, which must not be destroyed from there.
    std::function<bool()> giveUp;
    /// The name was taken away without asking. Same thread.
    std::function<void()> lost;
  };

  enum class Outcome {
    acquired,
    refused,     ///< another program has the card and keeps it; `status` names it
    unavailable  ///< no session bus: nobody to agree with
  };

  /// Takes card N, asking a holder of lower priority to give it up. Waits for others at most
  /// about 2 s. `reservation` is set when acquired. Any thread but the render thread.
  static Outcome acquire(int card, Options options, std::unique_ptr<DeviceReservation>& reservation,
                         AudioStatus& status);

  /// Gives the card back.
  ~DeviceReservation();
  DeviceReservation(const DeviceReservation&) = delete;
  DeviceReservation& operator=(const DeviceReservation&) = delete;

  /// False once it was given up or taken away. Any thread.
  bool isHeld() const noexcept;

 private:
  struct Impl;
  explicit DeviceReservation(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
