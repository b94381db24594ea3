// A file of any kind that the FFmpeg libraries read, as a run of numbered frames. Internal to the
// decoders.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/decoders/ReadableFile.h"
#include "foundation/Result.h"

namespace velorin {

/// What the decoders over the FFmpeg libraries have in common: packets, samples, exact position and
/// exact seek.
///
/// Frame 0 is the first of the music: what an encoder had to put ahead of it (MP3, AAC, Opus) is
/// not counted and not delivered, nor what it padded the end with, as far as the file tells of it.
/// So a file has as many frames as were encoded, and files cut from one recording join without a
/// seam.
///
/// A seek decodes from so far ahead of its target that the codec has forgotten where it began; the
/// frames that follow are those of reading from the start (but for noise that AAC and Opus decoders
/// make up). What cannot be decoded becomes silence of the same length where the container tells
/// how long it was, else it is left out. Rate and channels are those of the first block to the end:
/// later channels too many are dropped, missing ones are silent.
///
/// One thread at a time. read() allocates nothing of its own.
class MediaStream {
 public:
  struct Format {
    double sampleRate = 0;
    std::uint32_t channels = 0;
    std::uint32_t bitsPerSample = 0;  ///< of the source; 0 for lossy codecs
    std::int64_t totalFrames = 0;     ///< 0 when the file does not tell
    bool isFloat = false;
    bool isLossless = false;
    std::string name;  ///< of codec or container: "MP3", "WAV"
  };

  /// Which files are taken: music of any kind, or Monkey's Audio alone.
  enum class Kinds { music, ape };

  /// Reads the head of the file; all of it where a stream of frames tells its length no other way.
  /// The extension, without its dot, helps to tell formats apart.
  static Result<std::unique_ptr<MediaStream>, DecoderError> open(std::unique_ptr<ReadableFile> file,
                                                                 Kinds kinds,
                                                                 std::string_view extension);
  ~MediaStream();
  MediaStream(const MediaStream&) = delete;
  MediaStream& operator=(const MediaStream&) = delete;

  const Format& format() const noexcept { return _format; }

  /// As FillThreadDecoder::read(). Buffers beyond the file's channels are filled with silence; a
  /// list of fewer takes the first channels. Never writes more than a buffer's byte size.
  DecodeResult read(const AudioBufferList& target, std::uint32_t frames, bool asFloat) noexcept;

  std::int64_t position() const noexcept;

  /// False when the frame cannot be reached; reading then goes on where it was.
  bool seek(std::int64_t frame) noexcept;

  /// True once a read has met the end; a successful seek clears it.
  bool isEOF() const noexcept { return _isEOF; }

 private:
  struct Library;
  enum class Search { reached, overshot, ended };

  explicit MediaStream(std::unique_ptr<Library> library) noexcept;
  std::optional<DecoderError> begin();
  void measureEnd(std::int64_t frameSize) noexcept;
  bool nextBlock() noexcept;
  void takeBlock() noexcept;
  bool goTo(std::int64_t number) noexcept;
  Search decodeUpTo(std::int64_t number) noexcept;
  void pass(std::int64_t frames) noexcept;
  void deliver(const AudioBufferList& target, std::uint32_t at, std::uint32_t count,
               bool asFloat) noexcept;

  std::unique_ptr<Library> _library;
  Format _format;
  // Frames are numbered from the stream's first one here, encoder delay included.
  std::int64_t _begin = 0;    // of the music
  std::int64_t _end = -1;     // where playing ends; -1 for where the stream ends
  std::int64_t _next = 0;     // that read() delivers; -1 while a seek has yet to find out
  std::int64_t _silence = 0;  // frames to deliver ahead of the block, in place of lost ones
  std::int64_t _blockAt = 0;  // frames of the block that were delivered
  std::int64_t _blockLeft = 0;
  bool _isTotalExact = false;
  bool _isEOF = false;
};

}  // namespace velorin
