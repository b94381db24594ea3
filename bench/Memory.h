// What memory the process holds, in megabytes of 2^20 bytes.
#pragma once

#include <atomic>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace velorin::bench {

/// A figure of /proc/self/status. "RssAnon" is the process's own memory; "RssFile" are pages of
/// files that the kernel may take back at any time; "VmHWM" the most of both.
inline double statusMB(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":")) return std::stod(line.substr(name.size() + 1)) / 1024;
  }
  throw std::runtime_error("no " + name);
}

/// Lets VmHWM begin anew.
inline void forgetPeak() {
  std::ofstream("/proc/self/clear_refs") << 5;
}

/// Watches the process's own memory, of which the kernel keeps no peak.
class PeakWatch {
 public:
  PeakWatch()
      : _thread([this] {
          while (!_stop) {
            _peak = std::max(_peak.load(), statusMB("RssAnon"));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
          }
        }) {}
  ~PeakWatch() {
    _stop = true;
    _thread.join();
  }
  double peakMB() const { return _peak; }

 private:
  std::atomic<bool> _stop{false};
  std::atomic<double> _peak{0};
  std::thread _thread;
};

}  // namespace velorin::bench
