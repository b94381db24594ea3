#include "session/EngineLink.h"

#include <filesystem>

#include "engine/AudioEngine.h"
#include "foundation/MainThread.h"
#include "session/PlayerTypes.h"
#include "session/TrackEffects.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

/// A mount point without its volume is an empty folder.
bool isPresentFolder(const fs::path& folder) {
  std::error_code error;
  const fs::directory_iterator entries(folder, error);
  return !error && entries != fs::directory_iterator();
}

bool isThere(const fs::path& file) {
  std::error_code error;
  return fs::exists(file, error);
}

}  // namespace

EngineLink::EngineLink(AudioEngine& engine, std::function<void(const Outcome&)> finished)
    : _engine(engine), _finished(std::move(finished)) {
  _engine.setPatience(
      [progress = _progress] { return progress->begun.load() == progress->wished.load(); });
}

void EngineLink::submit(std::optional<Track> wished, std::function<Outcome(AudioEngine&)> work) {
  const Serial serial = ++_serial;
  _progress->wished = serial;
  _wished = std::move(wished);
  _isUnavailable = false;
  _isStopping = !_wished;
  auto begin = _life.guard([this, serial] { _begun = serial; });
  auto end = _life.guard([this, serial](const Outcome& outcome) { finish(serial, outcome); });
  _queue.async(
      [this, serial, begin = std::move(begin), end = std::move(end), work = std::move(work)] {
        _progress->begun = serial;
        MainThread::instance().post(begin);
        const Outcome outcome = work(_engine);
        MainThread::instance().post([end, outcome] { end(outcome); });
      });
}

void EngineLink::play(const Track& track, const Start& start) {
  submit(track, [track, start](AudioEngine& engine) {
    const fs::path file(track.filePath);
    if (start.mustExist && !isThere(file)) return Outcome{Outcome::Kind::fileVanished, false};
    prepareEffects(track, engine);
    engine.play(track, start.position);
    if (engine.state() != PlaybackState::stopped) return Outcome{Outcome::Kind::started, false};
    return Outcome{Outcome::Kind::noOutput, isPresentFolder(file.parent_path())};
  });
}

void EngineLink::stop() {
  submit(std::nullopt, [](AudioEngine& engine) {
    engine.stop();
    return Outcome{Outcome::Kind::stopped, false};
  });
}

void EngineLink::call(std::function<void(AudioEngine&)> call) {
  _queue.async([this, call = std::move(call)] { call(_engine); });
}

void EngineLink::call(std::function<void(AudioEngine&)> call, std::function<void()> done) {
  _queue.async([this, call = std::move(call), done = _life.guard(std::move(done))] {
    call(_engine);
    MainThread::instance().post(done);
  });
}

bool EngineLink::accepts(const TrackDidChange& event) {
  if (!isCurrent()) return false;
  if (!_wished) return true;
  if (event.join || !isSameItem(event.track, *_wished)) return false;
  _wished.reset();
  return true;
}

bool EngineLink::acceptsUnavailable(const PlaybackFileUnavailable& event) {
  if (!isCurrent()) return false;
  if (_wished && event.path == _wished->filePath) _isUnavailable = true;
  return true;
}

void EngineLink::finish(Serial serial, Outcome outcome) {
  if (serial != _serial) return;
  _isStopping = false;
  if (outcome.kind == Outcome::Kind::stopped) return _finished(outcome);
  if (!_wished) return;  // it has told of its start
  _wished.reset();
  if (outcome.kind == Outcome::Kind::noOutput && _isUnavailable) {
    outcome.kind = Outcome::Kind::unavailable;
  }
  _finished(outcome);
}

}  // namespace velorin
