// What is decoded by the FFmpeg libraries: decoding into the ring against the libraries alone, and
// seeking.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <fmt/format.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "bench/Bench.h"
#include "bench/DecodeRace.h"
#include "bench/MusicFile.h"

namespace velorin::bench {
namespace {

constexpr std::uint32_t kSeconds = 180;
constexpr std::uint64_t kFrames = std::uint64_t{kSeconds} * 44'100;

struct Free {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

void check(int code, const std::filesystem::path& path) {
  if (code < 0) throw std::runtime_error("FFmpeg does not decode " + path.string());
}

std::uint64_t decodeWithFFmpeg(const std::filesystem::path& path) {
  AVFormatContext* opened = nullptr;
  check(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), path);
  const std::unique_ptr<AVFormatContext, Free> file(opened);
  check(avformat_find_stream_info(file.get(), nullptr), path);
  const AVCodec* codec = nullptr;
  const int index = av_find_best_stream(file.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
  check(index, path);
  const std::unique_ptr<AVCodecContext, Free> decoder(avcodec_alloc_context3(codec));
  check(avcodec_parameters_to_context(decoder.get(), file->streams[index]->codecpar), path);
  decoder->pkt_timebase = file->streams[index]->time_base;
  decoder->thread_count = 1;
  check(avcodec_open2(decoder.get(), codec, nullptr), path);
  const std::unique_ptr<AVPacket, Free> packet(av_packet_alloc());
  const std::unique_ptr<AVFrame, Free> frame(av_frame_alloc());
  std::uint64_t frames = 0;
  for (bool isEnd = false; !isEnd;) {
    isEnd = av_read_frame(file.get(), packet.get()) < 0;
    check(avcodec_send_packet(decoder.get(), isEnd ? nullptr : packet.get()), path);
    while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
      frames += static_cast<std::uint64_t>(frame->nb_samples);
    }
    av_packet_unref(packet.get());
  }
  // It leaves some of the last packet's padding in AAC.
  return frames > kFrames && frames < kFrames + 1024 ? kFrames : frames;
}

struct Case {
  const char* name;
  const char* file;
  std::vector<std::string> options;  ///< FFmpeg's; for APE those of the WAV file it is made of
  bool isLossless = true;
};

const Registration kMedia("decode-media", [](BenchReport& report) {
  const BenchFolder folder;
  writeMusicFile(folder / "music.flac", {});
  const Case cases[] = {
      {"MP3 192 kb/s", "a.mp3", {"-c:a", "libmp3lame", "-b:a", "192k"}, false},
      {"AAC 192 kb/s", "b.m4a", {"-c:a", "aac", "-b:a", "192k"}, false},
      {"Vorbis q6", "c.ogg", {"-c:a", "libvorbis", "-q:a", "6"}, false},
      {"ALAC 16/44.1", "d.m4a", {"-c:a", "alac"}},
      {"WAV 16/44.1", "e.wav", {}},
      {"AIFF 24/44.1", "f.aiff", {"-c:a", "pcm_s24be"}},
      {"AAC in Matroska", "h.mka", {"-c:a", "aac"}, false},
      {"APE normal 16/44.1", "g.ape", {"-f", "wav", "-bitexact"}},
  };
  for (const Case& each : cases) {
    const auto path = folder / each.file;
    const bool isApe = path.extension() == ".ape";
    const auto made = isApe ? folder / "g.wav" : path;
    std::vector<std::string> command = {"ffmpeg", "-nostdin",           "-v", "error", "-y",
                                        "-i",     folder / "music.flac"};
    command.insert(command.end(), each.options.begin(), each.options.end());
    command.push_back(made);
    encode(command, made);
    if (isApe) encode({"jmac", "c2", made, path}, path);
    const DecodeRace race{.name = each.name,
                          .library = "FFmpeg",
                          .path = path,
                          .frames = kFrames,
                          .decodeAlone = [&] { return decodeWithFFmpeg(path); }};
    if (path.extension() == ".mka") {
      // What the encoder put ahead of the sound is not told, so frames are no measure.
    } else if (each.isLossless) {
      runDecodeRace(report, race, {false, true});
    } else {
      runDecodeRace(report, race, {false});
    }
    reportSeekTime(report, each.name, path);
  }
});

}  // namespace
}  // namespace velorin::bench
