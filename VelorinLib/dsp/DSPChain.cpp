#include "dsp/DSPChain.h"

namespace velorin {

DSPChain::DSPChain() : _published(std::make_unique<const Snapshot>()) {
  _currentSnapshot.store(_published.get());
}

DSPChain::~DSPChain() = default;

void DSPChain::setProcessors(std::vector<DSPProcessor*> processors) {
  auto next = std::make_unique<const Snapshot>(Snapshot{std::move(processors)});
  MutexLock hold(_lock);
  _currentSnapshot.store(next.get(), std::memory_order_seq_cst);
  // A call that runs now may hold the old list; a call that starts later sees the new one.
  const std::uint64_t count = _renderCount.load(std::memory_order_seq_cst);
  _retired.push_back({std::move(_published), count});
  _published = std::move(next);
  freeRetired();
}

void DSPChain::freeRetired() {
  const std::uint64_t now = _renderCount.load(std::memory_order_seq_cst);
  std::erase_if(_retired, [now](const Retired& old) {
    const bool noCallThen = old.renderCount % 2 == 0;
    return noCallThen || now != old.renderCount;
  });
}

std::vector<DSPProcessor*> DSPChain::processors() const {
  MutexLock hold(_lock);
  return _published->processors;
}

void DSPChain::sampleRateChanged(double sampleRate) {
  for (DSPProcessor* effect : processors()) effect->sampleRateChanged(sampleRate);
}

bool DSPChain::isActive() const {
  MutexLock hold(_lock);
  return std::ranges::any_of(_published->processors,
                             [](const DSPProcessor* effect) { return effect->isEnabled(); });
}

void DSPChain::process(AudioBufferList& buffers, std::int64_t frameCount,
                       double sampleRate) noexcept {
  _renderCount.fetch_add(1, std::memory_order_seq_cst);
  const Snapshot* snapshot = _currentSnapshot.load(std::memory_order_seq_cst);
  for (DSPProcessor* effect : snapshot->processors) {
    if (effect->isEnabled()) effect->process(buffers, frameCount, sampleRate);
  }
  _renderCount.fetch_add(1, std::memory_order_seq_cst);
}

}  // namespace velorin
