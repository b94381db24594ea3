// A running 128-bit hash. Internal to this folder.
#pragma once

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/murmur3.h>
}

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string>

namespace velorin::media {

/// MurmurHash3 x64 128 by Austin Appleby (public domain), as libavutil has it. One thread at a
/// time.
class Murmur {
 public:
  Murmur() : _state(av_murmur3_alloc()) {
    if (!_state) throw std::bad_alloc();
    av_murmur3_init(_state);
  }
  ~Murmur() { av_free(_state); }
  Murmur(const Murmur&) = delete;
  Murmur& operator=(const Murmur&) = delete;

  void update(std::span<const std::byte> bytes) {
    av_murmur3_update(_state, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }

  /// 32 lower-case digits. Once.
  std::string finish() {
    std::array<std::uint8_t, 16> digest{};
    av_murmur3_final(_state, digest.data());
    std::string hex;
    for (const std::uint8_t byte : digest) hex += fmt::format("{:02x}", byte);
    return hex;
  }

 private:
  AVMurMur3* _state;
};

}  // namespace velorin::media
