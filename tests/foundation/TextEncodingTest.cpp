#include "foundation/TextEncoding.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include "foundation/EncodingDetector.h"
#include "foundation/Normalization.h"

namespace velorin::text {
namespace {

std::string encoded(const std::string& utf8, const char* encoding) {
  const iconv_t converter = ::iconv_open(encoding, "UTF-8");
  std::string out(utf8.size() * 2 + 16, '\0');
  char* from = const_cast<char*>(utf8.data());
  char* to = out.data();
  std::size_t left = utf8.size();
  std::size_t room = out.size();
  EXPECT_EQ(::iconv(converter, &from, &left, &to, &room), 0U) << encoding << ": " << utf8;
  ::iconv_close(converter);
  out.resize(out.size() - room);
  return out;
}

std::string sheet(const std::vector<const char*>& titles) {
  std::string text = "REM COMMENT \"ExactAudioCopy v1.0\"\r\nFILE \"CDImage.wav\" WAVE\r\n";
  for (const char* title : titles) {
    text.append("  TRACK 01 AUDIO\r\n    TITLE \"").append(title).append("\"\r\n");
  }
  return text;
}

TEST(TextEncoding, ADozenTitlesTellTheirEncoding) {
  struct Case {
    Encoding encoding;
    std::vector<const char*> iconvNames;
    std::vector<const char*> titles;
  };
  const std::vector<const char*> russian = {
      "Осень",    "Зимний вечер", "Дорога домой",  "Белая птица", "Старый город", "ПОСЛЕДНИЙ ПОЕЗД",
      "Не спеши", "Окно",         "Live в Москве", "Река",        "Сон 3",        "Ещё один день"};
  const std::vector<const char*> japanese = {
      "春の風",     "夜明け前",   "サクラ", "Blue Sky (ライブ)", "東京",      "星空のワルツ", "雨",
      "恋する季節", "メモリーズ", "海へ",   "さよなら",          "ありがとう"};
  const std::vector<const char*> chinese = {"春天里",     "故乡",     "月亮船", "我和你 (Live)",
                                            "海阔天空下", "风中的云", "南方",   "小城故事多",
                                            "夜色",       "一路走来", "想念",   "雨后的彩虹"};
  const std::vector<Case> cases = {
      {Encoding::windows1251, {"CP1251"}, russian},
      {Encoding::koi8, {"KOI8-R", "KOI8-U"}, russian},
      {Encoding::shiftJIS, {"CP932"}, japanese},
      {Encoding::eucJP, {"EUC-JP"}, japanese},
      {Encoding::gbk, {"GBK", "GB18030"}, chinese},
      {Encoding::big5,
       {"BIG5"},
       {"春天裡", "故鄉", "月亮船", "我和你 (Live)", "風中的雲", "南方", "小城故事多", "夜色",
        "一路走來", "想念", "雨後的彩虹", "愛情"}},
      {Encoding::eucKR,
       {"EUC-KR"},
       {"봄날의 노래", "비 오는 밤", "사랑해요", "서울", "Remix 버전", "나의 하루", "바다로",
        "안녕", "기억 속에", "별이 빛나는", "그대에게", "첫눈"}},
      {Encoding::windows1253,
       {"CP1253"},
       {"Θάλασσα", "Το τρένο φεύγει", "Η αγάπη μου", "Νύχτα", "ΚΑΛΗΜΕΡΑ ΗΛΙΕ", "Ο δρόμος",
        "Φεγγάρι", "Καλοκαίρι", "Άνοιξη", "Το σπίτι", "Μοναξιά", "Live στην Αθήνα"}},
  };
  for (const Case& each : cases) {
    const std::string text = sheet(each.titles);
    for (const char* name : each.iconvNames) {
      const DecodedText decoded = decodeText(encoded(text, name), Encoding::latin1);
      EXPECT_EQ(decoded.encoding, each.encoding) << name << encodingName(decoded.encoding);
      EXPECT_EQ(decoded.text, text) << name;
    }
  }
}

TEST(TextEncoding, WesternTextIsNeverTakenForAnother) {
  const std::vector<std::vector<const char*>> languages = {
      {"À la claire fontaine", "L’été indien", "ÉTÉ", "Déjà vu", "Là où tu es", "Ça ira",
       "Noël à Paris", "à à à", "Être ou ne pas être", "Où", "créée", "œuvre"},
      {"Über den Wolken", "Müßiggang", "Grüße", "Öl", "STRAßE", "Schöne Mädchen", "ÄÖÜ äöü"},
      {"Mañana", "¿Quién?", "¡Olé!", "Corazón partío", "Ñandú", "AÑO", "Él y tú"},
      {"Åh", "Ö", "Æblemand", "Skål på øya", "Blåbär", "Smörgåsbord", "Ægir", "Það er gott",
       "Yöttömän yön ääni", "Háa á", "Ærø ø", "ÅÄÖ"},
      {"“Heroes”", "Don’t Stop…", "1990–1999", "± 5°", "© 2001 Örk"},
      {"Mötley"},
      {"é"},
  };
  for (const auto& titles : languages) {
    const std::string text = sheet(titles);
    const DecodedText decoded = decodeText(encoded(text, "CP1252"), Encoding::windows1252);
    EXPECT_EQ(decoded.encoding, Encoding::windows1252)
        << encodingName(decoded.encoding) << titles[0];
    EXPECT_EQ(decoded.text, text);
  }
}

TEST(TextEncoding, MarksAndUTF8ComeFirst) {
  struct Case {
    std::string bytes;
    std::string text;
    Encoding encoding;
  };
  const std::string text = "TITLE \"Зима é 𝄞\"\n";
  const std::string broken = "ééééééééé ";
  const std::vector<Case> cases = {
      {"", "", Encoding::utf8},
      {"\xFE\xFF" + encoded(text, "UTF-16BE"), text, Encoding::utf16BE},
      {"\xFF\xFE" + encoded(text, "UTF-16LE"), text, Encoding::utf16LE},
      {std::string("\xFF\xFE"
                   "a\0b",
                   5),
       "a\uFFFD", Encoding::utf16LE},
      {std::string("\xFF\xFE\0\xDC"
                   "a\0",
                   6),
       "\uFFFDa", Encoding::utf16LE},
      {"\xEF\xBB\xBF" + text, text, Encoding::utf8},
      {text, text, Encoding::utf8},
      {broken + "\xC3", broken + "\uFFFD", Encoding::utf8},
      {"caf\xE9 \x92\x81", "café \u0092\u0081", Encoding::latin1},
  };
  for (const Case& each : cases) {
    const DecodedText decoded = decodeText(each.bytes, Encoding::latin1);
    EXPECT_EQ(decoded.text, each.text);
    EXPECT_EQ(decoded.encoding, each.encoding) << each.text;
  }
  EXPECT_EQ(decodeText("caf\xE9 \x92\x81", Encoding::windows1252).text, "café ’\u0081");
  // A character cut in two in an otherwise clear sheet costs that character alone.
  const std::string cut = encoded("TITLE \"夜明け前の星空\"", "CP932");
  EXPECT_EQ(decodeAs(cut.substr(0, cut.size() - 2), Encoding::shiftJIS),
            "TITLE \"夜明け前の星\uFFFD");
  EXPECT_EQ(unicode::precomposed("e\u0301 \u1112\u1161\u11AB"), "é 한");
  EXPECT_EQ(unicode::precomposed("e\u0301\xFF"), "e\u0301\xFF");
}

}  // namespace
}  // namespace velorin::text
