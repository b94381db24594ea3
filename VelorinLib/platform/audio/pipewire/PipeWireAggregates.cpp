#include "platform/audio/pipewire/PipeWireAggregates.h"

#include <fmt/format.h>
#include <pipewire/impl.h>

#include <cerrno>

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

std::string moduleArguments(const AudioHardware::AggregateDescription& description) {
  std::string rules;
  for (const std::string& uid : description.subDeviceUIDs) {
    rules += fmt::format(
        "{{ matches = [ {{ node.name = {} media.class = \"Audio/Sink\" }} ] "
        "actions = {{ create-stream = {{ }} }} }} ",
        quoted(uid));
  }
  return fmt::format(
      "{{ combine.mode = sink node.name = {} node.description = {} "
      "combine.props = {{ audio.position = [ FL FR ] }} "
      "stream.props = {{ stream.dont-remix = true node.dont-reconnect = true }} "
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
    : _system(std::move(system)) {}

PipeWireAggregates::~PipeWireAggregates() {
  PipeWireLock lock(_system->loop());
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
  pw_impl_module* module =
      pw_context_load_module(_system->loop().context(), "libpipewire-module-combine-stream",
                             moduleArguments(description).c_str(), nullptr);
  if (!module) {
    return AudioStatus::failure(-ENOTSUP, "PipeWire's combine-stream module is not available");
  }
  _modules[description.uid] = std::make_unique<Module>(module);
  _system->setAggregate(description.uid, true);
  const bool appeared = _system->loop().waitUntil(
      PipeWireLoop::Clock::now() + kTimeout,
      [&] { return _system->deviceNamed(description.uid) != nullptr; }, kPoll);
  if (!appeared) {
    forget(description.uid);
    return AudioStatus::failure(-ETIMEDOUT, "the combined device did not appear");
  }
  created = _system->deviceNamed(description.uid)->id();
  return AudioStatus::success();
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
  _system->setAggregate(uid, false);
}

}  // namespace velorin
