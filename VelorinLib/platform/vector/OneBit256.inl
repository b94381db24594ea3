// Four doubles in a register of 256 bits: shared by AVX2 and AVX-512, where wider rows would need
// more padding than a table in the nearest cache has room for. Included as VectorX86.inl is.

using Row = __m256d;

inline Row loadRow(const double* in) {
  return _mm256_loadu_pd(in);
}
inline Row sumRows(Row a, Row b) {
  return _mm256_add_pd(a, b);
}
inline void narrowRow(Row a, float* out) {
  _mm_storeu_ps(out, _mm256_cvtpd_ps(a));
}

#include "platform/vector/OneBitX86.inl"
