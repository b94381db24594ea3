#include "records/SmartPlaylistRules.h"

#include <gtest/gtest.h>

namespace velorin {
namespace {

constexpr const char* kId = "1B4E28BA-2FA1-41D2-883F-0016D3CCA427";

std::string ruleWith(const std::string& value) {
  return fmt::format(R"({{"id":"{}","field":"year","op":"is","value":{}}})", kId, value);
}
std::string documentWith(const std::string& rules) {
  return R"({"matchMode":"any","rules":[)" + rules + R"(],"sortAscending":false})";
}

TEST(SmartPlaylistRules, AreWrittenAsStored) {
  SmartPlaylistRules rules;
  rules.matchMode = MatchMode::any;
  rules.rules = {{kId, RuleField::genre, RuleOperator::is, "Jazz"},
                 {kId, RuleField::bpm, RuleOperator::greaterThan, 120.0},
                 {kId, RuleField::energy, RuleOperator::between, NumberRange{0.1, 1999}},
                 {kId, RuleField::isVocal, RuleOperator::isTrue, true}};
  rules.limit = 25;
  rules.sortBy = SortField::lastPlayed;
  const std::string id = fmt::format(R"({{"id":"{}",)", kId);
  const std::string stored =
      R"({"matchMode":"any","rules":[)" + id +
      R"("field":"genre","op":"is","value":{"string":{"_0":"Jazz"}}},)" + id +
      R"("field":"bpm","op":"greaterThan","value":{"number":{"_0":120}}},)" + id +
      R"("field":"energy","op":"between","value":{"range":{"_0":0.1,"_1":1999}}},)" + id +
      R"("field":"isVocal","op":"isTrue","value":{"bool":{"_0":true}}}],)"
      R"("limit":25,"sortBy":"lastPlayed","sortAscending":true})";
  EXPECT_EQ(toJSON(rules), stored);
  const auto read = smartPlaylistRulesFromJSON(stored);
  ASSERT_TRUE(read) << read.error().text();
  EXPECT_EQ(read.value(), rules);

  EXPECT_EQ(toJSON(SmartPlaylistRules{}), R"({"matchMode":"all","rules":[],"sortAscending":true})");
}

TEST(SmartPlaylistRules, FaultsAreNamedWithTheirPlace) {
  std::string many = ruleWith(R"({"bool":{"_0":true}})");
  for (int i = 0; i < 500; ++i) many += "," + ruleWith(R"({"bool":{"_0":true}})");
  const struct {
    std::string json;
    const char* error;
  } cases[] = {
      {"{\n \"rules\": ]", "line 2, column 11: not JSON from here on"},
      {"[]", "not an object"},
      {R"({"rules":[],"sortAscending":true})", "\"matchMode\" is missing"},
      {R"({"matchMode":"some","rules":[]})", "\"matchMode\" is \"some\", not one of all, any"},
      {R"({"matchMode":"all","rules":{}})", "\"rules\" is not a list"},
      {R"({"matchMode":"all","rules":[]})", "\"sortAscending\" is missing"},
      {R"({"matchMode":"all","rules":[],"limit":2.5})", "\"limit\" is not a whole number"},
      {R"({"matchMode":"all","rules":[],"limit":1e999})", "a number is too large"},
      {documentWith("7"), "rule 1: not an object"},
      {documentWith(R"({"id":"1B4E28BA"})"), "rule 1: \"id\" is not a UUID"},
      {documentWith(ruleWith(R"({"number":{"_0":1}})") + "," + ruleWith("{}")),
       "rule 2, value: Invalid number of keys found, expected one."},
      {documentWith(ruleWith(R"({"number":{"_0":1},"bool":{"_0":true}})")),
       "rule 1, value: Invalid number of keys found, expected one."},
      {documentWith(ruleWith(R"({"text":{"_0":1}})")),
       "rule 1, value: there is no \"text\", only string, number, range, bool"},
      {documentWith(ruleWith(R"({"range":{"_0":1}})")), "rule 1, value, range: \"_1\" is missing"},
      {documentWith(ruleWith(R"({"number":{"_0":"1"}})")),
       "rule 1, value, number: \"_0\" is not a number"},
      {std::string(100'000, '['), "line 1, column 100001: not JSON from here on"},
      {documentWith(std::string(40, '[') + std::string(40, ']')), "nested too deeply"},
      {documentWith(many), "more than 500 rules"},
      {std::string((1 << 20) + 1, ' '), "longer than 1 MiB"},
  };
  for (const auto& each : cases) {
    const auto read = smartPlaylistRulesFromJSON(each.json);
    EXPECT_EQ(read ? "no error" : read.error().text(), each.error) << each.json.substr(0, 200);
  }

  // What is lenient: other keys, null for nothing, a whole number with a fraction, a small id.
  const auto read = smartPlaylistRulesFromJSON(
      R"({"version":2,"matchMode":"all","limit":3.0,"sortBy":null,"sortAscending":true,"rules":[{)"
      R"("id":"1b4e28ba-2fa1-41d2-883f-0016d3cca427","field":"title","op":"is","value":)"
      R"({"string":{"_0":"x"}}}]})");
  ASSERT_TRUE(read) << read.error().text();
  EXPECT_EQ(read->rules.front().id, kId);
  EXPECT_EQ(read->limit, 3);
  EXPECT_FALSE(read->sortBy);
}

}  // namespace
}  // namespace velorin
