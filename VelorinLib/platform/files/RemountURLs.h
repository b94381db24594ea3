// Where the preference store keeps how volumes can be mounted again.
#pragma once

#include <string>
#include <vector>

#include "foundation/Preferences.h"

namespace velorin {

/// "musicFolderRemountURLs", a map from a place to a URL that "gio mount" takes. A place is a music
/// folder, the mount point of a volume, or a volume's name. Any thread but the render thread; a
/// change is one step, whoever makes it.
namespace remountURLs {

inline constexpr const char* kKey = "musicFolderRemountURLs";

/// Empty where none is known.
std::string of(const Preferences& preferences, const std::string& place);

/// Every place that is an absolute path.
std::vector<std::string> folders(const Preferences& preferences);

/// True when it was not known of the first place. Empty places are passed over.
bool remember(Preferences& preferences, const std::vector<std::string>& places,
              const std::string& url);
void forget(Preferences& preferences, const std::string& place);
/// What is known of one place is known of another instead.
void move(Preferences& preferences, const std::string& from, const std::string& to);

}  // namespace remountURLs
}  // namespace velorin
