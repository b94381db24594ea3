#include "engine/dsd/DoPPacking.h"

#include "engine/dsd/DSDTables.h"

namespace velorin {

void DoPPacking::pack(const std::uint8_t* bytes, std::size_t stride, std::size_t channels,
                      std::size_t frames, std::int32_t* words) noexcept {
  const auto& reversed = DSDTables::shared().reversed;
  const auto ordered = [&](std::uint8_t byte) -> std::uint32_t {
    return _isLeastSignificantFirst ? reversed[byte] : byte;
  };
  for (std::size_t frame = 0; frame < frames; ++frame) {
    const std::uint32_t marker = _isToggled ? 0xFA000000 : 0x05000000;
    _isToggled = !_isToggled;
    for (std::size_t channel = 0; channel < channels; ++channel) {
      const std::uint8_t* const pair = bytes + channel * stride + 2 * frame;
      *words++ = static_cast<std::int32_t>(marker | ordered(pair[0]) << 16 | ordered(pair[1]) << 8);
    }
  }
}

}  // namespace velorin
