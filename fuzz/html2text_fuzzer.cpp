// HTML to plain text under every option combination (one bit each of the first byte), over the
// remaining bytes read as UTF-8, and the simplified conversion. Checks the layout promises: the
// text (unless the input came back unchanged) neither begins nor ends with white space, holds no
// more than two line feeds in a row, and is never more than twice as long as the input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Classes/Unicode.h"
#include "markup/chartables/CharacterTables.h"
#include "markup/Html2Text.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

bool isWhite(char16_t c) {
  return ferncast::characterIsMember(ferncast::whiteCharacterSetRep(), c);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > 65536) return 0;
  const unsigned options = data[0];
  const std::u16string html =
      ferncast::utf8ToUtf16(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1));
  bool junk = false;
  const std::u16string text = ferncast::stringByConvertingHtml2PlainTextEntities(
      html, options & 1, options & 2, options & 4, options & 8, options & 16, options & 32, &junk,
      options & 64, options & 128);
  if (text != html) {
    check(!text.empty() || (options & 32));
    check(text.size() <= 2 * html.size());
    if (!text.empty()) check(!isWhite(text.front()) && !isWhite(text.back()));
    check(text.find(u"\n\n\n") == std::u16string::npos);
  }
  const std::u16string simple = ferncast::stringByConvertingHtml2SimplifiedPlainText(html);
  check(simple.size() <= html.size());
  return 0;
}
