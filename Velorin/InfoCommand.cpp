#include <fmt/format.h>

#include <cstdio>
#include <vector>

#include "Commands.h"
#include "Console.h"
#include "FileFacts.h"
#include "JsonOutput.h"
#include "LibraryJson.h"
#include "SignalPathText.h"
#include "engine/decoders/DecoderFactory.h"
#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/metadata/FileName.h"
#include "library/metadata/MetadataExtractor.h"
#include "library/metadata/TagText.h"

namespace velorin {
namespace {

/// What the library would keep of a file, and what the player's own decoder says of it.
struct FileReport {
  std::filesystem::path path;
  ScannedItem item;
  std::optional<FileFacts> decoded;  ///< of files that the player decodes itself

  std::optional<std::string> artist() const {
    return item.artistName == kUnknownArtist ? std::nullopt : std::optional(item.artistName);
  }
  std::optional<std::string> album() const {
    return item.albumTitle == kUnknownAlbum ? std::nullopt : std::optional(item.albumTitle);
  }
  std::optional<std::string> md5() const {
    return decoded && !decoded->md5.empty() ? std::optional(decoded->md5) : std::nullopt;
  }
  /// Bits of a sample; nothing for lossy formats.
  std::optional<int> depth() const {
    if (!decoded) return item.track.bitDepth;
    if (!decoded->isLossless || decoded->bitsPerSample == 0) return std::nullopt;
    return static_cast<int>(decoded->bitsPerSample);
  }
  /// Of the sound as the file has it; nothing where it does not tell.
  std::optional<std::uint64_t> samples() const {
    if (!decoded || decoded->totalFrames == 0) return std::nullopt;
    return decoded->totalSamples();
  }
  /// Hz; of DSD the one-bit rate.
  std::optional<int> rate() const {
    if (!decoded) return item.track.sampleRate;
    return static_cast<int>(decoded->dsdRate > 0 ? decoded->dsdRate : decoded->sampleRate);
  }
  double duration() const { return samples() ? decoded->duration() : item.track.duration; }
};

Result<FileReport, FileError> report(const std::filesystem::path& path) {
  FileReport result{path, {}, {}};
  const std::string& bytes = path.native();
  if (DecoderFactory::isSupportedExtension(text::fileExtension(bytes))) {
    auto decoded = readAndProbeFile(path);
    if (!decoded) return decoded.error();
    result.decoded = std::move(decoded).value();
  }
  // The question is what the file holds; the names of folders are none of it.
  const std::string folder(parentFolder(bytes));
  auto extracted = MetadataExtractor().extract(bytes, {folder}, nullptr);
  if (!extracted) return FileError{extracted.error().reason};
  result.item = std::move(extracted).value();
  return result;
}

template <class T>
void addTo(JsonObject& object, const char* key, const std::optional<T>& value) {
  if (value) {
    object.add(key, *value);
  } else {
    object.addNull(key);
  }
}

JsonObject json(const FileReport& file) {
  const Track& track = file.item.track;
  JsonObject object;
  const auto add = [&object](const char* key, const auto& value) { addTo(object, key, value); };
  object.add("path", file.path.native());
  add("format", track.format);
  add("codec", file.decoded ? std::optional(file.decoded->format) : std::nullopt);
  add("lossless", file.decoded ? std::optional(file.decoded->isLossless) : std::nullopt);
  add("float", file.decoded ? std::optional(file.decoded->isFloat) : std::nullopt);
  add("sampleRate", file.rate());
  add("bitsPerSample", file.depth());
  add("channels", track.channels);
  add("bitRate", track.bitRate);
  add("totalSamples", file.samples());
  object.add("duration", file.duration());
  add("fileSize", track.fileSize);
  add("lastModified",
      track.lastModified ? std::optional(jsonMoment(*track.lastModified)) : std::nullopt);
  add("md5", file.md5());
  object.add("title", track.title);
  add("artist", file.artist());
  add("album", file.album());
  add("trackNumber", track.trackNumber);
  add("discNumber", track.discNumber);
  add("year", file.item.year);
  add("genre", track.genre);
  add("composer", track.composer);
  add("conductor", track.conductor);
  add("comment", track.comment);
  add("lyrics", track.lyrics);
  add("replayGainTrackGain", track.replayGainTrackGain);
  add("replayGainAlbumGain", track.replayGainAlbumGain);
  add("replayGainTrackPeak", track.replayGainTrackPeak);
  add("replayGainAlbumPeak", track.replayGainAlbumPeak);
  return object;
}

/// "FLAC 44.1 kHz 16-bit", "MP3 44.1 kHz 192 kbit/s", "DSF DSD64 2822.4 kHz 1-bit".
std::string formatLine(const FileReport& file) {
  const Track& track = file.item.track;
  std::string text = file.decoded ? file.decoded->format : track.format.value_or("");
  if (file.decoded && file.decoded->dsdRate > 0) text += " " + dsdText(file.decoded->dsdRate);
  if (const auto rate = file.rate()) text += " " + rateText(*rate);
  if (const auto depth = file.depth()) text += fmt::format(" {}-bit", *depth);
  if (file.decoded && file.decoded->isFloat && file.depth()) text += " float";
  if (track.bitRate) text += fmt::format(" {} kbit/s", (*track.bitRate + 500) / 1000);
  return text;
}

std::string durationLine(const FileReport& file) {
  if (file.duration() <= 0) return "not stated";
  const std::string time = timeText(file.duration());
  return file.samples() ? fmt::format("{} ({} samples)", time, *file.samples()) : time;
}

void print(const FileReport& file) {
  const Track& track = file.item.track;
  const auto line = [](const char* name, const auto& value) {
    if (value)
      fmt::print("  {:<10} {}\n", name, text::escapeForTerminal(fmt::format("{}", *value)));
  };
  const auto gainLine = [](const char* name, const auto& gain, const auto& peak) {
    if (gain) fmt::print("  {:<10} {:+.2f} dB\n", name, *gain);
    if (peak) fmt::print("  {:<10} peak {:.6f}\n", name, *peak);
  };
  fmt::print("{}\n", text::pathForDisplay(file.path));
  line("format", std::optional(formatLine(file)));
  line("channels", track.channels);
  line("duration", std::optional(durationLine(file)));
  fmt::print("  {:<10} {} bytes\n", "size", track.fileSize.value_or(0));
  line("md5", file.md5());
  line("title", std::optional(track.title));
  line("artist", file.artist());
  line("album", file.album());
  line("track", track.trackNumber);
  line("disc", track.discNumber);
  line("year", file.item.year);
  line("genre", track.genre);
  line("composer", track.composer);
  line("conductor", track.conductor);
  line("comment", track.comment);
  line("lyrics", track.lyrics);
  gainLine("track gain", track.replayGainTrackGain, track.replayGainTrackPeak);
  gainLine("album gain", track.replayGainAlbumGain, track.replayGainAlbumPeak);
}

}  // namespace

int runInfo(const InfoOptions& options) {
  // What a reader tried before another could read the file is of no use here.
  log::configure(log::Level::error, /*useJournalIfConnected=*/false);
  int exitCode = kExitSuccess;
  std::vector<JsonObject> objects;
  for (const auto& path : options.inputs) {
    const auto file = report(path);
    if (!file) {
      std::fflush(stdout);
      reportError(text::pathForDisplay(path) + ": " + file.error().text);
      exitCode = kExitFailure;
    } else if (options.json) {
      objects.push_back(json(file.value()));
    } else {
      print(file.value());
    }
  }
  if (options.json) fmt::print("{}\n", JsonObject::list(objects));
  const int written = finishOutput();
  return exitCode != kExitSuccess ? exitCode : written;
}

}  // namespace velorin
