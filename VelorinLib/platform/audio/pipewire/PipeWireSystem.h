// Everything that PipeWire's devices and units share: the loop, the connection and what the server
// has announced on it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "foundation/SerialQueue.h"
#include "platform/audio/ListenerList.h"
#include "platform/audio/pipewire/PipeWireCard.h"
#include "platform/audio/pipewire/PipeWireConnection.h"
#include "platform/audio/pipewire/PipeWireDevice.h"
#include "platform/audio/pipewire/PipeWireGraph.h"
#include "platform/audio/pipewire/PipeWireMetadata.h"
#include "platform/audio/pipewire/PipeWireRenderer.h"

namespace velorin {

/// What was asked for a device; units take it up when they are initialized. Outlives the device.
struct PipeWireWishes {
  double rate = 0;                 ///< Hz; 0 for none
  std::uint32_t bufferFrames = 0;  ///< 0 for none
  bool exclusive = false;
};

/// A unit, as the system sees it. Called with the loop's lock held.
class PipeWireSinkUser {
 public:
  virtual ~PipeWireSinkUser() = default;
  virtual std::uint32_t sinkNodeId() const = 0;
  /// nullopt while no cycle has run.
  virtual std::optional<PipeWireCycle> runningCycle() const = 0;
  /// Is the stream on the server an exclusive one?
  virtual bool isExclusive() const = 0;
  /// The sink or the server is gone; the stream must be destroyed before this returns.
  virtual void sinkLost() = 0;
  /// Links went a moment ago; a unit that has none any more has lost its sink.
  virtual void linksGone() = 0;
};

/// All operations with the loop's lock held, but for loop(), listeners() and events().
class PipeWireSystem : private PipeWireGlobals {
 public:
  /// Connects; null when no server answers within a second.
  static std::shared_ptr<PipeWireSystem> create(AudioStatus& status);
  ~PipeWireSystem() override;

  PipeWireLoop& loop() const noexcept { return *_loop; }
  ListenerList& listeners() noexcept { return _listeners; }
  /// Where event handlers of units run: neither the loop, which they may wait for, nor a caller.
  SerialQueue& events() noexcept { return _events; }

  PipeWireConnection& connection() noexcept { return _connection; }
  const PipeWireMetadata& metadata() const noexcept { return _metadata; }
  const PipeWireGraph& graph() const noexcept { return _graph; }

  /// Ids of the present sinks, ascending.
  std::vector<AudioDeviceID> devices() const;
  /// Null when not present.
  PipeWireDevice* device(AudioDeviceID id) const;
  PipeWireDevice* deviceNamed(std::string_view uid) const;
  /// The card the sink belongs to, null when there is none.
  PipeWireCard* cardOf(const PipeWireDevice& device) const;
  PipeWireWishes& wishes(AudioDeviceID id) { return _wishes[id]; }

  /// Makes a node of that name, which the server shows to nobody as a sink, a device of ours that
  /// plays on all of these. An empty list ends that.
  void setAggregate(const std::string& uid, std::vector<std::string> subDeviceUIDs);
  bool isAggregate(std::string_view uid) const { return _aggregates.contains(uid); }
  /// The sinks that a device's sound ends up on and that are present, in order: for an aggregate
  /// its sub-devices, else the device itself.
  std::vector<const PipeWireDevice*> sinksOf(const PipeWireDevice& device) const;
  /// What the device can run at: an aggregate at the rates that all its sinks have.
  PipeWireOffer offerOf(const PipeWireDevice& device) const;
  /// Called with the lock held, on the loop's thread, when a sink is gone, and when a link is and
  /// nobody has made another in its place.
  void setPartsGone(std::function<void()> gone) { _partsGone = std::move(gone); }

  void addUser(PipeWireSinkUser* user);
  void removeUser(PipeWireSinkUser* user);
  /// The unit of ours on that sink, null when there is none.
  PipeWireSinkUser* userOf(const PipeWireDevice& device) const;

 private:
  explicit PipeWireSystem(std::unique_ptr<PipeWireLoop> loop);
  void globalAdded(const PipeWireGlobal& global) override;
  void globalRemoved(std::uint32_t id) override;
  void connected() override;
  void disconnected() override;
  void addSink(const PipeWireGlobal& global);
  void loseUsersOf(std::uint32_t sinkNodeId);
  void checkLinksSoon();

  struct Sink {
    std::unique_ptr<PipeWireDevice> device;
    std::uint64_t arrival = 0;  // rising; ids of the server are given again
    bool announced = false;     // its details have arrived
  };

  const std::unique_ptr<PipeWireLoop> _loop;
  ListenerList _listeners;
  PipeWireConnection _connection;
  PipeWireMetadata _metadata;
  PipeWireGraph _graph;
  std::map<std::uint32_t, Sink> _sinks;
  std::map<std::uint32_t, std::unique_ptr<PipeWireCard>> _cards;
  std::map<std::string, AudioDeviceID, std::less<>> _idsByUID;
  std::map<AudioDeviceID, PipeWireWishes> _wishes;
  std::map<std::string, std::vector<std::string>, std::less<>> _aggregates;
  std::function<void()> _partsGone;
  bool _checksLinks = false;  ///< a check is on its way
  std::uint64_t _arrivals = 0;
  std::vector<PipeWireSinkUser*> _users;
  SerialQueue _events{"com.velorin.pipewire.events"};
};

}  // namespace velorin
