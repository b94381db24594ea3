#include "foundation/Paths.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <optional>

namespace velorin::paths {

namespace fs = std::filesystem;

namespace {

// The specification: "All paths set in these environment variables must be absolute. If an
// implementation encounters a relative path … it should consider the path invalid and ignore it."
std::optional<fs::path> absoluteFromEnvironment(const char* variable) {
  const char* value = std::getenv(variable);
  if (value == nullptr || *value != '/') return std::nullopt;
  return fs::path(value);
}

/// $VELORIN_HOME may be relative: it is typed at a prompt.
std::optional<fs::path> ownHome() {
  const char* value = std::getenv("VELORIN_HOME");
  if (value == nullptr || *value == '\0') return std::nullopt;
  std::error_code error;
  fs::path path = fs::absolute(value, error);
  return error ? fs::path(value) : path;
}

fs::path directory(const char* ownName, const char* variable, const char* fallback) {
  if (const auto home = ownHome()) return *home / ownName;
  if (const auto base = absoluteFromEnvironment(variable)) return *base / "Velorin";
  return homeDirectory() / fallback / "Velorin";
}

}  // namespace

fs::path homeDirectory() {
  if (auto home = absoluteFromEnvironment("HOME")) return *home;
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, 4096> buffer{};
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/') {
    return found->pw_dir;
  }
  return "/";
}

fs::path dataDirectory() {
  return directory("data", "XDG_DATA_HOME", ".local/share");
}

fs::path cacheDirectory() {
  return directory("cache", "XDG_CACHE_HOME", ".cache");
}

fs::path configDirectory() {
  return directory("config", "XDG_CONFIG_HOME", ".config");
}

fs::path runtimeDirectory() {
  if (const auto home = ownHome()) return *home / "run";
  if (const auto base = absoluteFromEnvironment("XDG_RUNTIME_DIR")) return *base / "Velorin";
  return cacheDirectory() / "run";
}

fs::path preferencesFile() {
  return configDirectory() / "preferences.plist";
}

}  // namespace velorin::paths
