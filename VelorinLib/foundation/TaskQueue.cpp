#include "foundation/TaskQueue.h"

#include <exception>

#include "foundation/Log.h"

namespace velorin {

void runLogged(const TaskQueue::Task& task, std::string_view label) noexcept {
  try {
    task();
  } catch (const std::exception& error) {
    log::line("❌ {}: a task failed: {}", label, error.what());
  } catch (...) {
    log::line("❌ {}: a task failed", label);
  }
}

}  // namespace velorin
