// The demo album as a score: what is played when. No sound here.
#pragma once

#include <string>
#include <vector>

namespace velorin::demo {

enum class Voice { pad, pluck, bell, bass, kick, brush };

/// One note of the piece.
struct Note {
  Voice voice = Voice::pad;
  double start = 0;      ///< seconds from the start of the piece
  double duration = 0;   ///< seconds until release
  double frequency = 0;  ///< Hz; ignored by the percussion
  double level = 0;      ///< 0 to 1
  double pan = 0;        ///< -1 left to 1 right
};

/// One track: a stretch of the piece and how it is stored.
struct Section {
  std::string title;
  double start = 0;  ///< seconds from the start of the piece
  double end = 0;    ///< seconds; the next section starts here
  unsigned sampleRate = 44100;
  unsigned bitsPerSample = 16;
};

struct Score {
  std::vector<Section> sections;
  std::vector<Note> notes;  ///< by start
};

/// The whole piece: six sections in different keys and tempos that flow into each other. The same
/// on every call.
Score composeDemoAlbum();

}  // namespace velorin::demo
