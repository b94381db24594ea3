#include "platform/audio/pipewire/PipeWireSystem.h"

#include <pipewire/extensions/metadata.h>

#include <algorithm>
#include <cerrno>

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kAnswerTimeout{1000};
constexpr std::chrono::milliseconds kRelinkTime{300};

}  // namespace

std::shared_ptr<PipeWireSystem> PipeWireSystem::create(AudioStatus& status) {
  auto loop = PipeWireLoop::create(status);
  if (!loop) return nullptr;
  const std::shared_ptr<PipeWireSystem> system(new PipeWireSystem(std::move(loop)));
  PipeWireLock lock(system->loop());
  if (const int result = system->_connection.connect(); result < 0) {
    status = AudioStatus::failure(result, "no PipeWire server is running");
    return nullptr;
  }
  const bool isReady = system->loop().waitUntil(PipeWireLoop::Clock::now() + kAnswerTimeout,
                                                [&] { return system->_connection.isReady(); });
  if (!isReady) {
    status = AudioStatus::failure(-ETIMEDOUT, "the PipeWire server does not answer");
    return nullptr;
  }
  return system;
}

PipeWireSystem::PipeWireSystem(std::unique_ptr<PipeWireLoop> loop)
    : _loop(std::move(loop)),
      _connection(*_loop, *this),
      _metadata([this] { _listeners.notify(AudioProperty::defaultOutput); }) {}

PipeWireSystem::~PipeWireSystem() {
  {
    PipeWireLock lock(*_loop);
    _connection.close();
  }
  _loop->stop();
}

