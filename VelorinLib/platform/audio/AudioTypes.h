// Plain values of the audio hardware layer.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace velorin {

/// Names a device for the life of the AudioHardware object; 0 is no device. A device that goes
/// and comes back under the same UID gets its old id.
using AudioDeviceID = std::uint32_t;
inline constexpr AudioDeviceID kNoDevice = 0;

/// Outcome of a hardware operation: 0, or a negative errno, with a text that says what failed.
struct [[nodiscard]] AudioStatus {
  int code = 0;
  std::string text;

  bool ok() const noexcept { return code == 0; }
  /// "-16 (Device or resource busy)": for log lines.
  std::string description() const;

  static AudioStatus success() { return {}; }
  /// code: negative errno. An empty text becomes the errno's own.
  static AudioStatus failure(int code, std::string text = {});
};

/// A range of nominal sample rates in Hz; a single rate has equal ends.
struct RateRange {
  double minimum = 0;
  double maximum = 0;
  bool operator==(const RateRange&) const = default;
};

/// A range of buffer sizes in frames.
struct FrameRange {
  std::uint32_t minimum = 0;
  std::uint32_t maximum = 0;
  bool operator==(const FrameRange&) const = default;
};

/// A format the device itself can run at.
struct PhysicalFormat {
  std::uint32_t bits = 0;  ///< significant bits of a sample; 1 for native DSD
  bool isFloat = false;
  std::uint32_t channels = 0;  ///< largest count offered with these bits
  bool operator==(const PhysicalFormat&) const = default;
};

/// How a device is attached. The four-character codes are those of the device panel.
enum class TransportType {
  unknown,
  builtIn,
  bluetooth,
  bluetoothLE,
  displayPort,
  fireWire,
  airPlay,
  avb,
  aggregate,
  hdmi,
  virtualDevice,
  usb,
  pci,
  thunderbolt,
};

/// "USB", "Built-in", … as the device panel shows it.
const char* transportName(TransportType type) noexcept;

/// What an output unit is really doing, read back from the kernel or the sound server, not
/// repeated from what was asked. Fields that the backend cannot learn are 0 or empty.
struct OutputReport {
  std::string backend;       ///< "PipeWire", "ALSA", "virtual"
  std::string deviceFormat;  ///< the granted format, e.g. "S24_3LE", "F32P"
  double deviceRate = 0;     ///< Hz the device or the graph runs at now
  std::uint32_t deviceChannels = 0;
  std::uint32_t deviceBits = 0;  ///< bits of a sample that reach the device unchanged
  std::uint32_t periodFrames = 0;
  std::uint32_t bufferFrames = 0;
  bool exclusive = false;   ///< nobody else can reach the device now
  bool mixed = false;       ///< other programs' sound is mixed in now, or that cannot be ruled out
  bool converted = false;   ///< rate, channels or bits change on the way
  bool volumeUnity = true;  ///< the server applies no gain
  bool realtimeThread = false;  ///< the render thread has a real-time class
  std::string scheduling;       ///< "SCHED_FIFO 60 by RealtimeKit", "nice -11", "normal" …
  std::uint64_t xruns = 0;      ///< since start
  std::string source;  ///< where this was read, e.g. "/proc/asound/card1/pcm0p/sub0/hw_params"
};

}  // namespace velorin
