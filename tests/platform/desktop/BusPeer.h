// Another program on the test's bus: calls ours, and hears what it says.
#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "foundation/MainThread.h"
#include "foundation/Mutex.h"

namespace velorin::test {

/// Does the work on another thread while the main thread serves its tasks; what it returned.
template <class Work>
auto away(Work work) {
  const auto isDone = std::make_shared<bool>(false);
  auto result = std::async(std::launch::async, [&] {
    struct Bell {
      std::shared_ptr<bool> isDone;
      ~Bell() {
        MainThread::instance().post([isDone = isDone] { *isDone = true; });
      }
    } bell{isDone};
    return work();
  });
  MainThread::instance().runUntil([&] { return *isDone; }, std::chrono::seconds(20));
  return result.get();
}

/// The media controls of a desktop.
class MprisPeer {
 public:
  static constexpr const char* kRoot = "org.mpris.MediaPlayer2";
  static constexpr const char* kPlayer = "org.mpris.MediaPlayer2.Player";
  static constexpr const char* kTrackList = "org.mpris.MediaPlayer2.TrackList";
  using Values = std::map<std::string, sdbus::Variant>;
  using Paths = std::vector<sdbus::ObjectPath>;

  explicit MprisPeer(const std::string& name = "org.mpris.MediaPlayer2.velorin")
      : _connection(sdbus::createSessionBusConnection()),
        _proxy(sdbus::createProxy(*_connection, name, "/org/mpris/MediaPlayer2")) {
    _proxy->uponSignal("PropertiesChanged")
        .onInterface("org.freedesktop.DBus.Properties")
        .call([this](const std::string&, const Values& changed,
                     const std::vector<std::string>& invalidated) {
          std::string line = "changed";
          for (const auto& [key, value] : changed) line += " " + key;
          for (const auto& key : invalidated) line += " " + key + "?";
          note(line);
        });
    _proxy->uponSignal("Seeked").onInterface(kPlayer).call(
        [this](std::int64_t position) { note("seeked " + std::to_string(position)); });
    _proxy->uponSignal("TrackListReplaced")
        .onInterface(kTrackList)
        .call([this](const Paths& paths, const sdbus::ObjectPath& current) {
          note("replaced " + std::to_string(paths.size()) + " " + current);
        });
    _proxy->uponSignal("TrackAdded")
        .onInterface(kTrackList)
        .call([this](const Values& track, const sdbus::ObjectPath& after) {
          note("added " + track.at("mpris:trackid").get<sdbus::ObjectPath>() + " after " + after);
        });
    _proxy->uponSignal("TrackRemoved")
        .onInterface(kTrackList)
        .call([this](const sdbus::ObjectPath& path) { note("removed " + path); });
    _proxy->uponSignal("TrackMetadataChanged")
        .onInterface(kTrackList)
        .call([this](const sdbus::ObjectPath& path, const Values&) { note("edited " + path); });
    _proxy->finishRegistration();
    _connection->enterEventLoopAsync();
  }
  ~MprisPeer() { _connection->leaveEventLoop(); }

  /// The name of the error that a call was answered with; empty for none.
  template <class... Arguments>
  std::string call(const char* interface, const char* method, Arguments... arguments) {
    return away([&]() -> std::string {
      try {
        _proxy->callMethod(method).onInterface(interface).withArguments(arguments...);
      } catch (const sdbus::Error& error) {
        return error.getName();
      }
      return {};
    });
  }

  template <class Value>
  std::string set(const char* property, const Value& value) {
    return call("org.freedesktop.DBus.Properties", "Set", std::string(kPlayer),
                std::string(property), sdbus::Variant(value));
  }

  template <class Value>
  Value get(const char* interface, const char* property) {
    return away([&] { return _proxy->getProperty(property).onInterface(interface); })
        .template get<Value>();
  }

  std::vector<Values> metadataOf(const Paths& paths) {
    return away([&] {
      std::vector<Values> tracks;
      _proxy->callMethod("GetTracksMetadata")
          .onInterface(kTrackList)
          .withArguments(paths)
          .storeResultsTo(tracks);
      return tracks;
    });
  }

  sdbus::IProxy& proxy() { return *_proxy; }

  /// What was heard since the last call, once a line of that kind is among it.
  std::vector<std::string> heardUntil(const std::string& line) {
    MainThread::instance().runUntil([&] { return hasHeard(line); }, std::chrono::seconds(10));
    MutexLock hold(_mutex);
    return std::exchange(_heard, {});
  }

 private:
  void note(const std::string& line) {
    MutexLock hold(_mutex);
    _heard.push_back(line);
    MainThread::instance().post([] {});
  }
  bool hasHeard(const std::string& line) {
    MutexLock hold(_mutex);
    return std::find(_heard.begin(), _heard.end(), line) != _heard.end();
  }

  Mutex _mutex;
  std::vector<std::string> _heard GUARDED_BY(_mutex);
  std::unique_ptr<sdbus::IConnection> _connection;
  std::unique_ptr<sdbus::IProxy> _proxy;
};

}  // namespace velorin::test
