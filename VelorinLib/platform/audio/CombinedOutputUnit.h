// A unit of the combined hardware: a unit of the side that its device belongs to when it is bound.
#pragma once

#include "platform/audio/CombinedAudioHardware.h"

namespace velorin {

/// What is set before setDevice() is kept and set on the side's unit then.
class CombinedOutputUnit : public OutputUnit {
 public:
  explicit CombinedOutputUnit(CombinedAudioHardware& hardware) : _hardware(hardware) {}

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
  std::uint64_t framesDropped() const override { return _unit ? _unit->framesDropped() : 0; }
  OutputReport report() const override;

 private:
  AudioStatus replaySettings();

  CombinedAudioHardware& _hardware;
  std::optional<std::uint32_t> _maximumFrames;
  std::optional<StreamFormat> _format;
  RenderCallback _callback = nullptr;
  void* _context = nullptr;
  std::function<void(OutputEvent)> _handler;
  std::unique_ptr<OutputUnit> _unit;  ///< last: its thread may call the handler
};

}  // namespace velorin
