// Linear PCM that lies in its file in one piece. Internal to this folder.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/media/MediaFile.h"

namespace velorin::media {

/// Where the sound of a WAV, Wave64, AIFF, CAF or AU file begins, and how long it is. Its packets
/// are cut here rather than by the library, which reads such files by the kilobyte.
class RawSound {
 public:
  /// `begin` is the place of the first frame, `framesTold` what the library made of the header, 0
  /// for nothing. Nothing for other containers and for samples that do not fill whole bytes.
  static std::optional<RawSound> find(MediaBytes& bytes, const AVInputFormat& container,
                                      const AVCodecParameters& codec, std::uint64_t begin,
                                      std::int64_t framesTold);

  /// No more than there are in the file and in its chunk of sound.
  std::int64_t frames() const noexcept { return _frames; }

  void seek(std::int64_t frame) noexcept { _next = frame; }

  /// Fills the packet, which must be blank, with the next frames; its time stamp is the number of
  /// the first one. False at the end, where reading fails and where memory is short.
  bool read(MediaBytes& bytes, AVPacket& packet) noexcept;

 private:
  struct PoolDeleter {
    void operator()(AVBufferPool* pool) const { av_buffer_pool_uninit(&pool); }
  };

  RawSound() = default;

  std::unique_ptr<AVBufferPool, PoolDeleter> _pool;
  std::uint64_t _begin = 0;
  std::int64_t _frameBytes = 0;
  std::int64_t _frames = 0;
  std::int64_t _next = 0;
};

}  // namespace velorin::media
