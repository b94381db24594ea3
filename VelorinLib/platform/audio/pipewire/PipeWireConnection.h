// The connection to the server: made, watched, and made again when the server comes back.
#pragma once

#include <pipewire/pipewire.h>

#include <chrono>
#include <map>

#include "platform/audio/pipewire/PipeWireLoop.h"

namespace velorin {

/// An object that the server announces.
struct PipeWireGlobal {
  std::uint32_t id = 0;
  std::string_view type;
  const spa_dict* props = nullptr;  ///< valid during the call only

  /// The value of a property, empty when absent.
  std::string_view prop(const char* key) const noexcept;
};

/// Hears what the server announces; called on the loop's thread with its lock held.
class PipeWireGlobals {
 public:
  virtual ~PipeWireGlobals() = default;
  virtual void globalAdded(const PipeWireGlobal& global) = 0;
  virtual void globalRemoved(std::uint32_t id) = 0;
  /// All that was there at connecting was announced, and its first details arrived.
  virtual void connected() = 0;
  /// The server is gone. Every proxy and stream on the connection must be destroyed now.
  virtual void disconnected() = 0;
};

/// All operations with the loop's lock held. Destroyed after the loop was stopped.
class PipeWireConnection {
 public:
  PipeWireConnection(PipeWireLoop& loop, PipeWireGlobals& globals);
  ~PipeWireConnection();
  PipeWireConnection(const PipeWireConnection&) = delete;
  PipeWireConnection& operator=(const PipeWireConnection&) = delete;

  /// Begins to connect; 0 or a negative errno. Only this first attempt is not repeated by itself:
  /// once connected, a lost server is looked for again in the background.
  int connect();
  /// Disconnects for good.
  void close();

  /// True between connected() and disconnected().
  bool isReady() const noexcept { return _ready; }
  pw_core* core() const noexcept { return _core; }
  pw_registry* registry() const noexcept { return _registry; }

  /// Runs the task when the server has answered all that was sent before; never when the
  /// connection ends first.
  void whenAnswered(PipeWireLoop::Task task);

 private:
  void handleDone(int sequence);
  void handleError(std::uint32_t id, int result);
  void disconnect();
  void retryLater();

  static const pw_core_events kCoreEvents;
  static const pw_registry_events kRegistryEvents;

  PipeWireLoop& _loop;
  PipeWireGlobals& _globals;
  pw_core* _core = nullptr;
  pw_registry* _registry = nullptr;
  spa_hook _coreListener{};
  spa_hook _registryListener{};
  std::map<int, PipeWireLoop::Task> _waiting;
  std::chrono::milliseconds _backOff;
  unsigned _generation = 0;  ///< counts connections, so that a late task knows that it is late
  bool _ready = false;
  bool _closed = false;
};

}  // namespace velorin
