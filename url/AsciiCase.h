// Private to url/: comparisons that fold ASCII letters only. `lower` arguments are
// ASCII literals in lower case.
#pragma once

#include <string_view>

namespace ferncast::ascii {

inline char16_t fold(char16_t c) {
  return c >= u'A' && c <= u'Z' ? char16_t(c | 0x20) : c;
}
inline bool isLetter(char16_t c) {
  return fold(c) >= u'a' && fold(c) <= u'z';
}
inline bool isDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}
inline bool isAlnum(char16_t c) {
  return isLetter(c) || isDigit(c);
}

inline bool equalsIgnoringCase(std::u16string_view s, std::u16string_view lower) {
  if (s.size() != lower.size()) return false;
  for (std::size_t i = 0; i < s.size(); ++i)
    if (fold(s[i]) != lower[i]) return false;
  return true;
}

inline bool startsWithIgnoringCase(std::u16string_view s, std::u16string_view lower) {
  return s.size() >= lower.size() && equalsIgnoringCase(s.substr(0, lower.size()), lower);
}

inline bool endsWithIgnoringCase(std::u16string_view s, std::u16string_view lower) {
  return s.size() >= lower.size() && equalsIgnoringCase(s.substr(s.size() - lower.size()), lower);
}

// The first position of `lower` in `s` ignoring ASCII case, or npos.
inline std::size_t findIgnoringCase(std::u16string_view s, std::u16string_view lower,
                                    std::size_t from = 0) {
  if (lower.empty()) return from <= s.size() ? from : std::u16string_view::npos;
  if (s.size() < lower.size()) return std::u16string_view::npos;
  char16_t first = lower[0];
  for (std::size_t i = from; i + lower.size() <= s.size(); ++i) {
    if (fold(s[i]) == first && equalsIgnoringCase(s.substr(i, lower.size()), lower)) return i;
  }
  return std::u16string_view::npos;
}

inline bool containsIgnoringCase(std::u16string_view s, std::u16string_view lower) {
  return findIgnoringCase(s, lower) != std::u16string_view::npos;
}

}  // namespace ferncast::ascii
