// The player's ear for other starts of the program.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>

#include "foundation/FileDescriptor.h"
#include "shell/InstanceMessage.h"

namespace velorin {

/// Serves the socket on the main loop: a connection of this user brings one request and gets one
/// answer. Others are shut out; who says nothing, half a line or nonsense is let go in time and
/// costs a bounded piece of memory. Main thread.
class InstanceServer {
 public:
  using Answer = std::function<void(InstanceAnswer)>;
  /// Answers once, now or later, on the main thread.
  using Handler = std::function<void(InstanceRequest, Answer)>;

  /// A connection brings its request and takes its answer within this time each.
  static constexpr std::chrono::seconds kPatience{5};
  static constexpr std::size_t kMostConnections = 32;

  /// listener: as instance::listen makes it.
  InstanceServer(FileDescriptor listener, Handler handler);
  /// Closes all connections; answers that come later are dropped.
  ~InstanceServer();
  InstanceServer(const InstanceServer&) = delete;
  InstanceServer& operator=(const InstanceServer&) = delete;

 private:
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace velorin
