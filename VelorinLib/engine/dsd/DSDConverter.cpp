#include "engine/dsd/DSDConverter.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace velorin {
namespace {

// Silence as one-bit sound knows it: as many ones as zeros, spread. The filter starts with five
// bytes of the mirrored pattern before six of this one, since its older half reads mirrored bytes
// and starts from the same memory.
constexpr std::uint8_t kSilence = 0x69;
constexpr std::size_t kMirrored = 5;

}  // namespace

int DSDConverter::stagesFor(int decimation) noexcept {
  if (decimation < 2) return 0;
  return std::min<int>(std::bit_width(static_cast<unsigned>(decimation)) - 1, kMaxStages);
}

std::size_t DSDConverter::memoryBytes(int stages) noexcept {
  // 22 samples for the first stage, 22 of twice the distance for the second, and so on.
  return kHistory + 22 * ((std::size_t{1} << stages) - 1);
}

DSDConverter::DSDConverter(int decimation, bool isLeastSignificantFirst)
    : _isLeastSignificantFirst(isLeastSignificantFirst), _tables(DSDTables::shared()) {
  const int stages = stagesFor(decimation);
  std::size_t longest = kPiece;
  for (int i = 0; i < stages; ++i) {
    _between[i % 2].resize(std::max(_between[i % 2].size(), longest));
    _stages.emplace_back(longest);
    longest = longest / 2 + 1;
  }
  reset();
}

std::size_t DSDConverter::translate(const std::uint8_t* bytes, std::size_t count,
                                    float* out) noexcept {
  std::size_t written = 0;
  while (count > 0) {
    const std::size_t piece = std::min(count, kPiece);
    std::memcpy(_bytes.data() + kHistory, bytes, piece);
    written += translatePiece(piece, out + written);
    std::memmove(_bytes.data(), _bytes.data() + piece, kHistory);
    bytes += piece;
    count -= piece;
  }
  return written;
}

std::size_t DSDConverter::translatePiece(std::size_t count, float* out) noexcept {
  const DSDTables::Rows& rows =
      _isLeastSignificantFirst ? _tables.leastSignificantFirst : _tables.mostSignificantFirst;
  float* in = _stages.empty() ? out : _between[0].data();
  vector::sumOneBitRows(_bytes.data(), rows.data(), in, count);
  for (std::size_t i = 0; i < _stages.size(); ++i) {
    float* const to = i + 1 == _stages.size() ? out : _between[(i + 1) % 2].data();
    count = _stages[i].process(in, count, to);
    in = to;
  }
  return count;
}

void DSDConverter::reset() noexcept {
  for (std::size_t i = 0; i < kHistory; ++i) {
    const bool isMirrored = (i < kMirrored) != _isLeastSignificantFirst;
    _bytes[i] = isMirrored ? _tables.reversed[kSilence] : kSilence;
  }
  for (HalfBandStage& stage : _stages) stage.reset();
}

void DSDConverter::continueFrom(const DSDConverter& before) noexcept {
  if (before._stages.size() != _stages.size()) return reset();
  const bool isTurned = before._isLeastSignificantFirst != _isLeastSignificantFirst;
  for (std::size_t i = 0; i < kHistory; ++i) {
    _bytes[i] = isTurned ? _tables.reversed[before._bytes[i]] : before._bytes[i];
  }
  for (std::size_t i = 0; i < _stages.size(); ++i) _stages[i].continueFrom(before._stages[i]);
}

}  // namespace velorin
