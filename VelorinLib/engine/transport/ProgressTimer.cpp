#include "engine/transport/ProgressTimer.h"

#include "foundation/EventBus.h"
#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "records/Events.h"

namespace velorin {
namespace {

constexpr std::chrono::milliseconds kInterval{250};
constexpr int kTicksPerReport = 40;

}  // namespace

/// Lives on the main thread, which also destroys it.
struct ProgressTimer::State {
  EventBus& bus;
  std::shared_ptr<RenderControls> controls;
  std::shared_ptr<DSPEffects> effects;
  std::optional<RepeatingTimer> timer;
  int tickCount = 0;

  void start() {
    controls->renderOverloadCount = 0;
    tickCount = 0;
    if (!timer) timer.emplace();
    timer->start(kInterval, [this] { tick(); });
  }

  void tick() {
    bus.post(PlaybackProgressDidUpdate{});
    if (++tickCount < kTicksPerReport) return;
    tickCount = 0;
    if (const auto overloads = controls->renderOverloadCount.exchange(0); overloads >= 1) {
      log::line("⚠️ Render callback overloads (>5ms): {} in last 10s", overloads);
    }
    if (effects->chain.diagnosticsEnabled()) reportTimings();
  }

  void reportTimings() {
    std::string report;
    for (const DSPChain::Timing& each : effects->chain.drainDiagnostics()) {
      report += fmt::format("  {}={:.0f}/{:.0f}", each.name, each.peakMicros, each.avgMicros);
    }
    if (!report.empty()) log::line("🔬 DSP timing (peak/avg µs):{}", report);
  }
};

ProgressTimer::ProgressTimer(EventBus& bus, std::shared_ptr<RenderControls> controls,
                             std::shared_ptr<DSPEffects> effects)
    : _state(new State{bus, std::move(controls), std::move(effects), std::nullopt, 0}) {}

ProgressTimer::~ProgressTimer() {
  stop();
  // The timer belongs to the main thread, the engine may end anywhere.
  MainThread::instance().post([state = std::move(_state)] {});
}

void ProgressTimer::start() {
  MainThread::instance().post([state = _state] { state->start(); });
}

void ProgressTimer::stop() {
  MainThread::instance().post([state = _state] {
    if (state->timer) state->timer->stop();
  });
}

}  // namespace velorin
