#include "library/metadata/DsdHeader.h"

#include <algorithm>
#include <array>
#include <limits>

namespace velorin {
namespace {

constexpr std::array<std::uint32_t, 4> kRates = {2'822'400, 5'644'800, 11'289'600, 22'579'200};
constexpr std::size_t kChunkHeaderBytes = 12;
constexpr std::size_t kMostPropertyBytes = 1024;
// A file of nothing but tiny chunks would otherwise be read for hours.
constexpr int kMostChunks = 10'000;

Result<DsdHeader, DsdFault> checked(const DsdHeader& header) {
  if (std::ranges::find(kRates, header.sampleRate) == kRates.end()) {
    return DsdFault{.unsupportedRate = header.sampleRate};
  }
  constexpr std::uint32_t kMostChannels = std::numeric_limits<int>::max();
  if (header.channels == 0 || header.channels > kMostChannels || header.dataBytes == 0) {
    return DsdFault{};
  }
  return header;
}

/// The rate and the channel count among the sub-chunks of "PROP".
void readProperties(HeaderBytes body, DsdHeader& header) {
  // The property type comes first.
  for (std::size_t at = 4; at + kChunkHeaderBytes <= body.size();) {
    const std::size_t dataAt = at + kChunkHeaderBytes;
    if (hasMark(body, at, "FS  ") && dataAt + 4 <= body.size()) {
      header.sampleRate = bigEndian32(body, dataAt);
    } else if (hasMark(body, at, "CHNL") && dataAt + 2 <= body.size()) {
      header.channels = bigEndian16(body, dataAt);
    }
    const std::uint64_t size = bigEndian<8>(body, at + 4);
    if (size > body.size()) break;
    at = dataAt + size;
    at += at % 2;
  }
}

}  // namespace

AudioProperties DsdHeader::properties() const {
  AudioProperties result;
  const double stored = static_cast<double>(dataBytes) * 8 / channels;
  const auto stated = static_cast<double>(sampleCount);
  result.duration = (sampleCount > 0 && stated <= stored ? stated : stored) / sampleRate;
  result.sampleRate = static_cast<int>(sampleRate);
  result.channels = static_cast<int>(channels);
  result.bitDepth = 1;
  return result;
}

Result<DsdHeader, DsdFault> parseDsfHeader(HeaderBytes head) {
  if (!hasMark(head, 0, "DSD ")) {
    return DsdFault{head.size() < 4 ? HeaderFault::tooShort : HeaderFault::badMagic};
  }
  if (head.size() < kDsfHeadBytes) return DsdFault{HeaderFault::tooShort};
  constexpr std::uint64_t kDataHeaderBytes = 12;
  const std::uint64_t dataChunk = littleEndian<8>(head, 84);
  if (!hasMark(head, 28, "fmt ") || !hasMark(head, 80, "data") || dataChunk <= kDataHeaderBytes) {
    return DsdFault{};
  }
  return checked({.dataOffset = kDsfHeadBytes,
                  .dataBytes = dataChunk - kDataHeaderBytes,
                  .sampleRate = littleEndian32(head, 56),
                  .channels = littleEndian32(head, 52),
                  .sampleCount = littleEndian<8>(head, 64)});
}

Result<DsdHeader, DsdFault> parseDffHeader(const ReadAt& read) {
  std::array<std::byte, 16> form;
  const HeaderBytes head(form.data(), read(0, form));
  if (!hasMark(head, 0, "FRM8")) {
    return DsdFault{head.size() < 4 ? HeaderFault::tooShort : HeaderFault::badMagic};
  }
  if (head.size() < form.size()) return DsdFault{HeaderFault::tooShort};
  if (!hasMark(head, 12, "DSD ")) return DsdFault{HeaderFault::badMagic};

  DsdHeader header;
  std::array<std::byte, kChunkHeaderBytes> chunk;
  std::uint64_t at = form.size();
  for (int count = 0; count < kMostChunks && read(at, chunk) == chunk.size(); ++count) {
    const std::uint64_t size = bigEndian<8>(chunk, 4);
    const std::uint64_t dataAt = at + kChunkHeaderBytes;
    if (hasMark(chunk, 0, "PROP")) {
      std::array<std::byte, kMostPropertyBytes> body;
      const auto wanted = std::min<std::uint64_t>(size, body.size());
      readProperties(HeaderBytes(body.data(), read(dataAt, std::span(body).first(wanted))), header);
    } else if (hasMark(chunk, 0, "DST ")) {
      return DsdFault{.isCompressed = true};
    } else if (hasMark(chunk, 0, "DSD ") && size > 0) {
      header.dataOffset = dataAt;
      header.dataBytes = size;
      break;
    }
    if (size > std::numeric_limits<std::int64_t>::max() - dataAt - 1) break;
    at = dataAt + size;
    at += at % 2;
  }
  if (header.dataBytes == 0) return DsdFault{HeaderFault::tooShort};
  return checked(header);
}

}  // namespace velorin
