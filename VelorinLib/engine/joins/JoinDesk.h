// What the transport and the fill threads share about track changes, for the life of the engine.
#pragma once

#include <functional>

#include "engine/SourceFacts.h"
#include "engine/files/TrackFiles.h"
#include "engine/joins/JoinSettings.h"
#include "engine/joins/NextTrack.h"
#include "engine/joins/PreOpenedDecoder.h"

namespace velorin {

/// Shared with every stream, because a fill thread that is stuck in a slow file may outlive the
/// engine. The parts synchronise themselves.
struct JoinDesk {
  JoinSettings settings;
  NextTrack nextTrack;
  TrackFiles files;
  PreOpenedDecoder preOpened;
  /// Fill thread: a joined track is heard; the main thread is to be told. `generation` is the
  /// stream's. Set once, before the first stream.
  std::function<void(const SharedFacts& joined, int generation)> announce;
};

}  // namespace velorin
