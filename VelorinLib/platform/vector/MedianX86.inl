// Medians of a sliding window of 21, for every x86 instruction set.
//
// Included as VectorX86.inl is. The lanes of a register hold windows that follow each other. What
// windows share is sorted once: each run of five values, from two of those each run of ten, and a
// window is two runs of ten and a last value. Comparisons are of integers in the order of the
// floats (orderKey), which has no ties that differ and no value that compares with none.

constexpr std::size_t kMedianTile = 256;
constexpr std::size_t kMedianRoom = kMedianTile + 96;

inline void exchange(I& low, I& high) {
  const I lesser = lesserInt(low, high);
  high = greaterInt(low, high);
  low = lesser;
}

// Run i of `fives` becomes keys[i .. i + 4] in order, lane by lane.
inline void sortFives(const std::int32_t* keys, std::int32_t (*fives)[kMedianRoom],
                      std::size_t count) {
  for (std::size_t i = 0; i < count; i += kLanes) {
    I a = load(keys + i);
    I b = load(keys + i + 1);
    I c = load(keys + i + 2);
    I d = load(keys + i + 3);
    I e = load(keys + i + 4);
    exchange(a, d);
    exchange(b, e);
    exchange(a, c);
    exchange(b, d);
    exchange(a, b);
    exchange(c, e);
    exchange(b, c);
    exchange(d, e);
    exchange(c, d);
    store(fives[0] + i, a);
    store(fives[1] + i, b);
    store(fives[2] + i, c);
    store(fives[3] + i, d);
    store(fives[4] + i, e);
  }
}

// Batcher's odd-even merge of the fives at i and at i + 5: those at even places among themselves,
// those at odd places, then the neighbours.
inline void mergeTens(std::int32_t (*fives)[kMedianRoom], std::int32_t (*tens)[kMedianRoom],
                      std::size_t count) {
  for (std::size_t i = 0; i < count; i += kLanes) {
    I a0 = load(fives[0] + i);
    I a1 = load(fives[1] + i);
    I a2 = load(fives[2] + i);
    I a3 = load(fives[3] + i);
    I a4 = load(fives[4] + i);
    I b0 = load(fives[0] + i + 5);
    I b1 = load(fives[1] + i + 5);
    I b2 = load(fives[2] + i + 5);
    I b3 = load(fives[3] + i + 5);
    I b4 = load(fives[4] + i + 5);
    // a0 a2 a4 with b0 b2 b4, into a0 b0 a2 b2 a4 b4
    exchange(a0, b0);
    exchange(a4, b4);
    exchange(b0, a4);
    exchange(a2, b2);
    exchange(b0, a2);
    exchange(b2, a4);
    // a1 a3 with b1 b3, into a1 b1 a3 b3
    exchange(a1, b1);
    exchange(a3, b3);
    exchange(b1, a3);
    exchange(a1, b0);
    exchange(b1, a2);
    exchange(a3, b2);
    exchange(b3, a4);
    const I sorted[] = {a0, a1, b0, b1, a2, a3, b2, b3, a4, b4};
    for (std::size_t k = 0; k < 10; ++k) store(tens[k] + i, sorted[k]);
  }
}

// The eleventh of the tens at i and at i + 10 and of the last key. The tenth of two sorted runs is
// the least of the greater ones at places that add up to 8 (from 0), or of the two tenths; the
// eleventh mirrors it. The last value only matters between those two.
inline I medianAt(const std::int32_t* keys, std::int32_t (*tens)[kMedianRoom], std::size_t i) {
  I tenth = lesserInt(load(tens[9] + i), load(tens[9] + i + 10));
  I eleventh = greaterInt(load(tens[0] + i), load(tens[0] + i + 10));
  for (std::size_t k = 0; k < 9; ++k) {
    tenth = lesserInt(tenth, greaterInt(load(tens[k] + i), load(tens[8 - k] + i + 10)));
    eleventh = greaterInt(eleventh, lesserInt(load(tens[k + 1] + i), load(tens[9 - k] + i + 10)));
  }
  return greaterInt(tenth, lesserInt(eleventh, load(keys + i + 20)));
}

void medianOf21(const float* in, float* out, std::size_t count) noexcept {
  // Whole registers everywhere: what is computed beyond the run is never copied out.
  alignas(64) std::int32_t keys[kMedianRoom];
  alignas(64) std::int32_t fives[5][kMedianRoom];
  alignas(64) std::int32_t tens[10][kMedianRoom];
  alignas(64) std::int32_t medians[kMedianRoom];
  for (std::size_t start = 0; start < count; start += kMedianTile) {
    const std::size_t n = count - start < kMedianTile ? count - start : kMedianTile;
    const std::size_t tenCount = n + kLanes + 10;
    const std::size_t fiveCount = tenCount + kLanes + 5;
    const std::size_t keyCount = fiveCount + kLanes + 4;
    __builtin_memcpy(keys, in + start, (n + 20) * sizeof *keys);
    __builtin_memset(keys + n + 20, 0, (keyCount - n - 20) * sizeof *keys);
    for (std::size_t i = 0; i < n + 20; i += kLanes) store(keys + i, orderKey(load(keys + i)));
    sortFives(keys, fives, fiveCount);
    mergeTens(fives, tens, tenCount);
    for (std::size_t i = 0; i < n; i += kLanes) {
      store(medians + i, orderKey(medianAt(keys, tens, i)));
    }
    __builtin_memcpy(out + start, medians, n * sizeof *medians);
  }
}
