#include "webcontent/documents/OfficeDocuments.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "Classes/Unicode.h"
#include "tests/AttributedText.h"

namespace ferncast {
namespace {

using Parts = std::map<std::string, std::string, std::less<>>;

PackagePart partsOf(const Parts& parts) {
  return [&parts](std::string_view name) -> std::optional<Data> {
    auto found = parts.find(name);
    if (found == parts.end()) return std::nullopt;
    return Data(found->second.begin(), found->second.end());
  };
}

Attributes at(const Document& d, std::u16string_view word) {
  return test_support::attributesOfWord(d.string, word);
}

constexpr const char* kW =
    "xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/2006/main\" "
    "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\"";

std::string docxBody(const std::string& body) {
  return std::string("<?xml version=\"1.0\"?><w:document ") + kW + "><w:body>" + body +
         "</w:body></w:document>";
}

TEST(OfficeOpenXML, ParagraphsRunsListsTablesAndPictures) {
  const Parts parts = {
      {"word/document.xml",
       docxBody(
           "<w:p><w:pPr><w:pStyle w:val=\"Heading1\"/></w:pPr><w:r><w:t>Heading</w:t></w:r></w:p>"
           "<w:p><w:pPr><w:jc w:val=\"center\"/></w:pPr>"
           "<w:r><w:rPr><w:b/></w:rPr><w:t>bold</w:t></w:r><w:r><w:t xml:space=\"preserve\"> "
           "</w:t></w:r>"
           "<w:r><w:rPr><w:i/><w:u w:val=\"single\"/><w:color w:val=\"FF0000\"/><w:sz "
           "w:val=\"28\"/></w:rPr>"
           "<w:t>styled</w:t></w:r><w:r><w:tab/><w:t>after</w:t><w:br/><w:t>tab</w:t></w:r>"
           "<w:r><w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr><w:t>sup</w:t></w:r>"
           "<w:del><w:r><w:delText>gone</w:delText></w:r></w:del>"
           "<w:hyperlink r:id=\"rIdLink\"><w:r><w:t>linked</w:t></w:r></w:hyperlink>"
           "<w:r><w:fldChar "
           "w:fldCharType=\"begin\"/></w:r><w:r><w:instrText>PAGE</w:instrText></w:r>"
           "</w:p>"
           "<w:p><w:pPr><w:numPr><w:ilvl w:val=\"0\"/><w:numId "
           "w:val=\"1\"/></w:numPr></w:pPr><w:r><w:t>first</w:t></w:r></w:p>"
           "<w:p><w:pPr><w:numPr><w:ilvl w:val=\"0\"/><w:numId "
           "w:val=\"1\"/></w:numPr></w:pPr><w:r><w:t>second</w:t></w:r></w:p>"
           "<w:p><w:pPr><w:numPr><w:ilvl w:val=\"1\"/><w:numId "
           "w:val=\"1\"/></w:numPr></w:pPr><w:r><w:t>nested</w:t></w:r></w:p>"
           "<w:tbl><w:tr><w:tc><w:p><w:r><w:t>a1</w:t></w:r></w:p></w:tc><w:tc><w:p><w:r><w:t>b1</"
           "w:t></w:r></w:p>"
           "<w:p><w:r><w:t>more</w:t></w:r></w:p></w:tc></w:tr>"
           "<w:tr><w:tc><w:p><w:r><w:t>a2</w:t></w:r></w:p></w:tc><w:tc><w:p/></w:tc></w:tr></"
           "w:tbl>"
           "<w:p><w:r><w:drawing><wp:inline xmlns:wp=\"x\"><a:graphic xmlns:a=\"y\"><a:graphicData>"
           "<pic:pic xmlns:pic=\"z\"><pic:blipFill><a:blip r:embed=\"rIdImage\"/></pic:blipFill>"
           "</pic:pic></a:graphicData></a:graphic></wp:inline></w:drawing></w:r></w:p>")},
      {"word/_rels/document.xml.rels",
       "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
       "<Relationship Id=\"rIdLink\" Target=\"https://example.test/\" TargetMode=\"External\"/>"
       "<Relationship Id=\"rIdImage\" Target=\"media/image1.png\"/></Relationships>"},
      {"word/media/image1.png", "\x89PNG picture"},
      {"word/styles.xml",
       std::string("<w:styles ") + kW +
           "><w:docDefaults><w:rPrDefault><w:rPr><w:sz w:val=\"22\"/>"
           "</w:rPr></w:rPrDefault></w:docDefaults>"
           "<w:style w:type=\"paragraph\" w:styleId=\"Heading1\"><w:name w:val=\"heading 1\"/>"
           "<w:basedOn w:val=\"Base\"/></w:style>"
           "<w:style w:type=\"paragraph\" w:styleId=\"Base\"><w:rPr><w:color "
           "w:val=\"0000FF\"/></w:rPr></w:style>"
           "</w:styles>"},
      {"word/numbering.xml",
       std::string("<w:numbering ") + kW +
           "><w:abstractNum w:abstractNumId=\"7\">"
           "<w:lvl w:ilvl=\"0\"><w:start w:val=\"3\"/><w:numFmt w:val=\"decimal\"/></w:lvl>"
           "<w:lvl w:ilvl=\"1\"><w:numFmt w:val=\"bullet\"/></w:lvl></w:abstractNum>"
           "<w:num w:numId=\"1\"><w:abstractNumId w:val=\"7\"/></w:num></w:numbering>"},
      {"docProps/core.xml",
       "<cp:coreProperties xmlns:cp=\"c\" xmlns:dc=\"d\" xmlns:dcterms=\"t\"><dc:title>The "
       "Title</dc:title>"
       "<dc:creator>A. Writer</dc:creator><cp:keywords>one; two, three</cp:keywords>"
       "<dcterms:created>2020-01-02T03:04:05Z</dcterms:created></cp:coreProperties>"},
      {"docProps/app.xml", "<Properties><Company>Acme</Company></Properties>"},
  };
  std::optional<Document> d = readOfficeOpenXML(partsOf(parts));
  ASSERT_TRUE(d);
  EXPECT_EQ(utf16ToUtf8(d->string.string()),
            "Heading\nbold styled\tafter\ntabsuplinked\n\t3.\tfirst\n\t4.\tsecond\n"
            "\t\u25E6\tnested\na1\tb1 more\na2\t\n\xEF\xBF\xBC\n");
  EXPECT_TRUE(at(*d, u"Heading").font.bold);
  EXPECT_EQ(at(*d, u"Heading").font.pointSize, 24);
  EXPECT_EQ(at(*d, u"Heading").foregroundColor, (Color{0, 0, 255})) << "from the base style";
  EXPECT_EQ(at(*d, u"bold").paragraphStyle.alignment, TextAlignment::kCenter);
  EXPECT_TRUE(at(*d, u"bold").font.bold);
  EXPECT_EQ(at(*d, u"bold").font.pointSize, 11) << "document default size";
  EXPECT_TRUE(at(*d, u"styled").font.italic);
  EXPECT_EQ(at(*d, u"styled").underline, UnderlineStyle::kSingle);
  EXPECT_EQ(at(*d, u"styled").foregroundColor, (Color{255, 0, 0}));
  EXPECT_EQ(at(*d, u"styled").font.pointSize, 14);
  EXPECT_EQ(at(*d, u"sup").superscript, 1);
  EXPECT_EQ(at(*d, u"linked").link, u"https://example.test/");
  EXPECT_EQ(at(*d, u"first").paragraphStyle.textLists.at(0).markerFormat, u"{decimal}.");
  EXPECT_EQ(at(*d, u"nested").paragraphStyle.textLists.size(), 2u);
  const Attributes& picture = d->string.attributesAtIndex(d->string.length() - 2);
  ASSERT_TRUE(picture.attachment);
  EXPECT_EQ(picture.attachment->fileWrapper->preferredFilename, u"image1.png");
  const Dictionary& a = d->documentAttributes;
  EXPECT_EQ(a.at(u"DocumentType"), Value(u"NSOfficeOpenXML"));
  EXPECT_EQ(a.at(u"Title"), Value(u"The Title"));
  EXPECT_EQ(a.at(u"Author"), Value(u"A. Writer"));
  EXPECT_EQ(a.at(u"Company"), Value(u"Acme"));
  EXPECT_EQ(a.at(u"Keywords"), Value(Array{u"one", u"two", u"three"}));
  EXPECT_EQ(a.at(u"CreationTime"), Value(Date{1577934245}));
}

TEST(OfficeOpenXML, BrokenPackagesGiveNothingOrWhatParses) {
  EXPECT_FALSE(readOfficeOpenXML(partsOf({})));
  EXPECT_FALSE(readOfficeOpenXML(partsOf({{"word/document.xml", "<w:document><w:body>"}})));
  EXPECT_FALSE(readOfficeOpenXML(partsOf({{"word/document.xml", "<other/>"}})));
  // Missing styles, numbering and relationships: the text still comes.
  const Parts parts = {
      {"word/document.xml", docxBody("<w:p><w:pPr><w:numPr><w:numId w:val=\"9\"/></w:numPr></w:pPr>"
                                     "<w:r><w:drawing><a:blip r:embed=\"missing\"/></w:drawing>"
                                     "<w:t>text</w:t></w:r></w:p>")}};
  std::optional<Document> d = readOfficeOpenXML(partsOf(parts));
  ASSERT_TRUE(d);
  EXPECT_EQ(d->string.string(), u"text\n");
  // Deep nesting stops at the limit instead of exhausting the stack.
  std::string deep;
  for (int i = 0; i < 5000; ++i)
    deep += "<w:sdt><w:sdtContent>";
  for (int i = 0; i < 5000; ++i)
    deep += "</w:sdtContent></w:sdt>";
  EXPECT_TRUE(readOfficeOpenXML(partsOf({{"word/document.xml", docxBody(deep)}})));
  EXPECT_FALSE(readOfficeOpenXMLData(Data{'P', 'K', 3, 4, 0}));
}

constexpr const char* kOdfNamespaces =
    "xmlns:office=\"urn:oasis:names:tc:opendocument:xmlns:office:1.0\" "
    "xmlns:text=\"urn:oasis:names:tc:opendocument:xmlns:text:1.0\" "
    "xmlns:style=\"s\" xmlns:fo=\"f\" xmlns:table=\"t\" xmlns:draw=\"d\" xmlns:xlink=\"x\"";

TEST(OpenDocumentText, ParagraphsSpansListsTablesAndPictures) {
  const Parts parts = {
      {"content.xml",
       std::string("<office:document-content ") + kOdfNamespaces +
           "><office:automatic-styles>"
           "<style:style style:name=\"B\" style:family=\"text\"><style:text-properties "
           "fo:font-weight=\"bold\" fo:color=\"#00ff00\"/></style:style>"
           "<style:style style:name=\"C\" style:family=\"paragraph\" "
           "style:parent-style-name=\"Centre\"/>"
           "<text:list-style style:name=\"L\"><text:list-level-style-number text:level=\"1\" "
           "style:num-format=\"a\"/></text:list-style>"
           "</office:automatic-styles><office:body><office:text>"
           "<text:h text:outline-level=\"2\">Heading</text:h>"
           "<text:p text:style-name=\"C\">plain  <text:span text:style-name=\"B\">bold</text:span>"
           "<text:s text:c=\"2\"/>two<text:tab/>tab<text:line-break/>line "
           "<text:a xlink:href=\"http://example.test/\">linked</text:a>"
           "<text:note><text:note-body><text:p>footnote</text:p></text:note-body></text:note></"
           "text:p>"
           "<text:list "
           "text:style-name=\"L\"><text:list-item><text:p>first</text:p></text:list-item>"
           "<text:list-item><text:p>second</text:p><text:list><text:list-item><text:p>inner</"
           "text:p>"
           "</text:list-item></text:list></text:list-item></text:list>"
           "<table:table><table:table-row><table:table-cell><text:p>a1</text:p></table:table-cell>"
           "<table:table-cell><text:p>b1</text:p></table:table-cell></table:table-row></"
           "table:table>"
           "<text:p><draw:frame><draw:image xlink:href=\"Pictures/p.png\"/></draw:frame></text:p>"
           "</office:text></office:body></office:document-content>"},
      {"styles.xml",
       std::string("<office:document-styles ") + kOdfNamespaces +
           "><office:styles><style:style style:name=\"Centre\"><style:paragraph-properties "
           "fo:text-align=\"center\"/></style:style></office:styles>"
           "</office:document-styles>"},
      {"Pictures/p.png", "\x89PNG"},
      {"meta.xml",
       std::string("<office:document-meta ") + kOdfNamespaces +
           " xmlns:dc=\"dc\" xmlns:meta=\"m\"><office:meta><dc:title>Odt Title</dc:title>"
           "<meta:keyword>k1</meta:keyword><meta:keyword>k2</meta:keyword>"
           "<meta:initial-creator>Writer</meta:initial-creator></office:meta></"
           "office:document-meta>"},
  };
  std::optional<Document> d = readOpenDocumentText(partsOf(parts));
  ASSERT_TRUE(d);
  EXPECT_EQ(utf16ToUtf8(d->string.string()),
            "Heading\nplain bold  two\ttab\nline linked\n\ta.\tfirst\n\tb.\tsecond\n"
            "\t\u25E6\tinner\na1\tb1\n\xEF\xBF\xBC\n");
  EXPECT_EQ(at(*d, u"Heading").font.pointSize, 18);
  EXPECT_TRUE(at(*d, u"bold").font.bold);
  EXPECT_EQ(at(*d, u"bold").foregroundColor, (Color{0, 255, 0}));
  EXPECT_FALSE(at(*d, u"plain").font.bold);
  EXPECT_EQ(at(*d, u"plain").paragraphStyle.alignment, TextAlignment::kCenter);
  EXPECT_EQ(at(*d, u"linked").link, u"http://example.test/");
  EXPECT_EQ(at(*d, u"first").paragraphStyle.textLists.at(0).markerFormat, u"{lower-alpha}.");
  EXPECT_EQ(d->documentAttributes.at(u"Title"), Value(u"Odt Title"));
  EXPECT_EQ(d->documentAttributes.at(u"Keywords"), Value(Array{u"k1", u"k2"}));
  EXPECT_EQ(d->documentAttributes.at(u"Author"), Value(u"Writer"));
  EXPECT_FALSE(readOpenDocumentText(partsOf({{"content.xml", "<x/>"}})));
}

// Files that a real writer made: pandoc writes .docx and .odt from Markdown.
TEST(OfficeDocuments, ReadFilesThatPandocWrites) {
  if (system("pandoc --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "no pandoc";
  namespace fs = std::filesystem;
  fs::path folder = fs::path(::testing::TempDir()) / ("office_" + std::to_string(getpid()));
  fs::create_directories(folder);
  std::ofstream(folder / "in.md") << "---\ntitle: Pandoc Title\nauthor: Someone\n---\n\n"
                                     "# Section\n\nSome **strong** and *emphasised* words.\n\n"
                                     "1. one\n2. two\n\n| h1 | h2 |\n|----|----|\n| c1 | c2 |\n";
  for (const char* extension : {"docx", "odt"}) {
    fs::path out = folder / (std::string("out.") + extension);
    std::string command = "pandoc -o '" + out.string() + "' '" + (folder / "in.md").string() + "'";
    ASSERT_EQ(system(command.c_str()), 0);
    std::ifstream in(out, std::ios::binary);
    Data bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::u16string extension16 = utf8ToUtf16(extension);
    DocumentSource source{u"out", &bytes, extension16};
    const bool docx = std::string_view(extension) == "docx";
    EXPECT_TRUE(docx ? matchesOfficeOpenXML(source) : matchesOpenDocumentText(source));
    EXPECT_FALSE(docx ? matchesOpenDocumentText(source) : matchesOfficeOpenXML(source));
    std::optional<Document> d =
        docx ? readOfficeOpenXMLDocument(source) : readOpenDocumentTextDocument(source);
    ASSERT_TRUE(d) << extension;
    const std::u16string& text = d->string.string();
    for (std::u16string_view word : {u"Section", u"strong", u"emphasised", u"one", u"two", u"c2"})
      EXPECT_NE(text.find(word), std::u16string::npos) << extension << " " << utf16ToUtf8(word);
    EXPECT_TRUE(at(*d, u"strong").font.bold) << extension;
    EXPECT_TRUE(at(*d, u"emphasised").font.italic) << extension;
    EXPECT_TRUE(at(*d, u"Section").font.bold) << extension;
    EXPECT_NE(text.find(u"h1\th2"), std::u16string::npos) << extension;
    EXPECT_EQ(d->documentAttributes.at(u"Title"), Value(u"Pandoc Title")) << extension;
  }
  fs::remove_all(folder);
}

}  // namespace
}  // namespace ferncast
