// Writes seeds for the decoders over FFmpeg, by the real encoders: media_fuzz_seeds media|ape
// FOLDER
#include <cstdio>
#include <fstream>

#include "fuzz/DecoderDrive.h"
#include "support/ChildProcess.h"
#include "support/EncodedFixture.h"
#include "support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

/// A file as a fuzzer takes it: behind a script of reads and seeks, with no companion.
void writeSeed(const fs::path& made, const fs::path& seed, unsigned number) {
  std::ofstream out(seed, std::ios::binary);
  for (unsigned i = 0; i < velorin::test::kScriptBytes; ++i) {
    out.put(static_cast<char>(i < 14 ? number + i * 29 : 0));
  }
  const auto bytes = velorin::test::bytesOf(made);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: media_fuzz_seeds media|ape FOLDER\n", stderr);
    return 2;
  }
  const bool isApe = std::string(argv[1]) == "ape";
  const fs::path folder = argv[2];
  fs::create_directories(folder);
  const std::vector<Strings> media = {
      {"a.mp3", "-c:a", "libmp3lame"},
      {"b.m4a", "-c:a", "aac"},
      {"c.m4a", "-c:a", "alac"},
      {"d.ogg", "-c:a", "libvorbis"},
      {"e.aac", "-c:a", "aac"},
      {"f.wav"},
      {"g.aiff"},
      {"h.caf", "-c:a", "alac"},
      {"i.mka", "-c:a", "libopus"},
      {"j.wma", "-c:a", "wmav2"},
      {"k.tta", "-c:a", "tta"},
      {"l.ac3", "-c:a", "ac3"},
      {"m.w64", "-c:a", "pcm_f32le"},
      {"n.wav", "-c:a", "adpcm_ms"},
      {"o.mp2", "-c:a", "mp2"},
      {"p.au"},
      {"r.mka", "-c:a", "aac"},
      {"s.mka", "-c:a", "flac"},
      {"q.spx.ogg", "-c:a", "libspeex", "-ar", "16000"},
  };
  const std::vector<Strings> ape = {{"16.wav", "-c:a", "pcm_s16le"}, {"8.wav", "-c:a", "pcm_u8"}};
  const velorin::test::TemporaryFolder work;
  unsigned number = 0;
  for (const Strings& each : isApe ? ape : media) {
    fs::path made = work / each[0];
    Strings command = {"ffmpeg",   "-nostdin", "-v", "error",
                       "-f",       "lavfi",    "-i", "sine=440:r=44100:d=0.15",
                       "-bitexact"};
    command.insert(command.end(), each.begin() + 1, each.end());
    command.push_back(made);
    velorin::test::runProgram(command, std::chrono::seconds(60));
    if (isApe) {
      const fs::path packed = work / ("packed" + std::to_string(number));
      velorin::test::runProgram({"jmac", "c" + std::to_string(2 + number), made, packed},
                                std::chrono::seconds(60));
      made = packed;
    }
    if (!fs::exists(made)) {
      std::fprintf(stderr, "no encoder made %s\n", made.c_str());
      return 1;
    }
    writeSeed(made, folder / each[0], number++);
  }
  return 0;
}
