// The discrete Fourier transform that benches measure filters with.
#pragma once

#include <complex>
#include <span>
#include <vector>

namespace velorin::bench {

/// Forward DFT, unscaled, of samples padded with zeros to the next power of two. Radix 2, in
/// double: its rounding noise lies near -300 dB, far below what is measured.
std::vector<std::complex<double>> transform(std::span<const double> samples);

/// 20 log10 of a magnitude; -400 for zero.
double decibels(double magnitude);

}  // namespace velorin::bench
