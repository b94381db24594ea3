#include "engine/decoders/APEDecoder.h"

#include "engine/decoders/FileHandle.h"

namespace velorin {

APEDecoder::Made APEDecoder::create(std::unique_ptr<ReadableFile> file) {
  const bool isOnDisk = dynamic_cast<const FileHandle*>(file.get()) != nullptr;
  if (file && !isOnDisk && file->size() >= kMemoryLimit) {
    return DecoderError{.text = "an APE file of 2 GiB or more is not played from memory"};
  }
  auto stream = MediaStream::open(std::move(file), MediaStream::Kinds::ape, "ape");
  if (!stream) return stream.error();
  return std::unique_ptr<APEDecoder>(new APEDecoder(std::move(stream).value()));
}

APEDecoder::APEDecoder(std::unique_ptr<MediaStream> stream) noexcept
    : _stream(std::move(stream)), _format(_stream->format()) {}

DecodeResult APEDecoder::read(const AudioBufferList& target, std::uint32_t frames,
                              bool asFloat) noexcept {
  if (_stream == nullptr) return {.status = -1, .frames = 0};
  return _stream->read(target, frames, asFloat);
}

std::int64_t APEDecoder::currentPosition() const noexcept {
  return _stream ? _stream->position() : 0;
}

DecoderInfo APEDecoder::info() const {
  return {.name = _format.name, .library = "FFmpeg", .isLossless = true, .formatTag = "APE"};
}

bool APEDecoder::seek(std::int64_t frame) noexcept {
  return _stream && _stream->seek(frame);
}

}  // namespace velorin
