// Turns what an unpaced device is given into WAV files.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "WavWriter.h"
#include "foundation/Mutex.h"
#include "platform/audio/virtual/VirtualAudioHardware.h"

namespace velorin {

/// Writes exactly the programme: silence that the renderer padded with is held back and written
/// only when programme follows it in the same stream. Streams of one format go on in one file; a
/// stream of another rate or format starts the next one: OUT.wav, OUT.2.wav, OUT.3.wav …
///
/// begin, record and end are called by the device; finish() by the owner when no stream runs.
class WavRecorder : public VirtualRecorder {
 public:
  /// `inputs`: files that must not be replaced. `failed` is called once, on the device's thread,
  /// when a file cannot be written; from then on everything is dropped.
  WavRecorder(std::filesystem::path output, std::vector<std::filesystem::path> inputs,
              std::function<void()> failed);
  ~WavRecorder() override;

  void begin(const StreamFormat& format) override;
  void record(const AudioBufferList& list, std::uint32_t frames, std::uint32_t programme) override;
  void end() override;

  /// Gives every file its name; false when one could not be written. A run without programme
  /// leaves one file without frames, if a stream ever began.
  bool finish();

  /// The device's thread: so many frames are about to be rendered and recorded.
  void expect(std::uint32_t frames);
  /// Programme frames recorded once those that are on their way are. The engine tells of what was
  /// rendered, and may do so before it is recorded. Any thread but the device's.
  std::uint64_t settledFrames() const;

  /// Programme frames recorded so far. Any thread.
  std::uint64_t frames() const noexcept { return _frames.load(std::memory_order_acquire); }
  /// True after a buffer that was not all programme. Any thread.
  bool holdsSilence() const;
  /// Why failed() was called. Any thread.
  std::string errorText() const;
  /// Names of the files, in order.
  std::vector<std::filesystem::path> files() const;

  /// OUT.wav for 1, OUT.2.wav for 2 …
  static std::filesystem::path numbered(const std::filesystem::path& output, std::size_t number);

 private:
  void write(const AudioBufferList& list, std::uint32_t frames, std::uint32_t programme)
      REQUIRES(_mutex);
  void arrived(std::uint64_t frames) REQUIRES(_mutex);
  bool ensureWriter() REQUIRES(_mutex);
  void fail(const OutputError& error) REQUIRES(_mutex);

  const std::filesystem::path _output;
  const std::vector<std::filesystem::path> _inputs;
  const std::function<void()> _failed;
  std::atomic<std::uint64_t> _frames{0};

  mutable Mutex _mutex;
  mutable ConditionVariable _settled;
  std::uint64_t _onTheirWay GUARDED_BY(_mutex) = 0;
  std::vector<std::unique_ptr<WavWriter>> _writers GUARDED_BY(_mutex);
  std::optional<WavSpec> _spec GUARDED_BY(_mutex);  ///< of the stream that runs or ran last
  std::uint64_t _heldSilence GUARDED_BY(_mutex) = 0;
  bool _hasFailed GUARDED_BY(_mutex) = false;
  std::string _errorText GUARDED_BY(_mutex);
};

}  // namespace velorin
