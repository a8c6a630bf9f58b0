// The RTF reader on any bytes (alone and inside a package), with the promises it keeps: never
// more text than input bytes, and what the writer writes of its result reads back to the same
// RTF again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>

#include "webcontent/documents/FileWrapper.h"
#include "webcontent/documents/RTF.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferncast;
  if (size > 262144) return 0;
  static const FileWrapper package = [] {
    FileWrapper folder = FileWrapper::directory();
    folder.addFileWrapper(FileWrapper::regularFile({1, 2, 3}, u"a.png"));
    return folder;
  }();
  const std::span<const std::uint8_t> bytes(data, size);
  Dictionary attributes;
  std::optional<AttributedString> string = initWithRTF(bytes, &attributes, &package);
  if (!string) return 0;
  if (string->length() > size) std::abort();
  const Data first = RTFFromRange(*string, attributes);
  Dictionary againAttributes;
  std::optional<AttributedString> again = initWithRTF(first, &againAttributes);
  if (!again) std::abort();
  if (RTFFromRange(*again, againAttributes) != first) std::abort();
  return 0;
}
