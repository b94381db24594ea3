// A WavPack file as libwavpack unpacks it: frames of interleaved 32-bit words.
#pragma once

#include <cstdint>
#include <memory>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/decoders/ReadableFile.h"
#include "foundation/Result.h"

namespace velorin {

/// Keeps what the library needs to go on where it gives up. One thread at a time; only open() and
/// a seek that failed allocate (the library does as it needs).
class WavPackStream {
 public:
  struct Format {
    std::uint32_t sampleRate = 0;     ///< Hz, at least 1; of one-bit audio after the decimation
    std::uint32_t channels = 0;       ///< 1 to kMaxChannels
    std::uint32_t bitsPerSample = 0;  ///< that carry sound, 1 to 32
    /// The words' full scale is 2^(containerBits - 1): 8, 16, 24 or 32. Bits that carry no sound
    /// are at the bottom.
    std::uint32_t containerBits = 0;
    std::int64_t totalFrames = 0;  ///< 0 when the file does not tell
    bool isFloat = false;          ///< the words are the bit patterns of floats
    bool isLossless = false;       ///< a hybrid file is, together with its correction file
    bool isOneBit = false;         ///< PCM made of DSD
  };

  /// `correction`: the .wvc file of a hybrid one, or null; one that does not fit is left aside,
  /// with a line in the log. The error's text is one line: what is wrong and what to do.
  static Result<std::unique_ptr<WavPackStream>, DecoderError> open(
      std::unique_ptr<ReadableFile> file, std::unique_ptr<ReadableFile> correction);

  ~WavPackStream();
  WavPackStream(const WavPackStream&) = delete;
  WavPackStream& operator=(const WavPackStream&) = delete;

  const Format& format() const noexcept { return _format; }

  /// Up to `frames` frames; fewer only at the end of the stream. Lost blocks become silence.
  std::uint32_t unpack(std::int32_t* interleaved, std::uint32_t frames) noexcept;

  /// Sample-exact. False when the frame cannot be reached: where the stream then stands is not
  /// known, but another seek may succeed.
  bool seek(std::int64_t frame) noexcept;

 private:
  struct Library;
  struct Opening;

  WavPackStream() = default;
  bool reopen() noexcept;

  std::unique_ptr<ReadableFile> _file;
  std::unique_ptr<ReadableFile> _correction;
  std::unique_ptr<Library> _library;
  Format _format;
};

}  // namespace velorin
