#include "Score.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace velorin::demo {
namespace {

constexpr std::array<int, 7> kMajor = {0, 2, 4, 5, 7, 9, 11};
constexpr std::array<int, 7> kMinor = {0, 2, 3, 5, 7, 8, 10};
constexpr int kBeatsPerBar = 4;

/// What makes one section sound different from the others.
struct Style {
  const char* title;
  int tonic;  ///< MIDI note of the key in the octave of the chords
  bool minor;
  double beatsPerMinute;
  std::vector<int> chords;      ///< scale degree of each bar, 0 is the tonic
  std::array<int, 8> arpeggio;  ///< chord tone of each eighth; -1 rests
  std::array<int, 4> melody;    ///< scale steps above the chord's root, one a beat; -1 rests
  int percussionFromBar;        ///< first bar with kick and brushes; -1 for none
  unsigned sampleRate = 44100;
  unsigned bitsPerSample = 16;
};

const std::array<Style, 6>& styles() {
  static const std::array<Style, 6> all = {{
      {"First Light",
       60,
       false,
       84,
       {0, 5, 3, 4, 0, 5, 3, 4, 3, 4},
       {0, 1, 2, 3, 2, 1, 2, 1},
       {-1, 4, -1, 2},
       4},
      {"Harbour Bells",
       55,
       false,
       96,
       {0, 4, 5, 3, 0, 4, 3, 4, 5, 3, 1, 4},
       {0, 2, 1, 2, 3, 2, 1, 2},
       {4, -1, 2, 1},
       0},
      {"Copper Rain",
       57,
       true,
       104,
       {0, 5, 2, 6, 0, 5, 3, 4, 0, 5, 2, 6},
       {0, 1, 2, 1, 3, 1, 2, 1},
       {-1, 2, 4, -1},
       0},
      {"Night Ferry",
       62,
       true,
       72,
       {0, 3, 5, 6, 0, 3, 4, 0},
       {0, -1, 2, -1, 3, -1, 1, -1},
       {2, -1, 4, -1},
       -1},
      {"Paper Lanterns",
       53,
       false,
       112,
       {0, 3, 0, 4, 5, 3, 1, 4, 0, 3, 4, 0},
       {3, 2, 1, 0, 3, 2, 1, 2},
       {4, 2, -1, 5},
       0},
      {"Open Water",
       50,
       false,
       88,
       {0, 4, 5, 3, 0, 3, 4, 0},
       {0, 1, 2, 3, 2, 3, 2, 1},
       {2, -1, 4, 1},
       -1,
       96000,
       24},
  }};
  return all;
}

double frequencyOf(int midiNote) {
  return 440.0 * std::exp2((midiNote - 69) / 12.0);
}

/// The MIDI note of a scale step counted from the tonic; steps beyond 6 go on in the next octave.
int scaleNote(const Style& style, int step) {
  const auto& scale = style.minor ? kMinor : kMajor;
  const int octave = step >= 0 ? step / 7 : -((6 - step) / 7);
  return style.tonic + 12 * octave + scale[static_cast<std::size_t>(step - 7 * octave)];
}

/// Writes one bar after the other into the score.
class Composer {
 public:
  Score compose() {
    for (const Style& style : styles()) {
      const double begin = _time;
      for (std::size_t bar = 0; bar < style.chords.size(); ++bar) {
        writeBar(style, static_cast<int>(bar));
        _time += barLength(style);
      }
      _score.sections.push_back({style.title, begin, _time, style.sampleRate, style.bitsPerSample});
    }
    writeEnding(styles().back());
    std::stable_sort(_score.notes.begin(), _score.notes.end(),
                     [](const Note& a, const Note& b) { return a.start < b.start; });
    return std::move(_score);
  }

 private:
  static double beatLength(const Style& style) { return 60.0 / style.beatsPerMinute; }
  static double barLength(const Style& style) { return kBeatsPerBar * beatLength(style); }

