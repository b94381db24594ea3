#include "foundation/Preferences.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cmath>
#include <string>
#include <utility>

#include "foundation/AtomicFile.h"
#include "foundation/Dates.h"
#include "foundation/Log.h"
#include "foundation/Mutex.h"
#include "foundation/PropertyList.h"
#include "foundation/Realtime.h"
#include "foundation/SerialQueue.h"
#include "foundation/TaskQueue.h"
#include "foundation/Text.h"

namespace velorin {

namespace fs = std::filesystem;

namespace {

// A change reaches the disk within a quarter of a second; the rest is for the write itself.
constexpr std::chrono::milliseconds kWriteDelay{200};

using Values = std::map<std::string, PreferenceValue, std::less<>>;

struct Observer {
  Observer(std::string k, std::function<void()> c) : key(std::move(k)), changed(std::move(c)) {}
  const std::string key;
  const std::function<void()> changed;
  std::atomic<bool> active{true};
};

std::size_t depthOf(const PreferenceValue& value) {
  std::size_t inside = 0;
  if (const auto* list = std::get_if<PreferenceList>(&value.value)) {
    for (const auto& item : *list) inside = std::max(inside, depthOf(item));
    return inside + 1;
  }
  if (const auto* map = std::get_if<PreferenceMap>(&value.value)) {
    for (const auto& [key, item] : *map) inside = std::max(inside, depthOf(item));
    return inside + 1;
  }
  return 0;
}

std::optional<std::int64_t> toInteger(double number) {
  // 2^63 is the first double above the range, and the comparison is false for NaN.
  constexpr double kLimit = 9223372036854775808.0;
  if (!(number >= -kLimit && number < kLimit)) return std::nullopt;
  return static_cast<std::int64_t>(number);
}

/// "2024-05-01 12:00:00.000" as it may stand in a file name: "20240501-120000".
std::string timestamp() {
  std::string text = dates::toText(std::chrono::system_clock::now()).substr(0, 19);
  std::erase_if(text, [](char c) { return c == '-' || c == ':'; });
  std::replace(text.begin(), text.end(), ' ', '-');
  return text;
}

}  // namespace

struct Preferences::Impl {
  explicit Impl(fs::path path) : file(std::move(path)) {
    if (!file.empty()) load();
    if (!file.empty()) writer = std::make_unique<SerialQueue>("com.velorin.preferences");
  }

  // Constant after construction.
  fs::path file;          // empty: in memory only
  bool unusable = false;  // a file was asked for, but is in the way
  std::unique_ptr<SerialQueue> writer;

  mutable Mutex mutex;
  Values values GUARDED_BY(mutex);
  Values defaults GUARDED_BY(mutex);
  std::vector<std::shared_ptr<Observer>> observers GUARDED_BY(mutex);
  std::uint64_t changes GUARDED_BY(mutex) = 0;  // counts every change
  bool writeScheduled GUARDED_BY(mutex) = false;

  Mutex writeMutex;                                  // one write at a time; taken before `mutex`
  std::uint64_t written GUARDED_BY(writeMutex) = 0;  // the change that the file holds
  std::string lastFailure GUARDED_BY(writeMutex);

  void load() {
    std::error_code error;
    if (fs::symlink_status(file, error).type() == fs::file_type::not_found) return;
    std::string failure;
    const auto bytes = readFile(file, failure);
    auto parsed = bytes ? propertyList::parse(*bytes) : std::nullopt;
    auto* map = parsed ? std::get_if<PreferenceMap>(&parsed->value) : nullptr;
    if (map == nullptr) {
      setAside(bytes ? "it is no property list" : failure);
      return;
    }
    MutexLock lock(mutex);
    values = Values(std::make_move_iterator(map->begin()), std::make_move_iterator(map->end()));
  }

  void setAside(const std::string& reason) {
    fs::path aside = file;
    aside += ".damaged-" + timestamp();
    for (int n = 2; fs::exists(fs::symlink_status(aside)); ++n) {
      aside = file;
      aside += fmt::format(".damaged-{}-{}", timestamp(), n);
    }
    std::error_code error;
    fs::rename(file, aside, error);
    if (error) {
      log::line("❌ Preferences {} cannot be used ({}) nor set aside ({}); changes are not kept",
                text::pathForDisplay(file), reason, error.message());
      file.clear();
      unusable = true;
      return;
    }
    log::line("⚠️ Preferences {} cannot be used ({}); set aside as {}",
              text::pathForDisplay(file), reason, text::pathForDisplay(aside.filename()));
  }

  std::optional<PreferenceValue> find(std::string_view key) const EXCLUDES(mutex) {
    MutexLock lock(mutex);
    if (const auto it = values.find(key); it != values.end()) return it->second;
    if (const auto it = defaults.find(key); it != defaults.end()) return it->second;
    return std::nullopt;
  }

  void changed(std::string_view key) EXCLUDES(mutex) {
    std::vector<std::shared_ptr<Observer>> toCall;
    {
      MutexLock lock(mutex);
      ++changes;
      if (writer && !writeScheduled) {
        writeScheduled = true;
        writer->asyncAfter(kWriteDelay, [this] { write(); });
      }
      for (const auto& observer : observers) {
        if (observer->key == key) toCall.push_back(observer);
      }
    }
    for (const auto& observer : toCall) {
      if (observer->active.load()) runLogged(observer->changed, "preferences");
    }
  }

