#include "PlayList.h"

#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <system_error>
#include <utility>

#include "engine/decoders/DecoderFactory.h"
#include "foundation/Text.h"

namespace velorin {
namespace fs = std::filesystem;
namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// The digits at `at`, without leading zeros; moves `at` behind them.
std::string_view number(std::string_view text, std::size_t& at) {
  while (at < text.size() && text[at] == '0') ++at;
  const std::size_t begin = at;
  while (at < text.size() && isDigit(text[at])) ++at;
  return text.substr(begin, at - begin);
}

/// -1, 0 or 1 by natural order, with numbers that differ in leading zeros taken as equal.
int compareNaturally(std::string_view a, std::string_view b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (isDigit(a[i]) && isDigit(b[j])) {
      const std::string_view left = number(a, i);
      const std::string_view right = number(b, j);
      if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
      if (const int order = left.compare(right); order != 0) return order < 0 ? -1 : 1;
      continue;
    }
    const auto left = static_cast<unsigned char>(lower(a[i++]));
    const auto right = static_cast<unsigned char>(lower(b[j++]));
    if (left != right) return left < right ? -1 : 1;
  }
  return static_cast<int>(j == b.size()) - static_cast<int>(i == a.size());
}

/// Collects the files below one folder.
class FolderWalk {
 public:
  std::vector<fs::path> files;

  std::error_code visit(const fs::path& folder) {
    struct stat status {};
    // A folder that was seen already: a link back up, or the same folder by two links.
    if (::stat(folder.c_str(), &status) != 0) return {errno, std::generic_category()};
    if (!_seen.insert({status.st_dev, status.st_ino}).second) return {};
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    if (error) return error;
    std::vector<fs::path> names;
    for (; entries != fs::directory_iterator(); entries.increment(error)) {
      names.push_back(entries->path().filename());
      if (error) break;
    }
    std::sort(names.begin(), names.end(), [](const fs::path& a, const fs::path& b) {
      return naturalLess(a.native(), b.native());
    });
    for (const fs::path& name : names) take(folder / name);
    return {};
  }

 private:
  void take(const fs::path& path) {
    if (path.filename().native().starts_with('.')) return;
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status)) {
      visit(path);  // a sub-folder that cannot be read is passed over
    } else if (fs::is_regular_file(status) &&
               DecoderFactory::isSupportedExtension(text::fileExtension(path.native()))) {
      files.push_back(path);
    }
  }

  std::set<std::pair<dev_t, ino_t>> _seen;
};

}  // namespace

bool naturalLess(std::string_view a, std::string_view b) noexcept {
  const int order = compareNaturally(a, b);
  return order != 0 ? order < 0 : a < b;
}

PlayList expandInputs(const std::vector<fs::path>& inputs) {
  PlayList list;
  for (const fs::path& input : inputs) {
    const std::string shown = text::pathForDisplay(input);
    std::error_code error;
    if (!fs::is_directory(input, error)) {
      // Whether a file can be played is for the decoder to say when its turn comes.
      list.files.push_back(input);
      continue;
    }
    FolderWalk walk;
    if (const std::error_code failed = walk.visit(input)) {
      list.problems.push_back(shown + ": " + failed.message() + ": make the folder readable");
    } else if (walk.files.empty()) {
      list.problems.push_back(shown + ": no music in this folder: choose one with FLAC files");
    }
    std::move(walk.files.begin(), walk.files.end(), std::back_inserter(list.files));
  }
  return list;
}

}  // namespace velorin
