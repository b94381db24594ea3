#include <optional>

#include "KeyReader.h"

namespace velorin {
namespace {

constexpr char kEscape = '\x1b';
/// Longest sequence worth waiting for; anything longer is no key of ours.
constexpr std::size_t kLongestSequence = 16;

std::optional<Key> plainKey(char c) {
  switch (c) {
    case ' ':
      return Key::pause;
    case 'n':
      return Key::next;
    case 'p':
      return Key::previous;
    case 's':
      return Key::shuffle;
    case 'r':
      return Key::repeat;
    case 'q':
      return Key::quit;
    case 'h':
    case '?':
      return Key::help;
    case '+':
      return Key::louder;
    case '-':
      return Key::quieter;
    default:
      return std::nullopt;
  }
}

/// The final byte of "ESC [ …" or "ESC O …".
std::optional<Key> arrowKey(char c) {
  switch (c) {
    case 'A':
      return Key::louder;
    case 'B':
      return Key::quieter;
    case 'C':
      return Key::forward;
    case 'D':
      return Key::back;
    default:
      return std::nullopt;
  }
}

}  // namespace

std::vector<Key> KeyParser::feed(std::string_view bytes) {
  std::vector<Key> keys;
  for (const char c : bytes) {
    std::optional<Key> key;
    if (c == kEscape) {
      _pending = c;  // also ends a sequence that was broken off
    } else if (_pending.empty()) {
      key = plainKey(c);
    } else if (_pending.size() == 1 && c != '[' && c != 'O') {
      _pending.clear();  // Alt and a letter: not ours
    } else {
      _pending += c;
      // ECMA-48, 5.4: parameters are 0x20 to 0x3F, the final byte is 0x40 to 0x7E.
      const bool isFinal = _pending.size() > 2 && c >= 0x40 && c <= 0x7E;
      if (isFinal) {
        // With parameters it is an arrow with Shift or Ctrl, which we leave to the terminal.
        if (_pending.size() == 3) key = arrowKey(c);
        _pending.clear();
      } else if (_pending.size() > kLongestSequence) {
        _pending.clear();
      }
    }
    if (key) keys.push_back(*key);
  }
  return keys;
}

}  // namespace velorin
