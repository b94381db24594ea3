#include "engine/decoders/DecoderFactory.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string>

#include "engine/decoders/APEDecoder.h"
#include "engine/decoders/ExtAudioFileDecoder.h"
#include "engine/decoders/FLACDecoder.h"
#include "engine/decoders/FileHandle.h"
#include "engine/decoders/OpusDecoder.h"
#include "engine/decoders/WavPackDecoder.h"
#include "engine/dsd/DSDDecoder.h"

namespace velorin {
namespace {

using Make = DecoderFactory::Opened (*)(std::unique_ptr<ReadableFile>, std::string_view extension);

template <class Made>
DecoderFactory::Opened opened(Made made) {
  if (!made) return made.error();
  return std::unique_ptr<FileDecoder>(std::move(made).value());
}

template <class Decoder>
DecoderFactory::Opened make(std::unique_ptr<ReadableFile> file, std::string_view) {
  return opened(Decoder::create(std::move(file)));
}

/// For whatever has no decoder of its own.
DecoderFactory::Opened makeAny(std::unique_ptr<ReadableFile> file, std::string_view extension) {
  return opened(ExtAudioFileDecoder::create(std::move(file), extension));
}

/// What an Ogg file holds stands at the start of its first page's content, behind a table of as
/// many bytes as the header's last one tells.
DecoderFactory::Opened makeOgg(std::unique_ptr<ReadableFile> file, std::string_view extension) {
  std::array<std::byte, 27 + 255 + 8> page{};
  const std::size_t got = file->readInto(page);
  file->seek(0);
  const std::size_t start = 27 + std::to_integer<std::size_t>(page[26]);
  const std::string_view bytes(reinterpret_cast<const char*>(page.data()), got);
  const std::string_view content = bytes.substr(std::min(start, got));
  if (content.starts_with("OpusHead")) return make<OpusDecoder>(std::move(file), extension);
  if (content.starts_with("\177FLAC")) return make<FLACDecoder>(std::move(file), extension);
  return makeAny(std::move(file), extension);
}

template <DSDFormat format>
DecoderFactory::Opened makeDSD(std::unique_ptr<ReadableFile> file, std::string_view) {
  return opened(DSDDecoder::create(std::move(file), format));
}

struct Format {
  std::string_view extension;
  Make make;
};

constexpr std::array kFormats = {
    Format{.extension = "ape", .make = make<APEDecoder>},
    Format{.extension = "dff", .make = makeDSD<DSDFormat::dsdiff>},
    Format{.extension = "dsf", .make = makeDSD<DSDFormat::dsf>},
    Format{.extension = "flac", .make = make<FLACDecoder>},
    Format{.extension = "opus", .make = make<OpusDecoder>},
    Format{.extension = "wv", .make = make<WavPackDecoder>},
    Format{.extension = "mp3", .make = makeAny},
    Format{.extension = "m4a", .make = makeAny},
    Format{.extension = "m4b", .make = makeAny},
    Format{.extension = "mp4", .make = makeAny},
    Format{.extension = "aac", .make = makeAny},
    Format{.extension = "alac", .make = makeAny},
    Format{.extension = "aiff", .make = makeAny},
    Format{.extension = "aif", .make = makeAny},
    Format{.extension = "aifc", .make = makeAny},
    Format{.extension = "wav", .make = makeAny},
    Format{.extension = "w64", .make = makeAny},
    Format{.extension = "rf64", .make = makeAny},
    Format{.extension = "caf", .make = makeAny},
    Format{.extension = "au", .make = makeAny},
    Format{.extension = "snd", .make = makeAny},
    Format{.extension = "spx", .make = makeAny},
    Format{.extension = "tta", .make = makeAny},
    Format{.extension = "wma", .make = makeAny},
    Format{.extension = "asf", .make = makeAny},
    Format{.extension = "mka", .make = makeAny},
    Format{.extension = "webm", .make = makeAny},
    Format{.extension = "mp2", .make = makeAny},
    Format{.extension = "ac3", .make = makeAny},
    Format{.extension = "ogg", .make = makeOgg},
    Format{.extension = "oga", .make = makeOgg},
};

// ASCII only: no extension of ours has other letters, and the locale must not matter.
bool equalIgnoringCase(std::string_view text, std::string_view lower) noexcept {
  return std::ranges::equal(text, lower, {}, [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
}

const Format* formatFor(std::string_view extension) noexcept {
  const auto* found = std::ranges::find_if(kFormats, [&](const Format& format) {
    return equalIgnoringCase(extension, format.extension);
  });
  return found == kFormats.end() ? nullptr : found;
}

std::string_view withoutDot(std::string_view extension) noexcept {
  if (extension.starts_with('.')) extension.remove_prefix(1);
  return extension;
}

DecoderError unsupported(std::string_view extension) {
  if (extension.empty()) {
    return {
        .text =
            "the file name has no extension to tell its format; rename it, e.g. to .flac or .mp3"};
  }
  return {.text = fmt::format("the format \"{}\" is not supported by this build; convert the file "
                              "to FLAC",
                              extension)};
}

}  // namespace

bool DecoderFactory::isSupportedExtension(std::string_view extension) noexcept {
  return formatFor(extension) != nullptr;
}

DecoderFactory::Opened DecoderFactory::open(const std::filesystem::path& path) {
  // That it is missing, or a folder, says more than that its name has no extension.
  auto file = FileHandle::open(path);
  if (!file) return DecoderError{.text = file.error()};
  const std::string dotted = path.extension().native();
  const Format* const format = formatFor(withoutDot(dotted));
  if (format == nullptr) return unsupported(withoutDot(dotted));
  if (const std::string beside = companionPath(path); !beside.empty()) {
    if (auto companion = FileHandle::open(beside)) {
      return open(std::move(file).value(), format->extension, std::move(companion).value());
    }
  }
  return format->make(std::move(file).value(), format->extension);
}

DecoderFactory::Opened DecoderFactory::open(std::unique_ptr<ReadableFile> file,
                                            std::string_view extension) {
  const Format* const format = formatFor(extension);
  if (format == nullptr) return unsupported(extension);
  return format->make(std::move(file), format->extension);
}

DecoderFactory::Opened DecoderFactory::open(std::unique_ptr<ReadableFile> file,
                                            std::string_view extension,
                                            std::unique_ptr<ReadableFile> companion) {
  if (companion == nullptr) return open(std::move(file), extension);
  auto made = WavPackDecoder::create(std::move(file), std::move(companion));
  if (!made) return made.error();
  return std::unique_ptr<FileDecoder>(std::move(made).value());
}

std::string DecoderFactory::companionPath(const std::filesystem::path& path) {
  const std::string dotted = path.extension().native();
  return equalIgnoringCase(withoutDot(dotted), "wv") ? path.native() + "c" : std::string();
}

}  // namespace velorin
