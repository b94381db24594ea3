// The preference store: a key-value file of typed values, shared by all processes of the program.
//
// The file is an XML property list. A change is written to a temporary file beside it, synced
// and renamed over it, so that a crash at any moment leaves the old file or the new one. A file
// that cannot be parsed is set aside under a name that says so, and the store starts empty.
//
// Each process writes only the keys that it changed itself, under a lock: at each write, and at
// each flush(), it first takes over what others have written since. Large values live in files of
// their own (PreferencesFile.h), so that changing a small one stays cheap.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace velorin {

struct PreferenceValue;
using PreferenceList = std::vector<PreferenceValue>;
using PreferenceMap = std::map<std::string, PreferenceValue>;
using PreferenceBytes = std::vector<std::uint8_t>;

/// One stored value. Reading a number as another kind of number converts it (a fraction is cut
/// off; what does not fit 64 bits counts as absent); any other mismatch counts as absent.
struct PreferenceValue {
  std::variant<bool, std::int64_t, double, std::string, PreferenceBytes, PreferenceList,
               PreferenceMap>
      value;
  bool operator==(const PreferenceValue&) const = default;
};

/// Any thread but the render thread; reads are from memory, but for the first read of a large
/// value.
class Preferences {
 public:
  /// Opens or makes the store. An empty path keeps it in memory only (tests, `render`). A file
  /// that cannot be read or parsed is renamed to "<name>.damaged-<UTC time>", with a log line;
  /// where even that fails, the store stays in memory so that the file is not overwritten.
  explicit Preferences(std::filesystem::path file = {});

  /// Writes what is pending.
  ~Preferences();
  Preferences(const Preferences&) = delete;
  Preferences& operator=(const Preferences&) = delete;

  bool contains(std::string_view key) const;
  std::optional<PreferenceValue> value(std::string_view key) const;

  std::optional<bool> getBool(std::string_view key) const;
  std::optional<std::int64_t> getInt(std::string_view key) const;
  std::optional<double> getDouble(std::string_view key) const;
  std::optional<std::string> getText(std::string_view key) const;
  std::optional<PreferenceBytes> getBytes(std::string_view key) const;
  std::optional<PreferenceList> getList(std::string_view key) const;
  std::optional<PreferenceMap> getMap(std::string_view key) const;

  // Setting the value that a key has already is no change. A value nested deeper than a property
  // list may be (propertyList::kMaxDepth) is refused with a log line. Text may hold any bytes.
  void setBool(std::string_view key, bool value);
  void setInt(std::string_view key, std::int64_t value);
  void setDouble(std::string_view key, double value);
  void setText(std::string_view key, std::string value);
  void setBytes(std::string_view key, PreferenceBytes value);
  void setList(std::string_view key, PreferenceList value);
  void setMap(std::string_view key, PreferenceMap value);
  void remove(std::string_view key);

  /// Sets a value without writing it to the file: what a key reads as until it is set.
  void registerDefault(std::string_view key, PreferenceValue value);

  /// Ends its observation when destroyed; may outlive the store. The handler is called after a
  /// change of the key, without a lock held: on the thread that changed it; for a change by another
  /// process on a thread of the store, or on one that reads or flushes it.
  class Observation {
   public:
    Observation() = default;
    void reset() { _token.reset(); }

   private:
    friend class Preferences;
    std::shared_ptr<void> _token;
  };
  [[nodiscard]] Observation observe(std::string key, std::function<void()> changed);

  /// Blocks until every change made so far is on disk, and those of other processes are in memory;
  /// false when it could not be written (the reason is logged, the values stay in memory and the
  /// next change tries again). Changes are otherwise written in the background within a quarter of
  /// a second. Waits up to a second for a process that holds the lock.
  bool flush();

 private:
  void set(std::string_view key, PreferenceValue value);
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace velorin
