// How the engine comes by the file of a track: where it is, from RAM or from disk, which decoder.
#pragma once

#include <memory>
#include <string>

#include "engine/decoders/FillThreadDecoder.h"
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
  Result<OpenedTrack, DecoderError> open(const std::string& path);
};

}  // namespace velorin
