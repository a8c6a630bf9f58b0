// The text requests of the vended object, in process: documents to RTFD with their attributes,
// web-archive text with source and URL, RTFD data written as packages (or not at all), and the
// text of PDF data plain and attributed.
#include <gtest/gtest.h>

#include <filesystem>

#include "Classes/Unicode.h"
#include "service/FerncastHelper.h"
#include "service/PDFDocument+AttributedString.h"
#include "tests/imaging/MediaTestFiles.h"
#include "webcontent/documents/FileWrapperFiles.h"
#include "webcontent/documents/RTFD.h"

namespace ferncast {
namespace {

namespace fs = std::filesystem;
using media_test::testFolder;
using media_test::writeFile;

std::u16string pathOf(const std::string& name) {
  return utf8ToUtf16((testFolder() / name).string());
}

std::vector<std::u16string> keysOf(const Dictionary& dictionary) {
  std::vector<std::u16string> keys;
  for (const auto& entry : dictionary)
    keys.push_back(entry.first);
  return keys;
}

std::u16string rtfdText(const Value& value) {
  const Data* data = value.as<Data>();
  if (!data) return u"<no data>";
  std::optional<AttributedString> string = initWithRTFD(*data, nullptr);
  return string ? string->string() : u"<no RTFD>";
}

TEST(FerncastHelperText, DocumentsComeBackAsRTFDWithTheirAttributes) {
  FerncastHelper helper;
  writeFile(testFolder() / "a.rtf", "{\\rtf1{\\info{\\title T}}Rich {\\b text}}");
  std::optional<Dictionary> reply = helper.attributedStringWithContentsOfFile(pathOf("a.rtf"));
  ASSERT_TRUE(reply);
  EXPECT_EQ(keysOf(*reply), (std::vector<std::u16string>{u"DocumentAttributes", u"Rtfd"}));
  EXPECT_EQ(rtfdText(reply->at(u"Rtfd")), u"Rich text");
  const Dictionary& attributes = *reply->at(u"DocumentAttributes").as<Dictionary>();
  EXPECT_EQ(attributes.at(u"DocumentType"), Value(u"NSRTF"));
  EXPECT_EQ(attributes.at(u"Title"), Value(u"T"));

  EXPECT_FALSE(helper.attributedStringWithContentsOfFile(pathOf("absent.rtf")));
}

TEST(FerncastHelperText, WebArchivesAnswerTextSourceAndURL) {
  FerncastHelper helper;
  const std::string html = "<html><body><p>Archived words</p></body></html>";
  const Value archive =
      Dictionary{{u"WebMainResource",
                  Value(Dictionary{{u"WebResourceURL", Value(u"http://example.com/page")},
                                   {u"WebResourceMIMEType", Value(u"text/html")},
                                   {u"WebResourceTextEncodingName", Value(u"UTF-8")},
                                   {u"WebResourceData", Value(Data(html.begin(), html.end()))}})}};
  const Data bytes = binaryPropertyList(archive);
  writeFile(testFolder() / "p.webarchive", std::string(bytes.begin(), bytes.end()));
  std::optional<Dictionary> reply = helper.searchableTextOfWebArchive(pathOf("p.webarchive"));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->at(u"String"), Value(u"\n\nArchived words"));
  EXPECT_EQ(reply->at(u"Source"), Value(utf8ToUtf16(html)));
  EXPECT_EQ(reply->at(u"URL"), Value(u"http://example.com/page"));

