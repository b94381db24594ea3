// Asks what stands at a path without waiting for ever: a share whose server is gone may keep the
// one who touches it for minutes, or until it comes back.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>

#include "foundation/Mutex.h"

namespace velorin {

/// Any thread but the render thread. Each question is asked on a thread of its own, which is left
/// behind when it gets no answer; as long as it has none, no further thread touches that path.
class PathProbe {
 public:
  enum class Kind {
    folder,
    other,    ///< a file, or whatever else
    nothing,  ///< or out of reach: the file system answered with an error
    noAnswer,
  };
  struct Answer {
    Kind kind = Kind::noAnswer;
    std::string realPath;  ///< without symbolic links; empty for `nothing` and `noAnswer`
  };

  /// Opens a folder for a moment, which lets an automounter do its work. Waits at most so long; for
  /// an answer that has not come for so long already, not at all.
  Answer ask(const std::string& path, std::chrono::milliseconds patience);

 private:
  struct Question;
  std::shared_ptr<Question> questionFor(const std::string& path);

  Mutex _mutex;
  std::map<std::string, std::shared_ptr<Question>> _unanswered GUARDED_BY(_mutex);
};

}  // namespace velorin
