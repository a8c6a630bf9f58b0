// The budgeted page loop: its stopping rule on a fake clock, the per-page clean-up, and real
// documents with a page too slow for the budget.
#include "imaging/PDFDocument+Conversion.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/imaging/MediaTestFiles.h"

namespace ferncast {
namespace {

using namespace media_test;
using std::chrono::steady_clock;

// Pages whose texts are given and whose reading moves a fake clock on by their cost in seconds.
struct FakePages {
  std::vector<std::optional<std::u16string>> texts;
  std::vector<double> costs;  // seconds per page; the last one repeats
  steady_clock::time_point clock{};
  std::vector<std::size_t> read;
  std::vector<PDFDocument::Deadline> deadlines;

  PageTextSource source() {
    PageTextSource source;
    source.pageCount = texts.size();
    source.now = [this] { return clock; };
    source.pageText = [this](std::size_t index, PDFDocument::Deadline deadline) {
      read.push_back(index);
      deadlines.push_back(deadline);
      const double cost = costs.empty() ? 0 : costs[std::min(index, costs.size() - 1)];
      clock +=
          std::chrono::duration_cast<steady_clock::duration>(std::chrono::duration<double>(cost));
      if (!texts[index]) throw std::runtime_error("unreadable page");
      return texts[index];
    };
    return source;
  }
};

FakePages pagesNamed(std::size_t count, double secondsEach) {
  FakePages pages;
  for (std::size_t i = 0; i < count; ++i)
    pages.texts.push_back(u"p" + std::u16string(1, u'0' + i));
  pages.costs = {secondsEach};
  return pages;
}

TEST(PDFTextBudget, PageTimeCountsTwiceSoTenSecondPagesStopAfterTheFifth) {
  // 50 s elapsed + 10 s for the fifth page reaches 60: a plain elapsed-time rule would read six.
  FakePages pages = pagesNamed(10, 10);
  EXPECT_EQ(fixedAndNormalizedStringUsingTimeout(pages.source(), 60), u"p0\np1\np2\np3\np4\n");
  EXPECT_EQ(pages.read.size(), 5u);
}

TEST(PDFTextBudget, StopsWhenTheSumReachesTheBudgetExactly) {
  FakePages pages = pagesNamed(10, 1);
  // After page 0: 1 + 1 < 3; after page 1: 2 + 1 >= 3.
  EXPECT_EQ(fixedAndNormalizedStringUsingTimeout(pages.source(), 3), u"p0\np1\n");
}

TEST(PDFTextBudget, NoBudgetReadsEveryPageHoweverSlow) {
  for (double budget : {0.0, -5.0}) {
    FakePages pages = pagesNamed(6, 1000);
    EXPECT_EQ(fixedAndNormalizedStringUsingTimeout(pages.source(), budget),
              u"p0\np1\np2\np3\np4\np5\n");
    for (const auto& deadline : pages.deadlines)
      EXPECT_FALSE(deadline);
  }
}

TEST(PDFTextBudget, FirstPageIsReadWholeEvenWhenLongerThanTheBudget) {
  FakePages pages = pagesNamed(3, 30);
  EXPECT_EQ(fixedAndNormalizedStringUsingTimeout(pages.source(), 1), u"p0\n");
  ASSERT_EQ(pages.deadlines.size(), 1u);
  // Pages may run until the budget plus the overrun margin, counted from the start.
  EXPECT_EQ(pages.deadlines[0],
            steady_clock::time_point{} + std::chrono::seconds(1) + kPageOverrun);
}

TEST(PDFTextBudget, EmptyAndFailingPagesAddNothingNotEvenALineFeed) {
  FakePages pages;
  pages.texts = {u"first", u"", std::nullopt, u"fourth"};
  EXPECT_EQ(fixedAndNormalizedStringUsingTimeout(pages.source(), 0), u"first\nfourth\n");
  EXPECT_EQ(pages.read.size(), 4u);  // the failing page did not end the loop
}

TEST(PDFTextBudget, NoPagesIsNilButPagesWithoutTextAreEmpty) {
  FakePages none;
  EXPECT_EQ(fixedAndNormalizedStringUsingTimeout(none.source(), 60), std::nullopt);
  FakePages blank;
  blank.texts = {u"", u""};
  EXPECT_EQ(fixedAndNormalizedStringUsingTimeout(blank.source(), 60), u"");
}

TEST(PDFTextBudget, EachPageIsFixedAndNormalized) {
  FakePages pages;
  pages.texts = {std::u16string(u"a\0b", 3), u"x\U0001F600y", u"cafe\u0301", u"\uF500z"};
  EXPECT_EQ(fixedAndNormalizedStringUsingTimeout(pages.source(), 0), u"a b\nx  y\ncaf\u00E9\n z\n");
}

constexpr const char kThreePagesWithEmptyMiddle[] = R"(%!PS
/Times-Roman findfont 12 scalefont setfont
72 700 moveto (Alpha page.) show showpage
showpage
72 700 moveto (Gamma page.) show showpage
)";

TEST(PDFTextBudget, RealDocumentWithAnEmptyMiddlePage) {
  const fs::path path = ghostscriptPDF("empty_middle", kThreePagesWithEmptyMiddle);
  ASSERT_FALSE(path.empty()) << "gs could not make the test file";
  auto document = PDFDocument::openFile(path.string());
  ASSERT_TRUE(document);
  EXPECT_EQ(fixedAndNormalizedString(*document), u"Alpha page.\nGamma page.\n");
  // A budget far below any page's time still gives the whole first page.
  EXPECT_EQ(fixedAndNormalizedStringUsingTimeout(*document, 1e-9), u"Alpha page.\n");
}

TEST(PDFTextBudget, HostilePageIsAbandonedAtTheBudgetPlusTheMargin) {
  // Page 1 reads at once; page 2 draws 10^8 paths through nested forms and would take minutes.
  std::vector<std::string> objects = {
      "<< /Type /Catalog /Pages 2 0 R >>",
      "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 /MediaBox [0 0 200 200] >>",
      "<< /Type /Page /Parent 2 0 R /Contents 5 0 R /Resources << /Font << /F1 6 0 R >> >> >>",
      "<< /Type /Page /Parent 2 0 R /Contents 7 0 R /Resources << /XObject << /F 8 0 R >> >> >>",
      streamObject("BT /F1 12 Tf 10 100 Td (Quick page) Tj ET"),
      "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>",
      streamObject("/F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do"),
  };
  for (int level = 0; level < 8; ++level) {
    const bool leaf = level == 7;
    const std::string next = std::to_string(objects.size() + 2);
    objects.push_back(streamObject(
        leaf ? "0 0 m 1 1 l S 0 0 m 1 1 l S 0 0 m 1 1 l S 0 0 m 1 1 l S"
             : "/F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do",
        " /Type /XObject /Subtype /Form /BBox [0 0 1 1]" +
            (leaf ? std::string() : " /Resources << /XObject << /F " + next + " 0 R >> >>")));
  }
  auto document = PDFDocument::open(bytesOf(handmadePDF(objects)));
  ASSERT_TRUE(document);
  const auto start = steady_clock::now();
  EXPECT_EQ(fixedAndNormalizedStringUsingTimeout(*document, 0.2), u"Quick page\n");
  // 0.2 s + the one-second margin, with room for a loaded machine.
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace ferncast
