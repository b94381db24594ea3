// The player on the desktop's bus: media keys, the lock screen, phones and playerctl reach it here.
//
// Source: MPRIS D-Bus Interface Specification 2.2, https://specifications.freedesktop.org/mpris/.
// org.mpris.MediaPlayer2.velorin (with ".instance<pid>" behind it while another program owns that
// name), at /org/mpris/MediaPlayer2, with MediaPlayer2, MediaPlayer2.Player and
// MediaPlayer2.TrackList. Left out: Playlists and Fullscreen, which are optional.
//
//   Rate            is 1.0; another is ignored, 0.0 pauses, as the standard tells.
//   Next, Previous  do what the program's own buttons do, also while paused or stopped.
//   Position        is asked of the player each time it is read and never announced; Seeked tells
//                   jumps.
//   Tracks          is what the caller gives, meant as a short list around the current track. Up to
//                   kMostTrackSignals changes are told one by one, more by TrackListReplaced.
//   Metadata        of no track is the one entry mpris:trackid with ".../TrackList/NoTrack".
//
// A call is answered after the main thread has done it, so that an error can be told. Properties
// are answered from what update() told last. Wrong arguments get InvalidArgs, files that cannot be
// played NotSupported, and beyond kMostOpenCalls unanswered calls LimitsExceeded.
#pragma once

#include <memory>
#include <vector>

#include "platform/desktop/MprisTypes.h"

namespace velorin {

class SessionBus;

class MprisService {
 public:
  static constexpr std::size_t kMostTrackSignals = 8;
  static constexpr std::size_t kMostOpenCalls = 256;

  /// Main thread, as all that follows. The bus outlives the service, and so does the player that
  /// the commands act on. Takes its name on the bus with the first update().
  MprisService(SessionBus& bus, MprisCommands commands);
  /// No command is called after that.
  ~MprisService();
  MprisService(const MprisService&) = delete;
  MprisService& operator=(const MprisService&) = delete;

  /// What is now so. Only what differs from before is announced; of several updates in a quick
  /// row perhaps only the last. Returns at once.
  void update(MprisState state);
  /// The track list.
  void setTracks(std::vector<MprisTrack> tracks);
  /// The position jumped there, to be told after the updates before it.
  void seeked(std::int64_t position);

 private:
  class Client;
  SessionBus& _bus;
  std::shared_ptr<Client> _client;
};

}  // namespace velorin
