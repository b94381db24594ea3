#include "shell/VelorinApp.h"

#include <utility>

#include "LibraryServices.h"
#include "Options.h"
#include "SignalWatch.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "foundation/Paths.h"

namespace velorin {

VelorinApp::VelorinApp(std::unique_ptr<AudioHardware> hardware)
    : _preferences(paths::preferencesFile()),
      _library(openLibrary()),
      _hardware(std::move(hardware)),
      _engine(*_hardware, _preferences, _bus),
      _player(_engine, _preferences, _bus, playerServices()) {}

VelorinApp::~VelorinApp() = default;

std::unique_ptr<LibraryServices> VelorinApp::openLibrary() {
  try {
    return std::make_unique<LibraryServices>(_bus, _preferences);
  } catch (const VelorinDatabaseError& error) {
    log::line("❌ The player goes on without its library: {}", error.message);
    return nullptr;
  }
}

PlayerServices VelorinApp::playerServices() {
  PlayerServices services;
  if (_library) services.database = _library->sharedManager();
  services.notifyTrackChange = [this](const TrackInfo& info) { _delegate.notifyTrackChange(info); };
  services.suspendMachine = [this] { _powerActions.suspend(); };
  services.powerOffMachine = [this] { _powerActions.powerOff(); };
  return services;
}

int VelorinApp::run(FileDescriptor listener, InstanceRequest first) {
  const SignalWatch signals(
      {.stop = [this] { _delegate.willTerminate(); }, .suspend = {}, .resume = {}});
  _delegate.didFinishLaunching({_bus, _preferences, _player, _library.get()}, std::move(listener),
                               std::move(first));
  MainThread::instance().run();
  return kExitSuccess;
}

}  // namespace velorin
