#include "platform/desktop/MprisObject.h"

#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "foundation/Log.h"
#include "foundation/MainThread.h"
#include "platform/desktop/BusCalls.h"
#include "platform/desktop/DesktopIdentity.h"
#include "platform/desktop/FileUri.h"
#include "platform/desktop/MprisMetadata.h"
#include "platform/desktop/MprisService.h"
#include "platform/desktop/TrackListChanges.h"

namespace velorin {
namespace {

constexpr const char* kName = "org.mpris.MediaPlayer2.velorin";
constexpr const char* kPath = "/org/mpris/MediaPlayer2";
constexpr const char* kRoot = "org.mpris.MediaPlayer2";
constexpr const char* kPlayer = "org.mpris.MediaPlayer2.Player";
constexpr const char* kTrackList = "org.mpris.MediaPlayer2.TrackList";
/// Longer than any track list that is told.
constexpr std::size_t kMostAsked = 1000;
constexpr const char* kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char* kNotSupported = "org.freedesktop.DBus.Error.NotSupported";

using Metadata = std::map<std::string, sdbus::Variant>;
using Reply = BusCalls::Reply;

std::string nameOf(MprisStatus status) {
  switch (status) {
    case MprisStatus::playing:
      return "Playing";
    case MprisStatus::paused:
      return "Paused";
    case MprisStatus::stopped:
      break;
  }
  return "Stopped";
}

std::string nameOf(MprisLoop loop) {
  switch (loop) {
    case MprisLoop::track:
      return "Track";
    case MprisLoop::playlist:
      return "Playlist";
    case MprisLoop::none:
      break;
  }
  return "None";
}

MprisLoop loopNamed(const std::string& name) {
  for (const auto loop : {MprisLoop::none, MprisLoop::track, MprisLoop::playlist}) {
    if (nameOf(loop) == name) return loop;
  }
  throw sdbus::Error(kInvalidArgs, "LoopStatus is None, Track or Playlist");
}

std::string pathOf(const std::string& uri) {
  if (auto path = pathOfFileUri(uri)) return std::move(*path);
  throw sdbus::Error(kNotSupported, "only well-formed file: URIs of this machine can be played");
}

BusFault playable(bool isPlayable) {
  if (isPlayable) return {};
  return {.name = kNotSupported, .message = "not a file of a kind that can be played"};
}

std::vector<sdbus::ObjectPath> pathsOf(const std::vector<MprisTrack>& tracks) {
  std::vector<sdbus::ObjectPath> paths;
  for (const MprisTrack& track : tracks) paths.emplace_back(trackPath(track.id));
  return paths;
}

// What a property's setter does on the main thread; the bus has no way to wait for it.
template <class Value>
void set(const std::weak_ptr<const MprisCommands>& weak,
         std::function<void(Value)> MprisCommands::*command, Value value) {
  MainThread::instance().post([weak, command, value] {
    if (const auto commands = weak.lock(); commands && (*commands).*command) {
      ((*commands).*command)(value);
    }
  });
}

// Does a command on the main thread and then answers the call.
template <class Result, class... Parameters, class... Arguments>
void call(BusCalls& calls, const std::weak_ptr<const MprisCommands>& weak, Reply&& reply,
          std::function<Result(Parameters...)> MprisCommands::*command, Arguments... arguments) {
  calls.onMain(std::move(reply), weak, [weak, command, arguments...] {
    const auto commands = weak.lock();
    if (!commands || !((*commands).*command)) return BusFault{};
    if constexpr (std::is_same_v<Result, bool>) {
      return playable(((*commands).*command)(arguments...));
    } else {
      ((*commands).*command)(arguments...);
      return BusFault{};
    }
  });
}

}  // namespace

MprisObject::MprisObject(SessionBus& bus, sdbus::IConnection& connection, Asked asked,
                         MprisState state, std::vector<MprisTrack> tracks)
    : _connection(connection),
      _asked(std::move(asked)),
      _state(std::move(state)),
      _tracks(std::move(tracks)),
      _calls(std::make_unique<BusCalls>(bus, MprisService::kMostOpenCalls)),
      _object(sdbus::createObject(connection, kPath)) {
  registerRoot();
  registerPlayerMethods();
  registerPlayerProperties();
  registerTrackList();
  _object->finishRegistration();
  takeName();
}

MprisObject::~MprisObject() = default;

void MprisObject::takeName() {
  try {
    _connection.requestName(kName);
  } catch (const sdbus::Error&) {
    // Another instance has it; the standard's name for further ones.
    _connection.requestName(fmt::format("{}.instance{}", kName, ::getpid()));
  }
}

void MprisObject::registerCommand(const char* interface, const char* name,
                                  std::function<void()> MprisCommands::*command) {
  _object->registerMethod(name).onInterface(interface).implementedAs(
      [this, command](Reply&& reply) {
        call(*_calls, _asked.commands, std::move(reply), command);
      });
}

template <class Value>
void MprisObject::registerProperty(const char* interface, const char* name, Value value) {
  _object->registerProperty(name).onInterface(interface).withGetter(std::move(value));
}

void MprisObject::registerRoot() {
  registerCommand(kRoot, "Raise", &MprisCommands::raise);
  registerCommand(kRoot, "Quit", &MprisCommands::quit);
  registerProperty(kRoot, "CanRaise", [this] { return _asked.canRaise; });
  registerProperty(kRoot, "CanQuit", [this] { return _asked.canQuit; });
  registerProperty(kRoot, "HasTrackList", [] { return true; });
  registerProperty(kRoot, "Identity", [] { return std::string(kApplicationName); });
  registerProperty(kRoot, "DesktopEntry", [] { return std::string(kDesktopEntry); });
  registerProperty(kRoot, "SupportedUriSchemes", [] { return std::vector<std::string>{"file"}; });
  registerProperty(kRoot, "SupportedMimeTypes", [] {
    return std::vector<std::string>(kMusicMimeTypes.begin(), kMusicMimeTypes.end());
  });
}

void MprisObject::registerPlayerMethods() {
  registerCommand(kPlayer, "Play", &MprisCommands::play);
  registerCommand(kPlayer, "Pause", &MprisCommands::pause);
  registerCommand(kPlayer, "PlayPause", &MprisCommands::playPause);
  registerCommand(kPlayer, "Stop", &MprisCommands::stop);
  registerCommand(kPlayer, "Next", &MprisCommands::next);
  registerCommand(kPlayer, "Previous", &MprisCommands::previous);

  _object->registerMethod("Seek").onInterface(kPlayer).withInputParamNames("Offset").implementedAs(
      [this](Reply&& reply, std::int64_t offset) {
        if (!_state.canSeek) return reply.returnResults();
        call(*_calls, _asked.commands, std::move(reply), &MprisCommands::seek, offset);
      });
  _object->registerMethod("SetPosition")
      .onInterface(kPlayer)
      .withInputParamNames("TrackId", "Position")
      .implementedAs([this](Reply&& reply, sdbus::ObjectPath track, std::int64_t position) {
        // Meant for a track that is no more, or past its end: to be ignored.
        const bool isStale = !_state.canSeek || track != currentPath() || position < 0 ||
                             (_state.track->length > 0 && position > _state.track->length);
        if (isStale) return reply.returnResults();
        call(*_calls, _asked.commands, std::move(reply), &MprisCommands::setPosition,
             _state.track->id, position);
      });
  _object->registerMethod("OpenUri").onInterface(kPlayer).withInputParamNames("Uri").implementedAs(
      [this](Reply&& reply, std::string uri) {
        call(*_calls, _asked.commands, std::move(reply), &MprisCommands::openFile, pathOf(uri));
      });
  _object->registerSignal("Seeked").onInterface(kPlayer).withParameters<std::int64_t>("Position");
}

void MprisObject::registerPlayerProperties() {
  registerProperty(kPlayer, "PlaybackStatus", [this] { return nameOf(_state.status); });
  registerProperty(kPlayer, "Metadata", [this] {
    return _state.track ? metadataOf(*_state.track) : metadataOfNoTrack();
  });
  _object->registerProperty("LoopStatus")
      .onInterface(kPlayer)
      .withGetter([this] { return nameOf(_state.loop); })
      .withSetter([this](const std::string& name) {
        set(_asked.commands, &MprisCommands::setLoop, loopNamed(name));
      });
  _object->registerProperty("Shuffle")
      .onInterface(kPlayer)
      .withGetter([this] { return _state.shuffle; })
      .withSetter([this](const bool& on) { set(_asked.commands, &MprisCommands::setShuffle, on); });
  _object->registerProperty("Volume")
      .onInterface(kPlayer)
      .withGetter([this] { return _state.volume; })
      .withSetter([this](const double& volume) {
        if (std::isnan(volume)) throw sdbus::Error(kInvalidArgs, "Volume is a number");
        set(_asked.commands, &MprisCommands::setVolume, std::clamp(volume, 0.0, 1.0));
      });
  _object->registerProperty("Rate")
      .onInterface(kPlayer)
      .withGetter([] { return 1.0; })
      .withSetter([weak = _asked.commands](const double& rate) {
        if (rate != 0.0) return;
        MainThread::instance().post([weak] {
          if (const auto commands = weak.lock(); commands && commands->pause) commands->pause();
        });
      });
  registerProperty(kPlayer, "MinimumRate", [] { return 1.0; });
  registerProperty(kPlayer, "MaximumRate", [] { return 1.0; });
  _object->registerProperty("Position")
      .onInterface(kPlayer)
      .withGetter([this] { return std::max<std::int64_t>(0, _asked.position()); })
      .withUpdateBehavior(sdbus::Flags::EMITS_NO_SIGNAL);
  registerProperty(kPlayer, "CanGoNext", [this] { return _state.canGoNext; });
  registerProperty(kPlayer, "CanGoPrevious", [this] { return _state.canGoPrevious; });
  registerProperty(kPlayer, "CanPlay", [this] { return _state.canPlay; });
  registerProperty(kPlayer, "CanPause", [this] { return _state.canPause; });
  registerProperty(kPlayer, "CanSeek", [this] { return _state.canSeek; });
  _object->registerProperty("CanControl")
      .onInterface(kPlayer)
      .withGetter([] { return true; })
      .withUpdateBehavior(sdbus::Flags::EMITS_NO_SIGNAL);
}

void MprisObject::registerTrackList() {
  _object->registerMethod("GetTracksMetadata")
      .onInterface(kTrackList)
      .withInputParamNames("TrackIds")
      .withOutputParamNames("Metadata")
      .implementedAs([this](const std::vector<sdbus::ObjectPath>& paths) {
        std::vector<Metadata> all;
        if (paths.size() > kMostAsked) throw sdbus::Error(kInvalidArgs, "too many tracks");
        for (const auto& path : paths) {
          const MprisTrack* track = trackWith(path);
          if (track) all.push_back(metadataOf(*track));
        }
        return all;
      });
  _object->registerMethod("AddTrack")
      .onInterface(kTrackList)
      .withInputParamNames("Uri", "AfterTrack", "SetAsCurrent")
      .implementedAs(
          [this](Reply&& reply, std::string uri, sdbus::ObjectPath after, bool isCurrent) {
            const MprisTrack* neighbour = trackWith(after);
            if (!neighbour && after != kNoTrackPath) {
              throw sdbus::Error(kInvalidArgs, "AfterTrack is not in the track list");
            }
            call(*_calls, _asked.commands, std::move(reply), &MprisCommands::addTrack, pathOf(uri),
                 neighbour ? std::optional(neighbour->id) : std::nullopt, isCurrent);
          });
  const auto onTrack = [this](const char* name,
                              std::function<void(MprisTrackId)> MprisCommands::*command) {
    _object->registerMethod(name)
        .onInterface(kTrackList)
        .withInputParamNames("TrackId")
        .implementedAs([this, command](Reply&& reply, sdbus::ObjectPath path) {
          const MprisTrack* track = trackWith(path);
          if (!track) return reply.returnResults();
          call(*_calls, _asked.commands, std::move(reply), command, track->id);
        });
  };
  onTrack("RemoveTrack", &MprisCommands::removeTrack);
  onTrack("GoTo", &MprisCommands::goTo);

  using Paths = std::vector<sdbus::ObjectPath>;
  _object->registerSignal("TrackListReplaced")
      .onInterface(kTrackList)
      .withParameters<Paths, sdbus::ObjectPath>("Tracks", "CurrentTrack");
  _object->registerSignal("TrackAdded")
      .onInterface(kTrackList)
      .withParameters<Metadata, sdbus::ObjectPath>("Metadata", "AfterTrack");
  _object->registerSignal("TrackRemoved")
      .onInterface(kTrackList)
      .withParameters<sdbus::ObjectPath>("TrackId");
  _object->registerSignal("TrackMetadataChanged")
      .onInterface(kTrackList)
      .withParameters<sdbus::ObjectPath, Metadata>("TrackId", "Metadata");
  _object->registerProperty("Tracks")
      .onInterface(kTrackList)
      .withGetter([this] { return pathsOf(_tracks); })
      .withUpdateBehavior(sdbus::Flags::EMITS_INVALIDATION_SIGNAL);
  registerProperty(kTrackList, "CanEditTracks", [] { return true; });
}

void MprisObject::update(MprisState state) {
  const MprisState before = std::exchange(_state, std::move(state));
  std::vector<std::string> changed;
  const auto compare = [&](const char* name, bool isSame) {
    if (!isSame) changed.emplace_back(name);
  };
  compare("PlaybackStatus", before.status == _state.status);
  compare("Metadata", before.track == _state.track);
  compare("LoopStatus", before.loop == _state.loop);
  compare("Shuffle", before.shuffle == _state.shuffle);
  compare("Volume", before.volume == _state.volume);
  compare("CanGoNext", before.canGoNext == _state.canGoNext);
  compare("CanGoPrevious", before.canGoPrevious == _state.canGoPrevious);
  compare("CanPlay", before.canPlay == _state.canPlay);
  compare("CanPause", before.canPause == _state.canPause);
  compare("CanSeek", before.canSeek == _state.canSeek);
  if (!changed.empty()) _object->emitPropertiesChangedSignal(kPlayer, changed);
}

void MprisObject::setTracks(std::vector<MprisTrack> tracks) {
  const auto changes = changesBetween(_tracks, tracks, MprisService::kMostTrackSignals);
  _tracks = std::move(tracks);
  const auto tell = [this](const char* signal, const auto&... values) {
    _object->emitSignal(signal).onInterface(kTrackList).withArguments(values...);
  };
  if (changes.isReplaced) {
    // A current track from outside the list is none of it.
    const bool isListed = _state.track && trackWith(sdbus::ObjectPath(currentPath()));
    tell("TrackListReplaced", pathsOf(_tracks),
         sdbus::ObjectPath(isListed ? currentPath() : kNoTrackPath));
  }
  for (const MprisTrackId id : changes.removed) {
    tell("TrackRemoved", sdbus::ObjectPath(trackPath(id)));
  }
  for (const auto& added : changes.added) {
    tell("TrackAdded", metadataOf(_tracks[added.index]),
         sdbus::ObjectPath(added.after ? trackPath(*added.after) : kNoTrackPath));
  }
  for (const std::size_t index : changes.edited) {
    tell("TrackMetadataChanged", sdbus::ObjectPath(trackPath(_tracks[index].id)),
         metadataOf(_tracks[index]));
  }
  if (changes.isReplaced || !changes.removed.empty() || !changes.added.empty()) {
    _object->emitPropertiesChangedSignal(kTrackList, {"Tracks"});
  }
}

void MprisObject::seeked(std::int64_t position) {
  _object->emitSignal("Seeked").onInterface(kPlayer).withArguments(position);
}

const MprisTrack* MprisObject::trackWith(const std::string& path) const {
  const auto id = trackOfPath(path);
  const auto found =
      std::ranges::find_if(_tracks, [&](const MprisTrack& track) { return id && track.id == *id; });
  return found == _tracks.end() ? nullptr : &*found;
}

std::string MprisObject::currentPath() const {
  return _state.track ? trackPath(_state.track->id) : kNoTrackPath;
}

}  // namespace velorin
