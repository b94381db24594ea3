// Tasks that come back to an object which may be gone by then.
#pragma once

#include <memory>
#include <utility>

namespace velorin {

/// A member of the object that tasks come back to. Both on the main thread: the object's end and
/// the tasks.
class Lifeline {
 public:
  /// The task, which does nothing once the owner is gone.
  template <class Task>
  auto guard(Task task) const {
    return [alive = std::weak_ptr<char>(_alive), task = std::move(task)](auto&&... arguments) {
      if (!alive.expired()) task(std::forward<decltype(arguments)>(arguments)...);
    };
  }

 private:
  std::shared_ptr<char> _alive = std::make_shared<char>();
};

}  // namespace velorin
