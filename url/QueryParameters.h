// The name=value pairs of a URL's query: one tolerant scanner shared by every reader, and the
// appending of a parameter to a URL string (NSMutableString(URLParameter)).
//
// The scanner's rules are deliberate and callers compare URLs and pick parameters by them:
//   - From the start index on, code units that are not letters or digits (alphaNumCharacterSetRep)
//     are skipped; a pair starts at the first letter or digit.
//   - Its name runs to the next "=", wherever that is ("&" and ";" do not stop the search); with no
//     "=" left the scan ends there. So "?a&b=1" holds one pair, named "a&b".
//   - Its value runs from after the "=" to the next "&" or ";" or the end; the scan goes on after
//     that separator.
//   - Names compare case-sensitively; values are returned exactly as written (no percent-decoding,
//     no "+" to space).
// Nothing is scanned when the string is empty, the start index is not below its length, or (for
// look-ups) the name is empty or not shorter than the string. The scan reads the view in place:
// no allocation besides the results. Thread-safe; never throws on any input.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace ferncast {

// Parameter name -> value.
using QueryParameters = std::map<std::u16string, std::u16string>;

// Without a replacement: the value of the first pair named `name` whose value is not empty, or
// nullopt. With a replacement: a copy of `string` in which that value is replaced, or a copy of
// `string` unchanged when no such pair exists (never nullopt). Pairs with an empty value are never
// found nor replaced.
std::optional<std::u16string> queryParamNamed(std::u16string_view string, std::u16string_view name,
                                              std::size_t start,
                                              std::optional<std::u16string_view> replacement);

// Whether a pair named `name` exists, an empty value included ("?a=&b=2" contains "a").
bool containsQueryParamNamed(std::u16string_view string, std::u16string_view name,
                             std::size_t start);

// Every pair with a non-empty value; a later pair replaces an earlier one of the same name. An
// empty map when there is no such pair; nullopt only when nothing is scanned.
std::optional<QueryParameters> queryParams(std::u16string_view string, std::size_t start);

// The number of pairs, those with an empty value included.
std::size_t numberOfQueryParams(std::u16string_view string, std::size_t start);

// appendParameter:value: -- appends "?name=value" to `urlString`, or "&name=value" when it already
// contains a "?". The value is percent-escaped as UTF-8 with ":/?&;@#" escaped too; the name is
// appended as given. Does nothing when name or value is empty.
void appendParameter(std::u16string& urlString, std::u16string_view name,
                     std::u16string_view value);

}  // namespace ferncast
