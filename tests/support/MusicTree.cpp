#include "support/MusicTree.h"

#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/SyntheticLibrary.h"
#include "support/TemporaryFolder.h"

namespace velorin::test {
namespace {

namespace fs = std::filesystem;

std::string bigEndian(std::size_t value, int bytes) {
  std::string text;
  for (int i = bytes - 1; i >= 0; --i) text += static_cast<char>(value >> (8 * i));
  return text;
}

std::string littleEndian(std::size_t value) {
  std::string text = bigEndian(value, 4);
  return {text.rbegin(), text.rend()};
}

std::size_t number(std::string_view bytes, std::size_t at, std::size_t count) {
  std::size_t value = 0;
  for (const char c : bytes.substr(at, count)) value = value << 8 | static_cast<unsigned char>(c);
  return value;
}

struct Tags {
  std::string title;
  std::string artist;
  std::string album;
  std::string genre;
  int number = 0;
  int year = 0;
};

// --- FLAC: RFC 9639, section 8 ---

std::string flacBlock(int type, bool isLast, const std::string& content) {
  return bigEndian((isLast ? 0x80U : 0U) | static_cast<unsigned>(type), 1) +
         bigEndian(content.size(), 3) + content;
}

/// The file's STREAMINFO, comments in place of its own, padding as encoders leave it, and the
/// sound.
std::string taggedFlac(const std::string& body, const Tags& tags) {
  const auto comment = [](const std::string& text) { return littleEndian(text.size()) + text; };
  std::size_t at = 4;
  std::string streamInfo;
  for (bool isLast = false; !isLast;) {
    isLast = (static_cast<unsigned char>(body.at(at)) & 0x80) != 0;
    const std::size_t length = number(body, at + 1, 3);
    if (streamInfo.empty()) streamInfo = body.substr(at + 4, length);
    at += 4 + length;
  }
  const std::string comments = comment("reference encoder") + littleEndian(6) +
                               comment("TITLE=" + tags.title) + comment("ARTIST=" + tags.artist) +
                               comment("ALBUM=" + tags.album) + comment("GENRE=" + tags.genre) +
                               comment(fmt::format("TRACKNUMBER={}", tags.number)) +
                               comment(fmt::format("DATE={}", tags.year));
  return "fLaC" + flacBlock(0, false, streamInfo) + flacBlock(4, false, comments) +
         flacBlock(1, true, std::string(1024, '\0')) + body.substr(at);
}

// --- MP3: ID3v2.4 in front of the frames ---

std::string syncSafe(std::size_t value) {
  std::string text;
  for (int shift = 21; shift >= 0; shift -= 7) text += static_cast<char>(value >> shift & 0x7f);
  return text;
}

std::string taggedMp3(const std::string& body, const Tags& tags) {
  std::string frames;
  const auto add = [&frames](const char* id, const std::string& text) {
    frames += id + syncSafe(text.size() + 1) + std::string(2, '\0') + "\x03" + text;
  };
  add("TIT2", tags.title);
  add("TPE1", tags.artist);
  add("TALB", tags.album);
  add("TCON", tags.genre);
  add("TRCK", std::to_string(tags.number));
  add("TDRC", std::to_string(tags.year));
  frames.append(1024, '\0');
  return "ID3" + std::string("\x04\0\0", 3) + syncSafe(frames.size()) + frames + body;
}

// --- M4A: ISO 14496-12, with the metadata atoms that players write ---

std::string atom(const std::string& name, const std::string& content) {
  return bigEndian(content.size() + 8, 4) + name + content;
}

std::string valueAtom(const std::string& name, int type, const std::string& value) {
  return atom(name,
              atom("data", bigEndian(static_cast<std::size_t>(type), 4) + bigEndian(0, 4) + value));
}

/// The "moov" atom stands last, so that nothing moves when it grows.
std::string taggedM4a(const std::string& body, const Tags& tags) {
  constexpr int kText = 1;
  const std::string items =
      valueAtom("\xA9nam", kText, tags.title) +
      valueAtom(
          "\xA9"
          "ART",
          kText, tags.artist) +
      valueAtom(
          "\xA9"
          "alb",
          kText, tags.album) +
      valueAtom("\xA9gen", kText, tags.genre) +
      valueAtom(
          "\xA9"
          "day",
          kText, std::to_string(tags.year)) +
      valueAtom(
          "trkn", 0,
          bigEndian(0, 2) + bigEndian(static_cast<std::size_t>(tags.number), 2) + bigEndian(0, 4));
  const std::string handler = atom("hdlr", bigEndian(0, 8) + "mdirappl" + std::string(9, '\0'));
  const std::string userData =
      atom("udta", atom("meta", bigEndian(0, 4) + handler + atom("ilst", items)));
  std::size_t at = 0;
  while (body.compare(at + 4, 4, "moov") != 0) at += number(body, at, 4);
  std::string movie;
  for (std::size_t child = at + 8; child < body.size(); child += number(body, child, 4)) {
    if (body.compare(child + 4, 4, "udta") == 0) continue;
    movie += body.substr(child, number(body, child, 4));
  }
  return body.substr(0, at) + atom("moov", movie + userData);
}

struct Format {
  std::string_view extension;
  const char* arguments;
  std::string (*tagged)(const std::string& body, const Tags& tags);
  std::string body = {};
};

std::string encoded(const fs::path& folder, const Format& format) {
  const fs::path file = folder / fmt::format("body.{}", format.extension);
  const std::string command = fmt::format(
      "ffmpeg -nostdin -v error -f lavfi -i 'sine=frequency=440:duration=0.4' -map_metadata -1 "
      "{} -y '{}'",
      format.arguments, file.native());
  if (std::system(command.c_str()) != 0) {
    throw std::runtime_error(fmt::format("ffmpeg made no {} file", format.extension));
  }
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void write(const fs::path& file, const std::string& bytes) {
  std::ofstream out(file, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out.flush()) throw std::runtime_error(fmt::format("cannot write {}", file.native()));
}

}  // namespace

void writeMusicTree(std::size_t files, const fs::path& folder,
                    const std::function<void(std::size_t)>& progress) {
  std::array<Format, 3> formats{{{"flac", "-c:a flac", &taggedFlac},
                                 {"mp3", "-c:a libmp3lame -b:a 128k -id3v2_version 0", &taggedMp3},
                                 {"m4a", "-c:a aac -b:a 128k", &taggedM4a}}};
  {
    const TemporaryFolder bodies;
    for (Format& format : formats) format.body = encoded(bodies.path(), format);
  }
  std::size_t written = 0;
  fs::path album;
  std::size_t albums = 0;
  // More tracks than files: those of CUE images have none of their own.
  SyntheticLibrary({.tracks = files + files / 2})
      .forEachBatch(100, [&](const std::vector<ScannedItem>& items) {
        for (const ScannedItem& item : items) {
          if (item.track.cueStartTime || written == files) continue;
          fs::path file = folder / fs::path(item.track.filePath).relative_path();
          if (file.parent_path() != album) {
            album = file.parent_path();
            fs::create_directories(album);
            ++albums;
          }
          // Albums are of one format: half FLAC, a third MP3, the rest M4A.
          const Format& format = formats[albums % 6 < 3 ? 0 : albums % 6 < 5 ? 1 : 2];
          file.replace_extension(format.extension);
          write(file, format.tagged(format.body, {.title = item.track.title,
                                                  .artist = item.artistName,
                                                  .album = item.albumTitle,
                                                  .genre = item.track.genre.value_or("Rock"),
                                                  .number = item.track.trackNumber.value_or(1),
                                                  .year = item.year.value_or(2001)}));
          if (++written % 1000 == 0 && progress) progress(written);
        }
      });
}

}  // namespace velorin::test
