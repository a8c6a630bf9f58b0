// Attributed strings: runs stay maximal, restyling splits and merges them, hostile numbers of
// distinct attributes stay bounded.
#include "webcontent/documents/AttributedString.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace ferncast;

Attributes bold() {
  Attributes a;
  a.font.bold = true;
  return a;
}

// (location, length, bold) of every run.
std::vector<std::tuple<std::size_t, std::size_t, bool>> runs(const AttributedString& s) {
  std::vector<std::tuple<std::size_t, std::size_t, bool>> result;
  for (std::size_t i = 0; i < s.runCount(); ++i) {
    const AttributedString::Run r = s.run(i);
    result.emplace_back(r.location, r.length, r.attributes.font.bold);
  }
  return result;
}

TEST(AttributedString, EqualNeighboursShareOneRunAndEmptyTextAddsNone) {
  AttributedString s;
  s.append(u"ab", {});
  s.append(u"", bold());
  s.append(u"cd", {});
  s.append(u"ef", bold());
  s.append(u"g", bold());
  EXPECT_EQ(s.string(), u"abcdefg");
  using Runs = decltype(runs(s));
  EXPECT_EQ(runs(s), (Runs{{0, 4, false}, {4, 3, true}}));
  std::size_t runIndex = 9;
  EXPECT_TRUE(s.attributesAtIndex(6, &runIndex).font.bold);
  EXPECT_EQ(runIndex, 1u);
  EXPECT_FALSE(s.attributesAtIndex(3).font.bold);
}

TEST(AttributedString, RestylingSplitsRunsAtTheRangeAndMergesEqualNeighbours) {
  AttributedString s;
  s.append(u"one\n", {});
  s.append(u"two\n", bold());
  s.append(u"three", {});
  ParagraphStyle centred;
  centred.alignment = TextAlignment::kCenter;
  s.setParagraphStyle(2, 4, centred);  // "e\ntw"
  using Runs = decltype(runs(s));
  EXPECT_EQ(runs(s),
            (Runs{{0, 2, false}, {2, 2, false}, {4, 2, true}, {6, 2, true}, {8, 5, false}}));
  EXPECT_EQ(s.attributesAtIndex(3).paragraphStyle.alignment, TextAlignment::kCenter);
  EXPECT_EQ(s.attributesAtIndex(6).paragraphStyle.alignment, TextAlignment::kNatural);

  // Restyling everything back makes equal neighbours one run again.
  s.setParagraphStyle(0, 100, ParagraphStyle());
  EXPECT_EQ(runs(s), (Runs{{0, 4, false}, {4, 4, true}, {8, 5, false}}));
}

TEST(AttributedString, DistinctAttributesPastTheLimitTakeThePreviousRunsAttributes) {
  AttributedString s;
  Attributes a;
  const std::size_t n = AttributedString::kMaxDistinctAttributes + 100;
  for (std::size_t i = 0; i < n; ++i) {
    a.font.pointSize = 1 + static_cast<double>(i);
    s.append(u"x", a);
  }
  EXPECT_EQ(s.length(), n);
  EXPECT_EQ(s.runCount(), AttributedString::kMaxDistinctAttributes);
  EXPECT_EQ(s.attributesAtIndex(n - 1).font.pointSize,
            static_cast<double>(AttributedString::kMaxDistinctAttributes));
}

TEST(AttributedString, EqualityLooksAtAttributesPerCharacterAndAtAttachmentContents) {
  AttributedString a, b;
  a.append(u"ab", bold());
  b.append(u"a", bold());
  b.append(u"b", bold());
  EXPECT_EQ(a, b);
  b.append(u"c", {});
  a.append(u"c", bold());
  EXPECT_FALSE(a == b);

  AttributedString x, y;
  x.appendAttachment({std::make_shared<FileWrapper>(FileWrapper::regularFile({1, 2}, u"p.png"))},
                     {});
  y.appendAttachment({std::make_shared<FileWrapper>(FileWrapper::regularFile({1, 2}, u"p.png"))},
                     {});
  EXPECT_EQ(x, y);
  EXPECT_EQ(x.string(), std::u16string(1, kAttachmentCharacter));
  AttributedString z;
  z.appendAttachment({std::make_shared<FileWrapper>(FileWrapper::regularFile({1, 3}, u"p.png"))},
                     {});
  EXPECT_FALSE(x == z);
}

TEST(AttributedString, ParagraphRangeEndsAfterItsSeparator) {
  struct Row {
    std::u16string_view text;
    std::size_t index;
    Range expected;
  } rows[] = {
      {u"ab\ncd", 1, {0, 3}},     {u"ab\ncd", 3, {3, 2}}, {u"ab\r\ncd", 0, {0, 4}},
      {u"ab\u2029cd", 4, {3, 2}}, {u"", 0, {0, 0}},       {u"ab\n", 3, {3, 0}},
      {u"a\rb", 0, {0, 2}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(paragraphRangeAt(row.text, row.index), row.expected)
        << std::string(row.text.begin(), row.text.end()) << " at " << row.index;
  }
}

}  // namespace
