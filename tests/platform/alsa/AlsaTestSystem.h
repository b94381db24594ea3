// A private ALSA configuration of scripted devices, and a renderer whose every sample is known.
#pragma once

#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "foundation/Realtime.h"
#include "platform/audio/OutputUnit.h"
#include "support/Eventually.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {

/// The one ALSA configuration of the test process. Made before the library is first used, since
/// the library reads ALSA_CONFIG_PATH; PCMs may be added at any time.
class AlsaConfiguration {
 public:
  static AlsaConfiguration& instance() {
    static AlsaConfiguration one;
    return one;
  }

  const TemporaryFolder& folder() const { return _folder; }
  std::filesystem::path tap(const std::string& pcm) const { return _folder / (pcm + ".raw"); }

  /// One of 48 kHz and two channels.
  void addStereo(const std::string& pcm, const std::string& format, const std::string& rest = "") {
    addScripted(pcm, fmt::format("formats [ {} ] rates [ 48000 ] channels [ 2 ] {}", format, rest));
  }
  /// A device of the plug-in ScriptedPcm.cpp with these settings, and a tap.
  void addScripted(const std::string& pcm, const std::string& settings) {
    add(pcm, fmt::format("type scripted tap \"{}\" {}", tap(pcm).string(), settings));
  }
  /// The tap of an earlier device of that name is removed.
  void add(const std::string& pcm, const std::string& definition) {
    std::filesystem::remove(tap(pcm));
    write(fmt::format("pcm.{} {{ {} }}\n", pcm, definition));
  }
  void addControl(const std::string& control, const std::string& definition) {
    write(fmt::format("ctl.{} {{ {} }}\n", control, definition));
  }
  /// Bytes that the device got.
  std::vector<std::byte> tapped(const std::string& pcm) const {
    std::ifstream in(tap(pcm), std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(in), {});
    std::vector<std::byte> bytes(text.size());
    std::memcpy(bytes.data(), text.data(), text.size());
    return bytes;
  }

 private:
  // A new file each time: the library looks at the time of one in whole seconds.
  void write(const std::string& definition) {
    _text += definition;
    const auto file = _folder / fmt::format("alsa{}.conf", ++_version);
    std::ofstream(file) << _text;
    setenv("ALSA_CONFIG_PATH", file.c_str(), 1);
  }
  AlsaConfiguration() {
    _text = fmt::format("pcm_type.scripted {{ lib \"{}\" }}\n", VELORIN_SCRIPTED_PCM);
    add("unused", "type null");
  }
  TemporaryFolder _folder;
  std::string _text;
  int _version = 0;
};

/// 32 noise bits for a frame of a channel, both ends of the range among the first ones.
inline std::int32_t noiseSample(std::uint64_t frame, std::uint32_t channel) {
  if (frame < 2) return frame == 0 ? INT32_MIN : INT32_MAX;
  std::uint64_t x = (frame * kMaxChannels + channel + 1) * 0x9E3779B97F4A7C15ull;
  x ^= x >> 29;
  x *= 0xBF58476D1CE4E5B9ull;
  return static_cast<std::int32_t>(x >> 32);
}

/// Renders noise in the unit's format, and counts.
struct NoiseRenderer {
  explicit NoiseRenderer(const StreamFormat& streamFormat) : format(streamFormat) {}

  StreamFormat format;
  std::atomic<std::uint64_t> frames = 0;
  std::atomic<std::uint32_t> calls = 0;
  std::atomic<std::uint32_t> largest = 0;
  std::atomic<bool> leftScope = false;

  static std::uint32_t render(void* context, AudioBufferList& list, std::uint32_t count) noexcept {
    auto& self = *static_cast<NoiseRenderer*>(context);
    if (!realtime::active()) self.leftScope = true;
    if (count > self.largest) self.largest = count;
    const std::uint64_t from = self.frames;
    for (std::uint32_t c = 0; c < list.bufferCount; ++c) {
      for (std::uint32_t i = 0; i < count; ++i) self.store(list, c, i, noiseSample(from + i, c));
    }
    self.frames = from + count;
    ++self.calls;
    return count;
  }

  void store(AudioBufferList& list, std::uint32_t c, std::uint32_t i, std::int32_t value) const {
    if (format.isFloat()) {
      list.channel<float>(c)[i] = static_cast<float>(value) * 0x1p-31f;
    } else if (format.bitsPerChannel == 16) {
      list.channel<std::int16_t>(c)[i] = static_cast<std::int16_t>(value >> 16);
    } else {
      const bool isPacked = (format.formatFlags & kPCMPacked) != 0;
      list.channel<std::int32_t>(c)[i] = isPacked ? value : value & ~0xFF;
    }
  }
};

}  // namespace velorin::test
