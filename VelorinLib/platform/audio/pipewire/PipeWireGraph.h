// Who plays on which sink: the streams of all programs, their links and their owners.
#pragma once

#include <pipewire/pipewire.h>

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "platform/audio/pipewire/PipeWireConnection.h"
#include "platform/audio/pipewire/PipeWireProperties.h"

namespace velorin {

/// A stream of some program that is linked to a sink.
struct PipeWirePlayer {
  std::uint32_t nodeId = 0;
  std::string node;     ///< node.name; empty for what is no playback stream
  std::string program;  ///< its name, or the node's
  pid_t pid = -1;
  bool exclusive = false;
};

/// All operations with the loop's lock held.
class PipeWireGraph {
 public:
  PipeWireGraph();
  ~PipeWireGraph();
  PipeWireGraph(const PipeWireGraph&) = delete;
  PipeWireGraph& operator=(const PipeWireGraph&) = delete;

  /// Notes clients, playback streams and links; ignores everything else.
  void globalAdded(pw_registry* registry, const PipeWireGlobal& global);
  /// True when it was a link.
  bool globalRemoved(std::uint32_t id);
  void disconnected();

  /// The streams that are linked to the sink's inputs, each once.
  std::vector<PipeWirePlayer> playersOn(std::uint32_t sinkNodeId) const;

 private:
  struct Client {
    std::string name;
    pid_t pid = -1;
  };
  struct Link {
    std::uint32_t from = 0;
    std::uint32_t to = 0;
  };
  class Stream;

  std::map<std::uint32_t, Client> _clients;
  std::map<std::uint32_t, Link> _links;
  std::map<std::uint32_t, std::unique_ptr<Stream>> _streams;
};

}  // namespace velorin
