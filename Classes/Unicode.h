// UTF-16 strings (the stand-in for NSString) and their UTF-8 conversions.
//
// Text is kept as UTF-16 code units in std::u16string; functions take std::u16string_view.
// Conversions never fail: malformed input becomes U+FFFD, one per maximal ill-formed subpart.
#pragma once

#include <string>
#include <string_view>

namespace ferncast {

// UTF-8 bytes to UTF-16; invalid or truncated sequences, overlong forms and encoded surrogates
// become U+FFFD.
std::u16string utf8ToUtf16(std::string_view utf8);

// UTF-16 to UTF-8; an unpaired surrogate becomes U+FFFD.
std::string utf16ToUtf8(std::u16string_view utf16);

// The text of a size as NSStringFromSize writes it: "{256, 128}". Each number is printed like
// printf's "%.17g", so integral values have no decimals and others up to 17 significant digits.
std::u16string sizeString(double width, double height);

}  // namespace ferncast
