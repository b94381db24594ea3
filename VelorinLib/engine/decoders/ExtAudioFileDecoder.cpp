#include "engine/decoders/ExtAudioFileDecoder.h"

namespace velorin {

ExtAudioFileDecoder::Made ExtAudioFileDecoder::create(std::unique_ptr<ReadableFile> file,
                                                      std::string_view extension) {
  auto stream = MediaStream::open(std::move(file), MediaStream::Kinds::music, extension);
  if (!stream) return stream.error();
  return std::unique_ptr<ExtAudioFileDecoder>(new ExtAudioFileDecoder(std::move(stream).value()));
}

ExtAudioFileDecoder::ExtAudioFileDecoder(std::unique_ptr<MediaStream> stream) noexcept
    : _stream(std::move(stream)), _format(_stream->format()) {}

DecodeResult ExtAudioFileDecoder::read(const AudioBufferList& target, std::uint32_t frames,
                                       bool asFloat) noexcept {
  if (_stream == nullptr) return {.status = -1, .frames = 0};
  return _stream->read(target, frames, asFloat);
}

std::int64_t ExtAudioFileDecoder::currentPosition() const noexcept {
  return _stream ? _stream->position() : 0;
}

DecoderInfo ExtAudioFileDecoder::info() const {
  return {.name = _format.name,
          .library = "FFmpeg",
          .isLossless = _format.isLossless,
          .formatTag = _format.name};
}

bool ExtAudioFileDecoder::seek(std::int64_t frame) noexcept {
  return _stream && _stream->seek(frame);
}

}  // namespace velorin
