// What decoding into the ring costs beyond the library's own decode of the same file: FLAC.
#include <FLAC/stream_decoder.h>
#include <fmt/format.h>

#include <memory>
#include <stdexcept>

#include "bench/Bench.h"
#include "bench/DecodeRace.h"
#include "bench/MusicFile.h"

namespace velorin::bench {
namespace {

struct DeleteDecoder {
  void operator()(FLAC__StreamDecoder* decoder) const { FLAC__stream_decoder_delete(decoder); }
};

FLAC__StreamDecoderWriteStatus take(const FLAC__StreamDecoder*, const FLAC__Frame* frame,
                                    const FLAC__int32* const*, void* client) {
  *static_cast<std::uint64_t*>(client) += frame->header.blocksize;
  return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
}
void complain(const FLAC__StreamDecoder*, FLAC__StreamDecoderErrorStatus, void*) {}

std::uint64_t decodeWithLibrary(const std::filesystem::path& path) {
  const std::unique_ptr<FLAC__StreamDecoder, DeleteDecoder> decoder(FLAC__stream_decoder_new());
  std::uint64_t frames = 0;
  if (!decoder ||
      FLAC__stream_decoder_init_file(decoder.get(), path.c_str(), take, nullptr, complain,
                                     &frames) != FLAC__STREAM_DECODER_INIT_STATUS_OK ||
      !FLAC__stream_decoder_process_until_end_of_stream(decoder.get())) {
    throw std::runtime_error("libFLAC does not decode " + path.string());
  }
  return frames;
}

const Registration kDecode("decode", [](BenchReport& report) {
  const BenchFolder folder;
  for (const MusicSpec& spec :
       {MusicSpec{.sampleRate = 44'100, .bits = 16}, MusicSpec{.sampleRate = 96'000, .bits = 24}}) {
    const auto path = folder / "music.flac";
    writeMusicFile(path, spec);
    const std::uint64_t frames = std::uint64_t{spec.seconds} * spec.sampleRate;
    const std::string name = fmt::format("FLAC {}/{:g}", spec.bits, spec.sampleRate / 1000.0);
    const double packed = static_cast<double>(std::filesystem::file_size(path)) /
                          static_cast<double>(frames * 2 * spec.bits / 8);
    report.add(name + " compressed to", 100 * packed, "%");
    runDecodeRace(report,
                  {.name = name,
                   .library = "libFLAC",
                   .path = path,
                   .frames = frames,
                   .decodeAlone = [&] { return decodeWithLibrary(path); }},
                  {false, true}, 0.9);
    reportSeekTime(report, name, path);
  }
});

}  // namespace
}  // namespace velorin::bench
