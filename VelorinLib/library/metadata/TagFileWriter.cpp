#include "library/metadata/TagFileWriter.h"

#include <charconv>
#include <system_error>

#include "foundation/Text.h"
#include "library/metadata/TagAccess.h"
#include "library/metadata/TagEditStream.h"
#include "library/metadata/TagStream.h"
#include "platform/media/StreamHash.h"

namespace velorin {
namespace {

/// One key of the tags and what it is to hold; empty: nothing.
struct KeyEdit {
  const char* key;
  std::string value;
  bool isNumber = false;
};

std::vector<KeyEdit> keyEditsOf(const TagChanges& changes) {
  std::vector<KeyEdit> edits;
  const auto addText = [&](const char* key, const std::optional<std::string>& value) {
    if (!value) return;
    std::string text = text::toValidUTF8(*value);
    std::erase(text, '\0');
    edits.push_back({key, std::move(text)});
  };
  const auto addNumber = [&](const char* key, const std::optional<int>& value, bool clear) {
    const int number = numberEdit(value, clear);
    if (number != 0) edits.push_back({key, number > 0 ? std::to_string(number) : "", true});
  };
  addText("TITLE", changes.title);
  addText("ARTIST", changes.artistName);
  addText("ALBUM", changes.albumTitle);
  addNumber("TRACKNUMBER", changes.trackNumber, changes.clearTrackNumber);
  addNumber("DISCNUMBER", changes.discNumber, changes.clearDiscNumber);
  addNumber("DATE", changes.year, changes.clearYear);
  addText("GENRE", changes.genre);
  addText("COMPOSER", changes.composer);
  addText("CONDUCTOR", changes.conductor);
  addText("COMMENT", changes.comment);
  addText("LYRICS", changes.lyrics);
  return edits;
}

void apply(const std::vector<KeyEdit>& edits, TagLib::PropertyMap& map) {
  for (const KeyEdit& edit : edits) {
    if (edit.value.empty()) {
      map.erase(edit.key);
    } else {
      map.replace(edit.key, TagLib::String(edit.value, TagLib::String::UTF8));
    }
  }
}

std::string errorText(int code) {
  return fmt::format("the file cannot be written: {}", std::generic_category().message(code));
}

constexpr const char* kNoTags = "this kind of file cannot hold tags";

/// What a file holds; its kind is told by another path. Nothing where there is no kind.
std::optional<TagLib::PropertyMap> heldBy(const std::string& file, const std::string& path) {
  auto opened = RegularFile::open(file);
  if (!opened) return std::nullopt;
  TagStream stream(std::move(opened).value(), path);
  const TagLib::FileRef reference = openTags(stream, false);
  if (!isOpen(reference)) return std::nullopt;
  return tagProperties(*reference.file());
}

/// By the content of the copy where that tells its kind, else by the name of the file.
std::string kindOf(const std::string& copy, const std::string& path) {
  auto opened = RegularFile::open(copy);
  if (!opened) return path;
  const TagStream stream(std::move(opened).value(), path);
  return stream.name();
}

std::optional<std::string> editTags(const std::string& copy, const std::string& path,
                                    const std::vector<KeyEdit>& edits) {
  const auto stream = TagEditStream::open(copy, kindOf(copy, path));
  if (!stream) return errorText(errno);
  const TagLib::FileRef reference = openTags(*stream, false);
  if (!isOpen(reference)) return kNoTags;
  TagLib::File& file = *reference.file();
  TagLib::PropertyMap map = tagProperties(file);
  apply(edits, map);
  setTagProperties(file, map);
  const bool saved = saveTags(file);
  if (stream->failure() != 0) return errorText(stream->failure());
  return saved ? std::nullopt : std::optional<std::string>("the tags cannot be saved");
}

/// The number that a text begins with; 0 for none. "3/12" is track 3, "2001-05-02" the year 2001.
int leadingNumber(std::string_view text) {
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

/// What the tags do not hold after the edit.
std::optional<std::string> missingEdit(const TagLib::PropertyMap& held,
                                       const std::vector<KeyEdit>& edits) {
  for (const KeyEdit& edit : edits) {
    const auto entry = held.find(edit.key);
    const std::string value =
        entry == held.end() || entry->second.isEmpty() ? "" : entry->second.front().to8Bit(true);
    if (value == edit.value) continue;
    // A container may have a form of its own for numbers.
    if (edit.isNumber && !edit.value.empty() && leadingNumber(value) == leadingNumber(edit.value)) {
      continue;
    }
    return fmt::format("the tags of this file cannot hold that value of {}", edit.key);
  }
  return std::nullopt;
}

std::optional<std::string> editAndVerify(const std::string& path, const std::string& copy,
                                         const std::vector<KeyEdit>& edits) {
  if (auto refusal = editTags(copy, path, edits)) return refusal;
  const auto held = heldBy(copy, path);
  if (!held) return "the tags cannot be saved";
  if (auto missing = missingEdit(*held, edits)) return missing;

  const auto before = hashStream(path);
  if (!before) return fmt::format("the sound cannot be read: {}", before.error().reason);
  const auto after = hashStream(copy);
  if (!after || after.value() != before.value()) {
    return "the sound of the file would not stay the same";
  }
  return std::nullopt;
}

}  // namespace

Result<RewrittenFile, RewriteError> writeTags(const std::string& path, const TagChanges& changes) {
  const auto edits = keyEditsOf(changes);
  try {
    return rewriteFile(path,
                       [&](const std::string& copy) { return editAndVerify(path, copy, edits); });
  } catch (const std::exception& error) {
    return RewriteError{fmt::format("the tags cannot be read: {}", error.what())};
  }
}

}  // namespace velorin
