// Which sample format an ALSA device is run at for a given stream, so that no bit is lost.
//
// Pure functions: no device is touched. Any thread; packForDevice() also on the render thread.
#pragma once

#include <alsa/asoundlib.h>

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/audio/AudioTypes.h"
#include "platform/audio/StreamFormat.h"
#include "platform/vector/PCMPacking.h"

namespace velorin {

/// A sample format that a device offers.
struct AlsaFormatOffer {
  vector::PCMWord word = vector::PCMWord::int16;
  /// Bits of the word that reach the converter, counted from the top ("msbits"): an HDA codec
  /// takes 32-bit words and uses 24 or 20 bits of them. 32 for float32.
  std::uint32_t significantBits = 16;
  bool operator==(const AlsaFormatOffer&) const = default;
};

struct AlsaFormatChoice {
  vector::PCMWord word = vector::PCMWord::int16;
  std::uint32_t bits = 0;  ///< bits of a stream sample that reach the device unchanged
  bool converted = false;  ///< float was rounded to integers
};

/// Chooses the device's format for a stream that passed checkInputFormat().
///
///   16-bit integer    int16, int24Packed, int24Low, int32: the narrowest that exists
///   24 bits of 32     int32, int24Packed, int24Low: int32 first since such a stream is already
///                     laid out that way, and a device with both is natively the 32-bit one
///   32-bit integer    int32
///   float             float32; else int32, int24Packed, int24Low, int16, rounded to nearest
///
/// An integer format is passed over where its significant bits are fewer than the stream's.
/// -EINVAL with a text when nothing remains.
AudioStatus chooseAlsaFormat(const StreamFormat& stream, std::span<const AlsaFormatOffer> offers,
                             AlsaFormatChoice& choice);

/// The smallest of the offered channel counts that holds the stream's; 0 when there is none.
std::uint32_t chooseAlsaChannels(std::uint32_t streamChannels,
                                 std::span<const std::uint32_t> offered) noexcept;

/// Words this program can write, in the order in which a device is asked for them.
std::span<const vector::PCMWord> alsaWords() noexcept;

/// The little-endian ALSA format of the word.
snd_pcm_format_t alsaFormatOf(vector::PCMWord word) noexcept;
/// "S24_3LE", …
const char* alsaFormatName(vector::PCMWord word) noexcept;

/// Where a device wants a period's samples: one run of frames, or one run per channel.
struct DeviceLayout {
  vector::PCMWord word = vector::PCMWord::int16;
  std::uint32_t channels = 0;  ///< at least the stream's
  bool interleaved = true;
};

/// Writes `frames` frames of planes as the device takes them: interleaved into `out`, else
/// channel c from `out` + c × frames × bytes of a word. Mono goes to the first two channels,
/// further channels carry `silence` (a plane of at least `frames` zero samples of the stream).
/// Realtime-safe.
void packForDevice(const StreamFormat& stream, const AudioBufferList& planes, const void* silence,
                   const DeviceLayout& layout, std::size_t frames, std::byte* out) noexcept;

}  // namespace velorin
