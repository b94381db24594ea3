// Playing noise on a PCM through the backend, and the bytes that must come of it.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <mutex>

#include "platform/alsa/AlsaTestSystem.h"
#include "platform/audio/InputFormat.h"
#include "platform/audio/alsa/AlsaAudioHardware.h"

namespace velorin::test {

inline StreamFormat stream(std::uint32_t bits, std::uint32_t flags, std::uint32_t channels = 2) {
  return {.sampleRate = 48'000,
          .formatFlags = flags | kPCMNonInterleaved,
          .bytesPerPacket = bits / 8,
          .bytesPerFrame = bits / 8,
          .channelsPerFrame = channels,
          .bitsPerChannel = bits};
}

inline const StreamFormat kFloat = StreamFormat::planarFloat(48'000, 2);
inline const StreamFormat kInt16 = stream(16, kPCMSignedInteger | kPCMPacked);
inline const StreamFormat kInt24 = stream(32, kPCMSignedInteger);
inline const StreamFormat kInt32 = stream(32, kPCMSignedInteger | kPCMPacked);

inline AlsaAudioHardware::System withoutCards() {
  return {[] { return std::vector<AlsaPcmAddress>(); }, "/nonexistent/snd", true};
}

class Events {
 public:
  std::function<void(OutputEvent)> handler() {
    return [this](OutputEvent event) {
      std::lock_guard lock(_mutex);
      (event == OutputEvent::deviceLost ? _lost : _xruns)++;
    };
  }
  int lost() const {
    std::lock_guard lock(_mutex);
    return _lost;
  }
  int xruns() const {
    std::lock_guard lock(_mutex);
    return _xruns;
  }

 private:
  mutable std::mutex _mutex;
  int _lost = 0;
  int _xruns = 0;
};

// What a device word holds of a sample that was rendered, by the definition of the format.
inline void appendWord(std::vector<std::byte>& out, const StreamFormat& format,
                       vector::PCMWord word, std::int32_t noise) {
  const auto add = [&out](auto value, std::size_t bytes) {
    const auto* from = reinterpret_cast<const std::byte*>(&value);
    out.insert(out.end(), from, from + bytes);
  };
  const int bits = word == vector::PCMWord::int16 ? 16 : word == vector::PCMWord::int32 ? 32 : 24;
  const std::size_t size = vector::bytesPerWord(word);
  if (format.isFloat()) {
    const float sample = static_cast<float>(noise) * 0x1p-31f;
    if (word == vector::PCMWord::float32) return add(sample, 4);
    const double scale = std::ldexp(1.0, bits - 1);
    return add(
        static_cast<std::int64_t>(std::clamp(std::nearbyint(sample * scale), -scale, scale - 1)),
        size);
  }
  // Integers at the top of 32 bits, cut to what the stream carries.
  const std::int32_t sample =
      noise & static_cast<std::int32_t>(0xFFFFFFFFu << (32 - significantBits(format)));
  add(static_cast<std::int64_t>(sample) >> (32 - bits), size);
}

struct Playing {
  AlsaAudioHardware hardware{withoutCards()};
  NoiseRenderer renderer;
  Events events;
  std::unique_ptr<OutputUnit> unit;

  explicit Playing(const StreamFormat& format) : renderer(format) {}

  AudioStatus prepare(const std::string& pcm) {
    AudioStatus status;
    const AudioDeviceID device = hardware.deviceForUID("alsa:" + pcm);
    if (device == kNoDevice) return AudioStatus::failure(-ENODEV);
    unit = hardware.createOutputUnit(status);
    unit->setEventHandler(events.handler());
    status = unit->setDevice(device);
    if (status.ok()) status = unit->setInputFormat(renderer.format);
    if (status.ok()) status = unit->setRenderCallback(&NoiseRenderer::render, &renderer);
    return status;
  }
  AudioStatus play(const std::string& pcm) {
    AudioStatus status = prepare(pcm);
    if (status.ok()) status = unit->initialize();
    if (status.ok()) status = unit->start();
    return status;
  }
  bool renders(std::uint64_t frames) {
    return eventually([&] { return renderer.frames >= frames; });
  }
};

/// The first `size` bytes of what the renderer's noise is on a stereo device.
inline std::vector<std::byte> expectedBytes(const StreamFormat& format, vector::PCMWord word,
                                            std::size_t size) {
  std::vector<std::byte> bytes;
  for (std::uint64_t frame = 0; bytes.size() < size; ++frame) {
    for (std::uint32_t c = 0; c < 2; ++c) appendWord(bytes, format, word, noiseSample(frame, c));
  }
  return bytes;
}

}  // namespace velorin::test
