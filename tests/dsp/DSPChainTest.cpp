// The list of effects, and its replacement under a render thread that never stops.
#include "dsp/DSPChain.h"

#include <gtest/gtest.h>

#include <latch>
#include <string>

#include "support/GainEffect.h"

namespace velorin {
namespace {

using test::GainEffect;

// Writes its letter down, so that the order of a call can be read.
class Letter : public GainEffect {
 public:
  Letter(std::string& log, char letter) : GainEffect(1.0f), _log(log), _letter(letter) {}
  void process(AudioBufferList&, std::int64_t, double) noexcept override { _log += _letter; }

 private:
  std::string& _log;
  const char _letter;
};

TEST(DSPChain, RunsEnabledEffectsInOrderAndLeavesTheRestAlone) {
  std::string log;
  Letter a(log, 'a');
  Letter b(log, 'b');
  Letter c(log, 'c');
  DSPChain chain;
  PlanarBuffers buffers(2, 64, 4);
  const auto run = [&] {
    log.clear();
    chain.process(buffers.list(), 64, 44100);
    return log;
  };
  EXPECT_EQ(run(), "");
  EXPECT_FALSE(chain.isActive());
  chain.setProcessors({&a, &b, &c});
  EXPECT_EQ(run(), "abc");
  b.setEnabled(false);
  EXPECT_EQ(run(), "ac");
  EXPECT_TRUE(chain.isActive());
  chain.setProcessors({&c, &b, &a, &c});
  EXPECT_EQ(run(), "cac");
  chain.sampleRateChanged(192000);
  EXPECT_EQ(a.toldRate, 192000);
  EXPECT_EQ(b.toldRate, 192000) << "a disabled effect may be switched on while this plays";
  a.setEnabled(false);
  c.setEnabled(false);
  EXPECT_FALSE(chain.isActive());
}

TEST(DSPChain, DiagnosticsTimeTheFirstSixteenPositions) {
  // Slow enough to be told from the others on any machine.
  struct Slow : GainEffect {
    Slow() : GainEffect(1.0f) {}
    void process(AudioBufferList&, std::int64_t, double) noexcept override {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  } slow;
  std::vector<std::unique_ptr<GainEffect>> effects;
  std::vector<DSPProcessor*> list;
  for (int i = 0; i < 18; ++i) {
    list.push_back(effects.emplace_back(std::make_unique<GainEffect>(1.0f)).get());
  }
  list[2] = &slow;
  effects[4]->setEnabled(false);
  PlanarBuffers buffers(2, 64, 4);
  for (const bool isTimed : {false, true}) {
    DSPChain chain(isTimed);
    chain.setProcessors(list);
    for (const unsigned calls : {5u, 1u}) {  // a report starts the counts anew
      for (unsigned i = 0; i < calls; ++i) chain.process(buffers.list(), 64, 44100);
      const auto timings = chain.drainDiagnostics();
      ASSERT_EQ(timings.size(), isTimed ? 15u : 0u) << "sixteen positions, one of them off";
      for (std::size_t i = 0; i < timings.size(); ++i) {
        EXPECT_EQ(timings[i].calls, calls);
        EXPECT_GE(timings[i].peakMicros, timings[i].avgMicros);
        EXPECT_GE(timings[i].avgMicros, i == 2 ? 2000 : 0);
      }
    }
  }
  EXPECT_EQ(effects[17]->calls, 12) << "beyond the sixteenth they run untimed";
}

TEST(DSPChain, ARunningCallKeepsItsListHoweverOftenItIsReplaced) {
  struct Waiter : GainEffect {
    Waiter() : GainEffect(1.0f) {}
    void process(AudioBufferList&, std::int64_t, double) noexcept override {
      entered.count_down();
      replaced.wait();
    }
    std::latch entered{1};
    std::latch replaced{1};
  } waiter;
  GainEffect others[4] = {GainEffect(1), GainEffect(1), GainEffect(1), GainEffect(1)};
  GainEffect stranger(1);
  DSPChain chain;
  chain.setProcessors({&waiter, &others[0], &others[1], &others[2], &others[3]});
  std::thread renderer([&] {
    PlanarBuffers buffers(2, 64, 4);
    chain.process(buffers.list(), 64, 44100);
  });
  waiter.entered.wait();
  // Each of these may free lists that are out of use; the one at work is none of them.
  for (int i = 0; i < 100; ++i) {
    chain.setProcessors(std::vector<DSPProcessor*>(static_cast<std::size_t>(i % 7), &stranger));
  }
  waiter.replaced.count_down();
  renderer.join();
  for (const GainEffect& effect : others) EXPECT_EQ(effect.calls, 1);
  EXPECT_EQ(stranger.calls, 0);
}

// A thread that renders without a pause, and counts its calls.
class Renderer {
 public:
  explicit Renderer(DSPChain& chain)
      : _thread([this, &chain] {
          PlanarBuffers buffers(2, 16, 4);
          while (!_stop) {
            chain.process(buffers.list(), 16, 44100);
            ++_calls;
          }
        }) {}
  ~Renderer() {
    _stop = true;
    _thread.join();
  }

  // Returns when every call that was running has ended.
  void passOneWholeCall() const {
    const std::uint64_t now = _calls;
    while (_calls < now + 2) std::this_thread::yield();
  }

 private:
  std::atomic<bool> _stop{false};
  std::atomic<std::uint64_t> _calls{0};
  std::thread _thread;
};

TEST(DSPChain, PublishingInATightLoopNeverFreesAListInUse) {
  std::vector<std::unique_ptr<GainEffect>> effects;
  for (int i = 0; i < 8; ++i) effects.push_back(std::make_unique<GainEffect>(1.0f));
  DSPChain chain;
  Renderer renderer(chain);
  for (std::size_t turn = 0; turn < 20'000; ++turn) {
    std::vector<DSPProcessor*> list;
    for (std::size_t i = 0; i < turn % 9; ++i) list.push_back(effects[(turn + i) % 8].get());
    chain.setProcessors(std::move(list));
  }
  chain.setProcessors({effects[0].get()});
  const int before = effects[0]->calls;
  renderer.passOneWholeCall();
  EXPECT_GT(effects[0]->calls, before) << "the last list is the one that plays";
}

TEST(DSPChain, AfterOneMoreCallARemovedEffectIsOutOfUse) {
  struct Mortal : GainEffect {
    explicit Mortal(std::atomic<int>& used) : GainEffect(1.0f), usedAfterDeath(used) {}
    void process(AudioBufferList& list, std::int64_t frames, double rate) noexcept override {
      if (isRemoved) ++usedAfterDeath;
      GainEffect::process(list, frames, rate);
    }
    std::atomic<bool> isRemoved{false};
    std::atomic<int>& usedAfterDeath;
  };
  std::atomic<int> usedAfterDeath{0};
  DSPChain chain;
  Renderer renderer(chain);
  auto current = std::make_unique<Mortal>(usedAfterDeath);
  chain.setProcessors({current.get()});
  for (int turn = 0; turn < 300; ++turn) {
    auto next = std::make_unique<Mortal>(usedAfterDeath);
    chain.setProcessors({next.get(), next.get()});
    renderer.passOneWholeCall();
    current->isRemoved = true;
    current = std::move(next);  // frees the removed one: the sanitizers watch too
  }
  chain.setProcessors({});
  renderer.passOneWholeCall();
  EXPECT_EQ(usedAfterDeath, 0);
}

}  // namespace
}  // namespace velorin
