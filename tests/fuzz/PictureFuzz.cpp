// Any bytes are a picture of at most the wanted size, or an error that says why.
#include <cstdlib>

#include "platform/images/ImageDecoder.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  if (size == 0) return 0;
  // The last byte is no part of most pictures; small sizes reach the reductions.
  const int longerSide = data[size - 1] + 1;
  const auto image = velorin::decodeImage({data, size}, longerSide);
  const bool isSound = image ? image->width >= 1 && image->height >= 1 &&
                                   image->width <= longerSide && image->height <= longerSide &&
                                   image->pixels.size() ==
                                       image->rowBytes() * static_cast<std::size_t>(image->height)
                             : !image.error().reason.empty();
  if (!isSound) std::abort();
  return 0;
}
