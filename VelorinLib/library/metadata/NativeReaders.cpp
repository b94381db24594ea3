#include "library/metadata/NativeReaders.h"

#include <vector>

#include "foundation/Log.h"
#include "library/metadata/ApeHeader.h"
#include "library/metadata/DsdHeader.h"
#include "library/metadata/FlacHeader.h"
#include "library/metadata/WavPackHeader.h"

namespace velorin {
namespace {

using Properties = Result<AudioProperties, ExtractFailure>;

/// Room for a head, and the bytes that the file has of it.
template <std::size_t kSize>
class Head {
 public:
  explicit Head(const RegularFile& file) : _size(file.read(0, _bytes)) {}
  HeaderBytes bytes() const noexcept { return {_bytes.data(), _size}; }

 private:
  std::array<std::byte, kSize> _bytes;
  std::size_t _size;
};

/// The failure in words; kind: "a FLAC file".
ExtractFailure failure(HeaderFault fault, std::string_view kind, const RegularFile& file) {
  switch (fault) {
    case HeaderFault::tooShort:
      return {
          fmt::format("cut off: its {} bytes end before the header of {} does", file.size(), kind)};
    case HeaderFault::badMagic:
      return {fmt::format("not {}, in spite of its extension", kind)};
    case HeaderFault::malformed:
      break;
  }
  return {fmt::format("damaged: its header is not that of {}", kind)};
}

Properties readFlac(const RegularFile& file, std::string_view name) {
  const Head<kFlacHeadBytes> head(file);
  auto parsed = parseFlacHeader(head.bytes());
  if (parsed) return std::move(parsed).value();
  if (parsed.error() == HeaderFault::tooShort) log::line("⚠️ FLAC too short: {}", name);
  if (parsed.error() == HeaderFault::badMagic) log::line("⚠️ FLAC bad magic: {}", name);
  return failure(parsed.error(), "a FLAC file", file);
}

Properties readApe(const RegularFile& file, std::string_view name) {
  const Head<kApeHeadBytes> head(file);
  auto parsed = parseApeHeader(head.bytes());
  if (parsed) return std::move(parsed).value();
  if (parsed.error() == HeaderFault::tooShort) {
    log::line("⚠️ APE too short ({} bytes): {}", head.bytes().size(), name);
  }
  if (parsed.error() == HeaderFault::badMagic) log::line("⚠️ APE bad magic: {}", name);
  return failure(parsed.error(), "a Monkey's Audio file", file);
}

std::string hexadecimal(HeaderBytes bytes) {
  std::string text;
  for (const std::byte byte : bytes) {
    text += fmt::format("{}{:02x}", text.empty() ? "" : " ", std::to_integer<unsigned>(byte));
  }
  return text;
}

double lengthFromTail(const RegularFile& file, int sampleRate) {
  const std::size_t size = std::min<std::uint64_t>(file.size(), kWavPackTailBytes);
  std::vector<std::byte> tail(size);
  tail.resize(file.read(file.size() - size, tail));
  const auto samples = wavPackLength(tail);
  return samples ? static_cast<double>(*samples) / sampleRate : 0;
}

Properties readWavPack(const RegularFile& file, std::string_view name) {
  constexpr std::size_t kShownBytes = 8;
  const Head<kWavPackHeadBytes> head(file);
  const auto parsed = parseWavPackHeader(head.bytes());
  if (!parsed) {
    if (parsed.error() == HeaderFault::badMagic) {
      log::line("⚠️ WavPack bad magic: {} — first bytes: {}", name,
                hexadecimal(head.bytes().first(std::min(kShownBytes, head.bytes().size()))));
    }
    return failure(parsed.error(), "a WavPack file", file);
  }
  const WavPackHeader& header = parsed.value();
  if (header.offset > 0) {
    log::line("ℹ️ WavPack: wvpk found at offset {} in {}", header.offset, name);
  }
  AudioProperties properties = header.properties;
  if (!header.hasLength) properties.duration = lengthFromTail(file, *properties.sampleRate);
  return properties;
}

ExtractFailure dsdFailure(const DsdFault& fault, std::string_view kind, const RegularFile& file) {
  if (fault.isCompressed) return {"DST compressed DSDIFF cannot be played; convert it to DSF"};
  if (fault.unsupportedRate != 0) {
    return {fmt::format("a rate of {} Hz is none of DSD64 to DSD512", fault.unsupportedRate)};
  }
  return failure(fault.fault, kind, file);
}

Properties readDsf(const RegularFile& file) {
  const Head<kDsfHeadBytes> head(file);
  const auto parsed = parseDsfHeader(head.bytes());
  if (parsed) return parsed.value().properties();
  if (parsed.error().unsupportedRate != 0) {
    log::line("⚠️ Unsupported DSD rate: {}", parsed.error().unsupportedRate);
  }
  return dsdFailure(parsed.error(), "a DSF file", file);
}

Properties readDff(const RegularFile& file) {
  const auto parsed = parseDffHeader([&file](std::uint64_t offset, std::span<std::byte> into) {
    return offset < file.size() ? file.read(offset, into) : 0;
  });
  if (parsed) return parsed.value().properties();
  return dsdFailure(parsed.error(), "a DSDIFF file", file);
}

}  // namespace

NativeFormat nativeFormat(std::string_view extension) noexcept {
  if (extension == "flac") return NativeFormat::flac;
  if (extension == "ape") return NativeFormat::ape;
  if (extension == "wv") return NativeFormat::wavPack;
  if (extension == "dsf") return NativeFormat::dsf;
  if (extension == "dff") return NativeFormat::dff;
  return NativeFormat::none;
}

Result<AudioProperties, ExtractFailure> readNatively(NativeFormat format, const RegularFile& file,
                                                     std::string_view name) {
  switch (format) {
    case NativeFormat::flac:
      return readFlac(file, name);
    case NativeFormat::ape:
      return readApe(file, name);
    case NativeFormat::wavPack:
      return readWavPack(file, name);
    case NativeFormat::dsf:
      return readDsf(file);
    case NativeFormat::dff:
      return readDff(file);
    case NativeFormat::none:
      break;
  }
  return ExtractFailure{"no reader for this kind of file"};
}

}  // namespace velorin
