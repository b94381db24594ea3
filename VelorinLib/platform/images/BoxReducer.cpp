#include "platform/images/BoxReducer.h"

#include <algorithm>
#include <cstring>

namespace velorin::images {
namespace {

int blocks(int side, int factor) {
  return (side - 1) / factor + 1;
}

/// Pixels of a side that fall into a block; all but the last block have `factor`.
int pixelsIn(int block, int side, int factor) {
  return std::min(factor, side - block * factor);
}

}  // namespace

BoxReducer::BoxReducer(int width, int height, int factorX, int factorY)
    : _width(width),
      _height(height),
      _factorX(factorX),
      _factorY(factorY),
      _result(Bitmap::ofSize(blocks(width, factorX), blocks(height, factorY))) {
  _sums.resize(_result.rowBytes());
}

void BoxReducer::addRow(const std::uint8_t* row) {
  if (_rowsTaken == _height) return;
  const int resultRow = _rowsTaken / _factorY;
  const int rowInBlock = _rowsTaken % _factorY;
  ++_rowsTaken;
  if (_factorX == 1 && _factorY == 1) {
    std::memcpy(_result.row(resultRow), row, _result.rowBytes());
    return;
  }
  std::uint64_t* sums = _sums.data();
  for (int block = 0; block < _result.width; ++block, sums += Bitmap::kChannels) {
    std::uint32_t red = 0;
    std::uint32_t green = 0;
    std::uint32_t blue = 0;
    for (int i = pixelsIn(block, _width, _factorX); i > 0; --i, row += Bitmap::kChannels) {
      red += row[0];
      green += row[1];
      blue += row[2];
    }
    sums[0] += red;
    sums[1] += green;
    sums[2] += blue;
  }
  const int rowsInBlock = pixelsIn(resultRow, _height, _factorY);
  if (rowInBlock + 1 == rowsInBlock) finishRow(rowsInBlock);
}

void BoxReducer::finishRow(int rowsInBlock) {
  std::uint8_t* out = _result.row((_rowsTaken - 1) / _factorY);
  for (int block = 0; block < _result.width; ++block) {
    const auto count = static_cast<std::uint64_t>(pixelsIn(block, _width, _factorX)) *
                       static_cast<std::uint64_t>(rowsInBlock);
    for (std::size_t channel = 0; channel < Bitmap::kChannels; ++channel) {
      const std::size_t i = static_cast<std::size_t>(block) * Bitmap::kChannels + channel;
      out[i] = static_cast<std::uint8_t>((_sums[i] + count / 2) / count);
      _sums[i] = 0;
    }
  }
}

PixelReducer::PixelReducer(int width, int height, int factor)
    : _width(width),
      _height(height),
      _factor(factor),
      _result(Bitmap::ofSize(blocks(width, factor), blocks(height, factor))) {
  _sums.resize(_result.pixels.size());
}

void PixelReducer::addPixels(int y, int x0, int step, std::span<const std::uint8_t> pixels) {
  std::uint32_t* sums = _sums.data() + static_cast<std::size_t>(y / _factor) * _result.rowBytes();
  int x = x0;
  for (; pixels.size() >= Bitmap::kChannels && x < _width; x += step) {
    std::uint32_t* sum = sums + static_cast<std::size_t>(x / _factor) * Bitmap::kChannels;
    for (std::size_t channel = 0; channel < Bitmap::kChannels; ++channel) {
      sum[channel] += pixels[channel];
    }
    pixels = pixels.subspan(Bitmap::kChannels);
  }
}

Bitmap PixelReducer::take() && {
  std::size_t i = 0;
  for (int y = 0; y < _result.height; ++y) {
    const int rows = pixelsIn(y, _height, _factor);
    for (int x = 0; x < _result.width; ++x) {
      const auto count = static_cast<std::uint32_t>(rows * pixelsIn(x, _width, _factor));
      for (std::size_t channel = 0; channel < Bitmap::kChannels; ++channel, ++i) {
        _result.pixels[i] = static_cast<std::uint8_t>((_sums[i] + count / 2) / count);
      }
    }
  }
  return std::move(_result);
}

}  // namespace velorin::images
