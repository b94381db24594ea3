#include "engine/devices/DeviceRules.h"

#include <algorithm>

namespace velorin {
namespace {

DeviceDecision replaceCurrent(const DeviceView& view) {
  if (view.present.empty()) return {DeviceMove::noneLeft, kNoDevice};
  return {DeviceMove::replaceLost,
          view.has(view.systemDefault) ? view.systemDefault : view.present.front()};
}

DeviceDecision followDefault(const DeviceView& view) {
  if (!view.has(view.current)) return replaceCurrent(view);
  // What is held exclusively is not left because the default moved: taking a device from the
  // sound server moves it already.
  if (view.exclusiveMode || !view.has(view.systemDefault)) return {};
  if (view.systemDefault == view.current) return {};
  return {DeviceMove::followDefault, view.systemDefault};
}

}  // namespace

bool DeviceView::has(AudioDeviceID device) const {
  return device != kNoDevice && std::ranges::find(present, device) != present.end();
}

DeviceDecision decide(const DeviceView& view) {
  if (view.followsDefault) return followDefault(view);
  // Who chose another device meanwhile is not taken away from it.
  const bool isOnChoice = view.has(view.current) && view.current == view.saved;
  if (view.has(view.awaited) && view.awaited != view.current && !isOnChoice) {
    return {DeviceMove::switchBack, view.awaited};
  }
  if (view.has(view.saved) && view.saved != view.current) {
    return {DeviceMove::useSaved, view.saved};
  }
  return view.has(view.current) ? DeviceDecision{} : replaceCurrent(view);
}

}  // namespace velorin
