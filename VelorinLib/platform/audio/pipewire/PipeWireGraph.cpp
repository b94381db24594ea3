#include "platform/audio/pipewire/PipeWireGraph.h"

#include <algorithm>

namespace velorin {

// Bound, because only the bound node tells whether it is exclusive.
class PipeWireGraph::Stream {
 public:
  Stream(pw_registry* registry, const PipeWireGlobal& node) : _properties(node.props) {
    static const pw_node_events kEvents = [] {
      pw_node_events events{};
      events.version = PW_VERSION_NODE_EVENTS;
      events.info = [](void* self, const pw_node_info* info) {
        if (info && (info->change_mask & PW_NODE_CHANGE_MASK_PROPS)) {
          static_cast<Stream*>(self)->_properties.assign(info->props);
        }
      };
      return events;
    }();
    _proxy = static_cast<pw_proxy*>(
        pw_registry_bind(registry, node.id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0));
    if (_proxy) {
      pw_node_add_listener(reinterpret_cast<pw_node*>(_proxy), &_listener, &kEvents, this);
    }
  }
  ~Stream() {
    if (!_proxy) return;
    spa_hook_remove(&_listener);
    pw_proxy_destroy(_proxy);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  const PipeWireProperties& properties() const noexcept { return _properties; }

 private:
  pw_proxy* _proxy = nullptr;
  spa_hook _listener{};
  PipeWireProperties _properties;
};

PipeWireGraph::PipeWireGraph() = default;
PipeWireGraph::~PipeWireGraph() = default;

void PipeWireGraph::globalAdded(pw_registry* registry, const PipeWireGlobal& global) {
  const PipeWireProperties properties(global.props);
  if (global.type == PW_TYPE_INTERFACE_Client) {
    _clients[global.id] = {properties.text(PW_KEY_APP_NAME),
                           properties.number(PW_KEY_SEC_PID).value_or(-1)};
  } else if (global.type == PW_TYPE_INTERFACE_Link) {
    const auto from = properties.number(PW_KEY_LINK_OUTPUT_NODE);
    const auto to = properties.number(PW_KEY_LINK_INPUT_NODE);
    if (from && to) {
      _links[global.id] = {static_cast<std::uint32_t>(*from), static_cast<std::uint32_t>(*to)};
    }
  } else if (global.type == PW_TYPE_INTERFACE_Node &&
             properties.text(PW_KEY_MEDIA_CLASS) == "Stream/Output/Audio") {
    _streams[global.id] = std::make_unique<Stream>(registry, global);
  }
}

bool PipeWireGraph::globalRemoved(std::uint32_t id) {
  _clients.erase(id);
  _streams.erase(id);
  return _links.erase(id) > 0;
}

void PipeWireGraph::disconnected() {
  _clients.clear();
  _links.clear();
  _streams.clear();
}

std::vector<PipeWirePlayer> PipeWireGraph::playersOn(std::uint32_t sinkNodeId) const {
  std::vector<PipeWirePlayer> players;
  for (const auto& [id, link] : _links) {
    const bool isKnown = std::ranges::any_of(
        players,
        [from = link.from](const PipeWirePlayer& player) { return player.nodeId == from; });
    if (link.to != sinkNodeId || isKnown) continue;
    PipeWirePlayer player;
    player.nodeId = link.from;
    if (const auto stream = _streams.find(link.from); stream != _streams.end()) {
      const PipeWireProperties& properties = stream->second->properties();
      player.exclusive = properties.isTrue(PW_KEY_NODE_EXCLUSIVE);
      player.node = properties.text(PW_KEY_NODE_NAME);
      player.program = properties.text(PW_KEY_APP_NAME);
      if (player.program.empty()) player.program = player.node;
      const auto clientId = properties.number(PW_KEY_CLIENT_ID).value_or(-1);
      const auto client = _clients.find(static_cast<std::uint32_t>(clientId));
      if (client != _clients.end()) player.pid = client->second.pid;
    }
    players.push_back(std::move(player));
  }
  return players;
}

}  // namespace velorin
