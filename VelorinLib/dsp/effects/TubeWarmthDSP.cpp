#include "dsp/effects/TubeWarmthDSP.h"

#include <algorithm>

#include "platform/vector/Vector.h"

namespace velorin {

void TubeWarmthDSP::process(AudioBufferList& buffers, std::int64_t frameCount,
                            double /*sampleRate*/) noexcept {
  const float wet = mix();
  if (frameCount < 1 || wet == 0) return;
  const auto n = static_cast<std::size_t>(std::min(frameCount, kMaxFrames));
  const float g = drive() * 4 + 1;
  const float inverse = 1 / g;
  for (std::uint32_t i = 0; i < buffers.bufferCount; ++i) {
    auto* data = buffers.channel<float>(i);
    if (data == nullptr) continue;
    for (std::size_t from = 0; from < n; from += kPiece) {
      const std::size_t count = std::min(kPiece, n - from);
      float* piece = data + from;
      vector::multiplyByScalar(piece, g, _drivenBuf.data(), count);
      vector::tanh(_drivenBuf.data(), _drivenBuf.data(), count);
      vector::multiplyByScalar(_drivenBuf.data(), inverse, _drivenBuf.data(), count);
      vector::weightedSum(piece, 1 - wet, _drivenBuf.data(), wet, piece, count);
    }
  }
}

std::vector<EffectParameter> TubeWarmthDSP::parameters() {
  return {{.name = "drive",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0.3,
           .get = [this] { return drive(); },
           .set = [this](double value) { setDrive(value); }},
          {.name = "mix",
           .minimum = 0,
           .maximum = 1,
           .defaultValue = 0.5,
           .get = [this] { return mix(); },
           .set = [this](double value) { setMix(value); }}};
}

}  // namespace velorin
