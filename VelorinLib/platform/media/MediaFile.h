// A media file opened by libavformat. Internal to this folder: the library's headers are heavy.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <memory>
#include <string>

#include "foundation/Result.h"
#include "platform/files/RegularFile.h"
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

/// Its bytes come from one descriptor that was opened before, so that no protocol is ever chosen by
/// what a file says; a playlist, a reference to another file or to the network opens nothing. What
/// one file may make us read is bounded. One thread at a time; not movable.
class MediaFile {
 public:
  static Result<std::unique_ptr<MediaFile>, MediaError> open(const std::string& path);
  ~MediaFile();
  MediaFile(const MediaFile&) = delete;
  MediaFile& operator=(const MediaFile&) = delete;

  AVFormatContext& context() noexcept { return *_context; }
  /// The stream that would be played; never null.
  AVStream& audio() noexcept { return *_audio; }

 private:
  explicit MediaFile(RegularFile file);
  static int read(void* self, std::uint8_t* buffer, int size);
  static std::int64_t seek(void* self, std::int64_t offset, int whence);

  const RegularFile _file;
  const std::uint64_t _size;  // without tags behind the sound
  std::uint64_t _position = 0;
  std::uint64_t _bytesLeft;
  AVIOContext* _io = nullptr;
  AVFormatContext* _context = nullptr;
  AVStream* _audio = nullptr;
};

/// What an error code of the library means.
MediaError mediaError(const char* what, int code);

}  // namespace velorin::media
