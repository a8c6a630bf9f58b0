#include "webcontent/documents/ListMarkers.h"

#include <algorithm>
#include <string>
#include <utility>

namespace ferncast {

std::u16string listMarker(std::u16string_view format, int n) {
  if (format.starts_with(u"{disc}")) return u"\u2022";
  if (format.starts_with(u"{circle}")) return u"\u25E6";
  if (format.starts_with(u"{square}") || format.starts_with(u"{hyphen}"))
    return format.starts_with(u"{square}") ? u"\u25AA" : u"\u2043";
  std::u16string number;
  const bool upper = format.starts_with(u"{upper-");
  if (format.starts_with(u"{lower-alpha}") || format.starts_with(u"{upper-alpha}")) {
    const char16_t base = upper ? u'A' : u'a';
    for (int value = std::max(1, n); value > 0; value = (value - 1) / 26)
      number.insert(number.begin(), static_cast<char16_t>(base + (value - 1) % 26));
  } else if (format.starts_with(u"{lower-roman}") || format.starts_with(u"{upper-roman}")) {
    static constexpr std::pair<int, const char*> kDigits[] = {
        {1000, "m"}, {900, "cm"}, {500, "d"}, {400, "cd"}, {100, "c"}, {90, "xc"}, {50, "l"},
        {40, "xl"},  {10, "x"},   {9, "ix"},  {5, "v"},    {4, "iv"},  {1, "i"}};
    int value = std::clamp(n, 1, 3999);
    for (const auto& [amount, digits] : kDigits) {
      for (; value >= amount; value -= amount)
        for (const char* d = digits; *d; ++d)
          number += static_cast<char16_t>(upper ? *d - 32 : *d);
    }
  } else {
    for (char c : std::to_string(n))
      number += static_cast<char16_t>(c);
  }
  return number + u".";
}

void setListParagraphStyle(ParagraphStyle& style, std::span<const TextList> lists) {
  const double depth = static_cast<double>(lists.size());
  style.textLists.assign(lists.begin(), lists.end());
  style.headIndent = kListIndentStep * depth;
  style.firstLineHeadIndent = 0;
  style.tabStops = {TabStop{kListIndentStep * (depth - 1) + 11}, TabStop{kListIndentStep * depth}};
}

}  // namespace ferncast
