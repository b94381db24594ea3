// A media file opened by libavformat. Internal to this folder: the library's headers are heavy.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "foundation/Result.h"
#include "platform/media/MediaProbe.h"

namespace velorin::media {

struct FrameDeleter {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
using Frame = std::unique_ptr<AVFrame, FrameDeleter>;
using Packet = std::unique_ptr<AVPacket, FrameDeleter>;
using Codec = std::unique_ptr<AVCodecContext, FrameDeleter>;

/// Where the bytes of a media file are.
class MediaBytes {
 public:
  virtual ~MediaBytes() = default;
  virtual std::uint64_t size() const noexcept = 0;
  /// Fills the destination from the offset on; fewer bytes at the end, and where reading fails.
  virtual std::size_t read(std::uint64_t offset, std::span<std::byte> destination) noexcept = 0;
};

/// What a file may be taken for.
struct MediaRules {
  std::string name;                ///< helps to tell formats apart; nothing is opened by it
  const char* demuxers = nullptr;  ///< the library's names, separated by commas; null for all
  const char* decoders = nullptr;  ///< likewise
  const char* options = nullptr;   ///< of demuxers, as "name=value:name=value"
};

/// Its bytes come from one file that was opened before, so that no protocol is ever chosen by what
/// a file says; a playlist, a reference to another file or to the network opens nothing. What one
/// file may make us read is bounded. One thread at a time; not movable.
class MediaFile {
 public:
  static Result<std::unique_ptr<MediaFile>, MediaError> open(const std::string& path);
  static Result<std::unique_ptr<MediaFile>, MediaError> open(std::shared_ptr<MediaBytes> bytes,
                                                             const MediaRules& rules);
  ~MediaFile();
  MediaFile(const MediaFile&) = delete;
  MediaFile& operator=(const MediaFile&) = delete;

  AVFormatContext& context() noexcept { return *_context; }
  /// The stream that would be played; never null.
  AVStream& audio() noexcept { return *_audio; }

  /// What is read from here on is counted anew: for who reads a file more than once.
  void renewBudget() noexcept;

 private:
  explicit MediaFile(std::shared_ptr<MediaBytes> bytes);
  static int read(void* self, std::uint8_t* buffer, int size);
  static std::int64_t seek(void* self, std::int64_t offset, int whence);

  const std::shared_ptr<MediaBytes> _bytes;
  const std::uint64_t _size;  // without tags behind the sound
  std::uint64_t _position = 0;
  std::uint64_t _bytesLeft = 0;
  AVIOContext* _io = nullptr;
  AVFormatContext* _context = nullptr;
  AVStream* _audio = nullptr;
};

/// What an error code of the library means.
MediaError mediaError(const char* what, int code);

}  // namespace velorin::media
