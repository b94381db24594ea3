// An open playback PCM: what it can do, setting it up, and reading back what was granted.
//
// Always non-blocking: opening a PCM that another program holds fails at once (-EBUSY), and no
// transfer waits inside the library. One thread at a time.
#pragma once

#include <alsa/asoundlib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/audio/AudioTypes.h"
#include "platform/audio/alsa/AlsaFormat.h"

namespace velorin {

struct AlsaCapabilities {
  std::vector<std::uint32_t> rates;      ///< Hz, rising; the common ones from 8000 to 768000
  std::vector<AlsaFormatOffer> formats;  ///< those that packForDevice() can write
  std::vector<std::uint32_t> channels;   ///< rising
  FrameRange period;                     ///< frames, over all formats and rates
  std::uint32_t bufferMaximum = 0;       ///< frames
  bool nativeDSD = false;                ///< some DSD_U8 … DSD_U32_BE format is offered
};

/// Whether capabilities() asks for that rate; others are learned only by trying.
bool isCommonAlsaRate(double rate) noexcept;

struct AlsaSetup {
  std::uint32_t rate = 0;
  vector::PCMWord word = vector::PCMWord::int16;
  std::uint32_t channels = 0;
  std::uint32_t periodFrames = 0;  ///< a wish, taken as near as the device goes
  std::uint32_t bufferFrames = 0;  ///< a wish
};

/// What the device runs at, read back after it was set up.
struct AlsaGrant {
  vector::PCMWord word = vector::PCMWord::int16;
  std::uint32_t significantBits = 0;  ///< of a word, as far as the driver tells
  double rate = 0;                    ///< exact
  std::uint32_t channels = 0;
  std::uint32_t periodFrames = 0;
  std::uint32_t bufferFrames = 0;
  snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED;
};

class AlsaPcm {
 public:
  /// Null with `status` set: -EBUSY when held, -ENOENT and a text for a name that ALSA's
  /// configuration does not know, -ENODEV …
  static std::unique_ptr<AlsaPcm> open(const std::string& name, AudioStatus& status);
  ~AlsaPcm();
  AlsaPcm(const AlsaPcm&) = delete;
  AlsaPcm& operator=(const AlsaPcm&) = delete;

  snd_pcm_t* get() const noexcept { return _pcm; }

  /// Asks the configuration space; before configure().
  AudioStatus capabilities(AlsaCapabilities& result) const;

  /// Rate, format and channels exactly as asked, with the library's own resampling off; period
  /// and buffer as near as they go. The device starts only when told (snd_pcm_start) and stops
  /// when it runs dry.
  AudioStatus configure(const AlsaSetup& setup, AlsaGrant& grant);

  /// True when the handle is a card's own PCM and not a plug-in chain over one.
  bool isHardware() const noexcept;
  /// True when nobody else can open the same PCM meanwhile: hardware without mixing of its own.
  bool isExclusive() const noexcept;
  /// "/proc/asound/card1/pcm0p/sub0/hw_params"; empty for a PCM that is not hardware.
  std::string kernelParamsPath() const;

  /// Writes frames laid out by `layout` (see packForDevice) whatever the access that was granted;
  /// `offset` frames of the `total` in `data` are written already. Frames taken, -EAGAIN when
  /// the buffer is full, or the device's error.
  snd_pcm_sframes_t write(const std::byte* data, const DeviceLayout& layout, std::size_t total,
                          std::size_t offset) noexcept;

 private:
  AlsaPcm(snd_pcm_t* pcm, std::string name) : _pcm(pcm), _name(std::move(name)) {}

  AudioStatus setHardware(const AlsaSetup& setup, AlsaGrant& grant);
  AudioStatus setSoftware(const AlsaGrant& grant);

  snd_pcm_t* _pcm;
  std::string _name;
  snd_pcm_access_t _access = SND_PCM_ACCESS_RW_INTERLEAVED;
};

}  // namespace velorin
