#include "platform/audio/pipewire/PipeWireOutputUnit.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "foundation/Log.h"
#include "platform/audio/InputFormat.h"

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kServerTimeout{2000};
// What no signal announces is looked for this often.
constexpr std::chrono::milliseconds kLinkPoll{2};
constexpr std::chrono::milliseconds kFirstCallbackPoll{1};
constexpr std::uint32_t kDefaultMaximumFrames = 4096;
// The graph is made of 32-bit floats, whose significand has 24 bits.
constexpr std::uint32_t kGraphBits = 24;

}  // namespace

// Between the loop, which posts, and the owner, who may go away meanwhile.
struct PipeWireOutputUnit::EventSink {
  Mutex mutex;
  std::function<void(OutputEvent)> handler GUARDED_BY(mutex);
};

PipeWireOutputUnit::PipeWireOutputUnit(std::shared_ptr<PipeWireSystem> system)
    : _system(std::move(system)), _maximumFrames(kDefaultMaximumFrames) {}

PipeWireOutputUnit::~PipeWireOutputUnit() {
  uninitialize();
}

AudioStatus PipeWireOutputUnit::checkSetup() const {
  return _initialized ? AudioStatus::failure(-EBUSY, "the unit is initialized already")
                      : AudioStatus::success();
}

AudioStatus PipeWireOutputUnit::setDevice(AudioDeviceID device) {
  PipeWireLock lock(_system->loop());
  if (AudioStatus status = checkSetup(); !status.ok()) return status;
  if (!_system->device(device)) return AudioStatus::failure(-ENODEV);
  _device = device;
  return AudioStatus::success();
}

AudioStatus PipeWireOutputUnit::setMaximumFramesPerSlice(std::uint32_t frames) {
  if (AudioStatus status = checkSetup(); !status.ok()) return status;
  if (frames == 0) return AudioStatus::failure(-EINVAL);
  _maximumFrames = frames;
  return AudioStatus::success();
}

std::optional<StreamFormat> PipeWireOutputUnit::deviceFormat() const {
  PipeWireLock lock(_system->loop());
  const PipeWireDevice* device = _system->device(_device);
  if (!device) return std::nullopt;
  const double rate = _system->wishes(_device).rate;
  StreamFormat format = StreamFormat::planarFloat(
      rate > 0 ? rate : _system->metadata().clock().rate, device->channels());
  if (const auto running = device->format()) format.sampleRate = running->rate;
  return format;
}

AudioStatus PipeWireOutputUnit::setInputFormat(const StreamFormat& format) {
  AudioStatus status = checkSetup();
  if (status.ok()) status = checkInputFormat(format);
  if (!status.ok()) return status;
  _format = format;
  return AudioStatus::success();
}

AudioStatus PipeWireOutputUnit::setRenderCallback(RenderCallback callback, void* context) {
  if (AudioStatus status = checkSetup(); !status.ok()) return status;
  _callback = callback;
  _context = context;
  return AudioStatus::success();
}

void PipeWireOutputUnit::setEventHandler(std::function<void(OutputEvent)> handler) {
  if (checkSetup().ok()) _handler = std::move(handler);
}

AudioStatus PipeWireOutputUnit::initialize() {
  if (AudioStatus status = checkSetup(); !status.ok()) return status;
  if (_device == kNoDevice || _format.channelsPerFrame == 0 || !_callback) {
    return AudioStatus::failure(-EINVAL, "device, input format or render callback is missing");
  }
  AudioStatus status;
  {
    PipeWireLock lock(_system->loop());
    const PipeWireDevice* device = _system->device(_device);
    if (!device) return AudioStatus::failure(-ENODEV, "the device is gone");
    _events = std::make_shared<EventSink>();
    _renderer = std::make_unique<PipeWireRenderer>(_format, _maximumFrames, _callback, _context);
    _sinkNodeId = device->nodeId();
    _lost = false;
    _settled = false;
    _initialized = true;
    _system->addUser(this);
    status = connect(*device);
    if (status.ok()) {
      _settled = true;
      MutexLock events(_events->mutex);
      _events->handler = _handler;
    }
  }
  if (!status.ok()) uninitialize();
  return status;
}

