// AVX-512 (F, BW, VL): sixteen floats at a time. Runs only where the processor has all three.
#if defined(__x86_64__)

#include <immintrin.h>

#include "platform/vector/BiquadKernels.h"
#include "platform/vector/HalfBand.h"
#include "platform/vector/OneBit.h"
#include "platform/vector/VectorKernels.h"
#include "platform/vector/VectorScalar.h"

// For this file's own functions only; see VectorAvx2.cpp.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx512f,avx512bw,avx512vl"))), \
                             apply_to = function)
#else
// The undefined pass-through operands of g++ 12's own intrinsics trip these warnings (GCC bug
// 105593).
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512vl")
#endif

namespace velorin::vector {
namespace {
namespace avx512 {

using F = __m512;
using I = __m512i;
constexpr std::size_t kLanes = 16;
constexpr std::size_t kDoubleLanes = 8;

inline F load(const float* in) {
  return _mm512_loadu_ps(in);
}
inline void store(float* out, F value) {
  _mm512_storeu_ps(out, value);
}
inline F broadcast(float value) {
  return _mm512_set1_ps(value);
}
inline F multiply(F a, F b) {
  return _mm512_mul_ps(a, b);
}
inline F plus(F a, F b) {
  return _mm512_add_ps(a, b);
}
inline F minus(F a, F b) {
  return _mm512_sub_ps(a, b);
}
inline F lesser(F a, F b) {
  return _mm512_min_ps(a, b);
}
inline F greater(F a, F b) {
  return _mm512_max_ps(a, b);
}
inline F nanToZero(F a) {
  return _mm512_maskz_mov_ps(_mm512_cmp_ps_mask(a, a, _CMP_ORD_Q), a);
}
inline F magnitude(F a) {
  return _mm512_abs_ps(a);
}
inline F negated(F a) {
  // The float form of the exclusive or came with another extension.
  return _mm512_castsi512_ps(
      _mm512_xor_si512(_mm512_castps_si512(a), _mm512_set1_epi32(INT32_MIN)));
}
inline F withSign(F size, F sign) {
  // Per bit: the sign's where the mask is set, else the size's.
  return _mm512_castsi512_ps(_mm512_ternarylogic_epi32(
      _mm512_set1_epi32(INT32_MIN), _mm512_castps_si512(sign), _mm512_castps_si512(size), 0xca));
}
inline F whereNotLess(F value, F limit, F a, F b) {
  return _mm512_mask_blend_ps(_mm512_cmp_ps_mask(value, limit, _CMP_GE_OQ), b, a);
}
inline F divide(F a, F b) {
  return _mm512_div_ps(a, b);
}
inline F root(F a) {
  return _mm512_sqrt_ps(a);
}
inline F rounded(F a) {
  return _mm512_roundscale_ps(a, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
}

inline I load(const std::int32_t* in) {
  return _mm512_loadu_si512(in);
}
inline void store(std::int32_t* out, I value) {
  _mm512_storeu_si512(out, value);
}
inline I broadcastInt(std::int32_t value) {
  return _mm512_set1_epi32(value);
}
inline I lesserInt(I a, I b) {
  return _mm512_min_epi32(a, b);
}
inline I greaterInt(I a, I b) {
  return _mm512_max_epi32(a, b);
}
inline I shiftLeft(I a, __m128i distance) {
  return _mm512_sll_epi32(a, distance);
}
inline I shiftRight(I a, __m128i distance) {
  return _mm512_sra_epi32(a, distance);
}
// The bits of floats to integers of the same order, and back.
inline I orderKey(I a) {
  return _mm512_xor_si512(a, _mm512_srli_epi32(_mm512_srai_epi32(a, 31), 1));
}
inline F powerOfTwo(I exponent) {
  return _mm512_castsi512_ps(
      _mm512_slli_epi32(_mm512_add_epi32(exponent, _mm512_set1_epi32(127)), 23));
}
inline F toFloat(I a) {
  return _mm512_cvtepi32_ps(a);
}
inline I toNearest(F a) {
  return _mm512_cvtps_epi32(a);
}
inline I flipWhereNotLess(I a, F value, F limit) {
  return _mm512_mask_xor_epi32(a, _mm512_cmp_ps_mask(value, limit, _CMP_GE_OQ), a,
                               _mm512_set1_epi32(-1));
}

inline I loadWidened(const std::int16_t* in) {
  return _mm512_cvtepi16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in)));
}
inline void storeNarrowed(std::int16_t* out, I value) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm512_cvtsepi32_epi16(value));
}

