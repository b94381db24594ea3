// A playback stream on one sink: negotiation and state. The sound itself is the renderer's.
#pragma once

#include <pipewire/pipewire.h>

#include <functional>
#include <memory>
#include <string>

#include "platform/audio/pipewire/PipeWireLoop.h"
#include "platform/audio/pipewire/PipeWireParams.h"
#include "platform/audio/pipewire/PipeWireRenderer.h"

namespace velorin {

struct PipeWireStreamSetup {
  std::string sinkSerial;  ///< object.serial of the sink, or its node.name
  StreamFormat format;
  std::vector<std::uint32_t> positions;
  std::uint32_t graphRate = 0;      ///< Hz to force the graph to; 0 leaves it alone
  std::uint32_t latencyFrames = 0;  ///< wish for the quantum, in frames of the format; 0 for none
  bool exclusive = false;
  bool remix = false;  ///< let the server fold the channels into those of the sink
};

/// All operations with the loop's lock held, and none from within `changed`.
class PipeWireStream {
 public:
  /// changed: called on the loop's thread with the lock held after a change of state, and after
  /// the renderer had news.
  PipeWireStream(PipeWireLoop& loop, PipeWireRenderer& renderer, std::function<void()> changed);
  /// After this no process call runs.
  ~PipeWireStream();
  PipeWireStream(const PipeWireStream&) = delete;
  PipeWireStream& operator=(const PipeWireStream&) = delete;

  /// Announces the stream, inactive, to the server. 0 or a negative errno.
  int connect(pw_core* core, const PipeWireStreamSetup& setup);
  void setActive(bool active) { pw_stream_set_active(_stream, active); }

  pw_stream_state state() const noexcept { return _state; }
  /// Why the state is PW_STREAM_STATE_ERROR.
  const std::string& error() const noexcept { return _error; }
  std::uint32_t nodeId() const { return pw_stream_get_node_id(_stream); }
  /// The gain of the stream itself, which a session manager may have restored.
  const PipeWireGains& gains() const noexcept { return _gains; }

 private:
  void handleControl(std::uint32_t id, const pw_stream_control& control);
  void handlePosition(void* area, std::uint32_t size);
  static const pw_stream_events kEvents;

  PipeWireLoop& _loop;
  PipeWireRenderer& _renderer;
  const std::function<void()> _changed;
  pw_stream* _stream = nullptr;
  spa_hook _listener{};
  spa_source* _news = nullptr;
  pw_stream_state _state = PW_STREAM_STATE_UNCONNECTED;
  bool _ending = false;
  std::string _error;
  PipeWireGains _gains;
};

}  // namespace velorin
