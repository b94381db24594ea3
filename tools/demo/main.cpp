// velorin_demo_album FOLDER: writes a short gapless album of our own, so that a fresh checkout has
// something to play. The music is one piece, rendered once and cut; the last track is stored at
// 96 kHz and 24 bits, so that a player has to change the rate of the device for it.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "FlacWriter.h"
#include "Score.h"
#include "Synth.h"

namespace {

using namespace velorin::demo;

/// Rounds to whole samples with triangular dither from a fixed sequence.
std::vector<std::int32_t> quantise(const StereoSound& sound, std::size_t first, std::size_t last,
                                   unsigned bits) {
  const double scale = std::ldexp(1.0, static_cast<int>(bits) - 1);
  std::vector<std::int32_t> out;
  out.reserve((last - first) * 2);
  std::uint64_t state = 0x9e3779b97f4a7c15u;
  const auto uniform = [&state] {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return static_cast<double>(state >> 11) / 9007199254740992.0;
  };
  const auto push = [&](float sample) {
    const double value = std::floor(sample * scale + uniform() - uniform() + 0.5);
    out.push_back(static_cast<std::int32_t>(std::clamp(value, -scale, scale - 1)));
  };
  for (std::size_t i = first; i < last; ++i) {
    push(sound.left[i]);
    push(sound.right[i]);
  }
  return out;
}

std::filesystem::path fileOf(const std::filesystem::path& folder, std::size_t number,
                             const std::string& title) {
  return folder / ("0" + std::to_string(number) + " " + title + ".flac");
}

std::size_t frameOf(double seconds, unsigned rate) {
  return static_cast<std::size_t>(std::llround(seconds * rate));
}

bool writeAlbum(const std::filesystem::path& folder) {
  const Score score = composeDemoAlbum();
  // Neighbours of the same rate are cut from one rendering.
  StereoSound sound;
  unsigned renderedRate = 0;
  std::size_t renderedFrom = 0;
  for (std::size_t i = 0; i < score.sections.size(); ++i) {
    const Section& section = score.sections[i];
    if (section.sampleRate != renderedRate) {
      std::size_t last = i;
      while (last + 1 < score.sections.size() &&
             score.sections[last + 1].sampleRate == section.sampleRate) {
        ++last;
      }
      renderedRate = section.sampleRate;
      renderedFrom = frameOf(section.start, renderedRate);
      sound = renderScore(score, renderedRate, renderedFrom,
                          frameOf(score.sections[last].end, renderedRate));
    }
    const std::size_t first = frameOf(section.start, renderedRate) - renderedFrom;
    const std::size_t last = frameOf(section.end, renderedRate) - renderedFrom;
    const FlacSpec spec = {section.sampleRate,
                           section.bitsPerSample,
                           {{"TITLE", section.title},
                            {"ARTIST", "Velorin"},
                            {"ALBUM", "Six Small Rooms"},
                            {"TRACKNUMBER", std::to_string(i + 1)},
                            {"TRACKTOTAL", std::to_string(score.sections.size())}}};
    const auto samples = quantise(sound, first, last, section.bitsPerSample);
    if (!writeFlac(fileOf(folder, i + 1, section.title), spec, samples)) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: velorin_demo_album FOLDER\n", stderr);
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) {
    std::fprintf(stderr, "velorin_demo_album: %s: %s\n", folder.c_str(), error.message().c_str());
    return 1;
  }
  return writeAlbum(folder) ? 0 : 1;
}
