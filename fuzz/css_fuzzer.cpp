// The CSS subset: the first byte chooses declarations (style attributes) or a style sheet with a
// few matches against it, the rest is the text as UTF-8. Checks that cascading is consistent:
// matching twice gives the same answer, and a sheet never holds more than its rule limit.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Classes/Unicode.h"
#include "webcontent/documents/CssSubset.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > 65536) return 0;
  const std::u16string text =
      ferncast::utf8ToUtf16(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1));
  if (data[0] & 1) {
    ferncast::CssDeclarations declarations = ferncast::parseCssDeclarations(text);
    ferncast::CssDeclarations merged;
    merged.merge(declarations);
    check(merged == declarations);
    (void)ferncast::parseCssColor(text);
    return 0;
  }
  ferncast::CssStyleSheet sheet;
  sheet.addRules(text);
  check(sheet.ruleCount() <= ferncast::CssStyleSheet::kMaxRules);
  for (const char16_t* element : {u"p", u"div", u"a"}) {
    ferncast::CssDeclarations first = sheet.match(element, u"note x", u"main");
    check(first == sheet.match(element, u"note x", u"main"));
  }
  return 0;
}
