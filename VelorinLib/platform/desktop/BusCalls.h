// Calls from the bus that are done on the main thread and answered when they are. For the files of
// this folder.
#pragma once

#include <sdbus-c++/MethodResult.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace velorin {

class SessionBus;

/// Why a call failed. No name: it did not.
struct BusFault {
  std::string name;  ///< of the D-Bus error
  std::string message;
};

/// On the bus's thread. Answers of calls that are still open when it goes are never given: an
/// answer must not outlive its connection.
class BusCalls {
 public:
  using Reply = sdbus::Result<>;

  BusCalls(SessionBus& bus, std::size_t mostOpen);
  ~BusCalls();

  /// Runs the work on the main thread, unless `alive` has gone by then, and answers the call.
  /// Throws the sdbus::Error LimitsExceeded when too many are open.
  void onMain(Reply&& reply, std::weak_ptr<const void> alive, std::function<BusFault()> work);

 private:
  struct Open;
  SessionBus& _bus;
  const std::size_t _mostOpen;
  std::shared_ptr<Open> _open;
};

}  // namespace velorin
