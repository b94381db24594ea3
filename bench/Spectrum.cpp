#include "bench/Spectrum.h"

#include <bit>
#include <cmath>
#include <numbers>

namespace velorin::bench {

std::vector<std::complex<double>> transform(std::span<const double> samples) {
  const std::size_t size = std::bit_ceil(std::max<std::size_t>(samples.size(), 2));
  std::vector<std::complex<double>> bins(size);
  // Bit-reversed order first, then butterflies of doubling width.
  for (std::size_t i = 0, reversed = 0; i < size; ++i) {
    bins[reversed] = i < samples.size() ? samples[i] : 0.0;
    std::size_t bit = size >> 1;
    for (; bit != 0 && (reversed & bit) != 0; bit >>= 1) reversed ^= bit;
    reversed |= bit;
  }
  std::vector<std::complex<double>> turns(size / 2);
  for (std::size_t i = 0; i < turns.size(); ++i) {
    turns[i] =
        std::polar(1.0, -2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(size));
  }
  for (std::size_t half = 1; half < size; half *= 2) {
    const std::size_t stride = size / (2 * half);
    for (std::size_t start = 0; start < size; start += 2 * half) {
      for (std::size_t i = 0; i < half; ++i) {
        const std::complex<double> upper = bins[start + i];
        const std::complex<double> lower = bins[start + half + i] * turns[i * stride];
        bins[start + i] = upper + lower;
        bins[start + half + i] = upper - lower;
      }
    }
  }
  return bins;
}

double decibels(double magnitude) {
  return magnitude > 1e-20 ? 20 * std::log10(magnitude) : -400;
}

}  // namespace velorin::bench
