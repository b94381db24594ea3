#include "foundation/Preferences.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <set>
#include <string>
#include <utility>

#include "foundation/Log.h"
#include "foundation/Mutex.h"
#include "foundation/PreferencesFile.h"
#include "foundation/PropertyList.h"
#include "foundation/Realtime.h"
#include "foundation/SerialQueue.h"
#include "foundation/TaskQueue.h"

namespace velorin {

namespace fs = std::filesystem;

namespace {

// A change reaches the disk within a quarter of a second; the rest is for the write itself.
constexpr std::chrono::milliseconds kWriteDelay{200};

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

}  // namespace

struct Preferences::Impl {
  explicit Impl(fs::path path) {
    if (path.empty()) return;
    disk = std::make_unique<PreferencesFile>(std::move(path));
    {
      const MutexLock writing(writeMutex);
      if (!load()) disk.reset();
    }
    unusable = !disk;
    if (disk) writer = std::make_unique<SerialQueue>("com.velorin.preferences");
  }

  // Constant after construction.
  std::unique_ptr<PreferencesFile> disk;  // empty: in memory only
  bool unusable = false;                  // a file was asked for, but is in the way
  std::unique_ptr<SerialQueue> writer;

  mutable Mutex mutex;
  StoredPreferences values GUARDED_BY(mutex);
  std::map<std::string, PreferenceValue, std::less<>> defaults GUARDED_BY(mutex);
  // Keys whose values the file does not have yet; one without a value was removed.
  std::set<std::string, std::less<>> dirty GUARDED_BY(mutex);
  std::vector<std::shared_ptr<Observer>> observers GUARDED_BY(mutex);
  bool writeScheduled GUARDED_BY(mutex) = false;

  Mutex writeMutex;  // one reader or writer of the file at a time; taken before `mutex`
  std::string lastFailure GUARDED_BY(writeMutex);

  /// False when there is a file that can neither be used nor set aside.
  bool load() REQUIRES(writeMutex) EXCLUDES(mutex) {
    auto content = disk->read();
    if (std::holds_alternative<PreferencesFile::Unusable>(content)) {
      // Another process may be about to set it aside too.
      const auto fileLock = disk->lock();
      content = disk->read();
      const auto* broken = std::get_if<PreferencesFile::Unusable>(&content);
      if (broken != nullptr) return disk->setAside(broken->reason);
    }
    const MutexLock lock(mutex);
    if (auto* read = std::get_if<StoredPreferences>(&content)) values = std::move(*read);
    return true;
  }

  std::optional<PreferenceValue> find(std::string_view key) EXCLUDES(mutex, writeMutex) {
    std::string aside;
    for (int attempt = 0; attempt < 2; ++attempt) {
      {
        const MutexLock lock(mutex);
        const auto it = values.find(key);
        if (it == values.end()) break;
        if (const auto value = it->second.value) return *value;
        aside = it->second.aside;
      }
      if (auto read = disk->readAside(aside)) return keep(key, aside, std::move(*read));
      write();  // another process has replaced it: what took its place?
    }
    const MutexLock lock(mutex);
    if (const auto it = values.find(key); it != values.end() && !it->second.value) {
      log::line("⚠️ Preference {} is lost with its file {}", key, aside);
      values.erase(it);
    }
    if (const auto it = defaults.find(key); it != defaults.end()) return it->second;
    return std::nullopt;
  }

  PreferenceValue keep(std::string_view key, const std::string& aside, PreferenceValue read)
      EXCLUDES(mutex) {
    const auto value = std::make_shared<const PreferenceValue>(std::move(read));
    const MutexLock lock(mutex);
    const auto it = values.find(key);
    if (it != values.end() && it->second.aside == aside) it->second.value = value;
    return *value;
  }

  void changed(std::string_view key) EXCLUDES(mutex) {
    {
      const MutexLock lock(mutex);
      if (disk) dirty.emplace(key);
      if (writer && !std::exchange(writeScheduled, true)) {
        writer->asyncAfter(kWriteDelay, [this] { write(); });
      }
    }
    tell(key);
  }

  void tell(std::string_view key) EXCLUDES(mutex) {
    std::vector<std::shared_ptr<Observer>> toCall;
    {
      const MutexLock lock(mutex);
      for (const auto& observer : observers) {
        if (observer->key == key) toCall.push_back(observer);
      }
    }
    for (const auto& observer : toCall) {
      if (observer->active.load()) runLogged(observer->changed, "preferences");
    }
  }

