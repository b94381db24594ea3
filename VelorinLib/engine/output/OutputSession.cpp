#include "engine/output/OutputSession.h"

#include "foundation/Log.h"

namespace velorin {
namespace {

constexpr std::uint32_t kBufferFramesWhenUnknown = 4096;
constexpr std::uint32_t kSmallestSlice = 4096;
constexpr double kRateWhenUnknown = 44100;
constexpr double kRateTolerance = 1.0;

}  // namespace

OutputSession::OutputSession(AudioHardware& hardware, OutputDevices& devices)
    : _hardware(hardware), _devices(devices) {}

OutputSession::~OutputSession() {
  end();
}

OutputSession::Prepared OutputSession::prepare(const StreamFormat& clientFormat,
                                               std::function<void(OutputEvent)> onEvent) {
  end();
  if (!_devices.ensureValidOutputDevice()) {
    log::line("❌ No valid output device available");
    return Prepared::failed;
  }
  AudioStatus status;
  _unit = _hardware.createOutputUnit(status);
  if (!_unit) {
    log::line("❌ Cannot create audio unit: {}", status.description());
    return Prepared::failed;
  }
  _unit->setEventHandler(std::move(onEvent));
  if (!bindToDevice()) {
    _unit.reset();
    return Prepared::failed;
  }
  configureBuffer(clientFormat.sampleRate);
  logDeviceFormat();

  status = _unit->setInputFormat(clientFormat);
  if (status.ok()) return Prepared::ready;
  log::line("⚠️ HAL rejected format (flags=0x{:X}), falling back to Float32: {}",
            clientFormat.formatFlags, status.description());
  return Prepared::formatRefused;
}

bool OutputSession::bindToDevice() {
  const AudioDeviceID wanted = _devices.current();
  AudioStatus status = _unit->setDevice(wanted);
  if (status.ok()) return true;

  const auto list = _devices.enumerateOutputDevices();
  if (!list.empty() && list.front().id != wanted) {
    const AudioDeviceID fallback = list.front().id;
    log::line("⚠️ Failed to set output device {}: {}. Trying fallback {}", wanted,
              status.description(), fallback);
    status = _unit->setDevice(fallback);
    if (status.ok()) {
      _devices.useFallback(fallback);
      return true;
    }
  }
  log::line("❌ Failed to set output device: {}", status.description());
  return false;
}

void OutputSession::configureBuffer(double clientRate) {
  const AudioDeviceID device = _devices.current();
  const std::uint32_t before = _hardware.bufferFrameSize(device).value_or(0);
  const std::uint32_t target = _devices.bufferFrameSizeMax();
  if (target != before) {
    if (const AudioStatus status = _hardware.setBufferFrameSize(device, target); !status.ok()) {
      log::line("⚠️ Could not set buffer frame size to {}: {}", target, status.description());
    }
    log::line("🔊 Buffer frame size changed: {} → {}", before, target);
  }
  _ioBufferFrameSize = _hardware.bufferFrameSize(device).value_or(kBufferFramesWhenUnknown);

  const double rate = clientRate > 0 ? clientRate : kRateWhenUnknown;
  const double deadlineMs = _ioBufferFrameSize / rate * 1000;
  _bufferDeadlineUs = deadlineMs * 1000;
  _playbackLatencyFrames =
      std::int64_t{_ioBufferFrameSize} + _hardware.safetyOffset(device) + _hardware.latency(device);
  log::line("🔊 Device buffer: {} frames ({:.1f}ms deadline) @{:.0f}Hz", _ioBufferFrameSize,
            deadlineMs, rate);

  const AudioStatus status = _unit->setMaximumFramesPerSlice(std::max(target, kSmallestSlice));
  if (!status.ok()) {
    log::line("⚠️ Failed to set MaximumFramesPerSlice to {}: {}", kSmallestSlice,
              status.description());
  }
}

void OutputSession::logDeviceFormat() {
  if (const auto format = _unit->deviceFormat()) {
    log::line("🔊 Device native format: {:.0f}Hz, {}bit, {}ch, flags=0x{:X}", format->sampleRate,
              format->bitsPerChannel, format->channelsPerFrame, format->formatFlags);
  }
}

void OutputSession::useFormat(const StreamFormat& clientFormat) {
  if (const AudioStatus status = _unit->setInputFormat(clientFormat); !status.ok()) {
    log::line("❌ Float32 fallback also rejected: {}", status.description());
  }
}

std::uint32_t OutputSession::render(void* context, AudioBufferList& list,
                                    std::uint32_t frames) noexcept {
  const auto* const self = static_cast<const OutputSession*>(context);
  return RenderPath::render(self->_rendering.load(std::memory_order_acquire), list, frames);
}

void OutputSession::use(std::unique_ptr<RenderPath> renderPath) {
  _rendering.store(renderPath.get(), std::memory_order_release);
  _renderPath = std::move(renderPath);
}

bool OutputSession::begin(std::unique_ptr<RenderPath> renderPath, double clientRate) {
  use(std::move(renderPath));
  AudioStatus status = _unit->setRenderCallback(&OutputSession::render, this);
  if (!status.ok()) log::line("❌ Failed to set render callback: {}", status.description());

  status = _unit->initialize();
  if (!status.ok()) {
    log::line("❌ AudioUnitInitialize failed: {}", status.description());
    end();
    return false;
  }
  status = _unit->start();
  if (!status.ok()) {
    log::line("❌ AudioOutputUnitStart failed: {}", status.description());
    end();
    return false;
  }
  // Read back from the running device: a sound server settles its rate only when it starts.
  verifyRate(clientRate);
  return true;
}

void OutputSession::verifyRate(double clientRate) {
  const double deviceRate = _devices.nominalSampleRate();
  _deviceRateVerified = deviceRate > 0 && std::abs(deviceRate - clientRate) <= kRateTolerance;
  if (!_deviceRateVerified) {
    log::line("⚠️ DAC rate {:.0f}Hz ≠ output {:.0f}Hz — HAL SRC active, not bit-perfect",
              deviceRate, clientRate);
  }
}

AudioStatus OutputSession::restart(std::unique_ptr<RenderPath> renderPath, double clientRate) {
  if (!_unit) return AudioStatus::failure(-ENODEV);
  _unit->stop();
  use(std::move(renderPath));
  const AudioStatus status = _unit->start();
  if (status.ok()) verifyRate(clientRate);
  return status;
}

std::uint64_t OutputSession::pause() {
  if (!_unit) return 0;
  _unit->stop();
  return _unit->framesDropped();
}

AudioStatus OutputSession::resume() {
  return _unit ? _unit->start() : AudioStatus::failure(-ENODEV);
}

void OutputSession::end() {
  if (_unit) {
    _unit->stop();
    _unit->uninitialize();
  }
  _unit.reset();
  use(nullptr);
  _deviceRateVerified = false;
}

OutputReport OutputSession::report() const {
  return _unit ? _unit->report() : OutputReport{};
}

}  // namespace velorin
