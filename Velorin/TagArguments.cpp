#include "TagArguments.h"

#include <fmt/format.h>

#include <array>
#include <charconv>

#include "foundation/Text.h"

namespace velorin {
namespace {

/// A field by its name on the command line; either the text or the number is set.
struct Key {
  std::string_view name;
  std::optional<std::string> TagChanges::*text = nullptr;
  std::optional<int> TagChanges::*number = nullptr;
  bool TagChanges::*clear = nullptr;
};

constexpr std::array kKeys = {
    Key{"title", &TagChanges::title},
    Key{"artist", &TagChanges::artistName},
    Key{"album", &TagChanges::albumTitle},
    Key{"track", nullptr, &TagChanges::trackNumber, &TagChanges::clearTrackNumber},
    Key{"disc", nullptr, &TagChanges::discNumber, &TagChanges::clearDiscNumber},
    Key{"year", nullptr, &TagChanges::year, &TagChanges::clearYear},
    Key{"genre", &TagChanges::genre},
    Key{"composer", &TagChanges::composer},
    Key{"conductor", &TagChanges::conductor},
    Key{"comment", &TagChanges::comment},
    Key{"lyrics", &TagChanges::lyrics},
};

constexpr int kMostNumber = 9999;

const Key* keyNamed(std::string_view name) {
  const auto* key =
      std::find_if(kKeys.begin(), kKeys.end(), [&](const Key& each) { return each.name == name; });
  return key == kKeys.end() ? nullptr : key;
}

bool isTold(const Key& key, const TagChanges& changes) {
  if (key.text) return (changes.*key.text).has_value();
  return (changes.*key.number).has_value() || changes.*key.clear;
}

std::optional<std::string> add(std::string_view name, std::string_view value, TagChanges& changes) {
  const Key* key = keyNamed(name);
  if (!key) return fmt::format("there is no tag \"{}\": it is one of {}", name, tagKeyList());
  if (isTold(*key, changes)) return fmt::format("{} is told twice", name);
  if (!text::validUTF8(value)) return fmt::format("the value of {} is not UTF-8", name);
  if (key->text) {
    changes.*key->text = std::string(value);
  } else if (value.empty()) {
    changes.*key->clear = true;
  } else {
    int number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number < 1 ||
        number > kMostNumber) {
      return fmt::format("{} is a number from 1 to {}, not \"{}\"", name, kMostNumber, value);
    }
    changes.*key->number = number;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> addSet(std::string_view assignment, TagChanges& changes) {
  const std::size_t equals = assignment.find('=');
  if (equals == std::string_view::npos) {
    return fmt::format("\"{}\" sets nothing: write --set key=value", assignment);
  }
  return add(assignment.substr(0, equals), assignment.substr(equals + 1), changes);
}

std::optional<std::string> addClear(std::string_view key, TagChanges& changes) {
  return add(key, "", changes);
}

std::string tagKeyList() {
  std::string list;
  for (const Key& key : kKeys) list += fmt::format("{}{}", list.empty() ? "" : ", ", key.name);
  return list;
}

}  // namespace velorin
