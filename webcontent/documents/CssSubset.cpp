#include "webcontent/documents/CssSubset.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

namespace ferncast {
namespace {

bool isSpace(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == u'\f';
}

std::u16string_view trim(std::u16string_view s) {
  while (!s.empty() && isSpace(s.front()))
    s.remove_prefix(1);
  while (!s.empty() && isSpace(s.back()))
    s.remove_suffix(1);
  return s;
}

// ASCII letters lowered; other code units above 0x7F become 0x7F so they match no keyword.
std::string lowerAscii(std::u16string_view s) {
  std::string lower(s.size(), '\0');
  for (std::size_t i = 0; i < s.size(); ++i) {
    char16_t c = s[i];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c | 0x20);
    lower[i] = c < 0x80 ? static_cast<char>(c) : '\x7F';
  }
  return lower;
}

std::u16string lowerString(std::u16string_view s) {
  std::u16string lower(s);
  for (char16_t& c : lower)
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c | 0x20);
  return lower;
}

bool isIdentCharacter(char16_t c) {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
         c == u'-' || c == u'_' || c >= 0x80;
}

// The text without comments; quoted strings are kept as they are.
std::u16string withoutComments(std::u16string_view s) {
  std::u16string out;
  out.reserve(s.size());
  char16_t quote = 0;
  for (std::size_t i = 0; i < s.size(); ++i) {
    char16_t c = s[i];
    if (quote) {
      if (c == quote) quote = 0;
      out += c;
    } else if (c == u'/' && i + 1 < s.size() && s[i + 1] == u'*') {
      std::size_t end = s.find(u"*/", i + 2);
      if (end == std::u16string_view::npos) break;
      i = end + 1;
      out += u' ';
    } else {
      if (c == u'"' || c == u'\'') quote = c;
      out += c;
    }
  }
  return out;
}

// Splits at `separator` outside quotes and parentheses.
std::vector<std::u16string_view> splitTopLevel(std::u16string_view s, char16_t separator) {
  std::vector<std::u16string_view> parts;
  int depth = 0;
  char16_t quote = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i < s.size(); ++i) {
    char16_t c = s[i];
    if (quote) {
      if (c == quote) quote = 0;
    } else if (c == u'"' || c == u'\'') {
      quote = c;
    } else if (c == u'(') {
      ++depth;
    } else if (c == u')') {
      depth = std::max(0, depth - 1);
    } else if (c == separator && depth == 0) {
      parts.push_back(s.substr(start, i - start));
      start = i + 1;
    }
  }
  parts.push_back(s.substr(start));
  return parts;
}

std::vector<std::u16string_view> words(std::u16string_view s) {
  std::vector<std::u16string_view> result;
  for (std::u16string_view part : splitTopLevel(s, u' ')) {
    for (std::u16string_view word : splitTopLevel(part, u'\t')) {
      word = trim(word);
      if (!word.empty()) result.push_back(word);
    }
  }
  return result;
}

struct NamedColor {
  const char* name;
  std::uint8_t r, g, b;
};

constexpr NamedColor kNamedColors[] = {
    {"aqua", 0, 255, 255},
    {"black", 0, 0, 0},
    {"blue", 0, 0, 255},
    {"brown", 165, 42, 42},
    {"crimson", 220, 20, 60},
    {"cyan", 0, 255, 255},
    {"darkblue", 0, 0, 139},
    {"darkgray", 169, 169, 169},
    {"darkgreen", 0, 100, 0},
    {"darkgrey", 169, 169, 169},
    {"darkorange", 255, 140, 0},
    {"darkred", 139, 0, 0},
    {"dimgray", 105, 105, 105},
    {"dimgrey", 105, 105, 105},
    {"fuchsia", 255, 0, 255},
    {"gold", 255, 215, 0},
    {"gray", 128, 128, 128},
    {"green", 0, 128, 0},
    {"grey", 128, 128, 128},
    {"indigo", 75, 0, 130},
    {"lightblue", 173, 216, 230},
    {"lightgray", 211, 211, 211},
    {"lightgreen", 144, 238, 144},
    {"lightgrey", 211, 211, 211},
    {"lightyellow", 255, 255, 224},
    {"lime", 0, 255, 0},
    {"magenta", 255, 0, 255},
    {"maroon", 128, 0, 0},
    {"navy", 0, 0, 128},
    {"olive", 128, 128, 0},
    {"orange", 255, 165, 0},
    {"pink", 255, 192, 203},
    {"purple", 128, 0, 128},
    {"red", 255, 0, 0},
    {"silver", 192, 192, 192},
    {"steelblue", 70, 130, 180},
    {"teal", 0, 128, 128},
    {"violet", 238, 130, 238},
    {"white", 255, 255, 255},
    {"whitesmoke", 245, 245, 245},
    {"yellow", 255, 255, 0},
};

