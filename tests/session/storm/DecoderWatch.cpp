#include "session/storm/DecoderWatch.h"

#include <FLAC/stream_decoder.h>

#include <algorithm>
#include <map>

#include "foundation/Mutex.h"

namespace velorin::test {
namespace {

struct Reads {
  std::uint64_t order = 0;  // of the first one, among all decoders
  int besideAnother = 0;
};

Mutex mutex;
std::map<const FLAC__StreamDecoder*, Reads> decoders GUARDED_BY(mutex);
std::uint64_t orders GUARDED_BY(mutex) = 0;
int most GUARDED_BY(mutex) = 0;

void noteRead(const FLAC__StreamDecoder* decoder) {
  MutexLock hold(mutex);
  const auto [at, isNew] = decoders.try_emplace(decoder, Reads{orders + 1});
  if (isNew) {
    ++orders;
    return;
  }
  const std::uint64_t order = at->second.order;
  const bool isBeside = std::ranges::any_of(
      decoders, [order](const auto& each) { return each.second.order > order; });
  if (isBeside) most = std::max(most, ++at->second.besideAnother);
}

}  // namespace

std::size_t DecoderWatch::open() {
  MutexLock hold(mutex);
  return decoders.size();
}

int DecoderWatch::mostReadsBesideAnother() {
  MutexLock hold(mutex);
  return most;
}

void DecoderWatch::forget() {
  MutexLock hold(mutex);
  most = 0;
}

}  // namespace velorin::test

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
FLAC__bool __real_FLAC__stream_decoder_process_single(FLAC__StreamDecoder* decoder);
void __real_FLAC__stream_decoder_delete(FLAC__StreamDecoder* decoder);

FLAC__bool __wrap_FLAC__stream_decoder_process_single(FLAC__StreamDecoder* decoder) {
  velorin::test::noteRead(decoder);
  return __real_FLAC__stream_decoder_process_single(decoder);
}

void __wrap_FLAC__stream_decoder_delete(FLAC__StreamDecoder* decoder) {
  {
    velorin::MutexLock hold(velorin::test::mutex);
    velorin::test::decoders.erase(decoder);
  }
  __real_FLAC__stream_decoder_delete(decoder);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
