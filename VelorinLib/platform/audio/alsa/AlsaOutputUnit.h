// An output unit on an ALSA device: settings, then a stream.
#pragma once

#include <functional>
#include <memory>

#include "platform/audio/OutputUnit.h"
#include "platform/audio/alsa/AlsaDevice.h"
#include "platform/audio/alsa/AlsaStream.h"

namespace velorin {

/// The device runs exactly at the input format's rate, at a sample format that keeps every bit of
/// an integer stream (see chooseAlsaFormat), with the stream's channels or the next larger count.
class AlsaOutputUnit : public OutputUnit {
 public:
  using FindDevice = std::function<std::shared_ptr<AlsaDevice>(AudioDeviceID)>;

  explicit AlsaOutputUnit(FindDevice findDevice);
  ~AlsaOutputUnit() override;

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
  /// What the device is run at for the input format.
  struct Plan {
    AlsaFormatChoice format;
    std::uint32_t channels = 0;
  };
  AudioStatus plan(const AlsaCapabilities& can, Plan& result) const;
  AudioStatus requireUninitialized() const;

  FindDevice _findDevice;
  std::shared_ptr<AlsaDevice> _device;
  StreamFormat _format;
  RenderCallback _callback = nullptr;
  void* _context = nullptr;
  std::uint32_t _maximumFrames;
  std::function<void(OutputEvent)> _handler;
  std::optional<Plan> _plan;

  // From initialize() to uninitialize().
  std::shared_ptr<AlsaStream> _stream;
  AlsaGrant _grant;
  bool _isExclusive = false;
  std::string _kernelParams;  ///< path, empty when the device has none
};

}  // namespace velorin
