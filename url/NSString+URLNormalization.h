// Links as written in pages, cleaned for comparison and storage: normalizedStringURL and
// normalizedRelLink. The HTML queries (webcontent/HtmlExtensions.h) pass every href and src
// through them; nothing is resolved against a base URL.
//
// normalizedStringURL(link, encoding), in this order:
//   1. Character entities are decoded, the markup four included ("&amp;" gives "&").
//   2. White space (the white set of markup/chartables/CharacterTables.h), control characters and
//   DEL are
//      trimmed from both ends.
//   3. Surrounding quotes are stripped: one matching pair of '"' or "'" (or of \" or \', the
//      escaped quotes of markup written by scripts), then the text is trimmed again, once more
//      for a second pair.
//   4. Tabs, line feeds and carriage returns inside the link are removed (as browsers do).
//   5. What remains empty gives nullopt; a fragment-only link ("#top") is kept: the queries decide.
//   6. Characters that may not stand in a URL are percent-escaped: space, controls, DEL, the
//      characters " < > \ ^ ` { | }, a "%" not followed by two hexadecimal digits, and every
//      non-ASCII character. Non-ASCII characters are written as their bytes in `encoding` when it
//      is ISO Latin-1 and the character fits, else as UTF-8 (unpaired surrogates as U+FFFD).
//      Existing escapes stay as they are.
//   7. The scheme ("http:", any case) and, after "//", the host (not the user information, not
//      the port, not the escapes) are lower-cased.
// So the result, when present, is always accepted by URL::URLWithString's character rules.
//
// Pure functions; thread-safe; linear in the link's length; never throw.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Classes/NSString+Encoding.h"

namespace ferncast {

// `encoding` 0 (or any encoding but ISO Latin-1) escapes non-ASCII characters as UTF-8.
std::optional<std::u16string> normalizedStringURL(std::u16string_view link,
                                                  NSStringEncoding encoding);
// normalizedStringURL(link, 0).
std::optional<std::u16string> normalizedStringURL(std::u16string_view link);
// normalizedStringURL(link); a result that starts with "." or "/" or contains "://" is returned as
// it is, any other gets a leading "/" ("favicon.ico" gives "/favicon.ico").
std::optional<std::u16string> normalizedRelLink(std::u16string_view link);

}  // namespace ferncast
