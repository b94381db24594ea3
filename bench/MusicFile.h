// FLAC files to measure with, made at run time.
#pragma once

#include <cstdint>
#include <filesystem>

namespace velorin::bench {

struct MusicSpec {
  unsigned sampleRate = 44100;
  unsigned bits = 16;  ///< 16 or 24
  unsigned seconds = 180;
  /// The right channel stands at +marker in odd seconds and at -marker in even ones instead of
  /// playing along, so that a listener knows where in the file it is. 0 to 1; 0 for none.
  double marker = 0;
};

/// Stereo: plucked chords with their harmonics over a noise floor, at libFLAC's default level.
/// Compresses like recorded music, to a little more than half. The same bytes every time. Throws
/// std::runtime_error when the file cannot be written.
void writeMusicFile(const std::filesystem::path& path, const MusicSpec& spec);

/// A folder for such files, removed with the object.
class BenchFolder {
 public:
  BenchFolder();
  ~BenchFolder();
  BenchFolder(const BenchFolder&) = delete;
  BenchFolder& operator=(const BenchFolder&) = delete;
  std::filesystem::path operator/(const char* name) const { return _path / name; }

 private:
  std::filesystem::path _path;
};

}  // namespace velorin::bench
