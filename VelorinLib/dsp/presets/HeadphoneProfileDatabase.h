// The headphone profiles that can be chosen.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dsp/presets/HeadphoneProfile.h"
#include "foundation/Mutex.h"

namespace velorin {

/// A profile as the database hands it out: never changed, kept alive by whoever holds it.
using HeadphoneProfileRef = std::shared_ptr<const HeadphoneProfile>;

/// Empty until a load has succeeded. Any thread but the render thread.
class HeadphoneProfileDatabase {
 public:
  /// The resource, and the most that is read of one.
  static constexpr const char* kFileName = "headphone-profiles.json";
  static constexpr std::uintmax_t kLargestFile = 64 << 20;

  /// The one of the program, empty at first.
  static HeadphoneProfileDatabase& shared();

  /// Reads the resource "headphone-profiles.json" (foundation/Resources.h tells where it may be);
  /// the program does so in the background at start. False and a line in the log when that cannot
  /// be; what was there before then stays.
  bool load() EXCLUDES(_lock);

  /// The same from a given file: an object with the key "profiles", an array of objects with the
  /// fields of HeadphoneProfile and PEQFilter as keys. All are required; a missing key, a wrong
  /// type or an unknown name of a form or filter fails the whole file.
  bool load(const std::filesystem::path& file) EXCLUDES(_lock);

  bool isLoaded() const EXCLUDES(_lock);

  /// All profiles when the query is empty, else those whose model contains it, upper and lower case
  /// alike; in order of the file.
  std::vector<HeadphoneProfileRef> search(std::string_view query) const EXCLUDES(_lock);

  /// None when there is no such profile; where an id is repeated, the last of them.
  HeadphoneProfileRef profile(std::string_view id) const EXCLUDES(_lock);

  /// By brand, each brand's in order of the file.
  std::map<std::string, std::vector<HeadphoneProfileRef>> profilesByBrand() const EXCLUDES(_lock);

 private:
  struct Entry {
    HeadphoneProfileRef profile;
    std::string lowercasedModel;
  };
  mutable Mutex _lock;
  bool _isLoaded GUARDED_BY(_lock) = false;
  std::vector<Entry> _allProfiles GUARDED_BY(_lock);
  std::map<std::string, std::vector<HeadphoneProfileRef>> _brandIndex GUARDED_BY(_lock);
  std::unordered_map<std::string, HeadphoneProfileRef> _idIndex GUARDED_BY(_lock);
};

}  // namespace velorin
