// The server's two tables of settings: which sink is the default, and how the clock is set.
#pragma once

#include <pipewire/pipewire.h>

#include <functional>
#include <map>

#include "platform/audio/pipewire/PipeWireConnection.h"

namespace velorin {

/// The clock of the graph as set, in Hz and frames. Frames hold at `rate` and scale with the rate
/// that the graph really runs at.
struct PipeWireClock {
  std::uint32_t rate = 48000;
  std::uint32_t quantum = 1024;
  std::uint32_t minimumQuantum = 32;
  std::uint32_t maximumQuantum = 2048;
  std::uint32_t forcedQuantum = 0;  ///< 0: not forced
  std::uint32_t forcedRate = 0;

  /// The quantum that the server will choose at `graphRate` for a stream that asks for a latency
  /// of `wanted` frames of its own `streamRate`, when nobody else asks; 0 for no wish.
  std::uint32_t predictQuantum(double graphRate, std::uint32_t wanted, double streamRate) const;
};

/// All operations with the loop's lock held.
class PipeWireMetadata {
 public:
  /// defaultChanged is called with the lock held.
  explicit PipeWireMetadata(std::function<void()> defaultChanged);
  ~PipeWireMetadata();
  PipeWireMetadata(const PipeWireMetadata&) = delete;
  PipeWireMetadata& operator=(const PipeWireMetadata&) = delete;

  /// Binds the global if it is one of the two tables.
  void globalAdded(pw_registry* registry, const PipeWireGlobal& global);
  void globalRemoved(std::uint32_t id);
  void disconnected();

  /// node.name of the default sink, empty when there is none.
  const std::string& defaultSink() const noexcept { return _defaultSink; }
  const PipeWireClock& clock() const noexcept { return _clock; }

 private:
  struct Table;
  int handle(const char* key, const char* value);
  void setDefaultSink(std::string name);

  const std::function<void()> _defaultChanged;
  std::map<std::uint32_t, std::unique_ptr<Table>> _tables;
  std::string _defaultSink;
  PipeWireClock _clock;
};

}  // namespace velorin