  // No archive: an empty reply, not nil.
  EXPECT_EQ(helper.searchableTextOfWebArchive(pathOf("absent.webarchive")), Dictionary{});
}

TEST(FerncastHelperText, RTFDDataIsWrittenAsAPackageAndAnythingElseNotAtAll) {
  FerncastHelper helper;
  AttributedString string(u"Packaged ");
  string.appendAttachment(
      {std::make_shared<const FileWrapper>(FileWrapper::regularFile({1, 2, 3}, u"pic.png"))}, {});
  const Data rtfd = RTFDFromRange(string, {});
  ASSERT_TRUE(helper.writeRTFDData(rtfd, pathOf("out.rtfd")));
  std::optional<FileWrapper> package = fileWrapperWithPath(pathOf("out.rtfd"));
  ASSERT_TRUE(package);
  ASSERT_TRUE(package->child(u"pic.png"));
  EXPECT_EQ(package->child(u"pic.png")->contents, (Data{1, 2, 3}));
  ASSERT_TRUE(package->child(u"TXT.rtf"));

  const std::string rtf = "{\\rtf1 not RTFD}";
  for (const std::optional<Data>& bad :
       {std::optional<Data>(), std::optional<Data>(Data{}), std::optional<Data>(Data{'x'}),
        std::optional<Data>(Data(rtf.begin(), rtf.end()))}) {
    EXPECT_FALSE(helper.writeRTFDData(bad, pathOf("bad.rtfd")));
    EXPECT_FALSE(fs::exists(testFolder() / "bad.rtfd"));
  }
}

TEST(FerncastHelperText, PDFDataAnswersPlainAndAttributedText) {
  using media_test::handmadePDF;
  using media_test::streamObject;
  const std::string pdf = handmadePDF({
      "<< /Type /Catalog /Pages 2 0 R >>",
      "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
      "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /Contents 4 0 R "
      "/Resources << /Font << /F1 5 0 R >> >> >>",
      streamObject("BT /F1 18 Tf 10 50 Td (Hello PDF) Tj ET"),
      "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica-Bold >>",
  });
  FerncastHelper helper;
  const Data data(pdf.begin(), pdf.end());

  std::optional<Dictionary> plain = helper.attributed(false, data);
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->at(u"PageCount"), Value(1));
  ASSERT_TRUE(plain->at(u"String").as<std::u16string>());
  EXPECT_NE(plain->at(u"String").as<std::u16string>()->find(u"Hello PDF"), std::u16string::npos);
  EXPECT_FALSE(plain->count(u"Size"));

  std::optional<Dictionary> rich = helper.attributed(true, data);
  ASSERT_TRUE(rich);
  const Data* rtfd = rich->at(u"String").as<Data>();
  ASSERT_TRUE(rtfd);
  std::optional<AttributedString> string = initWithRTFD(*rtfd, nullptr);
  ASSERT_TRUE(string);
  ASSERT_NE(string->string().find(u"Hello PDF"), std::u16string::npos);
  const Font& font = string->attributesAtIndex(string->string().find(u"Hello")).font;
  EXPECT_EQ(font.family, u"Helvetica");
  EXPECT_TRUE(font.bold);
  EXPECT_EQ(font.pointSize, 18);

  std::optional<Dictionary> sized = helper._attributed(false, data, std::nullopt, true);
  ASSERT_TRUE(sized);
  EXPECT_EQ(sized->at(u"Size"), Value(u"{200, 100}"));
  EXPECT_EQ(sized->at(u"PixelSize"), Value(u"{200, 100}"));
  EXPECT_EQ(sized->at(u"Alpha"), Value(false));

  EXPECT_FALSE(helper.attributed(true, std::nullopt));
  EXPECT_FALSE(helper.attributed(true, Data{'n', 'o'}));
}

TEST(PDFTextRuns, BecomeRunsWithFamilySizeAndWeight) {
  const PDFTextRun runs[] = {
      {u"Title\n", "Times-Bold", "Times", 24, true, false},
      {u"body ", "ABCDEF+Unnamed", "", 10, false, true},
  };
  AttributedString string = attributedStringOfTextRuns(runs);
  EXPECT_EQ(string.string(), u"Title\nbody ");
  EXPECT_EQ(string.attributesAtIndex(0).font, (Font{u"Times", 24, true, false}));
  EXPECT_EQ(string.attributesAtIndex(7).font, (Font{u"ABCDEF+Unnamed", 10, false, true}));
}

}  // namespace
}  // namespace ferncast
