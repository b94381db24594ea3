#include "library/artwork/AccentColor.h"

#include <gtest/gtest.h>

#include "library/TestLibrary.h"
#include "library/artwork/AccentColorManager.h"
#include "library/artwork/ArtworkCacheManager.h"
#include "library/artwork/ThumbnailCache.h"
#include "library/queries/AlbumArtwork.h"
#include "support/PictureFixture.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

TEST(AccentColor, DominantColourWithinLimits) {
  struct {
    std::uint8_t red, green, blue;
    std::optional<HSBColor> accent;
  } const cases[]{
      {128, 128, 128, {}},
      {255, 255, 255, {}},
      {37, 0, 0, {}},                                 // below a brightness of 0.15
      {255, 210, 210, {}},                            // below a saturation of 0.2
      {0, 0, 64, HSBColor{2.0 / 3, 1, 0.4}},          // very dark blue
      {255, 255, 190, HSBColor{1.0 / 6, 0.5, 0.75}},  // pale yellow
      {153, 0, 77, HSBColor{0.9161, 1, 0.6}},
  };
  for (const auto& c : cases) {
    const auto accent = accentColorOf(test::flat(300, 200, c.red, c.green, c.blue));
    ASSERT_EQ(accent.has_value(), c.accent.has_value()) << int{c.red};
    if (!accent) continue;
    EXPECT_NEAR(accent->h, c.accent->h, 0.005);
    EXPECT_NEAR(accent->s, c.accent->s, 0.005);
    EXPECT_NEAR(accent->b, c.accent->b, 0.005);
  }
}

TEST(AccentColor, StoredForm) {
  EXPECT_EQ(accentHex({0.9, 0.5, 0.4}), "#663352");
  EXPECT_EQ(accentFromHex("#000040"), (HSBColor{2.0 / 3, 1, 0.4}));
  for (const char* text : {"", "#12345", "1234567", "#12345G", "#1234567"}) {
    EXPECT_EQ(accentFromHex(text), std::nullopt) << text;
  }
}

/// A main thread on which time passes when the test says so.
class AccentColorManagerTest : public ::testing::Test {
 protected:
  AccentColorManager::MainLoop mainLoop() {
    return {[this](AccentColorManager::Task task) {
              const MutexLock lock(_lock);
              _posted.push_back(std::move(task));
              _arrived.notifyOne();
            },
            [this](std::chrono::milliseconds delay, AccentColorManager::Task task) {
              EXPECT_EQ(delay, std::chrono::milliseconds(200));
              _delayed.push_back(std::move(task));
            }};
  }
  void letTimePass() {
    for (const auto& task : std::exchange(_delayed, {})) task();
  }
  /// Waits for a result of the other thread.
  AccentColorManager::Task nextPosted() {
    const MutexLock lock(_lock);
    while (_posted.empty()) _arrived.wait(_lock);
    const auto task = std::move(_posted.front());
    _posted.erase(_posted.begin());
    return task;
  }
  std::int64_t addAlbum(const std::string& title) {
    _library.add({.album = title});
    return _library.value<std::int64_t>("SELECT id FROM albums WHERE title = ?", title);
  }

  test::TemporaryFolder _folder;
  test::TestLibrary _library;
  ArtworkCacheManager _artwork{_folder.path()};
  Mutex _lock;
  ConditionVariable _arrived;
  std::vector<AccentColorManager::Task> _posted GUARDED_BY(_lock);
  std::vector<AccentColorManager::Task> _delayed;
};

TEST_F(AccentColorManagerTest, FollowsTheAlbumThatStays) {
  const auto first = addAlbum("first");
  const auto green = addAlbum("green");
  const auto stored = addAlbum("stored");
  const auto bare = addAlbum("bare");
  const AlbumArtwork albums(_library.database());
  _artwork.cacheImage(first, test::flat(9, 9, 255, 0, 0));
  _artwork.cacheImage(green, test::flat(9, 9, 0, 255, 0));
  albums.setAlbumAccentColor(stored, "#0000BF");
  int changes = 0;
  {
    AccentColorManager manager(_library.database(), _artwork, mainLoop());
    manager.setObserver([&] { ++changes; });
    // Three within the time: one extraction.
    manager.update(first);
    manager.update(bare);
    manager.update(green);
    EXPECT_EQ(manager.currentAccent(), std::nullopt);
    letTimePass();
    nextPosted()();
    ASSERT_TRUE(manager.currentAccent());
    EXPECT_NEAR(manager.currentAccent()->h, 1.0 / 3, 0.01);
    EXPECT_EQ(changes, 1);

    manager.update(stored);
    letTimePass();
    nextPosted()();
    EXPECT_EQ(manager.currentAccent(), (HSBColor{2.0 / 3, 1, 191 / 255.0}));

    // A result that comes after the next change is dropped.
    manager.update(first);
    letTimePass();
    const auto late = nextPosted();
    manager.update(bare);
    late();
    EXPECT_EQ(changes, 2);
    letTimePass();
    nextPosted()();
    EXPECT_EQ(manager.currentAccent(), std::nullopt);

    // What is known needs neither picture nor library.
    std::filesystem::remove(_artwork.cachedImagePath(green));
    manager.update(green);
    letTimePass();
    EXPECT_NEAR(manager.currentAccent()->h, 1.0 / 3, 0.01);
    manager.update(std::nullopt);
    letTimePass();
    EXPECT_EQ(manager.currentAccent(), std::nullopt);
    EXPECT_EQ(changes, 5);
    manager.update(first);
  }
  letTimePass();  // after its end
  const std::string hex = albums.albumAccentColor(green).value_or("");
  EXPECT_EQ(accentFromHex(hex)->b, 191 / 255.0) << hex;
  EXPECT_EQ(albums.albumAccentColor(first), std::nullopt);
}

TEST(ThumbnailCache, DropsTheOldestBeyondItsLimits) {
  const auto image = [](int side) {
    return std::make_shared<const Bitmap>(Bitmap::ofSize(side, side));
  };
  ThumbnailCache cache;
  for (int album = 0; album < 500; ++album) cache.setImage(album, 32, image(1));
  EXPECT_TRUE(cache.image(0, 32)) << "and it is the latest now";
  cache.setImage(500, 32, image(1));
  EXPECT_EQ(cache.count(), 500U);
  EXPECT_TRUE(cache.image(0, 32));
  EXPECT_FALSE(cache.image(1, 32));
  cache.setImage(0, 512, image(3620));  // 52,417,600 of 52,428,800
  EXPECT_EQ(cache.count(), 500U);
  cache.setImage(0, 400, image(100));
  EXPECT_FALSE(cache.image(0, 512)) << "the older ones together cost too little";
  // An album is invalid in all sizes, and no other with it.
  for (const int size : {32, 300}) cache.setImage(1, size, image(1));
  cache.setImage(11, 32, image(1));
  cache.invalidate(1);
  EXPECT_FALSE(cache.image(1, 32) || cache.image(1, 300));
  EXPECT_TRUE(cache.image(11, 32));
}

}  // namespace
}  // namespace velorin
