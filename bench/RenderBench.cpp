// What the render callback takes of the time that it has.
//
// "Warm" calls follow each other at once. Before each "cold" call the processor's caches are
// filled with something else, as other programs do between two callbacks of a real device.
#include <fmt/format.h>
#include <malloc.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "bench/Bench.h"
#include "engine/render/RenderPath.h"
#include "platform/power/RealtimePriority.h"

namespace velorin::bench {
namespace {

constexpr double kRate = 192'000;
constexpr std::uint32_t kFrames = 512;
constexpr double kDeadlineUs = kFrames / kRate * 1e6;
constexpr int kWarmCalls = 50'000;
constexpr int kColdCalls = 5'000;
constexpr std::size_t kCacheBytes = std::size_t{8} << 20;

/// A started output, but for the device.
class Output {
 public:
  explicit Output(bool isInteger)
      : _ring(2, static_cast<std::int64_t>(30 * kRate), 4),
        _in(2, kFrames, 4),
        _out(2, kFrames, 4),
        _path(RenderPath::Stream{_ring, _cells, _gate, kRate, 4, isInteger, kDeadlineUs}, _controls,
              DSPStages{_headroom, _chain, _clipping}, _spectrum) {
    fill();
  }

  /// Microseconds that one call took.
  double call() {
    if (_ring.framesHeld() < kFrames) fill();
    const auto began = std::chrono::steady_clock::now();
    RenderPath::render(&_path, _out.list(), kFrames);
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - began;
    keep(_out.list().channel<float>(0)[0]);
    return took.count();
  }

  RenderControls& controls() { return _controls; }

 private:
  void fill() {
    while (_ring.write(_in.list(), kFrames) > 0) continue;
  }

  AudioRingBuffer _ring;
  TransportCells _cells;
  RenderGate _gate;
  RenderControls _controls;
  DSPChain _chain;
  ClippingDetector _clipping;
  HeadroomDSP _headroom{_clipping};
  SpectrumCaptureRing _spectrum{4096};
  PlanarBuffers _in;
  PlanarBuffers _out;
  RenderPath _path;
};

class CacheFiller {
 public:
  void run() {
    for (std::size_t i = 0; i < _bytes.size(); i += 64) ++_bytes[i];
    keep(_bytes[0]);
  }

 private:
  std::vector<unsigned char> _bytes = std::vector<unsigned char>(kCacheBytes);
};

void measure(BenchReport& report, const std::string& name, Output& output, bool isCold) {
  CacheFiller filler;
  std::vector<double> times;
  for (int i = 0; i < (isCold ? kColdCalls : kWarmCalls); ++i) {
    if (isCold) filler.run();
    times.push_back(output.call());
  }
  std::ranges::sort(times);
  const auto percentOfDeadline = [&](double share) {
    const auto index = static_cast<std::size_t>(share * static_cast<double>(times.size() - 1));
    return 100 * times[index] / kDeadlineUs;
  };
  report.add(name + " p50", percentOfDeadline(0.5), "% of deadline");
  report.add(name + " p99.9", percentOfDeadline(0.999), "% of deadline", atMost(2));
}

void measureAll(BenchReport& report) {
  // As the thread of a real device: what else runs must not show in the figures.
  const ThreadPriority granted = raiseThreadPriority();
  report.add("real-time scheduling granted", granted.isRealtime ? 1 : 0, "(1 is yes)");
  for (const bool isCold : {false, true}) {
    const std::string caches = isCold ? "cold" : "warm";
    Output plain(false);
    measure(report, "192 kHz stereo, 512 frames, " + caches, plain, isCold);
    Output integer(true);
    measure(report, "the same, integer, " + caches, integer, isCold);
    Output full(false);
    full.controls().volume = 0.5f;
    full.controls().spectrumCaptureEnabled = true;
    measure(report, "the same, volume and spectrum, " + caches, full, isCold);
  }
}

const Registration kRender("render", [](BenchReport& report) {
  std::thread(measureAll, std::ref(report)).join();
});

double residentMiB() {
  std::ifstream statm("/proc/self/statm");
  std::uint64_t total = 0;
  std::uint64_t resident = 0;
  if (!(statm >> total >> resident)) throw std::runtime_error("cannot read /proc/self/statm");
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1048576;
}

const Registration kRingMemory("ring-memory", [](BenchReport& report) {
  for (const double rate : {44'100.0, 48'000.0, 96'000.0, 192'000.0, 384'000.0}) {
    malloc_trim(0);  // what the last ring left behind would be taken for nothing
    const double before = residentMiB();
    AudioRingBuffer ring(2, static_cast<std::int64_t>(30 * rate), 4);
    PlanarBuffers block(2, 4096, 4);
    while (ring.write(block.list(), 4096) > 0) continue;
    const double full = residentMiB() - before;
    const double holds = static_cast<double>(ring.capacity() * 2 * 4) / 1048576;
    const std::string name = fmt::format("{:g} kHz stereo", rate / 1000);
    report.add(name + ", full", full, "MiB", atMost(holds + 1));
    report.add(name + ", holds", static_cast<double>(ring.capacity()) / rate, "s", atLeast(30));
  }
});

}  // namespace
}  // namespace velorin::bench
