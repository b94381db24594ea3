#include "platform/audio/pipewire/PipeWireConnection.h"

#include <algorithm>
#include <cerrno>

#include "foundation/Log.h"

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kFirstRetry{100};
constexpr std::chrono::milliseconds kLongestRetry{2000};

}  // namespace

std::string_view PipeWireGlobal::prop(const char* key) const noexcept {
  const char* value = props ? spa_dict_lookup(props, key) : nullptr;
  return value ? value : std::string_view();
}

const pw_core_events PipeWireConnection::kCoreEvents = [] {
  pw_core_events events{};
  events.version = PW_VERSION_CORE_EVENTS;
  events.done = [](void* self, std::uint32_t id, int sequence) {
    if (id == PW_ID_CORE) static_cast<PipeWireConnection*>(self)->handleDone(sequence);
  };
  events.error = [](void* self, std::uint32_t id, int, int result, const char*) {
    static_cast<PipeWireConnection*>(self)->handleError(id, result);
  };
  return events;
}();

const pw_registry_events PipeWireConnection::kRegistryEvents = [] {
  pw_registry_events events{};
  events.version = PW_VERSION_REGISTRY_EVENTS;
  events.global = [](void* self, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                     const spa_dict* props) {
    static_cast<PipeWireConnection*>(self)->_globals.globalAdded({id, type, props});
  };
  events.global_remove = [](void* self, std::uint32_t id) {
    static_cast<PipeWireConnection*>(self)->_globals.globalRemoved(id);
  };
  return events;
}();

PipeWireConnection::PipeWireConnection(PipeWireLoop& loop, PipeWireGlobals& globals)
    : _loop(loop), _globals(globals), _backOff(kFirstRetry) {}

PipeWireConnection::~PipeWireConnection() = default;

int PipeWireConnection::connect() {
  _core = pw_context_connect(_loop.context(),
                             pw_properties_new(PW_KEY_APP_NAME, "Velorin", nullptr), 0);
  if (!_core) return errno > 0 ? -errno : -ECONNREFUSED;
  ++_generation;
  pw_core_add_listener(_core, &_coreListener, &kCoreEvents, this);
  _registry = pw_core_get_registry(_core, PW_VERSION_REGISTRY, 0);
  pw_registry_add_listener(_registry, &_registryListener, &kRegistryEvents, this);
  // The first answer ends the list of globals, the second the details that were then asked for.
  whenAnswered([this] {
    whenAnswered([this] {
      _ready = true;
      _backOff = kFirstRetry;
      _globals.connected();
      _loop.signal();
    });
  });
  return 0;
}

void PipeWireConnection::close() {
  _closed = true;
  disconnect();
}

void PipeWireConnection::whenAnswered(PipeWireLoop::Task task) {
  if (_core) _waiting[pw_core_sync(_core, PW_ID_CORE, 0)] = std::move(task);
}

void PipeWireConnection::handleDone(int sequence) {
  const auto found = _waiting.find(sequence);
  if (found == _waiting.end()) return;
  const PipeWireLoop::Task task = std::move(found->second);
  _waiting.erase(found);
  task();
}

void PipeWireConnection::handleError(std::uint32_t id, int result) {
  // Errors of single objects reach their own listeners.
  if (id != PW_ID_CORE || result != -EPIPE) return;
  // Inside of its own callback the core must not be destroyed.
  _loop.defer([this, generation = _generation] {
    if (_closed || generation != _generation || !_core) return;
    if (_ready) log::line("⚠️ The sound server has ended; waiting for it to come back");
    disconnect();
    retryLater();
  });
}

void PipeWireConnection::disconnect() {
  if (!_core) return;
  _ready = false;
  _waiting.clear();
  _globals.disconnected();
  spa_hook_remove(&_registryListener);
  spa_hook_remove(&_coreListener);
  pw_proxy_destroy(reinterpret_cast<pw_proxy*>(_registry));
  pw_core_disconnect(_core);
  _registry = nullptr;
  _core = nullptr;
  _loop.signal();
}

void PipeWireConnection::retryLater() {
  _loop.defer(
      [this] {
        if (_closed || _core) return;
        if (connect() < 0) retryLater();
      },
      _backOff);
  _backOff = std::min(_backOff * 2, kLongestRetry);
}

}  // namespace velorin
