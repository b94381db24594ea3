// The SIMD kernels, written once for every x86 instruction set.
//
// Included inside a namespace by VectorSse2.cpp, VectorAvx2.cpp and VectorAvx512.cpp, each under
// its own compiler target and after these names: F (floats) and I (32-bit integers) with kLanes
// lanes, kDoubleLanes, and the small functions used below. Plain functions rather than templates,
// because compilers apply a target to functions only where they are written.
//
// Each kernel takes whole registers and leaves the rest of the run to the scalar reference.

void fill(float value, float* out, std::size_t count) noexcept {
  const F all = broadcast(value);
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, all);
  scalar::fill(value, out + i, count - i);
}

void multiplyByScalar(const float* in, float factor, float* out, std::size_t count) noexcept {
  const F factors = broadcast(factor);
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, multiply(load(in + i), factors));
  scalar::multiplyByScalar(in + i, factor, out + i, count - i);
}

void multiplyAdd(const float* in, float factor, float* accumulator, std::size_t count) noexcept {
  const F factors = broadcast(factor);
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    store(accumulator + i, plus(load(accumulator + i), multiply(load(in + i), factors)));
  }
  scalar::multiplyAdd(in + i, factor, accumulator + i, count - i);
}

void add(const float* a, const float* b, float* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, plus(load(a + i), load(b + i)));
  scalar::add(a + i, b + i, out + i, count - i);
}

void subtract(const float* a, const float* b, float* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, minus(load(a + i), load(b + i)));
  scalar::subtract(a + i, b + i, out + i, count - i);
}

void multiply(const float* a, const float* b, float* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, multiply(load(a + i), load(b + i)));
  scalar::multiply(a + i, b + i, out + i, count - i);
}

void weightedSum(const float* a, float gainA, const float* b, float gainB, float* out,
                 std::size_t count) noexcept {
  const F gainsA = broadcast(gainA);
  const F gainsB = broadcast(gainB);
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    store(out + i, plus(multiply(load(a + i), gainsA), multiply(load(b + i), gainsB)));
  }
  scalar::weightedSum(a + i, gainA, b + i, gainB, out + i, count - i);
}

void negate(const float* in, float* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, negated(load(in + i)));
  scalar::negate(in + i, out + i, count - i);
}

void absolute(const float* in, float* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, magnitude(load(in + i)));
  scalar::absolute(in + i, out + i, count - i);
}

void square(const float* in, float* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, multiply(load(in + i), load(in + i)));
  scalar::square(in + i, out + i, count - i);
}

void squareRoot(const float* in, float* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, root(load(in + i)));
  scalar::squareRoot(in + i, out + i, count - i);
}

void roundToNearest(const float* in, float* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, rounded(load(in + i)));
  scalar::roundToNearest(in + i, out + i, count - i);
}

inline F polynomial(std::span<const float> coefficients, F x) {
  F sum = broadcast(coefficients[0]);
  for (std::size_t i = 1; i < coefficients.size(); ++i) {
    sum = plus(multiply(sum, x), broadcast(coefficients[i]));
  }
  return sum;
}

// The reference's arithmetic, both branches in every lane.
inline F tanhOf(F x) {
  namespace c = tanh_constants;
  const F one = broadcast(1);
  const F size = magnitude(x);
  const F u = multiply(x, x);
  const F near = plus(x, multiply(multiply(x, u), polynomial(c::kTanh, u)));

  const F t = lesser(plus(size, size), broadcast(c::kLimit));
  const I k = toNearest(multiply(t, broadcast(c::kLog2OfE)));
  const F whole = toFloat(k);
  const F r = minus(minus(t, multiply(whole, broadcast(c::kLn2High))),
                    multiply(whole, broadcast(c::kLn2Low)));
  const F p = plus(r, multiply(multiply(r, r), polynomial(c::kExp, r)));
  const F power = powerOfTwo(k);
  const F exponential = plus(power, multiply(power, p));
  const F far = withSign(minus(one, divide(broadcast(2), plus(exponential, one))), x);
  return whereNotLess(size, broadcast(c::kNear), far, near);
}

void tanh(const float* in, float* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, tanhOf(load(in + i)));
  scalar::tanh(in + i, out + i, count - i);
}

void swap(float* a, float* b, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    const F kept = load(a + i);
    store(a + i, load(b + i));
    store(b + i, kept);
  }
  scalar::swap(a + i, b + i, count - i);
}

