#include <algorithm>
#include <array>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "platform/images/Blending.h"
#include "platform/images/BoxReducer.h"
#include "platform/images/ImageDecoder.h"
#include "platform/images/PictureFormats.h"

namespace velorin::images {
namespace {

struct FreeContext {
  void operator()(AVCodecContext* context) const { ::avcodec_free_context(&context); }
};
struct FreePacket {
  void operator()(AVPacket* packet) const { ::av_packet_free(&packet); }
};
struct FreeFrame {
  void operator()(AVFrame* frame) const { ::av_frame_free(&frame); }
};
struct FreeScaler {
  void operator()(SwsContext* context) const { ::sws_freeContext(context); }
};
using Packet = std::unique_ptr<AVPacket, FreePacket>;
using Frame = std::unique_ptr<AVFrame, FreeFrame>;

AVCodecID codecOf(OtherFormat format) {
  switch (format) {
    case OtherFormat::webp:
      return AV_CODEC_ID_WEBP;
    case OtherFormat::bmp:
      return AV_CODEC_ID_BMP;
    case OtherFormat::tiff:
      return AV_CODEC_ID_TIFF;
    case OtherFormat::gif:
      return AV_CODEC_ID_GIF;
  }
  return AV_CODEC_ID_NONE;
}

ImageError unreadable(int code) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  ::av_strerror(code, text.data(), text.size());
  return {fmt::format("not a readable picture: {}", text.data())};
}

/// What the frames of a decoder may take, and what it wanted.
struct FrameBudget {
  std::uint64_t allowed = 0;
  std::uint64_t wanted = 0;
};

// The only moment at which the decoder says how large a picture is, for every format.
int allocateFrame(AVCodecContext* context, AVFrame* frame, int flags) {
  auto& budget = *static_cast<FrameBudget*>(context->opaque);
  const auto format = static_cast<AVPixelFormat>(frame->format);
  const int bytes = ::av_image_get_buffer_size(format, frame->width, frame->height, 64);
  if (bytes < 0) return bytes;
  budget.wanted = static_cast<std::uint64_t>(bytes);
  if (budget.wanted > budget.allowed) return AVERROR(ENOMEM);
  return ::avcodec_default_get_buffer2(context, frame, flags);
}

Result<Frame, ImageError> decodeFrame(const AVPacket& packet, AVCodecID id, FrameBudget& budget) {
  // Its own lines do not belong on the terminal; ours says what is wrong.
  [[maybe_unused]] static const bool isQuiet = (::av_log_set_level(AV_LOG_QUIET), true);
  const AVCodec* codec = ::avcodec_find_decoder(id);
  if (codec == nullptr) return ImageError{"FFmpeg cannot read this format here"};
  const std::unique_ptr<AVCodecContext, FreeContext> context(::avcodec_alloc_context3(codec));
  Frame frame(::av_frame_alloc());
  if (!context || !frame) return ImageError{"not enough memory"};
  context->opaque = &budget;
  context->get_buffer2 = allocateFrame;
  context->thread_count = 1;
  context->thread_type = FF_THREAD_SLICE;
  // A byte per pixel is the least that a decoder keeps of its own.
  context->max_pixels = static_cast<std::int64_t>(budget.allowed);
  int code = ::avcodec_open2(context.get(), codec, nullptr);
  if (code >= 0) code = ::avcodec_send_packet(context.get(), &packet);
  if (code >= 0) code = ::avcodec_receive_frame(context.get(), frame.get());
  if (code < 0) return unreadable(code);
  return frame;
}

Result<Packet, ImageError> readAll(PictureSource& source, OtherFormat format) {
  Packet packet(::av_packet_alloc());
  if (source.size() > kMaxPictureMemory / 2) return needsTooMuch(2 * source.size());
  if (!packet || ::av_new_packet(packet.get(), static_cast<int>(source.size())) < 0) {
    return ImageError{"not enough memory"};
  }
  if (source.read(packet->data, source.size()) != source.size()) return ImageError{kCutShort};
  // FFmpeg shows what there is of a WebP and says nothing; its head tells how long it should be.
  if (format == OtherFormat::webp) {
    const std::uint8_t* length = packet->data + 4;
    const std::uint64_t stated =
        length[0] | length[1] << 8 | length[2] << 16 | static_cast<std::uint64_t>(length[3]) << 24;
    if (stated + 8 > source.size()) return ImageError{kCutShort};
  }
  packet->flags |= AV_PKT_FLAG_KEY;
  return packet;
}

/// Brings a frame to RGB over white, a band of rows at a time, so that it is never whole twice.
class FrameReducer {
 public:
  FrameReducer(const AVFrame& frame, int longerSide)
      : _frame(frame),
        _factor(reduction(std::max(frame.width, frame.height), longerSide)),
        _reducer(frame.width, frame.height, _factor, _factor),
        // swscale writes whole vectors.
        _stride((static_cast<std::size_t>(frame.width) * 4 + 127) / 64 * 64),
        _band(_stride * kBandRows) {}

