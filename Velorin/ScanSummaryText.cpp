#include "ScanSummaryText.h"

#include <fmt/format.h>

#include <cstring>

#include "LibraryText.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

std::string number(std::size_t value) {
  return groupedText(static_cast<std::int64_t>(value));
}

std::string count(std::size_t value, const char* what) {
  return countText(static_cast<std::int64_t>(value), what);
}

std::string reasonOf(const UnseenFolder& folder) {
  if (folder.error == ENOENT) return "leads to nothing that is there now";
  if (folder.error == ENODEV) {
    return "its volume is not there now, its tracks are kept: mount it and scan again";
  }
  return fmt::format("cannot be read: {}", std::strerror(folder.error));
}

template <class List, class Line>
void addLines(std::vector<std::string>& lines, const List& list, std::size_t total,
              std::size_t most, const char* what, Line&& line) {
  for (std::size_t i = 0; i < list.size() && i < most; ++i) lines.push_back(line(list[i]));
  const std::size_t named = std::min(list.size(), most);
  if (named < total) lines.push_back(fmt::format("and {} more", count(total - named, what)));
}

std::vector<JsonObject> pathObjects(const std::vector<std::string>& paths) {
  std::vector<JsonObject> objects;
  for (const std::string& path : paths) objects.emplace_back().add("path", path);
  return objects;
}

}  // namespace

std::string summaryLine(const ScanSummary& summary) {
  const ScanFigures& figures = summary.figures;
  std::string line =
      fmt::format("{} {} in {:.1f} s: {} imported", summary.cancelled ? "stopped after" : "scanned",
                  count(figures.discovered, "file"), summary.seconds,
                  number(figures.inserted - figures.withdrawn));
  const auto add = [&](std::size_t value, const char* what) {
    if (value > 0) line += fmt::format(", {} {}", number(value), what);
  };
  add(figures.existing, "there already");
  add(figures.deleted - figures.withdrawn, "removed");
  add(figures.failed, "failed");
  add(figures.lost, "not stored");
  if (summary.cancelled) line += "; 'velorin scan' goes on";
  return line;
}

std::vector<std::string> problemLines(const ScanSummary& summary, std::size_t most) {
  std::vector<std::string> lines;
  addLines(lines, summary.failures, summary.figures.failed, most, "file",
           [](const ScanFailure& failure) {
             return text::pathForDisplay(failure.path) + ": " +
                    text::escapeForTerminal(failure.reason);
           });
  addLines(lines, summary.unseen, summary.unseenCount, most, "folder",
           [](const UnseenFolder& folder) {
             return text::pathForDisplay(folder.path) + ": " + reasonOf(folder);
           });
  for (const std::string& path : summary.offline) {
    lines.push_back(text::pathForDisplay(path) +
                    ": not there now, its tracks are kept: mount it and scan again");
  }
  for (const std::string& path : summary.stalled) {
    lines.push_back(text::pathForDisplay(path) +
                    ": did not answer in time, its tracks are kept: scan again");
  }
  addLines(lines, summary.errors, summary.errors.size(), most, "error",
           [](const std::string& error) { return text::escapeForTerminal(error); });
  return lines;
}

JsonObject json(const ScanSummary& summary) {
  const ScanFigures& figures = summary.figures;
  std::vector<JsonObject> failures;
  for (const ScanFailure& failure : summary.failures) {
    failures.emplace_back().add("path", failure.path).add("reason", failure.reason);
  }
  std::vector<JsonObject> unseen;
  for (const UnseenFolder& folder : summary.unseen) {
    unseen.emplace_back().add("path", folder.path).add("reason", reasonOf(folder));
  }
  std::vector<JsonObject> errors;
  for (const std::string& error : summary.errors) errors.emplace_back().add("error", error);
  JsonObject object;
  object.add("complete", !summary.cancelled && hasSucceeded(summary))
      .add("stopped", summary.cancelled)
      .add("seconds", summary.seconds)
      .add("found", static_cast<std::uint64_t>(figures.discovered))
      .add("imported", static_cast<std::uint64_t>(figures.inserted - figures.withdrawn))
      .add("existing", static_cast<std::uint64_t>(figures.existing))
      .add("removed", static_cast<std::uint64_t>(figures.deleted - figures.withdrawn))
      .add("failed", static_cast<std::uint64_t>(figures.failed))
      .add("notStored", static_cast<std::uint64_t>(figures.lost))
      .add("failures", failures)
      .add("unreadableFolders", unseen)
      .add("offlineFolders", pathObjects(summary.offline))
      .add("stalledFolders", pathObjects(summary.stalled))
      .add("errors", errors);
  return object;
}

bool hasSucceeded(const ScanSummary& summary) {
  return !summary.cancelled && summary.offline.empty() && summary.stalled.empty() &&
         summary.errors.empty();
}

}  // namespace velorin
