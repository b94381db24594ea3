#include "session/ExternalFiles.h"

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/cue/ExternalTracks.h"

namespace velorin {
namespace {

void addTracksOf(const std::filesystem::path& file, std::vector<TrackInfo>& tracks) {
  std::error_code error;
  if (!std::filesystem::exists(file, error)) {
    log::line("⚠️ External file not found: {}", file.native());
    return;
  }
  if (text::fileExtension(file.native()) == "cue") {
    auto parts = trackInfosFromCue(file.native());
    std::move(parts.begin(), parts.end(), std::back_inserter(tracks));
  } else {
    tracks.push_back(trackInfoFromFile(file.native()));
  }
}

}  // namespace

void ExternalFiles::read(std::vector<std::filesystem::path> files,
                         std::function<void(std::vector<TrackInfo>)> done) {
  _queue.async([files = std::move(files), done = std::move(done)] {
    std::vector<TrackInfo> tracks;
    for (const auto& file : files) addTracksOf(file, tracks);
    done(std::move(tracks));
  });
}

}  // namespace velorin
