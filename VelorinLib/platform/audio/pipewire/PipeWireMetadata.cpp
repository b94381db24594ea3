#include "platform/audio/pipewire/PipeWireMetadata.h"

#include <pipewire/extensions/metadata.h>
#include <spa/utils/json.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <string_view>

namespace velorin {
namespace {

// The "name" of {"name":"…"}.
std::string nameIn(const char* json) {
  if (!json) return {};
  spa_json outer{};
  spa_json object{};
  spa_json_init(&outer, json, std::string_view(json).size());
  if (spa_json_enter_object(&outer, &object) <= 0) return {};
  char key[64];
  while (spa_json_get_string(&object, key, sizeof(key)) > 0) {
    const char* value = nullptr;
    const int length = spa_json_next(&object, &value);
    if (length <= 0) break;
    if (std::string_view(key) != "name") continue;
    std::string name(static_cast<std::size_t>(length) + 1, '\0');
    if (spa_json_parse_stringn(value, length, name.data(), length + 1) <= 0) return {};
    name.resize(std::char_traits<char>::length(name.c_str()));
    return name;
  }
  return {};
}

}  // namespace

std::uint32_t PipeWireClock::predictQuantum(double graphRate, std::uint32_t wanted,
                                            double streamRate) const {
  if (forcedQuantum > 0) return forcedQuantum;
  if (rate == 0 || graphRate <= 0) return quantum;
  // The server scales its limits to the rate, and rounds down to a power of two.
  const double scale = graphRate / rate;
  double frames = quantum * scale;
  if (wanted > 0 && streamRate > 0) frames = wanted * graphRate / streamRate;
  frames =
      std::clamp(std::floor(frames), std::floor(minimumQuantum * scale),
                 std::max(std::floor(minimumQuantum * scale), std::floor(maximumQuantum * scale)));
  return std::bit_floor(static_cast<std::uint32_t>(std::max(frames, 1.0)));
}

struct PipeWireMetadata::Table {
  pw_proxy* proxy = nullptr;
  spa_hook listener{};

  Table() = default;
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;
  ~Table() {
    if (!proxy) return;
    spa_hook_remove(&listener);
    pw_proxy_destroy(proxy);
  }
};

PipeWireMetadata::PipeWireMetadata(std::function<void()> defaultChanged)
    : _defaultChanged(std::move(defaultChanged)) {}
PipeWireMetadata::~PipeWireMetadata() = default;

void PipeWireMetadata::globalAdded(pw_registry* registry, const PipeWireGlobal& global) {
  const std::string_view name = global.prop(PW_KEY_METADATA_NAME);
  if (name != "default" && name != "settings") return;
  static const pw_metadata_events kEvents = [] {
    pw_metadata_events events{};
    events.version = PW_VERSION_METADATA_EVENTS;
    events.property = [](void* self, std::uint32_t subject, const char* key, const char*,
                         const char* value) {
      return subject == PW_ID_CORE ? static_cast<PipeWireMetadata*>(self)->handle(key, value) : 0;
    };
    return events;
  }();
  auto table = std::make_unique<Table>();
  table->proxy = static_cast<pw_proxy*>(
      pw_registry_bind(registry, global.id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
  if (!table->proxy) return;
  pw_metadata_add_listener(reinterpret_cast<pw_metadata*>(table->proxy), &table->listener, &kEvents,
                           this);
  _tables[global.id] = std::move(table);
}

void PipeWireMetadata::globalRemoved(std::uint32_t id) {
  _tables.erase(id);
}

void PipeWireMetadata::disconnected() {
  _tables.clear();
  _clock = {};
  setDefaultSink({});
}

int PipeWireMetadata::handle(const char* key, const char* value) {
  // A null key clears the whole table.
  const std::string_view name = key ? key : "";
  if (!key || name == "default.audio.sink") setDefaultSink(nameIn(value));
  const auto number = [&] {
    return value ? static_cast<std::uint32_t>(std::strtoul(value, nullptr, 10)) : 0;
  };
  if (name == "clock.rate") _clock.rate = number();
  if (name == "clock.quantum") _clock.quantum = number();
  if (name == "clock.min-quantum") _clock.minimumQuantum = number();
  if (name == "clock.max-quantum") _clock.maximumQuantum = number();
  if (name == "clock.force-quantum") _clock.forcedQuantum = number();
  if (name == "clock.force-rate") _clock.forcedRate = number();
  return 0;
}

void PipeWireMetadata::setDefaultSink(std::string name) {
  if (name == _defaultSink) return;
  _defaultSink = std::move(name);
  _defaultChanged();
}

}  // namespace velorin
