#include <fmt/format.h>

#include <cstdio>
#include <vector>

#include "Commands.h"
#include "Console.h"
#include "FileFacts.h"
#include "JsonOutput.h"
#include "SignalPathText.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

JsonObject json(const FileFacts& file) {
  JsonObject object;
  object.add("path", file.path.native())
      .add("format", file.format)
      .add("sampleRate", file.sampleRate)
      .add("bitsPerSample", file.bitsPerSample)
      .add("channels", file.channels)
      .add("totalSamples", file.totalFrames)
      .add("duration", file.duration())
      .add("fileSize", file.fileSize);
  const auto addText = [&object](const char* key, const std::string& value) {
    if (value.empty()) {
      object.addNull(key);
    } else {
      object.add(key, value);
    }
  };
  addText("md5", file.md5);
  addText("title", file.title);
  addText("artist", file.artist);
  addText("album", file.album);
  addText("trackNumber", file.trackNumber);
  return object;
}

void print(const FileFacts& file) {
  const auto line = [](const char* name, const std::string& value) {
    if (!value.empty()) fmt::print("  {:<10} {}\n", name, text::escapeForTerminal(value));
  };
  fmt::print("{}\n", text::pathForDisplay(file.path));
  line("format", formatText(file));
  line("channels", std::to_string(file.channels));
  line("duration", file.totalFrames == 0 ? "not stated"
                                         : fmt::format("{} ({} samples)", timeText(file.duration()),
                                                       file.totalFrames));
  line("size", fmt::format("{} bytes", file.fileSize));
  line("md5", file.md5);
  line("title", file.title);
  line("artist", file.artist);
  line("album", file.album);
  line("track", file.trackNumber);
}

}  // namespace

int runInfo(const InfoOptions& options) {
  int exitCode = kExitSuccess;
  std::vector<JsonObject> objects;
  for (const auto& path : options.inputs) {
    const auto facts = readAndProbeFile(path);
    if (!facts) {
      std::fflush(stdout);
      reportError(text::pathForDisplay(path) + ": " + facts.error().text);
      exitCode = kExitFailure;
    } else if (options.json) {
      objects.push_back(json(facts.value()));
    } else {
      print(facts.value());
    }
  }
  if (options.json) fmt::print("{}\n", JsonObject::list(objects));
  const int written = finishOutput();
  return exitCode != kExitSuccess ? exitCode : written;
}

}  // namespace velorin
