// The pull interface between the fill thread and whatever decoder is open.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/audio/StreamFormat.h"

namespace velorin {

class DSDSource;

/// What the signal path shows of the decoder at work.
struct DecoderInfo {
  std::string name;
  std::string library;
  bool isLossless = true;
  std::optional<std::string> formatTag;

  bool operator==(const DecoderInfo&) const = default;
};

/// Result of one read. `status` is 0 for success; 0 frames with status 0 is the end of the
/// stream.
struct DecodeResult {
  int status = 0;
  std::uint32_t frames = 0;
};

/// What the fill loop asks of a decoder. One thread at a time uses an object: the engine queue
/// before the fill thread starts, then the fill thread.
class FillThreadDecoder {
 public:
  virtual ~FillThreadDecoder() = default;

  /// Delivers up to `frames` frames into the planar list: 32-bit float in -1 to 1 with `asFloat`,
  /// else the integer form of the client format (16-bit words for a source of at most 16 bits,
  /// 32-bit words otherwise, each with the source's bits at the top of the word). Does not change
  /// the list's byte sizes. Never throws.
  virtual DecodeResult read(const AudioBufferList& target, std::uint32_t frames,
                            bool asFloat) noexcept = 0;

  /// Frames from the start of the file to the next frame that read() will deliver.
  virtual std::int64_t currentPosition() const noexcept = 0;
};

/// A decoder of a file: adds what is asked once per track, and seeking.
class FileDecoder : public FillThreadDecoder {
 public:
  /// Hz, as the file states it.
  virtual double sampleRate() const noexcept = 0;
  virtual std::uint32_t channels() const noexcept = 0;
  virtual std::uint32_t bitsPerSample() const noexcept = 0;
  /// 0 when the file does not tell.
  virtual std::int64_t totalFrames() const noexcept = 0;
  virtual DecoderInfo info() const = 0;

  /// Samples are floating point at the source, so integer output would lose their range.
  virtual bool isFloatSource() const noexcept { return false; }

  /// The one-bit side of a DSD file, which is to be told its output rate before anything else is
  /// asked of the decoder; null for every other file.
  virtual DSDSource* dsd() noexcept { return nullptr; }

  /// Moves to a frame, a negative one taken as 0. False when the position cannot be reached;
  /// the decoder stays usable.
  virtual bool seek(std::int64_t frame) noexcept = 0;
};

/// Why a decoder could not be made. Closed sets of causes; the text says what to do.
struct DecoderError {
  enum class Kind { allocationFailed, initFailed, seekFailed };
  Kind kind = Kind::initFailed;
  std::string text;
};

}  // namespace velorin