std::optional<double> number(std::string_view s, std::size_t* used) {
  double value = 0;
  const char* begin = s.data();
  if (!s.empty() && s.front() == '+') ++begin;
  auto [end, error] = std::from_chars(begin, s.data() + s.size(), value);
  if (error != std::errc() || !std::isfinite(value)) return std::nullopt;
  *used = static_cast<std::size_t>(end - s.data());
  return value;
}

std::uint8_t channel(double value) {
  return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

std::optional<Color> hexColor(std::string_view hex) {
  auto digit = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
  };
  for (char c : hex)
    if (digit(c) < 0) return std::nullopt;
  if (hex.size() == 3 || hex.size() == 4) {
    return Color{static_cast<std::uint8_t>(digit(hex[0]) * 17),
                 static_cast<std::uint8_t>(digit(hex[1]) * 17),
                 static_cast<std::uint8_t>(digit(hex[2]) * 17)};
  }
  if (hex.size() == 6 || hex.size() == 8) {
    auto byte = [&](int i) {
      return static_cast<std::uint8_t>(digit(hex[i]) * 16 + digit(hex[i + 1]));
    };
    return Color{byte(0), byte(2), byte(4)};
  }
  return std::nullopt;
}

// "rgb(1, 2, 3)", "rgba(1 2 3 / 50%)", "rgb(10%, 20%, 30%)".
std::optional<Color> functionalColor(std::string_view s) {
  std::size_t open = s.find('(');
  if (s.back() != ')' || open == std::string_view::npos) return std::nullopt;
  std::string_view inside = s.substr(open + 1, s.size() - open - 2);
  double channels[3];
  int count = 0;
  std::size_t i = 0;
  while (count < 3) {
    while (i < inside.size() && (inside[i] == ' ' || inside[i] == ',' || inside[i] == '\t'))
      ++i;
    std::size_t used = 0;
    std::optional<double> value = number(inside.substr(i), &used);
    if (!value) return std::nullopt;
    i += used;
    if (i < inside.size() && inside[i] == '%') {
      *value = *value * 255 / 100;
      ++i;
    }
    channels[count++] = *value;
  }
  return Color{channel(channels[0]), channel(channels[1]), channel(channels[2])};
}

// Points per unit of absolute lengths.
std::optional<double> pointsPerUnit(std::string_view unit) {
  if (unit == "px") return 0.75;
  if (unit == "pt") return 1.0;
  if (unit == "pc") return 12.0;
  if (unit == "in") return 72.0;
  if (unit == "cm") return 72.0 / 2.54;
  if (unit == "mm") return 72.0 / 25.4;
  return std::nullopt;
}

std::optional<CssFontSize> parseFontSize(std::string_view s) {
  // The keywords' sizes in pixels, from xx-small to xx-large.
  static constexpr std::pair<const char*, double> kKeywords[] = {
      {"xx-small", 9}, {"x-small", 10}, {"small", 13},    {"medium", 16},
      {"large", 18},   {"x-large", 24}, {"xx-large", 32}, {"xxx-large", 48},
  };
  for (const auto& [name, pixels] : kKeywords)
    if (s == name) return CssFontSize{false, pixels * 0.75};
  if (s == "smaller") return CssFontSize{true, 1 / 1.2};
  if (s == "larger") return CssFontSize{true, 1.2};
  std::size_t used = 0;
  std::optional<double> value = number(s, &used);
  if (!value || *value < 0) return std::nullopt;
  std::string_view unit = s.substr(used);
  if (unit == "em" || unit == "rem") return CssFontSize{true, *value};
  if (unit == "%") return CssFontSize{true, *value / 100};
  if (std::optional<double> points = pointsPerUnit(unit))
    return CssFontSize{false, *value * *points};
  if (unit.empty() && *value == 0) return CssFontSize{false, 0};
  return std::nullopt;
}

std::optional<bool> parseWeight(std::string_view s) {
  if (s == "bold" || s == "bolder") return true;
  if (s == "normal" || s == "lighter") return false;
  std::size_t used = 0;
  std::optional<double> value = number(s, &used);
  if (!value || used != s.size()) return std::nullopt;
  return *value >= 600;
}

std::optional<std::u16string> urlValue(std::u16string_view value) {
  std::string lower = lowerAscii(value);
  std::size_t start = lower.find("url(");
  if (start == std::string::npos) return std::nullopt;
  std::size_t end = value.find(u')', start + 4);
  if (end == std::u16string_view::npos) return std::nullopt;
  std::u16string_view url = trim(value.substr(start + 4, end - start - 4));
  if (url.size() >= 2 && (url.front() == u'"' || url.front() == u'\'') && url.back() == url.front())
    url = url.substr(1, url.size() - 2);
  if (url.empty()) return std::nullopt;
  return std::u16string(url);
}

