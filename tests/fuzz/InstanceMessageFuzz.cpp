// Any bytes are a message or are refused; a request that was read is written and read again.

#include <cstdlib>

#include "foundation/Text.h"
#include "shell/InstanceMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto require = [](bool condition) {
    if (!condition) std::abort();
  };
  if (const auto request = velorin::decodeRequest(bytes)) {
    for (const auto& path : request.value().paths) {
      require(path.is_absolute() && path.native().find('\0') == std::string::npos);
    }
    const auto back = velorin::decodeRequest(velorin::encode(request.value()));
    require(back && back.value() == request.value());
  }
  if (const auto answer = velorin::decodeAnswer(bytes)) {
    require(velorin::text::validUTF8(answer.value().text));
  }
  return 0;
}