AudioStatus PipeWireOutputUnit::connect(const PipeWireDevice& device) {
  _setup = setupFor(device);
  _stream =
      std::make_unique<PipeWireStream>(_system->loop(), *_renderer, [this] { streamChanged(); });
  const int result = _stream->connect(_system->connection().core(), _setup);
  if (result < 0) return AudioStatus::failure(result, "the server takes no stream");
  // The session manager decides after the stream was made whether it may have the sink.
  const bool isReady = _system->loop().waitUntil(
      PipeWireLoop::Clock::now() + kServerTimeout,
      [this] { return hasFailed() || (_stream->state() == PW_STREAM_STATE_PAUSED && isLinked()); },
      kLinkPoll);
  if (isReady && !hasFailed()) return AudioStatus::success();
  return failure("the session manager does not connect the stream");
}

PipeWireStreamSetup PipeWireOutputUnit::setupFor(const PipeWireDevice& device) const {
  const PipeWireWishes& wishes = _system->wishes(_device);
  PipeWireStreamSetup setup;
  setup.sinkSerial = device.properties().text(PW_KEY_OBJECT_SERIAL);
  if (setup.sinkSerial.empty()) setup.sinkSerial = device.uid();
  setup.format = _format;
  const bool fits = _format.channelsPerFrame == device.channels();
  setup.positions = fits ? device.offer().positions : std::vector<std::uint32_t>();
  if (setup.positions.empty()) setup.positions = usualPositions(_format.channelsPerFrame);
  setup.remix = _format.channelsPerFrame > device.channels();
  const double rate = wishes.rate > 0 ? wishes.rate : _format.sampleRate;
  if (_system->offerOf(device).offers(rate))
    setup.graphRate = static_cast<std::uint32_t>(std::lround(rate));
  setup.latencyFrames = wishes.bufferFrames;
  setup.exclusive = wishes.exclusive;
  return setup;
}

bool PipeWireOutputUnit::isLinked() const {
  const auto players = _system->graph().playersOn(_sinkNodeId);
  return _stream && std::ranges::any_of(players, [this](const PipeWirePlayer& player) {
           return player.nodeId == _stream->nodeId();
         });
}

bool PipeWireOutputUnit::hasFailed() const {
  if (_lost || !_stream) return true;
  const pw_stream_state state = _stream->state();
  return state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED;
}

AudioStatus PipeWireOutputUnit::failure(const char* ifNone) const {
  if (_lost || !_stream) return AudioStatus::failure(-ENODEV, "the device is gone");
  if (!hasFailed()) return AudioStatus::failure(-ETIMEDOUT, ifNone);
  // The session manager's own words do not say that somebody holds the sink.
  for (const PipeWirePlayer& player : _system->graph().playersOn(_sinkNodeId)) {
    if (player.exclusive || _setup.exclusive) {
      return AudioStatus::failure(
          -EBUSY, fmt::format("the device is held by {} (process {})", player.program, player.pid));
    }
  }
  const std::string& reason = _stream->error();
  return AudioStatus::failure(_setup.exclusive ? -EBUSY : -EIO,
                              reason.empty() ? "the server has refused the stream" : reason);
}

void PipeWireOutputUnit::uninitialize() {
  stop();
  std::shared_ptr<EventSink> events;
  {
    PipeWireLock lock(_system->loop());
    if (!_initialized) return;
    _initialized = false;
    _system->removeUser(this);
    _stream.reset();
    _renderer.reset();
    _sinkNodeId = PW_ID_ANY;
    events = std::move(_events);
  }
  // Without the loop's lock: a handler that runs is waited for.
  MutexLock lock(events->mutex);
  events->handler = nullptr;
}

AudioStatus PipeWireOutputUnit::start() {
  AudioStatus status;
  {
    PipeWireLock lock(_system->loop());
    if (!_initialized) return AudioStatus::failure(-EINVAL, "the unit is not initialized");
    if (_lost) return AudioStatus::failure(-ENODEV, "the device is gone");
    _renderer->open();
    _stream->setActive(true);
    const bool runs = _system->loop().waitUntil(
        PipeWireLoop::Clock::now() + kServerTimeout,
        [this] { return hasFailed() || _renderer->cycle().callbacks > 0; }, kFirstCallbackPoll);
    if (!runs || hasFailed()) status = failure("the device does not start");
  }
  if (!status.ok()) stop();
  return status;
}

