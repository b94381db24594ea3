// A listener with no patience at a real player: random wishes, and what must hold between them.
#pragma once

#include <deque>
#include <map>
#include <random>
#include <set>

#include "engine/EngineHarness.h"
#include "session/PlayerState.h"
#include "session/storm/StormLibrary.h"
#include "session/storm/TrackEar.h"

namespace velorin::test {

class Storm {
 public:
  struct Kind {
    bool crossfades = false;
    VirtualClock clock = VirtualClock::paced;
  };

  Storm(std::uint32_t seed, Kind kind);
  ~Storm();

  /// One to five wishes at once, then some time. False when something did not hold, which has been
  /// reported.
  bool burst();
  /// Ends the player and compares what was heard, what was told and what was counted.
  void judge();

  int operations() const { return _operations; }

  /// How much there was to compare.
  struct Seen {
    std::size_t heard = 0;         ///< tracks, in the device's recording
    std::size_t counted = 0;       ///< rows of the history
    std::size_t joins = 0;         ///< that were told
    std::size_t certainJoins = 0;  ///< that had to lead to one certain track
  };
  const Seen& seen() const { return _seen; }

 private:
  using Clock = std::chrono::steady_clock;
  using Keys = std::vector<std::string>;

  /// A TrackDidChange.
  struct Told {
    std::string key;
    std::uint64_t heardBefore = 0;  // frames of programme on the devices
    bool isJoin = false;
  };

  struct Wish {
    const char* name;
    int weight;
    void (Storm::*run)();
  };
  static const std::vector<Wish>& wishes();
  void wish();

  // Wishes.
  void playSome();
  void playFromTimeline();
  void playFromElsewhere();
  void step();
  void tap();
  void seek();
  void transport();
  void edit();
  void modes();
  void toggleShuffle();
  void settings();
  void externals();
  void devices();

  void plug(const std::string& uid);
  void listenTo(AudioDeviceID device);
  void fail(const std::string& what);
  int below(int limit) { return static_cast<int>(_random() % static_cast<unsigned>(limit)); }
  bool oneIn(int chances) { return below(chances) == 0; }
  std::vector<TrackInfo> some(int atMost);
  static Keys keysOf(const TrackList& list);
  Keys keys() const { return keysOf(_player->timeline()); }
  void expectTimeline(const char* after, const Keys& expected);
  void expectSameItems(const char* after, Keys before);

  // What must hold.
  std::string following() const;
  void noteFollowing();
  bool isSettled() const;
  bool isAtRest();
  void look();
  void checkLists();
  void checkDecoders();
  void checkFollowing();
  void onTrackDidChange(const TrackDidChange& event);
  void expectExplained(const char* what, const Keys& observed,
                       const std::function<bool(std::size_t)>& mayBeMissing, bool mergesRepeats);

  const std::uint32_t _seed;
  const Kind _kind;
  std::mt19937 _random;
  StormLibrary _music;
  std::shared_ptr<TrackEar> _ear = std::make_shared<TrackEar>();
  EngineHarness _h;
  std::vector<EventBus::Subscription> _subscriptions;
  std::optional<PlayerState> _player;
  PlayerState::Observation _observation;
  RepeatingTimer _looking;
  std::map<std::string, AudioDeviceID> _devices;

  bool _failed = false;
  int _operations = 0;
  Seen _seen;
  std::deque<std::string> _trace;
  std::vector<Told> _told;
  std::set<std::size_t> _overtaken;  // told while a wish for something else was on its way

  int _jumps = 0;  // that the player has told of, or was asked for
  int _jumpsSeen = 0;
  double _position = 0;
  bool _mayHaveGoneBack = false;
  Clock::time_point _burstEnds;               // a burst of skips shows what does not play
  std::optional<Clock::time_point> _settled;  // when the last wish had come to the engine
  std::deque<std::pair<Clock::time_point, std::string>> _followings;
};

}  // namespace velorin::test
