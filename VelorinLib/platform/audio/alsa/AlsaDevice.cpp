#include "platform/audio/alsa/AlsaDevice.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "foundation/Log.h"
#include "platform/audio/alsa/AlsaStream.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kDefaultPeriod = 1024;
constexpr double kDefaultRate = 48'000;
constexpr double kRateTolerance = 1;  // Hz: as the engine compares rates
constexpr auto kHandOverTime = 1s;
constexpr auto kHandOverStep = 20ms;
/// From this length on two periods suffice against a late wake-up; shorter ones get four.
constexpr double kLongPeriod = 0.020;

}  // namespace

std::uint32_t periodLimit(double rate) noexcept {
  std::uint32_t frames = 4096;
  for (double reach = 48'000; reach < rate && frames < (1u << 20); reach *= 2) frames *= 2;
  return frames;
}

AlsaDevice::AlsaDevice(AudioDeviceID id, AlsaPcmAddress address)
    : _id(id), _address(std::move(address)), _wishedPeriod(kDefaultPeriod) {}

AlsaDevice::~AlsaDevice() {
  giveBackHog();
}

AlsaPcmAddress AlsaDevice::address() const {
  MutexLock lock(_mutex);
  return _address;
}

void AlsaDevice::setAddress(AlsaPcmAddress address) {
  MutexLock lock(_mutex);
  _address = std::move(address);
  _capabilities.reset();
  _mixer.reset();
  _knowsMixer = false;
}

std::shared_ptr<AlsaMixer> AlsaDevice::mixer() {
  MutexLock lock(_mutex);
  if (!std::exchange(_knowsMixer, true) && !_address.control.empty()) {
    _mixer = AlsaMixer::open(_address.control);
  }
  return _mixer;
}

void AlsaDevice::listenToVolume(std::function<void()> changed) {
  const std::shared_ptr<AlsaMixer> one = mixer();
  MutexLock lock(_mutex);
  if (one && !one->isListening()) one->listen(std::move(changed));
}

AudioStatus AlsaDevice::capabilities(AlsaCapabilities& result) {
  result = {};
  {
    MutexLock lock(_mutex);
    if (_capabilities) {
      result = *_capabilities;
      return AudioStatus::success();
    }
  }
  // Not under the lock: a plug-in may take its time to open.
  AudioStatus status;
  const auto pcm = AlsaPcm::open(address().pcm, status);
  if (pcm) status = pcm->capabilities(result);
  if (!status.ok()) {
    if (status.code == -EBUSY) status.text += holderText();
    return status;
  }
  MutexLock lock(_mutex);
  _capabilities = result;
  return status;
}

std::unique_ptr<AlsaPcm> AlsaDevice::open(AudioStatus& status) {
  const auto deadline = std::chrono::steady_clock::now() + kHandOverTime;
  const std::string name = address().pcm;
  for (;;) {
    auto pcm = AlsaPcm::open(name, status);
    if (pcm) return pcm;
    const bool waits = status.code == -EBUSY && hogOwner() == getpid();
    if (!waits || std::chrono::steady_clock::now() >= deadline) break;
    std::this_thread::sleep_for(kHandOverStep);
  }
  if (status.code == -EBUSY) status.text += holderText();
  return nullptr;
}

std::string AlsaDevice::holderText() {
  const AlsaPcmAddress where = address();
  if (!where.isHardware()) return {};
  const pid_t holder = alsaHolder(where.card, where.device);
  return holder == 0 ? std::string() : fmt::format(", held by {}", processDescription(holder));
}

double AlsaDevice::nominalRate() {
  AlsaCapabilities can;
  const bool isKnown = capabilities(can).ok();
  MutexLock lock(_mutex);
  if (_grant) return _grant->rate;
  if (_wishedRate > 0) return _wishedRate;
  if (!isKnown || can.rates.empty()) return 0;
  return std::ranges::find(can.rates, kDefaultRate) != can.rates.end() ? kDefaultRate
                                                                       : can.rates.front();
}

AudioStatus AlsaDevice::setNominalRate(double rate, bool& changed) {
  changed = false;
  const double before = nominalRate();
  AlsaCapabilities can;
  if (AudioStatus status = capabilities(can); !status.ok()) return status;
  const auto match = std::ranges::find_if(
      can.rates, [rate](std::uint32_t one) { return std::abs(one - rate) <= kRateTolerance; });
  if (match == can.rates.end()) {
    return AudioStatus::failure(-EINVAL, fmt::format("the device does not run at {} Hz", rate));
  }
  {
    MutexLock lock(_mutex);
    _wishedRate = *match;
  }
  changed = std::abs(nominalRate() - before) > kRateTolerance;
  return AudioStatus::success();
}

FrameRange AlsaDevice::periodRange() {
  AlsaCapabilities can;
  if (!capabilities(can).ok()) return {};
  const std::uint32_t limit = periodLimit(can.rates.empty() ? kDefaultRate : can.rates.back());
  const std::uint32_t most = std::max(can.period.minimum, std::min(can.period.maximum, limit));
  return {can.period.minimum, most};
}

std::uint32_t AlsaDevice::periodFramesAt(double rate) {
  const FrameRange range = periodRange();
  MutexLock lock(_mutex);
  const std::uint32_t wish = std::min(_wishedPeriod, periodLimit(rate));
  return range.maximum == 0 ? wish : std::clamp(wish, range.minimum, range.maximum);
}

std::uint32_t AlsaDevice::periodFrames() {
  {
    MutexLock lock(_mutex);
    if (_grant) return _grant->periodFrames;
  }
  const double rate = nominalRate();
  return periodFramesAt(rate > 0 ? rate : kDefaultRate);
}

AudioStatus AlsaDevice::setPeriodFrames(std::uint32_t frames) {
  const FrameRange range = periodRange();
  if (frames == 0 || (range.maximum > 0 && (frames < range.minimum || frames > range.maximum))) {
    return AudioStatus::failure(-EINVAL, fmt::format("buffer of {} frames is out of range {} to {}",
                                                     frames, range.minimum, range.maximum));
  }
  MutexLock lock(_mutex);
  _wishedPeriod = frames;
  return AudioStatus::success();
}

std::uint32_t AlsaDevice::bufferFramesFor(std::uint32_t period, double rate) noexcept {
  return period * (period / rate >= kLongPeriod ? 2 : 4);
}

// When a period is rendered the device holds the rest of its buffer; the period itself is counted
// by the caller.
std::uint32_t AlsaDevice::latencyFrames() {
  {
    MutexLock lock(_mutex);
    if (_grant)
      return _grant->bufferFrames - std::min(_grant->bufferFrames, 2 * _grant->periodFrames);
  }
  const double rate = nominalRate();
  const std::uint32_t period = periodFrames();
  return bufferFramesFor(period, rate > 0 ? rate : kDefaultRate) - 2 * period;
}

// A card that is given up stays marked as ours for a moment.
bool AlsaDevice::hasHog() const {
  return _isHogged && (!_reservation || _reservation->isHeld());
}

pid_t AlsaDevice::hogOwner() const {
  AlsaPcmAddress where;
  {
    MutexLock lock(_mutex);
    if (hasHog()) return getpid();
    if (_grant) return -1;  // ours, open but not hogged
    where = _address;
  }
  if (!where.isHardware()) return -1;
  const pid_t holder = alsaHolder(where.card, where.device);
  return holder == 0 || holder == getpid() ? -1 : holder;
}

AudioStatus AlsaDevice::setHogOwner(pid_t owner) {
  if (owner == -1) {
    giveBackHog();
    return AudioStatus::success();
  }
  if (owner != getpid()) {
    return AudioStatus::failure(-EPERM, "a device can be taken for this process only");
  }
  {
    MutexLock lock(_mutex);
    if (hasHog()) return AudioStatus::success();
  }
  giveBackHog();  // what may be left of a hog that was given up
  return takeHog();
}

AudioStatus AlsaDevice::takeHog() {
  const AlsaPcmAddress where = address();
  std::unique_ptr<DeviceReservation> reservation;
  if (where.isHardware()) {
    DeviceReservation::Options options;
    options.deviceName = where.name;
    options.giveUp = [this] {
      interruptStream();
      return true;
    };
    options.lost = [this] { interruptStream(); };
    AudioStatus status;
    const auto outcome =
        DeviceReservation::acquire(where.card, std::move(options), reservation, status);
    if (outcome == DeviceReservation::Outcome::refused) return status;
  }
  bool isPlaying = false;
  {
    MutexLock lock(_mutex);
    _isHogged = true;
    _reservation = std::move(reservation);
    isPlaying = _grant.has_value();
  }
  // The proof of the pudding: can it be opened? A stream of our own that has it is proof enough.
  AudioStatus status;
  if (!isPlaying && where.isHardware() && !open(status)) {
    giveBackHog();
    return status;
  }
  return AudioStatus::success();
}

void AlsaDevice::giveBackHog() {
  std::unique_ptr<DeviceReservation> reservation;
  {
    MutexLock lock(_mutex);
    _isHogged = false;
    reservation = std::move(_reservation);
  }
  // The reservation ends without the lock: its thread may be in interruptStream() and want it.
}

// On the reservation's thread: another program gets the card.
void AlsaDevice::interruptStream() {
  std::shared_ptr<AlsaStream> stream;
  std::string name;
  {
    MutexLock lock(_mutex);
    _isHogged = false;
    stream = _stream.lock();
    name = _address.name;
  }
  log::line("⚠️ Exclusive access to {} was taken over by another program", name);
  if (stream) stream->interrupt();
}

std::optional<AlsaGrant> AlsaDevice::grant() const {
  MutexLock lock(_mutex);
  return _grant;
}

void AlsaDevice::setStream(std::weak_ptr<AlsaStream> stream, std::optional<AlsaGrant> grant) {
  MutexLock lock(_mutex);
  _stream = std::move(stream);
  _grant = grant;
  if (grant) _wishedRate = grant->rate;
}

}  // namespace velorin