std::u16string familyName(std::u16string_view value) {
  std::u16string_view first = trim(splitTopLevel(value, u',').front());
  if (first.size() >= 2 && (first.front() == u'"' || first.front() == u'\'') &&
      first.back() == first.front()) {
    first = first.substr(1, first.size() - 2);
  }
  std::string lower = lowerAscii(first);
  if (lower == "monospace") return u"Courier";
  if (lower == "serif") return u"Times";
  if (lower == "sans-serif" || lower == "system-ui") return u"Helvetica";
  return std::u16string(first);
}

void applyDeclaration(CssDeclarations& d, std::string_view name, std::u16string_view value) {
  std::string lower = lowerAscii(value);
  if (name == "color") {
    if (auto color = parseCssColor(value)) d.color = color;
  } else if (name == "background-color") {
    if (auto color = parseCssColor(value)) d.backgroundColor = color;
  } else if (name == "background") {
    for (std::u16string_view word : words(value)) {
      if (auto color = parseCssColor(word)) d.backgroundColor = color;
    }
    if (auto url = urlValue(value)) d.backgroundImage = url;
  } else if (name == "background-image") {
    if (auto url = urlValue(value)) d.backgroundImage = url;
  } else if (name == "font-weight") {
    if (auto bold = parseWeight(lower)) d.bold = bold;
  } else if (name == "font-style") {
    if (lower == "italic" || lower.starts_with("oblique")) d.italic = true;
    if (lower == "normal") d.italic = false;
  } else if (name == "font-size") {
    if (auto size = parseFontSize(lower)) d.fontSize = size;
  } else if (name == "font-family") {
    std::u16string family = familyName(value);
    if (!family.empty()) d.fontFamily = std::move(family);
  } else if (name == "text-align") {
    if (lower == "left" || lower == "start") d.textAlign = TextAlignment::kLeft;
    if (lower == "right" || lower == "end") d.textAlign = TextAlignment::kRight;
    if (lower == "center") d.textAlign = TextAlignment::kCenter;
    if (lower == "justify") d.textAlign = TextAlignment::kJustified;
  } else if (name == "text-decoration" || name == "text-decoration-line") {
    for (std::u16string_view word : words(value)) {
      std::string w = lowerAscii(word);
      if (w == "underline") d.underline = true;
      if (w == "line-through") d.strikethrough = true;
      if (w == "none") d.underline = d.strikethrough = false;
    }
  }
}

}  // namespace

void CssDeclarations::merge(const CssDeclarations& o) {
  if (o.color) color = o.color;
  if (o.backgroundColor) backgroundColor = o.backgroundColor;
  if (o.bold) bold = o.bold;
  if (o.italic) italic = o.italic;
  if (o.fontSize) fontSize = o.fontSize;
  if (o.fontFamily) fontFamily = o.fontFamily;
  if (o.textAlign) textAlign = o.textAlign;
  if (o.underline) underline = o.underline;
  if (o.strikethrough) strikethrough = o.strikethrough;
  if (o.backgroundImage) backgroundImage = o.backgroundImage;
}

bool CssDeclarations::empty() const {
  return *this == CssDeclarations();
}

std::optional<Color> parseCssColor(std::u16string_view value) {
  std::string s = lowerAscii(trim(value));
  if (s.empty()) return std::nullopt;
  if (s.front() == '#') return hexColor(std::string_view(s).substr(1));
  if (s.starts_with("rgb(") || s.starts_with("rgba(")) return functionalColor(s);
  for (const NamedColor& named : kNamedColors)
    if (s == named.name) return Color{named.r, named.g, named.b};
  return std::nullopt;
}

CssDeclarations parseCssDeclarations(std::u16string_view text) {
  CssDeclarations d;
  std::u16string clean;
  if (text.find(u"/*") != std::u16string_view::npos) {
    clean = withoutComments(text);
    text = clean;
  }
  for (std::u16string_view declaration : splitTopLevel(text, u';')) {
    std::size_t colon = declaration.find(u':');
    if (colon == std::u16string_view::npos) continue;
    std::string name = lowerAscii(trim(declaration.substr(0, colon)));
    std::u16string_view value = trim(declaration.substr(colon + 1));
    std::string lower = lowerAscii(value);
    std::size_t important = lower.rfind("!important");
    if (important != std::string::npos) value = trim(value.substr(0, important));
    if (!value.empty()) applyDeclaration(d, name, value);
  }
  return d;
}

