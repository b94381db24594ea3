#include "foundation/PropertyList.h"

#include <fmt/format.h>
#include <locale.h>
#include <plist/plist.h>

#include <charconv>
#include <cstdlib>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>

#include "foundation/Text.h"

namespace velorin::propertyList {

namespace {

constexpr std::string_view kBytesOfText = "velorin:bytes of text";
constexpr std::string_view kHexPrefix = "velorin:hex:";

struct NodeDeleter {
  void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, NodeDeleter>;

struct MallocDeleter {
  void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Malloced = std::unique_ptr<T, MallocDeleter>;

/// libplist prints and reads numbers through the C library; a desktop toolkit may have set a
/// locale with a decimal comma.
class PlainNumbers {
 public:
  PlainNumbers()
      : _plain(::newlocale(LC_NUMERIC_MASK, "C", nullptr)), _before(::uselocale(_plain)) {}
  ~PlainNumbers() {
    ::uselocale(_before);
    if (_plain != nullptr) ::freelocale(_plain);
  }
  PlainNumbers(const PlainNumbers&) = delete;
  PlainNumbers& operator=(const PlainNumbers&) = delete;

 private:
  locale_t _plain;
  locale_t _before;
};

/// XML 1.0, production 2 (Char), without the carriage return that a reader would normalise away.
bool fitsXML(std::string_view bytes) {
  for (std::size_t i = 0; i < bytes.size();) {
    const text::CodePoint point = text::decode(bytes, i);
    const char32_t c = point.value;
    const bool allowed = c == '\t' || c == '\n' || (c >= 0x20 && c != 0xFFFE && c != 0xFFFF);
    if (!point.valid || !allowed) return false;
    i += point.length;
  }
  return true;
}

std::string keyToXML(const std::string& key) {
  // An empty key would be legal, but readers differ about it.
  const bool isOurs = key.starts_with(kHexPrefix) || key == kBytesOfText;
  if (!key.empty() && fitsXML(key) && !isOurs) return key;
  std::string out(kHexPrefix);
  for (const char c : key) out += fmt::format("{:02x}", static_cast<unsigned char>(c));
  return out;
}

std::string keyFromXML(std::string_view key) {
  if (!key.starts_with(kHexPrefix)) return std::string(key);
  const std::string_view digits = key.substr(kHexPrefix.size());
  std::string out;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    unsigned char byte = 0;
    const auto [end, error] = std::from_chars(&digits[i], &digits[i] + 2, byte, 16);
    if (error != std::errc{} || end != &digits[i] + 2) return std::string(key);
    out += static_cast<char>(byte);
  }
  return digits.size() % 2 == 0 ? out : std::string(key);
}

Node dataNode(const void* bytes, std::size_t size) {
  return Node(plist_new_data(static_cast<const char*>(size > 0 ? bytes : ""), size));
}

Node encode(const PreferenceValue& value, std::size_t depth);

struct Encoder {
  std::size_t depth;

