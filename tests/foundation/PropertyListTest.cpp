#include "foundation/PropertyList.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <limits>
#include <random>

#include "foundation/Text.h"

namespace velorin {
namespace {

using namespace std::string_literals;

std::string document(std::string_view body) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + std::string(body) +
         "</plist>";
}

PreferenceValue nested(std::size_t depth) {
  PreferenceValue value{true};
  for (std::size_t i = 0; i < depth; ++i) {
    value = i % 2 ? PreferenceValue{PreferenceMap{{"k", value}}}
                  : PreferenceValue{PreferenceList{value}};
  }
  return value;
}

/// Values of every kind, with the texts and numbers that are hard to write down.
class ValueMaker {
 public:
  explicit ValueMaker(unsigned seed) : _random(seed) {}

  PreferenceValue make(int depth) {
    switch (pick(depth > 0 ? 7 : 5)) {
      case 0:
        return {pick(2) == 1};
      case 1:
        return {static_cast<std::int64_t>(_random())};
      case 2:
        return {number()};
      case 3:
        return {text()};
      case 4:
        return {bytes()};
      case 5: {
        PreferenceList list;
        for (std::size_t i = pick(5); i > 0; --i) list.push_back(make(depth - 1));
        return {list};
      }
      default: {
        PreferenceMap map;
        for (std::size_t i = pick(5); i > 0; --i) map[text()] = make(depth - 1);
        return {map};
      }
    }
  }

 private:
  std::size_t pick(std::size_t count) { return _random() % count; }

  double number() {
    constexpr std::array<double, 7> kHard{0.1,
                                          0.00027,
                                          1.0 / 3,
                                          -2.5e-300,
                                          std::numeric_limits<double>::denorm_min(),
                                          std::numeric_limits<double>::max(),
                                          -std::numeric_limits<double>::infinity()};
    const std::size_t choice = pick(kHard.size() * 2);
    if (choice < kHard.size()) return kHard[choice];
    return std::uniform_real_distribution(-1e6, 1e6)(_random);
  }

  std::string text() {
    static const std::vector<std::string> kPieces{
        "a",     " ",   "\n",           "\t",     "\r",           "<",
        "&",     "]]>", "\"",           "é",      "\U0001F3B5",   "\xff",
        "\x01"s, "\0"s, "\xed\xa0\x80", "\uFFFE", "velorin:hex:", "velorin:bytes of text",
        "&#13;"};
    std::string out;
    for (std::size_t i = pick(4); i > 0; --i) out += kPieces[pick(kPieces.size())];
    return out;
  }

  PreferenceBytes bytes() {
    PreferenceBytes out(pick(100));
    for (auto& byte : out) byte = static_cast<std::uint8_t>(pick(256));
    return out;
  }

  std::mt19937_64 _random;
};

TEST(PropertyList, EveryValueSurvivesARoundTrip) {
  for (unsigned seed = 1; seed <= 500; ++seed) {
    const PreferenceValue value = ValueMaker(seed).make(4);
    const auto xml = propertyList::format(value);
    ASSERT_TRUE(xml);
    EXPECT_TRUE(text::validUTF8(*xml)) << "seed " << seed;
    EXPECT_EQ(xml->find('\r'), std::string::npos) << "seed " << seed;
    const auto back = propertyList::parse(*xml);
    ASSERT_TRUE(back) << *xml;
    EXPECT_EQ(*back, value) << "seed " << seed << "\n" << *xml;
  }
}

TEST(PropertyList, WritesWhatOtherReadersUnderstand) {
  const auto xml = propertyList::format({PreferenceMap{{"gain", {-3.5}}, {"name", {"Fl<t"s}}}});
  ASSERT_TRUE(xml);
  plist_t root = nullptr;
  plist_from_xml(xml->data(), static_cast<std::uint32_t>(xml->size()), &root);
  ASSERT_NE(root, nullptr);
  double gain = 0;
  plist_get_real_val(plist_dict_get_item(root, "gain"), &gain);
  EXPECT_EQ(gain, -3.5);
  char* name = nullptr;
  plist_get_string_val(plist_dict_get_item(root, "name"), &name);
  EXPECT_STREQ(name, "Fl<t");
  std::free(name);
  plist_free(root);
}

TEST(PropertyList, RefusesWhatIsNoPropertyList) {
  const auto repeated = [](std::string_view tag, int count) {
    std::string tags;
    for (int i = 0; i < count; ++i) tags += tag;
    return tags;
  };
  const std::string deep = repeated("<array>", 1'000'000);
  const std::string closed = deep + repeated("</array>", 1'000'000);
  for (const std::string& bad : {""s, "<"s, "hello"s, "\0\0\0\0"s, "bplist00"s, document("<dict>"),
                                 document("<foo/>"), document(deep), document(closed),
                                 document("<!-- <array> --><dict><string>x</string></dict>"),
                                 "<plist version=\"1.0\"><dict><key>a</key><string>cut o"s,
                                 document("<dict><key>a\0b</key><true/></dict>"s)}) {
    EXPECT_EQ(propertyList::parse(bad), std::nullopt) << bad.substr(0, 80);
  }
  EXPECT_EQ(propertyList::format(nested(propertyList::kMaxDepth + 1)), std::nullopt);
  const PreferenceValue deepest = nested(propertyList::kMaxDepth);
  EXPECT_EQ(propertyList::parse(propertyList::format(deepest).value()), deepest);
  // Tags inside comments and character data do not nest.
  EXPECT_EQ(propertyList::parse(document("<!--" + repeated("<array>", 500) + "--><true/>")),
            PreferenceValue{true});
}

}  // namespace
}  // namespace velorin
