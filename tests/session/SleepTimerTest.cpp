#include "session/SleepTimer.h"

#include <gtest/gtest.h>

#include "foundation/Preferences.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;

class SleepTimerTest : public testing::Test {
 protected:
  SleepTimer::Services services() {
    SleepTimer::Services all;
    all.isIntegerMode = [this] { return _isInteger; };
    all.volumeMode = [this] { return _mode; };
    all.volume = [this] { return _volume; };
    all.setVolume = [this](double volume) { _volume = volume; };
    all.deviceVolume = [this] { return _deviceVolume; };
    all.setDeviceVolume = [this](float volume) {
      if (_deviceRefuses) return false;
      _deviceVolume = volume;
      return true;
    };
    all.updateNextTrack = [this] { _log += "next "; };
    all.pause = [this](auto done) {
      _log += fmt::format("pause at {} ", _volume);
      _done = std::move(done);
    };
    all.stop = [this](auto done) {
      _log += "stop ";
      _done = std::move(done);
    };
    all.suspendMachine = [this] { _log += fmt::format("suspend at {} ", _volume); };
    all.powerOffMachine = [this] { _log += "off "; };
    all.now = [this] { return _now; };
    return all;
  }
  std::pair<double, std::optional<float>> volumes() const { return {_volume, _deviceVolume}; }
  void pass(int seconds) {
    for (int i = 0; i < seconds; ++i) {
      _now += 1s;
      _timer->tick();
    }
  }

  Preferences _preferences;
  bool _isInteger = false;
  VolumeMode _mode = VolumeMode::software;
  double _volume = 0.8;
  std::optional<float> _deviceVolume;
  bool _deviceRefuses = false;
  SleepTimer::Clock::time_point _now;
  std::string _log;
  std::function<void()> _done;
  std::optional<SleepTimer> _timer{std::in_place, _preferences, services()};
};

TEST_F(SleepTimerTest, FadesWhatIsHeardAndGivesItBack) {
  using Volumes = std::pair<double, std::optional<float>>;  // software, device
  struct Case {
    bool isInteger;
    VolumeMode mode;
    bool refuses;
    bool fades;
    Volumes before;
    Volumes fading;  ///< 15 s before the end
    Volumes muted;
  };
  using enum VolumeMode;
  const Case cases[] = {
      {false, software, false, true, {0.8, 0.5F}, {0.4, 0.5F}, {0, 0.5F}},
      {false, hardware, false, true, {0.8, 0.5F}, {0.8, 0.5F}, {0.8, 0.5F}},
      {true, hardware, false, true, {0.8, 0.5F}, {0.8, 0.25F}, {0.8, 0.0F}},
      {true, fixed, false, true, {0.8, {}}, {0.4, {}}, {0, {}}},
      {true, software, true, true, {0.8, 0.5F}, {0.4, 0.5F}, {0, 0.5F}},
      {false, software, false, false, {0.8, {}}, {0.8, {}}, {0, {}}},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(&each - cases);
    _isInteger = each.isInteger;
    _mode = each.mode;
    std::tie(_volume, _deviceVolume) = each.before;
    _deviceRefuses = each.refuses;
    _timer->setFadeEnabled(each.fades);
    _timer->start(60);
    pass(29);
    EXPECT_EQ(_timer->secondsRemaining(), 31);
    EXPECT_EQ(volumes(), each.before) << "not yet";
    pass(16);
    EXPECT_EQ(volumes(), each.fading);
    _timer->cancel();
    EXPECT_EQ(volumes(), each.before);
    pass(60);
    EXPECT_EQ(_log, "") << "cancelled";
    _timer->start(60);
    pass(60);
    EXPECT_FALSE(_timer->isCounting());
    EXPECT_EQ(volumes(), each.muted);
    _done();
    EXPECT_EQ(volumes(), each.before) << "the next play is not silent";
    _log.clear();
  }
}

TEST_F(SleepTimerTest, AShortTimerFadesFromItsFirstTick) {
  _timer->start(20);
  pass(1);
  EXPECT_DOUBLE_EQ(_volume, 0.8 * 19 / 30);
  _now += 500ms;  // seconds are rounded up
  _timer->tick();
  EXPECT_EQ(_timer->secondsRemaining(), 19);
  _timer->start(0);
  EXPECT_EQ(_volume, 0.8) << "a new timer cancels the old one";
  pass(1);
  EXPECT_EQ(_log, "pause at 0 ");
}

TEST_F(SleepTimerTest, EndsWithTheTrack) {
  _timer->start(100);
  _timer->startEndOfTrack();
  EXPECT_TRUE(_timer->endOfTrack() && !_timer->isCounting());
  _timer->cancel();
  EXPECT_EQ(_log, "next next ");
  EXPECT_FALSE(_timer->trackEnded());
  _timer->startEndOfTrack();
  EXPECT_TRUE(_timer->trackEnded());
  EXPECT_EQ(_log, "next next next pause at 0.8 ");
  EXPECT_FALSE(_timer->trackEnded());
  _done();
  _timer->startEndOfTrack();
  _timer->start(100);
  EXPECT_FALSE(_timer->endOfTrack());
}

TEST_F(SleepTimerTest, ItsActionIsRememberedAndCarriedOut) {
  struct Case {
    SleepTimerAction action;
    std::string stored;
    std::string done;
  };
  for (const Case& each :
       {Case{SleepTimerAction::pause, "pause", "pause at 0 "},
        Case{SleepTimerAction::sleepMac, "sleepMac", "pause at 0 suspend at 0.8 "},
        Case{SleepTimerAction::shutdownMac, "shutdown", "stop off "}}) {
    _timer->setAction(each.action);
    EXPECT_EQ(_preferences.getText("sleepTimerAction"), each.stored);
    _timer.emplace(_preferences, services());
    EXPECT_EQ(_timer->action(), each.action);
    _timer->start(1);
    pass(1);
    _done();
    EXPECT_EQ(_log, each.done);
    _log.clear();
  }
  _preferences.setText("sleepTimerAction", "explode");
  _preferences.setBool("sleepTimerFadeEnabled", false);
  _timer.emplace(_preferences, services());
  EXPECT_EQ(_timer->action(), SleepTimerAction::pause);
  EXPECT_FALSE(_timer->fadeEnabled());
  // The pause may outlive the timer.
  _timer->start(1);
  pass(1);
  _timer.reset();
  _done();
}

}  // namespace
}  // namespace velorin
