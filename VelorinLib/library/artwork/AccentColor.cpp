#include "library/artwork/AccentColor.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "platform/images/ImageScaler.h"

namespace velorin {
namespace {

constexpr int kSide = 32;
constexpr std::size_t kHueBins = 12;
constexpr std::size_t kToneBins = 4;  // of saturation, and of brightness

HSBColor fromRgb(double r, double g, double b) {
  const double v = std::max({r, g, b});
  const double d = v - std::min({r, g, b});
  HSBColor color{.h = 0, .s = v == 0 ? 0 : d / v, .b = v};
  if (d == 0) return color;
  double sixths = 0;
  if (v == r) {
    sixths = std::fmod((g - b) / d, 6);
  } else if (v == g) {
    sixths = (b - r) / d + 2;
  } else {
    sixths = (r - g) / d + 4;
  }
  color.h = sixths / 6;
  if (color.h < 0) color.h += 1;
  return color;
}

struct Rgb {
  double r = 0;
  double g = 0;
  double b = 0;
};

Rgb toRgb(const HSBColor& color) {
  // How far each channel lies below the brightness, by the distance of its hue.
  const auto channel = [&](double offset) {
    const double k = std::fmod(offset + color.h * 6, 6);
    return color.b - color.b * color.s * std::max(0.0, std::min({k, 4 - k, 1.0}));
  };
  return {channel(5), channel(3), channel(1)};
}

struct Bin {
  int count = 0;
  HSBColor mean;

  void add(const HSBColor& color) {
    ++count;
    mean.h += (color.h - mean.h) / count;
    mean.s += (color.s - mean.s) / count;
    mean.b += (color.b - mean.b) / count;
  }
  double score() const { return count * (mean.s + 0.5); }
};

std::size_t binOf(double value, std::size_t bins) {
  return std::min(static_cast<std::size_t>(value * static_cast<double>(bins)), bins - 1);
}

}  // namespace

HSBColor withinAccentLimits(HSBColor color) noexcept {
  return {color.h, std::max(color.s, 0.5), std::min(std::max(color.b, 0.4), 0.75)};
}

std::optional<HSBColor> accentColorOf(const Bitmap& cover) {
  const auto small = scaled(cover, {kSide, kSide});
  if (!small) return std::nullopt;
  std::array<Bin, kHueBins * kToneBins * kToneBins> bins{};
  const std::vector<std::uint8_t>& pixels = small->pixels;
  for (std::size_t i = 0; i < pixels.size(); i += Bitmap::kChannels) {
    const HSBColor color = fromRgb(pixels[i] / 255.0, pixels[i + 1] / 255.0, pixels[i + 2] / 255.0);
    if (color.b < 0.15 || color.s < 0.2) continue;
    bins[(binOf(color.h, kHueBins) * kToneBins + binOf(color.s, kToneBins)) * kToneBins +
         binOf(color.b, kToneBins)]
        .add(color);
  }
  // Of equal ones the first.
  const auto best = std::ranges::max_element(bins, {}, &Bin::score);
  if (best->count == 0) return std::nullopt;
  return withinAccentLimits(best->mean);
}

std::string accentHex(const HSBColor& color) {
  const Rgb rgb = toRgb(color);
  const auto byte = [](double value) { return std::lround(std::clamp(value, 0.0, 1.0) * 255); };
  return fmt::format("#{:02X}{:02X}{:02X}", byte(rgb.r), byte(rgb.g), byte(rgb.b));
}

std::optional<HSBColor> accentFromHex(std::string_view hex) {
  if (hex.size() != 7 || hex.front() != '#') return std::nullopt;
  unsigned value = 0;
  for (const char c : hex.substr(1)) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const auto digit = kDigits.find(c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c);
    if (digit == std::string_view::npos) return std::nullopt;
    value = value * 16 + static_cast<unsigned>(digit);
  }
  return withinAccentLimits(
      fromRgb((value >> 16) / 255.0, (value >> 8 & 0xff) / 255.0, (value & 0xff) / 255.0));
}

}  // namespace velorin
