#include "session/SessionSaver.h"

#include <utility>

namespace velorin {
namespace {

SessionParts partsOf(PlayerChanges changes) {
  SessionParts parts;
  if (changes.has(PlayerChange::track)) parts |= SessionPart::place | SessionPart::position;
  if (changes.has(PlayerChange::timeline)) parts |= SessionPart::queue | SessionPart::place;
  if (changes.has(PlayerChange::history)) parts |= SessionPart::place;
  if (changes.has(PlayerChange::autoplay)) parts |= SessionPart::autoplay;
  if (changes.has(PlayerChange::position)) parts |= SessionPart::position;
  if (changes.has(PlayerChange::state)) parts |= SessionPart::position;
  return parts;
}

}  // namespace

SessionSaver::SessionSaver(SessionStore& store, Source source, Times times)
    : _store(store), _source(std::move(source)), _times(times) {}

void SessionSaver::start(bool keepsStored) {
  if (_phase == Phase::saving) return;
  _phase = keepsStored && _due.empty() ? Phase::keeping : Phase::saving;
  changed({});
}

void SessionSaver::changed(PlayerChanges changes) {
  _due |= partsOf(changes);
  const bool playsAnother = changes.has(PlayerChange::track) || changes.has(PlayerChange::timeline);
  if (_phase == Phase::keeping && playsAnother) {
    _phase = Phase::saving;
    _due = SessionParts::all();
  }
  if (_phase != Phase::saving) return;
  if (!_due.empty() && !_afterChange.isRunning()) {
    _afterChange.start(_times.afterChange, [this] { write(); });
  }
  followState();
}

void SessionSaver::followState() {
  const bool isPlaying = _source.isPlaying();
  if (isPlaying == _whilePlaying.isRunning()) return;
  if (!isPlaying) {
    _whilePlaying.stop();
    return;
  }
  _whilePlaying.start(_times.whilePlaying, [this] {
    _due |= SessionPart::position;
    write();
  });
}

void SessionSaver::write() {
  _afterChange.stop();
  const SessionParts parts = _isCleared ? SessionParts::all() : std::exchange(_due, {});
  _due = {};
  auto session = _source.session(parts);
  _isCleared = !session;
  _puts.async([this, parts, session = std::move(session)] {
    session ? _store.put(*session, parts) : _store.clear();
  });
}

bool SessionSaver::saveNow() {
  if (_phase != Phase::saving) return true;
  _afterChange.stop();
  _due = {};
  const auto session = _source.session(SessionParts::all());
  _isCleared = !session;
  bool isSaved = false;
  _puts.sync([&] { isSaved = _store.save(session); });
  return isSaved;
}

}  // namespace velorin
