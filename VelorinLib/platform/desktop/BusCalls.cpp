#include "platform/desktop/BusCalls.h"

#include <sdbus-c++/sdbus-c++.h>

#include <utility>

#include "foundation/MainThread.h"
#include "platform/desktop/SessionBus.h"

namespace velorin {

struct BusCalls::Open {
  void answer(std::uint64_t number, const BusFault& fault) {
    auto node = replies.extract(number);
    if (node.empty()) return;
    if (fault.name.empty()) {
      node.mapped().returnResults();
    } else {
      node.mapped().returnError(sdbus::Error(fault.name, fault.message));
    }
  }

  std::map<std::uint64_t, Reply> replies;
  std::uint64_t lastNumber = 0;
};

BusCalls::BusCalls(SessionBus& bus, std::size_t mostOpen)
    : _bus(bus), _mostOpen(mostOpen), _open(std::make_shared<Open>()) {}

BusCalls::~BusCalls() = default;

void BusCalls::onMain(Reply&& reply, std::weak_ptr<const void> alive,
                      std::function<BusFault()> work) {
  if (_open->replies.size() >= _mostOpen) {
    throw sdbus::Error("org.freedesktop.DBus.Error.LimitsExceeded",
                       "too many calls at a time; wait for answers");
  }
  const std::uint64_t number = ++_open->lastNumber;
  _open->replies.emplace(number, std::move(reply));
  // The main thread knows the call by its number alone: what belongs to the connection stays here.
  MainThread::instance().post([&bus = _bus, open = std::weak_ptr<Open>(_open), number,
                               alive = std::move(alive), work = std::move(work)] {
    const auto living = alive.lock();
    if (!living) return;
    bus.post([open, number, fault = work()] {
      if (const auto calls = open.lock()) calls->answer(number, fault);
    });
  });
}

}  // namespace velorin
