#include "foundation/Text.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "foundation/Dates.h"
#include "foundation/Uuid.h"

namespace velorin {
namespace {

using namespace std::string_view_literals;

TEST(Text, RepairsBytesAsUnicodeRecommends) {
  struct Case {
    std::string_view bytes;
    std::string_view repaired;
  };
  // The rows of Unicode 15, tables 3-8 to 3-11, and the borders of each range.
  const std::vector<Case> cases{
      {"plain", "plain"},
      {"\u00e9\u20ac\U0001F600\U0010FFFF", "\u00e9\u20ac\U0001F600\U0010FFFF"},
      {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41"sv,
       "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA"},
      {"\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41"sv,
       "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA"},
      {"\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42"sv, "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA\uFFFD\uFFFDB"},
      {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41"sv, "\uFFFD\uFFFD\uFFFD\uFFFDA"},
      {"\xF4\x8F\xBF"sv, "\uFFFD"},
      {"a\0b"sv, "a\0b"sv}};
  for (const auto& [bytes, repaired] : cases) {
    EXPECT_EQ(text::toValidUTF8(bytes), repaired);
    EXPECT_EQ(text::validUTF8(bytes), bytes == repaired);
  }
  // Every scalar value survives a round trip, every surrogate is refused.
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    std::string bytes;
    text::append(bytes, c);
    const text::CodePoint point = text::decode(bytes, 0);
    const bool surrogate = c >= 0xD800 && c <= 0xDFFF;
    ASSERT_EQ(point.valid, !surrogate) << static_cast<unsigned>(c);
    if (!surrogate) {
      ASSERT_EQ(point.value, c);
      ASSERT_EQ(point.length, bytes.size());
    }
  }
}

TEST(Text, TrimsUnicodeWhiteSpace) {
  EXPECT_EQ(text::trimWhitespaceAndNewlines("\u3000\u00A0 \t\r\n\u2028x y\u2003\u0085\n"), "x y");
  EXPECT_EQ(text::trimWhitespaceAndNewlines(" \n\u2003"), "");
  EXPECT_EQ(text::trimWhitespaceAndNewlines("\u200Bx"), "\u200Bx");  // zero width: no white space
  EXPECT_EQ(text::trimWhitespaceAndNewlines("\x80 x \x80\x80"), "\x80 x \x80\x80");
  EXPECT_EQ(text::trimWhitespaceAndNewlines(""), "");
}

TEST(Text, FindsExtensions) {
  const std::vector<std::pair<std::string_view, std::string_view>> cases{
      {"a.FLAC", "flac"}, {"/x.d/a", ""}, {"/x/.hidden", ""},   {"a.tar.Gz", "gz"},
      {"a.", ""},         {"", ""},       {"/x/.a.mp3", "mp3"}, {"a.Ä", "Ä"}};
  for (const auto& [path, extension] : cases) EXPECT_EQ(text::fileExtension(path), extension);
}

TEST(Uuid, IsRandomVersion4InCanonicalForm) {
  static const std::regex form(
      "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string uuid = makeUuid();
    ASSERT_TRUE(seen.insert(uuid).second);
    ASSERT_TRUE(std::regex_match(uuid, form)) << uuid;
  }
}

TEST(Dates, ReadsExactlyItsOwnForm) {
  using namespace std::chrono_literals;
  const dates::TimePoint epoch{};
  const std::vector<std::pair<dates::TimePoint, std::string>> pairs{
      {epoch, "1970-01-01 00:00:00.000"},
      {epoch - 1ms, "1969-12-31 23:59:59.999"},
      {epoch + std::chrono::seconds(951827696) + 7ms, "2000-02-29 12:34:56.007"},
      {epoch + std::chrono::seconds(4102444799) + 999ms, "2099-12-31 23:59:59.999"}};
  for (const auto& [moment, text] : pairs) {
    EXPECT_EQ(dates::toText(moment), text);
    EXPECT_EQ(dates::fromText(text), moment) << text;
  }
  EXPECT_EQ(dates::toText(epoch - 1us), "1969-12-31 23:59:59.999");  // cut off, not rounded

  for (const char* bad :
       {"", "2000-01-01", "2000-01-01 00:00:00", "2001-02-29 00:00:00.000",
        "2000-13-01 00:00:00.000", "2000-00-10 00:00:00.000", "2000-01-01 24:00:00.000",
        "2000-01-01 00:60:00.000", "2000-01-01 00:00:60.000", "2000-01-01T00:00:00.000",
        "2000-01-01 00:00:00.0000", "+000-01-01 00:00:00.000", "2000-01-01 00:00:00,000",
        "9999-01-01 00:00:00.000", "0001-01-01 00:00:00.000"}) {
    EXPECT_EQ(dates::fromText(bad), std::nullopt) << bad;
  }
}

}  // namespace
}  // namespace velorin