void PipeWireOutputUnit::stop() {
  PipeWireLock lock(_system->loop());
  if (!_initialized) return;
  // The server goes on calling until it has taken note; the gate keeps those calls out.
  if (!_renderer->close()) log::line("❌ The render callback does not return");
  if (_stream) _stream->setActive(false);
}

void PipeWireOutputUnit::sinkLost() {
  if (_lost) return;
  _lost = true;
  _renderer->close();
  _stream.reset();
  post(OutputEvent::deviceLost);
  _system->loop().signal();
}

void PipeWireOutputUnit::linksGone() {
  if (_settled && !isLinked()) sinkLost();
}

void PipeWireOutputUnit::streamChanged() {
  const PipeWireRenderer::Changes changes = _renderer->takeChanges();
  if (changes.xrun) post(OutputEvent::xrun);
  if (changes.format) post(OutputEvent::formatChanged);
  if (!hasFailed() || !_settled || _lost) return;  // before that, initialize() deals with it
  // A stream must not be destroyed from inside of its own callback. The events stand for this
  // initialization: another one has others.
  _system->loop().defer([this, weak = std::weak_ptr<EventSink>(_events)] {
    const auto events = weak.lock();
    if (events && _events == events) sinkLost();
  });
}

void PipeWireOutputUnit::post(OutputEvent event) {
  _system->events().async([events = _events, event] {
    MutexLock lock(events->mutex);
    if (events->handler) events->handler(event);
  });
}

std::optional<PipeWireCycle> PipeWireOutputUnit::runningCycle() const {
  if (!_renderer || _lost) return std::nullopt;
  const PipeWireCycle cycle = _renderer->cycle();
  return cycle.rate > 0 ? std::optional(cycle) : std::nullopt;
}

OutputReport PipeWireOutputUnit::report() const {
  OutputReport report;
  report.backend = "PipeWire";
  PipeWireLock lock(_system->loop());
  if (!_initialized) return report;
  const PipeWireCycle cycle = _renderer->cycle();
  report.periodFrames = cycle.quantum;
  report.bufferFrames = cycle.quantum;
  report.deviceRate = cycle.rate;
  report.xruns = cycle.xruns;
  report.realtimeThread = _renderer->isRealtime();
  report.scheduling = _renderer->scheduling();
  report.deviceBits = kGraphBits;
  report.exclusive = _setup.exclusive;
  const PipeWireDevice* device = _system->device(_device);
  if (!device || !_stream) return report;

  report.source = fmt::format("PipeWire node {} ({})", device->nodeId(), device->uid());
  report.deviceChannels = device->channels();
  if (const auto format = device->format()) {
    report.deviceFormat = format->name;
    report.deviceRate = format->rate;
    if (!format->physical.isFloat) report.deviceBits = std::min(kGraphBits, format->physical.bits);
  }
  const bool otherRate = std::abs(report.deviceRate - _format.sampleRate) > 0.5 ||
                         std::abs(cycle.rate - _format.sampleRate) > 0.5;
  const bool fewerBits = _format.isInteger() && significantBits(_format) > report.deviceBits;
  // Behind a combining sink every device has a clock of its own, to which samples are fitted.
  const bool isCombined = _system->isAggregate(device->uid());
  report.converted = otherRate || fewerBits || _setup.remix || isCombined;
  report.volumeUnity = device->gains().isUnity(byHardware(*device)) && _stream->gains().isUnity();
  const auto isForeign = [this](const PipeWirePlayer& player) {
    return player.nodeId != _stream->nodeId();
  };
  report.mixed = std::ranges::any_of(_system->graph().playersOn(device->nodeId()), isForeign);
  if (isCombined) addSinks(*device, report);
  return report;
}

void PipeWireOutputUnit::addSinks(const PipeWireDevice& aggregate, OutputReport& report) const {
  const auto isForeign = [&](const PipeWirePlayer& player) {
    return !player.node.starts_with("output." + aggregate.uid());
  };
  for (const PipeWireDevice* sink : _system->sinksOf(aggregate)) {
    const auto players = _system->graph().playersOn(sink->nodeId());
    report.mixed = report.mixed || std::ranges::any_of(players, isForeign);
    report.volumeUnity = report.volumeUnity && sink->gains().isUnity(byHardware(*sink));
  }
}

bool PipeWireOutputUnit::byHardware(const PipeWireDevice& sink) const {
  return sink.hasHardwareVolume(_system->cardOf(sink));
}

}  // namespace velorin
