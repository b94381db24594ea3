// The program's own readers of headers, and which file they are for.
#pragma once

#include <optional>
#include <string>

#include "library/metadata/AudioProperties.h"
#include "platform/files/RegularFile.h"

namespace velorin {

/// Which reader a file's extension asks for.
enum class NativeFormat { none, flac, ape, wavPack, dsf, dff };

/// By the extension in lower case.
NativeFormat nativeFormat(std::string_view extension) noexcept;

/// True for formats that no other reader can take over.
inline bool isDsd(NativeFormat format) noexcept {
  return format == NativeFormat::dsf || format == NativeFormat::dff;
}

/// Reads the file's head by its format (not none), of a WavPack file without a length its end too.
/// What fails is logged under the name. Any thread; blocks for the disk.
Result<AudioProperties, ExtractFailure> readNatively(NativeFormat format, const RegularFile& file,
                                                     std::string_view name);

}  // namespace velorin
