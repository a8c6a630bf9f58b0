// PDFDocument over MuPDF: attributes, locked files, media boxes, page text, runs, rendering, and
// files that are damaged or hostile.
#include "imaging/PDFDocument.h"

#include <gtest/gtest.h>

#include <chrono>

#include "tests/imaging/MediaTestFiles.h"

namespace ferncast {
namespace {

using namespace media_test;

// Three 400 × 300 pages: text, nothing, text; with a full document information dictionary.
// "\256" is the fi ligature in the standard encoding.
constexpr const char kThreePages[] = R"(%!PS
<< /PageSize [400 300] >> setpagedevice
[ /Title (Three Pages) /Author (Ferncast Tests) /Subject (Subject line)
  /Keywords (alpha, beta;gamma ,, ) /Creator (handmade) /DOCINFO pdfmark
/Times-Roman findfont 12 scalefont setfont
72 200 moveto (First page text.) show
72 180 moveto (\256nd the ligature.) show
showpage
showpage
/Helvetica-Bold findfont 14 scalefont setfont
72 200 moveto (Third page.) show
showpage
)";

std::unique_ptr<PDFDocument> openPath(const fs::path& path) {
  if (path.empty()) return nullptr;
  return PDFDocument::open(bytesOf(readFile(path)));
}

const fs::path& threePagesPDF() {
  static const fs::path path = ghostscriptPDF("three_pages", kThreePages);
  return path;
}

// A user-password copy (locked) and an owner-password-only copy (readable) made by qpdf.
fs::path encryptedCopy(const std::string& name, const std::string& userPassword) {
  const fs::path out = testFolder() / (name + ".pdf");
  if (!fs::exists(out) && !runTool({"qpdf", "--encrypt", userPassword, "owner-secret", "256", "--",
                                    threePagesPDF().string(), out.string()})) {
    return {};
  }
  return out;
}

double secondsOf(int year, int month, int day, int hour, int minute, int second) {
  std::tm parts{};
  parts.tm_year = year - 1900;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_hour = hour;
  parts.tm_min = minute;
  parts.tm_sec = second;
  return static_cast<double>(timegm(&parts));
}

TEST(PDFDateString, ReadsBothZoneFormsAndMissingParts) {
  const struct {
    const char* text;
    double expected;
  } rows[] = {
      {"D:20200102030405+01'00'", secondsOf(2020, 1, 2, 2, 4, 5)},
      {"D:20200102030405-05'30'", secondsOf(2020, 1, 2, 8, 34, 5)},
      {"D:20200102030405Z00'00'", secondsOf(2020, 1, 2, 3, 4, 5)},  // Ghostscript
      {"D:20200102030405Z", secondsOf(2020, 1, 2, 3, 4, 5)},
      {"D:20200102030405+0100", secondsOf(2020, 1, 2, 2, 4, 5)},  // no apostrophe
      {"20200102030405", secondsOf(2020, 1, 2, 3, 4, 5)},         // no "D:", no zone: UTC
      {"D:2020", secondsOf(2020, 1, 1, 0, 0, 0)},
      {"D:202007", secondsOf(2020, 7, 1, 0, 0, 0)},
      {"D:19691231235959Z", -1},  // before 1970
  };
  for (const auto& row : rows) {
    const auto date = dateFromPDFDateString(row.text);
    ASSERT_TRUE(date) << row.text;
    EXPECT_EQ(date->secondsSince1970, row.expected) << row.text;
  }
}

TEST(PDFDateString, RefusesWhatIsNoDate) {
  for (const char* text : {"", "D:", "D:20", "garbage", "D:20201302", "D:20200132",
                           "D:20200101250000", "D:20200101000000+25'00'"}) {
    EXPECT_FALSE(dateFromPDFDateString(text)) << text;
  }
}

TEST(PDFDocument, GhostscriptDocumentGivesItsAttributesAndPages) {
  auto document = openPath(threePagesPDF());
  ASSERT_TRUE(document) << "gs could not make the test file";
  EXPECT_EQ(document->pageCount(), 3);
  EXPECT_FALSE(document->isLocked());
  const Dictionary attributes = document->documentAttributes();
  EXPECT_EQ(attributes.at(kPDFTitleAttribute), Value(u"Three Pages"));
  EXPECT_EQ(attributes.at(kPDFAuthorAttribute), Value(u"Ferncast Tests"));
  EXPECT_EQ(attributes.at(kPDFSubjectAttribute), Value(u"Subject line"));
  EXPECT_EQ(attributes.at(kPDFCreatorAttribute), Value(u"handmade"));
  const auto* producer = attributes.at(kPDFProducerAttribute).as<std::u16string>();
  ASSERT_TRUE(producer);
  EXPECT_NE(producer->find(u"Ghostscript"), std::u16string::npos);
  // Empty keywords between separators are dropped, spaces around them trimmed.
  EXPECT_EQ(attributes.at(kPDFKeywordsAttribute), Value(Array{u"alpha", u"beta", u"gamma"}));
  // Ghostscript writes its dates as "…Z00'00'".
  EXPECT_TRUE(attributes.at(kPDFCreationDateAttribute).is<Date>());
  EXPECT_TRUE(attributes.at(kPDFModificationDateAttribute).is<Date>());

  EXPECT_EQ(document->mediaBox(0), (PDFRect{0, 0, 400, 300}));
  EXPECT_EQ(document->pageString(0), u"First page text.\nfind the ligature.");
  EXPECT_EQ(document->pageString(1), u"");
  EXPECT_EQ(document->pageString(2), u"Third page.");
  EXPECT_EQ(document->pageString(3), std::nullopt);
  EXPECT_EQ(document->pageString(-1), std::nullopt);
  EXPECT_EQ(document->mediaBox(3), std::nullopt);
}

TEST(PDFDocument, OpensFilesAsWellAsBytes) {
  ASSERT_FALSE(threePagesPDF().empty());
  auto document = PDFDocument::openFile(threePagesPDF().string());
  ASSERT_TRUE(document);
  EXPECT_EQ(document->pageCount(), 3);
  EXPECT_FALSE(PDFDocument::openFile((testFolder() / "missing.pdf").string()));
}

TEST(PDFDocument, GroffDocumentNamesItsProducer) {
  auto document = openPath(groffPDF("groff", "Hello groff world.\n.bp\nSecond page.\n"));
  ASSERT_TRUE(document) << "groff could not make the test file";
  EXPECT_EQ(document->pageCount(), 2);
  const Dictionary attributes = document->documentAttributes();
  const auto* producer = attributes.at(kPDFProducerAttribute).as<std::u16string>();
  ASSERT_TRUE(producer);
  EXPECT_EQ(producer->rfind(u"gropdf", 0), 0u);
  EXPECT_TRUE(attributes.at(kPDFCreationDateAttribute).is<Date>());  // "…+00'00'"
  EXPECT_EQ(document->pageString(0), u"Hello groff world.");
}

TEST(PDFDocument, UserPasswordLocksTextAndStringAttributesButNotThePageCount) {
  auto locked = openPath(encryptedCopy("user_password", "user-secret"));
  ASSERT_TRUE(locked) << "qpdf could not make the test file";
  EXPECT_TRUE(locked->isLocked());
  EXPECT_EQ(locked->pageCount(), 3);
  EXPECT_TRUE(locked->documentAttributes().empty());
  EXPECT_EQ(locked->textRuns(), std::nullopt);

  auto ownerOnly = openPath(encryptedCopy("owner_password", ""));
  ASSERT_TRUE(ownerOnly);
  EXPECT_FALSE(ownerOnly->isLocked());
  EXPECT_EQ(ownerOnly->documentAttributes().at(kPDFTitleAttribute), Value(u"Three Pages"));
  EXPECT_EQ(ownerOnly->pageString(2), u"Third page.");
}

TEST(PDFDocument, TextRunsCarryFontsSizesAndStyles) {
  auto document = openPath(threePagesPDF());
  ASSERT_TRUE(document);
  const auto runs = document->textRuns();
  ASSERT_TRUE(runs);
  ASSERT_EQ(runs->size(), 2u);
  EXPECT_EQ((*runs)[0].text, u"First page text.\nfind the ligature.\n");
  EXPECT_EQ((*runs)[0].fontFamily, "Times");
  EXPECT_EQ((*runs)[0].fontSize, 12);
  EXPECT_FALSE((*runs)[0].bold);
  EXPECT_EQ((*runs)[1].text, u"Third page.\n");
  EXPECT_EQ((*runs)[1].fontName, "Helvetica-Bold");
  EXPECT_EQ((*runs)[1].fontFamily, "Helvetica");
  EXPECT_EQ((*runs)[1].fontSize, 14);
  EXPECT_TRUE((*runs)[1].bold);
  EXPECT_FALSE((*runs)[1].italic);
}

// One page tree: the Pages node holds the MediaBox, the page only a CropBox and /Rotate 90.
// Its content fills the lower-left quarter of the crop box with black.
std::string inheritedMediaBoxPDF() {
  return handmadePDF({
      "<< /Type /Catalog /Pages 2 0 R >>",
      "<< /Type /Pages /Kids [3 0 R] /Count 1 /MediaBox [0 0 300 400] >>",
      "<< /Type /Page /Parent 2 0 R /CropBox [0 0 200 100] /Contents 4 0 R >>",
      streamObject("0 g 0 0 100 50 re f"),
  });
}

TEST(PDFDocument, MediaBoxIsInheritedAndNotTheCropBox) {
  auto document = PDFDocument::open(bytesOf(inheritedMediaBoxPDF()));
  ASSERT_TRUE(document);
  EXPECT_EQ(document->mediaBox(0), (PDFRect{0, 0, 300, 400}));
  EXPECT_EQ(document->pageBounds(0), (PDFRect{0, 0, 200, 100}));

  // No MediaBox anywhere: US Letter, as MuPDF draws it.
  auto bare = PDFDocument::open(bytesOf(handmadePDF({
      "<< /Type /Catalog /Pages 2 0 R >>",
      "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
      "<< /Type /Page /Parent 2 0 R >>",
  })));
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->mediaBox(0), (PDFRect{0, 0, 612, 792}));
}

TEST(PDFDocument, RendersTheCropBoxOntoWhiteStretchedToTheSize) {
  auto document = PDFDocument::open(bytesOf(inheritedMediaBoxPDF()));
  ASSERT_TRUE(document);
  const auto bitmap = document->renderPage(0, 40, 40);
  ASSERT_TRUE(bitmap);
  ASSERT_EQ(bitmap->rgb.size(), 40u * 40 * 3);
  auto pixel = [&](int x, int y) { return bitmap->rgb[(y * 40 + x) * 3]; };
  EXPECT_EQ(pixel(2, 38), 0);     // lower left: the black quarter
  EXPECT_EQ(pixel(37, 38), 255);  // lower right: white
  EXPECT_EQ(pixel(2, 2), 255);    // upper left: white
  EXPECT_EQ(pixel(18, 22), 0);    // just inside the quarter's corner
  EXPECT_EQ(pixel(22, 18), 255);  // just outside it

  EXPECT_FALSE(document->renderPage(1, 40, 40));
  EXPECT_FALSE(document->renderPage(0, 0, 40));
  EXPECT_FALSE(document->renderPage(0, 20000, 20000));  // above the pixel limit
}

// A page whose content draws a form 10 times, which draws the next form 10 times, eight levels
// deep: 10^8 paths from a file of a few hundred bytes.
std::string slowPagePDF() {
  std::vector<std::string> objects = {
      "<< /Type /Catalog /Pages 2 0 R >>",
      "<< /Type /Pages /Kids [3 0 R] /Count 1 /MediaBox [0 0 100 100] >>",
      "<< /Type /Page /Parent 2 0 R /Contents 4 0 R /Resources << /XObject << /F 5 0 R >> >> >>",
      streamObject("BT /Helv 1 Tf ET /F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do"),
  };
  constexpr int kLevels = 8;
  for (int level = 0; level < kLevels; ++level) {
    const int self = static_cast<int>(objects.size()) + 1;
    const std::string content =
        level + 1 < kLevels
            ? "/F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do /F Do"
            : "0 0 m 1 1 l S 0 0 m 1 1 l S 0 0 m 1 1 l S 0 0 m 1 1 l S 0 0 m 1 1 l S";
    const std::string resources = level + 1 < kLevels ? " /Resources << /XObject << /F " +
                                                            std::to_string(self + 1) + " 0 R >> >>"
                                                      : "";
    objects.push_back(
        streamObject(content, " /Type /XObject /Subtype /Form /BBox [0 0 100 100]" + resources));
  }
  return handmadePDF(objects);
}

TEST(PDFDocument, DeadlineAbandonsAPageThatRunsTooLong) {
  auto document = PDFDocument::open(bytesOf(slowPagePDF()));
  ASSERT_TRUE(document);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(document->pageString(0, start + std::chrono::milliseconds(50)), std::nullopt);
  EXPECT_FALSE(document->renderPage(0, 100, 100, start + std::chrono::milliseconds(100)));
  EXPECT_FALSE(document->textRuns(start + std::chrono::milliseconds(150)));
  // Generous: the page itself would take minutes.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  // A deadline already past runs nothing.
  EXPECT_EQ(document->pageString(0, start), std::nullopt);
}

TEST(PDFDocument, BadFilesGiveNullOrSmallerAnswersWithoutHanging) {
  const std::string good = readFile(threePagesPDF());
  ASSERT_FALSE(good.empty());
  const struct {
    const char* fault;
    std::string bytes;
  } rows[] = {
      {"no bytes", ""},
      {"not a PDF", "hello, world"},
      {"header only", "%PDF-1.7\n"},
      {"cut in half", good.substr(0, good.size() / 2)},
      {"cut before the trailer", good.substr(0, good.size() - 200)},
      {"cross-reference that points at itself",
       [] {
         std::string pdf = handmadePDF(
             {"<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [] /Count 0 >>"});
         const std::size_t at = pdf.rfind("startxref\n") + 10;
         const std::string offset = pdf.substr(at, pdf.find('\n', at) - at);
         pdf.replace(pdf.find("/Root 1 0 R"), 11, "/Root 1 0 R /Prev " + offset);
         return pdf;
       }()},
      {"page tree that contains itself",
       handmadePDF({"<< /Type /Catalog /Pages 2 0 R >>",
                    "<< /Type /Pages /Kids [2 0 R 3 0 R] /Count 2 >>",
                    "<< /Type /Page /Parent 2 0 R >>"})},
      {"zero pages",
       handmadePDF({"<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [] /Count 0 >>"})},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.fault);
    auto document = PDFDocument::open(bytesOf(row.bytes));
    if (!document) continue;
    const int count = document->pageCount();
    EXPECT_GE(count, 0);
    (void)document->documentAttributes();
    for (int i = 0; i < std::min(count, 5); ++i) {
      (void)document->pageString(i);
      (void)document->mediaBox(i);
      (void)document->renderPage(i, 10, 10);
    }
    EXPECT_EQ(document->pageString(count), std::nullopt);
  }
}

TEST(PDFDocument, ZeroPageDocumentOpensWithNoPages) {
  auto document = PDFDocument::open(bytesOf(
      handmadePDF({"<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [] /Count 0 >>"})));
  ASSERT_TRUE(document);
  EXPECT_EQ(document->pageCount(), 0);
  EXPECT_EQ(document->mediaBox(0), std::nullopt);
  EXPECT_EQ(document->textRuns(), std::vector<PDFTextRun>{});
}

}  // namespace
}  // namespace ferncast
