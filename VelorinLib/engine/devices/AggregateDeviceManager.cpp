#include "engine/devices/AggregateDeviceManager.h"

#include <thread>

#include "foundation/Log.h"
#include "foundation/Uuid.h"

namespace velorin {
namespace {

using std::chrono::milliseconds;

constexpr std::string_view kUIDPrefix = "com.velorin.aggregate.";
/// A device that was announced has its streams a moment later.
constexpr milliseconds kReadyTime{1000};
constexpr milliseconds kReadyPoll{5};

}  // namespace

bool isOwnAggregate(std::string_view uid) noexcept {
  return uid.starts_with(kUIDPrefix);
}

AggregateDeviceManager::~AggregateDeviceManager() {
  destroy();
}

std::optional<AudioDeviceID> AggregateDeviceManager::create(const std::vector<std::string>& uids) {
  if (uids.size() < 2) {
    log::line("AggregateDevice: need at least 2 sub-devices, got {}", uids.size());
    return std::nullopt;
  }
  destroy();
  AudioDeviceID made = kNoDevice;
  const AudioStatus status =
      _hardware.createAggregate({.name = "Velorin Multi-Output",
                                 .uid = fmt::format("{}{}", kUIDPrefix, makeUuid()),
                                 .subDeviceUIDs = uids},
                                made);
  if (!status.ok() || made == kNoDevice) {
    log::line("Failed to create aggregate device: {}", status.description());
    return std::nullopt;
  }
  // Without the lock: others may ask for the aggregate meanwhile, and hear of none.
  const auto deadline = std::chrono::steady_clock::now() + kReadyTime;
  while (!_hardware.hasOutputStreams(made) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kReadyPoll);
  }
  MutexLock hold(_lock);
  _aggregateDeviceID = made;
  _subDeviceUIDs = uids;
  log::line("Created aggregate device {} with {} sub-devices", made, uids.size());
  return made;
}

void AggregateDeviceManager::destroy() {
  AudioDeviceID device = kNoDevice;
  {
    MutexLock hold(_lock);
    device = std::exchange(_aggregateDeviceID, kNoDevice);
    _subDeviceUIDs.clear();
  }
  if (device == kNoDevice) return;
  if (const AudioStatus status = _hardware.destroyAggregate(device); !status.ok()) {
    log::line("Failed to destroy aggregate device {}: {}", device, status.description());
  } else {
    log::line("Destroyed aggregate device {}", device);
  }
}

void AggregateDeviceManager::destroyStale() {
  for (const AudioDeviceID device : _hardware.devices()) {
    if (!isOwnAggregate(_hardware.deviceUID(device))) continue;
    if (_hardware.destroyAggregate(device).ok()) {
      log::line("🧹 Cleaned up stale aggregate device {}", device);
    }
  }
}

AudioDeviceID AggregateDeviceManager::device() const {
  MutexLock hold(_lock);
  return _aggregateDeviceID;
}

std::vector<std::string> AggregateDeviceManager::subDeviceUIDs() const {
  MutexLock hold(_lock);
  return _subDeviceUIDs;
}

bool AggregateDeviceManager::isAlive() const {
  const AudioDeviceID made = device();
  return made != kNoDevice && _hardware.hasOutputStreams(made);
}

}  // namespace velorin
