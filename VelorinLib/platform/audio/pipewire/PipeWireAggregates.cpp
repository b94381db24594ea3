#include "platform/audio/pipewire/PipeWireAggregates.h"

#include <fmt/format.h>
#include <pipewire/impl.h>

#include <cerrno>

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kTimeout{2000};

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

PipeWireAggregates::PipeWireAggregates(std::shared_ptr<PipeWireSystem> system)
    : _system(std::move(system)) {}

PipeWireAggregates::~PipeWireAggregates() {
  PipeWireLock lock(_system->loop());
  for (const auto& [uid, module] : _modules) pw_impl_module_destroy(module);
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
  _modules[description.uid] = module;
  const bool appeared = _system->loop().waitUntil(
      PipeWireLoop::Clock::now() + kTimeout,
      [&] { return _system->deviceNamed(description.uid) != nullptr; },
      std::chrono::milliseconds(10));
  if (!appeared) {
    pw_impl_module_destroy(module);
    _modules.erase(description.uid);
    return AudioStatus::failure(-ETIMEDOUT, "the combined device did not appear");
  }
  created = _system->deviceNamed(description.uid)->id();
  return AudioStatus::success();
}

AudioStatus PipeWireAggregates::destroy(AudioDeviceID device) {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* found = _system->device(device);
  const auto module = found ? _modules.find(found->uid()) : _modules.end();
  if (module == _modules.end()) return AudioStatus::failure(-ENODEV, "not an aggregate of ours");
  const std::string uid = module->first;
  pw_impl_module_destroy(module->second);
  _modules.erase(module);
  _system->loop().waitUntil(
      PipeWireLoop::Clock::now() + kTimeout, [&] { return !_system->deviceNamed(uid); },
      std::chrono::milliseconds(10));
  return AudioStatus::success();
}

bool PipeWireAggregates::contains(const std::string& uid) const {
  return _modules.contains(uid);
}

}  // namespace velorin
