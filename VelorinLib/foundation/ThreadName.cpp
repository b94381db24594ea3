#include "foundation/ThreadName.h"

#include <pthread.h>

#include <algorithm>
#include <array>

namespace velorin {

void nameThisThread(std::string_view label) noexcept {
  std::array<char, 16> name{};
  while (label.size() >= name.size()) {
    const std::size_t dot = label.find('.');
    if (dot == std::string_view::npos) break;
    label.remove_prefix(dot + 1);
  }
  label = label.substr(0, name.size() - 1);
  std::copy(label.begin(), label.end(), name.begin());
  ::pthread_setname_np(::pthread_self(), name.data());
}

}  // namespace velorin
