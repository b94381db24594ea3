#include "Synth.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace velorin::demo {
namespace {

/// Longest tail of a note after its release, and of the echo: how far before a stretch rendering
/// has to begin so that nothing of the past is missing from it.
constexpr double kPrerollSeconds = 8.0;

/// Noise that is the same on every run and machine.
class Noise {
 public:
  explicit Noise(std::uint32_t seed) : _state(seed * 2654435761u + 1u) {}
  float next() {
    _state = _state * 1664525u + 1013904223u;
    return static_cast<float>(static_cast<std::int32_t>(_state)) / 2147483648.0f;
  }

 private:
  std::uint32_t _state;
};

/// One period of a soft, band-limited saw: the partials that a pad needs and no more.
class PadTable {
 public:
  static constexpr std::size_t kSize = 2048;
  static const std::array<float, kSize + 1>& samples() {
    static const std::array<float, kSize + 1> table = [] {
      std::array<float, kSize + 1> made{};
      for (std::size_t i = 0; i <= kSize; ++i) {
        const double phase = 2 * std::numbers::pi * static_cast<double>(i) / kSize;
        double sum = 0;
        for (int partial = 1; partial <= 9; ++partial) {
          sum += std::sin(partial * phase) / std::pow(partial, 1.6);
        }
        made[i] = static_cast<float>(0.6 * sum);
      }
      return made;
    }();
    return table;
  }
};

/// Where a note writes to: the part of the stretch that it sounds in.
class Canvas {
 public:
  Canvas(double rate, std::size_t first, std::size_t frames) : _rate(rate), _first(first) {
    sound.left.assign(frames, 0.0f);
    sound.right.assign(frames, 0.0f);
  }

  double rate() const { return _rate; }

  /// Calls voice(frame of the note) for every frame from the note's start on and mixes the result
  /// in; frames before the stretch are computed and dropped, which keeps recursive voices exact.
  template <class VoiceFunction>
  void mix(const Note& note, double seconds, VoiceFunction voice) {
    const auto start = static_cast<std::int64_t>(std::llround(note.start * _rate)) -
                       static_cast<std::int64_t>(_first);
    const auto length = static_cast<std::int64_t>(seconds * _rate);
    const auto end =
        std::min<std::int64_t>(length, static_cast<std::int64_t>(sound.frames()) - start);
    const double angle = (note.pan + 1) * std::numbers::pi / 4;
    const float gainLeft = static_cast<float>(note.level * std::cos(angle));
    const float gainRight = static_cast<float>(note.level * std::sin(angle));
    for (std::int64_t i = 0; i < end; ++i) {
      const float value = voice(i);
      if (start + i < 0) continue;
      const auto at = static_cast<std::size_t>(start + i);
      sound.left[at] += gainLeft * value;
      sound.right[at] += gainRight * value;
    }
  }

  StereoSound sound;

