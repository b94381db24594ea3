// What the interface shows of a scan.
#pragma once

#include <functional>
#include <string>
#include <utility>

namespace velorin {

/// Main thread only.
class ScanProgressState {
 public:
  bool isScanning() const noexcept { return _isScanning; }
  bool isPaused() const noexcept { return _isPaused; }
  double progress() const noexcept { return _progress; }  ///< 0 to 1
  const std::string& statusText() const noexcept { return _statusText; }

  void setScanning(bool scanning) { set(_isScanning, scanning); }
  void setPaused(bool paused) { set(_isPaused, paused); }
  void setProgress(double progress) { set(_progress, progress); }
  void setStatusText(std::string text) { set(_statusText, std::move(text)); }

  /// Called after each change; empty for nobody. One at a time.
  void setObserver(std::function<void()> changed) { _changed = std::move(changed); }

 private:
  template <class Field, class Value>
  void set(Field& field, Value value) {
    if (field == value) return;
    field = std::move(value);
    if (_changed) _changed();
  }

  bool _isScanning = false;
  bool _isPaused = false;
  double _progress = 0;
  std::string _statusText;
  std::function<void()> _changed;
};

}  // namespace velorin
