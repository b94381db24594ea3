// How the engine comes by the file of a track: where it is, from RAM or from disk, which decoder.
#pragma once

#include <memory>
#include <string>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/memory/MemoryPlayback.h"
#include "foundation/Result.h"

namespace velorin {

/// A track's file, ready to be decoded.
struct OpenedTrack {
  std::unique_ptr<FileDecoder> decoder;
  bool isInMemory = false;  ///< the whole file was read into RAM first
};

/// Shared by the engine and its fill threads, one of which may outlive it in a dead file. Any
/// thread but the render thread; open() may block for as long as the file does.
class TrackFiles {
 public:
  /// Whether tracks are read into RAM first.
  MemoryPlayback& memory() noexcept { return _memory; }

  Result<OpenedTrack, DecoderError> open(const std::string& path);

 private:
  MemoryPlayback _memory;
};

}  // namespace velorin
