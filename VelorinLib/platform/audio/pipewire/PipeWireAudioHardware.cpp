#include "platform/audio/pipewire/PipeWireAudioHardware.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "platform/audio/pipewire/PipeWireAggregates.h"
#include "platform/audio/pipewire/PipeWireOutputUnit.h"
#include "platform/audio/pipewire/PipeWireSystem.h"

namespace velorin {
namespace {

constexpr std::uint32_t kDefaultQuantumLimit = 8192;

// Rate of the sink once a unit is started on it, or while one runs.
double rateOf(PipeWireSystem& system, const PipeWireDevice& device) {
  const PipeWireSinkUser* user = system.userOf(device);
  if (const auto cycle = user ? user->runningCycle() : std::nullopt) {
    const auto format = device.format();
    return format ? format->rate : cycle->rate;
  }
  if (const double wish = system.wishes(device.id()).rate; wish > 0) return wish;
  const PipeWireClock& clock = system.metadata().clock();
  const double graph = clock.forcedRate > 0 ? clock.forcedRate : clock.rate;
  const PipeWireOffer offer = system.offerOf(device);
  if (offer.rates.empty() || offer.offers(graph)) return graph;
  return *std::ranges::min_element(offer.rates, {},
                                   [&](double rate) { return std::abs(rate - graph); });
}

}  // namespace

std::unique_ptr<PipeWireAudioHardware> PipeWireAudioHardware::create(AudioStatus& status) {
  auto system = PipeWireSystem::create(status);
  if (!system) return nullptr;
  return std::unique_ptr<PipeWireAudioHardware>(new PipeWireAudioHardware(std::move(system)));
}

PipeWireAudioHardware::PipeWireAudioHardware(std::shared_ptr<PipeWireSystem> system)
    : _system(std::move(system)), _aggregates(std::make_unique<PipeWireAggregates>(_system)) {}

PipeWireAudioHardware::~PipeWireAudioHardware() = default;

std::optional<AlsaAddress> PipeWireAudioHardware::alsaAddress(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found) return std::nullopt;
  const PipeWireProperties& properties = found->properties();
  AlsaAddress address{.path = properties.text("api.alsa.path")};
  auto card = properties.number("api.alsa.pcm.card");
  if (!card) card = properties.number("alsa.card");
  auto pcm = properties.number("alsa.device");
  if (!pcm) pcm = properties.number("api.alsa.pcm.device");
  if (!card) return std::nullopt;
  address.card = *card;
  address.device = pcm.value_or(0);
  return address;
}

std::string PipeWireAudioHardware::backendName() const {
  return "PipeWire";
}

std::vector<AudioDeviceID> PipeWireAudioHardware::devices() const {
  PipeWireLock lock(_system->loop());
  return _system->devices();
}

AudioDeviceID PipeWireAudioHardware::defaultOutputDevice() const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->deviceNamed(_system->metadata().defaultSink());
  return found ? found->id() : kNoDevice;
}

AudioDeviceID PipeWireAudioHardware::deviceForUID(std::string_view uid) {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->deviceNamed(uid);
  return found ? found->id() : kNoDevice;
}

bool PipeWireAudioHardware::hasOutputStreams(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  return _system->device(device) != nullptr;
}

std::string PipeWireAudioHardware::deviceName(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  return found ? found->name() : std::string();
}

std::string PipeWireAudioHardware::manufacturer(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found) return {};
  std::string vendor = found->properties().text(PW_KEY_DEVICE_VENDOR_NAME);
  const PipeWireCard* card = _system->cardOf(*found);
  return vendor.empty() && card ? card->properties().text(PW_KEY_DEVICE_VENDOR_NAME) : vendor;
}

std::string PipeWireAudioHardware::deviceUID(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  return found ? found->uid() : std::string();
}

TransportType PipeWireAudioHardware::transportType(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found) return TransportType::unknown;
  if (_system->isAggregate(found->uid())) return TransportType::aggregate;
  const PipeWireCard* card = _system->cardOf(*found);
  return transportOf(found->properties(), card ? &card->properties() : nullptr);
}

std::vector<RateRange> PipeWireAudioHardware::availableSampleRates(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  std::vector<RateRange> ranges;
  if (const PipeWireDevice* found = _system->device(device)) {
    for (const double rate : _system->offerOf(*found).rates) ranges.push_back({rate, rate});
  }
  return ranges;
}

double PipeWireAudioHardware::nominalSampleRate(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  return found ? rateOf(*_system, *found) : 0;
}

AudioStatus PipeWireAudioHardware::setNominalSampleRate(AudioDeviceID device, double rate) {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found) return AudioStatus::failure(-ENODEV);
  if (!_system->offerOf(*found).offers(rate)) {
    return AudioStatus::failure(-EINVAL,
                                fmt::format("{} does not run at {:.0f} Hz", found->name(), rate));
  }
  const double before = rateOf(*_system, *found);
  _system->wishes(device).rate = rate;
  if (rateOf(*_system, *found) != before) {
    _system->listeners().notify(AudioProperty::nominalSampleRate, device);
  }
  return AudioStatus::success();
}

std::vector<PhysicalFormat> PipeWireAudioHardware::physicalFormats(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  return found ? _system->offerOf(*found).formats : std::vector<PhysicalFormat>();
}

std::optional<PhysicalFormat> PipeWireAudioHardware::currentPhysicalFormat(
    AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found) return std::nullopt;
  if (const auto format = found->format()) return format->physical;
  const PipeWireOffer offer = _system->offerOf(*found);
  if (offer.formats.empty()) return std::nullopt;
  return offer.formats.front();
}

