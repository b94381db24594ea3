#include "support/FlacFixture.h"

#include <FLAC/stream_encoder.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>
#include <numbers>
#include <random>
#include <stdexcept>

namespace velorin::test {
namespace {

std::vector<std::int32_t> signalFor(const FlacRecipe& recipe, unsigned channel) {
  std::vector<std::int32_t> samples(recipe.frames);
  const double scale = std::ldexp(1.0, static_cast<int>(recipe.bits) - 1);
  if (recipe.signal == FlacRecipe::Signal::sine) {
    const double step = 2 * std::numbers::pi * 997 / recipe.sampleRate;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      samples[i] = static_cast<std::int32_t>(0.5 * (scale - 1) *
                                             std::sin(step * static_cast<double>(i) + channel));
    }
    return samples;
  }
  if (recipe.signal == FlacRecipe::Signal::steady) {
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const double angle = recipe.angles[i * recipe.angles.size() / samples.size()];
      samples[i] = static_cast<std::int32_t>(
          std::lround(0.5 * (scale - 1) * (channel == 0 ? std::cos(angle) : std::sin(angle))));
    }
    return samples;
  }
  // The engine's own numbers rather than a distribution's, whose algorithm is not fixed.
  std::mt19937 random(recipe.seed * 64 + channel);
  const auto shift = static_cast<int>(32 - recipe.bits);
  for (auto& sample : samples) sample = static_cast<std::int32_t>(random()) >> shift;
  if (samples.size() > 1) {
    samples[0] = static_cast<std::int32_t>(-scale);
    samples[1] = static_cast<std::int32_t>(scale - 1);
  }
  return samples;
}

struct Sink {
  std::vector<std::byte> bytes;
  std::size_t position = 0;

  static FLAC__StreamEncoderWriteStatus write(const FLAC__StreamEncoder*, const FLAC__byte* data,
                                              std::size_t size, std::uint32_t, std::uint32_t,
                                              void* client) {
    auto& sink = *static_cast<Sink*>(client);
    sink.bytes.resize(std::max(sink.bytes.size(), sink.position + size));
    std::memcpy(sink.bytes.data() + sink.position, data, size);
    sink.position += size;
    return FLAC__STREAM_ENCODER_WRITE_STATUS_OK;
  }
  static FLAC__StreamEncoderSeekStatus seek(const FLAC__StreamEncoder*, FLAC__uint64 offset,
                                            void* client) {
    static_cast<Sink*>(client)->position = offset;
    return FLAC__STREAM_ENCODER_SEEK_STATUS_OK;
  }
  static FLAC__StreamEncoderTellStatus tell(const FLAC__StreamEncoder*, FLAC__uint64* offset,
                                            void* client) {
    *offset = static_cast<Sink*>(client)->position;
    return FLAC__STREAM_ENCODER_TELL_STATUS_OK;
  }
};

void require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(std::string("FlacFixture: ") + what);
}

}  // namespace

FlacFixture FlacFixture::make(const FlacRecipe& recipe) {
  FlacFixture fixture;
  for (unsigned channel = 0; channel < recipe.channels; ++channel) {
    fixture.samples.push_back(signalFor(recipe, channel));
  }
  const std::unique_ptr<FLAC__StreamEncoder, decltype(&FLAC__stream_encoder_delete)> encoder(
      FLAC__stream_encoder_new(), FLAC__stream_encoder_delete);
  FLAC__StreamEncoder* const handle = encoder.get();
  require(handle != nullptr, "no encoder");
  FLAC__stream_encoder_set_compression_level(handle, 1);
  FLAC__stream_encoder_set_streamable_subset(handle, false);
  FLAC__stream_encoder_set_channels(handle, recipe.channels);
  FLAC__stream_encoder_set_bits_per_sample(handle, recipe.bits);
  FLAC__stream_encoder_set_sample_rate(handle, recipe.sampleRate);
  FLAC__stream_encoder_set_blocksize(handle, recipe.blockSize);
  if (recipe.channels != 2) FLAC__stream_encoder_set_do_mid_side_stereo(handle, false);

  // An encoder that cannot seek back leaves the total at 0.
  Sink sink;
  const auto seek = recipe.statesTotal && !recipe.ogg ? Sink::seek : nullptr;
  const auto tell = recipe.statesTotal && !recipe.ogg ? Sink::tell : nullptr;
  if (recipe.ogg && recipe.statesTotal) {
    FLAC__stream_encoder_set_total_samples_estimate(handle, recipe.frames);
  }
  const auto status = recipe.ogg ? FLAC__stream_encoder_init_ogg_stream(
                                       handle, nullptr, Sink::write, seek, tell, nullptr, &sink)
                                 : FLAC__stream_encoder_init_stream(handle, Sink::write, seek, tell,
                                                                    nullptr, &sink);
  require(status == FLAC__STREAM_ENCODER_INIT_STATUS_OK,
          FLAC__StreamEncoderInitStatusString[status]);
  std::vector<const FLAC__int32*> planes;
  for (const auto& plane : fixture.samples) planes.push_back(plane.data());
  require(FLAC__stream_encoder_process(handle, planes.data(), recipe.frames), "process");
  require(FLAC__stream_encoder_finish(handle), "finish");
  fixture.bytes = std::move(sink.bytes);
  return fixture;
}

void FlacFixture::write(const std::filesystem::path& path) const {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  require(file.good(), "cannot write the file");
}

void patchStreamInfo(std::vector<std::byte>& flac, const StreamInfoPatch& patch) {
  // 8 bytes: 20 bits rate, 3 bits channels - 1, 5 bits depth - 1, 36 bits total (RFC 9639, 8.2).
  constexpr std::size_t kOffset = 4 + 4 + 10;
  require(flac.size() >= kOffset + 8, "no STREAMINFO to patch");
  std::uint64_t fields = 0;
  for (std::size_t i = 0; i < 8; ++i) {
    fields = fields << 8 | std::to_integer<std::uint64_t>(flac[kOffset + i]);
  }
  const auto put = [&](std::int64_t value, unsigned shift, unsigned width) {
    if (value < 0) return;
    const std::uint64_t mask = ((std::uint64_t{1} << width) - 1) << shift;
    fields = (fields & ~mask) | (static_cast<std::uint64_t>(value) << shift & mask);
  };
  put(patch.sampleRate, 44, 20);
  put(patch.channels < 0 ? -1 : patch.channels - 1, 41, 3);
  put(patch.bits < 0 ? -1 : patch.bits - 1, 36, 5);
  put(patch.totalSamples, 0, 36);
  for (std::size_t i = 0; i < 8; ++i) {
    flac[kOffset + i] = static_cast<std::byte>(fields >> (56 - 8 * i));
  }
}

}  // namespace velorin::test
