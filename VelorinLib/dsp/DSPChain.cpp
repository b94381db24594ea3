#include "dsp/DSPChain.h"

#include "platform/vector/FlushDenormals.h"

namespace velorin {

DSPChain::DSPChain(bool diagnosticsEnabled)
    : _diagnosticsEnabled(diagnosticsEnabled), _published(std::make_unique<const Snapshot>()) {
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
  // Effects that feed back fade into denormals, which take a hundred times as long.
  const vector::FlushDenormals flush;
  _renderCount.fetch_add(1, std::memory_order_seq_cst);
  const Snapshot* snapshot = _currentSnapshot.load(std::memory_order_seq_cst);
  if (_diagnosticsEnabled) {
    processTimed(*snapshot, buffers, frameCount, sampleRate);
  } else {
    for (DSPProcessor* effect : snapshot->processors) {
      if (effect->isEnabled()) effect->process(buffers, frameCount, sampleRate);
    }
  }
  _renderCount.fetch_add(1, std::memory_order_seq_cst);
}

void DSPChain::processTimed(const Snapshot& snapshot, AudioBufferList& buffers,
                            std::int64_t frameCount, double sampleRate) noexcept {
  for (std::size_t i = 0; i < snapshot.processors.size(); ++i) {
    DSPProcessor& effect = *snapshot.processors[i];
    if (!effect.isEnabled()) continue;
    const auto start = std::chrono::steady_clock::now();
    effect.process(buffers, frameCount, sampleRate);
    if (i >= kMaxSlots) continue;
    const auto took = std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::steady_clock::now() - start);
    const auto ns = static_cast<std::uint64_t>(took.count());
    Slot& slot = _slots[i];
    if (ns > slot.peakNs.load(std::memory_order_relaxed)) {
      slot.peakNs.store(ns, std::memory_order_relaxed);
    }
    slot.totalNs.fetch_add(ns, std::memory_order_relaxed);
    slot.calls.fetch_add(1, std::memory_order_relaxed);
  }
}

std::vector<DSPChain::Timing> DSPChain::drainDiagnostics() {
  const auto effects = processors();
  std::vector<Timing> timings;
  for (std::size_t i = 0; i < std::min(effects.size(), kMaxSlots); ++i) {
    Slot& slot = _slots[i];
    const std::uint64_t calls = slot.calls.exchange(0, std::memory_order_relaxed);
    if (calls == 0) continue;
    const auto peak = static_cast<double>(slot.peakNs.exchange(0, std::memory_order_relaxed));
    const auto total = static_cast<double>(slot.totalNs.exchange(0, std::memory_order_relaxed));
    timings.push_back({std::string(effects[i]->shortName()), peak / 1000,
                       total / static_cast<double>(calls) / 1000, calls});
  }
  return timings;
}

}  // namespace velorin