  void add(Voice voice, double start, double duration, int midiNote, double level, double pan) {
    _score.notes.push_back({voice, start, duration, frequencyOf(midiNote), level, pan});
  }

  void writeBar(const Style& style, int bar) {
    const int root = style.chords[static_cast<std::size_t>(bar)];
    const std::array<int, 4> chord = {root, root + 2, root + 4, root + 7};
    writePad(style, chord);
    writeArpeggio(style, chord, bar);
    writeBass(style, root, bar);
    if (bar % 2 == 1) writeMelody(style, root);
    if (style.percussionFromBar >= 0 && bar >= style.percussionFromBar) writePercussion(style);
  }

  // The chord is held a little into the next bar: no join between two tracks is ever silent.
  void writePad(const Style& style, const std::array<int, 4>& chord) {
    const double duration = barLength(style) * 1.05;
    for (std::size_t voice = 0; voice < 3; ++voice) {
      add(Voice::pad, _time, duration, scaleNote(style, chord[voice]), 0.30,
          -0.6 + 0.6 * static_cast<double>(voice));
    }
  }

  void writeArpeggio(const Style& style, const std::array<int, 4>& chord, int bar) {
    const double eighth = beatLength(style) / 2;
    for (std::size_t i = 0; i < style.arpeggio.size(); ++i) {
      const int tone = style.arpeggio[i];
      if (tone < 0) continue;
      const double accent = i % 4 == 0 ? 0.55 : 0.40;
      const double pan = 0.35 * std::sin(0.8 * static_cast<double>(bar * 8 + static_cast<int>(i)));
      add(Voice::pluck, _time + eighth * static_cast<double>(i), 1.6,
          scaleNote(style, chord[static_cast<std::size_t>(tone)]) + 12, accent, pan);
    }
  }

  void writeBass(const Style& style, int root, int bar) {
    const double beat = beatLength(style);
    const int low = scaleNote(style, root) - 24;
    add(Voice::bass, _time, 1.9 * beat, low, 0.55, 0);
    add(Voice::bass, _time + 2 * beat, 1.4 * beat, low, 0.45, 0);
    if (bar % 2 == 1) add(Voice::bass, _time + 3.5 * beat, 0.5 * beat, low + 7, 0.40, 0);
  }

  void writeMelody(const Style& style, int root) {
    const double beat = beatLength(style);
    for (std::size_t i = 0; i < style.melody.size(); ++i) {
      if (style.melody[i] < 0) continue;
      add(Voice::bell, _time + beat * static_cast<double>(i), 2.0,
          scaleNote(style, root + style.melody[i]) + 12, 0.30, i % 2 == 0 ? 0.5 : -0.5);
    }
  }

  void writePercussion(const Style& style) {
    const double beat = beatLength(style);
    for (int i = 0; i < kBeatsPerBar; ++i) {
      const double at = _time + beat * i;
      if (i % 2 == 0) add(Voice::kick, at, 0.3, 0, 0.55, 0);
      add(Voice::brush, at + beat / 2, 0.1, 0, 0.16, 0.25);
      if (i % 2 == 1) add(Voice::brush, at, 0.16, 0, 0.22, -0.2);
    }
  }

  /// A last chord with time to die away belongs to the last section.
  void writeEnding(const Style& style) {
    for (int step : {0, 2, 4, 7}) {
      add(Voice::pad, _time, 1.5, scaleNote(style, step), 0.30, 0.2 * (step - 3));
      add(Voice::pluck, _time + 0.06 * step, 2.5, scaleNote(style, step) + 12, 0.5, 0);
    }
    add(Voice::bass, _time, 2.5, style.tonic - 24, 0.55, 0);
    _score.sections.back().end = _time + 5.0;
  }

  Score _score;
  double _time = 0;
};

}  // namespace

Score composeDemoAlbum() {
  return Composer().compose();
}

}  // namespace velorin::demo
