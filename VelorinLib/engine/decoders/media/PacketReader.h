// The packets of a file's sound, each with the frame at which it begins. Internal to this folder.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/decoders/ReadableFile.h"
#include "engine/decoders/media/RawSound.h"
#include "platform/media/MediaFile.h"

namespace velorin::media {

/// Numbers the frames of a stream as they are coded: 0 is the first that a decoder would give if it
/// gave all of them, encoder delay included.
///
/// How packets come by their numbers is a matter of the container:
///  - counted: a stream of frames of one size without a container (MP3, ADTS, AC-3). Packet n
///    starts at n frame sizes; an index of the packets' places, made when it is first needed by
///    reading the file once, tells n after a jump.
///  - stamped: time stamps that are exact to the frame. Raw PCM is read past the library.
///  - listed: packets of one size in Matroska, whose time stamps are rounded to milliseconds. They
///    are counted too, and only the jump is by time. When the index finds that sizes differ after
///    all, this becomes "none".
///  - none: time stamps that are rounded to milliseconds or missing. Who decodes has to count, from
///    the start.
/// One thread at a time.
class PacketReader {
 public:
  enum class Numbers { counted, stamped, listed, none };

  static Result<std::unique_ptr<PacketReader>, DecoderError> open(
      std::unique_ptr<ReadableFile> file, const MediaRules& rules);

  AVFormatContext& context() noexcept { return _file->context(); }
  const AVCodecParameters& codec() noexcept { return *_file->audio().codecpar; }
  AVStream& stream() noexcept { return _file->audio(); }
  const MediaRules& rules() const noexcept { return _rules; }
  Numbers numbers() const noexcept { return _numbers; }

  /// The next packet, its time stamp replaced by the number of its first frame, or by
  /// AV_NOPTS_VALUE where that is not known. Null at the end of the file or where it cannot be
  /// read. The packet is the reader's until the next call.
  AVPacket* next() noexcept;

  /// Told once the first frames are decoded: at what number, as stamped, they begin, how many they
  /// are and at which rate. From here on packets are numbered by it. The number of that first
  /// decoded frame.
  std::int64_t setScale(std::int64_t firstStamp, std::int64_t frameSize, int sampleRate) noexcept;

  /// Moves to a packet that begins at or before the frame, or somewhat behind it where the
  /// container cannot tell: the caller looks at what comes. False when the library cannot.
  bool seek(std::int64_t frame) noexcept;

  /// Opens the same bytes anew: the state that every file can be brought back to. False when it
  /// cannot; there are no packets then.
  bool rewind() noexcept;

  /// How many packets there are; reads the file to its end once. Counted streams only. There is no
  /// next packet afterwards until a seek or rewind.
  std::int64_t countPackets() noexcept;

  /// Of raw PCM that lies in one piece; nothing of all else. Known once the scale is set.
  std::optional<std::int64_t> rawFrames() const noexcept {
    return _raw ? std::optional(_raw->frames()) : std::nullopt;
  }

  /// Where the first packet that was ever read lies in the file; 0 when the container cannot tell.
  std::uint64_t firstPlace() const noexcept { return _firstPlace.value_or(0); }

  /// Bytes of the file from an offset on, whatever the library reads meanwhile.
  std::size_t readBytes(std::uint64_t offset, std::span<std::byte> destination) noexcept {
    return _bytes->read(offset, destination);
  }
  std::uint64_t size() const noexcept { return _bytes->size(); }

 private:
  PacketReader(std::shared_ptr<MediaBytes> bytes, MediaRules rules)
      : _bytes(std::move(bytes)), _rules(std::move(rules)) {}
  bool readPacket() noexcept;
  std::int64_t numberOf(const AVPacket& packet) noexcept;
  void findRawSound() noexcept;
  bool isOfOneSize(const AVPacket& packet) noexcept;
  void makeIndex() noexcept;
  bool placePackets();

  const std::shared_ptr<MediaBytes> _bytes;
  const MediaRules _rules;
  std::unique_ptr<MediaFile> _file;
  Packet _packet;
  Numbers _numbers = Numbers::none;
  std::int64_t _firstStamp = 0;
  std::int64_t _frameSize = 0;
  int _sampleRate = 0;
  std::int64_t _nextCount = 0;         // of counted packets: which one is next; -1 when not known
  std::vector<std::uint64_t> _places;  // of counted packets: where each is in the file
  std::uint8_t _firstByte = 0;         // of listed packets
  std::optional<std::uint64_t> _firstPlace;
  std::optional<RawSound> _raw;
  std::int64_t _packetCount = 0;
  bool _isIndexed = false;
};

}  // namespace velorin::media
