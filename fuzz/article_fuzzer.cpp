// Article detection and extraction over arbitrary markup (UTF-8 input, at most 64 KiB): a page
// that can be stripped is an article, and the stripped page begins with the page's beginning and
// ends with its end (a later body tag may make the pieces overlap).
#include <cstddef>
#include <cstdint>
#include <string>

#include "Classes/Unicode.h"
#include "markup/chartables/CharacterTables.h"
#include "webcontent/Reader.h"

using namespace ferncast;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 64 * 1024) return 0;
  static bool initialised = (initCharacterTables(), true);
  (void)initialised;
  const std::u16string html = utf8ToUtf16({reinterpret_cast<const char*>(data), size});
  const bool article = possibleArticle(html);
  if (std::optional<std::u16string> stripped = stripToArticle(html)) {
    if (!article || stripped->size() > 3 * html.size() + 2) __builtin_trap();
    const std::size_t newline = stripped->find(u'\n');
    const std::size_t tail = stripped->size() - stripped->rfind(u'\n') - 1;
    if (html.compare(0, newline, *stripped, 0, newline) != 0 ||
        html.compare(html.size() - tail, tail, *stripped, stripped->size() - tail, tail) != 0) {
      __builtin_trap();
    }
  }
  return 0;
}