  Result<Bitmap, ImageError> reduce() && {
    for (int y = 0; y < _frame.height; y += kBandRows) {
      const int rows = std::min(kBandRows, _frame.height - y);
      if (!convert(y, rows)) return ImageError{"the picture has colours of an unknown kind"};
      for (int i = 0; i < rows; ++i) {
        const std::span row(_band.data() + _stride * static_cast<std::size_t>(i),
                            static_cast<std::size_t>(_frame.width) * 4);
        blendOverWhite(row);
        _reducer.addRow(row.data());
      }
    }
    return std::move(_reducer).take();
  }

 private:
  static constexpr int kBandRows = 64;  ///< a multiple of what a row of chroma spans

  bool convert(int y, int rows) {
    const auto format = static_cast<AVPixelFormat>(_frame.format);
    const AVPixFmtDescriptor* description = ::av_pix_fmt_desc_get(format);
    if (description == nullptr) return false;
    const bool isPalette = (description->flags & AV_PIX_FMT_FLAG_PAL) != 0;
    std::array<const std::uint8_t*, 4> planes{};
    for (std::size_t i = 0; i < planes.size() && _frame.data[i] != nullptr; ++i) {
      const bool isChroma = i == 1 || i == 2;
      const int first = isChroma ? y >> description->log2_chroma_h : y;
      planes[i] = isPalette && i == 1 ? _frame.data[1]
                                      : _frame.data[i] + std::ptrdiff_t{first} * _frame.linesize[i];
    }
    if (!_context || rows != _contextRows) {
      _context.reset(::sws_getContext(_frame.width, rows, format, _frame.width, rows,
                                      AV_PIX_FMT_RGBA, SWS_POINT | SWS_ACCURATE_RND, nullptr,
                                      nullptr, nullptr));
      _contextRows = rows;
    }
    if (!_context) return false;
    const std::array<std::uint8_t*, 4> target{_band.data(), nullptr, nullptr, nullptr};
    const std::array<int, 4> strides{static_cast<int>(_stride), 0, 0, 0};
    return ::sws_scale(_context.get(), planes.data(), _frame.linesize, 0, rows, target.data(),
                       strides.data()) == rows;
  }

  const AVFrame& _frame;
  const int _factor;
  BoxReducer _reducer;
  const std::size_t _stride;
  std::vector<std::uint8_t> _band;
  std::unique_ptr<SwsContext, FreeScaler> _context;
  int _contextRows = 0;
};

}  // namespace

DecodeResult decodeOther(PictureSource& source, OtherFormat format, int longerSide) {
  auto turn = waitForTurn(source.size());
  const auto packet = readAll(source, format);
  if (!packet) return packet.error();

  FrameBudget budget{.allowed = kSmallPictureMemory};
  auto frame = decodeFrame(*packet.value(), codecOf(format), budget);
  if (!frame) {
    // Perhaps because it is large, which only shows on the way.
    if (!turn) turn = waitForTurn(kMaxPictureMemory);
    budget = {.allowed = kMaxPictureMemory - source.size()};
    frame = decodeFrame(*packet.value(), codecOf(format), budget);
  }
  if (!frame && budget.wanted > budget.allowed) return needsTooMuch(budget.wanted);
  if (!frame) return frame.error();
  auto bitmap = FrameReducer(*frame.value(), longerSide).reduce();
  if (!bitmap) return bitmap.error();
  return ReducedPicture{std::move(bitmap).value(), {frame.value()->width, frame.value()->height}};
}

}  // namespace velorin::images
