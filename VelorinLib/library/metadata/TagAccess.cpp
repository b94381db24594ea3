#include "library/metadata/TagAccess.h"

#include <taglib/aifffile.h>
#include <taglib/id3v2header.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/wavfile.h>

#include "foundation/Text.h"
#include "library/metadata/DsfFile.h"

namespace velorin {
namespace {

/// Of a tag that the file has. Those before the third version are written as the third.
TagLib::ID3v2::Version versionOf(const TagLib::ID3v2::Tag* tag, bool isInFile) {
  const bool isOld = isInFile && tag && tag->header()->majorVersion() <= 3;
  return isOld ? TagLib::ID3v2::v3 : TagLib::ID3v2::v4;
}

}  // namespace

TagLib::FileRef openTags(TagLib::IOStream& stream, bool withProperties) {
  if (text::fileExtension(stream.name()) == "dsf") return TagLib::FileRef(new DsfFile(&stream));
  return TagLib::FileRef(&stream, withProperties);
}

// The tag library tells its own kinds of file apart here, and knows none of ours.

TagLib::PropertyMap tagProperties(const TagLib::File& file) {
  if (const auto* dsf = dynamic_cast<const DsfFile*>(&file)) return dsf->tag()->properties();
  return file.properties();
}

void setTagProperties(TagLib::File& file, const TagLib::PropertyMap& map) {
  if (const auto* dsf = dynamic_cast<const DsfFile*>(&file)) {
    dsf->tag()->setProperties(map);
  } else {
    file.setProperties(map);
  }
}

bool saveTags(TagLib::File& file) {
  if (auto* mpeg = dynamic_cast<TagLib::MPEG::File*>(&file)) {
    return mpeg->save(TagLib::MPEG::File::AllTags, TagLib::File::StripNone,
                      versionOf(mpeg->ID3v2Tag(), mpeg->hasID3v2Tag()),
                      TagLib::File::DoNotDuplicate);
  }
  if (auto* wav = dynamic_cast<TagLib::RIFF::WAV::File*>(&file)) {
    return wav->save(TagLib::RIFF::WAV::File::AllTags, TagLib::File::StripNone,
                     versionOf(wav->ID3v2Tag(), wav->hasID3v2Tag()));
  }
  if (auto* aiff = dynamic_cast<TagLib::RIFF::AIFF::File*>(&file)) {
    return aiff->save(versionOf(aiff->tag(), aiff->hasID3v2Tag()));
  }
  return file.save();
}

}  // namespace velorin
