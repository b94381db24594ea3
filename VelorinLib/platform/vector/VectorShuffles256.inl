// Moves of words between lanes, 32 bytes at a time: shared by AVX2 and AVX-512, where wider
// permutes gain nothing over the memory traffic. Included inside a namespace under a target.

constexpr std::size_t kBytes = 32;
constexpr bool kHasPack24 = true;

inline __m256i loadBytes(const std::byte* in) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
}
inline void storeBytes(std::byte* out, __m256i value) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), value);
}
// Most 256-bit shuffles work within 128-bit halves; the permutes put the halves in order.
inline void storeHalves(std::byte* out, __m256i low, __m256i high) {
  storeBytes(out, _mm256_permute2x128_si256(low, high, 0x20));
  storeBytes(out + 32, _mm256_permute2x128_si256(low, high, 0x31));
}
inline void zip16(const std::byte* a, const std::byte* b, std::byte* out) {
  storeHalves(out, _mm256_unpacklo_epi16(loadBytes(a), loadBytes(b)),
              _mm256_unpackhi_epi16(loadBytes(a), loadBytes(b)));
}
inline void zip32(const std::byte* a, const std::byte* b, std::byte* out) {
  storeHalves(out, _mm256_unpacklo_epi32(loadBytes(a), loadBytes(b)),
              _mm256_unpackhi_epi32(loadBytes(a), loadBytes(b)));
}
inline void unzip16(const std::byte* in, std::byte* a, std::byte* b) {
  const __m256i first = loadBytes(in);
  const __m256i second = loadBytes(in + 32);
  // Sign-extended words survive the saturating pack unchanged.
  const __m256i even =
      _mm256_packs_epi32(_mm256_srai_epi32(_mm256_slli_epi32(first, 16), 16),
                         _mm256_srai_epi32(_mm256_slli_epi32(second, 16), 16));
  const __m256i odd =
      _mm256_packs_epi32(_mm256_srai_epi32(first, 16), _mm256_srai_epi32(second, 16));
  storeBytes(a, _mm256_permute4x64_epi64(even, _MM_SHUFFLE(3, 1, 2, 0)));
  storeBytes(b, _mm256_permute4x64_epi64(odd, _MM_SHUFFLE(3, 1, 2, 0)));
}
inline void unzip32(const std::byte* in, std::byte* a, std::byte* b) {
  const __m256 first = _mm256_castsi256_ps(loadBytes(in));
  const __m256 second = _mm256_castsi256_ps(loadBytes(in + 32));
  const __m256i even =
      _mm256_castps_si256(_mm256_shuffle_ps(first, second, _MM_SHUFFLE(2, 0, 2, 0)));
  const __m256i odd =
      _mm256_castps_si256(_mm256_shuffle_ps(first, second, _MM_SHUFFLE(3, 1, 3, 1)));
  storeBytes(a, _mm256_permute4x64_epi64(even, _MM_SHUFFLE(3, 1, 2, 0)));
  storeBytes(b, _mm256_permute4x64_epi64(odd, _MM_SHUFFLE(3, 1, 2, 0)));
}
inline void pack24(const std::int32_t* in, std::byte* out) {
  const __m128i words = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
  const __m128i order = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_shuffle_epi8(words, order));
}
