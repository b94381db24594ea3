// The ordered list of effects, edited off the render thread and read by it without a lock.
//
// Editing publishes an immutable snapshot with one pointer store. A render call announces itself
// with a counter that is odd while it runs; a replaced snapshot is freed once the counter shows
// that no call that could hold it is still running. The render thread never frees one.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "dsp/DSPProcessor.h"
#include "foundation/Mutex.h"

namespace velorin {

class DSPChain {
 public:
  /// With diagnostics on, process() takes the time of each enabled effect.
  explicit DSPChain(bool diagnosticsEnabled = false);
  ~DSPChain();
  DSPChain(const DSPChain&) = delete;
  DSPChain& operator=(const DSPChain&) = delete;

  /// Any thread but the render thread. Replaces the list; the next render call uses it. A call
  /// that runs meanwhile goes on with the old list: an effect that was removed must live until
  /// that call has ended. The program's own effects live as long as the chain.
  void setProcessors(std::vector<DSPProcessor*> processors) EXCLUDES(_lock);
  std::vector<DSPProcessor*> processors() const EXCLUDES(_lock);

  /// Tells every member the stream's rate, in order. Not the render thread.
  void sampleRateChanged(double sampleRate) EXCLUDES(_lock);

  /// True when some member is switched on. Any thread but the render thread.
  bool isActive() const EXCLUDES(_lock);

  /// Render thread only, one call at a time: runs every enabled effect in order, in place.
  void process(AudioBufferList& buffers, std::int64_t frameCount, double sampleRate) noexcept;

  /// How long the calls of the effect at one position took since the last report.
  struct Timing {
    std::string name;  ///< the effect's short name
    double peakMicros = 0;
    double avgMicros = 0;
    std::uint64_t calls = 0;
  };
  bool diagnosticsEnabled() const noexcept { return _diagnosticsEnabled; }
  /// Of the first 16 positions, those that were called; starts the counts anew. Not the render
  /// thread. A call that ends meanwhile may be counted in part.
  std::vector<Timing> drainDiagnostics() EXCLUDES(_lock);

 private:
  struct Snapshot {
    std::vector<DSPProcessor*> processors;
  };
  struct Retired {
    std::unique_ptr<const Snapshot> snapshot;
    std::uint64_t renderCount;  ///< of the call that may still hold it
  };
  /// Written by the render thread, drained by another.
  struct Slot {
    std::atomic<std::uint64_t> peakNs{0};
    std::atomic<std::uint64_t> totalNs{0};
    std::atomic<std::uint64_t> calls{0};
  };
  static constexpr std::size_t kMaxSlots = 16;

  void freeRetired() REQUIRES(_lock);
  void processTimed(const Snapshot& snapshot, AudioBufferList& buffers, std::int64_t frameCount,
                    double sampleRate) noexcept;

  const bool _diagnosticsEnabled;
  std::array<Slot, kMaxSlots> _slots;

  std::atomic<const Snapshot*> _currentSnapshot;
  std::atomic<std::uint64_t> _renderCount{0};  ///< odd while process() runs

  mutable Mutex _lock;
  std::unique_ptr<const Snapshot> _published GUARDED_BY(_lock);
  std::vector<Retired> _retired GUARDED_BY(_lock);
};

}  // namespace velorin
