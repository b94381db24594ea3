// Sums of table rows, for every x86 instruction set.
//
// Included as VectorX86.inl is, after Row, four doubles wide everywhere, with loadRow(), sumRows()
// and narrowRow(). Four bytes and the four samples of their times are one step: a byte has a share
// in those and in the twelve samples after the first of them, which wait in three registers. A row
// that is loaded from before its first share, or to beyond its last, puts the shares in their lanes.

void sumOneBitRows(const std::uint8_t* bytes, const double* rows, float* out,
                   std::size_t count) noexcept {
  constexpr std::size_t kStep = 4;
  constexpr std::size_t kBefore = kOneBitSpan - 1;
  if (count < kStep) return scalar::sumOneBitRows(bytes, rows, out, count);
  const auto rowOf = [rows](std::uint8_t byte) { return rows + byte * kOneBitStride; };

  // What the bytes before the first sample's have for the first twelve samples.
  double waiting[kOneBitSpan] = {};
  for (std::size_t i = 0; i < kBefore; ++i) {
    const double* const shares = rowOf(bytes[i]) + kOneBitPadding + kBefore - i;
    for (std::size_t k = 0; k <= i; ++k) waiting[k] += shares[k];
  }
  Row first = loadRow(waiting);
  Row second = loadRow(waiting + 4);
  Row third = loadRow(waiting + 8);

  const std::uint8_t* next = bytes + kBefore;
  std::size_t i = 0;
  for (; i + kStep <= count; i += kStep, next += kStep) {
    const double* const a = rowOf(next[0]);
    const double* const b = rowOf(next[1]);
    const double* const c = rowOf(next[2]);
    const double* const d = rowOf(next[3]);
    const Row now = sumRows(sumRows(loadRow(a + 3), loadRow(b + 2)),
                            sumRows(loadRow(c + 1), loadRow(d)));
    narrowRow(sumRows(first, now), out + i);
    first = sumRows(second, sumRows(sumRows(loadRow(a + 7), loadRow(b + 6)),
                                    sumRows(loadRow(c + 5), loadRow(d + 4))));
    second = sumRows(third, sumRows(sumRows(loadRow(a + 11), loadRow(b + 10)),
                                    sumRows(loadRow(c + 9), loadRow(d + 8))));
    third = sumRows(loadRow(b + 14), sumRows(loadRow(c + 13), loadRow(d + 12)));
  }
  scalar::sumOneBitRows(bytes + i, rows, out + i, count - i);
}