  /// Writes what has changed; false when the file is behind the memory afterwards.
  bool write() EXCLUDES(mutex, writeMutex) {
    if (file.empty()) return !unusable;
    MutexLock writing(writeMutex);
    PreferenceMap snapshot;
    std::uint64_t change = 0;
    {
      MutexLock lock(mutex);
      writeScheduled = false;
      change = changes;
      if (change == written) return true;
      snapshot.insert(values.begin(), values.end());
    }
    const auto xml = propertyList::format({std::move(snapshot)});
    const auto failure = xml ? replaceFile(file, *xml) : "the values cannot be written as text";
    if (failure) {
      if (*failure != lastFailure) {
        log::line("❌ Preferences are not saved: {}; they stay in memory", *failure);
      }
      lastFailure = *failure;
      return false;
    }
    if (!lastFailure.empty()) log::line("ℹ️ Preferences are saved again");
    lastFailure.clear();
    written = change;
    return true;
  }
};

Preferences::Preferences(fs::path file) : _impl(std::make_shared<Impl>(std::move(file))) {}

Preferences::~Preferences() {
  flush();
  _impl->writer.reset();  // joins: its delayed write refers to _impl
}

std::optional<PreferenceValue> Preferences::value(std::string_view key) const {
  return _impl->find(key);
}

bool Preferences::contains(std::string_view key) const {
  return _impl->find(key).has_value();
}

namespace {

template <class T>
std::optional<T> as(std::optional<PreferenceValue> value) {
  T* found = value ? std::get_if<T>(&value->value) : nullptr;
  return found ? std::optional<T>(std::move(*found)) : std::nullopt;
}

}  // namespace

std::optional<bool> Preferences::getBool(std::string_view key) const {
  return as<bool>(value(key));
}

std::optional<std::int64_t> Preferences::getInt(std::string_view key) const {
  const auto found = value(key);
  if (const auto number = as<double>(found)) return toInteger(*number);
  return as<std::int64_t>(found);
}

std::optional<double> Preferences::getDouble(std::string_view key) const {
  const auto found = value(key);
  if (const auto number = as<std::int64_t>(found)) return static_cast<double>(*number);
  return as<double>(found);
}

std::optional<std::string> Preferences::getText(std::string_view key) const {
  return as<std::string>(value(key));
}

std::optional<PreferenceBytes> Preferences::getBytes(std::string_view key) const {
  return as<PreferenceBytes>(value(key));
}

std::optional<PreferenceList> Preferences::getList(std::string_view key) const {
  return as<PreferenceList>(value(key));
}

std::optional<PreferenceMap> Preferences::getMap(std::string_view key) const {
  return as<PreferenceMap>(value(key));
}

void Preferences::setBool(std::string_view key, bool value) {
  set(key, {value});
}
void Preferences::setInt(std::string_view key, std::int64_t value) {
  set(key, {value});
}
void Preferences::setDouble(std::string_view key, double value) {
  set(key, {value});
}
void Preferences::setText(std::string_view key, std::string value) {
  set(key, {std::move(value)});
}
void Preferences::setBytes(std::string_view key, PreferenceBytes value) {
  set(key, {std::move(value)});
}
void Preferences::setList(std::string_view key, PreferenceList value) {
  set(key, {std::move(value)});
}
void Preferences::setMap(std::string_view key, PreferenceMap value) {
  set(key, {std::move(value)});
}

void Preferences::set(std::string_view key, PreferenceValue value) {
  assert(!realtime::active());
  // One level is the store itself.
  if (depthOf(value) >= propertyList::kMaxDepth) {
    log::line("❌ Preference {} is nested too deep and was not set", key);
    return;
  }
  {
    MutexLock lock(_impl->mutex);
    const auto found = _impl->values.find(key);
    if (found == _impl->values.end()) {
      _impl->values.emplace(key, std::move(value));
    } else if (found->second == value) {
      return;
    } else {
      std::swap(found->second, value);
    }
  }
  _impl->changed(key);
}

void Preferences::remove(std::string_view key) {
  {
    MutexLock lock(_impl->mutex);
    const auto found = _impl->values.find(key);
    if (found == _impl->values.end()) return;
    _impl->values.erase(found);
  }
  _impl->changed(key);
}

void Preferences::registerDefault(std::string_view key, PreferenceValue value) {
  MutexLock lock(_impl->mutex);
  _impl->defaults.insert_or_assign(std::string(key), std::move(value));
}

Preferences::Observation Preferences::observe(std::string key, std::function<void()> changed) {
  auto observer = std::make_shared<Observer>(std::move(key), std::move(changed));
  {
    MutexLock lock(_impl->mutex);
    _impl->observers.push_back(observer);
  }
  Observation observation;
  observation._token =
      std::shared_ptr<void>(observer.get(), [store = std::weak_ptr<Impl>(_impl), observer](void*) {
        observer->active.store(false);
        const auto impl = store.lock();
        if (!impl) return;
        MutexLock lock(impl->mutex);
        std::erase(impl->observers, observer);
      });
  return observation;
}

bool Preferences::flush() {
  return _impl->write();
}

}  // namespace velorin
