#include "foundation/Paths.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "foundation/Text.h"

namespace velorin {
namespace {

/// Sets or removes a variable for the length of a test.
class Environment {
 public:
  Environment(const char* name, const char* value) : _name(name) {
    if (const char* before = std::getenv(name)) _before = before;
    value ? ::setenv(name, value, 1) : ::unsetenv(name);
  }
  ~Environment() { _before ? ::setenv(_name, _before->c_str(), 1) : ::unsetenv(_name); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  const char* _name;
  std::optional<std::string> _before;
};

TEST(Paths, FollowTheEnvironment) {
  const Environment home("HOME", "/home/ada");
  const Environment own("VELORIN_HOME", nullptr);
  {
    const Environment data("XDG_DATA_HOME", "/d");
    const Environment cache("XDG_CACHE_HOME", "/c");
    const Environment config("XDG_CONFIG_HOME", "/k");
    const Environment runtime("XDG_RUNTIME_DIR", "/run/user/7");
    EXPECT_EQ(paths::dataDirectory(), "/d/Velorin");
    EXPECT_EQ(paths::cacheDirectory(), "/c/Velorin");
    EXPECT_EQ(paths::preferencesFile(), "/k/Velorin/preferences.plist");
    EXPECT_EQ(paths::runtimeDirectory(), "/run/user/7/Velorin");
    const Environment one("VELORIN_HOME", "/one");
    EXPECT_EQ(paths::dataDirectory(), "/one/data");
    EXPECT_EQ(paths::cacheDirectory(), "/one/cache");
    EXPECT_EQ(paths::configDirectory(), "/one/config");
    EXPECT_EQ(paths::runtimeDirectory(), "/one/run");
  }
  // Unset, empty and relative values count as absent.
  const Environment data("XDG_DATA_HOME", nullptr);
  const Environment cache("XDG_CACHE_HOME", "");
  const Environment config("XDG_CONFIG_HOME", "relative/folder");
  const Environment runtime("XDG_RUNTIME_DIR", nullptr);
  EXPECT_EQ(paths::dataDirectory(), "/home/ada/.local/share/Velorin");
  EXPECT_EQ(paths::cacheDirectory(), "/home/ada/.cache/Velorin");
  EXPECT_EQ(paths::configDirectory(), "/home/ada/.config/Velorin");
  EXPECT_EQ(paths::runtimeDirectory(), "/home/ada/.cache/Velorin/run");
  const Environment nowhere("HOME", nullptr);
  EXPECT_TRUE(paths::dataDirectory().is_absolute());
}

TEST(Paths, AreShownShortAndSafe) {
  const Environment home("HOME", "/home/ada/");
  EXPECT_EQ(text::pathForDisplay("/home/ada/Music/a\n\xff.flac"), "~/Music/a\\n\\xff.flac");
  EXPECT_EQ(text::pathForDisplay("/home/ada"), "~");
  EXPECT_EQ(text::pathForDisplay("/home/adam/x"), "/home/adam/x");
}

}  // namespace
}  // namespace velorin
