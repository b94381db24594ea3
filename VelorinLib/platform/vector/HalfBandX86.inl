// The half-band filter, for every x86 instruction set. Included as VectorX86.inl is.

inline F halfBandPair(const float* even, std::size_t k, const HalfBandTaps& taps) {
  return multiply(broadcast(taps.pairs[k]), plus(load(even + k), load(even + 11 - k)));
}

void halfBand(const float* even, const float* odd, const HalfBandTaps& taps, float* out,
              std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    const float* const from = even + i;
    F sum = halfBandPair(from, 0, taps);
    sum = plus(sum, halfBandPair(from, 1, taps));
    sum = plus(sum, halfBandPair(from, 2, taps));
    sum = plus(sum, halfBandPair(from, 3, taps));
    sum = plus(sum, halfBandPair(from, 4, taps));
    sum = plus(sum, halfBandPair(from, 5, taps));
    store(out + i, plus(sum, multiply(broadcast(taps.centre), load(odd + i))));
  }
  scalar::halfBand(even + i, odd + i, taps, out + i, count - i);
}
