#include "engine/decoders/FLACStream.h"

#include <FLAC/stream_decoder.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <optional>

#include "platform/vector/Vector.h"

namespace velorin {
namespace {

DecoderError initFailed(std::string text) {
  return {.kind = DecoderError::Kind::initFailed, .text = std::move(text)};
}

// Seconds. A longer hole in the numbering is a header's lie rather than damage.
constexpr int kLongestLoss = 10;

enum class Container { native, ogg };

struct Signature {
  Container container = Container::native;
  std::uint64_t offset = 0;
};

// Finds the stream's mark, behind any ID3v2 tags: taggers put them there although FLAC has its
// own. libFLAC would step over one tag, but fail at a second one or at a footer.
std::optional<Signature> findSignature(ReadableFile& file) {
  std::uint64_t position = 0;
  std::array<std::byte, 10> head{};
  for (int tag = 0; tag < 16 && position < file.size(); ++tag) {
    file.seek(position);
    if (file.readInto(head) < 4) return std::nullopt;
    if (std::memcmp(head.data(), "fLaC", 4) == 0) return Signature{Container::native, position};
    if (std::memcmp(head.data(), "OggS", 4) == 0) return Signature{Container::ogg, position};
    if (std::memcmp(head.data(), "ID3", 3) != 0) return std::nullopt;
    // The length is four bytes of seven bits and leaves out the header and, flagged by 0x10, the
    // footer of ten bytes each.
    std::uint64_t length = 0;
    for (std::size_t i = 6; i < 10; ++i) {
      length = length << 7 | (std::to_integer<unsigned>(head[i]) & 0x7f);
    }
    position += 10 + length + ((std::to_integer<unsigned>(head[5]) & 0x10) != 0 ? 10 : 0);
  }
  return std::nullopt;
}

}  // namespace

// The handle and the callbacks that libFLAC calls with the stream as client data. They are called
// from C, so nothing may be thrown through them.
struct FLACStream::Library {
  FLAC__StreamDecoder* handle = FLAC__stream_decoder_new();

  Library() = default;
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() {
    if (handle == nullptr) return;
    FLAC__stream_decoder_finish(handle);
    FLAC__stream_decoder_delete(handle);
  }

  static FLACStream& self(void* client) { return *static_cast<FLACStream*>(client); }

  static FLAC__StreamDecoderReadStatus read(const FLAC__StreamDecoder*, FLAC__byte buffer[],
                                            std::size_t* bytes, void* client) {
    if (client == nullptr || buffer == nullptr || bytes == nullptr) {
      return FLAC__STREAM_DECODER_READ_STATUS_ABORT;
    }
    *bytes = self(client)._file->readInto({reinterpret_cast<std::byte*>(buffer), *bytes});
    return *bytes == 0 ? FLAC__STREAM_DECODER_READ_STATUS_END_OF_STREAM
                       : FLAC__STREAM_DECODER_READ_STATUS_CONTINUE;
  }

  static FLAC__StreamDecoderSeekStatus seek(const FLAC__StreamDecoder*, FLAC__uint64 offset,
                                            void* client) {
    if (client == nullptr) return FLAC__STREAM_DECODER_SEEK_STATUS_ERROR;
    try {
      ReadableFile& file = *self(client)._file;
      const std::uint64_t origin = self(client)._origin;
      const std::uint64_t size = file.size();
      if (offset > size - std::min(origin, size)) {
        return FLAC__STREAM_DECODER_SEEK_STATUS_ERROR;
      }
      file.seek(origin + offset);
      return FLAC__STREAM_DECODER_SEEK_STATUS_OK;
    } catch (const std::exception&) {
      return FLAC__STREAM_DECODER_SEEK_STATUS_ERROR;
    }
  }

  static FLAC__StreamDecoderTellStatus tell(const FLAC__StreamDecoder*, FLAC__uint64* offset,
                                            void* client) {
    if (client == nullptr || offset == nullptr) return FLAC__STREAM_DECODER_TELL_STATUS_ERROR;
    const FLACStream& stream = self(client);
    *offset = stream._file->offset() - std::min(stream._origin, stream._file->offset());
    return FLAC__STREAM_DECODER_TELL_STATUS_OK;
  }

