#include "platform/vector/Vector.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "platform/vector/HalfBand.h"
#include "platform/vector/OneBit.h"
#include "platform/vector/PCMPacking.h"
#include "support/VectorLevel.h"

namespace velorin::vector {
namespace {

using test::AtLevel;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Runs of every element type with the awkward values among ordinary ones.
struct Inputs {
  static constexpr std::size_t kCount = 6000;
  std::vector<float> a, b;
  std::vector<double> d;
  std::vector<std::int16_t> s;
  std::vector<std::int32_t> i;
  std::vector<std::byte> bytes;

  Inputs() {
    std::mt19937 random(3);
    const std::vector<float> odd = {0.0f,       -0.0f,      1.0f,         -1.0f,        kNaN,
                                    kInfinity,  -kInfinity, 1e-40f,       0.5f,         -0.5f,
                                    2e9f,       -2e9f,      3e38f,        -3e38f,       1.00001f,
                                    0.9999999f, -kNaN,      1.5f / 32768, 2.5f / 32768, 0x1p-149f};
    const auto unit = [&] { return static_cast<double>(random()) / 2147483648.0 - 1.0; };
    for (std::size_t k = 0; k < kCount; ++k) {
      const bool isOdd = random() % 4 == 0;
      a.push_back(isOdd ? odd[random() % odd.size()] : static_cast<float>(unit() * 1.1));
      b.push_back(random() % 4 == 0 ? odd[random() % odd.size()] : static_cast<float>(unit()));
      d.push_back(isOdd ? odd[random() % odd.size()] : unit() * 1.1);
      s.push_back(static_cast<std::int16_t>(isOdd ? (k % 2 ? INT16_MIN : INT16_MAX) : random()));
      i.push_back(static_cast<std::int32_t>(isOdd ? (k % 2 ? INT32_MIN : INT32_MAX) : random()));
    }
    for (std::size_t k = 0; k < kCount * 8; ++k) bytes.push_back(static_cast<std::byte>(random()));
  }
};

// A table as sumOneBitRows() wants it: multiples of 2^-52 that add up to less than 2.
std::vector<double> oneBitRows() {
  std::mt19937_64 random(4);
  std::vector<double> rows(256 * kOneBitStride);
  for (std::size_t byte = 0; byte < 256; ++byte) {
    double* const shares = &rows[byte * kOneBitStride + kOneBitPadding];
    for (std::size_t k = 0; k < kOneBitSpan; ++k) {
      shares[k] = static_cast<double>(static_cast<std::int64_t>(random()) >> 15) * 0x1p-52;
    }
  }
  return rows;
}
const std::vector<double> kRows = oneBitRows();
constexpr HalfBandTaps kTaps = {{-0.01f, 0.02f, -0.03f, 0.07f, -0.13f, 0.41f}, 0.5f};

// What an operation works on: inputs from an element on, and memory for its output.
struct Run {
  const float* a;
  const float* b;
  const double* d;
  const std::int16_t* s;
  const std::int32_t* i;
  const std::byte* bytes;
  std::size_t n;
  std::byte* out;

