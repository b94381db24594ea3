#include "library/cue/CueText.h"

#include <fmt/format.h>

#include <algorithm>

#include "foundation/Text.h"
#include "foundation/TextEncoding.h"
#include "platform/files/RegularFile.h"

namespace velorin {
namespace {

std::vector<std::string> fileArguments(std::string_view text) {
  std::vector<std::string> names;
  for (const std::string_view line : trimmedLines(text)) {
    if (isCommand(line, "FILE")) names.push_back(argumentOf(line));
  }
  return names;
}

bool isUTF16(text::Encoding encoding) noexcept {
  return encoding == text::Encoding::utf16BE || encoding == text::Encoding::utf16LE;
}

}  // namespace

std::vector<std::string_view> trimmedLines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    lines.push_back(text::trimWhitespaceAndNewlines(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

bool isCommand(std::string_view line, std::string_view word) {
  return line.size() > word.size() && line[word.size()] == ' ' &&
         text::lowercaseASCII(line.substr(0, word.size())) == text::lowercaseASCII(word);
}

std::string argumentOf(std::string_view line) {
  const std::size_t open = line.find('"');
  const std::size_t close = open == line.npos ? line.npos : line.find('"', open + 1);
  if (close != line.npos) return std::string(line.substr(open + 1, close - open - 1));
  const std::size_t blank = std::min(line.find(' '), line.size());
  const std::size_t from = std::min(line.find_first_not_of(' ', blank), line.size());
  const std::size_t to = std::min(line.find(' ', from), line.size());
  return std::string(line.substr(from, to - from));
}

CueText cueTextOf(std::string_view bytes) {
  text::DecodedText decoded = text::decodeText(bytes, text::Encoding::latin1);
  std::erase(decoded.text, '\0');
  CueText sheet{.text = std::move(decoded.text), .fileNames = {}};
  for (std::string& name : fileArguments(sheet.text)) {
    sheet.fileNames.push_back({std::move(name)});
  }
  if (isUTF16(decoded.encoding)) return sheet;
  const auto rawNames = fileArguments(bytes);
  if (rawNames.size() != sheet.fileNames.size()) return sheet;
  for (std::size_t i = 0; i < rawNames.size(); ++i) {
    if (rawNames[i] != sheet.fileNames[i].front()) sheet.fileNames[i].push_back(rawNames[i]);
  }
  return sheet;
}

Result<CueText, ExtractFailure> readCueText(const std::string& path) {
  const auto file = RegularFile::open(path);
  if (!file) return ExtractFailure{file.error()};
  const std::uint64_t size = file.value().size();
  if (size == 0) return ExtractFailure{"the file is empty"};
  if (size > kLargestCueSheet) {
    return ExtractFailure{fmt::format("{} bytes are too many for a CUE sheet", size)};
  }
  std::string bytes(static_cast<std::size_t>(size), '\0');
  const std::size_t got = file.value().read(0, std::as_writable_bytes(std::span<char>(bytes)));
  if (got < bytes.size()) return ExtractFailure{"the file cannot be read to its end"};
  return cueTextOf(bytes);
}

}  // namespace velorin
