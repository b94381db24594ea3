// Which device plays after a change: the rules alone, case by case.
#include "engine/devices/DeviceRules.h"

#include <gtest/gtest.h>

namespace velorin {
namespace {

TEST(DeviceRules, DecideFromWhatIsThere) {
  using enum DeviceMove;
  constexpr AudioDeviceID a = 1, b = 2, c = 3, none = kNoDevice;
  struct Case {
    const char* what;
    DeviceView view;
    DeviceDecision expected;
  };
  const auto following = [](std::vector<AudioDeviceID> present, AudioDeviceID current,
                            AudioDeviceID systemDefault, bool exclusive = false) {
    return DeviceView{.present = std::move(present),
                      .current = current,
                      .systemDefault = systemDefault,
                      .awaited = c,  // of no interest in this mode
                      .exclusiveMode = exclusive};
  };
  const auto chosen = [](std::vector<AudioDeviceID> present, AudioDeviceID current,
                         AudioDeviceID saved, AudioDeviceID awaited = kNoDevice) {
    return DeviceView{.present = std::move(present),
                      .current = current,
                      .systemDefault = b,
                      .saved = saved,
                      .awaited = awaited,
                      .followsDefault = false};
  };
  const Case cases[] = {
      {"on the default", following({a, b, c}, a, a), {stay, none}},
      {"the default moved", following({a, b}, a, b), {followDefault, b}},
      {"the default moved, held exclusively", following({a, b}, a, b, true), {stay, none}},
      {"held exclusively, and gone", following({b}, a, b, true), {replaceLost, b}},
      {"the default is no device of ours", following({a, b}, a, 9), {stay, none}},
      {"no default", following({a, b}, a, none), {stay, none}},
      {"the default is gone", following({b, c}, a, c), {replaceLost, c}},
      {"gone, and no default", following({b, c}, a, none), {replaceLost, b}},
      {"nothing left", following({}, a, none), {noneLeft, none}},
      {"back from nothing", following({a}, none, a), {replaceLost, a}},
      {"on the choice", chosen({a, b}, a, a), {stay, none}},
      {"the default does not count", chosen({a, b}, a, none), {stay, none}},
      {"the choice is gone", chosen({b, c}, a, none), {replaceLost, b}},
      {"the choice appears", chosen({a, b}, b, a), {useSaved, a}},
      {"the lost one is back", chosen({a, b}, b, none, a), {switchBack, a}},
      {"the lost one before the choice", chosen({a, b, c}, b, a, c), {switchBack, c}},
      {"another was chosen meanwhile", chosen({a, b}, b, b, a), {stay, none}},
      {"the lost one is not back", chosen({b}, b, none, a), {stay, none}},
      {"nothing left, nothing followed", chosen({}, a, none), {noneLeft, none}},
  };
  for (const Case& each : cases) EXPECT_EQ(decide(each.view), each.expected) << each.what;
}

}  // namespace
}  // namespace velorin
