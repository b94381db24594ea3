#include "library/artwork/FolderArtwork.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

TEST(FolderArtwork, ACoverByItsNameThenAnyPicture) {
  struct {
    std::vector<std::string> names;
    std::string found;  ///< empty: nothing
  } const cases[]{
      {{"01.flac", "notes.txt", "cover.gif"}, ""},
      {{"a.jpg", "cover.png"}, "cover.png"},
      {{"b.JPEG", "a.webp"}, "a.webp"},
      {{"Scans/Front.JPG"}, "Scans/Front.JPG"},
      {{"back.jpg", "Scans/Front.JPG"}, "Scans/Front.JPG"},
      {{"back.jpg", "Scans/disc.jpg"}, "back.jpg"},
      {{"Photos/cover.jpg"}, ""},
      {{"Folder.tiff", "albumart.bmp", "art/cover.jpg"}, "Folder.tiff"},
      {{"scans/album.jpg", "ART/front.jpg"}, "ART/front.jpg"},
      {{".cover.jpg", ".art/cover.jpg", "cover.jpg.txt"}, ""},
      {{"front cover.jpg", "cov\xff.jpg", "x.jpg"}, "cov\xff.jpg"},
      {{"cover.jpg/inside.txt", "z.png"}, "z.png"},
  };
  for (const auto& c : cases) {
    const test::TemporaryFolder folder;
    for (const std::string& name : c.names) {
      std::filesystem::create_directories((folder / name).parent_path());
      std::ofstream(folder / name).put('x');
    }
    const auto found = findArtwork(folder.path().string());
    EXPECT_EQ(found.value_or(""), c.found.empty() ? "" : (folder / c.found).string());
  }
}

TEST(FolderArtwork, FollowsLinksToPicturesOnly) {
  const test::TemporaryFolder folder;
  EXPECT_EQ(findArtwork((folder / "absent").string()), std::nullopt);
  ASSERT_EQ(::mkfifo((folder / "cover.jpg").c_str(), 0600), 0);
  std::filesystem::create_symlink("nowhere", folder / "folder.jpg");
  EXPECT_EQ(findArtwork(folder.path().string()), std::nullopt);
  std::ofstream(folder / "picture").put('x');
  std::filesystem::create_symlink("picture", folder / "front.jpg");
  EXPECT_EQ(findArtwork(folder.path().string()), (folder / "front.jpg").string());
}

}  // namespace
}  // namespace velorin