std::uint32_t PipeWireAudioHardware::outputChannels(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  return found ? found->channels() : 0;
}

std::optional<std::uint32_t> PipeWireAudioHardware::bufferFrameSize(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found) return std::nullopt;
  const PipeWireSinkUser* user = _system->userOf(*found);
  if (const auto cycle = user ? user->runningCycle() : std::nullopt) return cycle->quantum;
  const double rate = rateOf(*_system, *found);
  return _system->metadata().clock().predictQuantum(rate, _system->wishes(device).bufferFrames,
                                                    rate);
}

std::optional<FrameRange> PipeWireAudioHardware::bufferFrameSizeRange(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found) return std::nullopt;
  const auto limit = found->properties().number("clock.quantum-limit");
  return FrameRange{
      std::max(1u, _system->metadata().clock().minimumQuantum),
      limit && *limit > 0 ? static_cast<std::uint32_t>(*limit) : kDefaultQuantumLimit};
}

AudioStatus PipeWireAudioHardware::setBufferFrameSize(AudioDeviceID device, std::uint32_t frames) {
  const auto range = bufferFrameSizeRange(device);
  if (!range) return AudioStatus::failure(-ENODEV);
  if (frames < range->minimum || frames > range->maximum) {
    return AudioStatus::failure(-EINVAL, fmt::format("{} frames are outside of {} to {}", frames,
                                                     range->minimum, range->maximum));
  }
  PipeWireLock lock(_system->loop());
  _system->wishes(device).bufferFrames = frames;
  return AudioStatus::success();
}

std::uint32_t PipeWireAudioHardware::latency(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found) return 0;
  const double rate = rateOf(*_system, *found);
  std::uint32_t longest = 0;
  for (const PipeWireDevice* sink : _system->sinksOf(*found)) {
    longest = std::max(longest, sink->latency(rate));
  }
  return longest;
}

std::uint32_t PipeWireAudioHardware::safetyOffset(AudioDeviceID) const {
  return 0;
}

pid_t PipeWireAudioHardware::hogOwner(AudioDeviceID device) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found) return -1;
  for (const PipeWirePlayer& player : _system->graph().playersOn(found->nodeId())) {
    if (player.exclusive) return player.pid;
  }
  return _system->wishes(device).exclusive ? ::getpid() : -1;
}

AudioStatus PipeWireAudioHardware::setHogOwner(AudioDeviceID device, pid_t owner) {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found) return AudioStatus::failure(-ENODEV);
  if (owner != -1) {
    for (const PipeWirePlayer& player : _system->graph().playersOn(found->nodeId())) {
      if (player.pid == ::getpid()) continue;
      return AudioStatus::failure(
          -EBUSY, fmt::format("in use by {} (process {})", player.program, player.pid));
    }
  }
  _system->wishes(device).exclusive = owner != -1;
  return AudioStatus::success();
}

bool PipeWireAudioHardware::hasVolume(AudioDeviceID device, std::uint32_t element) const {
  return volume(device, element).has_value();
}

std::optional<float> PipeWireAudioHardware::volume(AudioDeviceID device,
                                                   std::uint32_t element) const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found) return std::nullopt;
  const std::vector<float>& gains = found->volume().gains();
  if (gains.empty() || element > gains.size()) return std::nullopt;
  const float gain = element == 0 ? *std::ranges::max_element(gains) : gains[element - 1];
  return std::cbrt(gain);
}

AudioStatus PipeWireAudioHardware::setVolume(AudioDeviceID device, std::uint32_t element,
                                             float value) {
  PipeWireLock lock(_system->loop());
  PipeWireDevice* found = _system->device(device);
  if (!found) return AudioStatus::failure(-ENODEV);
  std::vector<float> gains = found->volume().gains();
  if (gains.empty() || element > gains.size()) {
    return AudioStatus::failure(-ENOTSUP, "no volume control");
  }
  if (std::isnan(value)) return AudioStatus::failure(-EINVAL, "a volume that is no number");
  const float scalar = std::clamp(value, 0.0f, 1.0f);
  const float gain = scalar * scalar * scalar;
  if (element > 0) {
    gains[element - 1] = gain;
  } else {
    gains = found->volume().scaledTo(gain);
  }
  AudioStatus status = found->setChannelGains(std::move(gains), _system->cardOf(*found));
  // The device may have gone by then, and may be another object.
  _system->loop().defer(
      [system = _system.get(), device] {
        if (PipeWireDevice* still = system->device(device)) still->settleVolume();
      },
      PipeWireVolume::kEchoTime);
  return status;
}

AudioStatus PipeWireAudioHardware::createAggregate(const AggregateDescription& description,
                                                   AudioDeviceID& created) {
  return _aggregates->create(description, created);
}

AudioStatus PipeWireAudioHardware::destroyAggregate(AudioDeviceID device) {
  return _aggregates->destroy(device);
}

AudioHardware::Listener PipeWireAudioHardware::addListener(AudioProperty property,
                                                           AudioDeviceID device,
                                                           std::uint32_t element,
                                                           SerialQueue& queue,
                                                           std::function<void()> changed) {
  if (property == AudioProperty::volume && !hasVolume(device, element)) return {};
  return _system->listeners().add(property, device, element, queue, std::move(changed));
}

std::unique_ptr<OutputUnit> PipeWireAudioHardware::createOutputUnit(AudioStatus& status) {
  status = AudioStatus::success();
  return std::make_unique<PipeWireOutputUnit>(_system);
}

}  // namespace velorin
