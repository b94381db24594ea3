// What the lines of an M3U file mean, and how tracks become lines.

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>

#include "foundation/Normalization.h"
#include "foundation/Text.h"
#include "foundation/TextEncoding.h"
#include "library/playlists/M3UManager.h"

namespace velorin {
namespace {

using Entry = M3UManager::ParsedEntry;

constexpr std::string_view kInfo = "#EXTINF:";

std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    lines.push_back(text::trimWhitespaceAndNewlines(text.substr(0, end)));
    text.remove_prefix(end);
    text.remove_prefix(text.starts_with("\r\n") ? 2 : text.empty() ? 0 : 1);
  }
  return lines;
}

int hexDigit(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// The text with each "%41" as its byte; nothing when a percent sign begins no such thing, or when
/// a NUL would come out.
std::optional<std::string> percentDecoded(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      bytes.push_back(text[i]);
      continue;
    }
    const int high = i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? hexDigit(text[i + 2]) : -1;
    if (high < 0 || low < 0 || (high == 0 && low == 0)) return std::nullopt;
    bytes.push_back(static_cast<char>(high * 16 + low));
    i += 2;
  }
  return bytes;
}

/// Absolute, and without ".", ".." and doubled slashes. Textual: the file may lie elsewhere today.
std::string standardized(std::string_view path, const std::string& folder) {
  const std::string whole =
      path.starts_with('/') ? std::string(path) : fmt::format("{}/{}", folder, path);
  const std::size_t first = whole.find_first_not_of('/');
  if (first == std::string::npos) return "/";
  std::string plain = std::filesystem::path(whole.substr(first - 1)).lexically_normal().native();
  if (plain.size() > 1 && plain.ends_with('/')) plain.pop_back();
  return plain;
}

/// Slashes for backslashes, and no drive letter.
std::string withoutDrive(std::string_view line) {
  constexpr std::string_view kFileScheme = "file://";
  if (line.starts_with(kFileScheme)) {
    // Behind the scheme comes a host, which is empty or this machine.
    line.remove_prefix(std::min(line.find('/', kFileScheme.size()), line.size()));
  }
  std::string path(line);
  std::replace(path.begin(), path.end(), '\\', '/');
  if (path.size() >= 2 && path[1] == ':') path.erase(0, 2);
  return path;
}

/// `raw` is the line as the file holds it.
Entry entryOf(std::string_view line, std::string_view raw, const std::string& folder) {
  Entry entry;
  const auto add = [&](std::string_view path) {
    if (path.find('\0') != path.npos) return;
    std::string whole = standardized(path, folder);
    const auto& others = entry.otherPaths;
    if (whole == entry.path || std::find(others.begin(), others.end(), whole) != others.end()) {
      return;
    }
    entry.otherPaths.push_back(std::move(whole));
  };
  const std::string path = withoutDrive(line);
  const auto decoded = percentDecoded(path);
  const bool isDecoded = decoded && text::validUTF8(*decoded);
  const std::string& told = isDecoded ? *decoded : path;
  entry.path = unicode::precomposed(standardized(told, folder));
  add(told);
  add(line);
  if (decoded) add(*decoded);
  if (const auto plain = percentDecoded(line)) add(*plain);
  if (raw != line) {
    add(raw);
    add(withoutDrive(raw));
  }
  return entry;
}

std::optional<double> number(std::string_view text) {
  double value = 0;
  text = text::trimWhitespaceAndNewlines(text);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

/// On one line.
std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return text::toValidUTF8(text);
}

/// A path as a line: itself, or where that is not possible percent-encoded.
std::string lineOf(const std::string& path) {
  if (text::validUTF8(path) && path.find_first_of("\r\n") == std::string::npos) return path;
  std::string line;
  for (std::size_t at = 0; at < path.size();) {
    const text::CodePoint point = text::decode(path, at);
    const char c = path[at];
    if (!point.valid || c == '\n' || c == '\r' || c == '%' || c == '\\') {
      for (std::size_t i = 0; i < point.length; ++i) {
        line += fmt::format("%{:02X}", static_cast<unsigned char>(path[at + i]));
      }
    } else {
      line.append(path, at, point.length);
    }
    at += point.length;
  }
  return line;
}

}  // namespace

std::vector<Entry> M3UManager::parse(std::string_view bytes, bool isUTF8Only,
                                     const std::string& folder) {
  text::DecodedText decoded;
  if (isUTF8Only) {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    if (!text::validUTF8(bytes)) throw M3UError(M3UError::Code::unreadable, "it is not UTF-8");
    decoded.text = bytes.substr(bytes.starts_with(kMark) ? kMark.size() : 0);
  } else {
    decoded = text::decodeText(bytes, text::Encoding::windows1252);
  }
  std::erase(decoded.text, '\0');
  const auto lines = linesOf(decoded.text);
  auto rawLines = linesOf(bytes);
  if (rawLines.size() != lines.size()) rawLines = lines;  // UTF-16

  std::vector<Entry> entries;
  std::optional<double> duration;
  std::optional<std::string> title;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string_view line = lines[i];
    if (line.starts_with(kInfo)) {
      const std::string_view info = line.substr(kInfo.size());
      const std::size_t comma = std::min(info.find(','), info.size());
      duration = number(info.substr(0, comma));
      title.reset();
      if (comma < info.size()) title = info.substr(comma + 1);
    } else if (!line.empty() && !line.starts_with('#')) {
      Entry& entry = entries.emplace_back(entryOf(line, rawLines[i], folder));
      entry.duration = std::exchange(duration, std::nullopt);
      entry.title = std::exchange(title, std::nullopt);
    }
  }
  return entries;
}

std::string M3UManager::exportText(const std::vector<ExportTrack>& tracks) {
  constexpr double kLongest = 1e15;
  std::string text = "#EXTM3U\n";
  for (const ExportTrack& track : tracks) {
    const bool isSensible = std::isfinite(track.duration) && std::abs(track.duration) < kLongest;
    text += fmt::format("#EXTINF:{},{} - {}\n{}\n",
                        isSensible ? static_cast<std::int64_t>(track.duration) : 0,
                        oneLine(track.artist), oneLine(track.title), lineOf(track.filePath));
  }
  return text;
}

}  // namespace velorin