  static FLAC__StreamDecoderLengthStatus length(const FLAC__StreamDecoder*, FLAC__uint64* bytes,
                                                void* client) {
    if (client == nullptr || bytes == nullptr) return FLAC__STREAM_DECODER_LENGTH_STATUS_ERROR;
    const FLACStream& stream = self(client);
    const std::uint64_t size = stream._file->size();  // the file may shrink while we read
    *bytes = size - std::min(stream._origin, size);
    return FLAC__STREAM_DECODER_LENGTH_STATUS_OK;
  }

  static FLAC__bool eof(const FLAC__StreamDecoder*, void* client) {
    if (client == nullptr) return true;
    const ReadableFile& file = *self(client)._file;
    return file.offset() >= file.size();
  }

  static FLAC__StreamDecoderWriteStatus write(const FLAC__StreamDecoder*, const FLAC__Frame* frame,
                                              const FLAC__int32* const buffer[], void* client) {
    if (client == nullptr || frame == nullptr || buffer == nullptr) {
      return FLAC__STREAM_DECODER_WRITE_STATUS_ABORT;
    }
    try {
      const FLAC__FrameHeader& header = frame->header;
      // libFLAC has turned frame numbers into sample numbers by now.
      self(client).takeBlock(buffer,
                             {.start = static_cast<std::int64_t>(header.number.sample_number),
                              .frames = header.blocksize,
                              .channels = header.channels,
                              .bits = header.bits_per_sample});
      return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
    } catch (const std::exception&) {  // out of memory
      return FLAC__STREAM_DECODER_WRITE_STATUS_ABORT;
    }
  }

  static void metadata(const FLAC__StreamDecoder*, const FLAC__StreamMetadata* block,
                       void* client) {
    if (client == nullptr || block == nullptr) return;
    FLACStream& stream = self(client);
    // The first one counts: a second STREAMINFO must not change the shape under the reader.
    if (block->type != FLAC__METADATA_TYPE_STREAMINFO || stream._hasFormat) return;
    const FLAC__StreamMetadata_StreamInfo& info = block->data.stream_info;
    stream._format = {.sampleRate = info.sample_rate,
                      .channels = info.channels,
                      .bitsPerSample = info.bits_per_sample,
                      .totalFrames = static_cast<std::int64_t>(info.total_samples)};
    stream._hasFormat = true;
  }