 private:
  double _rate;
  std::size_t _first;
};

/// Rises, holds, falls; all in seconds.
float swell(double t, double attack, double hold, double release) {
  if (t < attack) return static_cast<float>(0.5 - 0.5 * std::cos(std::numbers::pi * t / attack));
  if (t < hold) return 1.0f;
  if (t < hold + release) {
    return static_cast<float>(0.5 + 0.5 * std::cos(std::numbers::pi * (t - hold) / release));
  }
  return 0.0f;
}

void playPad(Canvas& canvas, const Note& note) {
  constexpr double kRelease = 1.2;
  const auto& table = PadTable::samples();
  constexpr double kDetune[] = {0.9982, 1.0019};
  double phase[] = {0.0, 0.37};
  // The envelope is slow: one value every 32 frames is smooth enough.
  float envelope = 0;
  float step = 0;
  canvas.mix(note, note.duration + kRelease, [&](std::int64_t i) {
    if (i % 32 == 0) {
      const double t = static_cast<double>(i + 32) / canvas.rate();
      step = (swell(t, 0.35, note.duration, kRelease) - envelope) / 32.0f;
    }
    envelope += step;
    float sum = 0;
    for (int voice = 0; voice < 2; ++voice) {
      const double position = phase[voice] * PadTable::kSize;
      const auto index = static_cast<std::size_t>(position);
      const auto fraction = static_cast<float>(position - static_cast<double>(index));
      sum += table[index] + fraction * (table[index + 1] - table[index]);
      phase[voice] += note.frequency * kDetune[voice] / canvas.rate();
      if (phase[voice] >= 1) phase[voice] -= 1;
    }
    return 0.4f * envelope * sum;
  });
}

/// A plucked string after Karplus and Strong ("Digital Synthesis of Plucked-String and Drum
/// Timbres", 1983): a burst of noise in a loop with a gentle low-pass.
void playPluck(Canvas& canvas, const Note& note, std::uint32_t seed) {
  const double period = canvas.rate() / note.frequency - 0.5;
  const auto length = static_cast<std::size_t>(period);
  const auto fraction = static_cast<float>(period - static_cast<double>(length));
  std::vector<float> loop(length + 1);
  Noise noise(seed);
  float smooth = 0;
  float mean = 0;
  for (float& sample : loop) {
    sample = smooth += 0.45f * (noise.next() - smooth);
    mean += sample / static_cast<float>(loop.size());
  }
  // A constant part would not ring but would stay in the loop.
  for (float& sample : loop) sample -= mean;
  // The loop's loss per second does not depend on the rate or the pitch.
  const auto loss = static_cast<float>(std::exp(-2.2 / note.frequency));
  std::size_t at = 0;
  float previous = 0;
  canvas.mix(note, note.duration + 0.1, [&](std::int64_t i) {
    const float current = loop[at];
    const std::size_t next = at + 1 < loop.size() ? at + 1 : 0;
    // Linear interpolation tunes the loop between whole frames.
    const float tuned = current + (1 - fraction) * (loop[next] - current);
    loop[at] = loss * 0.5f * (tuned + previous);
    previous = tuned;
    at = next;
    const double left = note.duration + 0.1 - static_cast<double>(i) / canvas.rate();
    return 1.5f * current * static_cast<float>(std::min(1.0, left / 0.1));
  });
}

/// A sine by rotation: two multiplications a frame.
class Sine {
 public:
  Sine(double frequency, double rate)
      : _c(std::cos(2 * std::numbers::pi * frequency / rate)),
        _s(std::sin(2 * std::numbers::pi * frequency / rate)) {}
  double next() {
    const double re = _re * _c - _im * _s;
    _im = _re * _s + _im * _c;
    _re = re;
    return _im;
  }

 private:
  double _c, _s, _re = 1, _im = 0;
};

void playBell(Canvas& canvas, const Note& note) {
  Sine base(note.frequency, canvas.rate());
  Sine upper(note.frequency * 2.76, canvas.rate());
  const double decay = std::exp(-2.4 / canvas.rate());
  const double upperDecay = std::exp(-7.0 / canvas.rate());
  double level = 1, upperLevel = 0.35;
  canvas.mix(note, note.duration, [&](std::int64_t i) {
    level *= decay;
    upperLevel *= upperDecay;
    const double t = static_cast<double>(i) / canvas.rate();
    const double gate = std::min({1.0, t / 0.004, (note.duration - t) / 0.2});
    return static_cast<float>(gate * (level * base.next() + upperLevel * upper.next()));
  });
}

void playBass(Canvas& canvas, const Note& note) {
  Sine base(note.frequency, canvas.rate());
  Sine octave(note.frequency * 2, canvas.rate());
  const double decay = std::exp(-1.1 / canvas.rate());
  double level = 1;
  canvas.mix(note, note.duration + 0.15, [&](std::int64_t i) {
    level *= decay;
    const double t = static_cast<double>(i) / canvas.rate();
    const double gate = std::min({1.0, t / 0.012, (note.duration + 0.15 - t) / 0.15});
    return static_cast<float>(gate * level * (base.next() + 0.35 * octave.next()));
  });
}

void playKick(Canvas& canvas, const Note& note) {
  double phase = 0;
  canvas.mix(note, note.duration, [&](std::int64_t i) {
    const double t = static_cast<double>(i) / canvas.rate();
    phase += (48 + 70 * std::exp(-t * 38)) / canvas.rate();
    const double gate = std::min(1.0, t / 0.002) * std::exp(-t * 13);
    return static_cast<float>(gate * std::sin(2 * std::numbers::pi * phase));
  });
}

void playBrush(Canvas& canvas, const Note& note, std::uint32_t seed) {
  Noise noise(seed);
  float low = 0;
  float level = 1;
  const auto decay = static_cast<float>(std::exp(-32 / canvas.rate()));
  canvas.mix(note, note.duration + 0.1, [&](std::int64_t i) {
    const float white = noise.next();
    low += 0.35f * (white - low);
    level *= decay;
    const float attack =
        std::min(1.0f, static_cast<float>(static_cast<double>(i) / (0.003 * canvas.rate())));
    return attack * level * (white - low);
  });
}

/// A small room after Schroeder: four combs and two all-passes a side.
class Room {
 public:
  Room(double rate, double spread) {
    constexpr double kComb[] = {0.0297, 0.0371, 0.0411, 0.0437};
    constexpr double kAllPass[] = {0.0050, 0.0017};
    for (std::size_t i = 0; i < 4; ++i) {
      _combs[i].line.assign(static_cast<std::size_t>((kComb[i] + spread) * rate), 0.0f);
    }
    for (std::size_t i = 0; i < 2; ++i) {
      _allPasses[i].line.assign(static_cast<std::size_t>((kAllPass[i] + spread) * rate), 0.0f);
    }
    _damping = static_cast<float>(1 - std::exp(-2 * std::numbers::pi * 3500 / rate));
  }

