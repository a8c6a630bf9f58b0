// Parameters of header-like values: a content type ("text/html; charset=utf-8"), a refresh value
// ("5; URL=/next"), a meta CONTENT value or a part header of a multipart form body
// ("form-data; name=\"field\"; filename=\"a.txt\"").
//
// All functions are pure: they read the view only while they run and return new strings owned
// by the caller; nullopt when the parameter is not there. Any thread may call them (the case
// table they use is built once, thread-safely, on first use).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ferncast {

// How a parameter name is found in the value.
enum class FieldNameMatch {
  // At any position, with no word-boundary test: "NAME" is found inside "filename=x". This is
  // the look-up every header, charset and refresh caller relies on.
  kAnywhere,
  // Whole parameter names only: the name must start the value or follow a code unit that is not
  // alphanumeric, "-" or "_", and nothing inside a quoted value (in the quotation character,
  // double or single quotes) is taken for a name. Used by the multipart form-data reader, where
  // "name" must not match the tail of "filename".
  kWholeName,
};

// The value of the parameter `upperName` in `string`, the name compared through the upper-case
// table (so any case matches):
//  - the string must be longer than the name, else nullopt;
//  - after the name, white space may follow and then "=" must come; with `skipWhite`, white space
//    after the "=" is skipped too;
//  - a value that starts with `quotation` (or, with `skipWhite`, with either quote) runs to the
//    next identical code unit or to the end; an empty quoted value is passed over and the search
//    goes on;
//  - otherwise, with neither flag the value is the rest of the string; else it ends at ";" (with
//    `stopAtSemicolon`) and, with `skipWhite`, at a quote, ">" or white space. Such a value may be
//    empty.
// The first value found is returned.
std::optional<std::u16string> _copyOfAttributeOfString(
    std::u16string_view string, std::u16string_view upperName, char16_t quotation, bool skipWhite,
    bool stopAtSemicolon, FieldNameMatch match = FieldNameMatch::kAnywhere);

// The parameter `name` (any case) of a header line, with quotation "'"; the value ends at ";".
std::optional<std::u16string> headerFieldNamed(std::u16string_view string,
                                               std::u16string_view name);
// The same with the given quotation character. White space after "=" belongs to the value.
std::optional<std::u16string> headerFieldNamed(std::u16string_view string, std::u16string_view name,
                                               char16_t quotation);
// The same, choosing how the name is matched (see FieldNameMatch).
std::optional<std::u16string> headerFieldNamed(std::u16string_view string, std::u16string_view name,
                                               char16_t quotation, FieldNameMatch match);

// The charset parameter of a content-type value: "text/html; charset=\"UTF-8\"" -> "UTF-8".
std::optional<std::u16string> headerCharset(std::u16string_view string);

// The target of a refresh value: "5; URL='/next'" -> "/next". The value does not stop at ";".
std::optional<std::u16string> headerRefresh(std::u16string_view string);

// The leading integer of a refresh value (its seconds): white space is skipped, an optional sign
// and decimal digits are read; 0 when there are none; clamped to the range of int.
int refreshInterval(std::u16string_view string);

}  // namespace ferncast
