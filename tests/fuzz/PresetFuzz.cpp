// Any bytes are an equalizer preset or none, and headphone profiles or none; a preset survives
// being written and read again, and every filter that comes out of a file is one that can run.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

#include "dsp/presets/EQPreset.h"
#include "dsp/presets/HeadphoneProfileDatabase.h"
#include "foundation/Log.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

template <class Filters>
void requireStable(const Filters& filters) {
  for (const auto& filter : filters) {
    const auto section = filter.design(44100);
    require(!section || velorin::biquad::isStable(*section));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (const auto preset = velorin::presetFromJSON(bytes)) {
    const auto back = velorin::presetFromJSON(velorin::toJSON(preset.value()));
    require(back && back.value() == preset.value());
    requireStable(preset.value().bands);
  }

  static const int file = ::memfd_create("profiles", MFD_CLOEXEC);
  require(::ftruncate(file, 0) == 0 && ::pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
  const velorin::log::Capture quiet;
  velorin::HeadphoneProfileDatabase database;
  require(database.load(fmt::format("/proc/self/fd/{}", file)) == database.isLoaded());
  for (const auto& profile : database.search("")) {
    require(database.profile(profile->id) != nullptr);
    requireStable(profile->filters);
  }
  return 0;
}