std::vector<AudioDeviceID> PipeWireSystem::devices() const {
  std::vector<AudioDeviceID> ids;
  for (const auto& [node, sink] : _sinks) {
    if (sink.announced) ids.push_back(sink.device->id());
  }
  std::ranges::sort(ids);
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

PipeWireDevice* PipeWireSystem::device(AudioDeviceID id) const {
  // A sink may be made anew before the server has withdrawn the old one: take the youngest.
  const Sink* found = nullptr;
  for (const auto& [node, sink] : _sinks) {
    if (!sink.announced || sink.device->id() != id) continue;
    if (!found || sink.arrival > found->arrival) found = &sink;
  }
  return found ? found->device.get() : nullptr;
}

PipeWireDevice* PipeWireSystem::deviceNamed(std::string_view uid) const {
  const auto id = _idsByUID.find(uid);
  return id == _idsByUID.end() ? nullptr : device(id->second);
}

PipeWireCard* PipeWireSystem::cardOf(const PipeWireDevice& device) const {
  const auto id = device.properties().number(PW_KEY_DEVICE_ID);
  if (!id) return nullptr;
  const auto card = _cards.find(static_cast<std::uint32_t>(*id));
  return card == _cards.end() ? nullptr : card->second.get();
}

void PipeWireSystem::setAggregate(const std::string& uid, std::vector<std::string> subDeviceUIDs) {
  if (subDeviceUIDs.empty()) {
    _aggregates.erase(uid);
  } else {
    _aggregates[uid] = std::move(subDeviceUIDs);
  }
}

std::vector<const PipeWireDevice*> PipeWireSystem::sinksOf(const PipeWireDevice& device) const {
  const auto aggregate = _aggregates.find(device.uid());
  if (aggregate == _aggregates.end()) return {&device};
  std::vector<const PipeWireDevice*> sinks;
  for (const std::string& uid : aggregate->second) {
    if (const PipeWireDevice* sink = deviceNamed(uid)) sinks.push_back(sink);
  }
  return sinks;
}

PipeWireOffer PipeWireSystem::offerOf(const PipeWireDevice& device) const {
  PipeWireOffer offer = device.offer();
  if (!isAggregate(device.uid())) return offer;
  for (const PipeWireDevice* sink : sinksOf(device)) restrictOffer(offer, sink->offer());
  return offer;
}

void PipeWireSystem::addUser(PipeWireSinkUser* user) {
  _users.push_back(user);
}

void PipeWireSystem::removeUser(PipeWireSinkUser* user) {
  std::erase(_users, user);
}

PipeWireSinkUser* PipeWireSystem::userOf(const PipeWireDevice& device) const {
  const auto user = std::ranges::find(_users, device.nodeId(), &PipeWireSinkUser::sinkNodeId);
  return user == _users.end() ? nullptr : *user;
}

void PipeWireSystem::globalAdded(const PipeWireGlobal& global) {
  _graph.globalAdded(_connection.registry(), global);
  if (global.type == PW_TYPE_INTERFACE_Metadata) {
    _metadata.globalAdded(_connection.registry(), global);
  } else if (global.type == PW_TYPE_INTERFACE_Device) {
    _cards[global.id] = std::make_unique<PipeWireCard>(_connection.registry(), global);
  } else if (global.type == PW_TYPE_INTERFACE_Node) {
    const std::string_view mediaClass = global.prop(PW_KEY_MEDIA_CLASS);
    const bool isSink = mediaClass == "Audio/Sink" || mediaClass == "Audio/Duplex";
    if (isSink || isAggregate(global.prop(PW_KEY_NODE_NAME))) addSink(global);
  }
}

void PipeWireSystem::addSink(const PipeWireGlobal& global) {
  const std::string uid(global.prop(PW_KEY_NODE_NAME));
  if (uid.empty()) return;
  const auto next = static_cast<AudioDeviceID>(_idsByUID.size() + 1);
  const AudioDeviceID id = _idsByUID.try_emplace(uid, next).first->second;
  PipeWireDevice::Changes changes;
  changes.volume = [this, id] {
    for (const std::uint32_t element : {0u, 1u, 2u}) {
      _listeners.notify(AudioProperty::volume, id, element);
    }
  };
  changes.name = [this, node = global.id] {
    if (_sinks[node].announced) _listeners.notify(AudioProperty::devices);
  };
  Sink& added = _sinks[global.id];
  added.device = std::make_unique<PipeWireDevice>(id, _connection.registry(), global, changes);
  added.arrival = ++_arrivals;
  if (!_connection.isReady()) return;  // connected() announces it
  _connection.whenAnswered([this, node = global.id] {
    const auto sink = _sinks.find(node);
    if (sink == _sinks.end() || sink->second.announced) return;
    sink->second.announced = true;
    _listeners.notify(AudioProperty::devices);
    if (sink->second.device->uid() == _metadata.defaultSink()) {
      _listeners.notify(AudioProperty::defaultOutput);
    }
  });
}

void PipeWireSystem::globalRemoved(std::uint32_t id) {
  if (_graph.globalRemoved(id)) checkLinksSoon();
  _metadata.globalRemoved(id);
  _cards.erase(id);
  const auto sink = _sinks.find(id);
  if (sink == _sinks.end()) return;
  _sinks.erase(sink);
  loseUsersOf(id);
  _listeners.notify(AudioProperty::devices);
  // Not from within the server's call, and only if somebody still wants to know.
  _loop->defer([this] {
    if (_partsGone) _partsGone();
  });
}

// The links between a player and a sink are the session manager's: they go when it is restarted,
// and it does not take up again what it finds. Moving a stream also ends links, for a moment.
void PipeWireSystem::checkLinksSoon() {
  if (std::exchange(_checksLinks, true)) return;
  _loop->defer(
      [this] {
        _checksLinks = false;
        for (PipeWireSinkUser* user : _users) user->linksGone();
        if (_partsGone) _partsGone();
      },
      kRelinkTime);
}

void PipeWireSystem::loseUsersOf(std::uint32_t sinkNodeId) {
  for (PipeWireSinkUser* user : _users) {
    if (user->sinkNodeId() == sinkNodeId) user->sinkLost();
  }
}

void PipeWireSystem::connected() {
  for (auto& [node, sink] : _sinks) sink.announced = true;
  _listeners.notify(AudioProperty::devices);
  _listeners.notify(AudioProperty::defaultOutput);
}

void PipeWireSystem::disconnected() {
  for (PipeWireSinkUser* user : _users) user->sinkLost();
  const bool hadSinks = !_sinks.empty();
  _sinks.clear();
  _cards.clear();
  _graph.disconnected();
  _metadata.disconnected();
  if (hadSinks) _listeners.notify(AudioProperty::devices);
}

}  // namespace velorin
