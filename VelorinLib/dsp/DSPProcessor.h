// The interface of every effect.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/audio/StreamFormat.h"

namespace velorin {

/// One effect: a long-lived object that transforms planar 32-bit float audio in place.
class DSPProcessor {
 public:
  virtual ~DSPProcessor() = default;

  /// Reverse-domain identifier, e.g. "com.velorin.dsp.preamp".
  virtual std::string_view id() const noexcept = 0;
  virtual std::string_view name() const noexcept = 0;
  virtual std::string_view shortName() const noexcept { return name(); }

  /// The single switch of an effect. Any thread; read by the render thread.
  virtual bool isEnabled() const noexcept = 0;
  virtual void setEnabled(bool enabled) noexcept = 0;

  /// Render thread: transforms `frameCount` frames at `sampleRate` Hz. Never reports an error:
  /// an effect that cannot work leaves the audio as it is. Bound by foundation/Realtime.h.
  virtual void process(AudioBufferList& buffers, std::int64_t frameCount,
                       double sampleRate) noexcept = 0;

  /// Not the render thread: the stream's rate in Hz, told before output starts.
  virtual void sampleRateChanged(double /*sampleRate*/) {}
};

}  // namespace velorin
