// AVX2: eight floats at a time. Runs only where the processor has it (Vector.cpp asks).
#if defined(__x86_64__)

#include <immintrin.h>

#include "platform/vector/BiquadKernels.h"
#include "platform/vector/HalfBand.h"
#include "platform/vector/OneBit.h"
#include "platform/vector/VectorKernels.h"
#include "platform/vector/VectorScalar.h"

// The target covers this file's own functions only: were the whole file compiled for AVX2, an
// inline function of a shared header could be emitted here and run on a processor without it.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

namespace velorin::vector {
namespace {
namespace avx2 {

using F = __m256;
using I = __m256i;
constexpr std::size_t kLanes = 8;
constexpr std::size_t kDoubleLanes = 4;

inline F load(const float* in) {
  return _mm256_loadu_ps(in);
}
inline void store(float* out, F value) {
  _mm256_storeu_ps(out, value);
}
inline F broadcast(float value) {
  return _mm256_set1_ps(value);
}
inline F multiply(F a, F b) {
  return _mm256_mul_ps(a, b);
}
inline F plus(F a, F b) {
  return _mm256_add_ps(a, b);
}
inline F minus(F a, F b) {
  return _mm256_sub_ps(a, b);
}
inline F lesser(F a, F b) {
  return _mm256_min_ps(a, b);
}
inline F greater(F a, F b) {
  return _mm256_max_ps(a, b);
}
inline F nanToZero(F a) {
  return _mm256_and_ps(a, _mm256_cmp_ps(a, a, _CMP_ORD_Q));
}
inline F magnitude(F a) {
  return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), a);
}
inline F negated(F a) {
  return _mm256_xor_ps(a, _mm256_set1_ps(-0.0f));
}
inline F withSign(F size, F sign) {
  return _mm256_or_ps(size, _mm256_and_ps(sign, _mm256_set1_ps(-0.0f)));
}
inline F whereNotLess(F value, F limit, F a, F b) {
  return _mm256_blendv_ps(b, a, _mm256_cmp_ps(value, limit, _CMP_GE_OQ));
}
inline F divide(F a, F b) {
  return _mm256_div_ps(a, b);
}
inline F root(F a) {
  return _mm256_sqrt_ps(a);
}
inline F rounded(F a) {
  return _mm256_round_ps(a, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
}

inline I load(const std::int32_t* in) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
}
inline void store(std::int32_t* out, I value) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), value);
}
inline I broadcastInt(std::int32_t value) {
  return _mm256_set1_epi32(value);
}
inline I lesserInt(I a, I b) {
  return _mm256_min_epi32(a, b);
}
inline I greaterInt(I a, I b) {
  return _mm256_max_epi32(a, b);
}
inline I shiftLeft(I a, __m128i distance) {
  return _mm256_sll_epi32(a, distance);
}
inline I shiftRight(I a, __m128i distance) {
  return _mm256_sra_epi32(a, distance);
}
// The bits of floats to integers of the same order, and back.
inline I orderKey(I a) {
  return _mm256_xor_si256(a, _mm256_srli_epi32(_mm256_srai_epi32(a, 31), 1));
}
inline F powerOfTwo(I exponent) {
  return _mm256_castsi256_ps(
      _mm256_slli_epi32(_mm256_add_epi32(exponent, _mm256_set1_epi32(127)), 23));
}
inline F toFloat(I a) {
  return _mm256_cvtepi32_ps(a);
}
inline I toNearest(F a) {
  return _mm256_cvtps_epi32(a);
}
inline I flipWhereNotLess(I a, F value, F limit) {
  return _mm256_xor_si256(a, _mm256_castps_si256(_mm256_cmp_ps(value, limit, _CMP_GE_OQ)));
}

inline I loadWidened(const std::int16_t* in) {
  return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in)));
}
inline void storeNarrowed(std::int16_t* out, I value) {
  _mm_storeu_si128(
      reinterpret_cast<__m128i*>(out),
      _mm_packs_epi32(_mm256_castsi256_si128(value), _mm256_extracti128_si256(value, 1)));
}

using D = __m256d;

inline D load(const double* in) {
  return _mm256_loadu_pd(in);
}
inline void store(double* out, D value) {
  _mm256_storeu_pd(out, value);
}
inline D broadcastDouble(double value) {
  return _mm256_set1_pd(value);
}
inline D multiply(D a, D b) {
  return _mm256_mul_pd(a, b);
}
inline D plus(D a, D b) {
  return _mm256_add_pd(a, b);
}
inline D minus(D a, D b) {
  return _mm256_sub_pd(a, b);
}
// Per lane: `a` where 0 <= value < limit, else `b`.
inline D whereWithin(D value, D limit, D a, D b) {
  const D isLate = _mm256_cmp_pd(value, _mm256_setzero_pd(), _CMP_GE_OQ);
  return _mm256_blendv_pd(b, a, _mm256_and_pd(isLate, _mm256_cmp_pd(value, limit, _CMP_LT_OQ)));
}
// The pair of a frame where shiftIn() takes it from; shiftIn() moves the lane pairs of `a` up by
// one and fills in with the last pair of `before`.
inline D loadPair(const double* in) {
  return _mm256_broadcast_pd(reinterpret_cast<const __m128d*>(in));
}
inline D shiftIn(D before, D a) {
  return _mm256_permute2f128_pd(before, a, 0x21);
}
using Tap = __m256i;
inline Tap tapAt(std::size_t pair) {
  return pair == 0 ? _mm256_set_epi32(7, 6, 5, 4, 3, 2, 1, 0)
                   : _mm256_set_epi32(3, 2, 1, 0, 7, 6, 5, 4);
}
inline void storePair(double* out, D value, Tap tap) {
  const __m256 moved = _mm256_permutevar8x32_ps(_mm256_castpd_ps(value), tap);
  _mm_storeu_pd(out, _mm_castps_pd(_mm256_castps256_ps128(moved)));
}

inline void widenToDouble(const float* in, double* out) {
  _mm256_storeu_pd(out, _mm256_cvtps_pd(_mm_loadu_ps(in)));
}
inline void narrowToFloat(const double* in, float* out) {
  _mm_storeu_ps(out, _mm256_cvtpd_ps(_mm256_loadu_pd(in)));
}
// The conversion from memory to 128 bits leaves the processor with upper halves in use although no
// 256-bit register is written, so the compiler does not clear them; SSE code that follows would
// pay some hundred cycles.
inline void afterNarrowing() {
  _mm256_zeroupper();
}
inline __m128i truncate(const double* in, double scale, double low, double high) {
  const __m256d scaled = _mm256_mul_pd(_mm256_loadu_pd(in), _mm256_set1_pd(scale));
  const __m256d number = _mm256_and_pd(scaled, _mm256_cmp_pd(scaled, scaled, _CMP_ORD_Q));
  return _mm256_cvttpd_epi32(
      _mm256_min_pd(_mm256_max_pd(number, _mm256_set1_pd(low)), _mm256_set1_pd(high)));
}
inline void storeInt32(std::int32_t* out, __m128i four) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), four);
}
inline void storeInt16(std::int16_t* out, __m128i four) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(four, four));
}

#include "platform/vector/BiquadX86.inl"
#include "platform/vector/HalfBandX86.inl"
#include "platform/vector/MedianX86.inl"
#include "platform/vector/OneBit256.inl"
#include "platform/vector/VectorShuffles256.inl"
#include "platform/vector/VectorX86.inl"

}  // namespace avx2
}  // namespace

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

const Kernels detail::kAvx2Kernels = avx2::kTable;

}  // namespace velorin::vector

#endif
