#include "platform/audio/CombinedOutputUnit.h"

#include <cerrno>

namespace velorin {
namespace {

AudioStatus unbound() {
  return AudioStatus::failure(-ENODEV, "no device is set");
}

}  // namespace

AudioStatus CombinedOutputUnit::setDevice(AudioDeviceID device) {
  const auto to = _hardware.route(device);
  if (!to.hardware) return AudioStatus::failure(-ENODEV, "the device is not there");
  AudioStatus status;
  auto unit = to.hardware->createOutputUnit(status);
  if (!unit) return status;
  status = unit->setDevice(to.id);
  if (!status.ok()) return status;
  _unit = std::move(unit);
  return replaySettings();
}

AudioStatus CombinedOutputUnit::replaySettings() {
  AudioStatus status;
  setEventHandler(_handler);
  if (status.ok() && _maximumFrames) status = _unit->setMaximumFramesPerSlice(*_maximumFrames);
  if (status.ok() && _format) status = _unit->setInputFormat(*_format);
  if (status.ok() && _callback) status = _unit->setRenderCallback(_callback, _context);
  return status;
}

AudioStatus CombinedOutputUnit::setMaximumFramesPerSlice(std::uint32_t frames) {
  _maximumFrames = frames;
  return _unit ? _unit->setMaximumFramesPerSlice(frames) : AudioStatus::success();
}

std::optional<StreamFormat> CombinedOutputUnit::deviceFormat() const {
  return _unit ? _unit->deviceFormat() : std::nullopt;
}

AudioStatus CombinedOutputUnit::setInputFormat(const StreamFormat& format) {
  _format = format;
  return _unit ? _unit->setInputFormat(format) : AudioStatus::success();
}

AudioStatus CombinedOutputUnit::setRenderCallback(RenderCallback callback, void* context) {
  _callback = callback;
  _context = context;
  return _unit ? _unit->setRenderCallback(callback, context) : AudioStatus::success();
}

void CombinedOutputUnit::setEventHandler(std::function<void(OutputEvent)> handler) {
  _handler = std::move(handler);
  if (!_unit) return;
  _unit->setEventHandler([hardware = &_hardware, told = _handler](OutputEvent event) {
    // A device that was taken from us is no longer hogged, which its side does not announce.
    if (event == OutputEvent::deviceLost) hardware->refreshLater();
    if (told) told(event);
  });
}

AudioStatus CombinedOutputUnit::initialize() {
  return _unit ? _unit->initialize() : unbound();
}

void CombinedOutputUnit::uninitialize() {
  if (_unit) _unit->uninitialize();
}

AudioStatus CombinedOutputUnit::start() {
  return _unit ? _unit->start() : unbound();
}

void CombinedOutputUnit::stop() {
  if (_unit) _unit->stop();
}

OutputReport CombinedOutputUnit::report() const {
  return _unit ? _unit->report() : OutputReport{};
}

}  // namespace velorin
