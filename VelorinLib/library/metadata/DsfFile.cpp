#include "library/metadata/DsfFile.h"

#include <taglib/id3v2header.h>

namespace velorin {
namespace {

constexpr unsigned kHeadBytes = 28;
constexpr long kSizeOffset = 12;
constexpr unsigned kTagPointerOffset = 20;

TagLib::ByteVector littleEndian(std::uint64_t value) {
  return TagLib::ByteVector::fromLongLong(static_cast<long long>(value), false);
}

}  // namespace

DsfFile::DsfFile(TagLib::IOStream* stream) : TagLib::File(stream) {
  seek(0);
  const TagLib::ByteVector head = readBlock(kHeadBytes);
  if (head.size() < kHeadBytes || !head.startsWith("DSD ")) {
    setValid(false);
    return;
  }
  const auto pointer = static_cast<std::uint64_t>(head.toLongLong(kTagPointerOffset, false));
  // A pointer that leads nowhere is as none: the tag is then added at the end.
  const auto end = static_cast<std::uint64_t>(length());
  if (pointer >= kHeadBytes && pointer < end) {
    seek(static_cast<long>(pointer));
    if (readBlock(3) == "ID3") _tagOffset = pointer;
  }
  _tag = _tagOffset != 0 ? std::make_unique<TagLib::ID3v2::Tag>(this, static_cast<long>(_tagOffset))
                         : std::make_unique<TagLib::ID3v2::Tag>();
}

bool DsfFile::save() {
  if (!_tag || readOnly()) return false;
  const bool version3 = _tagOffset != 0 && _tag->header()->majorVersion() == 3;
  const auto end = static_cast<std::uint64_t>(length());
  const std::uint64_t offset = _tagOffset != 0 ? _tagOffset : end;
  const TagLib::ByteVector bytes =
      _tag->isEmpty() ? TagLib::ByteVector()
                      : _tag->render(version3 ? TagLib::ID3v2::v3 : TagLib::ID3v2::v4);
  insert(bytes, offset, end - offset);
  seek(kSizeOffset);
  writeBlock(littleEndian(offset + bytes.size()) + littleEndian(bytes.isEmpty() ? 0 : offset));
  _tagOffset = bytes.isEmpty() ? 0 : offset;
  return true;
}

}  // namespace velorin
