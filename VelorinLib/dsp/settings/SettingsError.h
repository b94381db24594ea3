// Why a text holds no settings.
#pragma once

#include <string>

namespace velorin {

struct SettingsError {
  std::string text;  ///< one line that says where the fault is
};

}  // namespace velorin
