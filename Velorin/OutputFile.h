// A file that appears under its name only when it is complete.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

#include "foundation/Result.h"

namespace velorin {

/// What went wrong with a file that we write, and what to do: one line.
struct OutputError {
  std::string text;
};

/// Writes beside the wanted name and takes the name in commit(); without a commit the destructor
/// removes what was written and an older file of that name stays. A name that is a character
/// device (/dev/null, /dev/full) is written to directly. One thread at a time.
class OutputFile {
 public:
  static Result<std::unique_ptr<OutputFile>, OutputError> create(const std::filesystem::path& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Appends. Once a write failed every later one fails too, and error() says why.
  bool write(std::span<const std::byte> bytes);
  /// Replaces bytes that were written before.
  bool rewrite(std::uint64_t offset, std::span<const std::byte> bytes);
  /// Makes the file appear. False, with error() set, when that is not possible.
  bool commit();

  const std::filesystem::path& path() const noexcept { return _path; }
  const OutputError& error() const noexcept { return _error; }

 private:
  OutputFile(std::filesystem::path path, std::filesystem::path temporary, int descriptor);
  bool fail(int code);

  std::filesystem::path _path;
  std::filesystem::path _temporary;  ///< empty for a device
  int _descriptor;
  bool _failed = false;
  OutputError _error;
};

}  // namespace velorin
