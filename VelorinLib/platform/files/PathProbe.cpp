#include "platform/files/PathProbe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <thread>

#include "foundation/ThreadName.h"

namespace velorin {
namespace {

// stat() alone would not make an automounter mount.
PathProbe::Kind kindOf(const std::string& path) {
  const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
  if (folder >= 0) {
    ::close(folder);
    return PathProbe::Kind::folder;
  }
  struct stat status {};
  if ((errno != ENOTDIR && errno != EACCES) || ::stat(path.c_str(), &status) != 0) {
    return PathProbe::Kind::nothing;
  }
  return S_ISDIR(status.st_mode) ? PathProbe::Kind::folder : PathProbe::Kind::other;
}

PathProbe::Answer answerOf(const std::string& path) {
  const PathProbe::Kind kind = kindOf(path);
  if (kind == PathProbe::Kind::nothing) return {kind, {}};
  char* const real = ::realpath(path.c_str(), nullptr);
  if (real == nullptr) return {PathProbe::Kind::nothing, {}};
  PathProbe::Answer answer{kind, real};
  std::free(real);
  return answer;
}

}  // namespace

/// Shared by who waits and the thread that asks; the last one drops it.
struct PathProbe::Question {
  Mutex mutex;
  ConditionVariable answered;
  std::optional<Answer> answer GUARDED_BY(mutex);
  const std::chrono::steady_clock::time_point asked = std::chrono::steady_clock::now();

  bool isDone() {
    const MutexLock lock(mutex);
    return answer.has_value();
  }
};

std::shared_ptr<PathProbe::Question> PathProbe::questionFor(const std::string& path) {
  const MutexLock lock(_mutex);
  std::erase_if(_unanswered, [](const auto& entry) { return entry.second->isDone(); });
  auto& question = _unanswered[path];
  if (question) return question;
  question = std::make_shared<Question>();
  try {
    std::thread([question, path] {
      nameThisThread("com.velorin.pathprobe");
      Answer answer = answerOf(path);
      const MutexLock answerLock(question->mutex);
      question->answer = std::move(answer);
      question->answered.notifyAll();
    }).detach();
  } catch (const std::system_error&) {  // no thread to be had: no answer this time
    const MutexLock answerLock(question->mutex);
    question->answer = Answer{};
  }
  return question;
}

PathProbe::Answer PathProbe::ask(const std::string& path, std::chrono::milliseconds patience) {
  const auto question = questionFor(path);
  const auto deadline = question->asked + patience;
  const MutexLock lock(question->mutex);
  while (!question->answer) {
    if (!question->answered.waitUntil(question->mutex, deadline)) break;
  }
  return question->answer.value_or(Answer{});
}

}  // namespace velorin
