#include "engine/transport/PositionClock.h"

#include <algorithm>

namespace velorin {

PositionClock::Reading PositionClock::read(std::int64_t latencyFrames) const {
  MutexLock hold(_mutex);
  const std::int64_t rendered = _ring.framesRead();
  const Entry& heard = _joined && rendered >= _joined->begin ? *_joined : _announced;
  const std::int64_t played = std::max<std::int64_t>(0, rendered - heard.begin - latencyFrames);
  return {heard.facts, heard.offset + static_cast<double>(played) / _clientRate};
}

void PositionClock::jump(SharedFacts facts, double seconds) {
  MutexLock hold(_mutex);
  {
    RenderGate::Closed closed(_gate);
    _ring.flush();
    _validFrom = _ring.framesRead();
  }
  _announced = {std::move(facts), _validFrom, seconds};
  _joined.reset();
  _boundary.store(kNever);
}

void PositionClock::announceAt(std::int64_t frame, SharedFacts facts, double seconds) {
  MutexLock hold(_mutex);
  _joined = Entry{std::move(facts), frame, seconds};
  _boundary.store(frame);
}

void PositionClock::takeOver() {
  MutexLock hold(_mutex);
  if (!_joined) return;
  _announced = std::move(*_joined);
  _joined.reset();
  _boundary.store(kNever);
}

bool PositionClock::revoke(std::int64_t frame, std::int64_t reach) {
  MutexLock hold(_mutex);
  {
    // A closed gate may cost a render call its frames. Far from where the listener is there is no
    // need for one: no call that runs now can come so far.
    std::optional<RenderGate::Closed> closed;
    if (frame - _ring.framesRead() <= reach) closed.emplace(_gate);
    if (_ring.framesRead() >= frame) return false;
    _ring.cutBackTo(frame);
  }
  _joined.reset();
  _boundary.store(kNever);
  return true;
}

std::int64_t PositionClock::countdown() const noexcept {
  const std::int64_t boundary = _boundary.load(std::memory_order_acquire);
  if (boundary == kNever) return kNever;
  return std::max<std::int64_t>(0, boundary - _ring.framesRead());
}

bool PositionClock::takeBack(std::int64_t frames, std::int64_t kept) {
  MutexLock hold(_mutex);
  const std::int64_t rendered = _ring.framesRead();
  const std::int64_t back = std::min(frames, rendered - _validFrom);
  if (back > kept) return false;
  _ring.rewind(back);
  // The device is empty now, so nothing is held back from the position any more: it begins anew.
  const bool isInJoined = _joined && rendered - back >= _joined->begin;
  Entry& heard = isInJoined ? *_joined : _announced;
  const std::int64_t played = std::max<std::int64_t>(0, rendered - back - heard.begin);
  heard.offset += static_cast<double>(played) / _clientRate;
  heard.begin += played;
  if (isInJoined) _boundary.store(heard.begin);
  return true;
}

}  // namespace velorin