using D = __m512d;

inline D load(const double* in) {
  return _mm512_loadu_pd(in);
}
inline void store(double* out, D value) {
  _mm512_storeu_pd(out, value);
}
inline D broadcastDouble(double value) {
  return _mm512_set1_pd(value);
}
inline D multiply(D a, D b) {
  return _mm512_mul_pd(a, b);
}
inline D plus(D a, D b) {
  return _mm512_add_pd(a, b);
}
inline D minus(D a, D b) {
  return _mm512_sub_pd(a, b);
}
// Per lane: `a` where 0 <= value < limit, else `b`.
inline D whereWithin(D value, D limit, D a, D b) {
  const __mmask8 isLate = _mm512_cmp_pd_mask(value, _mm512_setzero_pd(), _CMP_GE_OQ);
  return _mm512_mask_blend_pd(_mm512_mask_cmp_pd_mask(isLate, value, limit, _CMP_LT_OQ), b, a);
}
// The pair of a frame where shiftIn() takes it from; shiftIn() moves the lane pairs of `a` up by
// one and fills in with the last pair of `before`.
inline D loadPair(const double* in) {
  return _mm512_castps_pd(_mm512_broadcast_f32x4(_mm_castpd_ps(_mm_loadu_pd(in))));
}
inline D shiftIn(D before, D a) {
  return _mm512_castsi512_pd(
      _mm512_alignr_epi64(_mm512_castpd_si512(a), _mm512_castpd_si512(before), 6));
}
using Tap = __m512i;
inline Tap tapAt(std::size_t pair) {
  const auto lane = static_cast<long long>(2 * pair);
  return _mm512_set_epi64(0, 0, 0, 0, 0, 0, lane + 1, lane);
}
inline void storePair(double* out, D value, Tap tap) {
  _mm_storeu_pd(out, _mm512_castpd512_pd128(_mm512_permutexvar_pd(tap, value)));
}

inline void widenToDouble(const float* in, double* out) {
  _mm512_storeu_pd(out, _mm512_cvtps_pd(_mm256_loadu_ps(in)));
}
inline void narrowToFloat(const double* in, float* out) {
  _mm256_storeu_ps(out, _mm512_cvtpd_ps(_mm512_loadu_pd(in)));
}
inline void afterNarrowing() {}
inline __m256i truncate(const double* in, double scale, double low, double high) {
  const __m512d scaled = _mm512_mul_pd(_mm512_loadu_pd(in), _mm512_set1_pd(scale));
  const __m512d number =
      _mm512_maskz_mov_pd(_mm512_cmp_pd_mask(scaled, scaled, _CMP_ORD_Q), scaled);
  return _mm512_cvttpd_epi32(
      _mm512_min_pd(_mm512_max_pd(number, _mm512_set1_pd(low)), _mm512_set1_pd(high)));
}
inline void storeInt32(std::int32_t* out, __m256i eight) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), eight);
}
inline void storeInt16(std::int16_t* out, __m256i eight) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_cvtsepi32_epi16(eight));
}

#include "platform/vector/BiquadX86.inl"
#include "platform/vector/HalfBandX86.inl"
#include "platform/vector/MedianX86.inl"
#include "platform/vector/OneBit256.inl"
#include "platform/vector/VectorShuffles256.inl"
#include "platform/vector/VectorX86.inl"

}  // namespace avx512
}  // namespace

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

const Kernels detail::kAvx512Kernels = avx512::kTable;

}  // namespace velorin::vector

#endif
