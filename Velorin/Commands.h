// The subcommands. Each runs on the main thread to its end and returns the exit code.
#pragma once

#include "Options.h"

namespace velorin {

int runPlayer(const RunOptions& options);
int runControl(const ControlOptions& options);
int runPlay(const PlayOptions& options);
int runRender(const RenderOptions& options);
int runDevices(const DevicesOptions& options);
int runInfo(const InfoOptions& options);
int runSearch(const SearchOptions& options);
int runLibraryList(const LibraryListOptions& options);
int runLibraryFolders(const LibraryFoldersOptions& options);
int runScan(const ScanOptions& options);
int runPlaylist(const PlaylistOptions& options);
int runDsp(const DspOptions& options);
int runTag(const TagOptions& options);

}  // namespace velorin