  float next(float in) {
    float sum = 0;
    for (Line& comb : _combs) {
      float& slot = comb.line[comb.at];
      sum += slot;
      comb.low += _damping * (slot - comb.low);
      slot = in + 0.80f * comb.low;
      comb.advance();
    }
    for (Line& pass : _allPasses) {
      float& slot = pass.line[pass.at];
      const float out = slot - 0.7f * sum;
      slot = sum + 0.7f * out;
      sum = out;
      pass.advance();
    }
    return sum;
  }

 private:
  struct Line {
    std::vector<float> line;
    std::size_t at = 0;
    float low = 0;
    void advance() { at = at + 1 < line.size() ? at + 1 : 0; }
  };
  std::array<Line, 4> _combs;
  std::array<Line, 2> _allPasses;
  float _damping;
};

void addRoom(StereoSound& sound, double rate) {
  Room left(rate, 0.0);
  Room right(rate, 0.00053);
  for (std::size_t i = 0; i < sound.frames(); ++i) {
    const float send = 0.06f * (sound.left[i] + sound.right[i]);
    sound.left[i] += left.next(send);
    sound.right[i] += right.next(send);
  }
}

/// Louder without ever passing full scale.
void master(std::vector<float>& channel) {
  for (float& sample : channel) {
    const float x = 0.62f * sample;
    sample = 0.95f * x / std::sqrt(1 + x * x);
  }
}

}  // namespace

StereoSound renderScore(const Score& score, unsigned sampleRate, std::size_t firstFrame,
                        std::size_t lastFrame) {
  const auto preroll = std::min(
      firstFrame, static_cast<std::size_t>(kPrerollSeconds * static_cast<double>(sampleRate)));
  const std::size_t begin = firstFrame - preroll;
  Canvas canvas(sampleRate, begin, lastFrame - begin);
  const double from = static_cast<double>(begin) / sampleRate;
  const double to = static_cast<double>(lastFrame) / sampleRate;
  std::uint32_t seed = 0;
  for (const Note& note : score.notes) {
    ++seed;  // also for skipped notes: a note sounds the same whichever stretch it falls in
    if (note.start >= to || note.start + note.duration + 1.5 < from) continue;
    switch (note.voice) {
      case Voice::pad:
        playPad(canvas, note);
        break;
      case Voice::pluck:
        playPluck(canvas, note, seed);
        break;
      case Voice::bell:
        playBell(canvas, note);
        break;
      case Voice::bass:
        playBass(canvas, note);
        break;
      case Voice::kick:
        playKick(canvas, note);
        break;
      case Voice::brush:
        playBrush(canvas, note, seed);
        break;
    }
  }
  StereoSound& sound = canvas.sound;
  addRoom(sound, sampleRate);
  for (auto* channel : {&sound.left, &sound.right}) {
    channel->erase(channel->begin(), channel->begin() + static_cast<std::ptrdiff_t>(preroll));
    master(*channel);
  }
  return std::move(sound);
}

}  // namespace velorin::demo
