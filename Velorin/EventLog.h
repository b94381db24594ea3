// Writes the events of the bus as JSON lines, each with the device frame at which it fell:
// frames of programme, so that the numbers match the recording.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>

#include "OutputFile.h"
#include "foundation/EventBus.h"
#include "foundation/Result.h"

namespace velorin {

/// One line per event, in the order of posting: {"event":"trackDidChange","frame":0,…}. Main
/// thread only, where playback events are posted.
class EventLog {
 public:
  /// frame: frames of programme that the device was given so far.
  static Result<std::unique_ptr<EventLog>, OutputError> create(
      const std::filesystem::path& path, EventBus& bus, std::function<std::uint64_t()> frame);
  ~EventLog();
  EventLog(const EventLog&) = delete;
  EventLog& operator=(const EventLog&) = delete;

  /// Ends the log and gives the file its name; false, with error(), when it cannot be written.
  bool finish();
  const OutputError& error() const noexcept;

 private:
  struct Impl;
  explicit EventLog(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> _impl;
};

}  // namespace velorin
