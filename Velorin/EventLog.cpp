#include "EventLog.h"

#include <string>
#include <vector>

#include "JsonOutput.h"
#include "records/Events.h"

namespace velorin {
namespace {

void describe(JsonObject& line, const TrackDidChange& event) {
  line.add("title", event.track.title)
      .add("path", event.track.filePath)
      .add("sourceBitDepth", event.sourceBitDepth);
  if (event.join == Join::gapless) line.add("gapless", true);
  if (event.join == Join::crossfade) line.add("crossfade", true);
}

void describe(JsonObject& line, const PlaybackStateDidChange& event) {
  line.add("state", nameOf(event.state));
}

void describe(JsonObject&, const PlaybackProgressDidUpdate&) {}

void describe(JsonObject& line, const PlayNextTrack& event) {
  line.add("autoAdvance", event.autoAdvance);
}

void describe(JsonObject& line, const PlaybackFileUnavailable& event) {
  line.add("title", event.title).add("path", event.path);
}

void describe(JsonObject& line, const HardwareVolumeDidChange& event) {
  line.add("volume", event.volume);
}

void describe(JsonObject&, const AudioDevicesDidChange&) {}

void describe(JsonObject& line, const AudioDeviceDidAutoSwitch& event) {
  line.add("fromID", event.fromID);
  if (event.fromName) line.add("fromName", *event.fromName);
  line.add("toID", event.toID).add("toName", event.toName);
}

void describe(JsonObject&, const AudioDeviceSettingsWillSwitch&) {}

void describe(JsonObject&, const MultiOutputDidChange&) {}

}  // namespace

struct EventLog::Impl {
  std::unique_ptr<OutputFile> file;
  std::function<std::uint64_t()> frame;
  std::vector<EventBus::Subscription> subscriptions;

  template <class Event>
  void follow(EventBus& bus, const char* name) {
    subscriptions.push_back(
        bus.subscribe<Event>(Delivery::postersThread, [this, name](const Event& event) {
          JsonObject line;
          line.add("event", name).add("frame", frame());
          describe(line, event);
          const std::string text = line.line() + "\n";
          file->write(std::as_bytes(std::span(text)));
        }));
  }

  void followAll(EventBus& bus) {
    follow<TrackDidChange>(bus, "trackDidChange");
    follow<PlaybackStateDidChange>(bus, "playbackStateDidChange");
    follow<PlaybackProgressDidUpdate>(bus, "playbackProgressDidUpdate");
    follow<PlayNextTrack>(bus, "playNextTrack");
    follow<PlaybackFileUnavailable>(bus, "playbackFileUnavailable");
    follow<HardwareVolumeDidChange>(bus, "hardwareVolumeDidChange");
    follow<AudioDevicesDidChange>(bus, "audioDevicesDidChange");
    follow<AudioDeviceDidAutoSwitch>(bus, "audioDeviceDidAutoSwitch");
    follow<AudioDeviceSettingsWillSwitch>(bus, "audioDeviceSettingsWillSwitch");
    follow<MultiOutputDidChange>(bus, "multiOutputDidChange");
  }
};

Result<std::unique_ptr<EventLog>, OutputError> EventLog::create(
    const std::filesystem::path& path, EventBus& bus, std::function<std::uint64_t()> frame) {
  auto file = OutputFile::create(path);
  if (!file) return file.error();
  auto impl = std::make_unique<Impl>();
  impl->file = std::move(file).value();
  impl->frame = std::move(frame);
  impl->followAll(bus);
  return std::unique_ptr<EventLog>(new EventLog(std::move(impl)));
}

EventLog::EventLog(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
EventLog::~EventLog() = default;

bool EventLog::finish() {
  _impl->subscriptions.clear();
  return _impl->file->commit();
}

const OutputError& EventLog::error() const noexcept {
  return _impl->file->error();
}

}  // namespace velorin
