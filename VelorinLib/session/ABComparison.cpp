#include "session/ABComparison.h"

#include <algorithm>
#include <cmath>

#include "session/SoundSettings.h"

namespace velorin {

void ABComparison::enterABMode() {
  _abSnapshotA = _abSnapshotB = _sound.snapshot();
  _abCurrentSide = ABSide::a;
  _abGainOffsetDB = 0;
  _abModeActive = true;
  useOffset();
  _changed();
}

void ABComparison::captureSide(ABSide side) {
  if (!_abModeActive) return;
  (side == ABSide::a ? _abSnapshotA : _abSnapshotB) = _sound.snapshot();
  // An offset that is heard stays until something else is: capturing is not to be heard.
  _abCurrentSide = side;
  _changed();
}

void ABComparison::switchToSide(ABSide side) {
  const auto& target = snapshot(side);
  if (!target) return;
  _sound.apply(*target);
  _abCurrentSide = side;
  useOffset();
  _changed();
}

void ABComparison::toggleSide() {
  if (_abModeActive) switchToSide(_abCurrentSide == ABSide::a ? ABSide::b : ABSide::a);
}

void ABComparison::exitABMode() {
  if (!_abModeActive) return;
  _abModeActive = false;
  _abSnapshotA.reset();
  _abSnapshotB.reset();
  _abCurrentSide = ABSide::a;
  _abGainOffsetDB = 0;
  useOffset();
  _changed();
}

void ABComparison::setABGainOffset(double dB) {
  if (std::isnan(dB)) return;
  _abGainOffsetDB = std::clamp(dB, -kLargestOffsetDB, kLargestOffsetDB);
  if (_abCurrentSide == ABSide::b) useOffset();
  _changed();
}

void ABComparison::useOffset() {
  _sound.setPreAmpOffset(_abCurrentSide == ABSide::b ? _abGainOffsetDB : 0);
}

}  // namespace velorin
