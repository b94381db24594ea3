// Packets to blocks of samples. Internal to this folder.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "engine/decoders/media/PacketReader.h"

namespace velorin::media {

/// Decodes what a reader gives, with nothing cut off at either end: encoder delay and padding are
/// its user's business. A packet that cannot be decoded is passed over. One thread at a time.
class BlockDecoder {
 public:
  static Result<std::unique_ptr<BlockDecoder>, DecoderError> open(PacketReader& packets);

  /// The next block with at least one frame. False at the end.
  bool next() noexcept;

  /// Valid until the next call.
  const AVFrame& block() const noexcept { return *_frame; }
  std::int64_t frames() const noexcept { return _frame->nb_samples; }

  /// The number of the block's first frame as its packet tells, AV_NOPTS_VALUE if it does not.
  std::int64_t start() const noexcept { return _frame->pts; }

  /// True when something could not be decoded between the block before and this one.
  bool isAfterLoss() const noexcept { return _isAfterLoss; }

  /// Frames that the container wants cut: of the stream's beginning, known from the first packet
  /// on, and of this block's end.
  std::int64_t wantedStartCut() const noexcept { return _startCut; }
  std::int64_t wantedEndCut() const noexcept;

  /// Forgets what was decoded so far; to be called after each seek of the reader.
  void flush() noexcept;

  /// The same as after opening, which a flush does not bring about with every codec. False when
  /// there is not enough memory; nothing is decoded then.
  bool restart() noexcept;

  const AVCodecContext& context() const noexcept { return *_codec; }

 private:
  explicit BlockDecoder(PacketReader& packets) : _packets(packets) {}
  std::optional<DecoderError> openCodec();
  bool feed() noexcept;
  bool isPlain() const noexcept;
  bool takePlain() noexcept;

  PacketReader& _packets;
  Codec _codec;
  Frame _frame;
  std::int64_t _startCut = 0;
  bool _sawPacket = false;
  bool _isDraining = false;
  bool _isAfterLoss = false;
};

}  // namespace velorin::media
