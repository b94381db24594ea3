// Named notifications between parts that do not know each other.
//
// An event is a struct; its type is its name. The table of all events, with who posts and who
// observes each, is records/Events.h.
//
// Delivery: a subscriber asks for the poster's thread (called inside post(), in the order of
// subscription) or for the main thread (queued there, in the order of posting). Posting never
// blocks on a main-thread subscriber, and no lock is held while a subscriber runs, so that a
// handler may post, subscribe and unsubscribe.
#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <typeindex>
#include <utility>

namespace velorin {

enum class Delivery {
  postersThread,  ///< inside post(), on the poster's thread
  mainThread,     ///< queued on the main thread; in place when already there
};

class EventBus {
 public:
  EventBus();
  ~EventBus();
  EventBus(const EventBus&) = delete;
  EventBus& operator=(const EventBus&) = delete;

  /// Ends its subscription when destroyed. After that no new call starts; a main-thread call
  /// that is queued is dropped. A call that runs on another thread at that moment finishes.
  class Subscription {
   public:
    Subscription() = default;
    void reset() { _token.reset(); }

   private:
    friend class EventBus;
    std::shared_ptr<void> _token;
  };

  /// Any thread but the render thread.
  template <class Event>
  [[nodiscard]] Subscription subscribe(Delivery delivery,
                                       std::function<void(const Event&)> handler) {
    return subscribeAny(typeid(Event), delivery, [handler = std::move(handler)](const void* event) {
      handler(*static_cast<const Event*>(event));
    });
  }

  /// Any thread but the render thread. An exception that leaves a handler is logged and keeps
  /// no other handler from its event.
  template <class Event>
  void post(Event event) {
    postAny(typeid(Event), share(std::move(event)));
  }

  /// Posts on the main thread: in place when already there, else queued. A post that is queued
  /// when the bus dies is dropped.
  template <class Event>
  void postOnMain(Event event) {
    postAnyOnMain(typeid(Event), share(std::move(event)));
  }

 private:
  using AnyHandler = std::function<void(const void*)>;
  using AnyEvent = std::shared_ptr<const void>;

  template <class Event>
  static AnyEvent share(Event&& event) {
    return std::make_shared<const std::decay_t<Event>>(std::forward<Event>(event));
  }

  Subscription subscribeAny(std::type_index type, Delivery delivery, AnyHandler handler);
  void postAny(std::type_index type, AnyEvent event);
  void postAnyOnMain(std::type_index type, AnyEvent event);

  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace velorin
