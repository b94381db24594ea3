// A linear-PCM stream description, and planar buffer lists.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace velorin {

/// Flags of a linear-PCM description.
enum PCMFlags : std::uint32_t {
  kPCMFloat = 1,
  kPCMSignedInteger = 4,
  kPCMPacked = 8,  ///< the sample fills its container; without it the bits sit at the top
  kPCMNonInterleaved = 32,
};

/// 'lpcm' as a four-character code.
inline constexpr std::uint32_t kLinearPCM = 0x6c70636d;

/// What a stream of samples looks like. For a non-interleaved format the byte counts are those
/// of one channel's buffer.
struct StreamFormat {
  double sampleRate = 0;  ///< Hz
  std::uint32_t formatID = kLinearPCM;
  std::uint32_t formatFlags = 0;
  std::uint32_t bytesPerPacket = 0;
  std::uint32_t framesPerPacket = 1;
  std::uint32_t bytesPerFrame = 0;
  std::uint32_t channelsPerFrame = 0;
  std::uint32_t bitsPerChannel = 0;

  bool operator==(const StreamFormat&) const = default;

  bool isFloat() const noexcept { return (formatFlags & kPCMFloat) != 0; }
  bool isInteger() const noexcept { return (formatFlags & kPCMSignedInteger) != 0; }
  bool isPlanar() const noexcept { return (formatFlags & kPCMNonInterleaved) != 0; }

  /// Planar 32-bit float.
  static StreamFormat planarFloat(double sampleRate, std::uint32_t channels);

  /// "44100 Hz, 32-bit float, 2 ch": for people.
  std::string description() const;
};

/// Most channels any buffer list carries.
inline constexpr std::size_t kMaxChannels = 64;

/// One channel of a planar buffer list.
struct AudioBuffer {
  std::uint32_t byteSize = 0;
  void* data = nullptr;
};

/// A planar list: buffer i holds channel i, sample after sample. A view; owns nothing and
/// allocates nothing, so the render thread may make and copy one.
struct AudioBufferList {
  std::uint32_t bufferCount = 0;
  std::array<AudioBuffer, kMaxChannels> buffers{};

  template <class Sample>
  Sample* channel(std::size_t index) const noexcept {
    return static_cast<Sample*>(buffers[index].data);
  }
};

/// Memory for a planar list, zeroed and aligned to 64 bytes. Allocates only when made.
class PlanarBuffers {
 public:
  /// channels: at most kMaxChannels; frames and sampleSize (bytes) above 0.
  PlanarBuffers(std::uint32_t channels, std::uint32_t frames, std::uint32_t sampleSize);

  AudioBufferList& list() noexcept { return _list; }
  std::uint32_t capacity() const noexcept { return _frames; }
  std::uint32_t sampleSize() const noexcept { return _sampleSize; }

  /// Sets every buffer's byte size to that of so many frames, at most capacity().
  void setFrames(std::uint32_t frames) noexcept;

 private:
  struct Free {
    void operator()(void* block) const noexcept;
  };
  std::uint32_t _frames;
  std::uint32_t _sampleSize;
  std::unique_ptr<std::byte, Free> _block;
  AudioBufferList _list;
};

}  // namespace velorin
