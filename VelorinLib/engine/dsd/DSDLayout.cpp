#include "engine/dsd/DSDLayout.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>
#include <system_error>

#include "foundation/Log.h"
#include "platform/audio/StreamFormat.h"

namespace velorin {
namespace {

using Bytes = std::span<const std::byte>;

constexpr std::size_t kChunkHeaderBytes = 12;  // an id of four letters and a 64-bit size
constexpr std::size_t kMostPropertyBytes = 1024;
// A file of nothing but tiny chunks would otherwise be walked for hours.
constexpr int kMostChunks = 10'000;

/// Fills as much of `into` as the file has from there on.
std::size_t readAt(ReadableFile& file, std::uint64_t offset, std::span<std::byte> into) {
  try {
    file.seek(offset);
  } catch (const std::system_error&) {
    return 0;
  }
  std::size_t filled = 0;
  while (filled < into.size()) {
    const std::size_t count = file.readInto(into.subspan(filled));
    if (count == 0) break;
    filled += count;
  }
  return filled;
}

bool hasMark(Bytes bytes, std::size_t at, std::string_view mark) noexcept {
  return std::ranges::equal(bytes.subspan(at, mark.size()), mark, {},
                            [](std::byte b) { return static_cast<char>(b); });
}

std::uint64_t littleEndian(Bytes bytes, std::size_t at, std::size_t size) noexcept {
  std::uint64_t value = 0;
  for (std::size_t i = size; i-- > 0;) {
    value = value << 8 | std::to_integer<std::uint64_t>(bytes[at + i]);
  }
  return value;
}

std::uint64_t bigEndian(Bytes bytes, std::size_t at, std::size_t size) noexcept {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < size; ++i) {
    value = value << 8 | std::to_integer<std::uint64_t>(bytes[at + i]);
  }
  return value;
}

DecoderError fault(std::string text) {
  return {.text = std::move(text)};
}

std::string unsupportedRate(std::uint64_t hertz) {
  return fmt::format(
      "a DSD rate of {} Hz is not supported; convert the file to DSD64, DSD128, "
      "DSD256 or DSD512",
      hertz);
}

/// What both formats must hold: sets the members that follow from the others.
Result<DSDLayout, DecoderError> checked(DSDLayout layout, std::uint64_t fileSize,
                                        std::uint64_t statedBytes) {
  if (layout.channelCount == 0 || layout.channelCount > kMaxChannels) {
    return fault(fmt::format("{} channels are not supported; convert the file to one of 1 to {}",
                             layout.channelCount, kMaxChannels));
  }
  const std::uint64_t blockSize = layout.blockSizePerChannel;
  const std::uint64_t setSize = blockSize * layout.channelCount;
  if (setSize == 0 || setSize > DSDLayout::kMaxBlockSetBytes) {
    return fault(
        fmt::format("a block size of {} bytes makes no sense; get a fresh copy of the "
                    "file",
                    blockSize));
  }
  const std::uint64_t held = fileSize - std::min(fileSize, layout.dataOffset);
  layout.totalDSDBytes = std::min(statedBytes, held);
  // Of a last block set that is cut short, all channels have what the last one has.
  const std::uint64_t rest = layout.totalDSDBytes % setSize;
  const std::uint64_t before = setSize - blockSize;
  layout.bytesPerChannel =
      layout.totalDSDBytes / setSize * blockSize + (rest > before ? rest - before : 0);
  if (layout.bytesPerChannel == 0) {
    return fault("the file holds no sound; get a complete copy of it");
  }
  return layout;
}

Result<DSDLayout, DecoderError> parseDSF(ReadableFile& file) {
  constexpr std::size_t kHeadBytes = 92;  // the chunks "DSD " and "fmt ", the header of "data"
  std::array<std::byte, kHeadBytes> head;
  const std::size_t got = readAt(file, 0, head);
  if (got < 4 || !hasMark(head, 0, "DSD ")) {
    return fault("not a DSF file; rename it to what it is, or get a fresh copy");
  }
  // The size of the sound's chunk includes its header, of which there must be more than that.
  const std::uint64_t dataChunk = got < head.size() ? 0 : littleEndian(head, 84, 8);
  if (got < head.size() || !hasMark(head, 28, "fmt ") || !hasMark(head, 80, "data") ||
      dataChunk <= kChunkHeaderBytes) {
    return fault("the DSF header is damaged or cut short; get a fresh copy of the file");
  }
  const std::uint64_t hertz = littleEndian(head, 56, 4);
  const auto rate = dsdRateOf(hertz);
  if (!rate) {
    log::line("⚠️ Unsupported DSD rate: {}", hertz);
    return fault(unsupportedRate(hertz));
  }
  auto made = checked({.format = DSDFormat::dsf,
                       .rate = *rate,
                       .channelCount = static_cast<std::uint32_t>(littleEndian(head, 52, 4)),
                       .dataOffset = kHeadBytes,
                       .blockSizePerChannel = static_cast<std::uint32_t>(littleEndian(head, 72, 4)),
                       .isLeastSignificantFirst = littleEndian(head, 60, 4) != 8},
                      file.size(), dataChunk - kChunkHeaderBytes);
  if (!made) return made;
  // A count that the chunk cannot hold, or none at all, is no help.
  const std::uint64_t stated = littleEndian(head, 64, 8) / 8;
  std::uint64_t& bytes = made.value().bytesPerChannel;
  if (stated > 0) bytes = std::min(bytes, stated);
  return made;
}

/// The rate and the channel count among the sub-chunks of "PROP".
void readProperties(Bytes body, std::uint64_t& hertz, DSDLayout& layout) {
  // The type of the properties comes first.
  for (std::size_t at = 4; at + kChunkHeaderBytes <= body.size();) {
    const std::size_t dataAt = at + kChunkHeaderBytes;
    if (hasMark(body, at, "FS  ") && dataAt + 4 <= body.size()) {
      hertz = bigEndian(body, dataAt, 4);
    } else if (hasMark(body, at, "CHNL") && dataAt + 2 <= body.size()) {
      layout.channelCount = static_cast<std::uint32_t>(bigEndian(body, dataAt, 2));
    }
    const std::uint64_t size = bigEndian(body, at + 4, 8);
    if (size > body.size()) return;
    at = dataAt + static_cast<std::size_t>(size);
    at += at % 2;
  }
}

Result<DSDLayout, DecoderError> parseDSDIFF(ReadableFile& file) {
  std::array<std::byte, 16> form;
  if (readAt(file, 0, form) < form.size() || !hasMark(form, 0, "FRM8") ||
      !hasMark(form, 12, "DSD ")) {
    return fault("not a DSDIFF file; rename it to what it is, or get a fresh copy");
  }
  DSDLayout layout{.format = DSDFormat::dsdiff, .blockSizePerChannel = 1};
  std::uint64_t hertz = 0;
  std::uint64_t soundBytes = 0;
  std::uint64_t at = form.size();
  std::array<std::byte, kChunkHeaderBytes> chunk;
  for (int count = 0; count < kMostChunks && readAt(file, at, chunk) == chunk.size(); ++count) {
    const std::uint64_t size = bigEndian(chunk, 4, 8);
    const std::uint64_t dataAt = at + kChunkHeaderBytes;
    if (hasMark(chunk, 0, "PROP")) {
      std::array<std::byte, kMostPropertyBytes> body;
      const auto wanted =
          static_cast<std::size_t>(std::min<std::uint64_t>(size, kMostPropertyBytes));
      const std::size_t got = readAt(file, dataAt, std::span(body).first(wanted));
      readProperties(Bytes(body).first(got), hertz, layout);
    } else if (hasMark(chunk, 0, "DST ")) {
      return fault(
          "DST-compressed DSDIFF is not supported; convert the file to uncompressed "
          "DSDIFF or DSF");
    } else if (hasMark(chunk, 0, "DSD ") && size > 0) {
      layout.dataOffset = dataAt;
      soundBytes = size;
      break;
    }
    if (size > std::numeric_limits<std::uint64_t>::max() - dataAt - 1) break;
    at = dataAt + size;
    at += at % 2;
  }
  if (soundBytes == 0) return fault("the DSDIFF file holds no sound; get a complete copy of it");
  const auto rate = dsdRateOf(hertz);
  if (!rate) return fault(unsupportedRate(hertz));
  layout.rate = *rate;
  return checked(layout, file.size(), soundBytes);
}

}  // namespace

Result<DSDLayout, DecoderError> parseDSDLayout(ReadableFile& file, DSDFormat format) {
  return format == DSDFormat::dsf ? parseDSF(file) : parseDSDIFF(file);
}

}  // namespace velorin