  // Damage is not the end: libFLAC goes on with the next frame that it can find.
  static void error(const FLAC__StreamDecoder*, FLAC__StreamDecoderErrorStatus, void*) {}
};

FLACStream::FLACStream(std::unique_ptr<ReadableFile> file, std::uint64_t origin) noexcept
    : _file(std::move(file)), _origin(origin) {}

FLACStream::~FLACStream() = default;

Result<std::unique_ptr<FLACStream>, DecoderError> FLACStream::open(
    std::unique_ptr<ReadableFile> file) {
  if (file == nullptr) return initFailed("there is no file to read");
  if (file->size() == 0) {
    return initFailed("the file is empty (0 bytes); copy it again from its source");
  }
  const std::optional<Signature> signature = findSignature(*file);
  if (!signature) {
    return initFailed(
        "this is not a FLAC file: the \"fLaC\" mark is missing; give it the extension of its real "
        "format, or copy it again if it is damaged");
  }
  file->seek(signature->offset);

  std::unique_ptr<FLACStream> stream(new FLACStream(std::move(file), signature->offset));
  stream->_library = std::make_unique<Library>();
  FLAC__StreamDecoder* const handle = stream->_library->handle;
  if (handle == nullptr) {
    return DecoderError{.kind = DecoderError::Kind::allocationFailed,
                        .text = "not enough memory for a FLAC decoder; close other programs"};
  }
  const auto init = signature->container == Container::ogg ? FLAC__stream_decoder_init_ogg_stream
                                                           : FLAC__stream_decoder_init_stream;
  const FLAC__StreamDecoderInitStatus status =
      init(handle, Library::read, Library::seek, Library::tell, Library::length, Library::eof,
           Library::write, Library::metadata, Library::error, stream.get());
  if (status == FLAC__STREAM_DECODER_INIT_STATUS_UNSUPPORTED_CONTAINER) {
    return initFailed("this libFLAC was built without Ogg; convert the file to native FLAC");
  }
  if (status != FLAC__STREAM_DECODER_INIT_STATUS_OK) {
    return initFailed(fmt::format("libFLAC cannot start ({}); close other programs and try again",
                                  FLAC__StreamDecoderInitStatusString[status]));
  }
  if (!FLAC__stream_decoder_process_until_end_of_metadata(handle) || !stream->_hasFormat) {
    return initFailed(
        "the FLAC file has no readable STREAMINFO block; it is damaged, copy it again");
  }
  const Format& format = stream->_format;
  if (format.sampleRate == 0) {
    return initFailed(
        "the FLAC file states a sample rate of 0 Hz; it holds no audio or is damaged");
  }
  if (format.channels == 0 || format.bitsPerSample == 0 || format.bitsPerSample > 32) {
    return initFailed(fmt::format("the FLAC file states {} channels of {} bits; it is damaged",
                                  format.channels, format.bitsPerSample));
  }
  stream->_planes.resize(format.channels);
  return stream;
}

bool FLACStream::decodeBlock() noexcept {
  FLAC__StreamDecoder* const handle = _library->handle;
  // Taken here and not with every delivery: ahead of a frame that follows damage libFLAC may
  // deliver silent ones, which the frame itself then replaces. lostBefore() accounts for them.
  _expectedStart = _blockFrames > 0 ? _blockStart + _blockFrames : -1;
  _blockFrames = 0;
  while (_blockFrames == 0) {
    if (!FLAC__stream_decoder_process_single(handle)) {
      _blockFrames = 0;
      return false;
    }
    const FLAC__StreamDecoderState state = FLAC__stream_decoder_get_state(handle);
    if (state == FLAC__STREAM_DECODER_END_OF_STREAM) break;
  }
  return _blockFrames > 0;
}

bool FLACStream::seek(std::uint64_t frame) noexcept {
  _blockFrames = 0;
  _expectedStart = -1;
  if (FLAC__stream_decoder_seek_absolute(_library->handle, frame)) return true;
  _blockFrames = 0;  // the search may have delivered blocks on its way
  FLAC__stream_decoder_flush(_library->handle);
  return false;
}

void FLACStream::takeBlock(const std::int32_t* const* samples, const Header& header) {
  _blockFrames = 0;
  const std::uint32_t bits = std::clamp(header.bits, 1u, 32u);
  const auto high = static_cast<std::int32_t>((std::uint32_t{1} << (bits - 1)) - 1);
  const unsigned up = _format.bitsPerSample > bits ? _format.bitsPerSample - bits : 0;
  const unsigned down = bits > _format.bitsPerSample ? bits - _format.bitsPerSample : 0;
  for (std::uint32_t channel = 0; channel < _format.channels; ++channel) {
    std::vector<std::int32_t>& plane = _planes[channel];
    if (plane.size() < header.frames) plane.resize(header.frames);
    if (channel >= header.channels || samples[channel] == nullptr) {
      std::fill_n(plane.begin(), header.frames, 0);
      continue;
    }
    // A crafted or damaged frame can decode to values beyond its own depth.
    vector::clipInt32(samples[channel], -high - 1, high, plane.data(), header.frames);
    if (up > 0) vector::shiftLeftInt32(plane.data(), up, plane.data(), header.frames);
    if (down > 0) vector::shiftRightInt32(plane.data(), down, plane.data(), header.frames);
  }
  _blockFrames = header.frames;
  place(header);
}

void FLACStream::place(const Header& header) noexcept {
  const std::int64_t end = header.start + header.frames;
  const std::int64_t lost = _expectedStart < 0 ? 0 : header.start - _expectedStart;
  const bool isBelievable = lost > 0 && lost <= std::int64_t{kLongestLoss} * _format.sampleRate &&
                            (_format.totalFrames == 0 || end <= _format.totalFrames);
  _lostBefore = isBelievable ? static_cast<std::uint32_t>(lost) : 0;
  _blockStart = header.start;
}

}  // namespace velorin
