#include "foundation/EventBus.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <unordered_map>
#include <vector>

#include "foundation/MainThread.h"
#include "foundation/Mutex.h"
#include "foundation/Realtime.h"
#include "foundation/TaskQueue.h"

namespace velorin {

namespace {

/// One subscription. A call that is under way or queued keeps it alive; `active` decides whether
/// a call that has not begun may begin.
struct Subscriber {
  Subscriber(Delivery d, std::function<void(const void*)> h) : delivery(d), handler(std::move(h)) {}
  const Delivery delivery;
  const std::function<void(const void*)> handler;
  std::atomic<bool> active{true};
};

using Subscribers = std::vector<std::shared_ptr<Subscriber>>;

void call(const Subscriber& subscriber, const void* event) {
  if (!subscriber.active.load()) return;
  runLogged([&] { subscriber.handler(event); }, "event bus");
}

}  // namespace

struct EventBus::Impl {
  Mutex mutex;
  std::unordered_map<std::type_index, Subscribers> table GUARDED_BY(mutex);

  Subscribers subscribersOf(std::type_index type) EXCLUDES(mutex) {
    MutexLock lock(mutex);
    const auto found = table.find(type);
    return found == table.end() ? Subscribers{} : found->second;
  }

  void remove(std::type_index type, const std::shared_ptr<Subscriber>& subscriber) EXCLUDES(mutex) {
    MutexLock lock(mutex);
    const auto found = table.find(type);
    if (found == table.end()) return;
    std::erase(found->second, subscriber);
    if (found->second.empty()) table.erase(found);
  }

  void deliver(std::type_index type, const AnyEvent& event) EXCLUDES(mutex) {
    for (const auto& subscriber : subscribersOf(type)) {
      if (subscriber->delivery == Delivery::postersThread || MainThread::instance().isCurrent()) {
        call(*subscriber, event.get());
      } else {
        MainThread::instance().post([subscriber, event] { call(*subscriber, event.get()); });
      }
    }
  }
};

EventBus::EventBus() : _impl(std::make_shared<Impl>()) {}

EventBus::~EventBus() {
  decltype(Impl::table) table;
  {
    MutexLock lock(_impl->mutex);
    table.swap(_impl->table);
  }
  for (const auto& [type, subscribers] : table) {
    for (const auto& subscriber : subscribers) subscriber->active.store(false);
  }
}

EventBus::Subscription EventBus::subscribeAny(std::type_index type, Delivery delivery,
                                              AnyHandler handler) {
  assert(!realtime::active());
  auto subscriber = std::make_shared<Subscriber>(delivery, std::move(handler));
  {
    MutexLock lock(_impl->mutex);
    _impl->table[type].push_back(subscriber);
  }
  Subscription subscription;
  subscription._token = std::shared_ptr<void>(
      subscriber.get(), [bus = std::weak_ptr<Impl>(_impl), type, subscriber](void*) {
        subscriber->active.store(false);
        if (const auto impl = bus.lock()) impl->remove(type, subscriber);
      });
  return subscription;
}

void EventBus::postAny(std::type_index type, AnyEvent event) {
  assert(!realtime::active());
  _impl->deliver(type, event);
}

void EventBus::postAnyOnMain(std::type_index type, AnyEvent event) {
  assert(!realtime::active());
  MainThread& main = MainThread::instance();
  if (main.isCurrent()) {
    _impl->deliver(type, event);
    return;
  }
  main.post([bus = std::weak_ptr<Impl>(_impl), type, event = std::move(event)] {
    if (const auto impl = bus.lock()) impl->deliver(type, event);
  });
}

}  // namespace velorin
