#include "shell/AppDelegate.h"

#include <fmt/format.h>

#include <utility>

#include "LibraryServices.h"
#include "ProgramLoop.h"
#include "desktop/MediaControls.h"
#include "desktop/TrackNotification.h"
#include "dsp/presets/HeadphoneProfileDatabase.h"
#include "engine/AudioEngine.h"
#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Paths.h"
#include "library/volumes/MountObserver.h"
#include "platform/desktop/SessionBus.h"
#include "records/Events.h"
#include "shell/ControlSettings.h"
#include "shell/InstanceSocket.h"
#include "shell/OpenFiles.h"
#include "shell/PathReport.h"
#include "shell/PlayerStatus.h"

namespace velorin {
namespace {

/// How often is looked whether the session is back; it takes a moment at the start.
constexpr std::chrono::milliseconds kRestoreInterval{20};

std::string countText(std::size_t files) {
  return fmt::format("{} {}", files, files == 1 ? "file" : "files");
}

std::string doneText(InstanceAction action, std::size_t files) {
  switch (action) {
    case InstanceAction::playNext:
      return countText(files) + " to play next";
    case InstanceAction::playLater:
      return countText(files) + " to play later";
    default:
      return "playing " + countText(files);
  }
}

std::string joined(const std::vector<std::string>& lines) {
  return fmt::format("{}", fmt::join(lines, "\n"));
}

}  // namespace

AppDelegate::AppDelegate() = default;
AppDelegate::~AppDelegate() = default;

// --- The launch ---

void AppDelegate::didFinishLaunching(const Parts& parts, FileDescriptor listener,
                                     InstanceRequest first) {
  _bus = &parts.bus;
  _player = &parts.player;
  _library = parts.library;
  _background.async([] { HeadphoneProfileDatabase::shared().load(); });
  if (_library != nullptr) _library->scanner().start();
  observeVolumes();
  serveDesktop(parts.preferences);
  followActivity();
  _server = std::make_unique<InstanceServer>(
      std::move(listener), [this](InstanceRequest request, InstanceServer::Answer answer) {
        handle(std::move(request), std::move(answer));
      });
  if (!first.paths.empty()) {
    openFiles(std::move(first), [](const InstanceAnswer& answer) {
      if (!answer.ok) log::line("❌ {}", answer.text);
    });
  }
  _serviceManager.tellReady();
}

void AppDelegate::observeVolumes() {
  _mounts = std::make_unique<MountObserver>(
      [this, alive = std::weak_ptr(_alive)](const std::string& mountPoint) {
        MainThread::instance().post([this, alive, mountPoint] {
          if (alive.lock() && _player != nullptr) _player->volumeMounted(mountPoint);
        });
      });
}

void AppDelegate::serveDesktop(const Preferences& preferences) {
  std::function<std::string(std::int64_t)> coverPath;
  if (_library != nullptr) {
    coverPath = [&cache = _library->artworkCache()](std::int64_t albumId) {
      return cache.cachedImagePath(albumId);
    };
  }
  _sessionBus = std::make_unique<SessionBus>();
  _mediaControls = std::make_unique<MediaControls>(
      *_player, *_sessionBus,
      MediaControls::Options{
          .coverPath = coverPath, .raise = {}, .quit = [this] { willTerminate(); }});
  _notification = std::make_unique<TrackNotification>(
      *_sessionBus, preferences, std::move(coverPath),
      TrackNotification::Actions{
          .next = [player = _player] { player->nextDebounced(); },
          .togglePlayPause = [player = _player] { player->togglePlayPause(); }});
}

void AppDelegate::notifyTrackChange(const TrackInfo& info) {
  if (_notification) _notification->show(info);
}

void AppDelegate::followActivity() {
  if (!_serviceManager.isPresent()) return;
  _serviceManager.tellStatus(activityText(*_player));
  _activity = _player->observe([this](PlayerChanges changes) {
    if (changes.has(PlayerChange::track) || changes.has(PlayerChange::state)) {
      _serviceManager.tellStatus(activityText(*_player));
    }
  });
}

// --- The end ---

void AppDelegate::willTerminate() {
  if (std::exchange(_isTerminating, true)) return;
  _deadline.start(kShutdownGrace);
  _serviceManager.tellStopping();
  // Starts that come from now on wait for the lock, and then become the player.
  instance::removeSocket(paths::runtimeDirectory());
  _server.reset();
  if (_player == nullptr) return MainThread::instance().stop();
  _activity.reset();

  _deadline.setStep("the disk that keeps the session does not answer");
  _bus->post(SavePlaybackState{});

  _deadline.setStep("a music folder does not answer");
  _mounts.reset();
  if (_library != nullptr) _library->scanner().stop();

  _deadline.setStep("a file or the audio device does not answer");
  _player->engineQueue().async([this, engine = &_player->engine()] {
    engine->shutDown();
    MainThread::instance().post([this] {
      _deadline.setStep("the desktop's bus does not answer");
      _notification.reset();
      _mediaControls.reset();
      _sessionBus.reset();
      _deadline.setStep("a music folder or the library does not answer");
      _player = nullptr;
      _library = nullptr;
      MainThread::instance().stop();
    });
  });
}

// --- What others ask ---

void AppDelegate::handle(InstanceRequest request, InstanceServer::Answer answer) {
  if (_player == nullptr || _isTerminating) {
    return answer({false, "the player is not ready: try again"});
  }
  if (request.action == InstanceAction::set) {
    return applyControlSetting(*_player, request.words, std::move(answer));
  }
  if (!takesPaths(request.action)) return answer(control(request.action));
  if (request.paths.empty()) {
    return answer(
        {true, "Velorin is running already: give it files, or see 'velorin control --help'"});
  }
  openFiles(std::move(request), std::move(answer));
}

void AppDelegate::openFiles(InstanceRequest request, InstanceServer::Answer answer) {
  const bool sorted = request.action != InstanceAction::open;
  findFilesToOpen(std::move(request.paths), sorted,
                  [this, alive = std::weak_ptr(_alive), action = request.action,
                   answer = std::move(answer)](FilesToOpen found) {
                    if (!alive.lock() || _player == nullptr || _isTerminating) {
                      return answer({false, "the player ended"});
                    }
                    if (found.files.empty()) return answer({false, joined(found.problems)});
                    found.problems.push_back(doneText(action, found.files.size()));
                    post(action, std::move(found.files));
                    answer({true, joined(found.problems)});
                  });
}

void AppDelegate::post(InstanceAction action, std::vector<std::filesystem::path> files) {
  // A queue that is about to come back is to be added to, not to be replaced.
  const bool adds = action == InstanceAction::playNext || action == InstanceAction::playLater;
  if (adds && !_player->sessionRestored()) {
    MainThread::instance().postAfter(kRestoreInterval, [this, alive = std::weak_ptr(_alive), action,
                                                        files = std::move(files)]() mutable {
      if (alive.lock() && _player != nullptr) post(action, std::move(files));
    });
    return;
  }
  switch (action) {
    case InstanceAction::playNow:
      return _bus->post(ServicePlayFiles{std::move(files), ServiceMode::playNow});
    case InstanceAction::playNext:
      return _bus->post(ServicePlayFiles{std::move(files), ServiceMode::playNext});
    case InstanceAction::playLater:
      return _bus->post(ServicePlayFiles{std::move(files), ServiceMode::playLater});
    default:
      return _bus->post(OpenExternalFiles{std::move(files)});
  }
}

InstanceAnswer AppDelegate::control(InstanceAction action) {
  switch (action) {
    case InstanceAction::play:
      _player->play();
      break;
    case InstanceAction::pause:
      _player->pause();
      break;
    case InstanceAction::playPause:
      _player->togglePlayPause();
      break;
    case InstanceAction::stop:
      _player->stop();
      break;
    case InstanceAction::next:
      _player->nextDebounced();
      break;
    case InstanceAction::previous:
      _player->previousDebounced();
      break;
    case InstanceAction::foldersChanged:
      if (_library != nullptr) _library->scanner().foldersDidChange();
      _bus->post(LibraryDidUpdate{});
      break;
    case InstanceAction::status:
      return {true, statusJSON(*_player)};
    case InstanceAction::path:
      if (auto path = pathJSON(*_player)) return {true, *std::move(path)};
      return {false, "nothing is playing: start music with 'velorin control play' or give files"};
    case InstanceAction::quit:
      // After the answer is on its way.
      MainThread::instance().postAfter(std::chrono::milliseconds(20), [this] { willTerminate(); });
      break;
    default:
      return {false, "the running player does not know this command"};
  }
  return {true, {}};
}

}  // namespace velorin