  /// Takes over what other processes changed and writes what this one did; false when the file is
  /// behind the memory afterwards.
  bool write() EXCLUDES(mutex, writeMutex) {
    std::vector<std::string> changedByOthers;
    const bool written = exchange(changedByOthers);
    for (const std::string& key : changedByOthers) tell(key);
    return written;
  }

  bool exchange(std::vector<std::string>& changedByOthers) EXCLUDES(mutex, writeMutex) {
    if (!disk) return !unusable;
    const MutexLock writing(writeMutex);
    bool isDirty = false;
    {
      const MutexLock lock(mutex);
      writeScheduled = false;
      isDirty = !dirty.empty();
    }
    // Why the file cannot be used, as long as it is in the way.
    std::optional<std::string> broken;
    if (!isDirty) {
      if (!disk->changedByOthers()) return true;
      // The file is whole at any moment, so that reading needs no lock.
      broken = takeOver(changedByOthers);
      if (!broken) return true;
    }
    const auto fileLock = disk->lock();
    if (broken || disk->changedByOthers()) broken = takeOver(changedByOthers);
    std::optional<std::string> failure;
    if (broken && !disk->setAside(*broken)) failure = "what is in their place cannot be moved";
    if (!failure) failure = writeAll(fileLock);
    if (failure && *failure != lastFailure) {
      log::line("❌ Preferences are not saved: {}; they stay in memory", *failure);
    }
    if (!failure && !lastFailure.empty()) log::line("ℹ️ Preferences are saved again");
    lastFailure = failure.value_or("");
    return !failure;
  }

  /// Returns why the file cannot be used. One that is gone takes nothing with it: the next write
  /// makes it anew from memory.
  std::optional<std::string> takeOver(std::vector<std::string>& changedByOthers)
      REQUIRES(writeMutex) EXCLUDES(mutex) {
    auto content = disk->read();
    if (auto* broken = std::get_if<PreferencesFile::Unusable>(&content)) return broken->reason;
    auto* read = std::get_if<StoredPreferences>(&content);
    if (read == nullptr) return std::nullopt;
    const MutexLock lock(mutex);
    for (auto it = values.begin(); it != values.end();) {
      const bool isGone = !read->contains(it->first) && !dirty.contains(it->first);
      if (isGone) changedByOthers.push_back(it->first);
      it = isGone ? values.erase(it) : std::next(it);
    }
    for (auto& [key, stored] : *read) {
      if (dirty.contains(key)) continue;
      const auto mine = values.find(key);
      if (mine != values.end() && isSame(mine->second, stored)) continue;
      changedByOthers.push_back(key);
      values.insert_or_assign(key, std::move(stored));
    }
    return std::nullopt;
  }

  static bool isSame(const StoredPreference& mine, const StoredPreference& theirs) {
    if (!theirs.aside.empty()) return mine.aside == theirs.aside;
    return mine.aside.empty() && *mine.value == *theirs.value;
  }

  std::optional<std::string> writeAll(const PreferencesFile::Lock& fileLock) REQUIRES(writeMutex)
      EXCLUDES(mutex) {
    StoredPreferences snapshot;
    std::set<std::string, std::less<>> writing;
    {
      const MutexLock lock(mutex);
      snapshot = values;
      writing.swap(dirty);
    }
    auto failure = disk->write(snapshot, fileLock);
    const MutexLock lock(mutex);
    if (failure) {
      dirty.merge(writing);
      return failure;
    }
    for (const auto& [key, stored] : snapshot) {
      const auto mine = values.find(key);
      if (mine != values.end() && mine->second.value == stored.value) {
        mine->second.aside = stored.aside;
      }
    }
    return std::nullopt;
  }
};

Preferences::Preferences(fs::path file) : _impl(std::make_shared<Impl>(std::move(file))) {}

Preferences::~Preferences() {
  {
    const MutexLock lock(_impl->mutex);
    _impl->observers.clear();
  }
  flush();
  _impl->writer.reset();  // joins: its delayed write refers to _impl
}

std::optional<PreferenceValue> Preferences::value(std::string_view key) const {
  return _impl->find(key);
}

bool Preferences::contains(std::string_view key) const {
  const MutexLock lock(_impl->mutex);
  return _impl->values.contains(key) || _impl->defaults.contains(key);
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
  // What is replaced is destroyed after the lock.
  auto stored = std::make_shared<const PreferenceValue>(std::move(value));
  {
    const MutexLock lock(_impl->mutex);
    StoredPreference& mine = _impl->values[std::string(key)];
    if (mine.value && *mine.value == *stored) return;
    mine.value.swap(stored);
    mine.aside.clear();
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
