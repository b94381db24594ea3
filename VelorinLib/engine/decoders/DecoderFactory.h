// Which decoder opens which file.
#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "engine/decoders/FillThreadDecoder.h"
#include "engine/decoders/ReadableFile.h"
#include "foundation/Result.h"

namespace velorin {

/// Makes decoders by a file's extension, whose letter case does not matter. Any thread.
class DecoderFactory {
 public:
  using Opened = Result<std::unique_ptr<FileDecoder>, DecoderError>;

  /// True for an extension, without its dot, that open() has a decoder for in this build.
  static bool isSupportedExtension(std::string_view extension) noexcept;

  /// Opens a file on disk.
  static Opened open(const std::filesystem::path& path);

  /// Opens from bytes that are elsewhere; the extension (without its dot) names the format.
  static Opened open(std::unique_ptr<ReadableFile> file, std::string_view extension);
};

}  // namespace velorin
