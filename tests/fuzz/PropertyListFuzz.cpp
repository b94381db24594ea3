// Any bytes are a property list or none; what is one survives being written and read again.

#include <cstdlib>

#include "foundation/PropertyList.h"
#include "foundation/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto value = velorin::propertyList::parse(bytes);
  if (!value) return 0;
  // Texts are compared: a NaN among the values equals nothing.
  const auto first = velorin::propertyList::format(*value);
  if (!first || !velorin::text::validUTF8(*first)) std::abort();
  const auto back = velorin::propertyList::parse(*first);
  if (!back || velorin::propertyList::format(*back) != first) std::abort();
  return 0;
}
