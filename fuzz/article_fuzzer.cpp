// Article detection and extraction over arbitrary markup (UTF-8 input, at most 64 KiB): a page
// that can be stripped is an article, and the stripped page is made of the page's own pieces.
#include <cstddef>
#include <cstdint>
#include <string>

#include "Classes/Unicode.h"
#include "markup/CharacterTables.h"
#include "webcontent/Reader.h"

using namespace ferncast;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 64 * 1024) return 0;
  static bool initialised = (initCharacterTables(), true);
  (void)initialised;
  const std::u16string html = utf8ToUtf16({reinterpret_cast<const char*>(data), size});
  const bool article = possibleArticle(html);
  if (std::optional<std::u16string> stripped = stripToArticle(html)) {
    if (!article || stripped->size() > html.size() + 2) __builtin_trap();
  }
  return 0;
}
