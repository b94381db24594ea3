// Tags of DSF files, which the tag library does not know.
//
// Layout: "DSF File Format Specification", Sony 2005, version 1.01. The chunk "DSD " at the file's
// head holds the file's size and the place of an ID3v2 tag that reaches to the file's end, 0 for
// none.
#pragma once

#include <taglib/id3v2tag.h>
#include <taglib/tfile.h>

#include <cstdint>
#include <memory>

namespace velorin {

/// For TagLib::FileRef. Without audio properties: the DSD reader tells them.
class DsfFile final : public TagLib::File {
 public:
  /// Reads the tag. isValid() is false for what is no DSF file. The stream outlives the file.
  explicit DsfFile(TagLib::IOStream* stream);

  TagLib::ID3v2::Tag* tag() const override { return _tag.get(); }
  TagLib::AudioProperties* audioProperties() const override { return nullptr; }

  /// Writes the tag behind the sound, in the version that the file had.
  bool save() override;

 private:
  std::uint64_t _tagOffset = 0;  // 0: the file has none
  std::unique_ptr<TagLib::ID3v2::Tag> _tag;
};

}  // namespace velorin
