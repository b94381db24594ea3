// Sound files of known samples, by the real encoders.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace velorin::test {

/// Raw interleaved words as an encoder takes them, stereo; the second channel is the first negated
/// and halved.
struct RawSound {
  std::string format;  ///< FFmpeg's name of the words: "s16le"
  std::string bytes;
  int rate = 44'100;

  template <class Word>
  void add(Word value, std::size_t size = sizeof(Word)) {
    bytes.append(reinterpret_cast<const char*>(&value), size);
  }
};

/// A tone of 440 Hz that slowly rises, from a frame on.
inline RawSound risingTone(std::size_t from, std::size_t frames) {
  RawSound sound{.format = "f32le", .bytes = {}};
  for (std::size_t i = from; i < from + frames; ++i) {
    const double t = static_cast<double>(i) / 44'100;
    const double value = 0.5 * std::sin(2 * std::numbers::pi * (440 * t + 50 * t * t));
    sound.add(static_cast<float>(value));
    sound.add(static_cast<float>(-value / 2));
  }
  return sound;
}

/// Writes the file; `options` are FFmpeg's for the output. Fails the test where it cannot.
inline std::filesystem::path encode(const RawSound& sound, const std::filesystem::path& file,
                                    std::vector<std::string> options) {
  const std::filesystem::path raw = file.string() + ".raw";
  std::ofstream(raw, std::ios::binary) << sound.bytes;
  std::vector<std::string> command = {"ffmpeg",     "-nostdin", "-v",
                                      "error",      "-y",       "-f",
                                      sound.format, "-ar",      std::to_string(sound.rate),
                                      "-ac",        "2",        "-i",
                                      raw};
  command.insert(command.end(), options.begin(), options.end());
  command.push_back(file);
  const std::string said = runProgram(command, std::chrono::seconds(60));
  EXPECT_TRUE(std::filesystem::exists(file)) << said;
  std::filesystem::remove(raw);
  return file;
}

}  // namespace velorin::test
