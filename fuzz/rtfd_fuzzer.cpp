// RTFD data on any bytes: the package, its text and attachments; what is read writes back as
// RTFD that reads again to the same text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>

#include "webcontent/documents/RTFD.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferncast;
  if (size > 262144) return 0;
  Dictionary attributes;
  std::optional<AttributedString> string = initWithRTFD({data, size}, &attributes);
  if (!string) return 0;
  const Data written = RTFDFromRange(*string, attributes);
  std::optional<AttributedString> again = initWithRTFD(written, nullptr);
  if (!again || again->string() != string->string()) std::abort();
  return 0;
}
