// The floors of the house: what a file includes stands on its own floor or below, headers do not
// include each other in a circle, and every quoted include is rooted at VelorinLib.

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <set>

#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

namespace fs = std::filesystem;

// Lowest first. Floors of one row do not include each other.
const std::vector<std::vector<std::string>> kFloors{
    {"foundation"}, {"platform"}, {"records"},
    {"dsp"},        {"engine"},   {"library"},
    {"analysis"},   {"session"},  {"remote", "services", "ui"},
    {"Velorin"}};

std::optional<std::size_t> rankOf(const std::string& floor) {
  for (std::size_t rank = 0; rank < kFloors.size(); ++rank) {
    if (std::find(kFloors[rank].begin(), kFloors[rank].end(), floor) != kFloors[rank].end()) {
      return rank;
    }
  }
  return std::nullopt;
}

std::string floorOf(const std::string& file) {
  return file.substr(0, file.find('/'));
}

/// The quoted includes of each source file; files are named as they are included, those of the
/// program with "Velorin/" before.
using Includes = std::map<std::string, std::vector<std::string>>;

std::vector<std::string> quotedIncludesOf(const fs::path& file) {
  std::vector<std::string> found;
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    const std::size_t hash = line.find_first_not_of(" \t");
    if (hash == std::string::npos || line[hash] != '#') continue;
    const std::size_t word = line.find_first_not_of(" \t", hash + 1);
    if (word == std::string::npos || line.compare(word, 7, "include") != 0) continue;
    const std::size_t open = line.find('"', word);
    const std::size_t close = line.find('"', open + 1);
    if (open == std::string::npos || close == std::string::npos) continue;
    found.push_back(line.substr(open + 1, close - open - 1));
  }
  return found;
}

Includes scan(const fs::path& root) {
  static const std::set<std::string> kSources{".h", ".hpp", ".cpp", ".c", ".inl"};
  Includes includes;
  for (const auto& [folder, prefix] :
       {std::pair<std::string, std::string>{"VelorinLib", ""}, {"Velorin", "Velorin/"}}) {
    for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
      if (!entry.is_regular_file() || !kSources.contains(entry.path().extension())) continue;
      const std::string name =
          prefix + entry.path().lexically_relative(root / folder).generic_string();
      includes[name] = quotedIncludesOf(entry.path());
    }
  }
  return includes;
}

/// What an include means: a name in the table, or nothing. The program may leave "Velorin/" away.
std::optional<std::string> resolve(const Includes& includes, const std::string& from,
                                   const std::string& included) {
  if (includes.contains(included)) return included;
  const std::string own = "Velorin/" + included;
  if (floorOf(from) == "Velorin" && includes.contains(own)) return own;
  return std::nullopt;
}

void findCycles(const Includes& includes, const std::string& file, std::vector<std::string>& path,
                std::set<std::string>& done, std::vector<std::string>& problems) {
  if (const auto start = std::find(path.begin(), path.end(), file); start != path.end()) {
    std::string circle = "circle: ";
    for (auto it = start; it != path.end(); ++it) circle += *it + " -> ";
    problems.push_back(circle + file);
    return;
  }
  if (done.contains(file)) return;
  path.push_back(file);
  for (const std::string& included : includes.at(file)) {
    if (const auto target = resolve(includes, file, included)) {
      findCycles(includes, *target, path, done, problems);
    }
  }
  path.pop_back();
  done.insert(file);
}

std::vector<std::string> check(const Includes& includes) {
  std::vector<std::string> problems;
  std::set<std::string> done;
  for (const auto& [file, list] : includes) {
    const auto rank = rankOf(floorOf(file));
    if (!rank) {
      problems.push_back("no such floor: " + file);
      continue;
    }
    for (const std::string& included : list) {
      const auto target = resolve(includes, file, included);
      if (!target) {
        problems.push_back("not rooted: " + file + " includes " + included);
        continue;
      }
      const auto targetRank = rankOf(floorOf(*target));
      if (floorOf(*target) != floorOf(file) && (!targetRank || *targetRank >= *rank)) {
        problems.push_back("upward: " + file + " includes " + *target);
      }
    }
    std::vector<std::string> path;
    findCycles(includes, file, path, done, problems);
  }
  return problems;
}

TEST(Floors, EveryIncludePointsDown) {
  const Includes includes = scan(VELORIN_SOURCE_DIR);
  ASSERT_GT(includes.size(), 20U) << "the sources were not found";
  EXPECT_TRUE(includes.contains("foundation/Log.h"));
  for (const std::string& problem : check(includes)) ADD_FAILURE() << problem;
}

// The check itself: a small house with one fault of each kind.
TEST(Floors, TheCheckFindsFaults) {
  const test::TemporaryFolder root;
  const auto put = [&](const std::string& name, const std::string& content) {
    fs::create_directories((root / name).parent_path());
    std::ofstream(root / name) << content;
  };
  put("VelorinLib/foundation/A.h", "#include <vector>\n#include \"foundation/B.h\"\n");
  put("VelorinLib/foundation/B.h", "// #include \"engine/E.h\"\n\t# include \"foundation/C.h\"\n");
  put("VelorinLib/foundation/C.h", "#include \"foundation/B.h\"\n");
  put("VelorinLib/records/R.cpp", "#include \"engine/E.h\"\n#include \"foundation/A.h\"\n");
  put("VelorinLib/engine/E.h", "#include \"E2.h\"\n#include \"records/Gone.h\"\n");
  put("VelorinLib/engine/E2.h", "");
  put("VelorinLib/ui/U.cpp", "#include \"remote/R.h\"\n");
  put("VelorinLib/remote/R.h", "");
  put("VelorinLib/attic/X.h", "");
  put("Velorin/main.cpp",
      "#include \"Velorin/App.h\"\n#include \"engine/E.h\"\n#include \"App.h\"\n");
  put("Velorin/App.h", "");
  put("Velorin/notes.txt", "#include \"nowhere\"\n");
  const std::vector<std::string> expected{
      "circle: foundation/B.h -> foundation/C.h -> foundation/B.h",
      "no such floor: attic/X.h",
      "not rooted: engine/E.h includes E2.h",
      "not rooted: engine/E.h includes records/Gone.h",
      "upward: records/R.cpp includes engine/E.h",
      "upward: ui/U.cpp includes remote/R.h"};
  auto problems = check(scan(root.path()));
  std::sort(problems.begin(), problems.end());
  EXPECT_EQ(problems, expected);
}

}  // namespace
}  // namespace velorin
