#include "library/cue/CueSheetParser.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "foundation/Text.h"

namespace velorin {
namespace {

using Code = CSError::Code;
using Words = std::vector<std::string_view>;

Words wordsOf(std::string_view line) {
  Words words;
  while (!line.empty()) {
    const std::size_t end = std::min(line.find(' '), line.size());
    if (end > 0) words.push_back(line.substr(0, end));
    line.remove_prefix(std::min(end + 1, line.size()));
  }
  return words;
}

/// The words from `first` up to `end`, without quotation marks and white space around them.
std::string value(const Words& words, std::size_t first, std::size_t end) {
  std::string text;
  for (std::size_t i = first; i < end; ++i) text.append(i == first ? "" : " ").append(words[i]);
  constexpr const char* kAround = "\"' \t\n";
  const std::size_t from = text.find_first_not_of(kAround);
  if (from == std::string::npos) return {};
  return text.substr(from, text.find_last_not_of(kAround) - from + 1);
}

template <class Integer>
std::optional<Integer> number(std::string_view text) {
  Integer result{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return result;
}

/// "mm:ss:ff".
std::optional<CSIndexTime> time(std::string_view text) {
  std::int64_t parts[3];
  for (int i = 0; i < 3; ++i) {
    const std::size_t colon = text.find(':');
    if ((colon == std::string_view::npos) != (i == 2)) return std::nullopt;
    const auto part = number<std::uint32_t>(text.substr(0, colon));
    if (!part) return std::nullopt;
    parts[i] = *part;
    text.remove_prefix(std::min(colon, text.size() - 1) + 1);
  }
  return CSIndexTime{(parts[0] * 60 + parts[1]) * 75 + parts[2]};
}

CSMetaKey metaKey(std::string_view word) {
  using Kind = CSMetaKey::Kind;
  std::string name = text::lowercaseASCII(word);
  if (name == "performer") return {Kind::performer};
  if (name == "title") return {Kind::title};
  if (name == "isrc") return {Kind::isrc};
  if (name == "songwriter") return {Kind::songWriter};
  return CSMetaKey::others(std::move(name));
}

CSRemKey remKey(std::string_view word) {
  using Kind = CSRemKey::Kind;
  std::string name = text::lowercaseASCII(word);
  if (name == "title") return {Kind::title};
  if (name == "genre") return {Kind::genre};
  if (name == "date") return {Kind::date};
  if (name == "discid") return {Kind::discId};
  if (name == "comment") return {Kind::comment};
  if (name == "composer") return {Kind::composer};
  return CSRemKey::others(std::move(name));
}

/// Takes one line after the other; what it returns is what is wrong with the line.
class Reading {
 public:
  std::optional<Code> take(const Words& words) {
    const std::string command = text::lowercaseASCII(words.front());
    if (command == "rem") return takeRemark(words);
    if (command == "file") return takeFile(words);
    if (command == "track") return takeTrack(words);
    if (command == "index" && !_sheet.file.empty()) return takeIndex(words);
    return takeMeta(words);
  }

  CueSheet finish() { return std::move(_sheet); }

 private:
  /// Lines between a FILE line and its first TRACK still speak of the whole.
  CSTrack* track() {
    if (_sheet.file.empty() || _sheet.file.back().tracks.empty()) return nullptr;
    return &_sheet.file.back().tracks.back();
  }

  std::optional<Code> takeRemark(const Words& words) {
    if (words.size() < 3) return _sheet.file.empty() ? Code::rem : Code::track;
    CSRemarks& remarks = track() ? track()->rem : _sheet.rem;
    remarks[remKey(words[1])] = value(words, 2, words.size());
    return std::nullopt;
  }

  std::optional<Code> takeMeta(const Words& words) {
    if (words.size() < 2) return _sheet.file.empty() ? Code::meta : Code::track;
    CSMeta& meta = track() ? track()->meta : _sheet.meta;
    meta[metaKey(words[0])] = value(words, 1, words.size());
    return std::nullopt;
  }

  std::optional<Code> takeFile(const Words& words) {
    if (words.size() < 3) return Code::file;
    CSFile& file = _sheet.file.emplace_back();
    file.fileName = value(words, 1, words.size() - 1);
    file.fileType = words.back();
    return std::nullopt;
  }

  std::optional<Code> takeTrack(const Words& words) {
    const auto trackNumber = words.size() < 2 ? std::nullopt : number<int>(words[1]);
    if (!trackNumber || _sheet.file.empty()) return Code::track;
    CSTrack& track = _sheet.file.back().tracks.emplace_back();
    track.trackNum = *trackNumber;
    if (words.size() > 2) track.trackType = words[2];
    return std::nullopt;
  }

  std::optional<Code> takeIndex(const Words& words) {
    if (words.size() < 3 || track() == nullptr) return Code::track;
    const auto indexNumber = number<std::uint8_t>(words[1]);
    const auto place = time(words[2]);
    if (!indexNumber || !place) return Code::track;
    track()->index.emplace_back(*indexNumber, *place);
    return std::nullopt;
  }

  CueSheet _sheet;
};

}  // namespace

CSIndexTime CSTrack::start() const noexcept {
  const auto own = std::find_if(index.begin(), index.end(),
                                [](const CSIndex& each) { return each.number() == 1; });
  if (own != index.end()) return own->time();
  return index.empty() ? CSIndexTime{} : index.front().time();
}

std::string CSError::text() const {
  static constexpr const char* kNames[] = {"expireUrl", "rem",        "meta",     "track",
                                           "file",      "splitError", "blankData"};
  const char* name = kNames[static_cast<std::size_t>(code)];
  return line == 0 ? name : fmt::format("{} in line {}", name, line);
}

Result<CueSheet, CSError> CueSheetParser::parse(std::string_view text) {
  if (text.empty()) return CSError{Code::blankData};
  Reading reading;
  bool isBlank = true;
  for (std::size_t lineNumber = 1; !text.empty(); ++lineNumber) {
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    const Words words = wordsOf(text::trimWhitespaceAndNewlines(text.substr(0, end)));
    text.remove_prefix(end);
    text.remove_prefix(text.starts_with("\r\n") ? 2 : text.empty() ? 0 : 1);
    if (words.empty()) continue;
    isBlank = false;
    if (const auto wrong = reading.take(words)) return CSError{*wrong, lineNumber};
  }
  if (isBlank) return CSError{Code::splitError};
  return reading.finish();
}

}  // namespace velorin
