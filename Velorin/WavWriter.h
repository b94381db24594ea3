// Writes planar buffers into a WAV file.
//
// Format: "Multimedia Programming Interface and Data Specifications 1.0" (IBM and Microsoft, 1991)
// with WAVEFORMATEXTENSIBLE for more than two channels and for integers of more than 16 bits; a
// file whose sizes do not fit into 32 bits becomes RF64 (EBU Tech 3306).
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "OutputFile.h"
#include "foundation/Result.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {

struct WavSpec {
  enum class Sample { float32, int16, int32 };
  Sample sample = Sample::float32;
  std::uint32_t channels = 2;
  std::uint32_t sampleRate = 44100;  ///< Hz

  /// What holds a stream of this format without loss.
  static WavSpec of(const StreamFormat& format);

  std::uint32_t bytesPerFrame() const noexcept {
    return channels * (sample == Sample::int16 ? 2u : 4u);
  }
  bool operator==(const WavSpec&) const = default;
};

/// The bytes before the samples, for so many frames. Their number depends on the spec alone.
std::vector<std::byte> wavHeader(const WavSpec& spec, std::uint64_t frames);

/// One file. The header is right from commit() on; before that the file does not bear its name.
/// One thread at a time.
class WavWriter {
 public:
  static Result<std::unique_ptr<WavWriter>, OutputError> create(const std::filesystem::path& path,
                                                                const WavSpec& spec);

  /// Appends `frames` frames of the list. False when the file cannot be written; see error().
  bool append(const AudioBufferList& list, std::uint32_t frames);
  /// Appends frames of silence.
  bool appendSilence(std::uint64_t frames);
  /// Writes what is buffered and the final header, and gives the file its name.
  bool commit();

  const WavSpec& spec() const noexcept { return _spec; }
  std::uint64_t frames() const noexcept { return _frames; }
  const std::filesystem::path& path() const noexcept { return _file->path(); }
  const OutputError& error() const noexcept { return _file->error(); }

 private:
  WavWriter(std::unique_ptr<OutputFile> file, const WavSpec& spec);
  bool flush();

  std::unique_ptr<OutputFile> _file;
  WavSpec _spec;
  std::uint64_t _frames = 0;
  std::vector<std::byte> _staged;  ///< interleaved, not yet written
};

}  // namespace velorin
