#include <fmt/format.h>

#include <cstdio>
#include <filesystem>

#include "Commands.h"
#include "Console.h"
#include "JsonOutput.h"
#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/LibraryFile.h"
#include "library/metadata/TagFileWriter.h"
#include "library/metadata/TagWriter.h"
#include "library/queries/TagUpdate.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

/// What became of one file.
struct Outcome {
  TagWriteResult result;
  bool isInLibrary = false;
};

/// The user's library, where there is one.
class Library {
 public:
  Library() {
    const fs::path file = defaultLibraryFile();
    std::error_code unreachable;
    if (fs::exists(file, unreachable)) _database.setDbQueue(openLibraryFile(file));
  }

  const DatabaseHandle& database() const { return _database; }

  /// The path under which the library knows the file: as it was given, or with its links resolved.
  std::optional<std::string> knownPath(const fs::path& path) const {
    std::error_code error;
    const fs::path absolute = fs::absolute(path, error).lexically_normal();
    if (!error && TagUpdate(_database).knowsFile(absolute.native())) return absolute.native();
    const fs::path real = fs::canonical(path, error);
    if (!error && TagUpdate(_database).knowsFile(real.native())) return real.native();
    return std::nullopt;
  }

 private:
  DatabaseHandle _database;
};

/// A file without a track of its own in the library: it is not there at all, or is cut into CUE
/// tracks, which keep what the sheet says of them and only hear of the file's new size and time.
TagWriteResult writeFileAlone(const Library& library, bool isInLibrary, const std::string& path,
                              const TagChanges& changes) {
  TagWriteResult result{.filePath = path};
  const auto written = writeTags(path, changes);
  if (!written) {
    result.error = written.error().reason;
    return result;
  }
  if (isInLibrary) {
    TagUpdate(library.database())
        .stampFile(path,
                   {static_cast<std::int64_t>(written.value().size), written.value().lastModified});
  }
  result.success = true;
  return result;
}

Outcome writeOne(const Library& library, const TagWriter& writer, const fs::path& input,
                 const TagChanges& changes) {
  const auto known = library.knownPath(input);
  const auto track = known ? TagUpdate(library.database()).wholeFileTrack(*known) : std::nullopt;
  if (track) return {writer.writeAll({*track}, changes).front(), true};
  return {writeFileAlone(library, known.has_value(), known.value_or(input.native()), changes),
          known.has_value()};
}

JsonObject json(const fs::path& input, const Outcome& outcome) {
  const TagWriteResult& result = outcome.result;
  JsonObject object;
  object.add("path", input.native()).add("success", result.success);
  object.add("inLibrary", outcome.isInLibrary);
  if (result.trackId != 0) {
    object.add("trackId", result.trackId);
  } else {
    object.addNull("trackId");
  }
  const auto addText = [&](const char* key, const std::optional<std::string>& value) {
    if (value) {
      object.add(key, *value);
    } else {
      object.addNull(key);
    }
  };
  addText("error", result.error);
  addText("detail", result.detail);
  return object;
}

void print(const fs::path& input, const Outcome& outcome) {
  const TagWriteResult& result = outcome.result;
  if (result.success) {
    fmt::print("{}: written{}\n", text::pathForDisplay(input),
               outcome.isInLibrary ? ", library updated" : "");
    return;
  }
  std::fflush(stdout);
  reportError(fmt::format("{}: {}{}{}", text::pathForDisplay(input), result.error.value_or(""),
                          result.detail ? ": " : "", result.detail.value_or("")));
}

}  // namespace

int runTag(const TagOptions& options) {
  // What failed is printed in the command's own form.
  log::setSink([](log::Level, std::string_view) {});
  int exitCode = kExitSuccess;
  std::vector<JsonObject> objects;
  try {
    const Library library;
    const TagWriter writer(library.database());
    for (const fs::path& input : options.inputs) {
      const Outcome outcome = writeOne(library, writer, input, options.changes);
      if (!outcome.result.success) exitCode = kExitFailure;
      if (options.json) objects.push_back(json(input, outcome));
      if (!options.json || !outcome.result.success) print(input, outcome);
    }
  } catch (const VelorinDatabaseError& error) {
    reportError(error.message);
    exitCode = kExitFailure;
  }
  if (options.json) fmt::print("{}\n", JsonObject::list(objects));
  const int written = finishOutput();
  return exitCode != kExitSuccess ? exitCode : written;
}

}  // namespace velorin
