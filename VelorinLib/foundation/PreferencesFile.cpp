#include "foundation/PreferencesFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "foundation/AtomicFile.h"
#include "foundation/Dates.h"
#include "foundation/Log.h"
#include "foundation/PropertyList.h"
#include "foundation/Text.h"
#include "foundation/Uuid.h"

namespace velorin {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr std::string_view kAsideReference = "velorin:value in file";
constexpr std::string_view kAsideExtension = ".plist";

/// About so many bytes as XML.
constexpr std::size_t kLarge = 32'768;

// A write takes milliseconds. Whoever holds the lock for longer hangs.
constexpr auto kLockPatience = 1s;
constexpr auto kLockRetry = 2ms;

std::size_t sizeAsXML(const PreferenceValue& value) {
  constexpr std::size_t kTags = 24;
  if (const auto* text = std::get_if<std::string>(&value.value)) return kTags + text->size();
  if (const auto* bytes = std::get_if<PreferenceBytes>(&value.value)) {
    return kTags + bytes->size() / 3 * 4;
  }
  std::size_t size = kTags;
  if (const auto* list = std::get_if<PreferenceList>(&value.value)) {
    for (const PreferenceValue& item : *list) size += sizeAsXML(item);
  }
  if (const auto* map = std::get_if<PreferenceMap>(&value.value)) {
    for (const auto& [key, item] : *map) size += kTags + key.size() + sizeAsXML(item);
  }
  return size;
}

PreferenceValue referenceTo(const std::string& name) {
  return {PreferenceMap{{std::string(kAsideReference), {name}}}};
}

/// The name in a reference; any name that could lead out of the folder is none.
std::optional<std::string> nameIn(const PreferenceValue& value) {
  const auto* map = std::get_if<PreferenceMap>(&value.value);
  if (map == nullptr || map->size() != 1 || map->begin()->first != kAsideReference) return {};
  const auto* name = std::get_if<std::string>(&map->begin()->second.value);
  if (name == nullptr || !name->ends_with(kAsideExtension)) return std::nullopt;
  if (!isUuid(std::string_view(*name).substr(0, name->size() - kAsideExtension.size()))) return {};
  return *name;
}

bool isLarge(const PreferenceValue& value) {
  return sizeAsXML(value) > kLarge || nameIn(value);
}

/// "2024-05-01 12:00:00.000" as it may stand in a file name: "20240501-120000".
std::string timestamp() {
  std::string text = dates::toText(std::chrono::system_clock::now()).substr(0, 19);
  std::erase_if(text, [](char c) { return c == '-' || c == ':'; });
  std::replace(text.begin(), text.end(), ' ', '-');
  return text;
}

fs::path beside(const fs::path& path, const std::string& prefix, const std::string& suffix) {
  return path.parent_path() / fs::path(prefix + path.filename().native() + suffix);
}

}  // namespace

PreferencesFile::PreferencesFile(fs::path path) : _path(std::move(path)) {
  // Of a symbolic link the file that it names: whoever comes there by another way shares it.
  std::error_code error;
  fs::path real = fs::weakly_canonical(_path, error);
  if (error) real = _path;
  _asides = beside(real, "", ".values");
  _lockPath = beside(real, ".", ".lock");
}

PreferencesFile::Stamp PreferencesFile::stampOf(int folder, const char* path) {
  struct stat status {};
  if (::fstatat(folder, path, &status, AT_EMPTY_PATH) != 0) return {};
  return {status.st_dev, status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec,
          status.st_size};
}

void PreferencesFile::remember() {
  _known = FileDescriptor(::open(_path.c_str(), O_PATH | O_CLOEXEC));
  _stamp = _known ? stampOf(_known.get(), "") : Stamp{};
}

std::variant<StoredPreferences, PreferencesFile::Missing, PreferencesFile::Unusable>
PreferencesFile::read() {
  // Before the content: a file that is replaced meanwhile is then read once more.
  remember();
  std::error_code error;
  if (fs::symlink_status(_path, error).type() == fs::file_type::not_found) return Missing{};
  std::string failure;
  const auto bytes = readFile(_path, failure);
  if (!bytes) return Unusable{failure};
  auto parsed = propertyList::parse(*bytes);
  auto* map = parsed ? std::get_if<PreferenceMap>(&parsed->value) : nullptr;
  if (map == nullptr) return Unusable{"it is no property list"};
  StoredPreferences values;
  for (auto& [key, value] : *map) {
    if (auto name = nameIn(value)) {
      values[key].aside = std::move(*name);
    } else {
      values[key].value = std::make_shared<const PreferenceValue>(std::move(value));
    }
  }
  return values;
}

