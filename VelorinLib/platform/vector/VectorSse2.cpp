// SSE2, the baseline of x86-64: four floats at a time.
#if defined(__x86_64__)

#include <emmintrin.h>

#include "platform/vector/BiquadKernels.h"
#include "platform/vector/HalfBand.h"
#include "platform/vector/OneBit.h"
#include "platform/vector/VectorKernels.h"
#include "platform/vector/VectorScalar.h"

namespace velorin::vector {
namespace {
namespace sse2 {

using F = __m128;
using I = __m128i;
constexpr std::size_t kLanes = 4;
constexpr std::size_t kDoubleLanes = 2;
constexpr std::size_t kBytes = 16;
constexpr bool kHasPack24 = false;  // a byte shuffle came with SSSE3

inline F load(const float* in) {
  return _mm_loadu_ps(in);
}
inline void store(float* out, F value) {
  _mm_storeu_ps(out, value);
}
inline F broadcast(float value) {
  return _mm_set1_ps(value);
}
inline F multiply(F a, F b) {
  return _mm_mul_ps(a, b);
}
inline F plus(F a, F b) {
  return _mm_add_ps(a, b);
}
inline F minus(F a, F b) {
  return _mm_sub_ps(a, b);
}
inline F lesser(F a, F b) {
  return _mm_min_ps(a, b);
}
inline F greater(F a, F b) {
  return _mm_max_ps(a, b);
}
inline F nanToZero(F a) {
  return _mm_and_ps(a, _mm_cmpord_ps(a, a));
}
inline F magnitude(F a) {
  return _mm_andnot_ps(_mm_set1_ps(-0.0f), a);
}
inline F negated(F a) {
  return _mm_xor_ps(a, _mm_set1_ps(-0.0f));
}
inline F withSign(F size, F sign) {
  return _mm_or_ps(size, _mm_and_ps(sign, _mm_set1_ps(-0.0f)));
}
// Per lane: `a` where value >= limit, else (NaNs, too) `b`.
inline F whereNotLess(F value, F limit, F a, F b) {
  const F mask = _mm_cmpge_ps(value, limit);
  return _mm_or_ps(_mm_and_ps(mask, a), _mm_andnot_ps(mask, b));
}
inline F divide(F a, F b) {
  return _mm_div_ps(a, b);
}
inline F root(F a) {
  return _mm_sqrt_ps(a);
}
inline F rounded(F a) {
  // From 2^23 on every float is whole; below, adding it leaves no bit for a fraction.
  const F whole = _mm_set1_ps(0x1p23f);
  const F size = magnitude(a);
  const F small = withSign(_mm_sub_ps(_mm_add_ps(size, whole), whole), a);
  const F isSmall = _mm_cmplt_ps(size, whole);
  return _mm_or_ps(_mm_and_ps(isSmall, small), _mm_andnot_ps(isSmall, a));
}

inline I load(const std::int32_t* in) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
}
inline void store(std::int32_t* out, I value) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), value);
}
inline I broadcastInt(std::int32_t value) {
  return _mm_set1_epi32(value);
}
inline I choose(I mask, I a, I b) {
  return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b));
}
inline I lesserInt(I a, I b) {
  return choose(_mm_cmplt_epi32(a, b), a, b);
}
inline I greaterInt(I a, I b) {
  return choose(_mm_cmpgt_epi32(a, b), a, b);
}
inline I shiftLeft(I a, __m128i distance) {
  return _mm_sll_epi32(a, distance);
}
inline I shiftRight(I a, __m128i distance) {
  return _mm_sra_epi32(a, distance);
}
// The bits of floats to integers of the same order, and back.
inline I orderKey(I a) {
  return _mm_xor_si128(a, _mm_srli_epi32(_mm_srai_epi32(a, 31), 1));
}
inline F powerOfTwo(I exponent) {
  return _mm_castsi128_ps(_mm_slli_epi32(_mm_add_epi32(exponent, _mm_set1_epi32(127)), 23));
}
inline F toFloat(I a) {
  return _mm_cvtepi32_ps(a);
}
inline I toNearest(F a) {
  return _mm_cvtps_epi32(a);
}
inline I flipWhereNotLess(I a, F value, F limit) {
  return _mm_xor_si128(a, _mm_castps_si128(_mm_cmpge_ps(value, limit)));
}

inline I loadWidened(const std::int16_t* in) {
  const __m128i words = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in));
  return _mm_srai_epi32(_mm_unpacklo_epi16(words, words), 16);
}
inline void storeNarrowed(std::int16_t* out, I value) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(value, value));
}

using D = __m128d;

