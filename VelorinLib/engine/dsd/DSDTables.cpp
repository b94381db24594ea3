#include "engine/dsd/DSDTables.h"

#include <cmath>
#include <memory>

namespace velorin {
namespace {

// The filter's second half, from its middle outwards.
constexpr std::array kHalfTaps = {
    0.09950731974056658,    0.09562845727714668,    0.08819647126516944,    0.07782552527068175,
    0.06534876523171299,    0.05172629311427257,    0.0379429484910187,     0.02490921351762261,
    0.0133774746265897,     0.003883043418804416,   -0.003284703416210726,  -0.008080250212687497,
    -0.01067241812471033,   -0.01139427235000863,   -0.0106813877974587,    -0.00900790507876605,
    -0.006828859761015335,  -0.004535184322001496,  -0.002425035959059578,  -0.0006922187080790708,
    0.0005700762133516592,  0.001353838005269448,   0.001713709169690937,   0.001742046839472948,
    0.001545601648013235,   0.001226696225277855,   0.0008704322683580222,  0.000538163620053565,
    0.000266446345425276,   7.002968738383528e-05,  -5.279407053811266e-05, -0.0001140625650874684,
    -0.0001304796361231895, -0.0001189970287491285, -9.396247155265073e-05, -6.577634378272832e-05,
    -4.07492895872535e-05,  -2.17407957554587e-05,  -9.163058931391722e-06, -2.017460145032201e-06,
    1.249721855219005e-06,  2.166655190537392e-06,  1.930520892991082e-06,  1.319400334374195e-06,
    7.410039764949091e-07,  3.423230509967409e-07,  1.244182214744588e-07,  3.130441005359396e-08,
};
static_assert(kHalfTaps.size() == 48);

std::uint8_t reversedBits(std::uint8_t byte) noexcept {
  unsigned result = 0;
  for (unsigned bit = 0; bit < 8; ++bit) result |= (byte >> bit & 1u) << (7 - bit);
  return static_cast<std::uint8_t>(result);
}

// What a byte, its oldest sample on top, adds to the sample so many bytes after it.
double share(const DSDTables& tables, std::size_t byte, std::size_t after) noexcept {
  const double entry =
      after < 6 ? tables.lookup[after][byte] : tables.lookup[11 - after][tables.reversed[byte]];
  return std::nearbyint(entry * 0x1p52) * 0x1p-52;
}

std::unique_ptr<const DSDTables> compute() {
  auto tables = std::make_unique<DSDTables>();
  for (std::size_t byte = 0; byte < 256; ++byte) {
    tables->reversed[byte] = reversedBits(static_cast<std::uint8_t>(byte));
    for (std::size_t k = 0; k < 6; ++k) {
      double sum = 0;
      for (std::size_t m = 0; m < 8; ++m) {
        const double tap = kHalfTaps[k * 8 + m];
        sum += (byte >> (7 - m) & 1) != 0 ? tap : -tap;
      }
      tables->lookup[5 - k][byte] = static_cast<float>(sum);
    }
  }
  tables->mostSignificantFirst.fill(0);
  tables->leastSignificantFirst.fill(0);
  for (std::size_t byte = 0; byte < 256; ++byte) {
    const std::size_t row = byte * vector::kOneBitStride + vector::kOneBitPadding;
    for (std::size_t after = 0; after < vector::kOneBitSpan; ++after) {
      tables->mostSignificantFirst[row + after] = share(*tables, byte, after);
      tables->leastSignificantFirst[row + after] = share(*tables, tables->reversed[byte], after);
    }
  }
  return tables;
}

}  // namespace

const DSDTables& DSDTables::shared() {
  static const std::unique_ptr<const DSDTables> tables = compute();
  return *tables;
}

}  // namespace velorin
