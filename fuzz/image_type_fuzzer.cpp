// Type strings and first bytes: pathExtensionForType over arbitrary text (classic types, MIME
// types, extensions), pathExtensionForData over arbitrary bytes, and content-type conformance
// over arbitrary identifiers (dynamic ones are decoded).
#include <cstddef>
#include <cstdint>
#include <string>

#include "Classes/ContentTypes.h"
#include "Classes/Unicode.h"
#include "imaging/ImageClassification.h"

using namespace ferncast;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  if (size > 64 * 1024) return 0;
  const std::u16string text = utf8ToUtf16({reinterpret_cast<const char*>(bytes), size});

  const std::optional<std::u16string> fromType = pathExtensionForType(text);
  if (fromType && text.size() == 6 && text.front() == u'\'' && text.back() == u'\'' &&
      fromType->size() > 4)
    __builtin_trap();  // classic types map to short extensions from the table only
  const std::optional<std::u16string> fromData = pathExtensionForData(Data(bytes, bytes + size));
  if (fromData && size < 4) __builtin_trap();

  const std::u16string type = contentTypeForExtension(text);
  if (!contentTypeConformsTo(type, text.empty() ? u"public.data" : type)) __builtin_trap();
  const auto chain = contentTypeConformanceChain(text);
  if (chain.empty() || chain.front() != text) __builtin_trap();
  isWebImageExtension(text);
  isImageExtension(text, text);
  isPDFExtension(text, text);
  return 0;
}
