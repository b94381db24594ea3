#include "support/PipeWireMonitorRecorder.h"

#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

namespace velorin::test {

struct PipeWireMonitorRecorder::Impl {
  pw_thread_loop* loop = nullptr;
  pw_context* context = nullptr;
  pw_core* core = nullptr;
  pw_stream* stream = nullptr;
  spa_hook listener{};
  std::vector<std::byte> bytes;  // written by the data thread up to `used`
  std::atomic<std::size_t> used = 0;

  void process() noexcept {
    // All that is there: a buffer left behind would be a hole.
    while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream)) {
      const spa_data& data = buffer->buffer->datas[0];
      if (data.data && data.chunk->offset + data.chunk->size <= data.maxsize) {
        const std::size_t at = used.load(std::memory_order_relaxed);
        const std::size_t count = std::min<std::size_t>(data.chunk->size, bytes.size() - at);
        std::memcpy(bytes.data() + at, static_cast<std::byte*>(data.data) + data.chunk->offset,
                    count);
        used.store(at + count, std::memory_order_release);
      }
      pw_stream_queue_buffer(stream, buffer);
    }
  }

  void end() {
    if (!loop) return;
    pw_thread_loop_lock(loop);
    if (stream) pw_stream_destroy(stream);
    if (core) pw_core_disconnect(core);
    pw_thread_loop_unlock(loop);
    pw_thread_loop_stop(loop);
    if (context) pw_context_destroy(context);
    pw_thread_loop_destroy(loop);
    stream = nullptr;
    core = nullptr;
    context = nullptr;
    loop = nullptr;
  }
};

PipeWireMonitorRecorder::PipeWireMonitorRecorder() : _impl(std::make_unique<Impl>()) {
  static std::once_flag once;
  std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

PipeWireMonitorRecorder::~PipeWireMonitorRecorder() {
  _impl->end();
}

bool PipeWireMonitorRecorder::start(const std::string& sink, unsigned rate, unsigned channels,
                                    MonitorFormat format, unsigned seconds) {
  Impl& impl = *_impl;
  const unsigned sampleSize = format == MonitorFormat::int16 ? 2 : 4;
  impl.bytes.assign(std::size_t{seconds} * rate * channels * sampleSize, std::byte{});
  impl.used = 0;
  impl.listener = {};
  impl.loop = pw_thread_loop_new("recorder", nullptr);
  pw_thread_loop_start(impl.loop);
  pw_thread_loop_lock(impl.loop);

  pw_properties* properties = pw_properties_new(
      PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_NODE_NAME, "recorder",
      PW_KEY_STREAM_CAPTURE_SINK, "true", PW_KEY_STREAM_DONT_REMIX, "true", nullptr);
  if (!sink.empty()) pw_properties_set(properties, PW_KEY_TARGET_OBJECT, sink.c_str());
  pw_properties_setf(properties, PW_KEY_NODE_RATE, "1/%u", rate);
  pw_properties_setf(properties, PW_KEY_NODE_FORCE_RATE, "%u", rate);
  static const pw_stream_events kEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.process = [](void* self) { static_cast<Impl*>(self)->process(); };
    return events;
  }();
  // A real-time data thread, as the player's: a recorder that is late would lose samples itself.
  impl.context =
      pw_context_new(pw_thread_loop_get_loop(impl.loop),
                     pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0);
  if (impl.context) impl.core = pw_context_connect(impl.context, nullptr, 0);
  if (impl.core) {
    impl.stream = pw_stream_new(impl.core, "recorder", properties);
  } else {
    pw_properties_free(properties);
  }
  if (impl.stream) pw_stream_add_listener(impl.stream, &impl.listener, &kEvents, &impl);
  spa_audio_info_raw info{};
  info.format = format == MonitorFormat::int16   ? SPA_AUDIO_FORMAT_S16
                : format == MonitorFormat::int32 ? SPA_AUDIO_FORMAT_S32
                                                 : SPA_AUDIO_FORMAT_F32;
  info.rate = rate;
  info.channels = channels;
  constexpr std::uint32_t kPositions[] = {
      SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_FC, SPA_AUDIO_CHANNEL_LFE,
      SPA_AUDIO_CHANNEL_RL, SPA_AUDIO_CHANNEL_RR, SPA_AUDIO_CHANNEL_SL, SPA_AUDIO_CHANNEL_SR};
  for (unsigned i = 0; i < channels; ++i) {
    info.position[i] = channels <= 8 ? kPositions[i] : SPA_AUDIO_CHANNEL_AUX0 + i;
  }
  if (channels == 1) info.position[0] = SPA_AUDIO_CHANNEL_MONO;
  std::byte pod[1024];
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, pod, sizeof(pod));
  const spa_pod* params[] = {spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info)};
  const auto flags =
      static_cast<pw_stream_flags>((sink.empty() ? 0 : PW_STREAM_FLAG_AUTOCONNECT) |
                                   PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS);
  const int result =
      impl.stream ? pw_stream_connect(impl.stream, PW_DIRECTION_INPUT, PW_ID_ANY, flags, params, 1)
                  : -1;
  pw_thread_loop_unlock(impl.loop);
  if (sink.empty()) return result >= 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (result >= 0 && size() == 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return size() > 0;
}

std::size_t PipeWireMonitorRecorder::size() const {
  return _impl->used.load(std::memory_order_acquire);
}

std::vector<std::byte> PipeWireMonitorRecorder::stop() {
  _impl->end();
  std::vector<std::byte> bytes = std::move(_impl->bytes);
  bytes.resize(_impl->used);
  _impl->used = 0;
  return bytes;
}

}  // namespace velorin::test
