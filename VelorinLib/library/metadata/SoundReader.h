// The road from a file to what is known of its sound and its tags.
#pragma once

#include <string>

#include "foundation/Result.h"
#include "library/metadata/AudioProperties.h"
#include "library/metadata/TagReader.h"
#include "platform/files/RegularFile.h"

namespace velorin {

struct SoundAndTags {
  AudioProperties sound;
  std::optional<TagFields> tags;  ///< none where the file holds none or they were not asked for
};

/// Takes the road of the extension, and where the program's own reader fails the general one: the
/// tag library, then the demuxers. `file` is the opened path. Opens the path again as seldom as the
/// road allows.
Result<SoundAndTags, ExtractFailure> readSound(const RegularFile& file, const std::string& path,
                                               bool wantsTags);

}  // namespace velorin
