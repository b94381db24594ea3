#include "platform/audio/pipewire/PipeWireStream.h"

#include <fmt/format.h>
#include <spa/param/props.h>

#include <cerrno>
#include <cmath>

namespace velorin {
namespace {

pw_properties* streamProperties(const PipeWireStreamSetup& setup) {
  const auto rate = static_cast<std::uint32_t>(std::lround(setup.format.sampleRate));
  pw_properties* properties = pw_properties_new(
      PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback", PW_KEY_MEDIA_ROLE, "Music",
      PW_KEY_APP_NAME, "Velorin", PW_KEY_APP_ICON_NAME, "velorin", PW_KEY_NODE_NAME, "Velorin",
      // Without this the stream would silently move to another sink when its own goes.
      "node.dont-reconnect", "true",
      // A volume that the session manager remembers would spoil the samples.
      "state.restore-props", "false", "state.restore-target", "false",
      // For where a conversion cannot be avoided.
      "resample.quality", "10", "channelmix.upmix", "false", nullptr);
  pw_properties_set(properties, PW_KEY_TARGET_OBJECT, setup.sinkSerial.c_str());
  if (!setup.remix) pw_properties_set(properties, PW_KEY_STREAM_DONT_REMIX, "true");
  if (setup.latencyFrames > 0) {
    pw_properties_setf(properties, PW_KEY_NODE_LATENCY, "%u/%u", setup.latencyFrames, rate);
  }
  if (setup.graphRate > 0) {
    // node.rate alone obeys the server's list of allowed rates, which by default has only one.
    pw_properties_setf(properties, PW_KEY_NODE_RATE, "1/%u", setup.graphRate);
    pw_properties_setf(properties, PW_KEY_NODE_FORCE_RATE, "%u", setup.graphRate);
  }
  return properties;
}

}  // namespace

const pw_stream_events PipeWireStream::kEvents = [] {
  pw_stream_events events{};
  events.version = PW_VERSION_STREAM_EVENTS;
  events.state_changed = [](void* data, pw_stream_state, pw_stream_state state, const char* error) {
    auto& self = *static_cast<PipeWireStream*>(data);
    self._state = state;
    if (error) self._error = error;
    self._loop.signal();
    if (!self._ending) self._changed();
  };
  events.control_info = [](void* self, std::uint32_t id, const pw_stream_control* control) {
    if (control) static_cast<PipeWireStream*>(self)->handleControl(id, *control);
  };
  events.io_changed = [](void* self, std::uint32_t id, void* area, std::uint32_t size) {
    if (id == SPA_IO_Position) static_cast<PipeWireStream*>(self)->handlePosition(area, size);
  };
  events.process = [](void* data) {
    auto& self = *static_cast<PipeWireStream*>(data);
    self._renderer.process(self._stream);
  };
  return events;
}();

PipeWireStream::PipeWireStream(PipeWireLoop& loop, PipeWireRenderer& renderer,
                               std::function<void()> changed)
    : _loop(loop), _renderer(renderer), _changed(std::move(changed)) {
  _news = pw_loop_add_event(
      _loop.loop(),
      [](void* self, std::uint64_t) { static_cast<PipeWireStream*>(self)->_changed(); }, this);
  _renderer.setSignal(_loop.loop(), _news);
}

PipeWireStream::~PipeWireStream() {
  _ending = true;
  if (_stream) {
    // Disconnecting takes the node off the data thread; the listener must still be there for a
    // process call that is under way.
    pw_stream_disconnect(_stream);
    spa_hook_remove(&_listener);
    pw_stream_destroy(_stream);
  }
  if (_news) pw_loop_destroy_source(_loop.loop(), _news);
}

int PipeWireStream::connect(pw_core* core, const PipeWireStreamSetup& setup) {
  _stream = pw_stream_new(core, "Velorin", streamProperties(setup));
  if (!_stream) return -errno;
  pw_stream_add_listener(_stream, &_listener, &kEvents, this);
  PipeWirePodBuffer buffer;
  const spa_pod* params[] = {buildStreamFormat(buffer, setup.format, setup.positions)};
  // Without RT_PROCESS the callbacks would run on the main loop, and lose blocks under load.
  int flags = PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_INACTIVE | PW_STREAM_FLAG_MAP_BUFFERS |
              PW_STREAM_FLAG_RT_PROCESS;
  if (setup.exclusive) flags |= PW_STREAM_FLAG_EXCLUSIVE;
  return pw_stream_connect(_stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
                           static_cast<pw_stream_flags>(flags), params, 1);
}

void PipeWireStream::handleControl(std::uint32_t id, const pw_stream_control& control) {
  const std::vector<float> values(control.values, control.values + control.n_values);
  if (id == SPA_PROP_channelVolumes) _gains.channels = values;
  if (id == SPA_PROP_softVolumes) _gains.soft = values;
  if (id == SPA_PROP_volume && !values.empty()) _gains.master = values[0];
  if (id == SPA_PROP_mute && !values.empty()) _gains.muted = values[0] != 0;
}

void PipeWireStream::handlePosition(void* area, std::uint32_t size) {
  const auto* position =
      size >= sizeof(spa_io_position) ? static_cast<const spa_io_position*>(area) : nullptr;
  struct Change {
    PipeWireRenderer* renderer;
    const spa_io_position* position;
  };
  const Change change{&_renderer, position};
  // Handed over on the data thread, and waited for: the old area is unmapped right after this.
  pw_data_loop_invoke(
      pw_context_get_data_loop(_loop.context()),
      [](spa_loop*, bool, std::uint32_t, const void* data, std::size_t, void*) {
        const auto* handed = static_cast<const Change*>(data);
        handed->renderer->setPosition(handed->position);
        return 0;
      },
      1, &change, sizeof(change), true, nullptr);
}

}  // namespace velorin
