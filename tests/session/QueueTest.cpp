// The lists of the player and the rules of stepping through them.
#include <gtest/gtest.h>

#include "session/AlbumNeighbours.h"
#include "session/HistoryTrail.h"
#include "session/QueueSteps.h"
#include "session/Timeline.h"

namespace velorin {
namespace {

/// A track for each letter.
std::vector<TrackInfo> tracks(std::string_view letters) {
  std::vector<TrackInfo> infos;
  for (const char letter : letters) {
    infos.emplace_back().track.title = letter;
    infos.back().track.filePath = std::string("/music/") + letter;
  }
  return infos;
}

template <class List>
std::string lettersOf(const List& list) {
  std::string letters;
  for (const TrackInfo& info : list) letters += info.track.title;
  return letters;
}

/// "abc|de": c is the current one.
std::string textOf(const Timeline& timeline) {
  std::string text = lettersOf(timeline.items());
  return text.insert(static_cast<std::size_t>(timeline.index() + 1), "|");
}

Timeline timelineAt(std::string_view letters, std::size_t index) {
  Timeline timeline(1);
  timeline.setTo(tracks(letters), index);
  return timeline;
}

TEST(TimelineTest, MovesAndRemovesOnlyWhatFollows) {
  const struct {
    std::size_t from, to;
    const char* expected;
  } moves[] = {
      {4, 2, "ab|ecd"}, {2, 4, "ab|dce"}, {2, 5, "ab|dec"}, {3, 2, "ab|dce"}, {2, 3, "ab|cde"},
      {3, 3, "ab|cde"}, {1, 3, "ab|cde"}, {3, 1, "ab|cde"}, {5, 2, "ab|cde"}, {2, 6, "ab|cde"},
  };
  for (const auto& each : moves) {
    Timeline timeline = timelineAt("abcde", 1);
    timeline.move(each.from, each.to);
    EXPECT_EQ(textOf(timeline), each.expected) << each.from << " to " << each.to;
  }
  Timeline timeline = timelineAt("abcde", 1);
  EXPECT_FALSE(timeline.remove(1));
  EXPECT_FALSE(timeline.remove(5));
  EXPECT_TRUE(timeline.remove(3));
  timeline.insertAfterCurrent(tracks("xy"));
  timeline.append(tracks("z"));
  EXPECT_EQ(textOf(timeline), "ab|xycez");
  timeline.clear();
  timeline.insertAfterCurrent(tracks("k"));
  EXPECT_EQ(textOf(timeline), "|k");
}

TEST(TimelineTest, ShuffleComesAndGoes) {
  Timeline timeline = timelineAt("abcdefghijklmnop", 3);
  const TrackInfo current = *timeline.selected();
  timeline.setShuffled(true, &current);
  const std::string shuffled = textOf(timeline);
  EXPECT_EQ(shuffled.substr(0, 5), "abcd|");
  EXPECT_NE(shuffled, "abcd|efghijklmnop");
  // Edits hold in the original order too.
  timeline.insertAfterCurrent(tracks("X"));
  timeline.append(tracks("Z"));
  const auto k = timeline.find(tracks("k").front().track);
  ASSERT_TRUE(timeline.remove(*k));
  timeline.setShuffled(false, &current);
  EXPECT_EQ(textOf(timeline), "abcd|XefghijlmnopZ");
  EXPECT_TRUE(timeline.original().empty());

  timeline.rememberShuffled(true);
  timeline.setTo(tracks("abcdefgh"), 5);
  std::string all = textOf(timeline);
  EXPECT_EQ(all.substr(0, 2), "f|");
  EXPECT_EQ(lettersOf(timeline.original()), "abcdefgh");
  timeline.setShuffled(false, timeline.selected());
  EXPECT_EQ(textOf(timeline), "f|gh");
  EXPECT_FALSE(timeline.setTo(tracks("ab"), 2));
}

TEST(TimelineTest, FindsTheTrackThatIsMeant) {
  const Timeline timeline = timelineAt("abcabc", 2);
  const auto place = [&](const char* letter, std::optional<std::size_t> expected = {}) {
    return timeline.find(tracks(letter).front().track, expected);
  };
  EXPECT_EQ(place("a"), 3u);
  EXPECT_EQ(place("a", 0), 0u);
  EXPECT_EQ(place("a", 1), 3u);
  EXPECT_EQ(place("c"), 2u);
  EXPECT_EQ(place("x"), std::nullopt);

  // The missing one goes, and what follows it takes its place.
  Timeline shrinking = timelineAt("abcb", 3);
  shrinking.dropVanished(tracks("b").front().track);
  EXPECT_EQ(textOf(shrinking), "abc|");
  shrinking.dropVanished(tracks("a").front().track);
  EXPECT_EQ(textOf(shrinking), "bc|");
}

TEST(QueueStepsTest, LeadThroughTheThreeRegions) {
  using Region = QueuePlace::Region;
  const struct {
    const char* what;
    QueueView view;
    std::optional<QueuePlace> after, end, before;
  } cases[] = {
      {"in the timeline",
       {.timelineCount = 3, .timelineIndex = 1, .hasCurrent = true},
       QueuePlace{Region::timeline, 2},
       QueuePlace{Region::timeline, 2},
       QueuePlace{Region::timeline, 0}},
      {"its first item, nothing played yet",
       {.timelineCount = 1, .timelineIndex = 0, .hasCurrent = true},
       {},
       {},
       {}},
      {"its first item, with a history",
       {.timelineCount = 1, .timelineIndex = 0, .historyCount = 4, .hasCurrent = true},
       {},
       {},
       QueuePlace{Region::history, 3}},
      {"its end, autoplay off",
       {.timelineCount = 2, .timelineIndex = 1, .autoplayCount = 5, .hasCurrent = true},
       {},
       {},
       QueuePlace{Region::timeline, 0}},
      {"its end, autoplay on",
       {.timelineCount = 2, .timelineIndex = 1, .autoplayCount = 5, .autoplayGoesOn = true},
       QueuePlace{Region::autoplay, 0},
       QueuePlace{Region::autoplay, 0},
       QueuePlace{Region::timeline, 0}},
      {"its end, repeat all",
       {.timelineCount = 2,
        .timelineIndex = 1,
        .autoplayCount = 5,
        .autoplayGoesOn = true,
        .repeatMode = RepeatMode::all},
       QueuePlace{Region::timeline, 0},
       QueuePlace{Region::timeline, 0},
       QueuePlace{Region::timeline, 0}},
      {"repeat one",
       {.timelineCount = 2,
        .timelineIndex = 0,
        .historyCount = 1,
        .repeatMode = RepeatMode::one,
        .hasCurrent = true},
       QueuePlace{Region::timeline, 1},
       QueuePlace{Region::current, 0},
       QueuePlace{Region::history, 0}},
      {"an empty timeline",
       {.autoplayCount = 1, .autoplayGoesOn = true, .hasCurrent = true},
       QueuePlace{Region::autoplay, 0},
       QueuePlace{Region::autoplay, 0},
       {}},
      {"in autoplay",
       {.timelineCount = 2,
        .timelineIndex = 1,
        .autoplayCount = 3,
        .isPlayingAutoplay = true,
        .autoplayGoesOn = true,
        .historyCount = 9},
       QueuePlace{Region::autoplay, 0},
       QueuePlace{Region::autoplay, 0},
       QueuePlace{Region::history, 8}},
      {"in autoplay, with an item that was added to the timeline",
       {.timelineCount = 3,
        .timelineIndex = 1,
        .autoplayCount = 3,
        .isPlayingAutoplay = true,
        .autoplayGoesOn = true},
       QueuePlace{Region::timeline, 2},
       QueuePlace{Region::timeline, 2},
       QueuePlace{Region::timeline, 1}},
      {"in the history",
       {.timelineCount = 3, .timelineIndex = 1, .historyCount = 4, .navigation = 2},
       QueuePlace{Region::history, 3},
       QueuePlace{Region::history, 3},
       QueuePlace{Region::history, 1}},
      {"its newest entry",
       {.timelineCount = 3, .timelineIndex = 1, .historyCount = 4, .navigation = 3},
       QueuePlace{Region::timeline, 1},
       QueuePlace{Region::timeline, 1},
       QueuePlace{Region::history, 2}},
      {"its oldest entry",
       {.timelineCount = 3, .timelineIndex = 1, .historyCount = 1, .navigation = 0},
       QueuePlace{Region::timeline, 1},
       QueuePlace{Region::timeline, 1},
       {}},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(placeAfter(each.view), each.after) << each.what;
    EXPECT_EQ(placeAfterEnd(each.view), each.end) << each.what;
    EXPECT_EQ(placeBefore(each.view), each.before) << each.what;
  }
}

TEST(HistoryTrailTest, KeepsFiveHundredAndPagesBehindWhatItKnows) {
  HistoryTrail trail;
  const auto page = [](std::size_t count) { return std::vector<TrackInfo>(count); };
  for (int i = 0; i < 3; ++i) trail.add({});
  trail.rowWritten();
  EXPECT_EQ(trail.beginPage(), 1u);
  EXPECT_EQ(trail.beginPage(), std::nullopt);  // one at a time
  trail.navigateTo(2);
  trail.finishPage(page(50));
  EXPECT_EQ(trail.navigation(), 52u);
  EXPECT_EQ(trail.beginPage(), 51u);
  trail.finishPage(page(20));
  EXPECT_TRUE(trail.fullyLoaded());

  for (int i = 0; i < 427; ++i) trail.add({});
  const std::string oldest = trail.entries().front().id;
  EXPECT_EQ(trail.entries().size(), 500u);
  trail.add({});
  EXPECT_EQ(trail.entries().size(), 500u);
  EXPECT_NE(trail.entries().front().id, oldest);
  EXPECT_EQ(trail.navigation(), 71u);

  HistoryTrail full;
  full.restore(std::vector<HistoryEntry>(480), false);
  full.beginPage();
  full.finishPage(page(50));
  EXPECT_EQ(full.entries().size(), 500u);
  EXPECT_TRUE(full.fullyLoaded());
}

TEST(AlbumNeighboursTest, FollowTheNumbersOfTheRecord) {
  const auto track = [](std::int64_t album, std::optional<int> disc, std::optional<int> number) {
    TrackInfo info;
    info.track.albumId = album;
    info.track.discNumber = disc;
    info.track.trackNumber = number;
    return info;
  };
  TrackInfo external = track(-1, {}, 1);
  external.isExternal = true;
  external.album.title = "Live";
  TrackInfo second = external;
  second.track.trackNumber = 2;
  TrackInfo nameless = second;
  nameless.album.title = "";
  const struct {
    TrackInfo a, b;
    bool consecutive, expected;
  } cases[] = {
      {track(1, {}, 3), track(1, {}, 4), false, true},
      {track(1, {}, 3), track(1, {}, 5), true, false},
      {track(1, {}, 4), track(1, {}, 3), true, false},
      {track(1, {}, 3), track(2, {}, 4), true, false},
      {track(0, {}, 3), track(0, {}, 4), true, false},
      {track(1, 1, 9), track(1, 2, 1), true, true},
      {track(1, 1, 9), track(1, 2, 1), false, false},
      {track(1, 1, 9), track(1, 3, 1), true, false},
      {track(1, {}, {}), track(1, {}, {}), true, true},
      {track(1, {}, {}), track(1, {}, {}), false, false},
      {external, second, false, true},
      {external, nameless, true, false},
      {external, track(-1, {}, 2), true, false},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(areAlbumNeighbours(each.a, each.b, each.consecutive), each.expected) << &each - cases;
  }
}

}  // namespace
}  // namespace velorin
