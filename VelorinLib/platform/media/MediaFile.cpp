#include "platform/media/MediaFile.h"

#include <array>
#include <cstring>
#include <mutex>

#include "foundation/Log.h"
#include "platform/files/RegularFile.h"

namespace velorin::media {
namespace {

constexpr int kBufferBytes = 32 * 1024;

/// The library's own words are for those who look for a fault.
void logAsDebug(void* object, int level, const char* format, va_list arguments) {
  if (level > AV_LOG_WARNING) return;
  std::array<char, 512> line{};
  int prefix = 1;
  const int length = av_log_format_line2(object, level, format, arguments, line.data(),
                                         static_cast<int>(line.size()), &prefix);
  if (length <= 0) return;
  std::string_view text(line.data());
  if (text.ends_with('\n')) text.remove_suffix(1);
  log::write(log::Level::debug, fmt::format("[Media] {}", text));
}

void silence() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_callback(logAsDebug); });
}

std::uint32_t littleEndian(const std::byte* bytes) {
  return std::to_integer<std::uint32_t>(bytes[0]) | std::to_integer<std::uint32_t>(bytes[1]) << 8 |
         std::to_integer<std::uint32_t>(bytes[2]) << 16 |
         std::to_integer<std::uint32_t>(bytes[3]) << 24;
}

/// The size without the ID3v1 and APEv2 tags at the end, which some demuxers take for sound.
std::uint64_t sizeWithoutTags(MediaBytes& file) {
  constexpr std::size_t kId3Bytes = 128;
  constexpr std::size_t kFooterBytes = 32;
  std::uint64_t size = file.size();
  std::array<std::byte, kId3Bytes> tail{};
  if (size > kId3Bytes && file.read(size - kId3Bytes, tail) == kId3Bytes &&
      std::memcmp(tail.data(), "TAG", 3) == 0) {
    size -= kId3Bytes;
  }
  const auto footer = std::span(tail).first(kFooterBytes);
  if (size > kFooterBytes && file.read(size - kFooterBytes, footer) == kFooterBytes &&
      std::memcmp(footer.data(), "APETAGEX", 8) == 0) {
    // Size of items and footer; the top bit of the flags tells of a header as long as the footer.
    const bool hasHeader = (littleEndian(footer.data() + 20) & 0x80000000U) != 0;
    const std::uint64_t tag =
        std::uint64_t{littleEndian(footer.data() + 12)} + (hasHeader ? kFooterBytes : 0);
    if (tag >= kFooterBytes && tag < size) size -= tag;
  }
  return size;
}

int refuse(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
  return AVERROR(EACCES);
}

/// As the library wants it: its own to free.
char* copyOf(const char* text) {
  return text ? av_strdup(text) : nullptr;
}

/// A file on disk, of the size that it had when it was opened.
class DiskBytes final : public MediaBytes {
 public:
  explicit DiskBytes(RegularFile file) : _file(std::move(file)) {}
  std::uint64_t size() const noexcept override { return _file.size(); }
  std::size_t read(std::uint64_t offset, std::span<std::byte> destination) noexcept override {
    return _file.read(offset, destination);
  }

 private:
  const RegularFile _file;
};

}  // namespace

MediaError mediaError(const char* what, int code) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(code, text.data(), text.size());
  return {fmt::format("{}: {}", what, text.data())};
}

MediaFile::MediaFile(std::shared_ptr<MediaBytes> bytes)
    : _bytes(std::move(bytes)), _size(sizeWithoutTags(*_bytes)) {
  renewBudget();
}

void MediaFile::renewBudget() noexcept {
  _bytesLeft = 2 * _size + (64U << 20);
}

Result<std::unique_ptr<MediaFile>, MediaError> MediaFile::open(const std::string& path) {
  auto file = RegularFile::open(path);
  if (!file) return MediaError{file.error()};
  return open(std::make_shared<DiskBytes>(std::move(file).value()), {.name = path});
}

Result<std::unique_ptr<MediaFile>, MediaError> MediaFile::open(std::shared_ptr<MediaBytes> bytes,
                                                               const MediaRules& rules) {
  silence();
  std::unique_ptr<MediaFile> media(new MediaFile(std::move(bytes)));
  auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
  if (buffer) {
    media->_io = avio_alloc_context(buffer, kBufferBytes, 0, media.get(), read, nullptr, seek);
    if (!media->_io) av_free(buffer);
  }
  media->_context = avformat_alloc_context();
  if (!media->_io || !media->_context) return MediaError{"not enough memory"};
  media->_context->pb = media->_io;
  media->_context->io_open = refuse;
  media->_context->probesize = 1 << 20;
  media->_context->max_analyze_duration = AV_TIME_BASE;
  media->_context->flags |= AVFMT_FLAG_CUSTOM_IO;

  media->_context->format_whitelist = copyOf(rules.demuxers);
  media->_context->codec_whitelist = copyOf(rules.decoders);

  AVDictionary* options = nullptr;
  if (rules.options) av_dict_parse_string(&options, rules.options, "=", ":", 0);
  // A failed opening frees the context.
  const int code = avformat_open_input(&media->_context, rules.name.c_str(), nullptr, &options);
  av_dict_free(&options);
  if (code < 0) {
    return mediaError("the file cannot be read as music", code);
  }
  const int found = avformat_find_stream_info(media->_context, nullptr);
  const int index = av_find_best_stream(media->_context, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
  if (index < 0) {
    return found < 0 ? mediaError("the file cannot be read as music", found)
                     : MediaError{"there is no sound in the file"};
  }
  for (unsigned i = 0; i < media->_context->nb_streams; ++i) {
    AVStream& stream = *media->_context->streams[i];
    stream.discard = static_cast<int>(i) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
  media->_audio = media->_context->streams[index];
  return media;
}

MediaFile::~MediaFile() {
  avformat_close_input(&_context);
  if (_io) av_freep(&_io->buffer);
  avio_context_free(&_io);
}

int MediaFile::read(void* self, std::uint8_t* buffer, int size) {
  auto& media = *static_cast<MediaFile*>(self);
  const std::uint64_t left = media._size - std::min(media._size, media._position);
  const auto wanted = std::min({static_cast<std::uint64_t>(size), left, media._bytesLeft});
  const std::size_t got = media._bytes->read(
      media._position, std::as_writable_bytes(std::span(buffer, static_cast<std::size_t>(wanted))));
  if (got == 0) return AVERROR_EOF;
  media._position += got;
  media._bytesLeft -= got;
  return static_cast<int>(got);
}

std::int64_t MediaFile::seek(void* self, std::int64_t offset, int whence) {
  auto& media = *static_cast<MediaFile*>(self);
  const auto size = static_cast<std::int64_t>(media._size);
  std::int64_t base = 0;
  switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
      return size;
    case SEEK_SET:
      break;
    case SEEK_CUR:
      base = static_cast<std::int64_t>(media._position);
      break;
    case SEEK_END:
      base = size;
      break;
    default:
      return AVERROR(EINVAL);
  }
  std::int64_t target = 0;
  if (__builtin_add_overflow(base, offset, &target) || target < 0) return AVERROR(EINVAL);
  media._position = static_cast<std::uint64_t>(target);
  return target;
}

}  // namespace velorin::media
