#include "engine/decoders/FLACStream.h"

#include <FLAC/stream_decoder.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>

#include "platform/vector/Vector.h"

namespace velorin {
namespace {

DecoderError initFailed(std::string text) {
  return {.kind = DecoderError::Kind::initFailed, .text = std::move(text)};
}

enum class Container { native, ogg, unknown };

// Looks for the signature, after any ID3v2 tags: taggers put them there although FLAC has its own.
Container containerOf(ReadableFile& file) {
  std::uint64_t position = 0;
  std::array<std::byte, 10> head{};
  for (int tag = 0; tag < 16; ++tag) {
    file.seek(position);
    if (file.readInto(head) < 4) return Container::unknown;
    if (std::memcmp(head.data(), "fLaC", 4) == 0) return Container::native;
    if (std::memcmp(head.data(), "OggS", 4) == 0) return Container::ogg;
    if (std::memcmp(head.data(), "ID3", 3) != 0) return Container::unknown;
    // The length is four bytes of seven bits and leaves out the header and, flagged by 0x10, the
    // footer of ten bytes each.
    std::uint64_t length = 0;
    for (int i = 6; i < 10; ++i) {
      length = length << 7 | (std::to_integer<unsigned>(head[i]) & 0x7f);
    }
    position += 10 + length + ((std::to_integer<unsigned>(head[5]) & 0x10) != 0 ? 10 : 0);
    if (position >= file.size()) return Container::unknown;
  }
  return Container::unknown;
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
      if (offset > file.size()) return FLAC__STREAM_DECODER_SEEK_STATUS_ERROR;
      file.seek(offset);
      return FLAC__STREAM_DECODER_SEEK_STATUS_OK;
    } catch (const std::exception&) {
      return FLAC__STREAM_DECODER_SEEK_STATUS_ERROR;
    }
  }

  static FLAC__StreamDecoderTellStatus tell(const FLAC__StreamDecoder*, FLAC__uint64* offset,
                                            void* client) {
    if (client == nullptr || offset == nullptr) return FLAC__STREAM_DECODER_TELL_STATUS_ERROR;
    *offset = self(client)._file->offset();
    return FLAC__STREAM_DECODER_TELL_STATUS_OK;
  }

  static FLAC__StreamDecoderLengthStatus length(const FLAC__StreamDecoder*, FLAC__uint64* bytes,
                                                void* client) {
    if (client == nullptr || bytes == nullptr) return FLAC__STREAM_DECODER_LENGTH_STATUS_ERROR;
    *bytes = self(client)._file->size();
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
      self(client).takeBlock(buffer, header.channels, header.blocksize, header.bits_per_sample);
      // libFLAC has turned frame numbers into sample numbers by now.
      self(client)._blockStart = static_cast<std::int64_t>(header.number.sample_number);
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

FLACStream::FLACStream(std::unique_ptr<ReadableFile> file) noexcept : _file(std::move(file)) {}

FLACStream::~FLACStream() = default;

Result<std::unique_ptr<FLACStream>, DecoderError> FLACStream::open(
    std::unique_ptr<ReadableFile> file) {
  if (file == nullptr) return initFailed("there is no file to read");
  if (file->size() == 0) {
    return initFailed("the file is empty (0 bytes); copy it again from its source");
  }
  const Container container = containerOf(*file);
  if (container == Container::unknown) {
    return initFailed(
        "this is not a FLAC file: the \"fLaC\" mark is missing; give it the extension of its real "
        "format, or copy it again if it is damaged");
  }
  file->seek(0);

  std::unique_ptr<FLACStream> stream(new FLACStream(std::move(file)));
  stream->_library = std::make_unique<Library>();
  FLAC__StreamDecoder* const handle = stream->_library->handle;
  if (handle == nullptr) {
    return DecoderError{.kind = DecoderError::Kind::allocationFailed,
                        .text = "not enough memory for a FLAC decoder; close other programs"};
  }
  const auto init = container == Container::ogg ? FLAC__stream_decoder_init_ogg_stream
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
  if (FLAC__stream_decoder_seek_absolute(_library->handle, frame)) return true;
  _blockFrames = 0;  // the search may have delivered blocks on its way
  FLAC__stream_decoder_flush(_library->handle);
  return false;
}

void FLACStream::takeBlock(const std::int32_t* const* samples, std::uint32_t channels,
                           std::uint32_t frames, std::uint32_t bits) {
  _blockFrames = 0;
  bits = std::clamp(bits, 1u, 32u);
  const auto high = static_cast<std::int32_t>((std::uint32_t{1} << (bits - 1)) - 1);
  const unsigned up = _format.bitsPerSample > bits ? _format.bitsPerSample - bits : 0;
  const unsigned down = bits > _format.bitsPerSample ? bits - _format.bitsPerSample : 0;
  for (std::uint32_t channel = 0; channel < _format.channels; ++channel) {
    std::vector<std::int32_t>& plane = _planes[channel];
    if (plane.size() < frames) plane.resize(frames);
    if (channel >= channels || samples[channel] == nullptr) {
      std::fill_n(plane.begin(), frames, 0);
      continue;
    }
    // A crafted or damaged frame can decode to values beyond its own depth.
    vector::clipInt32(samples[channel], -high - 1, high, plane.data(), frames);
    if (up > 0) vector::shiftLeftInt32(plane.data(), up, plane.data(), frames);
    if (down > 0) vector::shiftRightInt32(plane.data(), down, plane.data(), frames);
  }
  _blockFrames = frames;
}

}  // namespace velorin
