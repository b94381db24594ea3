#include "platform/desktop/MprisService.h"

#include <sdbus-c++/sdbus-c++.h>

#include <utility>

#include "foundation/Mutex.h"
#include "platform/desktop/MprisObject.h"
#include "platform/desktop/SessionBus.h"

namespace velorin {

// The mailbox between the main thread, which tells what is so, and the bus's, which tells the bus
// what is different.
class MprisService::Client : public SessionBus::Client {
 public:
  Client(SessionBus& bus, MprisCommands commands)
      : _bus(bus),
        _canRaise(commands.raise != nullptr),
        _canQuit(commands.quit != nullptr),
        _position(std::move(commands.position)),
        _commands(std::make_shared<const MprisCommands>(std::move(commands))),
        _weakCommands(_commands) {}

  struct Letter {
    std::optional<MprisState> state;
    std::optional<std::vector<MprisTrack>> tracks;
    std::optional<std::int64_t> seeked;
  };

  // --- Main thread ---

  // Writes into the letter that the bus's thread finds next.
  template <class Write>
  static void tell(const std::shared_ptr<Client>& client, const Write& write) {
    {
      MutexLock hold(client->_mutex);
      write(client->_letter);
      if (std::exchange(client->_isDelivering, true)) return;
    }
    client->_bus.post([client] { client->deliver(); });
  }

  void silence() {
    _commands.reset();
    MutexLock hold(_asking);
    _position = nullptr;
  }

  // --- The bus's thread ---

  void connected(sdbus::IConnection& connection) override {
    _connection = &connection;
    publish();
  }

  void disconnected() override {
    _object.reset();
    _connection = nullptr;
  }

  void deliver() {
    Letter letter;
    {
      MutexLock hold(_mutex);
      letter = std::exchange(_letter, {});
      _isDelivering = false;
    }
    if (letter.tracks) _tracks = *letter.tracks;
    if (letter.state) _state = *letter.state;
    if (!_object) return publish();
    // The list first: a current track is in it by then.
    if (letter.tracks) _object->setTracks(std::move(*letter.tracks));
    if (letter.state) _object->update(std::move(*letter.state));
    if (letter.seeked) _object->seeked(*letter.seeked);
  }

 private:
  void publish() {
    if (!_connection || !_state || _object) return;
    _object = std::make_unique<MprisObject>(_bus, *_connection,
                                            MprisObject::Asked{.canRaise = _canRaise,
                                                               .canQuit = _canQuit,
                                                               .position = [this] { return ask(); },
                                                               .commands = _weakCommands},
                                            *_state, _tracks);
  }

  std::int64_t ask() {
    // Held while the player answers, so that it is not asked any more once silenced.
    MutexLock hold(_asking);
    return _position ? _position() : 0;
  }

  SessionBus& _bus;
  const bool _canRaise;
  const bool _canQuit;

  Mutex _mutex;
  Letter _letter GUARDED_BY(_mutex);
  bool _isDelivering GUARDED_BY(_mutex) = false;
  Mutex _asking;
  std::function<std::int64_t()> _position GUARDED_BY(_asking);

  std::shared_ptr<const MprisCommands> _commands;  // main thread
  const std::weak_ptr<const MprisCommands> _weakCommands;

  // The bus's thread.
  sdbus::IConnection* _connection = nullptr;
  std::optional<MprisState> _state;
  std::vector<MprisTrack> _tracks;
  std::unique_ptr<MprisObject> _object;
};

MprisService::MprisService(SessionBus& bus, MprisCommands commands)
    : _bus(bus), _client(std::make_shared<Client>(bus, std::move(commands))) {
  _bus.attach(_client);
}

MprisService::~MprisService() {
  _client->silence();
  _bus.detach(_client);
}

void MprisService::update(MprisState state) {
  Client::tell(_client, [&](Client::Letter& letter) { letter.state = std::move(state); });
}

void MprisService::setTracks(std::vector<MprisTrack> tracks) {
  Client::tell(_client, [&](Client::Letter& letter) { letter.tracks = std::move(tracks); });
}

void MprisService::seeked(std::int64_t position) {
  Client::tell(_client, [&](Client::Letter& letter) { letter.seeked = position; });
}

}  // namespace velorin
