#include "library/artwork/EmbeddedPicture.h"

#include <gtest/gtest.h>
#include <taglib/aifffile.h>
#include <taglib/apetag.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/flacfile.h>
#include <taglib/id3v2tag.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>
#include <taglib/opusfile.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>
#include <taglib/wavpackfile.h>
#include <taglib/xiphcomment.h>

#include <cstdlib>
#include <fstream>

#include "support/PictureFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

TagLib::ByteVector vectorOf(const test::Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), static_cast<unsigned>(bytes.size())};
}

void addId3(TagLib::ID3v2::Tag* tag, const test::Bytes& picture) {
  auto* frame = new TagLib::ID3v2::AttachedPictureFrame;
  frame->setPicture(vectorOf(picture));
  frame->setMimeType("image/jpeg");
  tag->addFrame(frame);
}

TagLib::FLAC::Picture* blockOf(const test::Bytes& picture) {
  auto* block = new TagLib::FLAC::Picture;
  block->setData(vectorOf(picture));
  return block;
}

void addApe(TagLib::APE::Tag* tag, const test::Bytes& picture) {
  TagLib::ByteVector value("cover.jpg");
  value.append('\0');
  value.append(vectorOf(picture));
  tag->setItem("COVER ART (FRONT)", TagLib::APE::Item("COVER ART (FRONT)", value, true));
}

/// Two pictures where the format holds several: the first is the one.
struct Format {
  const char* name;
  void (*tag)(const char* path, const test::Bytes& picture, const test::Bytes& other);
};

template <class File>
void tagId3(const char* path, const test::Bytes& picture, const test::Bytes& other) {
  File file(path);
  if constexpr (std::is_same_v<File, TagLib::RIFF::AIFF::File>) {
    addId3(file.tag(), picture);
  } else if constexpr (std::is_same_v<File, TagLib::MPEG::File>) {
    addId3(file.ID3v2Tag(true), picture);
    addId3(file.ID3v2Tag(true), other);
  } else {
    addId3(file.ID3v2Tag(), picture);
  }
  file.save();
}

template <class File>
void tagXiph(const char* path, const test::Bytes& picture, const test::Bytes& other) {
  File file(path);
  file.tag()->addPicture(blockOf(picture));
  file.tag()->addPicture(blockOf(other));
  file.save();
}

const Format kFormats[]{
    {"a.flac",
     [](const char* path, const test::Bytes& picture, const test::Bytes& other) {
       TagLib::FLAC::File file(path);
       file.addPicture(blockOf(picture));
       file.addPicture(blockOf(other));
       file.save();
     }},
    {"a.mp3", tagId3<TagLib::MPEG::File>},
    {"ape tag.mp3",
     [](const char* path, const test::Bytes& picture, const test::Bytes&) {
       TagLib::MPEG::File file(path);
       addApe(file.APETag(true), picture);
       file.save(TagLib::MPEG::File::APE);
     }},
    {"a.aiff", tagId3<TagLib::RIFF::AIFF::File>},
    {"a.wav", tagId3<TagLib::RIFF::WAV::File>},
    {"a.m4a",
     [](const char* path, const test::Bytes& picture, const test::Bytes& other) {
       TagLib::MP4::File file(path);
       TagLib::MP4::CoverArtList covers;
       for (const auto& bytes : {picture, other}) {
         covers.append(TagLib::MP4::CoverArt(TagLib::MP4::CoverArt::JPEG, vectorOf(bytes)));
       }
       file.tag()->setItem("covr", covers);
       file.save();
     }},
    {"a.opus", tagXiph<TagLib::Ogg::Opus::File>},
    {"a.ogg", tagXiph<TagLib::Vorbis::File>},
    {"a.wv",
     [](const char* path, const test::Bytes& picture, const test::Bytes&) {
       TagLib::WavPack::File file(path);
       addApe(file.APETag(true), picture);
       file.save();
     }},
};

TEST(EmbeddedPicture, TheFirstOfEveryFormat) {
  const test::TemporaryFolder folder;
  const test::Bytes picture = test::jpegOf(test::gradient(200, 200));
  const test::Bytes other = test::jpegOf(test::gradient(30, 30));
  for (const Format& format : kFormats) {
    const std::string path = (folder / format.name).string();
    const std::string make =
        fmt::format("ffmpeg -v error -f lavfi -i sine=d=0.2 -ac 2 -ar 48000 -strict -2 '{}'", path);
    ASSERT_EQ(std::system(make.c_str()), 0) << format.name;
    EXPECT_EQ(readEmbeddedPicture(path), std::nullopt) << format.name;
    format.tag(path.c_str(), picture, other);
    EXPECT_EQ(readEmbeddedPicture(path), picture) << format.name;
    // Whatever remains of a file, reading it ends.
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    readEmbeddedPicture(path);
  }
}

TEST(EmbeddedPicture, OfADsfFileAndOfNoFile) {
  const test::TemporaryFolder folder;
  const test::Bytes picture = test::jpegOf(test::gradient(20, 20));
  TagLib::ID3v2::Tag tag;
  addId3(&tag, picture);
  const TagLib::ByteVector id3 = tag.render();
  TagLib::ByteVector dsf("DSD ");
  dsf.append(TagLib::ByteVector::fromLongLong(28, false));
  dsf.append(TagLib::ByteVector::fromLongLong(100 + id3.size(), false));
  dsf.append(TagLib::ByteVector::fromLongLong(100, false));
  dsf.resize(100, '\0');
  dsf.append(id3);
  std::ofstream(folder / "a.dsf", std::ios::binary).write(dsf.data(), dsf.size());
  EXPECT_EQ(readEmbeddedPicture((folder / "a.dsf").string()), picture);

  std::filesystem::copy_file(folder / "a.dsf", folder / "a.caf");
  for (const char* name : {"a.caf", "absent.flac", "."}) {
    EXPECT_EQ(readEmbeddedPicture((folder / name).string()), std::nullopt) << name;
  }
  // A tag that claims more than anybody reads.
  const std::string huge = (folder / "huge.mp3").string();
  std::ofstream(huge, std::ios::binary) << std::string("ID3\3\0\0\x7f\x7f\x7f\x7f", 10);
  std::filesystem::resize_file(huge, 300'000'000);
  EXPECT_EQ(readEmbeddedPicture(huge), std::nullopt);
}

}  // namespace
}  // namespace velorin
