#include "library/metadata/TagStream.h"

#include "foundation/Text.h"

namespace velorin {
namespace {

/// What stands at the start of a file of a kind, and where.
struct Magic {
  std::size_t offset;
  std::string_view bytes;
  const char* extension;   ///< by which the tag library knows the kind
  const char* alsoCalled;  ///< extensions that mean the same, between blanks
};

using namespace std::string_view_literals;

constexpr Magic kMagics[] = {
    {0, "fLaC"sv, "flac", ""},
    {28, "OpusHead"sv, "opus", ""},
    {28, "\x01vorbis"sv, "ogg", " oga "},
    {28,
     "\x7f"
     "FLAC"sv,
     "oga", ""},
    {28, "Speex   "sv, "spx", ""},
    {4, "ftyp"sv, "m4a", " m4r m4b m4p mp4 3g2 m4v aac alac "},
    {8, "WAVE"sv, "wav", ""},
    {8, "AIFF"sv, "aiff", " aif afc aifc "},
    {8, "AIFC"sv, "aiff", " aif afc aifc "},
    {0, "wvpk"sv, "wv", ""},
    {0, "MAC "sv, "ape", ""},
    {0, "MPCK"sv, "mpc", ""},
    {0, "TTA1"sv, "tta", ""},
    {0, "\x30\x26\xb2\x75\x8e\x66\xcf\x11"sv, "wma", " asf "},
    {0, "DSD "sv, "dsf", ""},
};

}  // namespace

std::string tagFileName(const std::string& path, std::string_view head) {
  const std::string extension = text::fileExtension(path);
  for (const Magic& magic : kMagics) {
    if (head.size() < magic.offset || !head.substr(magic.offset).starts_with(magic.bytes)) continue;
    // Of what is called alike the name stays, but "aac" and "alac" say nothing to the tag library.
    const bool known =
        extension == magic.extension ||
        std::string_view(magic.alsoCalled).find(" " + extension + " ") != std::string_view::npos;
    if (known && extension != "aac" && extension != "alac") return path;
    return std::string("file.") + magic.extension;
  }
  return path;
}

TagStream::TagStream(RegularFile file, const std::string& path) : _file(std::move(file)) {
  fillWindow(0);
  _name = tagFileName(path,
                      std::string_view(reinterpret_cast<const char*>(_window.data()), _windowSize));
}

bool TagStream::fillWindow(std::uint64_t position) {
  // Near the end the window is the file's tail, where tags are looked for backward.
  const std::uint64_t tail = _file.size() > kWindowBytes ? _file.size() - kWindowBytes : 0;
  _windowStart = std::min(position, tail);
  const std::size_t wanted = std::min<std::uint64_t>(kWindowBytes, _bytesLeft);
  _windowSize = _file.read(_windowStart, std::span(_window).first(wanted));
  _bytesLeft -= _windowSize;
  return position >= _windowStart && position < _windowStart + _windowSize;
}

TagLib::ByteVector TagStream::readBlock(unsigned long length) {
  if (_position >= _file.size()) return {};
  // Never more memory than there are bytes, whatever length a broken header asks for.
  const auto wanted = static_cast<std::size_t>(
      std::min({std::uint64_t{length}, _file.size() - _position, _bytesLeft + kWindowBytes}));
  TagLib::ByteVector bytes;
  const auto inWindow = [&] {
    return _position >= _windowStart && _position < _windowStart + _windowSize;
  };
  if (wanted <= kWindowBytes / 2) {
    const bool whole = inWindow() && _position + wanted <= _windowStart + _windowSize;
    if (!whole && !fillWindow(_position)) return bytes;
    const std::size_t offset = _position - _windowStart;
    const std::size_t count = std::min(wanted, _windowSize - offset);
    bytes = TagLib::ByteVector(reinterpret_cast<const char*>(_window.data()) + offset,
                               static_cast<unsigned>(count));
  } else {
    bytes.resize(static_cast<unsigned>(std::min<std::uint64_t>(wanted, _bytesLeft)));
    const std::size_t got =
        _file.read(_position, std::as_writable_bytes(std::span(bytes.data(), bytes.size())));
    bytes.resize(static_cast<unsigned>(got));
    _bytesLeft -= got;
  }
  _position += bytes.size();
  return bytes;
}

void TagStream::seek(long offset, Position position) {
  const auto size = static_cast<long>(_file.size());
  const long base = position == Beginning ? 0
                    : position == Current ? static_cast<long>(_position)
                                          : size;
  long target = 0;
  if (__builtin_add_overflow(base, offset, &target)) return;
  _position = static_cast<std::uint64_t>(std::max(target, 0L));
}

}  // namespace velorin
