#include "library/artwork/EmbeddedPicture.h"

#include <sys/stat.h>
#include <taglib/aifffile.h>
#include <taglib/apefile.h>
#include <taglib/apetag.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/flacfile.h>
#include <taglib/id3v2framefactory.h>
#include <taglib/id3v2tag.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>
#include <taglib/oggflacfile.h>
#include <taglib/opusfile.h>
#include <taglib/tbytevectorstream.h>
#include <taglib/tfilestream.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>
#include <taglib/wavpackfile.h>
#include <taglib/xiphcomment.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "foundation/Text.h"

namespace velorin {
namespace {

using Bytes = TagLib::ByteVector;  // empty: no picture

Bytes fromId3(const TagLib::ID3v2::Tag* tag) {
  if (tag == nullptr) return {};
  for (const TagLib::ID3v2::Frame* frame : tag->frameList("APIC")) {
    const auto* picture = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame*>(frame);
    if (picture != nullptr && !picture->picture().isEmpty()) return picture->picture();
  }
  return {};
}

Bytes fromPictures(const TagLib::List<TagLib::FLAC::Picture*>& pictures) {
  for (const TagLib::FLAC::Picture* picture : pictures) {
    if (!picture->data().isEmpty()) return picture->data();
  }
  return {};
}

Bytes fromXiph(TagLib::Ogg::XiphComment* tag) {
  return tag == nullptr ? Bytes{} : fromPictures(tag->pictureList());
}

/// A file name, a zero byte and the picture.
Bytes fromApe(const TagLib::APE::Tag* tag) {
  if (tag == nullptr) return {};
  for (const char* key : {"COVER ART (FRONT)", "COVER ART (BACK)"}) {
    const auto item = tag->itemListMap().find(key);
    if (item == tag->itemListMap().end()) continue;
    const Bytes value = item->second.binaryData();
    const int zero = value.find('\0');
    if (zero >= 0) return value.mid(static_cast<unsigned>(zero) + 1);
  }
  return {};
}

Bytes fromFlac(TagLib::IOStream* stream) {
  TagLib::FLAC::File file(stream, TagLib::ID3v2::FrameFactory::instance(), false);
  if (!file.isValid()) return {};
  Bytes picture = fromPictures(file.pictureList());
  if (picture.isEmpty() && file.hasXiphComment()) picture = fromXiph(file.xiphComment());
  if (picture.isEmpty() && file.hasID3v2Tag()) picture = fromId3(file.ID3v2Tag());
  return picture;
}

Bytes fromMpeg(TagLib::IOStream* stream) {
  TagLib::MPEG::File file(stream, TagLib::ID3v2::FrameFactory::instance(), false);
  if (!file.isValid()) return {};
  Bytes picture = fromId3(file.ID3v2Tag());
  return picture.isEmpty() ? fromApe(file.APETag()) : picture;
}

Bytes fromMp4(TagLib::IOStream* stream) {
  TagLib::MP4::File file(stream, false);
  if (!file.isValid() || file.tag() == nullptr || !file.tag()->contains("covr")) return {};
  for (const TagLib::MP4::CoverArt& cover : file.tag()->item("covr").toCoverArtList()) {
    if (!cover.data().isEmpty()) return cover.data();
  }
  return {};
}

Bytes fromAiff(TagLib::IOStream* stream) {
  TagLib::RIFF::AIFF::File file(stream, false);
  return file.isValid() ? fromId3(file.tag()) : Bytes{};
}

Bytes fromWav(TagLib::IOStream* stream) {
  TagLib::RIFF::WAV::File file(stream, false);
  return file.isValid() ? fromId3(file.ID3v2Tag()) : Bytes{};
}

template <class File>
Bytes fromOggFile(TagLib::IOStream* stream) {
  File file(stream, false);
  return file.isValid() ? fromXiph(file.tag()) : Bytes{};
}

/// Vorbis, Opus and FLAC share the extension.
Bytes fromOgg(TagLib::IOStream* stream) {
  for (const auto& read : {fromOggFile<TagLib::Vorbis::File>, fromOggFile<TagLib::Ogg::Opus::File>,
                           fromOggFile<TagLib::Ogg::FLAC::File>}) {
    stream->seek(0);
    stream->clear();
    if (Bytes picture = read(stream); !picture.isEmpty()) return picture;
  }
  return {};
}

template <class File>
Bytes fromApeFile(TagLib::IOStream* stream) {
  File file(stream, false);
  return file.isValid() ? fromApe(file.APETag()) : Bytes{};
}

/// The tag library does not know the format, but the ID3 tag at its end is like that of an MP3. The
/// place of the tag stands at byte 20, as 64 bits, least significant byte first ("DSF File Format
/// Specification", version 1.01).
Bytes fromDsf(TagLib::IOStream* stream) {
  constexpr unsigned kHead = 28;
  constexpr long kMaxTag = 64'000'000;
  stream->seek(0);
  const Bytes head = stream->readBlock(kHead);
  if (head.size() < kHead || !head.startsWith("DSD ")) return {};
  const long long place = head.toLongLong(20U, false);
  const long length = stream->length();
  if (place < kHead || place >= length || length - place > kMaxTag) return {};
  stream->seek(static_cast<long>(place));
  TagLib::ByteVectorStream tag(stream->readBlock(static_cast<unsigned long>(length - place)));
  return fromMpeg(&tag);
}

/// The file, with an end to what the tag library may read of it: a tag may claim any size, and a
/// file without one may be searched from end to end.
class BoundedStream : public TagLib::FileStream {
 public:
  using TagLib::FileStream::FileStream;

