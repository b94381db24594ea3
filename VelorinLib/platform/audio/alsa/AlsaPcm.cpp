#include "platform/audio/alsa/AlsaPcm.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "platform/audio/StreamFormat.h"

namespace velorin {
namespace {

using vector::PCMWord;

constexpr std::array kRates = {8000u,   11025u,  12000u,  16000u,  22050u,  24000u,  32000u,
                               44100u,  48000u,  64000u,  88200u,  96000u,  128000u, 176400u,
                               192000u, 256000u, 352800u, 384000u, 512000u, 705600u, 768000u};

constexpr std::array kDSDFormats = {SND_PCM_FORMAT_DSD_U8, SND_PCM_FORMAT_DSD_U16_LE,
                                    SND_PCM_FORMAT_DSD_U32_LE, SND_PCM_FORMAT_DSD_U16_BE,
                                    SND_PCM_FORMAT_DSD_U32_BE};

// Interleaved transfer first: one run to write. Some cards (RME) know planes only.
constexpr std::array kAccesses = {SND_PCM_ACCESS_RW_INTERLEAVED, SND_PCM_ACCESS_MMAP_INTERLEAVED,
                                  SND_PCM_ACCESS_RW_NONINTERLEAVED,
                                  SND_PCM_ACCESS_MMAP_NONINTERLEAVED};

// The library's complaints stay off stderr, on every thread of the process. While one of these
// lives, its thread's first complaint is kept: it is the most precise.
class LibraryErrors {
 public:
  LibraryErrors() {
    static const int installed = snd_lib_error_set_handler(&remember);
    static_cast<void>(installed);
    current() = &_text;
  }
  ~LibraryErrors() { current() = nullptr; }
  LibraryErrors(const LibraryErrors&) = delete;
  LibraryErrors& operator=(const LibraryErrors&) = delete;

  const std::string& text() const { return _text; }

 private:
  static std::string*& current() {
    thread_local std::string* text = nullptr;
    return text;
  }
  static void remember(const char*, int, const char*, int, const char* format, ...) {
    if (current() == nullptr || !current()->empty()) return;
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    *current() = line;
  }
  std::string _text;
};

class HardwareParams {
 public:
  HardwareParams() { snd_pcm_hw_params_malloc(&_params); }
  ~HardwareParams() { snd_pcm_hw_params_free(_params); }
  HardwareParams(const HardwareParams&) = delete;
  HardwareParams& operator=(const HardwareParams&) = delete;
  void copyFrom(const HardwareParams& other) { snd_pcm_hw_params_copy(_params, other._params); }
  operator snd_pcm_hw_params_t*() const noexcept { return _params; }

