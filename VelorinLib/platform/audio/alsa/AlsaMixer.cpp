#include "platform/audio/alsa/AlsaMixer.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <vector>

namespace velorin {
namespace {

constexpr auto kLeft = SND_MIXER_SCHN_FRONT_LEFT;
constexpr auto kRight = SND_MIXER_SCHN_FRONT_RIGHT;
// Hundredths of a decibel.
constexpr float kNarrowRange = 2400;
constexpr float kCubic = 6000;

bool hasVolume(snd_mixer_elem_t* element) {
  return snd_mixer_selem_is_active(element) && snd_mixer_selem_has_playback_volume(element);
}

// What the cards' drivers call the control that stands for the whole output, the best first.
snd_mixer_elem_t* bestControl(snd_mixer_t* mixer) {
  snd_mixer_selem_id_t* id;
  snd_mixer_selem_id_alloca(&id);
  for (const char* name : {"Master", "PCM", "Digital", "DAC", "Headphone", "Speaker", "Front"}) {
    snd_mixer_selem_id_set_index(id, 0);
    snd_mixer_selem_id_set_name(id, name);
    snd_mixer_elem_t* found = snd_mixer_find_selem(mixer, id);
    if (found && hasVolume(found)) return found;
  }
  for (auto* each = snd_mixer_first_elem(mixer); each; each = snd_mixer_elem_next(each)) {
    if (hasVolume(each)) return each;
  }
  return nullptr;
}

}  // namespace

std::unique_ptr<AlsaMixer> AlsaMixer::open(const std::string& control) {
  snd_mixer_t* handle = nullptr;
  if (snd_mixer_open(&handle, 0) < 0) return nullptr;
  std::unique_ptr<AlsaMixer> mixer(new AlsaMixer(handle));
  if (snd_mixer_attach(handle, control.c_str()) < 0) return nullptr;
  if (snd_mixer_selem_register(handle, nullptr, nullptr) < 0) return nullptr;
  if (snd_mixer_load(handle) < 0) return nullptr;
  MutexLock lock(mixer->_mutex);
  return mixer->findControl() ? std::move(mixer) : nullptr;
}

AlsaMixer::~AlsaMixer() {
  _ending.set();
  if (_thread.joinable()) _thread.join();
  snd_mixer_close(_mixer);
}

bool AlsaMixer::findControl() {
  _control = bestControl(_mixer);
  if (!_control) return false;
  if (const auto levels = read()) _known = *levels;
  return true;
}

std::optional<AlsaMixer::Levels> AlsaMixer::read() {
  if (!_isGone && snd_mixer_handle_events(_mixer) < 0) _isGone = true;
  if (_isGone) return std::nullopt;
  Levels levels;
  const auto get = [&](snd_mixer_selem_channel_id_t channel, long& raw) REQUIRES(_mutex) {
    return snd_mixer_selem_get_playback_volume(_control, channel, &raw) >= 0;
  };
  if (!get(kLeft, levels.left)) return std::nullopt;
  if (snd_mixer_selem_is_playback_mono(_control) || !get(kRight, levels.right)) {
    levels.right = levels.left;
  }
  const float left = scalarOf(levels.left);
  const float right = scalarOf(levels.right);
  if (left > 0 || right > 0) _balance = left > 0 ? right / left : HUGE_VALF;
  return levels;
}

float AlsaMixer::scalarOf(long raw) const {
  long low = 0;
  long high = 0;
  snd_mixer_selem_get_playback_volume_range(_control, &low, &high);
  if (high <= low || raw <= low) return 0;
  long lowest = 0;
  long highest = 0;
  long level = 0;
  const bool hasDecibels =
      snd_mixer_selem_get_playback_dB_range(_control, &lowest, &highest) >= 0 && highest > lowest &&
      snd_mixer_selem_ask_playback_vol_dB(_control, raw, &level) >= 0;
  const auto share = [](long value, long from, long to) {
    return std::clamp(static_cast<float>(value - from) / static_cast<float>(to - from), 0.0f, 1.0f);
  };
  if (!hasDecibels) return share(raw, low, high);
  if (highest - lowest <= kNarrowRange) return share(level, lowest, highest);
  const float least = std::pow(10.0f, static_cast<float>(lowest - highest) / kCubic);
  const float here = std::pow(10.0f, static_cast<float>(level - highest) / kCubic);
  return std::clamp((here - least) / (1 - least), 0.0f, 1.0f);
}

// By search: the driver's own way from decibels to steps rounds as it likes.
long AlsaMixer::rawOf(float scalar) const {
  long low = 0;
  long high = 0;
  snd_mixer_selem_get_playback_volume_range(_control, &low, &high);
  long below = low;
  for (long above = high; below < above;) {
    const long middle = below + (above - below + 1) / 2;
    if (scalarOf(middle) <= scalar) {
      below = middle;
    } else {
      above = middle - 1;
    }
  }
  const bool isNextNearer = below < high && scalarOf(below + 1) - scalar < scalar - scalarOf(below);
  return isNextNearer ? below + 1 : below;
}

std::optional<float> AlsaMixer::volume(std::uint32_t element) {
  MutexLock lock(_mutex);
  const auto levels = read();
  if (!levels || element > 2) return std::nullopt;
  const float left = scalarOf(levels->left);
  const float right = scalarOf(levels->right);
  return element == 0 ? std::max(left, right) : element == 1 ? left : right;
}

AudioStatus AlsaMixer::setVolume(std::uint32_t element, float value) {
  if (std::isnan(value)) return AudioStatus::failure(-EINVAL, "a volume that is no number");
  MutexLock lock(_mutex);
  const auto levels = read();
  if (!levels) return AudioStatus::failure(-ENODEV, "the card's mixer is gone");
  if (element > 2) return AudioStatus::failure(-ENOTSUP, "no volume control");
  const float wanted = std::clamp(value, 0.0f, 1.0f);
  Levels next = *levels;
  if (element != 2) next.left = rawOf(element == 0 && _balance > 1 ? wanted / _balance : wanted);
  if (element != 1) next.right = rawOf(element == 0 && _balance < 1 ? wanted * _balance : wanted);
  const bool isMono = snd_mixer_selem_is_playback_mono(_control);
  if (isMono) next.left = rawOf(wanted);
  int result = snd_mixer_selem_set_playback_volume(_control, kLeft, next.left);
  if (result >= 0 && !isMono) {
    result = snd_mixer_selem_set_playback_volume(_control, kRight, next.right);
  }
  // What was set comes back as an event like anybody else's, and is known by then.
  if (const auto now = read()) _known = *now;
  return result < 0 ? AudioStatus::failure(result, "the card does not take the volume")
                    : AudioStatus::success();
}

void AlsaMixer::listen(std::function<void()> changed) {
  _thread = std::thread([this, told = std::move(changed)] { run(told); });
  pthread_setname_np(_thread.native_handle(), "alsa.mixer");
}

void AlsaMixer::run(const std::function<void()>& changed) {
  std::vector<pollfd> all(
      1 + static_cast<std::size_t>(std::max(0, snd_mixer_poll_descriptors_count(_mixer))));
  all[0] = {_ending.fd(), POLLIN, 0};
  snd_mixer_poll_descriptors(_mixer, all.data() + 1, static_cast<unsigned>(all.size() - 1));
  for (;;) {
    const int ready = poll(all.data(), all.size(), -1);
    if ((ready < 0 && errno != EINTR) || all[0].revents != 0) return;
    if (ready <= 0) continue;
    bool isNew = false;
    {
      MutexLock lock(_mutex);
      unsigned short events = 0;
      snd_mixer_poll_descriptors_revents(_mixer, all.data() + 1,
                                         static_cast<unsigned>(all.size() - 1), &events);
      if (events & (POLLERR | POLLNVAL)) _isGone = true;
      const auto now = read();
      if (_isGone) return;
      isNew = now && !(*now == _known);
      if (now) _known = *now;
    }
    if (isNew) changed();
  }
}

}  // namespace velorin
