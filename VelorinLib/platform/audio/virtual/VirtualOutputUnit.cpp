#include "platform/audio/virtual/VirtualOutputUnit.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "platform/audio/InputFormat.h"

namespace velorin {
namespace {

constexpr std::uint32_t kDefaultMaximumFrames = 4096;
constexpr std::uint32_t kLargestMaximumFrames = 1u << 20;

}  // namespace

VirtualOutputUnit::VirtualOutputUnit(std::shared_ptr<VirtualScript> script, FindDevice find)
    : _script(std::move(script)), _find(std::move(find)) {
  _setup.maximumFrames = kDefaultMaximumFrames;
}

VirtualOutputUnit::~VirtualOutputUnit() {
  stop();
  uninitialize();
}

AudioStatus VirtualOutputUnit::checkSetup(VirtualOperation operation) const {
  AudioStatus status = _script->call(operation);
  if (status.ok() && _stream) {
    return AudioStatus::failure(-EBUSY, "the unit is initialized already");
  }
  return status;
}

AudioStatus VirtualOutputUnit::setDevice(AudioDeviceID device) {
  if (AudioStatus status = checkSetup(VirtualOperation::setDevice); !status.ok()) return status;
  auto found = _find(device);
  if (!found) return AudioStatus::failure(-ENODEV);
  _setup.device = std::move(found);
  return AudioStatus::success();
}

AudioStatus VirtualOutputUnit::setMaximumFramesPerSlice(std::uint32_t frames) {
  AudioStatus status = checkSetup(VirtualOperation::setMaximumFramesPerSlice);
  if (!status.ok()) return status;
  if (frames == 0 || frames > kLargestMaximumFrames) return AudioStatus::failure(-EINVAL);
  _setup.maximumFrames = frames;
  return AudioStatus::success();
}

std::optional<StreamFormat> VirtualOutputUnit::deviceFormat() const {
  if (!_setup.device) return std::nullopt;
  return StreamFormat::planarFloat(_setup.device->nominalRate(), _setup.device->fixed().channels);
}

AudioStatus VirtualOutputUnit::setInputFormat(const StreamFormat& format) {
  AudioStatus status = checkSetup(VirtualOperation::setInputFormat);
  if (status.ok()) status = checkInputFormat(format);
  if (!status.ok()) return status;
  if (!_setup.device) return AudioStatus::failure(-EINVAL, "no device is set");
  if (format.isInteger() && !_setup.device->fixed().acceptsInteger) {
    return AudioStatus::failure(-EINVAL, "the device takes no integer samples");
  }
  _setup.format = format;
  _hasFormat = true;
  return AudioStatus::success();
}

AudioStatus VirtualOutputUnit::setRenderCallback(RenderCallback callback, void* context) {
  AudioStatus status = checkSetup(VirtualOperation::setRenderCallback);
  if (!status.ok()) return status;
  _setup.callback = callback;
  _setup.context = context;
  return AudioStatus::success();
}

void VirtualOutputUnit::setEventHandler(std::function<void(OutputEvent)> handler) {
  if (!_stream) _setup.eventHandler = std::move(handler);
}

AudioStatus VirtualOutputUnit::initialize() {
  AudioStatus status = checkSetup(VirtualOperation::initialize);
  if (!status.ok()) return status;
  if (!_setup.device || !_hasFormat || !_setup.callback) {
    return AudioStatus::failure(-EINVAL, "device, input format or render callback is missing");
  }
  if (_find(_setup.device->id()) != _setup.device) {
    return AudioStatus::failure(-ENODEV, "the device is gone");
  }
  if (!_setup.device->fixed().convertsRates &&
      std::abs(_setup.device->nominalRate() - _setup.format.sampleRate) > 0.5) {
    return AudioStatus::failure(-EINVAL, "the device converts no rates");
  }
  const pid_t owner = _setup.device->hogOwner();
  if (owner != -1 && owner != ::getpid()) {
    return AudioStatus::failure(-EBUSY, fmt::format("held by process {}", owner));
  }
  _stream = std::make_shared<VirtualStream>(_setup);
  _setup.device->attach(_stream);
  // The device may have been unplugged in between, when it did not know this stream yet.
  if (_find(_setup.device->id()) != _setup.device) _stream->lose();
  return AudioStatus::success();
}

void VirtualOutputUnit::uninitialize() {
  if (!_stream) return;
  _stream->stop();
  _stream->close();
  _setup.device->detach(_stream.get());
  _stream.reset();
}

AudioStatus VirtualOutputUnit::start() {
  if (AudioStatus status = _script->call(VirtualOperation::start); !status.ok()) return status;
  if (!_stream) return AudioStatus::failure(-EINVAL, "the unit is not initialized");
  if (!_stream->start()) return AudioStatus::failure(-ENODEV, "the device is gone");
  return AudioStatus::success();
}

void VirtualOutputUnit::stop() {
  if (_stream) _stream->stop();
}

OutputReport VirtualOutputUnit::report() const {
  OutputReport report;
  report.backend = "virtual";
  if (!_stream) return report;
  const VirtualDevice& device = *_setup.device;
  report.deviceFormat = planarFormatName(_setup.format);
  report.deviceRate = device.nominalRate();
  report.deviceChannels = device.fixed().channels;
  report.deviceBits = _setup.format.isFloat() ? 32 : significantBits(_setup.format);
  report.periodFrames = device.bufferFrames();
  report.bufferFrames = device.bufferFrames();
  report.exclusive = device.hogOwner() == ::getpid();
  report.converted = std::abs(report.deviceRate - _setup.format.sampleRate) > 0.5;
  report.scheduling = "normal";
  report.xruns = _stream->xruns();
  report.source = "virtual device " + device.uid();
  return report;
}

}  // namespace velorin