std::optional<PreferenceValue> PreferencesFile::readAside(const std::string& name) const {
  std::string failure;
  const auto bytes = readFile(pathOfAside(name), failure);
  return bytes ? propertyList::parse(*bytes) : std::nullopt;
}

PreferencesFile::Lock PreferencesFile::lock() {
  Lock lock;
  std::error_code error;
  fs::create_directories(_lockPath.parent_path(), error);
  FileDescriptor file(
      ::open(_lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  bool locked = false;
  const auto deadline = std::chrono::steady_clock::now() + kLockPatience;
  while (file && !(locked = ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) &&
         (errno == EWOULDBLOCK || errno == EINTR) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kLockRetry);
  }
  std::string trouble;
  if (!locked) {
    trouble =
        errno == EWOULDBLOCK ? "another program holds it" : std::generic_category().message(errno);
  }
  if (locked) lock._file = std::move(file);
  if (!locked && trouble != _lockTrouble) {
    log::line("⚠️ Preferences {} are written without their lock: {}",
              text::pathForDisplay(_path), trouble);
  }
  _lockTrouble = trouble;
  return lock;
}

std::optional<std::string> PreferencesFile::writeAside(StoredPreferences& values,
                                                       std::vector<std::string>& written) const {
  for (auto& [key, stored] : values) {
    std::error_code error;
    if (!stored.aside.empty() && fs::exists(pathOfAside(stored.aside), error)) continue;
    stored.aside.clear();
    if (!stored.value || !isLarge(*stored.value)) continue;
    const auto xml = propertyList::format(*stored.value);
    if (!xml) return "the values cannot be written as text";
    std::string name = makeUuid() + std::string(kAsideExtension);
    if (auto failure = replaceFile(pathOfAside(name), *xml)) return failure;
    written.push_back(name);
    stored.aside = std::move(name);
  }
  std::erase_if(
      values, [](const auto& entry) { return !entry.second.value && entry.second.aside.empty(); });
  return std::nullopt;
}

std::optional<std::string> PreferencesFile::write(StoredPreferences& values, const Lock& lock) {
  StoredPreferences next = values;
  std::vector<std::string> written;
  auto failure = writeAside(next, written);
  if (!failure) {
    PreferenceMap map;
    for (const auto& [key, stored] : next) {
      map.emplace(key, stored.aside.empty() ? *stored.value : referenceTo(stored.aside));
    }
    const auto xml = propertyList::format({std::move(map)});
    failure = xml ? replaceFile(_path, *xml) : "the values cannot be written as text";
  }
  std::error_code error;
  if (failure) {
    for (const std::string& name : written) fs::remove(pathOfAside(name), error);
    fs::remove(_asides, error);  // if it is empty
    return failure;
  }
  values = std::move(next);
  remember();
  // Without the lock a file that nobody names yet may be that of another process.
  if (lock.isHeld()) removeUnused(values);
  return std::nullopt;
}

void PreferencesFile::removeUnused(const StoredPreferences& values) const {
  std::error_code error;
  fs::directory_iterator files(_asides, error);
  if (error) return;
  std::set<std::string> used;
  for (const auto& [key, stored] : values) {
    if (!stored.aside.empty()) used.insert(stored.aside);
  }
  std::vector<fs::path> unused;
  for (; files != fs::directory_iterator(); files.increment(error)) {
    if (error) return;
    if (!used.contains(files->path().filename())) unused.push_back(files->path());
  }
  for (const fs::path& path : unused) fs::remove(path, error);
  if (used.empty()) fs::remove(_asides, error);
}

bool PreferencesFile::setAside(const std::string& reason) {
  fs::path aside = _path;
  aside += ".damaged-" + timestamp();
  for (int n = 2; fs::exists(fs::symlink_status(aside)); ++n) {
    aside = _path;
    aside += fmt::format(".damaged-{}-{}", timestamp(), n);
  }
  std::error_code error;
  fs::rename(_path, aside, error);
  if (error) {
    log::line("❌ Preferences {} cannot be used ({}) nor set aside ({}); changes are not kept",
              text::pathForDisplay(_path), reason, error.message());
    return false;
  }
  log::line("⚠️ Preferences {} cannot be used ({}); set aside as {}",
            text::pathForDisplay(_path), reason, text::pathForDisplay(aside.filename()));
  return true;
}

}  // namespace velorin
