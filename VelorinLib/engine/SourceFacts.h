// What is true of one track from the moment it is opened to its end: an immutable snapshot.
//
// What is decoded and what is heard are up to 47 s apart, so two of these are in use at a time.
// They are shared as pointers to const; a change (a jump to another part of the file) makes a new
// one.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/rates/DSDRatePlan.h"
#include "platform/audio/StreamFormat.h"
#include "records/Events.h"
#include "records/Track.h"

namespace velorin {

/// The part of a file that a track takes, in file frames.
struct CueBounds {
  std::int64_t start = 0;  ///< `cueStartOffsetFrames`: first frame
  std::int64_t end = 0;    ///< `cueEndFrame`: the frame after the last, 0 for the end of the file
};

struct SourceFacts {
  Track track;
  StreamFormat fileFormat;  ///< the file as decoded
  DecoderInfo decoderInfo;
  int sourceBitDepth = 0;
  std::int64_t totalFrames = 0;  ///< of the file, 0 when it does not tell
  CueBounds bounds;
  double duration = 0;              ///< seconds of the track, 0 when the file does not tell
  double targetSampleRate = 0;      ///< Hz after the resampler, 0 without one
  bool isInMemory = false;          ///< decoded from RAM
  std::optional<DSDRatePlan> dsd;   ///< of one-bit audio, which is PCM when it is read
  bool isBridgeResampling = false;  ///< resampled for a join, not by the listener's choice
  /// Names this use of a track: two of the same track in a row differ. Above 0.
  std::uint64_t serial = 0;
  /// Serial of the track that this one was joined to, and how; 0 when it was started or jumped to.
  std::uint64_t predecessor = 0;
  Join join = Join::gapless;
};

using SharedFacts = std::shared_ptr<const SourceFacts>;

/// Frames of a time; nearest, because CUE times are fractions of a second that binary cannot hold.
std::int64_t framesAt(double seconds, double rate) noexcept;

/// The facts of a track in a file that this decoder has open; not resampled. `dsd`: what a decoder
/// of one-bit audio was prepared for.
SourceFacts describeSource(const Track& track, const FileDecoder& decoder,
                           const std::optional<DSDRatePlan>& dsd = std::nullopt);

/// The facts of another track in the same file.
SourceFacts sameFile(const SourceFacts& facts, const Track& track);

/// True when both name the same music: the same file and the same start in it. Neither having a
/// start counts as equal.
bool isSameTrack(const Track& a, const Track& b) noexcept;

/// What the log calls a track: its title, or the file's name where that is blank.
std::string titleOf(const Track& track);

/// " (CUE 1.0→2.0s)" for a CUE track, else empty.
std::string cueRangeText(const Track& track);

}  // namespace velorin
