#include "engine/files/TrackFiles.h"

#include "engine/decoders/DecoderFactory.h"

namespace velorin {

Result<OpenedTrack, DecoderError> TrackFiles::open(const std::string& path,
                                                   const VolumeRemount::IsWanted& isWanted) {
  auto opened = openNow(path);
  if (!opened && _volumes.bringBack(path, isWanted)) opened = openNow(path);
  if (opened) _volumes.remember(path);
  return opened;
}

Result<OpenedTrack, DecoderError> TrackFiles::openNow(const std::string& path) {
  if (auto decoder = _memory.open(path)) {
    return OpenedTrack{.decoder = std::move(decoder), .isInMemory = true};
  }
  auto opened = DecoderFactory::open(path);
  if (!opened) return opened.error();
  return OpenedTrack{.decoder = std::move(opened).value(), .isInMemory = false};
}

}  // namespace velorin
