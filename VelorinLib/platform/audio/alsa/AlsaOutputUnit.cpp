#include "platform/audio/alsa/AlsaOutputUnit.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>

#include "platform/audio/InputFormat.h"

namespace velorin {
namespace {

constexpr std::uint32_t kDefaultSlice = 4096;

StreamFormat interleavedFormat(const AlsaFormatOffer& offer, double rate, std::uint32_t channels) {
  const auto bytes = static_cast<std::uint32_t>(vector::bytesPerWord(offer.word));
  const bool isFloat = offer.word == vector::PCMWord::float32;
  const bool isPacked = offer.significantBits == bytes * 8;
  StreamFormat format;
  format.sampleRate = rate;
  format.formatFlags = (isFloat ? kPCMFloat : kPCMSignedInteger) | (isPacked ? kPCMPacked : 0u);
  format.bytesPerFrame = format.bytesPerPacket = bytes * channels;
  format.channelsPerFrame = channels;
  format.bitsPerChannel = offer.significantBits;
  return format;
}

std::optional<KernelParams> readKernelParams(const std::string& path) {
  if (path.empty()) return std::nullopt;
  std::ifstream in(path);
  return parseKernelParams(std::string(std::istreambuf_iterator<char>(in), {}));
}

}  // namespace

AlsaOutputUnit::AlsaOutputUnit(FindDevice findDevice)
    : _findDevice(std::move(findDevice)), _maximumFrames(kDefaultSlice) {}

AlsaOutputUnit::~AlsaOutputUnit() {
  uninitialize();
}

AudioStatus AlsaOutputUnit::requireUninitialized() const {
  return _stream ? AudioStatus::failure(-EBUSY, "the unit is initialized") : AudioStatus::success();
}

AudioStatus AlsaOutputUnit::setDevice(AudioDeviceID device) {
  if (AudioStatus status = requireUninitialized(); !status.ok()) return status;
  auto found = _findDevice(device);
  if (!found) {
    return AudioStatus::failure(-ENODEV, fmt::format("no ALSA device with id {}", device));
  }
  _device = std::move(found);
  _plan.reset();
  return AudioStatus::success();
}

AudioStatus AlsaOutputUnit::setMaximumFramesPerSlice(std::uint32_t frames) {
  if (AudioStatus status = requireUninitialized(); !status.ok()) return status;
  if (frames == 0) return AudioStatus::failure(-EINVAL, "a slice of no frames");
  _maximumFrames = frames;
  return AudioStatus::success();
}

std::optional<StreamFormat> AlsaOutputUnit::deviceFormat() const {
  if (_stream) {
    return interleavedFormat({_grant.word, _grant.significantBits}, _grant.rate, _grant.channels);
  }
  AlsaCapabilities can;
  if (!_device || !_device->capabilities(can).ok() || can.formats.empty()) return std::nullopt;
  // Not chosen yet: what the device would play best.
  const auto best = std::ranges::max_element(can.formats, {}, &AlsaFormatOffer::significantBits);
  const auto chosen =
      _plan ? std::ranges::find(can.formats, _plan->format.word, &AlsaFormatOffer::word) : best;
  return interleavedFormat(chosen == can.formats.end() ? *best : *chosen, _device->nominalRate(),
                           _plan                  ? _plan->channels
                           : can.channels.empty() ? 0
                                                  : can.channels.back());
}

AudioStatus AlsaOutputUnit::plan(const AlsaCapabilities& can, Plan& result) const {
  const double rate = _format.sampleRate;
  const bool isOffered = std::ranges::find(can.rates, rate) != can.rates.end();
  if (rate != std::floor(rate) || (isCommonAlsaRate(rate) && !isOffered)) {
    return AudioStatus::failure(-EINVAL, fmt::format("the device does not run at {} Hz", rate));
  }
  result.channels = chooseAlsaChannels(_format.channelsPerFrame, can.channels);
  if (result.channels == 0) {
    return AudioStatus::failure(
        -EINVAL, fmt::format("the device has fewer than {} channels", _format.channelsPerFrame));
  }
  return chooseAlsaFormat(_format, can.formats, result.format);
}

AudioStatus AlsaOutputUnit::setInputFormat(const StreamFormat& format) {
  if (AudioStatus status = requireUninitialized(); !status.ok()) return status;
  if (!_device) return AudioStatus::failure(-ENODEV, "no device is set");
  if (AudioStatus status = checkInputFormat(format); !status.ok()) return status;
  AlsaCapabilities can;
  if (AudioStatus status = _device->capabilities(can); !status.ok()) return status;
  const StreamFormat before = std::exchange(_format, format);
  Plan planned;
  AudioStatus status = plan(can, planned);
  if (status.ok()) {
    _plan = planned;
  } else {
    _format = before;
  }
  return status;
}

AudioStatus AlsaOutputUnit::setRenderCallback(RenderCallback callback, void* context) {
  if (AudioStatus status = requireUninitialized(); !status.ok()) return status;
  _callback = callback;
  _context = context;
  return AudioStatus::success();
}

void AlsaOutputUnit::setEventHandler(std::function<void(OutputEvent)> handler) {
  _handler = std::move(handler);
}

AudioStatus AlsaOutputUnit::initialize() {
  if (_stream) return AudioStatus::success();
  if (!_device) return AudioStatus::failure(-ENODEV, "no device is set");
  if (!_plan) return AudioStatus::failure(-EINVAL, "no input format is set");
  if (!_callback) return AudioStatus::failure(-EINVAL, "no render callback is set");
  AudioStatus status;
  auto pcm = _device->open(status);
  if (!pcm) return status;
  // Planned anew on the open device: it may be another one since, under the same name.
  AlsaCapabilities can;
  Plan planned;
  status = pcm->capabilities(can);
  if (status.ok()) status = plan(can, planned);
  if (!status.ok()) return status;

  AlsaSetup setup;
  setup.rate = static_cast<std::uint32_t>(_format.sampleRate);
  setup.word = planned.format.word;
  setup.channels = planned.channels;
  setup.periodFrames = _device->periodFramesAt(setup.rate);
  setup.bufferFrames = AlsaDevice::bufferFramesFor(setup.periodFrames, setup.rate);
  AlsaGrant grant;
  status = pcm->configure(setup, grant);
  if (!status.ok()) return status;
  if (_format.isInteger() && grant.significantBits < significantBits(_format)) {
    return AudioStatus::failure(
        -EINVAL, fmt::format("would lose bits: the device uses {} of {}", grant.significantBits,
                             alsaFormatName(grant.word)));
  }
  _plan = planned;
  _grant = grant;
  _isExclusive = pcm->isExclusive();
  _kernelParams = pcm->kernelParamsPath();
  _stream = std::make_shared<AlsaStream>(
      std::move(pcm), grant, AlsaStreamSource{_format, _callback, _context, _maximumFrames},
      std::make_shared<AlsaEventRelay>(_handler));
  _device->setStream(_stream, grant);
  return AudioStatus::success();
}

void AlsaOutputUnit::uninitialize() {
  if (!_stream) return;
  _stream->stop();
  _device->setStream({}, std::nullopt);
  _stream.reset();
}

AudioStatus AlsaOutputUnit::start() {
  if (!_stream) return AudioStatus::failure(-EINVAL, "the unit is not initialized");
  return _stream->start();
}

void AlsaOutputUnit::stop() {
  if (_stream) _stream->stop();
}

OutputReport AlsaOutputUnit::report() const {
  OutputReport report;
  report.backend = "ALSA";
  if (!_stream) return report;
  report.deviceFormat = alsaFormatName(_grant.word);
  report.deviceRate = _grant.rate;
  report.deviceChannels = _grant.channels;
  report.deviceBits = std::min(_plan->format.bits, _grant.significantBits);
  report.periodFrames = _grant.periodFrames;
  report.bufferFrames = _grant.bufferFrames;
  report.exclusive = _isExclusive;
  report.mixed = !_isExclusive;
  report.converted = _plan->format.converted;
  report.realtimeThread = _stream->isRealtime();
  report.scheduling = _stream->scheduling();
  report.xruns = _stream->xruns();
  report.source = fmt::format("hw_params of {}", _device->address().pcm);
  // The kernel's own account, where there is one: it cannot be a plug-in's promise.
  if (const auto kernel = readKernelParams(_kernelParams)) {
    report.deviceFormat = kernel->format;
    report.deviceRate = kernel->rate;
    report.deviceChannels = kernel->channels;
    report.periodFrames = kernel->periodFrames;
    report.bufferFrames = kernel->bufferFrames;
    report.source = _kernelParams;
  }
  return report;
}

}  // namespace velorin
