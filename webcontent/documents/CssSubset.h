// The part of CSS that the HTML reader maps to rich text: declarations of style attributes and
// the rules of a page's <style> elements.
//
// Properties read: color, background-color, background (its colour and url()), background-image,
// font-weight, font-style, font-size, font-family, text-align and text-decoration (and
// text-decoration-line). Everything else is skipped, display and visibility too (the reader lays
// out the text of every element, as the plain text of a page has it), and so is a value that
// does not parse. Colours: the usual names, "#rgb", "#rrggbb" (alpha digits
// ignored), rgb() and rgba(). Sizes: px (0.75 pt each), pt, pc, in, cm, mm, em, rem, %, and the
// keywords xx-small to xx-large, smaller and larger.
//
// Selectors: an element name, ".class", "#id", their compounds ("p.note", "div#main.wide"),
// "*", and lists of these ("h1, h2"). Rules whose selectors use combinators, attributes or
// pseudo-classes are skipped, and so are at-rules (@media, @import, ...) with their blocks. Later
// and more specific rules win as in CSS; "!important" is ignored.
//
// Pure functions and plain values; any thread. Linear in the text; a style sheet keeps at most
// kMaxRules rules.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "webcontent/documents/AttributedString.h"

namespace ferncast {

// A font size: absolute in points, or relative to the parent's size.
struct CssFontSize {
  bool relative = false;
  double value = 0;  // points, or the factor
  bool operator==(const CssFontSize&) const = default;
};

// What the declarations set; unset values inherit or keep their defaults.
struct CssDeclarations {
  std::optional<Color> color;
  std::optional<Color> backgroundColor;
  std::optional<bool> bold;
  std::optional<bool> italic;
  std::optional<CssFontSize> fontSize;
  std::optional<std::u16string> fontFamily;  // the first family named
  std::optional<TextAlignment> textAlign;
  std::optional<bool> underline;
  std::optional<bool> strikethrough;
  std::optional<std::u16string> backgroundImage;  // the url() as written

  // Takes over every value that `other` sets.
  void merge(const CssDeclarations& other);
  bool empty() const;
  bool operator==(const CssDeclarations&) const = default;
};

// "color: red; font-weight: bold".
CssDeclarations parseCssDeclarations(std::u16string_view text);

// A colour value ("red", "#f00", "rgb(255, 0, 0)"); nullopt when it is none of the above.
std::optional<Color> parseCssColor(std::u16string_view value);

class CssStyleSheet {
 public:
  static constexpr std::size_t kMaxRules = 20000;

  // Adds the rules of a style sheet's text (a <style> element's content).
  void addRules(std::u16string_view text);
  bool empty() const { return rules_.empty(); }
  std::size_t ruleCount() const { return rules_.size(); }

  // The declarations of the rules that match an element, cascaded. `element` is the name in
  // lower case; `classes` the CLASS attribute as written (names separated by white space);
  // `id` the ID attribute.
  CssDeclarations match(std::u16string_view element, std::u16string_view classes,
                        std::u16string_view id) const;

 private:
  struct Selector {
    std::u16string element;  // lower case; empty for any
    std::u16string id;
    std::vector<std::u16string> classes;
    int specificity = 0;
  };
  struct Rule {
    Selector selector;
    std::size_t declarations;  // index into declarations_
    std::size_t order;
  };
  void addRule(Selector selector, std::size_t declarations);

  std::vector<CssDeclarations> declarations_;
  std::vector<Rule> rules_;
  // Rules by the most specific part of their selector; `universal_` for "*" alone.
  std::unordered_map<std::u16string, std::vector<std::size_t>> byId_, byClass_, byElement_;
  std::vector<std::size_t> universal_;
};

}  // namespace ferncast
