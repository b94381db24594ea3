// The tag library's view of a file. Internal to the metadata folder: its headers are heavy ones.
#pragma once

#include <taglib/fileref.h>
#include <taglib/tiostream.h>
#include <taglib/tpropertymap.h>

namespace velorin {

/// Opens tags, and audio properties where they are wanted, by the stream's name. Null, or not
/// valid, when it is no file of a known kind. The stream outlives what is returned.
TagLib::FileRef openTags(TagLib::IOStream& stream, bool withProperties);

/// Whether there is a file of a known kind behind it.
inline bool isOpen(const TagLib::FileRef& reference) {
  return !reference.isNull() && reference.file()->isValid();
}

/// What an open file holds, and putting it there, which save() then writes.
TagLib::PropertyMap tagProperties(const TagLib::File& file);
void setTagProperties(TagLib::File& file, const TagLib::PropertyMap& map);

/// Writes what was set. The version of an ID3v2 tag stays, and no tag of another kind is added.
bool saveTags(TagLib::File& file);

}  // namespace velorin
