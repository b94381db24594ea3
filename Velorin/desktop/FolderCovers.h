// The cover that lies beside a file from outside the library.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "foundation/SerialQueue.h"

namespace velorin {

/// Main thread; folders are searched in the background. Remembers the last folder. Only folders of
/// this machine's own disks are searched: a share that does not answer must keep nobody waiting.
class FolderCovers {
 public:
  /// The cover as far as it is known; empty for none. When the search comes to a cover later,
  /// `found` is called on the main thread, unless another folder was asked for meanwhile.
  std::string coverBeside(const std::string& filePath, std::function<void()> found);

 private:
  struct State {
    std::string folder;
    std::string cover;
  };
  std::shared_ptr<State> _state = std::make_shared<State>();
  SerialQueue _queue{"com.velorin.desktop.covers"};
};

}  // namespace velorin
