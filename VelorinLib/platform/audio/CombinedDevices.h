// Which devices of a sound server and of ALSA are one device, and which are there.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/audio/AudioTypes.h"

namespace velorin {

/// The table behind CombinedAudioHardware. A value: no locks, no calls to the hardware.
///
/// A server device that sits on an ALSA device and that ALSA device are one entry, under the
/// server's UID. While it is hogged the server has let go of it and its own device is gone; the
/// entry stays. ALSA devices that no present entry claims are entries of their own.
class CombinedDevices {
 public:
  struct ServerDevice {
    AudioDeviceID id = kNoDevice;
    std::string uid;
    AudioDeviceID alsa = kNoDevice;  ///< the ALSA device it sits on
  };
  struct AlsaDeviceEntry {
    AudioDeviceID id = kNoDevice;
    std::string uid;
  };

  /// How far exclusive access to an entry's ALSA device is. In all but `none` the entry is there
  /// although the server may not show it.
  enum class Hold {
    none,
    taking,    ///< being asked for
    held,      ///< ours; ALSA answers for the entry
    returning  ///< given back a moment ago; the server will show it again
  };

  struct Entry {
    AudioDeviceID id = kNoDevice;
    std::string uid;
    AudioDeviceID server = kNoDevice;  ///< while the server shows it
    AudioDeviceID alsa = kNoDevice;    ///< while ALSA shows it
    Hold hold = Hold::none;
    bool isPresent = false;
  };

  /// Takes in what both sides show now. True when the list of present devices changed.
  bool update(const std::vector<ServerDevice>& server, const std::vector<AlsaDeviceEntry>& alsa);

  /// Null for an id that was never given. Valid until the next update().
  Entry* find(AudioDeviceID id) noexcept;
  const Entry* findPresent(AudioDeviceID id) const noexcept;
  const Entry* findByUID(std::string_view uid) const noexcept;
  const Entry* findByServer(AudioDeviceID server) const noexcept;
  const Entry* findByAlsa(AudioDeviceID alsa) const noexcept;

  /// ALSA devices of the entries that are held.
  std::vector<AudioDeviceID> heldAlsa() const;

  /// Present ones: the server's in its order, then ALSA's.
  const std::vector<AudioDeviceID>& present() const noexcept { return _present; }

 private:
  Entry& entryFor(const std::string& uid);

  std::vector<Entry> _entries;  ///< index + 1 is the id; entries are never taken out
  std::vector<AudioDeviceID> _present;
};

}  // namespace velorin
