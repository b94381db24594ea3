#include "engine/decoders/media/SampleCopy.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
}

#include "platform/vector/PCMPacking.h"
#include "platform/vector/Vector.h"

namespace velorin::media {
namespace {

template <class Word>
Word saturated(double value) {
  if (std::isnan(value)) return 0;
  using Limits = std::numeric_limits<Word>;
  const double scaled = std::nearbyint(value * -static_cast<double>(Limits::min()));
  if (scaled >= static_cast<double>(Limits::max())) return Limits::max();
  return static_cast<Word>(std::max(scaled, static_cast<double>(Limits::min())));
}

/// One sample as a word of the target.
template <class Word, class Sample>
Word converted(Sample sample) {
  if constexpr (std::is_same_v<Sample, std::uint8_t>) {
    return converted<Word>(static_cast<std::int8_t>(sample - 128));
  } else if constexpr (std::is_floating_point_v<Sample>) {
    if constexpr (std::is_same_v<Word, float>) {
      return static_cast<float>(sample);
    } else {
      return saturated<Word>(sample);
    }
  } else if constexpr (std::is_same_v<Word, float>) {
    constexpr double kScale = 1.0 / -static_cast<double>(std::numeric_limits<Sample>::min());
    return static_cast<float>(static_cast<double>(sample) * kScale);
  } else {
    constexpr int kUp = 8 * (static_cast<int>(sizeof(Word)) - static_cast<int>(sizeof(Sample)));
    if constexpr (kUp >= 0) return static_cast<Word>(static_cast<Word>(sample) * (Word{1} << kUp));
    return static_cast<Word>(sample >> (kUp < 0 ? -kUp : 0));
  }
}

struct Run {
  const std::uint8_t* samples;  ///< of the channel, at the first frame wanted
  std::size_t stride;           ///< in samples
  std::uint32_t count;
};

template <class Word, class Sample>
void copyRun(const Run& run, Word* out) {
  const auto* in = reinterpret_cast<const Sample*>(run.samples);
  if (run.stride > 1) {
    // Picked out in short runs, which the processor's fast conversions then take.
    std::array<Sample, 512> picked;
    for (std::uint32_t done = 0; done < run.count;) {
      const auto count = std::min<std::uint32_t>(run.count - done, picked.size());
      for (std::uint32_t i = 0; i < count; ++i) picked[i] = in[(done + i) * run.stride];
      const auto* start = reinterpret_cast<const std::uint8_t*>(picked.data());
      copyRun<Word, Sample>({.samples = start, .stride = 1, .count = count}, out + done);
      done += count;
    }
  } else if constexpr (std::is_same_v<Word, Sample>) {
    std::memcpy(out, in, run.count * sizeof(Word));
  } else if constexpr (std::is_same_v<Word, float> && std::is_same_v<Sample, std::int16_t>) {
    vector::int16ToFloat(in, 0x1p-15f, out, run.count);
  } else if constexpr (std::is_same_v<Word, float> && std::is_same_v<Sample, std::int32_t>) {
    vector::int32ToFloat(in, 0x1p-31f, out, run.count);
  } else {
    for (std::uint32_t i = 0; i < run.count; ++i) out[i] = converted<Word>(in[i]);
  }
}

template <class Word>
bool copyChannel(AVSampleFormat packed, const Run& run, Word* out) {
  switch (packed) {
    case AV_SAMPLE_FMT_U8:
      copyRun<Word, std::uint8_t>(run, out);
      return true;
    case AV_SAMPLE_FMT_S16:
      copyRun<Word, std::int16_t>(run, out);
      return true;
    case AV_SAMPLE_FMT_S32:
      copyRun<Word, std::int32_t>(run, out);
      return true;
    case AV_SAMPLE_FMT_S64:
      copyRun<Word, std::int64_t>(run, out);
      return true;
    case AV_SAMPLE_FMT_FLT:
      copyRun<Word, float>(run, out);
      return true;
    case AV_SAMPLE_FMT_DBL:
      copyRun<Word, double>(run, out);
      return true;
    default:
      return false;
  }
}

/// The usual formats and words, all channels in one go. False for others.
bool deinterleave(AVSampleFormat format, const std::uint8_t* samples, std::uint32_t channels,
                  const AudioBufferList& target, std::uint32_t at, std::uint32_t count,
                  TargetWord word) {
  const auto* in = reinterpret_cast<const std::byte*>(samples);
  const auto planes = [&]<class Word>() {
    std::array<Word*, kMaxChannels> starts{};
    for (std::uint32_t i = 0; i < channels; ++i) starts[i] = target.channel<Word>(i) + at;
    return starts;
  };
  if (word == TargetWord::float32 &&
      (format == AV_SAMPLE_FMT_S16 || format == AV_SAMPLE_FMT_S32 || format == AV_SAMPLE_FMT_FLT)) {
    const vector::PCMWord from = format == AV_SAMPLE_FMT_S16   ? vector::PCMWord::int16
                                 : format == AV_SAMPLE_FMT_S32 ? vector::PCMWord::int32
                                                               : vector::PCMWord::float32;
    vector::deinterleave(in, from, channels, count, planes.operator()<float>().data());
    return true;
  }
  if (word == TargetWord::int16 && format == AV_SAMPLE_FMT_S16) {
    vector::deinterleave(in, channels, count, planes.operator()<std::int16_t>().data());
    return true;
  }
  if (word == TargetWord::int32 && format == AV_SAMPLE_FMT_S32) {
    vector::deinterleave(in, vector::PCMWord::int32, channels, count,
                         planes.operator()<std::int32_t>().data());
    return true;
  }
  return false;
}

}  // namespace

bool copySamples(const AVFrame& block, std::int64_t from, const AudioBufferList& target,
                 std::uint32_t channels, std::uint32_t at, std::uint32_t count,
                 TargetWord word) noexcept {
  const auto format = static_cast<AVSampleFormat>(block.format);
  const AVSampleFormat packed = av_get_packed_sample_fmt(format);
  const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
  const auto has = static_cast<std::uint32_t>(block.ch_layout.nb_channels);
  const auto size = static_cast<std::size_t>(av_get_bytes_per_sample(format));
  const std::size_t stride = isPlanar ? 1 : has;
  const std::size_t offset = static_cast<std::size_t>(from) * stride * size;
  if (!isPlanar && channels == has &&
      deinterleave(packed, block.data[0] + offset, channels, target, at, count, word)) {
    return true;
  }
  for (std::uint32_t i = 0; i < channels; ++i) {
    const std::size_t wordBytes = word == TargetWord::int16 ? 2 : 4;
    if (i >= has) {
      std::memset(target.channel<std::byte>(i) + at * wordBytes, 0, count * wordBytes);
      continue;
    }
    const std::uint8_t* plane = isPlanar ? block.extended_data[i] : block.data[0] + i * size;
    const Run run{.samples = plane + offset, .stride = stride, .count = count};
    const bool isDone = word == TargetWord::float32
                            ? copyChannel(packed, run, target.channel<float>(i) + at)
                        : word == TargetWord::int16
                            ? copyChannel(packed, run, target.channel<std::int16_t>(i) + at)
                            : copyChannel(packed, run, target.channel<std::int32_t>(i) + at);
    if (!isDone) return false;
  }
  return true;
}

}  // namespace velorin::media
