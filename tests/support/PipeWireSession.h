// A private sound server for tests: D-Bus, PipeWire and WirePlumber under a temporary folder, with
// null sinks for devices.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {

struct PipeWireSinkSpec {
  std::string name;
  unsigned rate = 0;  ///< Hz; 0 for a sink that takes any rate
  unsigned channels = 2;
};

/// While it lives, this process's environment (XDG_RUNTIME_DIR, HOME, DBUS_SESSION_BUS_ADDRESS …)
/// names the session, and whatever the process starts lives in it. One at a time; all operations
/// on the test's main thread.
class PipeWireSession {
 public:
  /// The programs that a session needs and that are not installed, for a test to skip on.
  static std::string missingPrograms();

  /// allowedRates: the server's list of rates that a stream may ask for without forcing one;
  /// empty for the server's own default, which is 48 kHz alone.
  explicit PipeWireSession(std::vector<PipeWireSinkSpec> sinks,
                           std::vector<unsigned> allowedRates = {});
  ~PipeWireSession();
  PipeWireSession(const PipeWireSession&) = delete;
  PipeWireSession& operator=(const PipeWireSession&) = delete;

  /// Starts all three and waits until there is a default sink. False, with a reason in error(),
  /// when that takes longer than 10 s.
  bool start();
  const std::string& error() const noexcept { return _error; }
  const std::filesystem::path& folder() const noexcept { return _folder.path(); }

  /// Plug and unplug. True when the server has done it.
  bool createSink(const PipeWireSinkSpec& sink);
  bool removeSink(const std::string& name);
  bool setDefaultSink(const std::string& name);
  /// The server's id of the node with that name.
  std::optional<unsigned> nodeId(const std::string& name);

  /// Kills PipeWire, as a crash would; WirePlumber ends with it.
  void killServer();
  /// Starts both again and waits as start() does.
  bool restartServer();
  /// Kills WirePlumber alone, and starts it again: its links go with it, the sinks stay.
  bool restartSessionManager();
  /// Stops PipeWire's process without ending it, and lets it go on.
  void freezeServer(bool frozen);

 private:
  bool startServer();
  bool startSessionManager();
  bool waitFor(const char* what, const std::function<bool()>& condition);
  void setVariable(const std::string& name, const std::string& value);

  const std::vector<PipeWireSinkSpec> _sinks;
  TemporaryFolder _folder;
  std::map<std::string, std::optional<std::string>> _environment;  // as it was
  ChildProcess _bus;
  ChildProcess _server;
  ChildProcess _sessionManager;
  std::string _error;
};

/// Skips the test, loudly, where the sound server is not installed.
#define VELORIN_NEEDS_PIPEWIRE()                                                                \
  if (const std::string absent = velorin::test::PipeWireSession::missingPrograms();             \
      !absent.empty()) {                                                                        \
    std::fprintf(stderr, "\n*** NOT TESTED: sound server missing: %s ***\n\n", absent.c_str()); \
    GTEST_SKIP() << "not installed: " << absent;                                                \
  }

}  // namespace velorin::test