 private:
  snd_pcm_hw_params_t* _params = nullptr;
};

AudioStatus failed(const std::string& name, const char* what, int code) {
  return AudioStatus::failure(code, fmt::format("{}: {}: {}", name, what, snd_strerror(code)));
}

// The driver knows how many of a word's bits it uses only once the word is settled.
std::uint32_t significantBitsOf(snd_pcm_t* pcm, const HardwareParams& space, PCMWord word) {
  const snd_pcm_format_t format = alsaFormatOf(word);
  const auto nominal = static_cast<std::uint32_t>(snd_pcm_format_width(format));
  HardwareParams settled;
  settled.copyFrom(space);
  if (snd_pcm_hw_params_set_format(pcm, settled, format) < 0) return nominal;
  const int bits = snd_pcm_hw_params_get_sbits(settled);
  return bits > 0 ? std::min(static_cast<std::uint32_t>(bits), nominal) : nominal;
}

bool isInterleaved(snd_pcm_access_t access) noexcept {
  return access == SND_PCM_ACCESS_RW_INTERLEAVED || access == SND_PCM_ACCESS_MMAP_INTERLEAVED;
}

}  // namespace

bool isCommonAlsaRate(double rate) noexcept {
  return std::ranges::find(kRates, rate) != kRates.end();
}

std::unique_ptr<AlsaPcm> AlsaPcm::open(const std::string& name, AudioStatus& status) {
  const LibraryErrors errors;
  snd_pcm_t* pcm = nullptr;
  const int code = snd_pcm_open(&pcm, name.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
  if (code < 0) {
    const std::string& why = errors.text().empty() ? snd_strerror(code) : errors.text();
    status = AudioStatus::failure(code, fmt::format("cannot open ALSA device {}: {}", name, why));
    return nullptr;
  }
  status = AudioStatus::success();
  return std::unique_ptr<AlsaPcm>(new AlsaPcm(pcm, name));
}

AlsaPcm::~AlsaPcm() {
  snd_pcm_close(_pcm);
}

AudioStatus AlsaPcm::capabilities(AlsaCapabilities& result) const {
  HardwareParams space;
  if (const int code = snd_pcm_hw_params_any(_pcm, space); code < 0) {
    return failed(_name, "no configuration available", code);
  }
  // Off before asking: a "plug" would offer every rate there is.
  snd_pcm_hw_params_set_rate_resample(_pcm, space, 0);
  result = {};
  for (const unsigned rate : kRates) {
    if (snd_pcm_hw_params_test_rate(_pcm, space, rate, 0) == 0) result.rates.push_back(rate);
  }
  for (const PCMWord word : alsaWords()) {
    if (snd_pcm_hw_params_test_format(_pcm, space, alsaFormatOf(word)) != 0) continue;
    result.formats.push_back({word, significantBitsOf(_pcm, space, word)});
  }
  result.nativeDSD = std::ranges::any_of(kDSDFormats, [&](snd_pcm_format_t format) {
    return snd_pcm_hw_params_test_format(_pcm, space, format) == 0;
  });
  for (unsigned count = 1; count <= kMaxChannels; ++count) {
    if (snd_pcm_hw_params_test_channels(_pcm, space, count) == 0) result.channels.push_back(count);
  }
  snd_pcm_uframes_t smallest = 0;
  snd_pcm_uframes_t largest = 0;
  snd_pcm_uframes_t buffer = 0;
  snd_pcm_hw_params_get_period_size_min(space, &smallest, nullptr);
  snd_pcm_hw_params_get_period_size_max(space, &largest, nullptr);
  snd_pcm_hw_params_get_buffer_size_max(space, &buffer);
  const auto bounded = [](snd_pcm_uframes_t frames) {
    return static_cast<std::uint32_t>(std::clamp<snd_pcm_uframes_t>(frames, 1, 1u << 30));
  };
  result.bufferMaximum = bounded(buffer);
  result.period = {bounded(smallest), bounded(std::max(smallest, std::min(largest, buffer / 2)))};
  return AudioStatus::success();
}

AudioStatus AlsaPcm::configure(const AlsaSetup& setup, AlsaGrant& grant) {
  AudioStatus status = setHardware(setup, grant);
  return status.ok() ? setSoftware(grant) : status;
}

AudioStatus AlsaPcm::setHardware(const AlsaSetup& setup, AlsaGrant& grant) {
  HardwareParams params;
  int code = snd_pcm_hw_params_any(_pcm, params);
  if (code < 0) return failed(_name, "no configuration available", code);
  code = snd_pcm_hw_params_set_rate_resample(_pcm, params, 0);
  if (code < 0) return failed(_name, "resampling cannot be turned off", code);
  const auto access = std::ranges::find_if(kAccesses, [&](snd_pcm_access_t one) {
    return snd_pcm_hw_params_set_access(_pcm, params, one) == 0;
  });
  if (access == kAccesses.end()) return failed(_name, "no usable access", -EINVAL);
  code = snd_pcm_hw_params_set_format(_pcm, params, alsaFormatOf(setup.word));
  if (code < 0) return failed(_name, alsaFormatName(setup.word), code);
  code = snd_pcm_hw_params_set_channels(_pcm, params, setup.channels);
  if (code < 0) return failed(_name, fmt::format("{} channels", setup.channels).c_str(), code);
  code = snd_pcm_hw_params_set_rate(_pcm, params, setup.rate, 0);
  if (code < 0) return failed(_name, fmt::format("{} Hz", setup.rate).c_str(), code);

  // A wish that does not combine (a fixed buffer, say) must not keep the device from playing.
  HardwareParams exact;
  exact.copyFrom(params);
  snd_pcm_uframes_t period = setup.periodFrames;
  snd_pcm_uframes_t buffer = setup.bufferFrames;
  snd_pcm_hw_params_set_period_size_near(_pcm, params, &period, nullptr);
  snd_pcm_hw_params_set_buffer_size_near(_pcm, params, &buffer);
  code = snd_pcm_hw_params(_pcm, params);
  if (code < 0 && code != -ENODEV) {
    params.copyFrom(exact);
    code = snd_pcm_hw_params(_pcm, params);
  }
  if (code < 0) return failed(_name, "parameters refused", code);

  snd_pcm_format_t format = SND_PCM_FORMAT_UNKNOWN;
  unsigned numerator = 0;
  unsigned denominator = 1;
  snd_pcm_hw_params_get_format(params, &format);
  snd_pcm_hw_params_get_channels(params, &grant.channels);
  snd_pcm_hw_params_get_period_size(params, &period, nullptr);
  snd_pcm_hw_params_get_buffer_size(params, &buffer);
  snd_pcm_hw_params_get_access(params, &grant.access);
  // The fraction is empty on plug-ins; the plain rate is always there.
  if (snd_pcm_hw_params_get_rate_numden(params, &numerator, &denominator) < 0 || denominator == 0) {
    snd_pcm_hw_params_get_rate(params, &numerator, nullptr);
    denominator = 1;
  }
  if (format != alsaFormatOf(setup.word)) return failed(_name, "another format granted", -EINVAL);
  const int bits = snd_pcm_hw_params_get_sbits(params);
  const auto nominal = static_cast<std::uint32_t>(snd_pcm_format_width(format));
  grant.word = setup.word;
  grant.significantBits = bits > 0 ? std::min(static_cast<std::uint32_t>(bits), nominal) : nominal;
  grant.rate = static_cast<double>(numerator) / denominator;
  grant.periodFrames = static_cast<std::uint32_t>(period);
  grant.bufferFrames = static_cast<std::uint32_t>(buffer);
  _access = grant.access;
  return AudioStatus::success();
}

AudioStatus AlsaPcm::setSoftware(const AlsaGrant& grant) {
  snd_pcm_sw_params_t* params;
  snd_pcm_sw_params_alloca(&params);
  int code = snd_pcm_sw_params_current(_pcm, params);
  snd_pcm_uframes_t never = 0;
  if (code >= 0) code = snd_pcm_sw_params_get_boundary(params, &never);
  if (code >= 0) code = snd_pcm_sw_params_set_start_threshold(_pcm, params, never);
  if (code >= 0) code = snd_pcm_sw_params_set_stop_threshold(_pcm, params, grant.bufferFrames);
  if (code >= 0) code = snd_pcm_sw_params_set_avail_min(_pcm, params, grant.periodFrames);
  if (code >= 0) code = snd_pcm_sw_params(_pcm, params);
  return code < 0 ? failed(_name, "software parameters refused", code) : AudioStatus::success();
}

bool AlsaPcm::isHardware() const noexcept {
  return snd_pcm_type(_pcm) == SND_PCM_TYPE_HW;
}

bool AlsaPcm::isExclusive() const noexcept {
  snd_pcm_info_t* info;
  snd_pcm_info_alloca(&info);
  return isHardware() && snd_pcm_info(_pcm, info) == 0 &&
         snd_pcm_info_get_subdevices_count(info) <= 1;
}

std::string AlsaPcm::kernelParamsPath() const {
  snd_pcm_info_t* info;
  snd_pcm_info_alloca(&info);
  if (!isHardware() || snd_pcm_info(_pcm, info) != 0) return {};
  return fmt::format("/proc/asound/card{}/pcm{}p/sub{}/hw_params", snd_pcm_info_get_card(info),
                     snd_pcm_info_get_device(info), snd_pcm_info_get_subdevice(info));
}

snd_pcm_sframes_t AlsaPcm::write(const std::byte* data, const DeviceLayout& layout,
                                 std::size_t total, std::size_t offset) noexcept {
  const std::size_t wordBytes = vector::bytesPerWord(layout.word);
  const std::size_t left = total - offset;
  const bool isMapped =
      _access == SND_PCM_ACCESS_MMAP_INTERLEAVED || _access == SND_PCM_ACCESS_MMAP_NONINTERLEAVED;
  if (isInterleaved(_access)) {
    const std::byte* from = data + offset * layout.channels * wordBytes;
    return isMapped ? snd_pcm_mmap_writei(_pcm, from, left) : snd_pcm_writei(_pcm, from, left);
  }
  std::array<void*, kMaxChannels> planes;
  for (std::uint32_t c = 0; c < layout.channels; ++c) {
    // The library's signature lacks a const that its code keeps.
    planes[c] = const_cast<std::byte*>(data + (c * total + offset) * wordBytes);
  }
  return isMapped ? snd_pcm_mmap_writen(_pcm, planes.data(), left)
                  : snd_pcm_writen(_pcm, planes.data(), left);
}

}  // namespace velorin
