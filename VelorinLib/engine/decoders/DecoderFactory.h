// Which decoder opens which file.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
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

  /// Opens a file on disk, together with its companion, if there is one.
  static Opened open(const std::filesystem::path& path);

  /// Opens from bytes that are elsewhere; the extension (without its dot) names the format.
  static Opened open(std::unique_ptr<ReadableFile> file, std::string_view extension);

  /// The same with the file's companion, which may be null.
  static Opened open(std::unique_ptr<ReadableFile> file, std::string_view extension,
                     std::unique_ptr<ReadableFile> companion);

  /// Where a second file would be that belongs to this one: the correction file of a hybrid
  /// WavPack file. Empty for a format that has none.
  static std::string companionPath(const std::filesystem::path& path);
};

}  // namespace velorin