inline D load(const double* in) {
  return _mm_loadu_pd(in);
}
inline void store(double* out, D value) {
  _mm_storeu_pd(out, value);
}
inline D broadcastDouble(double value) {
  return _mm_set1_pd(value);
}
inline D multiply(D a, D b) {
  return _mm_mul_pd(a, b);
}
inline D plus(D a, D b) {
  return _mm_add_pd(a, b);
}
inline D minus(D a, D b) {
  return _mm_sub_pd(a, b);
}
// Per lane: `a` where 0 <= value < limit, else `b`.
inline D whereWithin(D value, D limit, D a, D b) {
  const D mask = _mm_and_pd(_mm_cmpge_pd(value, _mm_setzero_pd()), _mm_cmplt_pd(value, limit));
  return _mm_or_pd(_mm_and_pd(mask, a), _mm_andnot_pd(mask, b));
}
// A register is one pair here: nothing shifts within it.
inline D loadPair(const double* in) {
  return _mm_loadu_pd(in);
}
inline D shiftIn(D before, D) {
  return before;
}
struct Tap {};
inline Tap tapAt(std::size_t) {
  return {};
}
inline void storePair(double* out, D value, Tap) {
  _mm_storeu_pd(out, value);
}

inline void widenToDouble(const float* in, double* out) {
  const __m128i pair = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in));
  _mm_storeu_pd(out, _mm_cvtps_pd(_mm_castsi128_ps(pair)));
}
inline void narrowToFloat(const double* in, float* out) {
  const __m128i pair = _mm_castps_si128(_mm_cvtpd_ps(_mm_loadu_pd(in)));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), pair);
}
inline void afterNarrowing() {}
inline __m128i truncate(const double* in, double scale, double low, double high) {
  const __m128d scaled = _mm_mul_pd(_mm_loadu_pd(in), _mm_set1_pd(scale));
  const __m128d number = _mm_and_pd(scaled, _mm_cmpord_pd(scaled, scaled));
  const __m128d held = _mm_min_pd(_mm_max_pd(number, _mm_set1_pd(low)), _mm_set1_pd(high));
  return _mm_cvttpd_epi32(held);
}
inline void storeInt32(std::int32_t* out, __m128i pair) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), pair);
}
inline void storeInt16(std::int16_t* out, __m128i pair) {
  const int both = _mm_cvtsi128_si32(_mm_packs_epi32(pair, pair));
  __builtin_memcpy(out, &both, sizeof both);
}

struct Row {
  __m128d low;
  __m128d high;
};
inline Row loadRow(const double* in) {
  return {_mm_loadu_pd(in), _mm_loadu_pd(in + 2)};
}
inline Row sumRows(Row a, Row b) {
  return {_mm_add_pd(a.low, b.low), _mm_add_pd(a.high, b.high)};
}
inline void narrowRow(Row a, float* out) {
  _mm_storeu_ps(out, _mm_movelh_ps(_mm_cvtpd_ps(a.low), _mm_cvtpd_ps(a.high)));
}

inline __m128i loadBytes(const std::byte* in) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
}
inline void storeBytes(std::byte* out, __m128i value) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), value);
}
inline void zip16(const std::byte* a, const std::byte* b, std::byte* out) {
  storeBytes(out, _mm_unpacklo_epi16(loadBytes(a), loadBytes(b)));
  storeBytes(out + 16, _mm_unpackhi_epi16(loadBytes(a), loadBytes(b)));
}
inline void zip32(const std::byte* a, const std::byte* b, std::byte* out) {
  storeBytes(out, _mm_unpacklo_epi32(loadBytes(a), loadBytes(b)));
  storeBytes(out + 16, _mm_unpackhi_epi32(loadBytes(a), loadBytes(b)));
}
inline void unzip16(const std::byte* in, std::byte* a, std::byte* b) {
  const __m128i first = loadBytes(in);
  const __m128i second = loadBytes(in + 16);
  // Sign-extended words survive the saturating pack unchanged.
  storeBytes(a, _mm_packs_epi32(_mm_srai_epi32(_mm_slli_epi32(first, 16), 16),
                                _mm_srai_epi32(_mm_slli_epi32(second, 16), 16)));
  storeBytes(b, _mm_packs_epi32(_mm_srai_epi32(first, 16), _mm_srai_epi32(second, 16)));
}
inline void unzip32(const std::byte* in, std::byte* a, std::byte* b) {
  const __m128 first = _mm_castsi128_ps(loadBytes(in));
  const __m128 second = _mm_castsi128_ps(loadBytes(in + 16));
  storeBytes(a, _mm_castps_si128(_mm_shuffle_ps(first, second, _MM_SHUFFLE(2, 0, 2, 0))));
  storeBytes(b, _mm_castps_si128(_mm_shuffle_ps(first, second, _MM_SHUFFLE(3, 1, 3, 1))));
}
inline void pack24(const std::int32_t*, std::byte*) {}

#include "platform/vector/BiquadX86.inl"
#include "platform/vector/HalfBandX86.inl"
#include "platform/vector/MedianX86.inl"
#include "platform/vector/OneBitX86.inl"
#include "platform/vector/VectorX86.inl"

}  // namespace sse2
}  // namespace

const Kernels detail::kSse2Kernels = sse2::kTable;

}  // namespace velorin::vector

#endif
