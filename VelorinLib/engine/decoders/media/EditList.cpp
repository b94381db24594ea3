#include "engine/decoders/media/EditList.h"

#include <algorithm>
#include <array>
#include <limits>

#include "engine/decoders/media/PacketReader.h"

namespace velorin::media {
namespace {

constexpr std::uint32_t name(const char (&text)[5]) {
  std::uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(text[i]);
  return value;
}

/// A stretch of the file: the content of a box.
struct Box {
  std::uint32_t type = 0;
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
};

std::uint64_t bigEndian(PacketReader& file, std::uint64_t at, std::size_t bytes) {
  std::array<std::byte, 8> word{};
  const auto part = std::span(word).first(bytes);
  std::uint64_t value = 0;
  if (file.readBytes(at, part) < bytes) return 0;
  for (const std::byte each : part) value = value << 8 | std::to_integer<std::uint64_t>(each);
  return value;
}

/// The box that starts at an offset; nothing at the parent's end or where the sizes are wrong.
std::optional<Box> boxAt(PacketReader& file, std::uint64_t at, std::uint64_t parentEnd) {
  if (parentEnd < 8 || at > parentEnd - 8) return std::nullopt;
  std::uint64_t size = bigEndian(file, at, 4);
  std::uint64_t header = 8;
  if (size == 1) {
    size = bigEndian(file, at + 8, 8);
    header = 16;
  } else if (size == 0) {
    size = parentEnd - at;
  }
  if (size < header || size > parentEnd - at) return std::nullopt;
  return Box{.type = static_cast<std::uint32_t>(bigEndian(file, at + 4, 4)),
             .begin = at + header,
             .end = at + size};
}

/// Calls for each child until one is said to be enough. Bounded, whatever the sizes say.
template <class Visit>
void forEachChild(PacketReader& file, const Box& parent, Visit&& visit) {
  constexpr int kMostChildren = 4096;
  std::uint64_t at = parent.begin;
  for (int i = 0; i < kMostChildren; ++i) {
    const auto child = boxAt(file, at, parent.end);
    if (!child || !visit(*child)) return;
    at = child->end;
  }
}

std::optional<Box> child(PacketReader& file, const Box& parent, std::uint32_t type) {
  std::optional<Box> found;
  forEachChild(file, parent, [&](const Box& each) {
    if (each.type == type) found = each;
    return !found;
  });
  return found;
}

/// Of a movie's or track's header: two dates come first, of four or eight bytes each.
std::uint32_t ticksOf(PacketReader& file, const std::optional<Box>& header) {
  if (!header) return 0;
  const bool isLong = bigEndian(file, header->begin, 1) == 1;
  return static_cast<std::uint32_t>(bigEndian(file, header->begin + 4 + (isLong ? 16 : 8), 4));
}

/// Start and duration of the only edit that shows something; gaps ahead of it are left out.
bool readEdit(PacketReader& file, const Box& list, Edit& edit) {
  const bool isLong = bigEndian(file, list.begin, 1) == 1;
  const std::uint64_t count = bigEndian(file, list.begin + 4, 4);
  const std::uint64_t width = isLong ? 8 : 4;
  constexpr std::uint64_t kMostEdits = 16;
  int shown = 0;
  for (std::uint64_t i = 0; i < std::min(count, kMostEdits); ++i) {
    const std::uint64_t at = list.begin + 8 + i * (2 * width + 4);
    if (at + 2 * width > list.end) return false;
    const std::uint64_t start = bigEndian(file, at + width, width);
    if (start > std::numeric_limits<std::uint32_t>::max() / 2) continue;
    edit.duration = bigEndian(file, at, width);
    edit.mediaStart = static_cast<std::int64_t>(start);
    ++shown;
  }
  return shown == 1 && count <= kMostEdits;
}

}  // namespace

std::optional<Edit> findEdit(PacketReader& packets) {
  const Box file{.end = packets.size()};
  const auto movie = child(packets, file, name("moov"));
  if (!movie) return std::nullopt;
  Edit edit{.movieTicks = ticksOf(packets, child(packets, *movie, name("mvhd")))};
  bool isFound = false;
  forEachChild(packets, *movie, [&](const Box& track) {
    if (track.type != name("trak")) return true;
    const auto media = child(packets, track, name("mdia"));
    const auto handler = media ? child(packets, *media, name("hdlr")) : std::nullopt;
    if (!handler || bigEndian(packets, handler->begin + 8, 4) != name("soun")) return true;
    edit.trackTicks = ticksOf(packets, child(packets, *media, name("mdhd")));
    const auto edits = child(packets, track, name("edts"));
    const auto list = edits ? child(packets, *edits, name("elst")) : std::nullopt;
    isFound = list && readEdit(packets, *list, edit);
    return false;
  });
  if (!isFound || edit.movieTicks == 0 || edit.trackTicks == 0) return std::nullopt;
  return edit;
}

}  // namespace velorin::media