  Node operator()(bool v) const { return Node(plist_new_bool(v ? 1 : 0)); }
  // libplist keeps 64 bits and prints them as signed.
  Node operator()(std::int64_t v) const {
    return Node(plist_new_uint(static_cast<std::uint64_t>(v)));
  }
  Node operator()(double v) const { return Node(plist_new_real(v)); }
  Node operator()(const std::string& v) const {
    if (fitsXML(v)) return Node(plist_new_string(v.c_str()));
    Node wrapper(plist_new_dict());
    plist_dict_set_item(wrapper.get(), kBytesOfText.data(), dataNode(v.data(), v.size()).release());
    return wrapper;
  }
  Node operator()(const PreferenceBytes& v) const { return dataNode(v.data(), v.size()); }
  Node operator()(const PreferenceList& v) const {
    if (depth >= kMaxDepth) return nullptr;
    Node list(plist_new_array());
    for (const PreferenceValue& item : v) {
      Node node = encode(item, depth + 1);
      if (!node) return nullptr;
      plist_array_append_item(list.get(), node.release());
    }
    return list;
  }
  Node operator()(const PreferenceMap& v) const {
    if (depth >= kMaxDepth) return nullptr;
    Node map(plist_new_dict());
    for (const auto& [key, item] : v) {
      Node node = encode(item, depth + 1);
      if (!node) return nullptr;
      plist_dict_set_item(map.get(), keyToXML(key).c_str(), node.release());
    }
    return map;
  }
};

Node encode(const PreferenceValue& value, std::size_t depth) {
  return std::visit(Encoder{depth}, value.value);
}

PreferenceBytes bytesOf(plist_t node) {
  char* raw = nullptr;
  std::uint64_t size = 0;
  plist_get_data_val(node, &raw, &size);
  const Malloced<char> owned(raw);
  if (raw == nullptr) return {};
  return {raw, raw + size};
}

std::string textOf(plist_t node) {
  std::uint64_t size = 0;
  const char* raw = plist_get_string_ptr(node, &size);
  return raw == nullptr ? std::string() : std::string(raw, size);
}

std::string dateOf(plist_t node) {
  constexpr std::int64_t kFrom1970To2001 = 978307200;
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  const std::chrono::sys_seconds moment{std::chrono::seconds(seconds + kFrom1970To2001)};
  const auto day = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(moment - day);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     time.hours().count(), time.minutes().count(), time.seconds().count());
}

std::optional<PreferenceValue> decode(plist_t node);

PreferenceValue listOf(plist_t node) {
  PreferenceList list;
  for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
    if (auto item = decode(plist_array_get_item(node, i))) list.push_back(std::move(*item));
  }
  return {std::move(list)};
}

PreferenceValue mapOf(plist_t node) {
  PreferenceMap map;
  bool wrapsText = false;
  plist_dict_iter rawIterator = nullptr;
  plist_dict_new_iter(node, &rawIterator);
  const Malloced<void> iterator(rawIterator);
  for (;;) {
    char* rawKey = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, rawIterator, &rawKey, &item);
    const Malloced<char> key(rawKey);
    if (item == nullptr || rawKey == nullptr) break;
    wrapsText = wrapsText || rawKey == kBytesOfText;
    if (auto value = decode(item)) map.insert_or_assign(keyFromXML(rawKey), std::move(*value));
  }
  if (wrapsText && map.size() == 1) {
    if (const auto* bytes = std::get_if<PreferenceBytes>(&map.begin()->second.value)) {
      return {std::string(bytes->begin(), bytes->end())};
    }
  }
  return {std::move(map)};
}

std::optional<PreferenceValue> decode(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t flag = 0;
      plist_get_bool_val(node, &flag);
      return PreferenceValue{flag != 0};
    }
    case PLIST_UINT: {
      std::uint64_t bits = 0;
      plist_get_uint_val(node, &bits);
      return PreferenceValue{static_cast<std::int64_t>(bits)};
    }
    case PLIST_REAL: {
      double number = 0;
      plist_get_real_val(node, &number);
      return PreferenceValue{number};
    }
    case PLIST_STRING:
      return PreferenceValue{textOf(node)};
    case PLIST_DATA:
      return PreferenceValue{bytesOf(node)};
    case PLIST_DATE:
      return PreferenceValue{dateOf(node)};
    case PLIST_ARRAY:
      return listOf(node);
    case PLIST_DICT:
      return mapOf(node);
    default:
      return std::nullopt;
  }
}

/// libplist frees a tree by recursion, so that a file of nothing but opening tags would end the
/// program: its nesting is measured before it gets the text.
bool isTooDeep(std::string_view xml) {
  std::size_t depth = 0;
  for (std::size_t i = xml.find('<'); i != std::string_view::npos; i = xml.find('<', i)) {
    const std::string_view rest = xml.substr(i);
    std::string_view end = ">";
    if (rest.starts_with("<!--")) end = "-->";
    if (rest.starts_with("<![CDATA[")) end = "]]>";
    const std::size_t close = xml.find(end, i);
    if (close == std::string_view::npos) return false;
    if (rest.starts_with("</")) {
      if (depth > 0) --depth;
    } else if (rest[1] != '!' && rest[1] != '?' && xml[close - 1] != '/') {
      // <plist>, the leaf and its <key> stand around and beside the lists and maps.
      if (++depth > kMaxDepth + 3) return true;
    }
    i = close + end.size();
  }
  return false;
}

}  // namespace

std::optional<std::string> format(const PreferenceValue& value) {
  const PlainNumbers plain;
  const Node node = encode(value, 0);
  if (!node) return std::nullopt;
  char* raw = nullptr;
  std::uint32_t size = 0;
  plist_to_xml(node.get(), &raw, &size);
  const Malloced<char> owned(raw);
  if (raw == nullptr) return std::nullopt;
  return std::string(raw, size);
}

std::optional<PreferenceValue> parse(std::string_view xml) {
  if (xml.size() > std::numeric_limits<std::uint32_t>::max() || isTooDeep(xml)) return std::nullopt;
  // XML has no NUL, and libplist ends the program over one inside a key.
  if (xml.find('\0') != std::string_view::npos) return std::nullopt;
  const PlainNumbers plain;
  plist_t raw = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &raw);
  const Node node(raw);
  if (!node) return std::nullopt;
  return decode(node.get());
}

}  // namespace velorin::propertyList
