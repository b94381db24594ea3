// The object /org/mpris/MediaPlayer2 on one connection. For the files of this folder.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/desktop/MprisTypes.h"

namespace sdbus {
class IConnection;
class IObject;
}  // namespace sdbus

namespace velorin {

class BusCalls;
class SessionBus;

/// On the bus's thread.
class MprisObject {
 public:
  struct Asked {
    bool canRaise = false;
    bool canQuit = false;
    std::function<std::int64_t()> position;
    /// What the main thread calls; gone when nothing must be called any more.
    std::weak_ptr<const MprisCommands> commands;
  };

  /// Puts the object there and takes the name. Throws sdbus::Error.
  MprisObject(SessionBus& bus, sdbus::IConnection& connection, Asked asked, MprisState state,
              std::vector<MprisTrack> tracks);
  ~MprisObject();

  /// Announces what is different.
  void update(MprisState state);
  void setTracks(std::vector<MprisTrack> tracks);
  void seeked(std::int64_t position);

 private:
  void registerCommand(const char* interface, const char* name,
                       std::function<void()> MprisCommands::*command);
  template <class Value>
  void registerProperty(const char* interface, const char* name, Value value);
  void registerRoot();
  void registerPlayerMethods();
  void registerPlayerProperties();
  void registerTrackList();
  void takeName();
  const MprisTrack* trackWith(const std::string& path) const;
  std::string currentPath() const;

  sdbus::IConnection& _connection;
  Asked _asked;
  MprisState _state;
  std::vector<MprisTrack> _tracks;
  std::unique_ptr<BusCalls> _calls;
  std::unique_ptr<sdbus::IObject> _object;  ///< last: its callbacks use the rest
};

}  // namespace velorin
