#include "platform/vector/Vector.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "platform/vector/PCMPacking.h"
#include "platform/vector/VectorKernels.h"

namespace velorin::vector {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Puts back the level that the machine would choose.
class AtLevel {
 public:
  explicit AtLevel(Level level) { setLevel(level); }
  ~AtLevel() { setLevel(availableLevels().back()); }
};

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

// One operation on `n` elements from element `o` on, into memory that starts with the inputs, so
// that accumulating and in-place operations have something there. Returns elements of 4 bytes or
// fewer as words.
struct Operation {
  const char* name;
  std::size_t outBytesPerElement;
  bool givesFloats;
  void (*run)(const Inputs& in, std::size_t o, std::size_t n, std::byte* out);
};

template <class T>
T* as(std::byte* out) {
  return reinterpret_cast<T*>(out);
}

const Operation kOperations[] = {
    {"fill", 4, true, [](auto&, auto, auto n, auto* out) { fill(0.3f, as<float>(out), n); }},
    {"multiplyByScalar", 4, true,
     [](auto& in, auto o, auto n, auto* out) {
       multiplyByScalar(&in.a[o], 0.7f, as<float>(out), n);
     }},
    {"multiplyAdd", 4, true,
     [](auto& in, auto o, auto n, auto* out) {
       std::memcpy(out, &in.b[o], n * 4);
       multiplyAdd(&in.a[o], 0.7f, as<float>(out), n);
     }},
    {"add", 4, true,
     [](auto& in, auto o, auto n, auto* out) { add(&in.a[o], &in.b[o], as<float>(out), n); }},
    {"subtract in place", 4, true,
     [](auto& in, auto o, auto n, auto* out) {
       std::memcpy(out, &in.a[o], n * 4);
       subtract(as<float>(out), &in.b[o], as<float>(out), n);
     }},
    {"multiply", 4, true,
     [](auto& in, auto o, auto n, auto* out) { multiply(&in.a[o], &in.b[o], as<float>(out), n); }},
    {"weightedSum in place", 4, true,
     [](auto& in, auto o, auto n, auto* out) {
       std::memcpy(out, &in.b[o], n * 4);
       weightedSum(as<float>(out), 0.7f, &in.a[o], -1.3f, as<float>(out), n);
     }},
    {"negate", 4, true,
     [](auto& in, auto o, auto n, auto* out) { negate(&in.a[o], as<float>(out), n); }},
    {"absolute", 4, true,
     [](auto& in, auto o, auto n, auto* out) { absolute(&in.a[o], as<float>(out), n); }},
    {"square", 4, true,
     [](auto& in, auto o, auto n, auto* out) { square(&in.a[o], as<float>(out), n); }},
    {"squareRoot", 4, true,
     [](auto& in, auto o, auto n, auto* out) { squareRoot(&in.a[o], as<float>(out), n); }},
    {"roundToNearest", 4, true,
     [](auto& in, auto o, auto n, auto* out) {
       multiplyByScalar(&in.a[o], 5e6f, as<float>(out), n);
       roundToNearest(as<float>(out), as<float>(out), n);
     }},
    {"tanh", 4, true,
     [](auto& in, auto o, auto n, auto* out) {
       multiplyByScalar(&in.a[o], 5, as<float>(out), n);
       vector::tanh(as<float>(out), as<float>(out), n);
     }},
    {"swap", 8, true,
     [](auto& in, auto o, auto n, auto* out) {
       std::memcpy(out, &in.a[o], n * 4);
       std::memcpy(out + 4 * n, &in.b[o], n * 4);
       vector::swap(as<float>(out), as<float>(out) + n, n);
     }},
    {"clip", 4, true,
     [](auto& in, auto o, auto n, auto* out) { clip(&in.a[o], -0.5f, 0.25f, as<float>(out), n); }},
    {"maxMagnitude", 0, true,
     [](auto& in, auto o, auto n, auto* out) { *as<float>(out) = maxMagnitude(&in.a[o], n); }},
    {"int16ToFloat", 4, true,
     [](auto& in, auto o, auto n, auto* out) {
       int16ToFloat(&in.s[o], 0x1p-15f, as<float>(out), n);
     }},
    {"int24ToFloat", 4, true,
     [](auto& in, auto o, auto n, auto* out) {
       int24ToFloat(&in.bytes[o], 0x1p-23f, as<float>(out), n);
     }},
    {"int32ToFloat", 4, true,
     [](auto& in, auto o, auto n, auto* out) {
       int32ToFloat(&in.i[o], 0x1p-31f, as<float>(out), n);
     }},
    {"floatToDouble", 8, false,
     [](auto& in, auto o, auto n, auto* out) { floatToDouble(&in.b[o], as<double>(out), n); }},
    {"doubleToFloat", 4, true,
     [](auto& in, auto o, auto n, auto* out) { doubleToFloat(&in.d[o], as<float>(out), n); }},
    {"doubleToInt32", 4, false,
     [](auto& in, auto o, auto n, auto* out) {
       doubleToInt32(&in.d[o], as<std::int32_t>(out), n);
     }},
    {"doubleToInt16", 2, false,
     [](auto& in, auto o, auto n, auto* out) {
       doubleToInt16(&in.d[o], as<std::int16_t>(out), n);
     }},
    {"floatToInt32 16", 4, false,
     [](auto& in, auto o, auto n, auto* out) {
       floatToInt32(&in.a[o], 16, as<std::int32_t>(out), n);
     }},
    {"floatToInt32 24", 4, false,
     [](auto& in, auto o, auto n, auto* out) {
       floatToInt32(&in.a[o], 24, as<std::int32_t>(out), n);
     }},
    {"floatToInt32 29", 4, false,
     [](auto& in, auto o, auto n, auto* out) {
       floatToInt32(&in.a[o], 29, as<std::int32_t>(out), n);
     }},
    {"floatToInt32 32", 4, false,
     [](auto& in, auto o, auto n, auto* out) {
       floatToInt32(&in.a[o], 32, as<std::int32_t>(out), n);
     }},
    {"clipInt32", 4, false,
     [](auto& in, auto o, auto n, auto* out) {
       clipInt32(&in.i[o], -1'000'000'000, 77, as<std::int32_t>(out), n);
     }},
    {"shiftLeftInt32", 4, false,
     [](auto& in, auto o, auto n, auto* out) {
       shiftLeftInt32(&in.i[o], 8, as<std::int32_t>(out), n);
     }},
    {"shiftRightInt32", 4, false,
     [](auto& in, auto o, auto n, auto* out) {
       shiftRightInt32(&in.i[o], 31, as<std::int32_t>(out), n);
     }},
    {"shiftLeftToInt16", 2, false,
     [](auto& in, auto o, auto n, auto* out) {
       shiftLeftToInt16(&in.i[o], 3, as<std::int16_t>(out), n);
     }},
    {"int16ToInt32", 4, false,
     [](auto& in, auto o, auto n, auto* out) {
       int16ToInt32(&in.s[o], 16, as<std::int32_t>(out), n);
     }},
    {"interleave int16 pairs", 4, false,
     [](auto& in, auto o, auto n, auto* out) {
       const std::int16_t* planes[] = {&in.s[o], &in.s[o + 50]};
       interleave(planes, 2, n, PCMWord::int16, out);
     }},
    {"interleave int32 pairs", 8, false,
     [](auto& in, auto o, auto n, auto* out) {
       const std::int32_t* planes[] = {&in.i[o], &in.i[o + 50]};
       interleave(planes, 2, n, PCMWord::int32, out);
     }},
    {"interleave int24 pairs", 6, false,
     [](auto& in, auto o, auto n, auto* out) {
       const float* planes[] = {&in.a[o], &in.a[o + 50]};
       interleave(planes, 2, n, PCMWord::int24Packed, out);
     }},
    {"deinterleave int16 pairs", 4, false,
     [](auto& in, auto o, auto n, auto* out) {
       std::int16_t* planes[] = {as<std::int16_t>(out), as<std::int16_t>(out) + n};
       deinterleave(&in.bytes[o], 2, n, planes);
     }},
    {"deinterleave int32 pairs", 8, false,
     [](auto& in, auto o, auto n, auto* out) {
       std::int32_t* planes[] = {as<std::int32_t>(out), as<std::int32_t>(out) + n};
       deinterleave(&in.bytes[o], PCMWord::int32, 2, n, planes);
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
        // Sixty-four bytes behind the run must stay as they are.
        const std::size_t size = std::max<std::size_t>(n * operation.outBytesPerElement, 4);
        std::vector<std::byte> expected(size + 64, std::byte{0x5a});
        {
          const AtLevel reference(Level::scalar);
          operation.run(in, offset, n, expected.data());
        }
        normaliseNaNs(expected, operation);
        for (const Level level : availableLevels().subspan(1)) {
          std::vector<std::byte> got(size + 64, std::byte{0x5a});
          const AtLevel tested(level);
          operation.run(in, offset, n, got.data());
          normaliseNaNs(got, operation);
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

TEST(PCMPacking, RoundTripsLoseNothing) {
  const Inputs in;
  constexpr std::size_t kFrames = 600;
  for (const Level level : availableLevels()) {
    const AtLevel tested(level);
    for (const PCMWord word : kWords) {
      for (const std::size_t channels : {1u, 2u, 5u}) {
        SCOPED_TRACE(testing::Message() << "word " << static_cast<int>(word) << ", " << channels);
        // Samples that the word can hold: whole multiples of its last bit.
        const unsigned spare = 32 - bitsOf(word);
        std::vector<std::vector<std::int32_t>> truth(channels);
        std::vector<std::vector<float>> floats(channels, std::vector<float>(kFrames));
        std::vector<std::vector<std::int32_t>> back(channels, std::vector<std::int32_t>(kFrames));
        std::vector<const std::int32_t*> from;
        std::vector<std::int32_t*> to;
        std::vector<float*> toFloats;
        for (std::size_t c = 0; c < channels; ++c) {
          for (std::size_t k = 0; k < kFrames; ++k) {
            truth[c].push_back(in.i[c * 100 + k] >> spare << spare);
          }
          from.push_back(truth[c].data());
          to.push_back(back[c].data());
          toFloats.push_back(floats[c].data());
        }
        std::vector<std::byte> stream(kFrames * channels * bytesPerWord(word) + 1);
        interleave(from.data(), channels, kFrames, word, stream.data() + 1);
        deinterleave(stream.data() + 1, word, channels, kFrames, to.data());
        deinterleave(stream.data() + 1, word, channels, kFrames, toFloats.data());
        EXPECT_EQ(back, truth);
        for (std::size_t k = 0; k < kFrames; ++k) {
          ASSERT_EQ(floats[channels - 1][k],
                    static_cast<float>(truth[channels - 1][k] / 2147483648.0));
        }
        if (word != PCMWord::int16) continue;
        std::vector<std::vector<std::int16_t>> shorts(channels, std::vector<std::int16_t>(kFrames));
        std::vector<std::int16_t*> toShorts;
        for (auto& plane : shorts) toShorts.push_back(plane.data());
        deinterleave(stream.data() + 1, channels, kFrames, toShorts.data());
        EXPECT_EQ(shorts[channels - 1][77], truth[channels - 1][77] >> 16);
      }
    }
  }
}

}  // namespace
}  // namespace velorin::vector
