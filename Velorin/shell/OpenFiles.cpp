#include "shell/OpenFiles.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "PlaylistFile.h"
#include "engine/decoders/DecoderFactory.h"
#include "foundation/MainThread.h"
#include "foundation/Text.h"
#include "foundation/ThreadName.h"
#include "foundation/Unicode.h"
#include "library/playlists/M3UManager.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

void sortByPath(std::vector<fs::path>& paths) {
  const unicode::NameOrder order;
  std::vector<std::pair<std::string, fs::path>> keyed;
  keyed.reserve(paths.size());
  for (fs::path& path : paths) {
    std::string key = order.key(path.native());
    keyed.emplace_back(std::move(key), std::move(path));
  }
  std::sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first < b.first : a.second.native() < b.second.native();
  });
  std::transform(keyed.begin(), keyed.end(), paths.begin(),
                 [](auto& each) { return std::move(each.second); });
}

/// The openable files of one folder and of those below it, in any order.
class FolderWalk {
 public:
  std::vector<fs::path> files;

  std::error_code visit(const fs::path& folder) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) return {errno, std::generic_category()};
    if (!_seen.insert({status.st_dev, status.st_ino}).second) return {};
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
      take(*entry);
    }
    return error;
  }

 private:
  void take(const fs::directory_entry& entry) {
    if (entry.path().filename().native().starts_with('.')) return;
    std::error_code error;
    if (entry.is_directory(error)) {
      visit(entry.path());  // one that cannot be read is passed over
    } else if (isOpenable(entry.path().native()) && entry.is_regular_file(error)) {
      files.push_back(entry.path());
    }
  }

  std::set<std::pair<dev_t, ino_t>> _seen;
};

void addFolder(const fs::path& folder, FilesToOpen& found) {
  FolderWalk walk;
  const std::error_code failed = walk.visit(folder);
  if (failed) {
    found.problems.push_back(text::pathForDisplay(folder) + ": " + failed.message() +
                             ": make the folder readable");
  } else if (walk.files.empty()) {
    found.problems.push_back(text::pathForDisplay(folder) +
                             ": no music in this folder: choose another");
  }
  sortByPath(walk.files);
  std::move(walk.files.begin(), walk.files.end(), std::back_inserter(found.files));
}

/// A list inside a list is no music: no endless rounds.
void addPlaylist(const fs::path& list, FilesToOpen& found) {
  std::vector<fs::path> files;
  try {
    files = filesOfPlaylist(list);
  } catch (const M3UError& error) {
    found.problems.push_back(fmt::format("{}: {}: choose a playlist that can be read",
                                         text::pathForDisplay(list), error.what()));
    return;
  }
  std::size_t missing = 0;
  for (fs::path& file : files) {
    std::error_code error;
    if (isOpenable(file.native()) && fs::exists(file, error)) {
      found.files.push_back(std::move(file));
    } else {
      ++missing;
    }
  }
  if (files.empty() || missing > 0) {
    found.problems.push_back(
        text::pathForDisplay(list) +
        (files.empty() ? ": the playlist names no files: choose another"
                       : fmt::format(": {} of {} entries cannot be opened: check where they are",
                                     missing, files.size())));
  }
}

}  // namespace

bool isOpenable(std::string_view path) {
  const std::string extension = text::fileExtension(path);
  return extension == "cue" || DecoderFactory::isSupportedExtension(extension);
}

std::optional<std::string> problemWith(const fs::path& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_directory(status)) return std::nullopt;
  const std::string shown = text::pathForDisplay(path);
  if (status.type() == fs::file_type::not_found) {
    return shown + ": no such file or command: check the path, or see 'velorin --help'";
  }
  if (error) return shown + ": " + error.message() + ": make it readable";
  if (isOpenable(path.native()) || isPlaylistFile(path.native())) return std::nullopt;
  return shown +
         ": not a kind of file that the player opens: choose music files, CUE sheets, playlists or "
         "folders";
}

fs::path absolutePath(const fs::path& path) {
  std::error_code error;
  const fs::path whole = fs::absolute(path, error);
  if (error) return path;
  // What ".." means after a link only the file system knows.
  if (std::find(whole.begin(), whole.end(), "..") == whole.end()) return whole.lexically_normal();
  const fs::path resolved = fs::weakly_canonical(whole, error);
  return error ? whole : resolved;
}

FilesToOpen filesToOpen(const std::vector<fs::path>& paths) {
  FilesToOpen found;
  for (const fs::path& path : paths) {
    std::error_code error;
    if (auto problem = problemWith(path)) {
      found.problems.push_back(std::move(*problem));
    } else if (fs::is_directory(path, error)) {
      addFolder(path, found);
    } else if (isPlaylistFile(path.native())) {
      addPlaylist(path, found);
    } else {
      found.files.push_back(path);
    }
  }
  return found;
}

FilesToOpen sortedFilesToOpen(const std::vector<fs::path>& paths) {
  FilesToOpen found = filesToOpen(paths);
  sortByPath(found.files);
  return found;
}

void findFilesToOpen(std::vector<fs::path> paths, bool sorted,
                     std::function<void(FilesToOpen)> found) {
  std::thread([paths = std::move(paths), sorted, found = std::move(found)]() mutable {
    nameThisThread("com.velorin.shell.files");
    FilesToOpen files = sorted ? sortedFilesToOpen(paths) : filesToOpen(paths);
    MainThread::instance().post([found = std::move(found), files = std::move(files)]() mutable {
      found(std::move(files));
    });
  }).detach();
}

}  // namespace velorin
