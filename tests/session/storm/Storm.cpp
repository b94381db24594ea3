#include "session/storm/Storm.h"

#include <fmt/ranges.h>

#include "session/storm/DecoderWatch.h"

namespace velorin::test {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kBound{15'000};
/// After a wish has come to the engine, a join that it came too late for may still be heard.
constexpr milliseconds kTooLate{300};
constexpr milliseconds kRemembered{3'000};
/// Programme of half a second, which nobody can miss.
constexpr std::uint64_t kUnmissable = 24'000;
/// Programme of a quarter: a track that was stopped so soon need not have been told of.
constexpr std::uint64_t kUntold = 12'000;

VirtualDeviceDescription device(VirtualClock clock, const std::string& uid) {
  auto description = wideDevice(clock);
  description.uid = uid;
  description.bufferRange = {64, 1024};
  return description;
}

}  // namespace

Storm::Storm(std::uint32_t seed, Kind kind)
    : _seed(seed), _kind(kind), _random(seed), _h(device(kind.clock, "first")) {
  _devices["first"] = _h.device;
  listenTo(_h.device);
  DecoderWatch::forget();
  // Before the player's own: what it is about to change is still as it was.
  _subscriptions.push_back(_h.bus.subscribe<TrackDidChange>(
      Delivery::mainThread, [this](const TrackDidChange& event) { onTrackDidChange(event); }));
  PlayerServices services;
  services.database = _music.database;
  services.refillAutoplay = [this](bool forced) {
    MainThread::instance().post([this, forced] {
      if (!_player || oneIn(3)) return;
      _player->setAutoplayQueue(some(3), !forced);
      noteFollowing();
    });
  };
  _player.emplace(*_h.engine, _h.preferences, _h.bus, std::move(services));
  _h.waitUntil([this] { return _player->sessionRestored(); });
  _player->setCrossfadeEnabled(false);
  _player->setWindowVisible(true);
  _observation = _player->observe([this](PlayerChanges changes) {
    if (changes.has(PlayerChange::position) || changes.has(PlayerChange::track) ||
        changes.has(PlayerChange::state)) {
      ++_jumps;
    }
  });
  _looking.start(milliseconds(3), [this] { look(); });
}

Storm::~Storm() {
  _looking.stop();
  _subscriptions.clear();
  _player.reset();
  MainThread::instance().runReady();
}

void Storm::plug(const std::string& uid) {
  listenTo(_devices[uid] = _h.hardware.addDevice(device(_kind.clock, uid)));
}

void Storm::listenTo(AudioDeviceID device) {
  _h.hardware.setRecorder(device, _ear);
  // Each track is told of before the next one can be heard.
  _h.hardware.setPullGate(device, [this](std::uint32_t& frames) {
    const std::int64_t countdown = _h.engine->gaplessCountdown();
    if (countdown == 0) return false;
    if (countdown > 0)
      frames = static_cast<std::uint32_t>(std::min<std::int64_t>(frames, countdown));
    return _h.engine->canRender(frames);
  });
}

void Storm::fail(const std::string& what) {
  if (std::exchange(_failed, true)) return;
  ADD_FAILURE() << what << "\nVELORIN_STORM_SEED=" << _seed << " after " << _operations
                << " operations, the last of them:\n"
                << fmt::format("{}", fmt::join(_trace, "\n"));
}

bool Storm::burst() {
  for (int left = oneIn(3) ? 1 + below(5) : 1; left > 0; --left) wish();
  const int patience = below(10);
  const milliseconds time(patience < 6 ? below(30) : patience < 9 ? below(200) : below(1500));
  MainThread::instance().runUntil([this] { return _failed; }, time);
  const int jumps = _jumps;
  const double from = _player->livePosition();
  const bool rests = MainThread::instance().runUntil(
      [&] {
        const bool moves = _jumps != jumps || _player->livePosition() != from;
        return isAtRest() && (moves || _player->state() != PlaybackState::playing);
      },
      kBound);
  if (!rests) {
    fail(fmt::format("stuck: loading {}, player {}, engine {}, at {} of {}", _player->isLoading(),
                     nameOf(_player->state()), nameOf(_h.engine->state()), _player->livePosition(),
                     _player->duration()));
  }
  checkLists();
  checkFollowing();
  checkDecoders();
  return !_failed;
}

void Storm::checkDecoders() {
  const std::size_t allowed = _kind.crossfades ? 2 : 1;
  if (!_h.waitUntil([&] { return DecoderWatch::open() <= allowed; })) {
    fail(fmt::format("{} decoders at once", DecoderWatch::open()));
  }
  if (!_kind.crossfades && DecoderWatch::mostReadsBesideAnother() > DecoderWatch::kReadsOfABlock) {
    fail("two decoders were read in turns");
  }
}

bool Storm::isAtRest() {
  return !_player->isLoading() && _player->state() == _h.engine->state();
}

// --- The lists ---

Storm::Keys Storm::keysOf(const TrackList& list) {
  Keys result;
  for (const TrackInfo& info : list) result.push_back(StormLibrary::keyOf(info.track));
  return result;
}

void Storm::expectTimeline(const char* after, const Keys& expected) {
  if (keys() == expected) return;
  fail(fmt::format("after {}: {} instead of {}", after, keys(), expected));
}

void Storm::expectSameItems(const char* after, Keys before) {
  Keys now = keys();
  std::ranges::sort(now);
  std::ranges::sort(before);
  if (now != before) fail(fmt::format("after {}: {} instead of {}", after, now, before));
}

void Storm::checkLists() {
  const int size = static_cast<int>(_player->timeline().size());
  if (_player->timelineIndex() < -1 || _player->timelineIndex() >= size) {
    fail(fmt::format("index {} of {}", _player->timelineIndex(), size));
  }
  if (_player->history().size() > 500) fail("too long a history");
  if (const auto at = _player->historyNavigationIndex(); at && *at >= _player->history().size()) {
    fail("a place outside of the history");
  }
}

// --- What follows ---

/// The rules, said once more.
std::string Storm::following() const {
  const PlayerState& p = *_player;
  const bool joins = p.gaplessEnabled() || p.crossfadeEnabled();
  if (!joins || p.stopAfterCurrent() || p.sleepTimerEndOfTrack()) return {};
  const auto key = [](const TrackInfo& info) { return StormLibrary::keyOf(info.track); };
  if (p.repeatMode() == RepeatMode::one && p.currentTrack()) return key(*p.currentTrack());
  const TrackList& timeline = p.timeline();
  const int index = p.timelineIndex();
  const bool isSelected = index >= 0 && index < static_cast<int>(timeline.size());
  if (const auto at = p.historyNavigationIndex()) {
    if (*at + 1 < p.history().size()) return key(p.history()[*at + 1].track);
    if (isSelected) return key(timeline[static_cast<std::size_t>(index)]);
  }
  if (index + 1 < static_cast<int>(timeline.size())) {
    return key(timeline[static_cast<std::size_t>(index + 1)]);
  }
  const bool repeats = p.repeatMode() == RepeatMode::all && !timeline.empty();
  const bool takes =
      p.isPlayingAutoplay() || (!repeats && (p.autoplayEnabled() || p.radioSeedTrackId()));
  if (takes && !p.autoplayQueue().empty()) return key(p.autoplayQueue().front());
  return repeats ? key(timeline.front()) : std::string();
}

void Storm::noteFollowing() {
  _followings.emplace_back(Clock::now(), following());
  while (_followings.size() > 1 && _followings[1].first < Clock::now() - kRemembered) {
    _followings.pop_front();
  }
}

bool Storm::isSettled() const {
  return _settled && Clock::now() >= *_settled + kTooLate;
}

void Storm::checkFollowing() {
  const auto told = [this] {
    const auto next = _h.engine->nextTrack();
    return next ? StormLibrary::keyOf(*next) : std::string();
  };
  // A track that takes over or plays out has taken the wish, until that is told; a stopped engine
  // is told at its start.
  const auto agree = [&] {
    return Clock::now() < _burstEnds || _h.engine->gaplessTransitionPending() ||
           _h.engine->state() == PlaybackState::stopped || told() == following();
  };
  if (!_h.waitUntil(agree)) fail("the engine is to play " + told() + " next, not " + following());
}

void Storm::onTrackDidChange(const TrackDidChange& event) {
  ++_jumps;
  const std::string key = StormLibrary::keyOf(event.track);
  const auto now = Clock::now();
  if (!_settled || now < _burstEnds) _overtaken.insert(_told.size());
  _told.push_back({key, _ear->frames(), event.join.has_value()});
  if (_trace.size() > 60) _trace.pop_front();
  _trace.push_back(fmt::format("  {} {}", event.join ? "joined" : "plays", key));
  if (event.join && now >= _burstEnds) {
    const bool isCertain = isSettled();
    ++_seen.joins;
    if (isCertain) ++_seen.certainJoins;
    const bool isRight = key == following() ||
                         (!isCertain && std::ranges::any_of(_followings, [&](const auto& each) {
                           return each.second == key;
                         }));
    if (!isRight) fail(fmt::format("{} followed, not {}", key, following()));
  }
  MainThread::instance().post([this] {
    if (_player) noteFollowing();
  });
}

// --- The position ---

void Storm::look() {
  const double now = _player->livePosition();
  const bool jumped = _jumps != _jumpsSeen;
  // A jump is told of within the turn of the main loop in which it is made, or at its end.
  if (_mayHaveGoneBack && !jumped) fail("the position went back by itself");
  _mayHaveGoneBack = !jumped && now < _position;
  // Without a clock a device is ahead of what was told, by whole tracks; so is any while the main
  // thread is kept from telling of a join.
  const bool isShown = Clock::now() >= _burstEnds && _player->state() != PlaybackState::stopped &&
                       _kind.clock == VirtualClock::paced && !_h.engine->gaplessTransitionPending();
  if (now < 0 || (isShown && _player->duration() > 0 && now > _player->duration() + 0.05)) {
    fail(fmt::format("at {} of {}", now, _player->duration()));
  }
  if (!_mayHaveGoneBack) _position = now;
  if (!_mayHaveGoneBack) _jumpsSeen = _jumps;
}

// --- What was heard ---

/// Every observed track must have been told of, in this order; and one that was told of must be
/// observed unless it may be missing.
void Storm::expectExplained(const char* what, const Keys& observed,
                            const std::function<bool(std::size_t)>& mayBeMissing,
                            bool mergesRepeats) {
  // Which numbers of observed tracks the tracks told of so far can explain.
  std::vector<bool> explained(observed.size() + 1, false);
  explained[0] = true;
  for (std::size_t t = 0; t < _told.size(); ++t) {
    std::vector<bool> next(observed.size() + 1, false);
    for (std::size_t n = 0; n <= observed.size(); ++n) {
      if (!explained[n]) continue;
      const bool repeats = mergesRepeats && n > 0 && observed[n - 1] == _told[t].key;
      if (mayBeMissing(t) || repeats) next[n] = true;
      if (n < observed.size() && observed[n] == _told[t].key) next[n + 1] = true;
    }
    explained = std::move(next);
  }
  if (explained.back()) return;
  Keys told;
  for (std::size_t t = 0; t < _told.size(); ++t) {
    told.push_back(_told[t].key + (mayBeMissing(t) ? "?" : ""));
  }
  fail(fmt::format("what was {} is not what was told\n{}: {}\ntold: {}", what, what, observed,
                   told));
}

void Storm::judge() {
  _player->stop();
  // Whatever was on its way to the engine goes before that, and is told of before this.
  bool isDone = false;
  _player->engineQueue().async(
      [&isDone] { MainThread::instance().post([&isDone] { isDone = true; }); });
  if (!_h.waitUntil([&] { return isDone && isAtRest(); })) fail("it does not stop");
  _looking.stop();
  _observation.reset();
  _subscriptions.clear();
  _player.reset();
  if (_h.engine->state() != PlaybackState::stopped) fail("it plays on after a stop");

  Keys heard;
  for (const TrackEar::Run& run : _ear->runs()) {
    const std::string key = _music.keyOfAngle(run.angle);
    if (key.empty()) fail(fmt::format("{} frames of no track at angle {}", run.frames, run.angle));
    if (run.frames < kUntold && !std::ranges::any_of(_told, [&](const Told& each) {
          return each.key == key && each.heardBefore < run.begin + kUnmissable &&
                 each.heardBefore + kUnmissable > run.begin;
        })) {
      continue;
    }
    if (heard.empty() || heard.back() != key) heard.push_back(key);
  }
  const auto lasted = [this](std::size_t t) {
    return (t + 1 < _told.size() ? _told[t + 1].heardBefore : _ear->frames()) -
           _told[t].heardBefore;
  };
  // Without a clock a device is through with a track before the main thread hears of it.
  const bool isTimed = _kind.clock == VirtualClock::paced;
  expectExplained(
      "heard", heard, [&](std::size_t t) { return !isTimed || lasted(t) < kUnmissable; },
      /*mergesRepeats=*/true);

  Keys counted;
  for (const std::int64_t id :
       _music.library.column<std::int64_t>("SELECT trackId FROM playbackHistory ORDER BY id")) {
    counted.push_back(_music.keyOfId(id));
  }
  expectExplained(
      "counted", counted,
      [&](std::size_t t) {
        const bool isExternal = _told[t].key.starts_with("outside");
        // The same listen goes on on another device, begins anew with repeat one, or is not over.
        const bool goesOn =
            t + 1 == _told.size() || (!_told[t + 1].isJoin && _told[t + 1].key == _told[t].key);
        return isExternal || goesOn || _overtaken.contains(t) || lasted(t) == 0;
      },
      /*mergesRepeats=*/false);
  _seen.heard = heard.size();
  _seen.counted = counted.size();
  const auto rows = static_cast<std::int64_t>(counted.size());
  if (_music.library.value<std::int64_t>("SELECT SUM(totalPlays + totalSkips) FROM tracks") !=
      rows) {
    fail("the tracks' totals are not those of the history");
  }
}

}  // namespace velorin::test
