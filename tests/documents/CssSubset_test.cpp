#include "webcontent/documents/CssSubset.h"

#include <gtest/gtest.h>

namespace ferncast {
namespace {

TEST(CssColors, NamesHexAndFunctions) {
  struct Case {
    const char16_t* value;
    std::optional<Color> color;
  } cases[] = {
      {u"red", Color{255, 0, 0}},
      {u" Navy ", Color{0, 0, 128}},
      {u"#0f8", Color{0, 255, 136}},
      {u"#00FF88", Color{0, 255, 136}},
      {u"#00ff8880", Color{0, 255, 136}},  // alpha ignored
      {u"rgb(1, 2, 3)", Color{1, 2, 3}},
      {u"rgba(1 2 3 / 50%)", Color{1, 2, 3}},
      {u"rgb(100%, 0%, 50%)", Color{255, 0, 128}},
      {u"rgb(300, -5, 0)", Color{255, 0, 0}},  // clamped
      {u"#12", std::nullopt},
      {u"#ggg", std::nullopt},
      {u"rgb(1, 2)", std::nullopt},
      {u"rgb(1, 2, 3", std::nullopt},
      {u"transparent", std::nullopt},
      {u"", std::nullopt},
  };
  for (const Case& c : cases)
    EXPECT_EQ(parseCssColor(c.value), c.color) << std::u16string(c.value).size();
}

TEST(CssDeclarations, PropertiesThatMapAndThoseThatDoNot) {
  CssDeclarations d = parseCssDeclarations(
      u"color: #f00; BACKGROUND: url('a b.png') white no-repeat; font-weight: 700;"
      u"font-style: oblique 10deg; font-size: 150%; font-family: 'Fira Sans', serif;"
      u"text-align: center; text-decoration: underline line-through; margin: 4px;"
      u"/* a comment; color: blue */ font-weight: bold !important; width: 3px");
  EXPECT_EQ(d.color, (Color{255, 0, 0}));
  EXPECT_EQ(d.backgroundColor, (Color{255, 255, 255}));
  EXPECT_EQ(d.backgroundImage, u"a b.png");
  EXPECT_EQ(d.bold, true);
  EXPECT_EQ(d.italic, true);
  EXPECT_EQ(d.fontSize, (CssFontSize{true, 1.5}));
  EXPECT_EQ(d.fontFamily, u"Fira Sans");
  EXPECT_EQ(d.textAlign, TextAlignment::kCenter);
  EXPECT_EQ(d.underline, true);
  EXPECT_EQ(d.strikethrough, true);

  struct SizeCase {
    const char16_t* value;
    std::optional<CssFontSize> size;
  } sizes[] = {
      {u"16px", CssFontSize{false, 12}},
      {u"10pt", CssFontSize{false, 10}},
      {u"2em", CssFontSize{true, 2}},
      {u"x-large", CssFontSize{false, 18}},
      {u"1in", CssFontSize{false, 72}},
      {u"-3px", std::nullopt},
      {u"12", std::nullopt},
      {u"big", std::nullopt},
  };
  for (const SizeCase& c : sizes)
    EXPECT_EQ(parseCssDeclarations(u"font-size:" + std::u16string(c.value)).fontSize, c.size);
  EXPECT_TRUE(parseCssDeclarations(u"margin: 0; color: nonsense; font-weight: 12x").empty());
  EXPECT_EQ(parseCssDeclarations(u"text-decoration: none").underline, false);
  EXPECT_TRUE(parseCssDeclarations(u"display: none; visibility: hidden").empty());
}

TEST(CssStyleSheet, SimpleSelectorsCascadeBySpecificityThenOrder) {
  CssStyleSheet sheet;
  sheet.addRules(
      u"@import url(x.css);\n"
      u"@media print { p { color: red } }\n"
      u"p { color: #000001; font-weight: bold }\n"
      u"p.note, .warn { color: #000002 }\n"
      u".note { color: #000003 }\n"  // less specific than p.note, though later
      u"#main { color: #000004 }\n"
      u"div p { color: #000005 }\n"    // descendant combinator: skipped
      u"a:hover { color: #000006 }\n"  // pseudo-class: skipped
      u"* { font-style: italic }\n"
      u"h1 { }\n");
  struct Case {
    const char16_t* element;
    const char16_t* classes;
    const char16_t* id;
    std::optional<Color> color;
  } cases[] = {
      {u"p", u"", u"", Color{0, 0, 1}},         {u"p", u"x note", u"", Color{0, 0, 2}},
      {u"span", u"note", u"", Color{0, 0, 3}},  {u"span", u"warn", u"", Color{0, 0, 2}},
      {u"p", u"note", u"main", Color{0, 0, 4}}, {u"a", u"", u"", std::nullopt},
      {u"p", u"NOTE", u"", Color{0, 0, 1}},  // class names keep their case
  };
  for (const Case& c : cases) {
    CssDeclarations d = sheet.match(c.element, c.classes, c.id);
    EXPECT_EQ(d.color, c.color) << std::u16string(c.element).size();
    EXPECT_EQ(d.italic, true);
  }
  EXPECT_EQ(sheet.match(u"p", u"", u"").bold, true);
}

TEST(CssStyleSheet, BrokenSheetsKeepWhatParses) {
  CssStyleSheet sheet;
  sheet.addRules(u"p { color: red } } } em { font-weight: bold ");  // stray braces, no close
  sheet.addRules(u"/* unterminated comment p { color: blue }");
  sheet.addRules(u"@media screen { div { color: blue }");
  EXPECT_EQ(sheet.match(u"p", u"", u"").color, (Color{255, 0, 0}));
  EXPECT_EQ(sheet.match(u"em", u"", u"").bold, true);
  EXPECT_FALSE(sheet.match(u"div", u"", u"").color);
}

}  // namespace
}  // namespace ferncast
