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

  /// Any thread but the render thread.
  template <class Event>
  void post(Event event) {
    auto shared = std::make_shared<const Event>(std::move(event));
    const void* raw = shared.get();
    postAny(typeid(Event), std::shared_ptr<const void>(std::move(shared), raw));
  }

  /// Posts on the main thread: in place when already there, else queued.
  template <class Event>
  void postOnMain(Event event) {
    onMain([this, event = std::move(event)]() mutable { post(std::move(event)); });
  }

 private:
  using AnyHandler = std::function<void(const void*)>;
  Subscription subscribeAny(std::type_index type, Delivery delivery, AnyHandler handler);
  void postAny(std::type_index type, std::shared_ptr<const void> event);
  /// Runs the task on the main thread, unless the bus is gone by then.
  void onMain(std::function<void()> task);

  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace velorin
