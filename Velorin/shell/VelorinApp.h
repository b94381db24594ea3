// The player as one object: what it is made of, and in which order.
#pragma once

#include <memory>

#include "engine/AudioEngine.h"
#include "foundation/EventBus.h"
#include "foundation/FileDescriptor.h"
#include "foundation/Preferences.h"
#include "platform/audio/AudioHardware.h"
#include "platform/power/PowerActions.h"
#include "session/PlayerState.h"
#include "shell/AppDelegate.h"

namespace velorin {

class LibraryServices;

/// Main thread. Members are made from top to bottom and destroyed from bottom to top. Without a
/// library, which a log line tells, files from outside are played all the same.
///
/// To come behind the player, in this order: the state of the library's views, the analyzer, the
/// remote server, the finder of duplicates.
class VelorinApp {
 public:
  explicit VelorinApp(std::unique_ptr<AudioHardware> hardware);
  ~VelorinApp();
  VelorinApp(const VelorinApp&) = delete;
  VelorinApp& operator=(const VelorinApp&) = delete;

  /// Runs to the end, which a signal, a command or the desktop brings about. listener: where other
  /// starts of the program are heard, see InstanceSocket.h; first: what to open at once.
  int run(FileDescriptor listener, InstanceRequest first);

 private:
  std::unique_ptr<LibraryServices> openLibrary();
  PlayerServices playerServices();

  AppDelegate _delegate;
  EventBus _bus;
  Preferences _preferences;
  PowerActions _powerActions;
  const std::unique_ptr<LibraryServices> _library;  ///< null where it cannot be opened
  const std::unique_ptr<AudioHardware> _hardware;
  AudioEngine _engine;
  PlayerState _player;
};

}  // namespace velorin
