#include "library/cue/CueImporter.h"

#include <sys/stat.h>

#include <algorithm>

#include "foundation/Log.h"
#include "library/cue/CueAudio.h"
#include "library/cue/CueText.h"
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

std::vector<std::string> filesOf(const CueText& sheet, const std::string& sheetPath) {
  std::vector<std::string> paths;
  for (const auto& spellings : sheet.fileNames) {
    if (auto audio = locateAudio(spellings, folderOf(sheetPath))) {
      paths.push_back(std::move(*audio));
    }
  }
  return paths;
}

}  // namespace

CueImporter::Outcome CueImporter::processCue(const std::string& sheetPath, ScanState& state) const {
  Outcome outcome = read(sheetPath, state);
  note(sheetPath, outcome);
  return outcome;
}

void CueImporter::note(const std::string& sheetPath, const Outcome& outcome) const {
  if (!outcome.filesOfTheirOwn.empty()) {
    const auto removed = TrackRemoval(_database).deleteCueTracks(outcome.filesOfTheirOwn);
    if (removed >= 1) {
      log::line("🧹 Cleaned up {} broken CUE track(s) from multi-FILE: {}", removed,
                fileName(sheetPath));
    }
  }
  if (outcome.processedAt) {
    ProcessedCues(_database).markCueProcessed(sheetPath, *outcome.processedAt);
  }
}

CueImporter::Outcome CueImporter::read(const std::string& sheetPath, ScanState& state) {
  const std::string_view name = fileName(sheetPath);
  const double modified = modificationTime(sheetPath);
  Outcome outcome;
  outcome.isUnchanged = state.isCueProcessed(sheetPath, modified);
  if (!outcome.isUnchanged) outcome.processedAt = modified;
  const auto refuse = [&](const CueTrouble& trouble) {
    log::line("{}", trouble.logLine);
    outcome.isUnchanged = false;
    outcome.processedAt = modified;
    outcome.failure = trouble.reason;
    return outcome;
  };

  const auto text = readCueText(sheetPath);
  if (!text) {
    outcome.isUnreadable = true;
    return refuse({text.error().reason, fmt::format("⚠️ Cannot read CUE file: {}", name)});
  }
  if (text.value().fileNames.size() > 1) {
    log::line("ℹ️ Skipping per-file CUE: {}", name);
    outcome.isUnchanged = false;
    outcome.filesOfTheirOwn = filesOf(text.value(), sheetPath);
    return outcome;
  }
  auto source = sourceOf(text.value(), sheetPath);
  if (source && !isWatched(source->audioPath, folderOf(sheetPath), state.watchedRoots())) {
    source = CueTrouble{"its audio file is outside the music folders",
                        fmt::format("⚠️ CUE audio file not found: {}", source->audioPath)};
  }
  if (outcome.isUnchanged) {
    if (source) outcome.audioPath = source->audioPath;
    return outcome;
  }
  if (!source) return refuse(source.error());
  const std::string audioPath = source->audioPath;
  auto items = itemsOf(std::move(source).value(), state.watchedRoots(),
                       [&](const std::string& folder) { return state.artwork(folder); });
  if (!items) return refuse(items.error());
  log::line("🎵 CUE: {} → {} tracks from {}", name, items->size(),
            items->empty() ? "" : items->front().albumTitle);
  outcome.audioPath = audioPath;
  outcome.items = std::move(items).value();
  return outcome;
}

}  // namespace velorin
