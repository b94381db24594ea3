#include "platform/audio/pipewire/PipeWireAggregates.h"

#include <fmt/format.h>
#include <pipewire/impl.h>

#include <algorithm>
#include <cerrno>
#include <functional>

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kTimeout{2000};
constexpr std::chrono::milliseconds kPoll{10};

// The text as a quoted string of the server's JSON.
std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    if (static_cast<unsigned char>(c) >= 0x20) result += c;
  }
  return result + '"';
}

// isMono: for the sinks that get both channels mixed; all others get them as they are.
std::string moduleArguments(const AudioHardware::AggregateDescription& description,
                            const std::function<bool(const std::string&)>& isMono) {
  std::string rules;
  for (const std::string& uid : description.subDeviceUIDs) {
    rules += fmt::format(
        "{{ matches = [ {{ node.name = {} media.class = \"Audio/Sink\" }} ] "
        "actions = {{ create-stream = {{ {} }} }} }} ",
        quoted(uid), isMono(uid) ? "" : "stream.dont-remix = true");
  }
  return fmt::format(
      "{{ combine.mode = sink node.name = {} node.description = {} "
      // Not a sink for others: neither listed, nor ever the default.
      "combine.props = {{ audio.position = [ FL FR ] media.class = Audio/Sink/Internal }} "
      "stream.props = {{ node.dont-reconnect = true state.restore-props = false }} "
      "stream.rules = [ {} ] }}",
      quoted(description.uid), quoted(description.name), rules);
}

}  // namespace

// A loaded module. It ends by itself when its connection to the server does.
class PipeWireAggregates::Module {
 public:
  explicit Module(pw_impl_module* module) : _module(module) {
    static const pw_impl_module_events kEvents = [] {
      pw_impl_module_events events{};
      events.version = PW_VERSION_IMPL_MODULE_EVENTS;
      events.destroy = [](void* self) { static_cast<Module*>(self)->ended(); };
      return events;
    }();
    pw_impl_module_add_listener(_module, &_listener, &kEvents, this);
  }
  ~Module() {
    pw_impl_module* module = _module;
    if (!module) return;
    ended();
    pw_impl_module_destroy(module);
  }
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

 private:
  void ended() {
    spa_hook_remove(&_listener);
    _module = nullptr;
  }

  pw_impl_module* _module;
  spa_hook _listener{};
};

PipeWireAggregates::PipeWireAggregates(std::shared_ptr<PipeWireSystem> system)
    : _system(std::move(system)) {
  PipeWireLock lock(_system->loop());
  _system->setPartsGone([this] { endSilentOnes(); });
}

PipeWireAggregates::~PipeWireAggregates() {
  PipeWireLock lock(_system->loop());
  _system->setPartsGone({});
  _modules.clear();
}

AudioStatus PipeWireAggregates::create(const AudioHardware::AggregateDescription& description,
                                       AudioDeviceID& created) {
  created = kNoDevice;
  PipeWireLock lock(_system->loop());
  if (description.subDeviceUIDs.empty()) {
    return AudioStatus::failure(-EINVAL, "an aggregate of no devices");
  }
  for (const std::string& uid : description.subDeviceUIDs) {
    if (!_system->deviceNamed(uid)) return AudioStatus::failure(-ENODEV, "no device " + uid);
  }
  if (_system->deviceNamed(description.uid)) return AudioStatus::failure(-EEXIST);
  const auto isMono = [this](const std::string& uid) {
    const PipeWireDevice* sink = _system->deviceNamed(uid);
    return sink && sink->channels() == 1;
  };
  pw_impl_module* module =
      pw_context_load_module(_system->loop().context(), "libpipewire-module-combine-stream",
                             moduleArguments(description, isMono).c_str(), nullptr);
  if (!module) {
    return AudioStatus::failure(-ENOTSUP, "PipeWire's combine-stream module is not available");
  }
  _modules[description.uid] = std::make_unique<Module>(module);
  _system->setAggregate(description.uid, description.subDeviceUIDs);
  _beingMade = description.uid;
  AudioStatus status = waitForLinks(description);
  _beingMade.clear();
  const PipeWireDevice* device = _system->deviceNamed(description.uid);
  if (status.ok() && device) {
    created = device->id();
    return status;
  }
  forget(description.uid);
  return status.ok() ? AudioStatus::failure(-ENODEV, "the combined device has gone") : status;
}

AudioStatus PipeWireAggregates::waitForLinks(
    const AudioHardware::AggregateDescription& description) {
  const auto deadline = PipeWireLoop::Clock::now() + kTimeout;
  for (const std::string& uid : description.subDeviceUIDs) {
    const auto isReady = [&] { return isLinked(description.uid, uid); };
    if (_system->loop().waitUntil(deadline, isReady, kPoll)) continue;
    const PipeWireDevice* sink = _system->deviceNamed(uid);
    if (!sink) return AudioStatus::failure(-ENODEV, fmt::format("{} has gone", uid));
    for (const PipeWirePlayer& player : _system->graph().playersOn(sink->nodeId())) {
      if (!player.exclusive) continue;
      return AudioStatus::failure(-EBUSY, fmt::format("{} is held by {} (process {})", sink->name(),
                                                      player.program, player.pid));
    }
    return AudioStatus::failure(-ETIMEDOUT, fmt::format("{} was not connected", sink->name()));
  }
  return AudioStatus::success();
}

bool PipeWireAggregates::isLinked(const std::string& uid, const std::string& subDeviceUID) const {
  const PipeWireDevice* sink = _system->deviceNamed(subDeviceUID);
  if (!_system->deviceNamed(uid) || !sink) return false;
  const std::string stream = fmt::format("output.{}_{}", uid, subDeviceUID);
  return std::ranges::any_of(_system->graph().playersOn(sink->nodeId()),
                             [&](const PipeWirePlayer& player) { return player.node == stream; });
}

AudioStatus PipeWireAggregates::destroy(AudioDeviceID device) {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  if (!found || !_modules.contains(found->uid())) {
    return AudioStatus::failure(-ENODEV, "not an aggregate of ours");
  }
  const std::string uid = found->uid();
  forget(uid);
  _system->loop().waitUntil(
      PipeWireLoop::Clock::now() + kTimeout, [&] { return !_system->deviceNamed(uid); }, kPoll);
  return AudioStatus::success();
}

void PipeWireAggregates::forget(const std::string& uid) {
  _modules.erase(uid);
  _system->setAggregate(uid, {});
}

void PipeWireAggregates::endSilentOnes() {
  for (auto module = _modules.begin(); module != _modules.end();) {
    const PipeWireDevice* device = _system->deviceNamed(module->first);
    const auto isHeard = [&](const PipeWireDevice* sink) {
      return isLinked(module->first, sink->uid());
    };
    // It stays a device of ours until the server has taken it back. One that is being made has no
    // links yet.
    const bool isSilent = device && device->uid() != _beingMade &&
                          std::ranges::none_of(_system->sinksOf(*device), isHeard);
    module = isSilent ? _modules.erase(module) : std::next(module);
  }
}

}  // namespace velorin
