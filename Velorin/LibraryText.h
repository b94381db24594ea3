// The library as commands that only look at it show it on a terminal.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "library/ConnectionQueue.h"
#include "records/TrackInfo.h"

namespace velorin {

/// Opens the library's default file for reading. Throws VelorinDatabaseError with a line that names
/// the file and says what to do.
std::shared_ptr<ConnectionQueue> openDefaultLibrary();

/// Opens it for writing; also throws where there is no library yet, which is not made.
std::shared_ptr<ConnectionQueue> openDefaultLibraryForWriting();

/// Columns that lines on standard output may take: those of the terminal, else as many as it takes.
int outputColumns();

/// 1234567 as "1,234,567".
std::string groupedText(std::int64_t number);

/// "1 track", "1,234 tracks".
std::string countText(std::int64_t count, const char* what);

/// "12 minutes", "3 hours 12 minutes", "57 days 3 hours".
std::string longDurationText(double seconds);

/// "812 bytes", "1.5 MB", "512.3 GB": powers of 1000.
std::string sizeText(std::int64_t bytes);

/// The year of the track, else of its album; "" where it is not known.
std::string yearText(const TrackInfo& info);

/// The format and what it holds: "FLAC 16bit / 44.1 kHz", "MP3 320 kbps", "DSD64".
std::string formatAndQuality(const Track& track);

}  // namespace velorin