void clip(const float* in, float low, float high, float* out, std::size_t count) noexcept {
  const F lows = broadcast(low);
  const F highs = broadcast(high);
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    store(out + i, lesser(greater(nanToZero(load(in + i)), lows), highs));
  }
  scalar::clip(in + i, low, high, out + i, count - i);
}

float maxMagnitude(const float* in, std::size_t count) noexcept {
  F largest = broadcast(0);
  std::size_t i = 0;
  // The sample comes first: with a NaN there, the instruction gives the second operand.
  for (; i + kLanes <= count; i += kLanes) largest = greater(magnitude(load(in + i)), largest);
  float lanes[kLanes];
  store(lanes, largest);
  const float inRegisters = scalar::maxMagnitude(lanes, kLanes);
  const float inRest = scalar::maxMagnitude(in + i, count - i);
  return inRegisters > inRest ? inRegisters : inRest;
}

void int16ToFloat(const std::int16_t* in, float factor, float* out, std::size_t count) noexcept {
  const F factors = broadcast(factor);
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    store(out + i, multiply(toFloat(loadWidened(in + i)), factors));
  }
  scalar::int16ToFloat(in + i, factor, out + i, count - i);
}

void int32ToFloat(const std::int32_t* in, float factor, float* out, std::size_t count) noexcept {
  const F factors = broadcast(factor);
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    store(out + i, multiply(toFloat(load(in + i)), factors));
  }
  scalar::int32ToFloat(in + i, factor, out + i, count - i);
}

void floatToDouble(const float* in, double* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kDoubleLanes <= count; i += kDoubleLanes) widenToDouble(in + i, out + i);
  scalar::floatToDouble(in + i, out + i, count - i);
}

void doubleToFloat(const double* in, float* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kDoubleLanes <= count; i += kDoubleLanes) narrowToFloat(in + i, out + i);
  afterNarrowing();
  scalar::doubleToFloat(in + i, out + i, count - i);
}

void doubleToInt32(const double* in, std::int32_t* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kDoubleLanes <= count; i += kDoubleLanes) {
    storeInt32(out + i, truncate(in + i, 2147483647.0, -2147483648.0, 2147483647.0));
  }
  scalar::doubleToInt32(in + i, out + i, count - i);
}

void doubleToInt16(const double* in, std::int16_t* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; i + kDoubleLanes <= count; i += kDoubleLanes) {
    storeInt16(out + i, truncate(in + i, 32767.0, -32768.0, 32767.0));
  }
  scalar::doubleToInt16(in + i, out + i, count - i);
}

void floatToInt32(const float* in, unsigned bits, std::int32_t* out, std::size_t count) noexcept {
  const float scale = static_cast<float>(std::uint32_t{1} << (bits - 1));
  const F scales = broadcast(scale);
  const F lows = broadcast(-scale);
  const F beyond = broadcast(2147483648.0f);
  const I top = broadcastInt(static_cast<std::int32_t>((std::uint32_t{1} << (bits - 1)) - 1));
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    const F scaled = greater(multiply(nanToZero(load(in + i)), scales), lows);
    // Values past 2^31 - 1 convert to the smallest integer; flipping its bits gives the largest.
    store(out + i, lesserInt(flipWhereNotLess(toNearest(scaled), scaled, beyond), top));
  }
  scalar::floatToInt32(in + i, bits, out + i, count - i);
}

void clipInt32(const std::int32_t* in, std::int32_t low, std::int32_t high, std::int32_t* out,
               std::size_t count) noexcept {
  const I lows = broadcastInt(low);
  const I highs = broadcastInt(high);
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    store(out + i, lesserInt(greaterInt(load(in + i), lows), highs));
  }
  scalar::clipInt32(in + i, low, high, out + i, count - i);
}

void shiftLeftInt32(const std::int32_t* in, unsigned bits, std::int32_t* out,
                    std::size_t count) noexcept {
  const __m128i distance = _mm_cvtsi32_si128(static_cast<int>(bits));
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, shiftLeft(load(in + i), distance));
  scalar::shiftLeftInt32(in + i, bits, out + i, count - i);
}

void shiftRightInt32(const std::int32_t* in, unsigned bits, std::int32_t* out,
                     std::size_t count) noexcept {
  const __m128i distance = _mm_cvtsi32_si128(static_cast<int>(bits));
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, shiftRight(load(in + i), distance));
  scalar::shiftRightInt32(in + i, bits, out + i, count - i);
}

void shiftLeftToInt16(const std::int32_t* in, unsigned bits, std::int16_t* out,
                      std::size_t count) noexcept {
  const __m128i distance = _mm_cvtsi32_si128(static_cast<int>(bits));
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    storeNarrowed(out + i, shiftLeft(load(in + i), distance));
  }
  scalar::shiftLeftToInt16(in + i, bits, out + i, count - i);
}

