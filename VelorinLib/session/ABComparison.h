// Two sounds side by side: two snapshots of the effects, and a switch between them.
//
//   off --enterABMode()--> on, side a, both sides as it sounds now --exitABMode()--> off
//
// An edit changes what is heard and not the side: who goes to the other side without capturing
// loses it. Nothing of a comparison is stored, it ends with the program.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "dsp/settings/DSPSnapshot.h"

namespace velorin {

class SoundSettings;

enum class ABSide : std::uint8_t { a, b };

/// Main thread. The effects follow on the engine's queue, in the order of the calls.
class ABComparison {
 public:
  static constexpr double kLargestOffsetDB = 6;

  /// `changed` is called when anything here is to be shown anew.
  ABComparison(SoundSettings& sound, std::function<void()> changed)
      : _sound(sound), _changed(std::move(changed)) {}

  bool isActive() const noexcept { return _abModeActive; }
  ABSide currentSide() const noexcept { return _abCurrentSide; }
  /// dB that side b is louder by than its snapshot, so that both can be made equally loud.
  double gainOffsetDB() const noexcept { return _abGainOffsetDB; }
  /// Of a side; nothing while off.
  const std::optional<DSPSnapshot>& snapshot(ABSide side) const noexcept {
    return side == ABSide::a ? _abSnapshotA : _abSnapshotB;
  }

  void enterABMode();
  /// That side becomes what is heard, and the current one. Only while on.
  void captureSide(ABSide side);
  /// What is heard becomes that side. Nothing for a side without a snapshot.
  void switchToSide(ABSide side);
  /// To the other side. Only while on.
  void toggleSide();
  /// Keeps what is heard, without the offset.
  void exitABMode();
  /// Held within 6 dB either way; a NaN is ignored. The pre-amp's own gain stays what is shown.
  void setABGainOffset(double dB);

 private:
  void useOffset();

  SoundSettings& _sound;
  const std::function<void()> _changed;
  bool _abModeActive = false;
  ABSide _abCurrentSide = ABSide::a;
  double _abGainOffsetDB = 0;
  std::optional<DSPSnapshot> _abSnapshotA;
  std::optional<DSPSnapshot> _abSnapshotB;
};

}  // namespace velorin
