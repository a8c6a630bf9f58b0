// Multipart form data and the header-field look-ups it rests on.
// Input: one length byte (mod 71), that many bytes of boundary, then the body.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Classes/NSData+HTTP.h"
#include "Classes/NSString+HeaderFields.h"
#include "Classes/Unicode.h"

namespace {
constexpr std::size_t kMaxInput = 1 << 16;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferncast;
  if (size < 1 || size > kMaxInput) return 0;
  const std::size_t boundaryLength = std::min<std::size_t>(data[0] % 71, size - 1);
  const std::u16string boundary =
      utf8ToUtf16(std::string_view(reinterpret_cast<const char*>(data + 1), boundaryLength));
  const Data body(data + 1 + boundaryLength, data + size);

  if (auto fields = formDataUsingBoundary(body, boundary)) {
    // Field contents are data cut from the body; file names are strings.
    for (const auto& [key, value] : *fields) {
      if (const Data* content = value.as<Data>()) {
        if (content->size() > body.size()) abort();
      } else if (!value.is<std::u16string>() || !key.ends_with(u"_filename")) {
        abort();
      }
    }
  }

  const std::u16string text =
      utf8ToUtf16(std::string_view(reinterpret_cast<const char*>(body.data()), body.size()));
  for (FieldNameMatch match : {FieldNameMatch::kAnywhere, FieldNameMatch::kWholeName}) {
    for (int flags = 0; flags < 4; ++flags) {
      auto value = _copyOfAttributeOfString(text, u"NAME", u'"', flags & 1, flags & 2, match);
      if (value && value->size() >= text.size()) abort();
    }
  }
  headerCharset(text);
  headerRefresh(text);
  refreshInterval(text);
  return 0;
}
