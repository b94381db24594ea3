// An output unit on a sink of PipeWire.
#pragma once

#include <memory>

#include "platform/audio/pipewire/PipeWireStream.h"
#include "platform/audio/pipewire/PipeWireSystem.h"

namespace velorin {

class PipeWireOutputUnit : public OutputUnit, private PipeWireSinkUser {
 public:
  explicit PipeWireOutputUnit(std::shared_ptr<PipeWireSystem> system);
  ~PipeWireOutputUnit() override;

  AudioStatus setDevice(AudioDeviceID device) override;
  AudioStatus setMaximumFramesPerSlice(std::uint32_t frames) override;
  std::optional<StreamFormat> deviceFormat() const override;
  AudioStatus setInputFormat(const StreamFormat& format) override;
  AudioStatus setRenderCallback(RenderCallback callback, void* context) override;
  void setEventHandler(std::function<void(OutputEvent)> handler) override;
  AudioStatus initialize() override;
  void uninitialize() override;
  AudioStatus start() override;
  void stop() override;
  OutputReport report() const override;

 private:
  struct EventSink;

  std::uint32_t sinkNodeId() const override { return _sinkNodeId; }
  std::optional<PipeWireCycle> runningCycle() const override;
  bool isExclusive() const override { return _setup.exclusive; }
  void sinkLost() override;
  void linksGone() override;

  AudioStatus checkSetup() const;
  PipeWireStreamSetup setupFor(const PipeWireDevice& device) const;
  AudioStatus connect(const PipeWireDevice& device) REQUIRES(_system->loop());
  bool isLinked() const;
  bool hasFailed() const;
  /// Why the stream does not go: the device went, the server's reason, or none within the time.
  AudioStatus failure(const char* ifNone) const;
  /// What the sinks behind an aggregate add to the report.
  void addSinks(const PipeWireDevice& aggregate, OutputReport& report) const;
  bool byHardware(const PipeWireDevice& sink) const;
  void streamChanged();
  void post(OutputEvent event);

  const std::shared_ptr<PipeWireSystem> _system;

  // Set up by the owner's thread, read-only between initialize() and uninitialize().
  AudioDeviceID _device = kNoDevice;
  std::uint32_t _maximumFrames;
  StreamFormat _format;
  RenderCallback _callback = nullptr;
  void* _context = nullptr;
  std::function<void(OutputEvent)> _handler;

  // From here on: with the loop's lock held.
  std::uint32_t _sinkNodeId = PW_ID_ANY;
  PipeWireStreamSetup _setup;
  std::unique_ptr<PipeWireRenderer> _renderer;
  std::unique_ptr<PipeWireStream> _stream;
  std::shared_ptr<EventSink> _events;
  bool _initialized = false;
  bool _settled = false;  ///< initialize() has succeeded
  bool _lost = false;
};

}  // namespace velorin
