// What the effects have in common: names, the switch, and parameters by name.
#pragma once

#include <atomic>
#include <functional>
#include <string_view>
#include <vector>

#include "dsp/DSPEffectType.h"
#include "dsp/DSPProcessor.h"

namespace velorin {

/// A number that the listener can set, as the command line, chain files and panels see it. A switch
/// is 0 or 1, a choice is the index of its name.
struct EffectParameter {
  std::string_view name;  ///< lower camel case, such as "cutoffFrequency"
  double minimum = 0;     ///< of the panel; a setter may take more
  double maximum = 0;
  double defaultValue = 0;
  std::string_view unit = {};                  ///< "dB", "Hz", "s", "%", or none
  std::vector<std::string_view> choices = {};  ///< of a choice, by index
  std::function<double()> get;                 ///< any thread but the render thread, as is set
  std::function<void(double)> set;
};

/// Base of the effects. A parameter that fits in a word is an atomic that the render thread reads
/// once a block; what is larger is built off the render thread and put in place under the effect's
/// RenderLock, which the render thread only tries: a block that finds it taken passes dry.
class DSPEffect : public DSPProcessor {
 public:
  std::string_view id() const noexcept override { return namesOf(_type).id; }
  std::string_view name() const noexcept override { return namesOf(_type).name; }
  std::string_view shortName() const noexcept override { return namesOf(_type).shortName; }
  DSPEffectType type() const noexcept { return _type; }

  bool isEnabled() const noexcept override { return _enabled.load(std::memory_order_relaxed); }
  void setEnabled(bool enabled) noexcept override {
    _enabled.store(enabled, std::memory_order_relaxed);
  }

  /// In the order of the panel; empty for an effect without any. The functions hold the effect by
  /// reference.
  virtual std::vector<EffectParameter> parameters() { return {}; }

 protected:
  explicit DSPEffect(DSPEffectType type) noexcept : _type(type) {}

 private:
  const DSPEffectType _type;
  std::atomic<bool> _enabled{false};
};

}  // namespace velorin
