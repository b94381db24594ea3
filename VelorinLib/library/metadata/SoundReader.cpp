#include "library/metadata/SoundReader.h"

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/metadata/AacConfig.h"
#include "library/metadata/BitDepth.h"
#include "library/metadata/FileName.h"
#include "library/metadata/NativeReaders.h"
#include "platform/media/MediaProbe.h"

namespace velorin {
namespace {

void logFallBack(NativeFormat format, std::string_view name) {
  if (format == NativeFormat::flac) {
    log::line("⚠️ FLAC native parser failed, falling back: {}", name);
  } else if (format == NativeFormat::ape) {
    log::line("⚠️ APE native parser failed: {}", name);
  } else {
    log::line("⚠️ WavPack native parser failed: {}", name);
  }
}

/// What the file's own header says of its samples is nearer to them than what a library derives.
void refineBitDepth(AudioProperties& sound, const RegularFile& file, std::string_view extension) {
  if (!hasBitDepthDetector(extension)) return;
  std::array<std::byte, kBitDepthHeadBytes> head;
  const std::size_t size = file.read(0, head);
  if (const auto depth = detectBitDepth(HeaderBytes(head.data(), size))) {
    sound.bitDepth = *depth > 0 ? depth : std::nullopt;
  }
}

/// The tag library takes an MP4's word for two channels.
void refineChannels(AudioProperties& sound, const RegularFile& file, std::string_view extension) {
  const bool isMp4 = extension == "m4a" || extension == "mp4" || extension == "m4b";
  if (!isMp4 || sound.channels != 2 || sound.bitDepth) return;
  const auto channels = aacChannels([&file](std::uint64_t offset, std::span<std::byte> into) {
    return offset < file.size() ? file.read(offset, into) : 0;
  });
  if (channels) sound.channels = channels;
}

Result<SoundAndTags, ExtractFailure> readGenerally(const RegularFile& file, const std::string& path,
                                                   std::string_view extension) {
  SoundAndTags result;
  std::optional<TaggedFile> tagged = readTaggedFile(path);
  if (tagged) result.tags = std::move(tagged->tags);
  if (tagged && tagged->properties && tagged->properties->duration > 0) {
    result.sound = *tagged->properties;
    refineChannels(result.sound, file, extension);
  } else {
    const auto probed = probeMedia(path);
    if (!probed) return ExtractFailure{probed.error().reason};
    const MediaProperties& media = probed.value();
    result.sound = {.duration = media.duration,
                    .sampleRate = media.sampleRate,
                    .channels = media.channels,
                    .bitDepth = media.bitDepth,
                    .bitRate = media.bitRate};
    // What the tag library does not know, or knows by its name alone, has its container's tags.
    if (!result.tags || *result.tags == TagFields{}) result.tags = fieldsOfContainer(media.tags);
  }
  refineBitDepth(result.sound, file, extension);
  return result;
}

}  // namespace

Result<SoundAndTags, ExtractFailure> readSound(const RegularFile& file, const std::string& path,
                                               bool wantsTags) {
  if (file.size() == 0) return ExtractFailure{"the file is empty"};
  const std::string extension = text::fileExtension(path);
  const NativeFormat format = nativeFormat(extension);
  if (format == NativeFormat::none) return readGenerally(file, path, extension);

  auto sound = readNatively(format, file, fileName(path));
  if (sound) return SoundAndTags{*sound.operator->(), wantsTags ? readTags(path) : std::nullopt};
  if (isDsd(format)) return sound.error();
  logFallBack(format, fileName(path));
  auto general = readGenerally(file, path, extension);
  // Of two reasons the one that speaks of the format that the name promises.
  if (!general) return sound.error();
  return general;
}

}  // namespace velorin
