#include "library/queries/ProcessedCues.h"

namespace velorin {

using sqlite::Reader;
using sqlite::Writer;

std::unordered_map<std::string, double> ProcessedCues::fetchProcessedCues() const {
  return _database.read([](Reader& reader) {
    std::unordered_map<std::string, double> times;
    reader.each("SELECT path, lastModified FROM processedCues", [&](const sqlite::Row& row) {
      times.emplace(row.get<std::string>(0), row.get<double>(1));
    });
    return times;
  });
}

void ProcessedCues::markCueProcessed(const std::string& path, double lastModified) const {
  _database.write([&](Writer& writer) {
    writer.run("INSERT OR REPLACE INTO processedCues (path, lastModified) VALUES (?, ?)", path,
               lastModified);
  });
}

void ProcessedCues::clearProcessedCues() const {
  _database.write([](Writer& writer) { writer.run("DELETE FROM processedCues"); });
}

void ProcessedCues::forget(const std::vector<std::string>& paths) const {
  _database.write([&](Writer& writer) {
    for (const std::string& path : paths) {
      writer.run("DELETE FROM processedCues WHERE path = ?", path);
    }
  });
}

}  // namespace velorin
