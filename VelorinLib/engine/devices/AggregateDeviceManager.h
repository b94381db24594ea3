// The device that the program makes of several, so that they play in step.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Mutex.h"
#include "platform/audio/AudioHardware.h"

namespace velorin {

/// True for a UID of the program's own aggregates, which are never offered as devices.
bool isOwnAggregate(std::string_view uid) noexcept;

/// At most one aggregate at a time. create() and destroy(): one caller at a time. The rest: any
/// thread.
class AggregateDeviceManager {
 public:
  /// Outlives this.
  explicit AggregateDeviceManager(AudioHardware& hardware) : _hardware(hardware) {}
  /// Takes the aggregate away.
  ~AggregateDeviceManager();
  AggregateDeviceManager(const AggregateDeviceManager&) = delete;
  AggregateDeviceManager& operator=(const AggregateDeviceManager&) = delete;

  /// Two devices at least, the first of which sets the clock; one that exists is destroyed first.
  /// Waits until the new device can be used. Nothing when it could not be made: the log says why.
  std::optional<AudioDeviceID> create(const std::vector<std::string>& uids);
  /// Forgets the aggregate, whether the system took it away or not. Nothing without one.
  void destroy();
  /// Takes away what an earlier run left behind. Other programs' devices, and those of a player
  /// that runs beside this one, are not the system's to give.
  void destroyStale();

  bool exists() const { return device() != kNoDevice; }
  AudioDeviceID device() const;
  std::vector<std::string> subDeviceUIDs() const;
  /// It exists and still has output streams.
  bool isAlive() const;

 private:
  AudioHardware& _hardware;
  mutable Mutex _lock;
  AudioDeviceID _aggregateDeviceID GUARDED_BY(_lock) = kNoDevice;
  std::vector<std::string> _subDeviceUIDs GUARDED_BY(_lock);
};

}  // namespace velorin
