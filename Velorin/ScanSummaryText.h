// What a scan did, as its command tells it.
#pragma once

#include <string>
#include <vector>

#include "JsonOutput.h"
#include "library/scan/ScanReport.h"

namespace velorin {

/// "scanned 20,000 files in 4.2 s: 19,990 imported, 10 failed".
std::string summaryLine(const ScanSummary& summary);

/// What went wrong, a line each, escaped for a terminal: files that failed and folders that could
/// not be read, of each kind the first `most` and a line about the others.
std::vector<std::string> problemLines(const ScanSummary& summary, std::size_t most);

JsonObject json(const ScanSummary& summary);

/// True when all music folders were seen and everything that was read was stored. Files that could
/// not be read are told, and are no failure of the scan.
bool hasSucceeded(const ScanSummary& summary);

}  // namespace velorin
