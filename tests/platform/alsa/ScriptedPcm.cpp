// An ALSA plug-in device for tests: offers what its configuration says, keeps every byte it is
// given in a file, and fails when told to. Loaded by the real library as pcm type "scripted".
//
//   tap "FILE"            bytes as written
//   formats [ S16_LE … ]  rates [ 44100 … ]  channels [ 2 … ]  and nothing else
//   access NAME           RW_INTERLEAVED (default), MMAP_NONINTERLEAVED …
//   period N  buffer N    frames, as largest sizes
//   busy "FILE"           opening fails with EBUSY while that file exists
//   clock 1               plays by the clock; else it takes everything at once
//   error NAME            EPIPE, ESTRPIPE, ENODEV, or STALL, which takes nothing more,
//   after N               once so many frames were taken (0: from the start),
//   times N               so many times (default 1; -1: each time from then on)
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>
#include <fcntl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Script {
  std::string tap;
  std::string busy;
  std::string error;
  std::vector<unsigned> formats;
  std::vector<unsigned> rates;
  std::vector<unsigned> channels;
  unsigned access = SND_PCM_ACCESS_RW_INTERLEAVED;
  long period = 4096;
  long buffer = 16384;
  long clock = 0;
  long after = 0;
  long times = 1;
};

struct Device {
  snd_pcm_ioplug_t io{};
  Script script;
  int tap = -1;
  std::uint64_t taken = 0;  // since opening
  bool isRunning = false;
  Clock::time_point startedAt;
  std::uint64_t written = 0;  // since prepare
  std::uint64_t played = 0;
};

Device& deviceOf(snd_pcm_ioplug_t* io) {
  return *static_cast<Device*>(io->private_data);
}

int fail(Device& device) {
  const std::string& error = device.script.error;
  if (error.empty() || error == "STALL" ||
      device.taken < static_cast<std::uint64_t>(device.script.after) || device.script.times == 0) {
    return 0;
  }
  if (device.script.times > 0) --device.script.times;
  if (error == "EPIPE") {
    snd_pcm_ioplug_set_state(&device.io, SND_PCM_STATE_XRUN);
    return -EPIPE;
  }
  if (error == "ESTRPIPE") {
    snd_pcm_ioplug_set_state(&device.io, SND_PCM_STATE_SUSPENDED);
    return -ESTRPIPE;
  }
  snd_pcm_ioplug_set_state(&device.io, SND_PCM_STATE_DISCONNECTED);
  return -ENODEV;
}

bool isStalled(const Device& device) {
  return device.script.error == "STALL" &&
         device.taken >= static_cast<std::uint64_t>(device.script.after);
}

int start(snd_pcm_ioplug_t* io) {
  Device& device = deviceOf(io);
  device.isRunning = true;
  device.startedAt = Clock::now();
  return 0;
}

int stop(snd_pcm_ioplug_t* io) {
  deviceOf(io).isRunning = false;
  return 0;
}

int prepare(snd_pcm_ioplug_t* io) {
  Device& device = deviceOf(io);
  device.isRunning = false;
  device.written = device.played = 0;
  return 0;
}

snd_pcm_sframes_t pointer(snd_pcm_ioplug_t* io) {
  Device& device = deviceOf(io);
  if (!device.isRunning || isStalled(device)) return static_cast<snd_pcm_sframes_t>(device.played);
  device.played = device.written;
  if (device.script.clock != 0) {
    const double seconds = std::chrono::duration<double>(Clock::now() - device.startedAt).count();
    device.played = std::min(device.written, static_cast<std::uint64_t>(seconds * io->rate));
  }
  return static_cast<snd_pcm_sframes_t>(device.played);
}

snd_pcm_sframes_t transfer(snd_pcm_ioplug_t* io, const snd_pcm_channel_area_t* areas,
                           snd_pcm_uframes_t offset, snd_pcm_uframes_t size) {
  Device& device = deviceOf(io);
  if (const int error = fail(device); error != 0) return error;
  // Interleaved into the tap, whatever the layout of the areas.
  const auto wordBytes = static_cast<std::size_t>(snd_pcm_format_physical_width(io->format)) / 8;
  std::vector<char> frames;
  for (snd_pcm_uframes_t i = offset; i < offset + size; ++i) {
    for (unsigned c = 0; c < io->channels; ++c) {
      const auto* word =
          static_cast<const char*>(areas[c].addr) + (areas[c].first + i * areas[c].step) / 8;
      frames.insert(frames.end(), word, word + wordBytes);
    }
  }
  const ssize_t bytes = write(device.tap, frames.data(), frames.size());
  if (bytes < 0) return -errno;
  device.taken += size;
  device.written += size;
  return static_cast<snd_pcm_sframes_t>(size);
}

int resume(snd_pcm_ioplug_t*) {
  return -ENOSYS;  // as most drivers: start anew
}

