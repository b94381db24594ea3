// The colour that stands for a cover.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/images/Bitmap.h"

namespace velorin {

/// Hue, saturation and brightness, each from 0 to 1; hue 0 is red, 1/3 green.
struct HSBColor {
  double h = 0;
  double s = 0;
  double b = 0;

  bool operator==(const HSBColor&) const = default;
};

/// The cover's dominant colour, bright and strong enough to tint the interface (see
/// withinAccentLimits). Nothing for a cover without colours. Any thread.
///
/// Of the picture in 32 by 32 pixels, those that are neither dark nor grey are counted in 192 bins
/// (12 of hue, 4 of saturation, 4 of brightness). The bin with the highest count times (mean
/// saturation + 0.5) wins, and the mean of its pixels is the colour.
std::optional<HSBColor> accentColorOf(const Bitmap& cover);

/// Saturation at least 0.5, brightness from 0.4 to 0.75.
HSBColor withinAccentLimits(HSBColor color) noexcept;

/// "#RRGGBB", as albums.accentColorHex holds it.
std::string accentHex(const HSBColor& color);
/// The stored colour within the limits; nothing for a text of another form.
std::optional<HSBColor> accentFromHex(std::string_view hex);

}  // namespace velorin
