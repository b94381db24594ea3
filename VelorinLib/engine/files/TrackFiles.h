// How the engine comes by the file of a track: where it is, from RAM or from disk, which decoder.
#pragma once

#include <memory>
#include <string>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/files/VolumeRemount.h"
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

  /// A file that cannot be opened is tried once more when its volume was away and could be brought
  /// back; `isWanted` false ends the wait for that.
  Result<OpenedTrack, DecoderError> open(const std::string& path,
                                         const VolumeRemount::IsWanted& isWanted = {});

  VolumeRemount& volumes() noexcept { return _volumes; }

 private:
  Result<OpenedTrack, DecoderError> openNow(const std::string& path);

  VolumeRemount _volumes;
  MemoryPlayback _memory;
};

}  // namespace velorin
