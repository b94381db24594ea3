#include "foundation/TextEncoding.h"

#include <iconv.h>

#include <cerrno>

#include "foundation/EncodingDetector.h"
#include "foundation/Text.h"

namespace velorin::text {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

struct Names {
  const char* shown;
  const char* iconv;
};

Names namesOf(Encoding encoding) noexcept {
  switch (encoding) {
    case Encoding::utf8:
      return {"UTF-8", "UTF-8"};
    case Encoding::utf16BE:
      return {"UTF-16BE", "UTF-16BE"};
    case Encoding::utf16LE:
      return {"UTF-16LE", "UTF-16LE"};
    case Encoding::latin1:
      return {"ISO-8859-1", "ISO-8859-1"};
    case Encoding::windows1252:
      return {"Windows-1252", "CP1252"};
    case Encoding::windows1251:
      return {"Windows-1251", "CP1251"};
    case Encoding::koi8:
      return {"KOI8-U", "KOI8-U"};
    case Encoding::windows1253:
      return {"Windows-1253", "CP1253"};
    case Encoding::shiftJIS:
      return {"Shift-JIS", "CP932"};
    case Encoding::eucJP:
      return {"EUC-JP", "EUC-JP"};
    case Encoding::gbk:
      return {"GBK", "GB18030"};
    case Encoding::big5:
      return {"Big5", "BIG5-HKSCS"};
    case Encoding::eucKR:
      return {"EUC-KR", "CP949"};
  }
  return {"", ""};
}

class Converter {
 public:
  explicit Converter(Encoding from) : _handle(::iconv_open("UTF-8", namesOf(from).iconv)) {}
  ~Converter() {
    if (*this) ::iconv_close(_handle);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  /// False where the system does not have the conversion.
  explicit operator bool() const noexcept { return _handle != reinterpret_cast<iconv_t>(-1); }

  std::string convert(std::string_view bytes, Encoding encoding) const {
    std::string out;
    out.reserve(bytes.size() * 2);
    // iconv takes, but does not change, what it reads.
    char* in = const_cast<char*>(bytes.data());
    std::size_t left = bytes.size();
    while (left > 0) {
      char chunk[4096];
      char* to = chunk;
      std::size_t room = sizeof chunk;
      const std::size_t result = ::iconv(_handle, &in, &left, &to, &room);
      const int reason = errno;
      out.append(chunk, static_cast<std::size_t>(to - chunk));
      if (result != static_cast<std::size_t>(-1) || reason == E2BIG) continue;
      append(out,
             encoding == Encoding::windows1252 ? static_cast<unsigned char>(*in) : kReplacement);
      const std::size_t width =
          encoding == Encoding::utf16BE || encoding == Encoding::utf16LE ? 2 : 1;
      in += std::min(width, left);
      left -= std::min(width, left);
      ::iconv(_handle, nullptr, nullptr, nullptr, nullptr);
    }
    return out;
  }

 private:
  iconv_t _handle;
};

std::string fromLatin1(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size() + bytes.size() / 4);
  for (const char c : bytes) append(out, static_cast<unsigned char>(c));
  return out;
}

/// Many characters of several bytes for each broken place: no other encoding looks like that.
bool isNearlyUTF8(std::string_view bytes) noexcept {
  constexpr std::size_t kGoodForEachBroken = 8;
  std::size_t good = 0;
  std::size_t broken = 0;
  for (std::size_t at = 0; at < bytes.size();) {
    const CodePoint point = decode(bytes, at);
    if (!point.valid) {
      ++broken;
    } else if (point.length > 1) {
      ++good;
    }
    at += point.length;
  }
  return good >= broken * kGoodForEachBroken;
}

}  // namespace

const char* encodingName(Encoding encoding) noexcept {
  return namesOf(encoding).shown;
}

std::string decodeAs(std::string_view bytes, Encoding encoding) {
  if (encoding == Encoding::utf8) return toValidUTF8(bytes);
  if (encoding == Encoding::latin1) return fromLatin1(bytes);
  const Converter converter(encoding);
  return converter ? converter.convert(bytes, encoding) : fromLatin1(bytes);
}

DecodedText decodeText(std::string_view bytes, Encoding fallback) {
  const auto as = [&](Encoding encoding, std::size_t markLength) {
    return DecodedText{decodeAs(bytes.substr(markLength), encoding), encoding};
  };
  if (bytes.starts_with("\xFE\xFF")) return as(Encoding::utf16BE, 2);
  if (bytes.starts_with("\xFF\xFE")) return as(Encoding::utf16LE, 2);
  if (bytes.starts_with("\xEF\xBB\xBF")) return as(Encoding::utf8, 3);
  if (validUTF8(bytes) || isNearlyUTF8(bytes)) return as(Encoding::utf8, 0);
  return as(detectLegacyEncoding(bytes).value_or(fallback), 0);
}

}  // namespace velorin::text
