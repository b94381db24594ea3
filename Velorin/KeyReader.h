// Keys of the player, read from a terminal in raw mode.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace velorin {

enum class Key {
  pause,
  next,
  previous,
  back,
  forward,
  louder,
  quieter,
  shuffle,
  repeat,
  quit,
  help
};

/// Turns bytes into keys; a sequence may arrive in pieces. What is not a key is dropped.
class KeyParser {
 public:
  std::vector<Key> feed(std::string_view bytes);

 private:
  std::string _pending;  ///< the beginning of an escape sequence
};

/// Reads the descriptor on the main thread's loop and calls `pressed` there. Ends at the end of
/// the file. Made and destroyed on the main thread.
class KeyReader {
 public:
  KeyReader(int descriptor, std::function<void(Key)> pressed);
  ~KeyReader();
  KeyReader(const KeyReader&) = delete;
  KeyReader& operator=(const KeyReader&) = delete;

 private:
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace velorin