void CssStyleSheet::addRules(std::u16string_view text) {
  const std::u16string s = withoutComments(text);
  std::size_t i = 0;
  const std::size_t n = s.size();
  // The end of a block opened just before `from`: past its matching "}", or the text's end.
  auto skipBlock = [&](std::size_t from) {
    int depth = 1;
    char16_t quote = 0;
    for (; from < n && depth > 0; ++from) {
      char16_t c = s[from];
      if (quote) {
        if (c == quote) quote = 0;
      } else if (c == u'"' || c == u'\'') {
        quote = c;
      } else if (c == u'{') {
        ++depth;
      } else if (c == u'}') {
        --depth;
      }
    }
    return from;
  };
  while (i < n && rules_.size() < kMaxRules) {
    while (i < n && (isSpace(s[i]) || s[i] == u'}' || s[i] == u';'))
      ++i;
    if (i >= n) break;
    std::size_t brace = s.find(u'{', i);
    if (s[i] == u'@') {
      std::size_t semicolon = s.find(u';', i);
      if (semicolon != std::u16string::npos &&
          (brace == std::u16string::npos || semicolon < brace)) {
        i = semicolon + 1;
      } else {
        i = brace == std::u16string::npos ? n : skipBlock(brace + 1);
      }
      continue;
    }
    if (brace == std::u16string::npos) break;
    std::u16string_view prelude(s.data() + i, brace - i);
    std::size_t end = skipBlock(brace + 1);
    std::u16string_view body(s.data() + brace + 1,
                             (end > brace + 1 ? end - 1 : brace + 1) - brace - 1);
    i = end;
    CssDeclarations declarations = parseCssDeclarations(body);
    if (declarations.empty()) continue;
    std::size_t index = declarations_.size();
    bool used = false;
    for (std::u16string_view part : splitTopLevel(prelude, u',')) {
      part = trim(part);
      if (part.empty()) continue;
      Selector selector;
      bool supported = true;
      std::size_t k = 0;
      if (part[0] == u'*') {
        k = 1;
      } else {
        while (k < part.size() && isIdentCharacter(part[k]))
          ++k;
        selector.element = lowerString(part.substr(0, k));
        if (k > 0) selector.specificity += 1;
      }
      while (supported && k < part.size()) {
        char16_t kind = part[k++];
        std::size_t start = k;
        while (k < part.size() && isIdentCharacter(part[k]))
          ++k;
        if ((kind != u'.' && kind != u'#') || k == start) {
          supported = false;
        } else if (kind == u'#') {
          selector.id = std::u16string(part.substr(start, k - start));
          selector.specificity += 100;
        } else {
          selector.classes.emplace_back(part.substr(start, k - start));
          selector.specificity += 10;
        }
      }
      if (!supported || rules_.size() >= kMaxRules) continue;
      if (!used) declarations_.push_back(declarations);
      used = true;
      addRule(std::move(selector), index);
    }
  }
}

void CssStyleSheet::addRule(Selector selector, std::size_t declarations) {
  std::size_t index = rules_.size();
  if (!selector.id.empty()) {
    byId_[selector.id].push_back(index);
  } else if (!selector.classes.empty()) {
    byClass_[selector.classes.front()].push_back(index);
  } else if (!selector.element.empty()) {
    byElement_[selector.element].push_back(index);
  } else {
    universal_.push_back(index);
  }
  rules_.push_back({std::move(selector), declarations, index});
}

CssDeclarations CssStyleSheet::match(std::u16string_view element, std::u16string_view classes,
                                     std::u16string_view id) const {
  CssDeclarations result;
  if (rules_.empty()) return result;
  std::vector<std::u16string_view> classList;
  for (std::u16string_view name : words(classes))
    classList.push_back(name);
  std::vector<std::size_t> candidates(universal_);
  auto add = [&](const auto& map, std::u16string_view key) {
    if (key.empty()) return;
    auto found = map.find(std::u16string(key));
    if (found != map.end())
      candidates.insert(candidates.end(), found->second.begin(), found->second.end());
  };
  add(byId_, trim(id));
  for (std::u16string_view name : classList)
    add(byClass_, name);
  add(byElement_, element);
  std::sort(candidates.begin(), candidates.end());
  candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
  std::vector<const Rule*> matched;
  for (std::size_t index : candidates) {
    const Rule& rule = rules_[index];
    const Selector& s = rule.selector;
    if (!s.element.empty() && s.element != element) continue;
    if (!s.id.empty() && s.id != trim(id)) continue;
    bool all = std::all_of(s.classes.begin(), s.classes.end(), [&](const std::u16string& c) {
      return std::find(classList.begin(), classList.end(), c) != classList.end();
    });
    if (all) matched.push_back(&rule);
  }
  std::stable_sort(matched.begin(), matched.end(), [](const Rule* a, const Rule* b) {
    return a->selector.specificity < b->selector.specificity;
  });
  for (const Rule* rule : matched)
    result.merge(declarations_[rule->declarations]);
  return result;
}

}  // namespace ferncast