  Bytes readBlock(unsigned long length) override {
    constexpr unsigned long kMaxRead = 64'000'000;
    constexpr unsigned long kSmallRead = 8'000'000;
    const auto size = static_cast<unsigned long>(std::max(this->length(), 0L));
    _read += std::min(length, size);
    if (_read > kMaxRead) return {};
    // What is large is read one file at a time in the whole process.
    if (_read > kSmallRead && !_turn) _turn = std::unique_lock(largeReads());
    return FileStream::readBlock(length);
  }

 private:
  static std::mutex& largeReads() {
    static std::mutex mutex;
    return mutex;
  }

  unsigned long _read = 0;
  std::unique_lock<std::mutex> _turn;
};

using Reader = Bytes (*)(TagLib::IOStream* stream);

Reader readerFor(std::string_view extension) {
  struct Entry {
    std::string_view extension;
    Reader read;
  };
  static constexpr std::array<Entry, 13> kReaders{{
      {"flac", fromFlac},
      {"aiff", fromAiff},
      {"aif", fromAiff},
      {"wav", fromWav},
      {"m4a", fromMp4},
      {"mp3", fromMpeg},
      {"opus", fromOggFile<TagLib::Ogg::Opus::File>},
      {"ogg", fromOgg},
      {"oga", fromOgg},
      {"ape", fromApeFile<TagLib::APE::File>},
      {"wv", fromApeFile<TagLib::WavPack::File>},
      {"dsf", fromDsf},
      {"mp4", fromMp4},
  }};
  const auto entry = std::ranges::find(kReaders, extension, &Entry::extension);
  return entry == kReaders.end() ? nullptr : entry->read;
}

}  // namespace

std::optional<std::vector<std::uint8_t>> readEmbeddedPicture(const std::string& path) {
  const Reader read = readerFor(text::fileExtension(path));
  struct stat status {};
  if (read == nullptr || ::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  BoundedStream stream(path.c_str(), true);
  if (!stream.isOpen()) return std::nullopt;
  const Bytes picture = read(&stream);
  if (picture.isEmpty()) return std::nullopt;
  return std::vector<std::uint8_t>(picture.begin(), picture.end());
}

}  // namespace velorin
