// An output unit on a virtual device.
#pragma once

#include <memory>

#include "platform/audio/OutputUnit.h"
#include "platform/audio/virtual/VirtualDevice.h"
#include "platform/audio/virtual/VirtualScript.h"
#include "platform/audio/virtual/VirtualStream.h"

namespace velorin {

class VirtualOutputUnit : public OutputUnit {
 public:
  using FindDevice = std::function<std::shared_ptr<VirtualDevice>(AudioDeviceID)>;

  VirtualOutputUnit(std::shared_ptr<VirtualScript> script, FindDevice find);
  ~VirtualOutputUnit() override;

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
  std::uint64_t framesDropped() const override { return _stream ? _stream->framesDropped() : 0; }
  OutputReport report() const override;

 private:
  /// The script's fault, or -EBUSY after initialize().
  AudioStatus checkSetup(VirtualOperation operation) const;

  const std::shared_ptr<VirtualScript> _script;
  const FindDevice _find;
  VirtualStream::Setup _setup;
  bool _hasFormat = false;
  std::shared_ptr<VirtualStream> _stream;
};

}  // namespace velorin
