// What decoding into the ring costs beyond the library's own decode of the same file.
//
// Both are timed in processor time of this thread, in turns, so that neither what else the machine
// does nor its changing clock favours one of them.
#include <FLAC/stream_decoder.h>
#include <fmt/format.h>
#include <time.h>

#include <stdexcept>

#include "bench/Bench.h"
#include "bench/MusicFile.h"
#include "engine/decoders/FLACDecoder.h"
#include "engine/fill/SourceReader.h"
#include "engine/output/ClientFormat.h"
#include "engine/ring/AudioRingBuffer.h"

namespace velorin::bench {
namespace {

constexpr int kTurns = 9;

double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

template <class Work>
double secondsFor(Work&& work) {
  const double start = processorSeconds();
  work();
  return processorSeconds() - start;
}

struct DeleteDecoder {
  void operator()(FLAC__StreamDecoder* decoder) const { FLAC__stream_decoder_delete(decoder); }
};

FLAC__StreamDecoderWriteStatus take(const FLAC__StreamDecoder*, const FLAC__Frame* frame,
                                    const FLAC__int32* const*, void* client) {
  *static_cast<std::uint64_t*>(client) += frame->header.blocksize;
  return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
}
void complain(const FLAC__StreamDecoder*, FLAC__StreamDecoderErrorStatus, void*) {}

/// Frames of the file as libFLAC decodes it, samples thrown away.
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

/// The same through our decoder and the fill stage, into a ring of the size that playing uses.
std::uint64_t decodeIntoRing(const std::filesystem::path& path, bool isInteger,
                             AudioRingBuffer& ring) {
  auto opened = FLACDecoder::create(path);
  if (!opened) throw std::runtime_error(opened.error().text);
  std::unique_ptr<FLACDecoder> decoder = std::move(opened).value();
  const StreamFormat format = clientFormatFor(isInteger, static_cast<int>(decoder->bitsPerSample()),
                                              decoder->sampleRate(), decoder->channels());
  const auto facts = std::make_shared<const SourceFacts>(describeSource(Track{}, *decoder));
  SourceReader reader(std::move(decoder), facts, nullptr, format);
  std::uint64_t frames = 0;
  while (reader.read() == SourceReader::Outcome::produced) {
    if (ring.freeSpace() < reader.chunk()) ring.flush();
    frames += ring.write(reader.list(), reader.frames());
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
    for (const bool isInteger : {false, true}) {
      const std::uint32_t sampleSize = isInteger && spec.bits <= 16 ? 2 : 4;
      AudioRingBuffer ring(2, 30 * std::int64_t{spec.sampleRate}, sampleSize);
      double library = std::numeric_limits<double>::infinity();
      double ours = library;
      for (int turn = 0; turn < kTurns; ++turn) {
        library = std::min(library, secondsFor([&] {
                             if (decodeWithLibrary(path) != frames)
                               throw std::runtime_error("libFLAC lost frames");
                           }));
        ours = std::min(ours, secondsFor([&] {
                          if (decodeIntoRing(path, isInteger, ring) != frames) {
                            throw std::runtime_error("frames were lost on the way to the ring");
                          }
                        }));
      }
      const std::string to = isInteger ? " to integer" : " to float";
      report.add(name + to + ", speed against libFLAC alone", library / ours, "x", atLeast(0.9));
      report.add(name + to, spec.seconds / ours, "x real time");
    }
  }
});

}  // namespace
}  // namespace velorin::bench
