// Starts and ends the player in order, and does what other programs ask of it.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "foundation/SerialQueue.h"
#include "session/PlayerState.h"
#include "shell/ExitDeadline.h"
#include "shell/InstanceServer.h"
#include "shell/ServiceManager.h"

namespace velorin {

class AudioEngine;
class EventBus;
class LibraryServices;
class MediaControls;
class MountObserver;
class Preferences;
class SessionBus;
class TrackNotification;

/// Main thread. Made before everything else, so that it has no player at first: what comes then is
/// refused. The parts it is given outlive its work, from didFinishLaunching to the end of run loop
/// that willTerminate brings about.
class AppDelegate {
 public:
  struct Parts {
    EventBus& bus;
    Preferences& preferences;
    PlayerState& player;
    LibraryServices* library;  ///< null when it could not be opened
  };

  AppDelegate();
  ~AppDelegate();
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;

  /// In this order: what belongs to the program is read in the background; the library is watched;
  /// mounted volumes are told to the player; the desktop's media controls are served; other starts
  /// of the program are heard; the first request is met; the service manager learns that the player
  /// is up.
  void didFinishLaunching(const Parts& parts, FileDescriptor listener, InstanceRequest first);

  /// In this order: the session is saved; the library's scanner and watcher stop; the device is
  /// given back and the engine stops; then the main loop ends, the parts are destroyed and with the
  /// last of them the database is closed. Returns at once. Whatever does not answer, the process
  /// ends within kShutdownGrace. A second call does nothing.
  void willTerminate();

  /// Another track plays: the desktop may be told. What PlayerServices::notifyTrackChange calls.
  void notifyTrackChange(const TrackInfo& info);

  /// Another start of the program asks.
  void handle(InstanceRequest request, InstanceServer::Answer answer);

 private:
  void openFiles(InstanceRequest request, InstanceServer::Answer answer);
  void post(InstanceAction action, std::vector<std::filesystem::path> files);
  InstanceAnswer control(InstanceAction action);
  void observeVolumes();
  void serveDesktop(const Preferences& preferences);
  void followActivity();

  // Empty before the launch and from the end of the termination on.
  EventBus* _bus = nullptr;
  PlayerState* _player = nullptr;
  LibraryServices* _library = nullptr;

  bool _isTerminating = false;
  ServiceManager _serviceManager;
  std::unique_ptr<InstanceServer> _server;
  std::unique_ptr<MountObserver> _mounts;
  std::unique_ptr<SessionBus> _sessionBus;  ///< before the two that live on it
  std::unique_ptr<MediaControls> _mediaControls;
  std::unique_ptr<TrackNotification> _notification;
  PlayerState::Observation _activity;
  std::shared_ptr<int> _alive = std::make_shared<int>();
  ExitDeadline _deadline;
  SerialQueue _background{"com.velorin.shell.background"};
};

}  // namespace velorin