  template <class T = float>
  T* to() const {
    return reinterpret_cast<T*>(out);
  }
  /// The output with a copy of the input in it, for what accumulates or works in place.
  float* over(const float* input) const {
    std::memcpy(out, input, n * 4);
    return to();
  }
  template <class T>
  void pack(const T* source, PCMWord word) const {
    const T* planes[] = {source, source + 50};
    interleave(planes, 2, n, word, out);
  }
};

struct Operation {
  const char* name;
  std::size_t outBytesPerElement;
  bool givesFloats;
  void (*run)(const Run& r);
};
using I16 = std::int16_t;
using I32 = std::int32_t;

const Operation kOperations[] = {
    {"fill", 4, true, [](const Run& r) { fill(0.3f, r.to(), r.n); }},
    {"multiplyByScalar", 4, true, [](const Run& r) { multiplyByScalar(r.a, 0.7f, r.to(), r.n); }},
    {"multiplyAdd", 4, true, [](const Run& r) { multiplyAdd(r.a, 0.7f, r.over(r.b), r.n); }},
    {"add", 4, true, [](const Run& r) { add(r.a, r.b, r.to(), r.n); }},
    {"subtract in place", 4, true, [](const Run& r) { subtract(r.over(r.a), r.b, r.to(), r.n); }},
    {"multiply", 4, true, [](const Run& r) { multiply(r.a, r.b, r.to(), r.n); }},
    {"weightedSum in place", 4, true,
     [](const Run& r) { weightedSum(r.over(r.b), 0.7f, r.a, -1.3f, r.to(), r.n); }},
    {"negate", 4, true, [](const Run& r) { negate(r.a, r.to(), r.n); }},
    {"absolute", 4, true, [](const Run& r) { absolute(r.a, r.to(), r.n); }},
    {"square", 4, true, [](const Run& r) { square(r.a, r.to(), r.n); }},
    {"squareRoot", 4, true, [](const Run& r) { squareRoot(r.a, r.to(), r.n); }},
    {"roundToNearest", 4, true,
     [](const Run& r) {
       multiplyByScalar(r.a, 5e6f, r.to(), r.n);
       roundToNearest(r.to(), r.to(), r.n);
     }},
    {"tanh", 4, true,
     [](const Run& r) {
       multiplyByScalar(r.a, 5, r.to(), r.n);
       vector::tanh(r.to(), r.to(), r.n);
     }},
    {"swap", 8, true,
     [](const Run& r) {
       std::memcpy(r.over(r.a) + r.n, r.b, 4 * r.n);
       vector::swap(r.to(), r.to() + r.n, r.n);
     }},
    {"clip", 4, true, [](const Run& r) { clip(r.a, -0.5f, 0.25f, r.to(), r.n); }},
    {"maxMagnitude", 0, true, [](const Run& r) { *r.to() = maxMagnitude(r.a, r.n); }},
    {"int16ToFloat", 4, true, [](const Run& r) { int16ToFloat(r.s, 0x1p-15f, r.to(), r.n); }},
    {"int24ToFloat", 4, true, [](const Run& r) { int24ToFloat(r.bytes, 0x1p-23f, r.to(), r.n); }},
    {"int32ToFloat", 4, true, [](const Run& r) { int32ToFloat(r.i, 0x1p-31f, r.to(), r.n); }},
    {"floatToDouble", 8, false, [](const Run& r) { floatToDouble(r.b, r.to<double>(), r.n); }},
    {"doubleToFloat", 4, true, [](const Run& r) { doubleToFloat(r.d, r.to(), r.n); }},
    {"doubleToInt32", 4, false, [](const Run& r) { doubleToInt32(r.d, r.to<I32>(), r.n); }},
    {"doubleToInt16", 2, false, [](const Run& r) { doubleToInt16(r.d, r.to<I16>(), r.n); }},
    {"floatToInt32 16", 4, false, [](const Run& r) { floatToInt32(r.a, 16, r.to<I32>(), r.n); }},
    {"floatToInt32 24", 4, false, [](const Run& r) { floatToInt32(r.a, 24, r.to<I32>(), r.n); }},
    {"floatToInt32 29", 4, false, [](const Run& r) { floatToInt32(r.a, 29, r.to<I32>(), r.n); }},
    {"floatToInt32 32", 4, false, [](const Run& r) { floatToInt32(r.a, 32, r.to<I32>(), r.n); }},
    {"clipInt32", 4, false,
     [](const Run& r) { clipInt32(r.i, -1'000'000'000, 77, r.to<I32>(), r.n); }},
    {"shiftLeftInt32", 4, false, [](const Run& r) { shiftLeftInt32(r.i, 8, r.to<I32>(), r.n); }},
    {"shiftRightInt32", 4, false, [](const Run& r) { shiftRightInt32(r.i, 31, r.to<I32>(), r.n); }},
    {"shiftLeftToInt16", 2, false,
     [](const Run& r) { shiftLeftToInt16(r.i, 3, r.to<I16>(), r.n); }},
    {"int16ToInt32", 4, false, [](const Run& r) { int16ToInt32(r.s, 16, r.to<I32>(), r.n); }},
    {"sumOneBitRows", 4, true,
     [](const Run& r) {
       sumOneBitRows(reinterpret_cast<const std::uint8_t*>(r.bytes), kRows.data(), r.to(), r.n);
     }},
    {"halfBand", 4, true, [](const Run& r) { halfBand(r.a, r.b, kTaps, r.to(), r.n); }},
    {"interleave int16 pairs", 4, false, [](const Run& r) { r.pack(r.s, PCMWord::int16); }},
    {"interleave int32 pairs", 8, false, [](const Run& r) { r.pack(r.i, PCMWord::int32); }},
    {"interleave int24 pairs", 6, false, [](const Run& r) { r.pack(r.a, PCMWord::int24Packed); }},
    {"deinterleave int16 pairs", 4, false,
     [](const Run& r) {
       I16* planes[] = {r.to<I16>(), r.to<I16>() + r.n};
       deinterleave(r.bytes, 2, r.n, planes);
     }},
    {"deinterleave int32 pairs", 8, false,
     [](const Run& r) {
       I32* planes[] = {r.to<I32>(), r.to<I32>() + r.n};
       deinterleave(r.bytes, PCMWord::int32, 2, r.n, planes);
     }},
};

// NaNs made alike: which of two NaNs' payloads a sum carries is the processor's business.
void normaliseNaNs(std::vector<std::byte>& out, const Operation& operation) {
  if (!operation.givesFloats) return;
  for (std::size_t k = 0; k + 4 <= out.size(); k += 4) {
    float value = 0;
    std::memcpy(&value, &out[k], 4);
    if (value != value) std::memcpy(&out[k], &kNaN, 4);
  }
}

TEST(Vector, EveryInstructionSetGivesTheReferenceResult) {
  const Inputs in;
  ASSERT_EQ(availableLevels().front(), Level::scalar);
  std::vector<std::size_t> lengths = {100, 255, 256, 257, 1000, 5003};
  for (std::size_t n = 0; n <= 67; ++n) lengths.push_back(n);
  for (const Operation& operation : kOperations) {
    for (const std::size_t n : lengths) {
      for (const std::size_t offset : {0u, 1u, 3u}) {
        const auto runInto = [&](std::vector<std::byte>& out) {
          const std::size_t o = offset;
          operation.run(
              {&in.a[o], &in.b[o], &in.d[o], &in.s[o], &in.i[o], &in.bytes[o], n, out.data()});
          normaliseNaNs(out, operation);
        };
        // Sixty-four bytes behind the run must stay as they are.
        const std::size_t size = std::max<std::size_t>(n * operation.outBytesPerElement, 4);
        std::vector<std::byte> expected(size + 64, std::byte{0x5a});
        {
          const AtLevel reference(Level::scalar);
          runInto(expected);
        }
        for (const Level level : availableLevels().subspan(1)) {
          std::vector<std::byte> got(size + 64, std::byte{0x5a});
          const AtLevel tested(level);
          runInto(got);
          ASSERT_EQ(got, expected) << operation.name << ", level " << static_cast<int>(level)
                                   << ", length " << n << ", offset " << offset;
        }
      }
    }
  }
}

TEST(Vector, ConversionsSaturateAndRoundAsStated) {
  for (const Level level : availableLevels()) {
    SCOPED_TRACE(static_cast<int>(level));
    const AtLevel tested(level);
    const std::vector<float> floats = {1.0f,         -1.0f,        0.5f,          -0.5f,
                                       2.5f / 32768, 3.5f / 32768, -2.5f / 32768, 1e30f,
                                       -kInfinity,   kNaN,         0.99999f};
    std::vector<std::int32_t> ints(floats.size());
    floatToInt32(floats.data(), 16, ints.data(), floats.size());
    EXPECT_EQ(ints, (std::vector<std::int32_t>{32767, -32768, 16384, -16384, 2, 4, -2, 32767,
                                               -32768, 0, 32767}));
    floatToInt32(floats.data(), 32, ints.data(), 4);
    EXPECT_EQ(std::vector(ints.begin(), ints.begin() + 4),
              (std::vector<std::int32_t>{INT32_MAX, INT32_MIN, 1 << 30, -(1 << 30)}));

    const std::vector<double> doubles = {1.0,          -1.0,        2.0,          -2.0,
                                         std::nan(""), 1.9 / 32767, -1.9 / 32767, kInfinity};
    std::vector<std::int16_t> shorts(doubles.size());
    doubleToInt16(doubles.data(), shorts.data(), doubles.size());
    EXPECT_EQ(shorts, (std::vector<std::int16_t>{32767, -32767, 32767, -32768, 0, 1, -1, 32767}));
    ints.resize(doubles.size());
    doubleToInt32(doubles.data(), ints.data(), 5);
    EXPECT_EQ(std::vector(ints.begin(), ints.begin() + 5),
              (std::vector<std::int32_t>{INT32_MAX, -INT32_MAX, INT32_MAX, INT32_MIN, 0}));

    const float peaks[] = {0.25f, kNaN, -0.75f, 0.5f};
    EXPECT_EQ(maxMagnitude(peaks, 4), 0.75f);
    EXPECT_EQ(maxMagnitude(peaks, 0), 0.0f);
    float clipped[4];
    clip(peaks, -0.5f, 0.3f, clipped, 4);
    EXPECT_EQ((std::vector<float>(clipped, clipped + 4)),
              (std::vector<float>{0.25f, 0.0f, -0.5f, 0.3f}));
    // 2^24 + 1 is not a float: it is rounded to the even neighbour.
    const std::int32_t big[] = {16'777'217, 16'777'219, INT32_MIN};
    float converted[3];
    int32ToFloat(big, 1.0f, converted, 3);
    EXPECT_EQ((std::vector<float>(converted, converted + 3)),
              (std::vector<float>{16'777'216.0f, 16'777'220.0f, -2147483648.0f}));
  }
}

TEST(Vector, ArithmeticIsWhatTheHeaderSays) {
  for (const Level level : availableLevels()) {
    SCOPED_TRACE(static_cast<int>(level));
    const AtLevel tested(level);
    const std::vector<float> in = {0.0f,  -0.0f,      0.5f,        1.5f,        2.5f,  -0.3f,
                                   4.0f,  8388607.5f, -8388609.0f, kInfinity,   -2.5f, 9.0f,
                                   0.25f, 3e9f,       0.49999997f, -0.49999997f};
    const std::size_t n = in.size();
    std::vector<float> out(n);
    const auto check = [&](const char* name, auto expected) {
      for (std::size_t i = 0; i < n; ++i) {
        const float wanted = expected(in[i]);
        if (std::isnan(wanted) && std::isnan(out[i])) continue;
        EXPECT_EQ(std::bit_cast<std::uint32_t>(out[i]), std::bit_cast<std::uint32_t>(wanted))
            << name << " of " << in[i] << " gives " << out[i];
      }
    };
    roundToNearest(in.data(), out.data(), n);
    check("roundToNearest", [](float x) { return static_cast<float>(std::nearbyint(double{x})); });
    negate(in.data(), out.data(), n);
    check("negate", [](float x) { return std::copysign(x, std::signbit(x) ? 1.0f : -1.0f); });
    absolute(in.data(), out.data(), n);
    check("absolute", [](float x) { return std::copysign(x, 1.0f); });
    squareRoot(in.data(), out.data(), n);
    check("squareRoot", [](float x) { return static_cast<float>(std::sqrt(double{x})); });
    square(in.data(), out.data(), n);
    check("square", [](float x) { return static_cast<float>(double{x} * x); });
    weightedSum(in.data(), 3, in.data(), -0.5f, out.data(), n);
    check("weightedSum", [](float x) { return x * 3 + x * -0.5f; });
    vector::swap(out.data(), out.data() + n / 2, n / 2);
    EXPECT_EQ(out[n / 2 + 2], 1.25f);
  }
}

TEST(Vector, OneBitRowsAndHalfBandAreTheirFormulas) {
  const Inputs in;
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(in.bytes.data());
  constexpr std::size_t kCount = 37;
  std::vector<float> out(kCount);
  sumOneBitRows(bytes, kRows.data(), out.data(), kCount);
  for (std::size_t i = 0; i < kCount; ++i) {
    double sum = 0;
    for (std::size_t age = 0; age < kOneBitSpan; ++age) {
      sum += kRows[bytes[i + kOneBitSpan - 1 - age] * kOneBitStride + kOneBitPadding + age];
    }
    EXPECT_EQ(out[i], static_cast<float>(sum)) << i;
  }
  // A one among the samples brings out the taps, the youngest sample's first.
  std::vector<float> samples(2 * 35);
  samples[34] = 1;
  samples[35] = 2;
  std::vector<float> even, odd;
  for (std::size_t i = 0; i < samples.size(); i += 2) {
    even.push_back(samples[i]);
    odd.push_back(samples[i + 1]);
  }
  halfBand(even.data(), odd.data() + 5, kTaps, out.data(), 24);
  for (std::size_t i = 0; i < 24; ++i) {
    const std::size_t tap = 34 - 2 * i;  // of the 1; the 2 is at the tap after it
    const float wanted = tap <= 22 ? kTaps.pairs[tap <= 10 ? tap / 2 : 11 - tap / 2] : 0;
    EXPECT_EQ(out[i], wanted + (tap == 10 ? 2 * kTaps.centre : 0)) << i;
  }
}

TEST(Vector, TanhStaysWithinItsBound) {
  // Every 997th positive float up to 10, and the same with the sign turned round.
  std::vector<float> in;
  for (std::uint32_t bits = 1; bits < std::bit_cast<std::uint32_t>(10.0f); bits += 997) {
    in.push_back(std::bit_cast<float>(bits));
  }
  std::vector<float> out(in.size());
  vector::tanh(in.data(), out.data(), in.size());
  double worst = 0;
  for (std::size_t i = 0; i < in.size(); ++i) {
    const double exact = std::tanh(double{in[i]});
    const auto nearest = static_cast<float>(exact);
    const double unit = double{nearest} - double{std::nextafter(nearest, 0.0f)};
    worst = std::max(worst, std::abs(out[i] - exact) / unit);
    ASSERT_LE(out[i], 1.0f);
    if (in[i] < 0x1p-14f || in[i] >= 9.1f) {
      ASSERT_EQ(out[i], in[i] < 1 ? in[i] : 1.0f);
    }
  }
  EXPECT_LE(worst, 1.5);
  std::vector<float> mirrored(in.size());
  negate(in.data(), mirrored.data(), in.size());
  vector::tanh(mirrored.data(), mirrored.data(), in.size());
  negate(mirrored.data(), mirrored.data(), in.size());
  EXPECT_EQ(mirrored, out);
}

constexpr PCMWord kWords[] = {PCMWord::int16, PCMWord::int24Packed, PCMWord::int24Low,
                              PCMWord::int32, PCMWord::float32};

unsigned bitsOf(PCMWord word) {
  if (word == PCMWord::int16) return 16;
  return word == PCMWord::int32 ? 32 : 24;
}

// A word of a stream as a number, read byte by byte; the float's own bits for float32.
std::int32_t wordAt(const std::vector<std::byte>& bytes, std::size_t index, PCMWord word,
                    std::size_t skip) {
  const std::size_t size = bytesPerWord(word);
  std::uint32_t value = 0;
  for (std::size_t k = size; k-- > 0;) {
    value = value << 8 | std::to_integer<std::uint32_t>(bytes[skip + index * size + k]);
  }
  if (word == PCMWord::int16) return static_cast<std::int16_t>(value);
  if (word == PCMWord::int24Packed) return static_cast<std::int32_t>(value << 8) >> 8;
  return static_cast<std::int32_t>(value);
}

std::int32_t expectedWord(float sample, PCMWord word) {
  if (word == PCMWord::float32) return std::bit_cast<std::int32_t>(sample);
  const double scale = std::ldexp(1.0, static_cast<int>(bitsOf(word)) - 1);
  const double scaled = std::isnan(sample) ? 0.0 : std::nearbyint(sample * scale);
  return static_cast<std::int32_t>(std::clamp(scaled, -scale, scale - 1));
}

std::int32_t expectedWord(std::int32_t sample, PCMWord word) {
  if (word == PCMWord::float32) {
    return std::bit_cast<std::int32_t>(static_cast<float>(sample / 2147483648.0));
  }
  return sample >> (32 - bitsOf(word));
}

std::int32_t expectedWord(std::int16_t sample, PCMWord word) {
  return expectedWord(static_cast<std::int32_t>(sample) * 65536, word);
}

template <class Sample>
void checkInterleave(const std::vector<Sample>& source) {
  for (const PCMWord word : kWords) {
    for (const std::size_t channels : {1u, 2u, 3u, 8u}) {
      for (const std::size_t frames : {0u, 1u, 5u, 255u, 256u, 259u, 700u}) {
        SCOPED_TRACE(testing::Message() << "word " << static_cast<int>(word) << ", " << channels
                                        << " channels, " << frames << " frames");
        std::vector<const Sample*> planes;
        for (std::size_t c = 0; c < channels; ++c) planes.push_back(&source[c * 701]);
        const std::size_t size = frames * channels * bytesPerWord(word);
        std::vector<std::byte> out(1 + size + 32, std::byte{0x5a});
        interleave(planes.data(), channels, frames, word, out.data() + 1);
        for (std::size_t k = 0; k < frames * channels; ++k) {
          const Sample sample = planes[k % channels][k / channels];
          ASSERT_EQ(wordAt(out, k, word, 1), expectedWord(sample, word)) << "word " << k;
        }
        EXPECT_EQ(std::vector(out.end() - 32, out.end()),
                  std::vector<std::byte>(32, std::byte{0x5a}));
      }
    }
  }
}

TEST(PCMPacking, PutsEverySampleWhereTheDeviceExpectsIt) {
  const Inputs in;
  for (const Level level : availableLevels()) {
    const AtLevel tested(level);
    checkInterleave(in.a);
    checkInterleave(in.s);
    checkInterleave(in.i);
  }
}

// A plane of samples for each channel, and the pointers to them that a call takes.
template <class Sample>
struct Planes {
  explicit Planes(std::size_t channels) : samples(channels, std::vector<Sample>(kFrames)) {
    for (auto& plane : samples) pointers.push_back(plane.data());
  }
  static constexpr std::size_t kFrames = 600;
  std::vector<std::vector<Sample>> samples;
  std::vector<Sample*> pointers;
};

TEST(PCMPacking, RoundTripsLoseNothing) {
  const Inputs in;
  constexpr std::size_t kFrames = Planes<float>::kFrames;
  for (const Level level : availableLevels()) {
    const AtLevel tested(level);
    for (const PCMWord word : kWords) {
      for (const std::size_t channels : {1u, 2u, 5u}) {
        SCOPED_TRACE(testing::Message() << "word " << static_cast<int>(word) << ", " << channels);
        // Samples that the word can hold: whole multiples of its last bit.
        const unsigned spare = 32 - bitsOf(word);
        Planes<std::int32_t> truth(channels), back(channels);
        Planes<float> floats(channels);
        Planes<std::int16_t> shorts(channels);
        for (std::size_t c = 0; c < channels; ++c) {
          for (std::size_t k = 0; k < kFrames; ++k) {
            truth.samples[c][k] = in.i[c * 100 + k] >> spare << spare;
          }
        }
        std::vector<std::byte> stream(kFrames * channels * bytesPerWord(word) + 1);
        const std::vector<const std::int32_t*> from(truth.pointers.begin(), truth.pointers.end());
        interleave(from.data(), channels, kFrames, word, stream.data() + 1);
        deinterleave(stream.data() + 1, word, channels, kFrames, back.pointers.data());
        deinterleave(stream.data() + 1, word, channels, kFrames, floats.pointers.data());
        EXPECT_EQ(back.samples, truth.samples);
        const auto& last = truth.samples.back();
        for (std::size_t k = 0; k < kFrames; ++k) {
          ASSERT_EQ(floats.samples.back()[k], static_cast<float>(last[k] / 2147483648.0));
        }
        if (word != PCMWord::int16) continue;
        deinterleave(stream.data() + 1, channels, kFrames, shorts.pointers.data());
        EXPECT_EQ(shorts.samples.back()[77], last[77] >> 16);
      }
    }
  }
}

}  // namespace
}  // namespace velorin::vector
