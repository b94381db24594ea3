#include "engine/decoders/media/InfoTag.h"

#include <algorithm>
#include <string_view>

namespace velorin::media {
namespace {

enum Has : std::uint32_t { kFrames = 1, kBytes = 2, kSeekTable = 4, kQuality = 8 };
constexpr std::size_t kSeekTableBytes = 100;
constexpr std::size_t kGapsOffset = 21;  // from the encoder's name on

std::uint32_t bigEndian(std::span<const std::byte> bytes) {
  std::uint32_t value = 0;
  for (const std::byte each : bytes) value = value << 8 | std::to_integer<std::uint32_t>(each);
  return value;
}

/// Takes fields one after the other; zeros behind the end.
class Fields {
 public:
  explicit Fields(std::span<const std::byte> bytes) : _left(bytes) {}
  std::uint32_t take(std::size_t bytes) {
    if (_left.size() < bytes) {
      _left = {};
      return 0;
    }
    const std::uint32_t value = bigEndian(_left.first(bytes));
    _left = _left.subspan(bytes);
    return value;
  }
  void skip(std::size_t bytes) { _left = _left.subspan(std::min(bytes, _left.size())); }

 private:
  std::span<const std::byte> _left;
};

}  // namespace

std::optional<InfoTag> findInfoTag(std::span<const std::byte> head) noexcept {
  const std::string_view text(reinterpret_cast<const char*>(head.data()), head.size());
  const std::size_t at = std::max(text.rfind("Xing") + 1, text.rfind("Info") + 1);
  if (at == 0) return std::nullopt;
  Fields fields(head.subspan(at - 1 + 4));
  InfoTag tag;
  const std::uint32_t has = fields.take(4);
  if (has & kFrames) tag.frames = fields.take(4);
  if (has & kBytes) tag.bytes = fields.take(4);
  if (has & kSeekTable) fields.skip(kSeekTableBytes);
  if (has & kQuality) fields.skip(4);
  fields.skip(kGapsOffset);
  const std::uint32_t gaps = fields.take(3);
  tag.delay = gaps >> 12;
  tag.padding = gaps & 0xfff;
  tag.hasGaps = gaps != 0;
  return tag;
}

}  // namespace velorin::media
