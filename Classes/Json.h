// The one JSON rendering of property-list values used by every command of the ferncast tool:
//   string -> string, integer and real -> number (non-finite reals -> null), Boolean -> true/false,
//   Null -> null, data -> {"data": "<base64>"}, date -> {"date": "<ISO 8601 UTC>"},
//   arrays and dictionaries as such (dictionary keys in UTF-16 code-unit order).
// Output is UTF-8 on one line; unpaired surrogates become U+FFFD.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/PropertyList.h"

namespace ferncast {

std::string toJson(const Value& value);

// A JSON string literal, quotes included.
std::string jsonString(std::u16string_view text);
std::string jsonString(std::string_view utf8);

// Standard base64 with padding.
std::string base64(const std::uint8_t* bytes, std::size_t length);

// "2024-05-01T12:00:00Z", with ".mmm" milliseconds when the instant has a fraction of a second.
std::string iso8601(const Date& date);

}  // namespace ferncast
