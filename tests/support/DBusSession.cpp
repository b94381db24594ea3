#include "support/DBusSession.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace velorin::test {
namespace {

using namespace std::chrono_literals;

// Runs a program with its output dropped, or its standard output on a descriptor.
pid_t start(const std::vector<std::string>& command, int output) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (output >= 0) {
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  }
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> arguments;
  for (const std::string& one : command) arguments.push_back(const_cast<char*>(one.c_str()));
  arguments.push_back(nullptr);
  pid_t process = -1;
  const int code =
      posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (code != 0) throw std::runtime_error("cannot start " + command[0]);
  return process;
}

void end(pid_t process) {
  if (process <= 0) return;
  ::kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
}

}  // namespace

DBusSession::DBusSession(Bus bus, const std::string& listenAt)
    : _variable(bus == Bus::session ? "DBUS_SESSION_BUS_ADDRESS" : "DBUS_SYSTEM_BUS_ADDRESS") {
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  // With the rules of a session bus also where it poses as the system's: everybody may own names.
  _daemon =
      start({"dbus-daemon", "--session", "--nofork", "--print-address=1", "--address=" + listenAt},
            out[1]);
  close(out[1]);
  for (char c = 0; read(out[0], &c, 1) == 1 && c != '\n';) _address += c;
  close(out[0]);
  if (_address.empty()) {
    end(_daemon);
    throw std::runtime_error("dbus-daemon gives no address");
  }
  if (const char* before = std::getenv(_variable.c_str())) {
    _before = before;
    _hadBefore = true;
  }
  setenv(_variable.c_str(), _address.c_str(), 1);
}

DBusSession::~DBusSession() {
  for (const pid_t child : _children) end(child);
  kill();
  if (_hadBefore) {
    setenv(_variable.c_str(), _before.c_str(), 1);
  } else {
    unsetenv(_variable.c_str());
  }
}

void DBusSession::kill() {
  end(_daemon);
  _daemon = -1;
}

pid_t DBusSession::spawn(const std::vector<std::string>& command) {
  _children.push_back(start(command, -1));
  return _children.back();
}

bool DBusSession::waitForName(const std::string& name) const {
  sd_bus* bus = nullptr;
  if (sd_bus_new(&bus) < 0) return false;
  sd_bus_set_address(bus, _address.c_str());
  sd_bus_set_bus_client(bus, 1);
  bool isOwned = false;
  if (sd_bus_start(bus) >= 0) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!isOwned && std::chrono::steady_clock::now() < deadline) {
      isOwned = sd_bus_get_name_creds(bus, name.c_str(), 0, nullptr) >= 0;
      if (!isOwned) std::this_thread::sleep_for(20ms);
    }
  }
  sd_bus_flush_close_unref(bus);
  return isOwned;
}

}  // namespace velorin::test
