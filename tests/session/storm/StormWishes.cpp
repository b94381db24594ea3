// What the listener does.
#include <fmt/ranges.h>

#include "session/storm/Storm.h"

namespace velorin::test {

const std::vector<Storm::Wish>& Storm::wishes() {
  static const std::vector<Wish> all = {
      {"playSome", 3, &Storm::playSome},
      {"playFromTimeline", 3, &Storm::playFromTimeline},
      {"playFromElsewhere", 2, &Storm::playFromElsewhere},
      {"step", 5, &Storm::step},
      {"tap", 4, &Storm::tap},
      {"seek", 6, &Storm::seek},
      {"transport", 4, &Storm::transport},
      {"edit", 8, &Storm::edit},
      {"modes", 4, &Storm::modes},
      {"settings", 4, &Storm::settings},
      {"externals", 2, &Storm::externals},
      {"devices", 1, &Storm::devices},
  };
  return all;
}

void Storm::wish() {
  int total = 0;
  for (const Wish& each : wishes()) total += each.weight;
  int at = below(total);
  const Wish* chosen = wishes().data();
  while (at >= chosen->weight) at -= (chosen++)->weight;
  _trace.push_back(fmt::format("{} {}", ++_operations, chosen->name));
  if (_trace.size() > 60) _trace.pop_front();
  ++_jumps;
  noteFollowing();
  _settled.reset();
  (this->*chosen->run)();
  noteFollowing();
  _player->engineQueue().async([this, wish = _operations] {
    MainThread::instance().post([this, wish] {
      if (_player && wish == _operations) _settled = Clock::now();
    });
  });
}

std::vector<TrackInfo> Storm::some(int atMost) {
  std::vector<TrackInfo> result;
  for (int left = 1 + below(atMost); left > 0; --left) {
    result.push_back(
        _music.tracks[static_cast<std::size_t>(below(static_cast<int>(_music.tracks.size())))]);
  }
  return result;
}

void Storm::playSome() {
  auto tracks = oneIn(3) ? _music.tracks : some(8);
  const auto start = static_cast<std::size_t>(below(static_cast<int>(tracks.size())));
  if (oneIn(6)) return _player->playAlone(tracks[start]);
  Keys expected;
  for (const TrackInfo& info : tracks) expected.push_back(StormLibrary::keyOf(info.track));
  _player->playTracks(tracks, start);
  if (_player->shuffleEnabled()) {
    expectSameItems("playTracks", expected);
  } else {
    expectTimeline("playTracks", expected);
  }
  if (keys()[static_cast<std::size_t>(_player->timelineIndex())] != expected[start]) {
    fail("another track was selected");
  }
}

void Storm::playFromTimeline() {
  _player->playFromTimeline(static_cast<std::size_t>(below(12)));
}

void Storm::playFromElsewhere() {
  if (oneIn(2)) return _player->playFromHistory(static_cast<std::size_t>(below(10)));
  const auto& queue = _player->autoplayQueue();
  if (!queue.empty()) _player->playFromAutoplayQueue(TrackInfo(queue.back()));
}

void Storm::step() {
  if (oneIn(3)) return _player->previous();
  _player->next();
}

void Storm::tap() {
  _burstEnds = Clock::now() + std::chrono::milliseconds(400);
  if (oneIn(3)) return _player->previousDebounced();
  _player->nextDebounced();
}

void Storm::seek() {
  // Near an end, where the joins are, more often than not.
  const double length = _player->duration();
  _player->seek(oneIn(3) ? below(3000) / 1000.0 : length - below(300) / 1000.0);
}

void Storm::transport() {
  switch (below(6)) {
    case 0:
      return _player->stop();
    case 1:
      return _player->pause();
    case 2:
      return _player->togglePlayPause();
    default:
      return _player->play();
  }
}

void Storm::edit() {
  Keys expected = keys();
  const auto size = static_cast<std::ptrdiff_t>(expected.size());
  const std::ptrdiff_t first = _player->timelineIndex() + 1;  // that may be changed
  const std::ptrdiff_t from = below(static_cast<int>(size) + 2);
  const std::ptrdiff_t to = below(static_cast<int>(size) + 2);
  const auto move = [&](std::ptrdiff_t target) {
    if (from < first || from >= size || target < first || target > size || from == target) return;
    const std::string moved = expected[static_cast<std::size_t>(from)];
    expected.erase(expected.begin() + from);
    target = std::max(std::min(size - 1, target - (from < target ? 1 : 0)), first);
    expected.insert(expected.begin() + target, moved);
  };
  const auto insert = [&](std::ptrdiff_t at, const std::vector<TrackInfo>& tracks) {
    for (const TrackInfo& info : tracks) {
      expected.insert(expected.begin() + at++, StormLibrary::keyOf(info.track));
    }
  };
  switch (below(12)) {
    case 0:
    case 1:
    case 2: {
      const auto tracks = some(3);
      insert(size, tracks);
      _player->appendToTimeline(tracks);
      return expectTimeline("append", expected);
    }
    case 3:
    case 4: {
      const auto tracks = some(2);
      insert(std::min(size, first), tracks);
      _player->insertAfterCurrent(tracks);
      return expectTimeline("insert", expected);
    }
    case 5:
    case 6:
      if (from >= first && from < size) expected.erase(expected.begin() + from);
      _player->removeFromTimeline(static_cast<std::size_t>(from));
      return expectTimeline("remove", expected);
    case 7:
    case 8:
      move(to);
      _player->moveInTimeline(static_cast<std::size_t>(from), static_cast<std::size_t>(to));
      return expectTimeline("move", expected);
    case 9:
      move(from - 1);
      _player->moveUp(static_cast<std::size_t>(from));
      return expectTimeline("moveUp", expected);
    case 10:
      move(from + 2);
      _player->moveDown(static_cast<std::size_t>(from));
      return expectTimeline("moveDown", expected);
    default:
      if (!oneIn(3)) return;
      _player->clearTimeline();
      return expectTimeline("clear", {});
  }
}

void Storm::modes() {
  switch (below(6)) {
    case 0:
      return toggleShuffle();
    case 1:
      return _player->setRepeatMode(oneIn(3) ? RepeatMode::one : RepeatMode::all);
    case 2:
      return _player->setRepeatMode(RepeatMode::off);
    case 3:
      return _player->toggleAutoplay();
    case 4:
      if (_player->stopAfterCurrent() || oneIn(2)) _player->toggleStopAfterCurrent();
      return;
    default:
      if (_player->sleepTimerRuns()) return _player->cancelSleepTimer();
      if (oneIn(3)) _player->startSleepTimerEndOfTrack();
  }
}

void Storm::toggleShuffle() {
  Keys expected = keys();
  const auto next =
      std::min(expected.size(), static_cast<std::size_t>(_player->timelineIndex() + 1));
  const Keys original = keysOf(_player->originalTimeline());
  if (!_player->shuffleEnabled()) {
    _player->toggleShuffle();
    if (_player->currentTrack()) {
      const Keys shuffled = keys();
      expectSameItems("shuffle", expected);
      if (!std::equal(expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(next),
                      shuffled.begin())) {
        fail("what was played has moved");
      }
      return;
    }
    return expectTimeline("shuffle", expected);
  }
  const auto current = _player->currentTrack();
  _player->toggleShuffle();
  if (!current) return expectTimeline("shuffle off", expected);
  // What followed the current item at first follows it again: any of its places, where it stands
  // there several times.
  const std::string at = next > 0 ? expected[next - 1] : StormLibrary::keyOf(current->track);
  if (std::ranges::find(original, at) == original.end()) {
    return expectTimeline("shuffle off", expected);
  }
  expected.resize(next);
  const bool isRight = std::ranges::any_of(original, [&](const std::string& each) {
    if (each != at) return false;
    Keys candidate = expected;
    candidate.insert(candidate.end(), original.begin() + (&each - original.data()) + 1,
                     original.end());
    return keys() == candidate;
  });
  if (!isRight) fail(fmt::format("after shuffle off: {} of {}", keys(), original));
}

void Storm::settings() {
  switch (below(8)) {
    case 0:
      return _player->setGaplessEnabled(!oneIn(4));
    case 1:
    case 2:
      if (!_kind.crossfades) return;
      _player->setCrossfadeDuration((50 + below(350)) / 1000.0);
      return _player->setCrossfadeEnabled(!oneIn(3));
    case 3:
      return _player->setIntegerMode(oneIn(2));
    case 4:
      return _player->setVolume((300 + below(700)) / 1000.0);
    case 5:
      if (oneIn(3)) _player->setExclusiveMode(oneIn(2));
      return;
    case 6:
      return _player->loadMoreHistory();
    default:
      return _player->setKeepsAlbumsUncrossfaded(oneIn(2));
  }
}

void Storm::externals() {
  const auto& file = _music.externals[static_cast<std::size_t>(below(2))];
  switch (below(4)) {
    case 0:
      return _music.toggle(file);
    case 1:
      return _player->playFiles({file}, ServiceMode::playNow);
    case 2:
      return _player->playFiles(_music.externals, ServiceMode::playNext);
    default:
      return _player->playFiles({file}, ServiceMode::playLater);
  }
}

void Storm::devices() {
  const auto unplug = [this](const std::string& uid) {
    _h.hardware.removeDevice(_devices.at(uid));
    _devices.erase(uid);
  };
  const std::string missing = !_devices.contains("first")    ? "first"
                              : !_devices.contains("second") ? "second"
                                                             : "";
  if (missing.empty()) return unplug(oneIn(2) ? "first" : "second");
  // At times there is none for a moment.
  if (oneIn(3)) unplug(_devices.begin()->first);
  plug(missing);
}

}  // namespace velorin::test
