#include "engine/decoders/WavPackStream.h"

#include <fmt/format.h>
#include <wavpack/wavpack.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <string>

#include "foundation/Log.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

constexpr int kFlags = OPEN_WVC | OPEN_DSD_AS_PCM | OPEN_NORMALIZE;
constexpr std::size_t kErrorBytes = 80;  // what the library asks for

/// Frames ahead of a target from which the decimation of one-bit audio has the same past as it has
/// in one go: its filter reaches back 56 bits, which are seven frames.
constexpr std::int64_t kDecimationPast = 16;

DecoderError openFailed(std::string text) {
  return {.kind = DecoderError::Kind::initFailed, .text = std::move(text)};
}

}  // namespace

// The context and the callbacks, which are called from C: nothing may be thrown through them.
struct WavPackStream::Library {
  WavpackStreamReader64 streamReader{.read_bytes = readBytes,
                                     .write_bytes = nullptr,
                                     .get_pos = position,
                                     .set_pos_abs = moveTo,
                                     .set_pos_rel = moveBy,
                                     .push_back_byte = pushBack,
                                     .get_length = length,
                                     .can_seek = [](void*) { return 1; },
                                     .truncate_here = nullptr,
                                     .close = nullptr};
  WavpackContext* context = nullptr;
  std::array<char, kErrorBytes> error{};

  Library() = default;
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() { close(); }

  bool open(ReadableFile& file, ReadableFile* correction) noexcept {
    close();
    error.fill('\0');
    if (moveTo(&file, 0) != 0 || (correction != nullptr && moveTo(correction, 0) != 0)) {
      return false;
    }
    context = WavpackOpenFileInputEx64(&streamReader, &file, correction, error.data(), kFlags, 0);
    return context != nullptr;
  }

  void close() noexcept {
    if (context != nullptr) WavpackCloseFile(context);
    context = nullptr;
  }

  static ReadableFile& fileOf(void* id) noexcept { return *static_cast<ReadableFile*>(id); }

  static std::int32_t readBytes(void* id, void* data, std::int32_t count) {
    if (id == nullptr || data == nullptr || count <= 0) return 0;
    return static_cast<std::int32_t>(
        fileOf(id).readInto({static_cast<std::byte*>(data), static_cast<std::size_t>(count)}));
  }

  static std::int64_t position(void* id) {
    return id == nullptr ? 0 : static_cast<std::int64_t>(fileOf(id).offset());
  }

  /// The library looks at the first byte and puts it back; the file still has it.
  static int pushBack(void* id, int byte) { return moveTo(id, position(id) - 1) == 0 ? byte : -1; }

  static std::int64_t length(void* id) {
    return id == nullptr ? 0 : static_cast<std::int64_t>(fileOf(id).size());
  }

  static int moveTo(void* id, std::int64_t target) {
    if (id == nullptr || target < 0 || target > length(id)) return -1;
    try {
      fileOf(id).seek(static_cast<std::uint64_t>(target));
      return 0;
    } catch (const std::exception&) {
      return -1;
    }
  }

  static int moveBy(void* id, std::int64_t delta, int mode) {
    const std::int64_t base = mode == SEEK_END ? length(id) : mode == SEEK_CUR ? position(id) : 0;
    std::int64_t target = 0;
    return __builtin_add_overflow(base, delta, &target) ? -1 : moveTo(id, target);
  }
};

WavPackStream::~WavPackStream() = default;

Result<std::unique_ptr<WavPackStream>, DecoderError> WavPackStream::open(
    std::unique_ptr<ReadableFile> file, std::unique_ptr<ReadableFile> correction) {
  if (file == nullptr) return openFailed("there is no file to read");
  if (file->size() == 0) {
    return openFailed("the file is empty (0 bytes); copy it again from its source");
  }
  std::unique_ptr<WavPackStream> stream(new WavPackStream());
  stream->_file = std::move(file);
  stream->_correction = std::move(correction);
  stream->_library = std::make_unique<Library>();
  Library& library = *stream->_library;
  if (!library.open(*stream->_file, stream->_correction.get()) && stream->_correction) {
    stream->_correction.reset();
    if (library.open(*stream->_file, nullptr)) {
      log::line(
          "⚠️ The WavPack correction file does not fit its hybrid file: playing without it");
    }
  }
  WavpackContext* const context = library.context;
  if (context == nullptr) {
    return openFailed(fmt::format("this is no WavPack file, or it is damaged ({}); copy it again",
                                  text::toValidUTF8(library.error.data())));
  }

  const int mode = WavpackGetMode(context);
  stream->_format = {
      .sampleRate = WavpackGetSampleRate(context),
      .channels = static_cast<std::uint32_t>(std::max(WavpackGetNumChannels(context), 0)),
      .bitsPerSample = static_cast<std::uint32_t>(std::max(WavpackGetBitsPerSample(context), 0)),
      .containerBits =
          static_cast<std::uint32_t>(std::max(WavpackGetBytesPerSample(context), 0)) * 8,
      .totalFrames = std::max<std::int64_t>(WavpackGetNumSamples64(context), 0),
      .isFloat = (mode & MODE_FLOAT) != 0,
      .isLossless = (mode & MODE_LOSSLESS) != 0,
      .isOneBit = (WavpackGetQualifyMode(context) & QMODE_DSD_AUDIO) != 0};
  const Format& format = stream->_format;
  if (format.sampleRate == 0) {
    return openFailed("the WavPack file states a sample rate of 0 Hz; it is damaged");
  }
  if (format.channels == 0 || format.channels > kMaxChannels) {
    return openFailed(fmt::format("the WavPack file has {} channels; up to {} can be played",
                                  format.channels, kMaxChannels));
  }
  if (format.bitsPerSample == 0 || format.bitsPerSample > format.containerBits ||
      format.containerBits > 32) {
    return openFailed(fmt::format("the WavPack file states {} bits in words of {}; it is damaged",
                                  format.bitsPerSample, format.containerBits));
  }
  return stream;
}

bool WavPackStream::reopen() noexcept {
  Library& library = *_library;
  if (!library.open(*_file, _correction.get())) return false;
  // The file may have been replaced by another one: what is played keeps its shape.
  const bool isSame =
      static_cast<std::uint32_t>(WavpackGetNumChannels(library.context)) == _format.channels &&
      WavpackGetBytesPerSample(library.context) * 8 == static_cast<int>(_format.containerBits) &&
      ((WavpackGetMode(library.context) & MODE_FLOAT) != 0) == _format.isFloat;
  if (!isSame) library.close();
  return isSame;
}

std::uint32_t WavPackStream::unpack(std::int32_t* interleaved, std::uint32_t frames) noexcept {
  WavpackContext* const context = _library->context;
  if (context == nullptr || frames == 0) return 0;
  return std::min(WavpackUnpackSamples(context, interleaved, frames), frames);
}

bool WavPackStream::seek(std::int64_t frame) noexcept {
  Library& library = *_library;
  if (library.context == nullptr && !reopen()) return false;
  const std::int64_t past = _format.isOneBit ? std::min(frame, kDecimationPast) : 0;
  if (WavpackSeekSample64(library.context, frame - past) == 0) {
    // The library's own word: a context is of no use after a seek that failed.
    library.close();
    return false;
  }
  std::array<std::int32_t, kMaxChannels> skipped;
  for (std::int64_t i = 0; i < past; ++i) {
    if (unpack(skipped.data(), 1) != 1) return false;
  }
  return true;
}

}  // namespace velorin
