#include "library/cue/CueImporter.h"

#include <sys/stat.h>

#include <algorithm>

#include "foundation/Log.h"
#include "library/cue/CueAudio.h"
#include "library/cue/CueTracks.h"
#include "library/metadata/FileName.h"
#include "library/queries/ProcessedCues.h"
#include "library/queries/TrackRemoval.h"
#include "library/scan/ScanState.h"

namespace velorin {
namespace {

/// In seconds since 1970; 0 when it is not known.
double modificationTime(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return 0;
  return static_cast<double>(status.st_mtim.tv_sec) +
         static_cast<double>(status.st_mtim.tv_nsec) * 1e-9;
}

std::string folderOf(const std::string& path) {
  return std::string(parentFolder(path));
}

bool isWatched(const std::string& audioPath, const std::string& sheetFolder,
               const std::vector<std::string>& roots) {
  return isInFolder(audioPath, sheetFolder) ||
         std::any_of(roots.begin(), roots.end(),
                     [&](const std::string& root) { return isInFolder(audioPath, root); });
}

}  // namespace

void CueImporter::removeTracksOf(const CueText& sheet, const std::string& sheetPath) const {
  std::vector<std::string> paths;
  for (const auto& spellings : sheet.fileNames) {
    if (auto audio = locateAudio(spellings, folderOf(sheetPath))) {
      paths.push_back(std::move(*audio));
    }
  }
  const auto removed = TrackRemoval(_database).deleteCueTracks(paths);
  if (removed >= 1) {
    log::line("🧹 Cleaned up {} broken CUE track(s) from multi-FILE: {}", removed,
              fileName(sheetPath));
  }
}

CueImporter::Outcome CueImporter::processCue(const std::string& sheetPath, ScanState& state) const {
  const std::string_view name = fileName(sheetPath);
  const double modified = modificationTime(sheetPath);
  const bool isUnchanged = state.isCueProcessed(sheetPath, modified);
  const auto markProcessed = [&] {
    ProcessedCues(_database).markCueProcessed(sheetPath, modified);
  };
  const auto refuse = [&](const CueTrouble& trouble) {
    log::line("{}", trouble.logLine);
    markProcessed();
    return Outcome{.items = {}, .audioPath = {}, .failure = trouble.reason};
  };

  const auto text = readCueText(sheetPath);
  if (!text) {
    return refuse({text.error().reason, fmt::format("⚠️ Cannot read CUE file: {}", name)});
  }
  if (text.value().fileNames.size() > 1) {
    log::line("ℹ️ Skipping per-file CUE: {}", name);
    removeTracksOf(text.value(), sheetPath);
    if (!isUnchanged) markProcessed();
    return {};
  }
  auto source = sourceOf(text.value(), sheetPath);
  if (source && !isWatched(source->audioPath, folderOf(sheetPath), state.watchedRoots())) {
    source = CueTrouble{"its audio file is outside the music folders",
                        fmt::format("⚠️ CUE audio file not found: {}", source->audioPath)};
  }
  if (isUnchanged) {
    if (!source) return {};
    return {.items = {}, .audioPath = source->audioPath, .failure = {}};
  }
  if (!source) return refuse(source.error());
  const std::string audioPath = source->audioPath;
  auto items = itemsOf(std::move(source).value(), state.watchedRoots(),
                       [&](const std::string& folder) { return state.artwork(folder); });
  if (!items) return refuse(items.error());
  const std::string album = items->empty() ? "" : items->front().albumTitle;
  log::line("🎵 CUE: {} → {} tracks from {}", name, items->size(), album);
  markProcessed();
  return {.items = std::move(items).value(), .audioPath = audioPath, .failure = {}};
}

}  // namespace velorin
