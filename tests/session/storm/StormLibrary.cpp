#include "session/storm/StormLibrary.h"

#include <fmt/format.h>

#include <fstream>

#include "session/storm/TrackEar.h"
#include "support/FlacFixture.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;

struct Part {
  double start = 0;
  double end = 0;
};

struct Tune {
  std::string file;
  unsigned rate = 44100;
  unsigned bits = 16;
  unsigned channels = 2;
  double seconds = 1;
  std::vector<Part> cue = {};  // its tracks; the file has a sound for each whole second
  double shareOfBytes = 1;     // what is left of the file
};

const std::vector<Tune> kTunes = {
    {.file = "short", .seconds = 0.2},
    {.file = "plain", .seconds = 0.7},
    {.file = "second", .seconds = 1.2},
    {.file = "deep", .bits = 24, .seconds = 1.7},
    {.file = "dat", .rate = 48000, .seconds = 0.8},
    {.file = "high", .rate = 96000, .bits = 24, .seconds = 1.0},
    {.file = "mono", .channels = 1, .seconds = 0.7},
    {.file = "coarse", .bits = 8, .seconds = 0.5},
    {.file = "surround", .rate = 48000, .bits = 24, .channels = 6, .seconds = 0.9},
    {.file = "tiny", .seconds = 0.006},
    {.file = "album", .seconds = 3, .cue = {{0, 1}, {1, 2}, {2, 3}}},
    {.file = "holes", .rate = 48000, .seconds = 3, .cue = {{0, 1}, {2, 3}}},
    {.file = "cut", .seconds = 1.5, .shareOfBytes = 0.6},
    {.file = "outside", .seconds = 0.6},
    {.file = "outside2", .rate = 48000, .seconds = 0.9},
};
constexpr std::size_t kExternals = 2;  // the last ones

std::string keyOf(const fs::path& path, const std::optional<double>& cueStart) {
  return path.stem().string() + (cueStart ? fmt::format(" {}", *cueStart) : "");
}

}  // namespace

StormLibrary::StormLibrary() {
  database = std::make_shared<DatabaseManager>(library.database().dbQueue());
  std::vector<std::int64_t> ids;
  const auto add = [&](const fs::path& path, double seconds, const std::optional<Part>& part) {
    const std::int64_t id =
        library.add({.title = test::keyOf(path, part ? std::optional(part->start) : std::nullopt),
                     .path = path.string(),
                     .duration = part ? part->end - part->start : seconds,
                     .cueStart = part ? std::optional(part->start) : std::nullopt});
    if (part) library.run("UPDATE tracks SET cueEndTime = ? WHERE id = ?", part->end, id);
    ids.push_back(id);
  };

  int sounds = 0;
  for (std::size_t i = 0; i < kTunes.size(); ++i) {
    const Tune& tune = kTunes[i];
    const fs::path path = _folder / (tune.file + ".flac");
    std::vector<double> angles;
    for (std::size_t s = 0; s < (tune.cue.empty() ? 1 : 3); ++s) {
      angles.push_back(++sounds * 4.0 / 180 * std::numbers::pi);
    }
    FlacFixture made =
        FlacFixture::make({.channels = tune.channels,
                           .bits = tune.bits,
                           .sampleRate = tune.rate,
                           .frames = static_cast<std::uint32_t>(tune.seconds * tune.rate),
                           .signal = FlacRecipe::Signal::steady,
                           .angles = angles});
    const auto soundAt = [&](double second) {
      const auto frame = static_cast<std::size_t>(second * tune.rate);
      if (tune.channels == 1) return TrackEar::kAngleOfMono;
      return std::atan2(made.samples[1][frame], made.samples[0][frame]);
    };
    made.bytes.resize(
        static_cast<std::size_t>(static_cast<double>(made.bytes.size()) * tune.shareOfBytes));
    made.write(path);
    if (i + kExternals >= kTunes.size()) {
      _angles[test::keyOf(path, {})] = soundAt(0);
      externals.push_back(path);
      fs::copy_file(path, path.string() + ".kept");
      continue;
    }
    if (tune.cue.empty()) {
      _angles[test::keyOf(path, {})] = soundAt(0);
      add(path, tune.seconds, std::nullopt);
    }
    for (const Part& part : tune.cue) {
      _angles[test::keyOf(path, part.start)] = soundAt(part.start);
      add(path, tune.seconds, part);
    }
  }
  std::ofstream(_folder / "garbage.flac") << "fLaC, but not for long";
  add(_folder / "garbage.flac", 2, std::nullopt);
  add(_folder / "missing.flac", 2, std::nullopt);
  tracks = database->tracks().fetchTracks(ids);
}

void StormLibrary::toggle(const fs::path& external) const {
  if (!fs::remove(external)) fs::copy_file(external.string() + ".kept", external);
}

std::string StormLibrary::keyOf(const Track& track) {
  return test::keyOf(track.filePath, track.cueStartTime);
}

std::string StormLibrary::keyOfAngle(double angle) const {
  for (const auto& [key, own] : _angles) {
    if (std::abs(own - angle) < 2 * TrackEar::kSameAngle) return key;
  }
  return {};
}

std::string StormLibrary::keyOfId(std::int64_t id) const {
  for (const TrackInfo& info : tracks) {
    if (info.track.id == id) return keyOf(info.track);
  }
  return {};
}

}  // namespace velorin::test
