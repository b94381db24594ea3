#include "support/PipeWireSession.h"

#include <fmt/format.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

namespace velorin::test {
namespace {

constexpr std::chrono::seconds kTimeout{10};

std::string positions(unsigned channels) {
  static const char* const kNames[] = {"FL", "FR", "FC", "LFE", "RL", "RR", "SL", "SR"};
  if (channels == 1) return "MONO";
  std::string text;
  for (unsigned i = 0; i < channels; ++i) {
    text += (i > 0 ? " " : "") + (channels <= 8 ? std::string(kNames[i]) : fmt::format("AUX{}", i));
  }
  return text;
}

std::string sinkProperties(const PipeWireSinkSpec& sink) {
  const std::string rate = sink.rate > 0 ? fmt::format("audio.rate = {} ", sink.rate) : "";
  return fmt::format(
      "factory.name = support.null-audio-sink node.name = \"{0}\" node.description = \"{0} sink\" "
      "media.class = Audio/Sink audio.channels = {1} audio.position = [ {2} ] "
      "monitor.channel-volumes = true {3}",
      sink.name, sink.channels, positions(sink.channels), rate);
}

}  // namespace

std::string PipeWireSession::missingPrograms() {
  std::string missing;
  for (const char* name : {"dbus-daemon", "pipewire", "wireplumber", "pw-cli", "pw-metadata"}) {
    if (findProgram(name).empty()) missing += (missing.empty() ? "" : ", ") + std::string(name);
  }
  return missing;
}

PipeWireSession::PipeWireSession(std::vector<PipeWireSinkSpec> sinks,
                                 std::vector<unsigned> allowedRates)
    : _sinks(std::move(sinks)) {
  const auto root = _folder.path();
  const auto configuration = root / "config/pipewire/pipewire.conf.d";
  const auto bluetooth = root / "config/wireplumber/bluetooth.lua.d";
  for (const auto& folder :
       {root / "run", root / "home", root / "state", configuration, bluetooth}) {
    std::filesystem::create_directories(folder);
  }
  std::filesystem::permissions(root / "run", std::filesystem::perms::owner_all);
  // In place of the file that starts WirePlumber's bluetooth monitor: without logind, as in a
  // container, that monitor ends the whole session manager.
  std::ofstream(bluetooth / "90-enable-all.lua") << "-- no bluetooth\n";
  std::ofstream file(configuration / "10-test.conf");
  if (!allowedRates.empty()) {
    file << "context.properties = { default.clock.allowed-rates = [";
    for (const unsigned rate : allowedRates) file << ' ' << rate;
    file << " ] }\n";
  }
  file << "context.objects = [\n";
  for (const PipeWireSinkSpec& sink : _sinks) {
    file << "{ factory = adapter args = { " << sinkProperties(sink) << " } }\n";
  }
  file << "]\n";
  setVariable("XDG_RUNTIME_DIR", root / "run");
  setVariable("HOME", root / "home");
  setVariable("XDG_CONFIG_HOME", root / "config");
  setVariable("XDG_STATE_HOME", root / "state");
  setVariable("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (root / "run/bus").string());
}

PipeWireSession::~PipeWireSession() {
  _sessionManager.end();
  _server.end();
  _bus.end();
  for (const auto& [name, value] : _environment) {
    if (value) {
      ::setenv(name.c_str(), value->c_str(), 1);
    } else {
      ::unsetenv(name.c_str());
    }
  }
}

void PipeWireSession::setVariable(const std::string& name, const std::string& value) {
  const char* before = std::getenv(name.c_str());
  _environment[name] = before ? std::optional<std::string>(before) : std::nullopt;
  ::setenv(name.c_str(), value.c_str(), 1);
}

bool PipeWireSession::start() {
  const auto socket = folder() / "run/bus";
  _bus.start({"dbus-daemon", "--session", "--nofork", "--nopidfile",
              "--address=unix:path=" + socket.string()},
             folder() / "bus.log");
  return waitFor("D-Bus", [&] { return std::filesystem::exists(socket); }) && startServer();
}

bool PipeWireSession::startServer() {
  const auto socket = folder() / "run/pipewire-0";
  std::filesystem::remove(socket);
  _server.start({"pipewire"}, folder() / "pipewire.log");
  if (!waitFor("PipeWire", [&] { return std::filesystem::exists(socket); })) return false;
  return startSessionManager();
}

bool PipeWireSession::startSessionManager() {
  _sessionManager.start({"wireplumber"}, folder() / "wireplumber.log");
  return waitFor("a default sink", [] {
    return runProgram({"pw-metadata", "0", "default.audio.sink"}).find("\"name\"") !=
           std::string::npos;
  });
}

bool PipeWireSession::waitFor(const char* what, const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      _error = fmt::format("waited in vain for {}", what);
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

bool PipeWireSession::createSink(const PipeWireSinkSpec& sink) {
  runProgram({"pw-cli", "create-node", "adapter",
              "{ " + sinkProperties(sink) + " object.linger = true }"});
  return waitFor("the new sink", [&] { return nodeId(sink.name).has_value(); });
}

bool PipeWireSession::removeSink(const std::string& name) {
  const auto id = nodeId(name);
  if (!id) return false;
  runProgram({"pw-cli", "destroy", std::to_string(*id)});
  return waitFor("the sink's end", [&] { return !nodeId(name); });
}

bool PipeWireSession::setDefaultSink(const std::string& name) {
  runProgram({"pw-metadata", "0", "default.configured.audio.sink", "{ \"name\": \"" + name + "\" }",
              "Spa:String:JSON"});
  return waitFor("the default sink", [&] {
    return runProgram({"pw-metadata", "0", "default.audio.sink"}).find('"' + name + '"') !=
           std::string::npos;
  });
}

std::optional<unsigned> PipeWireSession::nodeId(const std::string& name) {
  // "	id 30, type PipeWire:Interface:Node/3" begins an entry.
  std::istringstream lines(runProgram({"pw-cli", "ls", "Node"}));
  unsigned id = 0;
  for (std::string line; std::getline(lines, line);) {
    if (const auto at = line.find("id ");
        at != std::string::npos && line.find(", type") != line.npos) {
      id = static_cast<unsigned>(std::strtoul(line.c_str() + at + 3, nullptr, 10));
    }
    if (line.find("node.name = \"" + name + "\"") != std::string::npos) return id;
  }
  return std::nullopt;
}

void PipeWireSession::killServer() {
  _server.kill();
  _sessionManager.kill();
}

bool PipeWireSession::restartServer() {
  return startServer();
}

bool PipeWireSession::restartSessionManager() {
  _sessionManager.kill();
  return waitFor("the end of WirePlumber",
                 [] {
                   return runProgram({"pw-cli", "ls", "Client"}).find("WirePlumber\"") ==
                          std::string::npos;
                 }) &&
         startSessionManager();
}

void PipeWireSession::freezeServer(bool frozen) {
  _server.signal(frozen ? SIGSTOP : SIGCONT);
}

}  // namespace velorin::test