int closeDevice(snd_pcm_ioplug_t* io) {
  Device* device = &deviceOf(io);
  if (device->tap >= 0) close(device->tap);
  close(io->poll_fd);
  delete device;
  return 0;
}

const snd_pcm_ioplug_callback_t kCallbacks = [] {
  snd_pcm_ioplug_callback_t table{};
  table.start = start;
  table.stop = stop;
  table.pointer = pointer;
  table.transfer = transfer;
  table.prepare = prepare;
  table.resume = resume;
  table.close = closeDevice;
  return table;
}();

std::vector<unsigned> numbers(snd_config_t* list, bool areFormats) {
  std::vector<unsigned> all;
  snd_config_iterator_t i, next;
  snd_config_for_each(i, next, list) {
    long number = 0;
    const char* text = nullptr;
    snd_config_t* node = snd_config_iterator_entry(i);
    if (areFormats && snd_config_get_string(node, &text) == 0) {
      all.push_back(static_cast<unsigned>(snd_pcm_format_value(text)));
    } else if (snd_config_get_integer(node, &number) == 0) {
      all.push_back(static_cast<unsigned>(number));
    }
  }
  return all;
}

unsigned accessNamed(const std::string& name) {
  for (unsigned access = 0; access <= SND_PCM_ACCESS_LAST; ++access) {
    if (name == snd_pcm_access_name(static_cast<snd_pcm_access_t>(access))) return access;
  }
  return SND_PCM_ACCESS_RW_INTERLEAVED;
}

Script read(snd_config_t* config) {
  Script script;
  snd_config_iterator_t i, next;
  snd_config_for_each(i, next, config) {
    snd_config_t* node = snd_config_iterator_entry(i);
    const char* id = nullptr;
    snd_config_get_id(node, &id);
    const std::string key = id;
    const char* text = nullptr;
    snd_config_get_string(node, &text);
    if (key == "tap") script.tap = text;
    if (key == "busy") script.busy = text;
    if (key == "error") script.error = text;
    if (key == "formats") script.formats = numbers(node, true);
    if (key == "rates") script.rates = numbers(node, false);
    if (key == "channels") script.channels = numbers(node, false);
    if (key == "access") script.access = accessNamed(text);
    if (key == "period") snd_config_get_integer(node, &script.period);
    if (key == "buffer") snd_config_get_integer(node, &script.buffer);
    if (key == "clock") snd_config_get_integer(node, &script.clock);
    if (key == "after") snd_config_get_integer(node, &script.after);
    if (key == "times") snd_config_get_integer(node, &script.times);
  }
  return script;
}

void offer(Device& device, int parameter, const std::vector<unsigned>& list) {
  if (list.empty()) return;
  snd_pcm_ioplug_set_param_list(&device.io, parameter, static_cast<unsigned>(list.size()),
                                list.data());
}

void makePollable(Device& device) {
  device.io.poll_fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  device.io.poll_events = POLLIN;
  // Never read: once it expired it stays ready, as the worst of the real plug-ins do.
  const itimerspec soon = {{0, 1'000'000}, {0, 1'000'000}};
  timerfd_settime(device.io.poll_fd, 0, &soon, nullptr);
}

}  // namespace

extern "C" {

SND_PCM_PLUGIN_DEFINE_FUNC(scripted) {
  (void)root;
  Script script = read(conf);
  if (!script.busy.empty() && access(script.busy.c_str(), F_OK) == 0) return -EBUSY;
  auto* device = new Device;
  device->script = std::move(script);
  device->tap = open(device->script.tap.empty() ? "/dev/null" : device->script.tap.c_str(),
                     O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  device->io.version = SND_PCM_IOPLUG_VERSION;
  device->io.name = "Scripted device of a test";
  device->io.flags = SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
  device->io.callback = &kCallbacks;
  device->io.private_data = device;
  makePollable(*device);
  if (const int code = snd_pcm_ioplug_create(&device->io, name, stream, mode); code < 0) {
    closeDevice(&device->io);
    return code;
  }
  offer(*device, SND_PCM_IOPLUG_HW_ACCESS, {device->script.access});
  offer(*device, SND_PCM_IOPLUG_HW_FORMAT, device->script.formats);
  offer(*device, SND_PCM_IOPLUG_HW_RATE, device->script.rates);
  offer(*device, SND_PCM_IOPLUG_HW_CHANNELS, device->script.channels);
  snd_pcm_ioplug_set_param_minmax(&device->io, SND_PCM_IOPLUG_HW_PERIOD_BYTES, 64,
                                  static_cast<unsigned>(device->script.period * 8));
  snd_pcm_ioplug_set_param_minmax(&device->io, SND_PCM_IOPLUG_HW_BUFFER_BYTES, 256,
                                  static_cast<unsigned>(device->script.buffer * 8));
  *pcmp = device->io.pcm;
  return 0;
}

SND_PCM_PLUGIN_SYMBOL(scripted);

}  // extern "C"
