#include <fmt/format.h>

#include <algorithm>

#include "Commands.h"
#include "Console.h"
#include "JsonOutput.h"
#include "LibraryText.h"
#include "MusicFolderArguments.h"
#include "ScanSession.h"
#include "foundation/Log.h"
#include "foundation/Paths.h"
#include "foundation/Text.h"
#include "shell/InstanceSocket.h"

namespace velorin {
namespace {

/// A player that runs watches the folders it knew at its start until it hears of others.
void tellThePlayer() {
  const auto told = instance::ask(paths::runtimeDirectory(), {InstanceAction::foldersChanged, {}});
  if (const auto* failure = std::get_if<instance::Failure>(&told)) {
    log::line("⚠️ The running player does not know of this until it is started anew: {}",
              failure->text);
  }
}

/// All or nothing: with one folder that cannot be added, none is.
int addFolders(const LibraryFoldersOptions& options) {
  ScanSession session({.json = options.json, .verbose = options.verbose});
  LibraryServices services;
  const MusicFolders& musicFolders = services.manager().folders();
  std::vector<std::string> taken = musicFolders.getFolders();
  std::vector<std::string> folders;
  bool refused = false;
  for (const std::filesystem::path& given : options.folders) {
    folders.push_back(musicFolderPath(given));
    if (const auto why = whyNotAdded(folders.back(), taken)) {
      reportError(*why);
      refused = true;
    }
    taken.push_back(folders.back());
  }
  if (refused) return kExitFailure;
  for (const std::string& folder : folders) {
    musicFolders.addFolder(folder);
    services.volumes().folderAdded(folder);
  }
  const int code = session.run(services, [&](LibraryScanner& scanner) { scanner.scan(folders); });
  tellThePlayer();
  return code;
}

int removeFolders(const LibraryFoldersOptions& options) {
  log::configure(log::Level::warning, /*useJournalIfConnected=*/false);
  LibraryServices services;
  const MusicFolders& musicFolders = services.manager().folders();
  const auto counts = musicFolders.folderTrackCounts();
  std::vector<std::string> folders;
  bool refused = false;
  for (const std::filesystem::path& given : options.folders) {
    std::string folder = musicFolderPath(given);
    if (std::ranges::find(folders, folder) != folders.end()) continue;
    if (!counts.contains(folder)) {
      reportError(fmt::format("{} is no music folder: 'velorin library list' shows them",
                              text::pathForDisplay(folder)));
      refused = true;
    }
    folders.push_back(std::move(folder));
  }
  if (refused) return kExitFailure;
  std::vector<JsonObject> removed;
  for (const std::string& folder : folders) {
    services.manager().removal().removeFolder(folder);
    services.volumes().folderRemoved(folder);
    const std::int64_t tracks = counts.at(folder);
    removed.emplace_back().add("path", folder).add("trackCount", tracks);
    if (!options.json) {
      fmt::print("removed {} with {}; no file was touched\n", text::pathForDisplay(folder),
                 countText(tracks, "track"));
    }
  }
  tellThePlayer();
  if (options.json) fmt::print("{}\n", JsonObject().add("removed", removed).line());
  return finishOutput();
}

}  // namespace

int runLibraryFolders(const LibraryFoldersOptions& options) {
  try {
    return options.action == LibraryFoldersOptions::Action::add ? addFolders(options)
                                                                : removeFolders(options);
  } catch (const VelorinDatabaseError& error) {
    reportError(error.message);
    return kExitFailure;
  }
}

}  // namespace velorin
