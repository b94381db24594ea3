#include "ResponsePlot.h"

#include <cairo.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "OutputFile.h"
#include "foundation/Text.h"

namespace velorin {
namespace {

constexpr int kWidth = 1000;
constexpr int kHeight = 520;
constexpr double kLeft = 64;
constexpr double kRight = 36;
constexpr double kTop = 28;
constexpr double kBottom = 44;

struct Free {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
  void operator()(cairo_t* context) const { cairo_destroy(context); }
};

class Plot {
 public:
  explicit Plot(const ChainResponse& response)
      : _response(response),
        _surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight)),
        _context(cairo_create(_surface.get())) {
    double low = -6;
    double high = 6;
    for (const ResponsePoint& point : response.points) {
      low = std::min({low, point.leftDB, point.rightDB});
      high = std::max({high, point.leftDB, point.rightDB});
    }
    // What lies deeper than this below the top tells nothing, and flattens the rest.
    low = std::max(low, high - 60);
    _step = high - low > 40 ? 12 : high - low > 16 ? 6 : 3;
    _low = std::floor(low / _step) * _step;
    _high = std::ceil(high / _step) * _step;
  }

  void draw() {
    cairo_set_source_rgb(_context.get(), 1, 1, 1);
    cairo_paint(_context.get());
    cairo_select_font_face(_context.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(_context.get(), 13);
    drawGrid();
    drawCurve(&ResponsePoint::rightDB, 0.85, 0.30, 0.20);
    drawCurve(&ResponsePoint::leftDB, 0.10, 0.40, 0.80);
    const bool areAlike = std::ranges::all_of(
        _response.points, [](const ResponsePoint& point) { return point.leftDB == point.rightDB; });
    label(kLeft, 18,
          fmt::format("Response at {:g} Hz: {}", _response.sampleRate,
                      areAlike ? "left and right alike" : "left blue, right red"),
          0);
  }

  cairo_surface_t* surface() const { return _surface.get(); }

 private:
  double x(double frequency) const {
    const double first = _response.points.front().frequency;
    const double last = _response.points.back().frequency;
    return kLeft + std::log(frequency / first) / std::log(last / first) * (kWidth - kLeft - kRight);
  }
  double y(double decibels) const {
    const double part = (std::clamp(decibels, _low, _high) - _low) / (_high - _low);
    return kHeight - kBottom - part * (kHeight - kTop - kBottom);
  }

  /// `alignment`: 0 begins at x, 0.5 is centred on it, 1 ends there.
  void label(double x, double y, const std::string& text, double alignment) {
    cairo_text_extents_t extents;
    cairo_text_extents(_context.get(), text.c_str(), &extents);
    cairo_set_source_rgb(_context.get(), 0.25, 0.25, 0.25);
    cairo_move_to(_context.get(), x - alignment * extents.x_advance, y);
    cairo_show_text(_context.get(), text.c_str());
  }

  void line(double x1, double y1, double x2, double y2, double grey) {
    cairo_set_source_rgb(_context.get(), grey, grey, grey);
    cairo_set_line_width(_context.get(), 1);
    cairo_move_to(_context.get(), x1, y1);
    cairo_line_to(_context.get(), x2, y2);
    cairo_stroke(_context.get());
  }

  void drawGrid() {
    for (double decibels = _low; decibels <= _high + 0.1; decibels += _step) {
      line(kLeft, y(decibels), kWidth - kRight, y(decibels), decibels == 0 ? 0.45 : 0.85);
      label(kLeft - 8, y(decibels) + 4,
            decibels == 0 ? "0 dB" : fmt::format("{:+.0f} dB", decibels), 1);
    }
    const double last = _response.points.back().frequency;
    for (double decade = 10; decade < last; decade *= 10) {
      for (int i = 1; i < 10; ++i) {
        const double frequency = decade * i;
        if (frequency < _response.points.front().frequency || frequency > last) continue;
        line(x(frequency), kTop, x(frequency), kHeight - kBottom, 0.85);
        if (i == 1 || i == 2 || i == 5) {
          label(x(frequency), kHeight - kBottom + 20,
                frequency >= 1000 ? fmt::format("{:g} kHz", frequency / 1000)
                                  : fmt::format("{:g} Hz", frequency),
                0.5);
        }
      }
    }
  }

  void drawCurve(double ResponsePoint::*channel, double red, double green, double blue) {
    cairo_set_source_rgb(_context.get(), red, green, blue);
    cairo_set_line_width(_context.get(), 2);
    // A label leaves the pen where its text ends.
    cairo_new_path(_context.get());
    for (const ResponsePoint& point : _response.points) {
      cairo_line_to(_context.get(), x(point.frequency), y(point.*channel));
    }
    cairo_stroke(_context.get());
  }

  const ChainResponse& _response;
  std::unique_ptr<cairo_surface_t, Free> _surface;
  std::unique_ptr<cairo_t, Free> _context;
  double _low = 0;
  double _high = 0;
  double _step = 0;
};

cairo_status_t append(void* closure, const unsigned char* bytes, unsigned length) {
  const bool written = static_cast<OutputFile*>(closure)->write(
      std::as_bytes(std::span<const unsigned char>(bytes, length)));
  return written ? CAIRO_STATUS_SUCCESS : CAIRO_STATUS_WRITE_ERROR;
}

}  // namespace

std::optional<std::string> writeResponsePlot(const ChainResponse& response,
                                             const std::filesystem::path& path) {
  auto file = OutputFile::create(path);
  if (!file) return file.error().text;
  Plot plot(response);
  plot.draw();
  const auto status =
      cairo_surface_write_to_png_stream(plot.surface(), &append, file.value().get());
  if (status == CAIRO_STATUS_SUCCESS && file.value()->commit()) return std::nullopt;
  if (!file.value()->error().text.empty()) return file.value()->error().text;
  return text::pathForDisplay(path) +
         ": the picture cannot be made: " + cairo_status_to_string(status);
}

}  // namespace velorin
