// One-bit sound to PCM beside FFmpeg: its DSD decoder and, behind that, its resampler.
//
// Both start from the same sound in memory and are timed in processor time of this thread, in
// turns. Ours is the decoder as the fill thread uses it, file format and all. FFmpeg's decoder is
// given the sound of its planes or frames as packets, without a container to take apart.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <fmt/format.h>

#include <cstring>
#include <stdexcept>

#include "bench/Bench.h"
#include "engine/dsd/DSDDecoder.h"
#include "engine/memory/MemoryFileHandle.h"
#include "tests/support/DSDFixture.h"

namespace velorin::bench {
namespace {

constexpr int kTurns = 5;
constexpr std::uint32_t kFrames = 4096;
constexpr double kSeconds = 4;

template <class Handle, auto release>
struct Release {
  void operator()(Handle* handle) const { release(&handle); }
};
using Codec = std::unique_ptr<AVCodecContext, Release<AVCodecContext, avcodec_free_context>>;
using Frame = std::unique_ptr<AVFrame, Release<AVFrame, av_frame_free>>;
using Packet = std::unique_ptr<AVPacket, Release<AVPacket, av_packet_free>>;
using Resampler = std::unique_ptr<SwrContext, Release<SwrContext, swr_free>>;

void require(bool isFine, const char* what) {
  if (!isFine) throw std::runtime_error(fmt::format("FFmpeg: {}", what));
}

/// The sound in packets of 4096 bytes a channel, as the reader of that format would cut them.
std::vector<std::vector<std::uint8_t>> packetsOf(const test::OneBitSound& sound, DSDFormat format) {
  constexpr std::size_t kBlock = 4096;
  std::vector<std::vector<std::uint8_t>> packets;
  for (std::size_t at = 0; at + kBlock <= sound[0].size(); at += kBlock) {
    auto& packet = packets.emplace_back(kBlock * sound.size());
    for (std::size_t channel = 0; channel < sound.size(); ++channel) {
      for (std::size_t i = 0; i < kBlock; ++i) {
        const std::uint8_t byte = sound[channel][at + i];
        if (format == DSDFormat::dsf) {
          packet[channel * kBlock + i] = DSDTables::shared().reversed[byte];
        } else {
          packet[i * sound.size() + channel] = byte;
        }
      }
    }
  }
  return packets;
}

/// Frames that FFmpeg makes of the packets at that rate.
std::int64_t convertWithFFmpeg(const std::vector<std::vector<std::uint8_t>>& packets,
                               DSDFormat format, DSDRate rate, int to) {
  const AVCodec* const codec = avcodec_find_decoder(
      format == DSDFormat::dsf ? AV_CODEC_ID_DSD_LSBF_PLANAR : AV_CODEC_ID_DSD_MSBF);
  require(codec != nullptr, "no DSD decoder");
  const Codec context(avcodec_alloc_context3(codec));
  av_channel_layout_default(&context->ch_layout, 2);
  const int from = static_cast<int>(rateAfter8To1(rate));
  context->sample_rate = from;
  context->thread_count = 1;
  require(avcodec_open2(context.get(), codec, nullptr) >= 0, "the decoder does not open");
  SwrContext* made = nullptr;
  AVChannelLayout stereo;
  av_channel_layout_default(&stereo, 2);
  require(swr_alloc_set_opts2(&made, &stereo, AV_SAMPLE_FMT_FLTP, to, &stereo, AV_SAMPLE_FMT_FLTP,
                              from, 0, nullptr) >= 0,
          "no resampler");
  const Resampler resampler(made);
  require(swr_init(made) >= 0, "the resampler does not start");
  const Frame frame(av_frame_alloc());
  const Packet packet(av_packet_alloc());
  std::vector<float> planes[2] = {std::vector<float>(kFrames * 2), std::vector<float>(kFrames * 2)};
  std::uint8_t* out[] = {reinterpret_cast<std::uint8_t*>(planes[0].data()),
                         reinterpret_cast<std::uint8_t*>(planes[1].data())};
  std::int64_t frames = 0;
  for (const auto& bytes : packets) {
    packet->data = const_cast<std::uint8_t*>(bytes.data());
    packet->size = static_cast<int>(bytes.size());
    require(avcodec_send_packet(context.get(), packet.get()) >= 0, "a packet is refused");
    while (avcodec_receive_frame(context.get(), frame.get()) >= 0) {
      const int got =
          swr_convert(made, out, static_cast<int>(planes[0].size()),
                      const_cast<const std::uint8_t**>(frame->extended_data), frame->nb_samples);
      require(got >= 0, "the resampler fails");
      frames += got;
    }
  }
  return frames;
}

std::int64_t convertWithOurs(const std::shared_ptr<const MemoryStorage>& file, DSDFormat format,
                             int decimation, PlanarBuffers& buffers) {
  auto made = DSDDecoder::create(std::make_unique<MemoryFileHandle>(file), format);
  if (!made) throw std::runtime_error(made.error().text);
  DSDDecoder& decoder = *made.value();
  decoder.prepareDSDtoPCM(decimation);
  std::int64_t frames = 0;
  while (const std::uint32_t got = decoder.read(buffers.list(), kFrames, true).frames) {
    frames += got;
  }
  return frames;
}

double targetFor(DSDRate rate, int to) {
  if (to != 88'200) return 0;
  if (rate == DSDRate::dsd64) return 400;
  return rate == DSDRate::dsd128 ? 200 : 0;
}

const Registration kDSD("dsd", [](BenchReport& report) {
  PlanarBuffers buffers(2, kFrames, sizeof(float));
  for (const DSDRate rate : {DSDRate::dsd64, DSDRate::dsd128, DSDRate::dsd256, DSDRate::dsd512}) {
    const auto bytes = static_cast<std::size_t>(hertz(rate) / 8 * kSeconds) / 4096 * 4096;
    const test::OneBitSound sound = test::modulatedSine({.rate = rate, .bytes = bytes});
    const double seconds = static_cast<double>(bytes) * 8 / hertz(rate);
    for (const DSDFormat format : {DSDFormat::dsf, DSDFormat::dsdiff}) {
      const auto file =
          MemoryStorage::copyOf(test::dsdFile(sound, {.format = format, .rate = rate}));
      const auto packets = packetsOf(sound, format);
      for (const int to : {88'200, 176'400, 44'100}) {
        const int decimation = static_cast<int>(rateAfter8To1(rate)) / to;
        const auto wanted = static_cast<std::int64_t>(bytes) / decimation;
        double ours = std::numeric_limits<double>::infinity();
        double theirs = ours;
        for (int turn = 0; turn < kTurns; ++turn) {
          ours = std::min(ours, cpuSecondsOf(1, [&] {
                            if (convertWithOurs(file, format, decimation, buffers) != wanted) {
                              throw std::runtime_error("frames were lost");
                            }
                          }));
          // The resampler keeps what its filter has not seen the whole of.
          theirs = std::min(theirs, cpuSecondsOf(1, [&] {
                              const auto got = convertWithFFmpeg(packets, format, rate, to);
                              require(got > wanted - 1000 && got <= wanted, "frames were lost");
                            }));
        }
        const std::string name = fmt::format("{} {} to {:g} kHz", nameOf(rate),
                                             format == DSDFormat::dsf ? "DSF" : "DFF", to / 1000.0);
        const double target = targetFor(rate, to);
        if (target > 0) {
          report.add(name, seconds / ours, "x real time", atLeast(target));
        } else {
          report.add(name, seconds / ours, "x real time");
        }
        report.add(name + ", speed against FFmpeg", theirs / ours, "x");
      }
    }
  }
});

}  // namespace
}  // namespace velorin::bench
