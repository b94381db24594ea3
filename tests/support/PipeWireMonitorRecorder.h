// Records what a sink is given, sample by sample, from its monitor.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace velorin::test {

enum class MonitorFormat { float32, int16, int32 };

/// Records interleaved samples. The server's graph carries 24 bits of an integer: 16-bit samples
/// and 32-bit ones with an empty low byte come out as they went in.
class PipeWireMonitorRecorder {
 public:
  PipeWireMonitorRecorder();
  ~PipeWireMonitorRecorder();
  PipeWireMonitorRecorder(const PipeWireMonitorRecorder&) = delete;
  PipeWireMonitorRecorder& operator=(const PipeWireMonitorRecorder&) = delete;

  /// Records the sink's monitor and waits until the first samples have come; false after 5 s
  /// without. The graph is forced to `rate` meanwhile. Keeps up to `seconds` of sound. Without a
  /// sink it waits for nothing: whoever wants something recorded links it to the node "recorder".
  bool start(const std::string& sink, unsigned rate, unsigned channels, MonitorFormat format,
             unsigned seconds = 20);
  /// Bytes recorded so far. Any thread.
  std::size_t size() const;
  /// Ends the recording; what was recorded.
  std::vector<std::byte> stop();

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin::test
