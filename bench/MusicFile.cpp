#include "bench/MusicFile.h"

#include <FLAC/stream_encoder.h>
#include <unistd.h>

#include <complex>
#include <cstdlib>
#include <numbers>
#include <random>
#include <stdexcept>
#include <system_error>

namespace velorin::bench {
namespace {

constexpr int kHarmonics = 8;
constexpr double kNoteSeconds = 0.4;
constexpr double kNoiseFloor = 0.004;

/// One plucked string: harmonics that die away, the higher ones faster.
class Pluck {
 public:
  void strike(double frequency, double sampleRate) {
    for (int i = 0; i < kHarmonics; ++i) {
      const double angle = 2 * std::numbers::pi * frequency * (i + 1) / sampleRate;
      const double decay = std::exp(-(1.5 + i) / sampleRate);
      _turn[i] = angle < std::numbers::pi ? std::polar(decay, angle) : 0;
      _state[i] = std::complex<double>(0.2 / (i + 1), 0);
    }
  }
  double next() {
    double sum = 0;
    for (int i = 0; i < kHarmonics; ++i) {
      _state[i] *= _turn[i];
      sum += _state[i].imag();
    }
    return sum;
  }

 private:
  std::complex<double> _state[kHarmonics];
  std::complex<double> _turn[kHarmonics];
};

/// Stereo music without an end.
class Music {
 public:
  explicit Music(const MusicSpec& spec)
      : _spec(spec),
        _framesPerNote(static_cast<std::uint64_t>(kNoteSeconds * spec.sampleRate)),
        _scale(std::ldexp(1.0, static_cast<int>(spec.bits) - 1) - 1) {}

  void render(std::int32_t* interleaved, std::uint32_t frames) {
    for (std::uint32_t i = 0; i < frames; ++i, ++_frame) {
      if (_frame % _framesPerNote == 0) strike();
      double sides[2] = {noise(), noise()};
      for (std::size_t s = 0; s < _strings.size(); ++s) {
        const double sound = _strings[s].next();
        const double pan = 0.2 + 0.2 * static_cast<double>(s);
        sides[0] += sound * (1 - pan);
        sides[1] += sound * pan;
      }
      if (_spec.marker > 0) {
        sides[1] = _frame / _spec.sampleRate % 2 == 1 ? _spec.marker : -_spec.marker;
      }
      for (int c = 0; c < 2; ++c) {
        interleaved[2 * i + static_cast<std::uint32_t>(c)] =
            static_cast<std::int32_t>(std::lround(std::clamp(sides[c], -1.0, 1.0) * _scale));
      }
    }
  }

 private:
  void strike() {
    const double semitone = static_cast<double>(_random() % 30);
    _strings[_frame / _framesPerNote % _strings.size()].strike(82.4 * std::exp2(semitone / 12),
                                                               _spec.sampleRate);
  }
  double noise() { return kNoiseFloor * (_random() / 2147483648.0 - 1); }

  const MusicSpec _spec;
  const std::uint64_t _framesPerNote;
  const double _scale;
  std::uint64_t _frame = 0;
  std::array<Pluck, 4> _strings;
  std::mt19937 _random{1};
};

struct DeleteEncoder {
  void operator()(FLAC__StreamEncoder* encoder) const { FLAC__stream_encoder_delete(encoder); }
};

void require(bool ok, const std::filesystem::path& path) {
  if (!ok) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace

void writeMusicFile(const std::filesystem::path& path, const MusicSpec& spec) {
  const std::unique_ptr<FLAC__StreamEncoder, DeleteEncoder> encoder(FLAC__stream_encoder_new());
  require(encoder != nullptr, path);
  const std::uint64_t total = std::uint64_t{spec.seconds} * spec.sampleRate;
  FLAC__stream_encoder_set_channels(encoder.get(), 2);
  FLAC__stream_encoder_set_bits_per_sample(encoder.get(), spec.bits);
  FLAC__stream_encoder_set_sample_rate(encoder.get(), spec.sampleRate);
  FLAC__stream_encoder_set_compression_level(encoder.get(), 5);
  FLAC__stream_encoder_set_total_samples_estimate(encoder.get(), total);
  require(FLAC__stream_encoder_init_file(encoder.get(), path.c_str(), nullptr, nullptr) ==
              FLAC__STREAM_ENCODER_INIT_STATUS_OK,
          path);
  Music music(spec);
  std::vector<std::int32_t> block(2 * 65'536);
  for (std::uint64_t done = 0; done < total;) {
    const auto frames =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(block.size() / 2, total - done));
    music.render(block.data(), frames);
    require(FLAC__stream_encoder_process_interleaved(encoder.get(), block.data(), frames) != 0,
            path);
    done += frames;
  }
  require(FLAC__stream_encoder_finish(encoder.get()) != 0, path);
}

BenchFolder::BenchFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "velorin-bench-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
  _path = name;
}

BenchFolder::~BenchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(_path, ignored);
}

}  // namespace velorin::bench