void int16ToInt32(const std::int16_t* in, unsigned bits, std::int32_t* out,
                  std::size_t count) noexcept {
  const __m128i distance = _mm_cvtsi32_si128(static_cast<int>(bits));
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) store(out + i, shiftLeft(loadWidened(in + i), distance));
  scalar::int16ToInt32(in + i, bits, out + i, count - i);
}

// The pair kernels count in bytes: kBytes of each run make 2 * kBytes of pairs.

void interleavePairs16(const void* a, const void* b, std::byte* out, std::size_t count) noexcept {
  const auto* left = static_cast<const std::byte*>(a);
  const auto* right = static_cast<const std::byte*>(b);
  std::size_t i = 0;
  for (; i + kBytes <= count * 2; i += kBytes) zip16(left + i, right + i, out + 2 * i);
  scalar::interleavePairs16(left + i, right + i, out + 2 * i, count - i / 2);
}

void interleavePairs32(const void* a, const void* b, std::byte* out, std::size_t count) noexcept {
  const auto* left = static_cast<const std::byte*>(a);
  const auto* right = static_cast<const std::byte*>(b);
  std::size_t i = 0;
  for (; i + kBytes <= count * 4; i += kBytes) zip32(left + i, right + i, out + 2 * i);
  scalar::interleavePairs32(left + i, right + i, out + 2 * i, count - i / 4);
}

void deinterleavePairs16(const std::byte* in, void* a, void* b, std::size_t count) noexcept {
  auto* left = static_cast<std::byte*>(a);
  auto* right = static_cast<std::byte*>(b);
  std::size_t i = 0;
  for (; i + kBytes <= count * 2; i += kBytes) unzip16(in + 2 * i, left + i, right + i);
  scalar::deinterleavePairs16(in + 2 * i, left + i, right + i, count - i / 2);
}

void deinterleavePairs32(const std::byte* in, void* a, void* b, std::size_t count) noexcept {
  auto* left = static_cast<std::byte*>(a);
  auto* right = static_cast<std::byte*>(b);
  std::size_t i = 0;
  for (; i + kBytes <= count * 4; i += kBytes) unzip32(in + 2 * i, left + i, right + i);
  scalar::deinterleavePairs32(in + 2 * i, left + i, right + i, count - i / 4);
}

// Twelve payload bytes leave each 16-byte store; the loop ends while the next four still belong
// to this run.
void packInt24(const std::int32_t* in, std::byte* out, std::size_t count) noexcept {
  std::size_t i = 0;
  for (; kHasPack24 && i + 6 <= count; i += 4) pack24(in + i, out + 3 * i);
  scalar::packInt24(in + i, out + 3 * i, count - i);
}

constexpr Kernels kTable = {
    .fill = fill,
    .multiplyByScalar = multiplyByScalar,
    .multiplyAdd = multiplyAdd,
    .add = add,
    .subtract = subtract,
    .multiply = multiply,
    .weightedSum = weightedSum,
    .negate = negate,
    .absolute = absolute,
    .square = square,
    .squareRoot = squareRoot,
    .roundToNearest = roundToNearest,
    .tanh = tanh,
    .swap = swap,
    .clip = clip,
    .maxMagnitude = maxMagnitude,
    .int16ToFloat = int16ToFloat,
    .int24ToFloat = scalar::int24ToFloat,
    .int32ToFloat = int32ToFloat,
    .floatToDouble = floatToDouble,
    .doubleToFloat = doubleToFloat,
    .doubleToInt32 = doubleToInt32,
    .doubleToInt16 = doubleToInt16,
    .floatToInt32 = floatToInt32,
    .clipInt32 = clipInt32,
    .shiftLeftInt32 = shiftLeftInt32,
    .shiftRightInt32 = shiftRightInt32,
    .shiftLeftToInt16 = shiftLeftToInt16,
    .int16ToInt32 = int16ToInt32,
    .interleavePairs16 = interleavePairs16,
    .interleavePairs32 = interleavePairs32,
    .deinterleavePairs16 = deinterleavePairs16,
    .deinterleavePairs32 = deinterleavePairs32,
    .filterPairs = filterPairs,
    .brokenStreams = brokenStreams,
    .sumOneBitRows = sumOneBitRows,
    .halfBand = halfBand,
    .medianOf21 = medianOf21,
    .packInt24 = packInt24,
};
