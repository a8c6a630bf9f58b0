// RTF and RTFD: what the writer writes reads back with every attribute, platform-written and
// word-processor RTF read as their writers meant, and hostile RTF stays bounded.
#include "webcontent/documents/RTF.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "Classes/Unicode.h"
#include "webcontent/documents/RTFD.h"

namespace {

using namespace ferncast;

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::u16string textOf(std::string_view rtf, Dictionary* attributes = nullptr) {
  std::optional<AttributedString> string = initWithRTF(bytesOf(rtf), attributes);
  return string ? string->string() : u"<nullopt>";
}

std::string utf8(std::u16string_view text) {
  return utf16ToUtf8(text);
}

Attributes font(std::u16string family, double size) {
  Attributes a;
  a.font.family = std::move(family);
  a.font.pointSize = size;
  return a;
}

std::shared_ptr<const FileWrapper> file(std::string_view bytes, std::u16string name) {
  return std::make_shared<const FileWrapper>(
      FileWrapper::regularFile(Data(bytes.begin(), bytes.end()), std::move(name)));
}

// A string with every attribute the writer knows, paragraph styles whole per paragraph.
AttributedString everything() {
  AttributedString s;
  Attributes plain = font(u"Helvetica", 12);
  ParagraphStyle first;
  first.alignment = TextAlignment::kCenter;
  first.firstLineHeadIndent = 36;
  first.headIndent = 18;
  first.tailIndent = 9.5;
  first.lineSpacing = 2;
  first.lineHeightMultiple = 1.5;
  first.paragraphSpacing = 6;
  first.paragraphSpacingBefore = 3;
  first.tabStops = {{28, TabAlignment::kLeft},
                    {56, TabAlignment::kRight},
                    {84, TabAlignment::kCenter},
                    {112, TabAlignment::kDecimal}};
  plain.paragraphStyle = first;
  s.append(u"Plain \\ {braces} caf\u00e9 \u20ac \U0001F600 \u0001 tab\there ", plain);
  Attributes bold = plain;
  bold.font.bold = true;
  bold.font.family = u"Times New Roman";
  bold.font.pointSize = 13.5;
  s.append(u"bold ", bold);
  Attributes fancy = plain;
  fancy.font.italic = true;
  fancy.underline = UnderlineStyle::kDouble;
  fancy.strikethrough = true;
  fancy.foregroundColor = Color{200, 10, 20};
  fancy.backgroundColor = Color{255, 255, 255};
  s.append(u"fancy", fancy);
  Attributes up = plain;
  up.superscript = 1;
  up.baselineOffset = 3;
  s.append(u"2", up);
  Attributes down = plain;
  down.superscript = -1;
  down.underline = UnderlineStyle::kThick;
  s.append(u"x\u2028line\n", down);

  ParagraphStyle second;
  second.alignment = TextAlignment::kJustified;
  Attributes link = font(u"Courier", 10);
  link.paragraphStyle = second;
  link.link = u"http://example.com/a?b=c#d";
  s.append(u"link ", link);
  Attributes boldLink = link;
  boldLink.font.bold = true;
  s.append(u"bold link", boldLink);
  Attributes after = font(u"Courier", 10);
  after.paragraphStyle = second;
  s.append(u" after\n", after);

  ParagraphStyle bullets;
  bullets.textLists = {{u"{disc}", 1}};
  bullets.headIndent = 36;
  Attributes item = font(u"Helvetica", 12);
  item.paragraphStyle = bullets;
  s.append(u"\t\u2022\tone\n", item);
  ParagraphStyle nested = bullets;
  nested.textLists.push_back({u"{lower-roman}.", 3});
  item.paragraphStyle = nested;
  s.append(u"\tiii.\tnested\n", item);

  Attributes last = font(u"Helvetica", 12);
  last.paragraphStyle.alignment = TextAlignment::kRight;
  s.append(u"picture: ", last);
  s.appendAttachment({file("PNGDATA", u"dot.gif"), 15, 20}, last);
  s.appendAttachment({file("OTHER", u"dot.gif"), 0, 0}, last);
  s.append(u" end\fpage", last);
  return s;
}

Dictionary allDocumentAttributes() {
  return {
      {u"Title", Value(u"A {title} \u00e9")},
      {u"Author", Value(u"Ann")},
      {u"Subject", Value(u"Subj")},
      {u"Keywords", Value(Array{Value(u"one"), Value(u"two words")})},
      {u"Comment", Value(u"Comment")},
      {u"Editor", Value(u"Ed")},
      {u"Company", Value(u"Co")},
      {u"Copyright", Value(u"(c) 2024")},
      {u"CreationTime", Value(Date{1700000000})},
      {u"ModificationTime", Value(Date{1700003600})},
      {u"PaperSize", Value(u"{612, 792}")},
      {u"LeftMargin", Value(72.0)},
      {u"RightMargin", Value(72.0)},
      {u"TopMargin", Value(36.0)},
      {u"BottomMargin", Value(36.5)},
      {u"ViewSize", Value(u"{576, 420}")},
      {u"ViewZoom", Value(150.0)},
      {u"ViewMode", Value(1)},
      {u"DefaultTabInterval", Value(36.0)},
  };
}

void expectSameRuns(const AttributedString& expected, const AttributedString& actual) {
  ASSERT_EQ(utf8(actual.string()), utf8(expected.string()));
  for (std::size_t i = 0; i < expected.length(); ++i) {
    const Attributes& e = expected.attributesAtIndex(i);
    const Attributes& a = actual.attributesAtIndex(i);
    ASSERT_EQ(a.font, e.font) << "at " << i;
    ASSERT_EQ(a.underline, e.underline) << "at " << i;
    ASSERT_EQ(a.strikethrough, e.strikethrough) << "at " << i;
    ASSERT_EQ(a.foregroundColor, e.foregroundColor) << "at " << i;
    ASSERT_EQ(a.backgroundColor, e.backgroundColor) << "at " << i;
    ASSERT_EQ(utf8(a.link), utf8(e.link)) << "at " << i;
    ASSERT_EQ(a.superscript, e.superscript) << "at " << i;
    ASSERT_EQ(a.baselineOffset, e.baselineOffset) << "at " << i;
    ASSERT_EQ(a.paragraphStyle, e.paragraphStyle) << "at " << i;
    ASSERT_EQ(a.attachment.has_value(), e.attachment.has_value()) << "at " << i;
  }
  EXPECT_EQ(actual, expected);
}

TEST(RTFRoundTrip, EveryAttributeTheWriterWritesReadsBack) {
  const AttributedString original = everything();
  const Dictionary attributes = allDocumentAttributes();

  // Through RTFD, with attachments.
  const Data rtfd = RTFDFromRange(original, attributes);
  Dictionary read;
  std::optional<AttributedString> back = initWithRTFD(rtfd, &read);
  ASSERT_TRUE(back);
  expectSameRuns(original, *back);
  for (const auto& [key, value] : attributes) {
    ASSERT_TRUE(read.count(key)) << utf8(key);
    EXPECT_EQ(read.at(key), value) << utf8(key);
  }
  EXPECT_EQ(read.at(u"DocumentType"), Value(u"NSRTFD"));
  EXPECT_EQ(read.at(u"CocoaRTFVersion"), Value(kCocoaRTFVersion));

  // The package holds TXT.rtf and both attachments, the second under the platform's unique name.
  std::optional<FileWrapper> package = fileWrapperWithSerializedRepresentation(rtfd);
  ASSERT_TRUE(package);
  ASSERT_EQ(package->children.size(), 3u);
  EXPECT_EQ(package->children[0].filename, u"TXT.rtf");
  EXPECT_EQ(package->children[2].filename, u"1__#$!@%!#__dot.gif");

  // Written again, the data is the same.
  EXPECT_EQ(RTFDFromRange(*back, read), rtfd);

  // Through plain RTF the attachments are left out and everything else stays.
  AttributedString withoutAttachments;
  for (std::size_t i = 0; i < original.runCount(); ++i) {
    const AttributedString::Run run = original.run(i);
    if (run.attributes.attachment) continue;
    withoutAttachments.append(
        std::u16string_view(original.string()).substr(run.location, run.length), run.attributes);
  }
  std::optional<AttributedString> fromRTF =
      initWithRTF(RTFFromRange(original, attributes), nullptr);
  ASSERT_TRUE(fromRTF);
  expectSameRuns(withoutAttachments, *fromRTF);
}

TEST(RTFRoundTrip, AnEmptyStringIsAnEmptyDocument) {
  std::optional<AttributedString> back = initWithRTF(RTFFromRange(AttributedString(), {}), nullptr);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->length(), 0u);
}

TEST(RTFWriter, QuotesInLinksArePercentEncoded) {
  Attributes link;
  link.link = u"http://x/?q=\"a\"";
  std::optional<AttributedString> back =
      initWithRTF(RTFFromRange(AttributedString(u"x", link), {}), nullptr);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->attributesAtIndex(0).link, u"http://x/?q=%22a%22");
}

TEST(RTFWriter, WritesThePlatformsHeaderAndEscapes) {
  AttributedString s(u"caf\u00e9 \u2192 {x}", font(u"Helvetica", 12));
  const Data rtf = RTFFromRange(s, {});
  const std::string text(rtf.begin(), rtf.end());
  EXPECT_TRUE(
      text.starts_with("{\\rtf1\\ansi\\ansicpg1252\\cocoartf2761\n"
                       "\\cocoatextscaling0\\cocoaplatform0{\\fonttbl\\f0\\fswiss\\fcharset0 "
                       "Helvetica;}\n{\\colortbl;\\red255\\green255\\blue255;}\n"
                       "{\\*\\expandedcolortbl;;}\n"))
      << text;
  EXPECT_NE(text.find("caf\\'e9 \\uc0\\u8594  \\{x\\}}"), std::string::npos) << text;
}

TEST(RTFReader, ReadsPlatformWrittenRTFInAPackage) {
  const std::string rtf =
      "{\\rtf1\\ansi\\ansicpg1252\\cocoartf2639\n"
      "\\cocoatextscaling0\\cocoaplatform0{\\fonttbl\\f0\\fswiss\\fcharset0 Helvetica;"
      "\\f1\\fswiss\\fcharset0 Helvetica-Bold;}\n"
      "{\\colortbl;\\red255\\green255\\blue255;\\red251\\green2\\blue7;}\n"
      "{\\*\\expandedcolortbl;;\\cssrgb\\c100000\\c14913\\c0;}\n"
      "\\paperw11900\\paperh16840\\margl1440\\margr1440\\vieww11520\\viewh8400\\viewkind0\n"
      "\\pard\\tx566\\tx1133\\pardirnatural\\partightenfactor0\n\n"
      "\\f0\\fs24 \\cf0 Before \n"
      "\\f1\\b \\cf2 bold red\\\n"
      "{{\\NeXTGraphic Total duplicate rows.png \\width3840 \\height1140 "
      "\\appleattachmentpadding0 \\appleembedtype0 \\appleaqc\n}\xac}"
      "{{\\NeXTGraphic dot.gif \\width300 \\height400 \\noorient\n}\xac}"
      "{{\\NeXTGraphic 1__#$!@%!#__dot.gif \\width300 \\height400 \\noorient\n}\xac}"
      "{{\\NeXTGraphic missing.png \\width300 \\height400 \\noorient\n}\xac}}";
  FileWrapper package = FileWrapper::directory();
  package.addFileWrapper(FileWrapper::regularFile(Data(rtf.begin(), rtf.end()), u"TXT.rtf"));
  package.addFileWrapper(FileWrapper::regularFile({1, 2, 3}, u"Total duplicate rows.png"));
  package.addFileWrapper(FileWrapper::regularFile({4}, u"dot.gif"));
  package.addFileWrapper(FileWrapper::regularFile({5}, u"dot.gif"));
  Dictionary attributes;
  std::optional<AttributedString> s = initWithRTFD(serializedRepresentation(package), &attributes);
  ASSERT_TRUE(s);
  EXPECT_EQ(utf8(s->string()), "Before bold red\n\xEF\xBF\xBC\xEF\xBF\xBC\xEF\xBF\xBC");
  const Attributes& red = s->attributesAtIndex(8);
  EXPECT_TRUE(red.font.bold);
  EXPECT_EQ(red.font.family, u"Helvetica-Bold");
  EXPECT_EQ(red.foregroundColor, (Color{251, 2, 7}));
  EXPECT_EQ(red.paragraphStyle.tabStops.size(), 2u);
  const TextAttachment& first = *s->attributesAtIndex(16).attachment;
  EXPECT_EQ(first.fileWrapper->contents, (Data{1, 2, 3}));
  EXPECT_EQ(first.width, 192);
  EXPECT_EQ(first.height, 57);
  const TextAttachment& third = *s->attributesAtIndex(18).attachment;
  EXPECT_EQ(third.fileWrapper->contents, (Data{5}));
  EXPECT_EQ(third.fileWrapper->preferredFilename, u"dot.gif");
  EXPECT_EQ(attributes.at(u"CocoaRTFVersion"), Value(2639));
  EXPECT_EQ(attributes.at(u"PaperSize"), Value(u"{595, 842}"));
  EXPECT_EQ(attributes.at(u"ViewSize"), Value(u"{576, 420}"));
  EXPECT_EQ(attributes.at(u"DocumentType"), Value(u"NSRTFD"));
}

TEST(RTFReader, ReadsWhatWordProcessorsWrite) {
  struct Row {
    const char* what;
    std::string rtf;
    std::u16string expected;
  } rows[] = {
      {"Windows-1252 escapes", R"({\rtf1\ansi\ansicpg1252 caf\'e9 \'80})", u"caf\u00e9 \u20ac"},
      {"\\u with one fallback byte", R"({\rtf1\ansi\uc1 a\u8364\'80 b\u-3913?c})",
       u"a\u20ac b\uF0B7c"},
      {"\\uc0 and a surrogate pair", R"({\rtf1\uc0 \u-10179 \u-8704 x})", u"\U0001F600x"},
      {"\\uc2 fallback of two bytes", R"({\rtf1{\uc2\u1071\'cf\'cfz}\'e9})", u"\u042Fz\u00e9"},
      {"Cyrillic code page", R"({\rtf1\ansi\ansicpg1251 \'cf\'f0\'e8})", u"\u041F\u0440\u0438"},
      {"font charset",
       R"({\rtf1\ansi{\fonttbl{\f0 Arial;}{\f1\fcharset238 Arial CE;}}\f0 \'b9{\f1 \'b9}\'b9})",
       u"\u00b9\u0105\u00b9"},
      {"Shift-JIS font", R"({\rtf1{\fonttbl{\f1\fcharset128 MS Mincho;}}\f1 \'82\'a0\'82\'a2})",
       u"\u3042\u3044"},
      {"Mac Roman", R"({\rtf1\mac caf\'8e})", u"caf\u00e9"},
      {"DOS code page", R"({\rtf1\pc \'82})", u"\u00e9"},
      {"\\bin data skipped", "{\\rtf1 a{\\bin3 }}}b}x}", u"abx"},
      {"unknown \\* destinations skipped",
       R"({\rtf1 a{\*\generator Riched20;}{\*\bkmkstart x}b{\*\unknown {nested} text}c})", u"abc"},
      {"tables as tabs and lines",
       R"({\rtf1\trowd\cellx1\cellx2 A1\cell B1\cell\row\trowd A2\cell\cell C2\cell\row})",
       u"A1\tB1\nA2\t\tC2\n"},
      {"field results, hidden instructions",
       R"({\rtf1 see {\field{\*\fldinst{ HYPERLINK "http://x/" }}{\fldrslt{\ul here}}} now})",
       u"see here now"},
      {"headers, footers, footnotes and style sheets left out",
       R"({\rtf1{\stylesheet{\s1 Heading;}}{\header H}{\footer F}a{\footnote N}b{\*\annotation A}})",
       u"ab"},
      {"hidden text left out", R"({\rtf1 a{\v hidden}b\v c\v0 d})", u"abd"},
      {"list markers kept", R"({\rtf1{\listtext\'95\tab}Item\par{\pntext 1.\tab}Next})",
       u"\u2022\tItem\n1.\tNext"},
      {"special characters",
       R"({\rtf1 a\tab b\line c\emdash\endash\bullet\lquote\rquote\ldblquote\rdblquote\~\-\_})",
       u"a\tb\u2028c\u2014\u2013\u2022\u2018\u2019\u201C\u201D\u00A0\u00AD\u2011"},
      {"escaped braces and backslash", R"({\rtf1 \{a\}\\})", u"{a}\\"},
      {"backslash-newline is a paragraph", "{\\rtf1 a\\\nb\\\r\nc}", u"a\nb\nc"},
      {"line breaks in the source are not text", "{\\rtf1 a\r\nb\nc}", u"abc"},
      {"text after the document is ignored", R"({\rtf1 a}b)", u"a"},
      {"unterminated groups end at the end", R"({\rtf1 a{\b b)", u"ab"},
      {"object results shown, object data not",
       R"({\rtf1 {\object\objemb{\*\objclass Paint}{\*\objdata 0102}{\result R}}})", u"R"},
      {"WMF pictures left out", R"({\rtf1 a{\pict\wmetafile8 0102}b})", u"ab"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(utf8(textOf(row.rtf)), utf8(row.expected)) << row.what;
  }
  EXPECT_EQ(textOf("not rtf"), u"<nullopt>");
  EXPECT_EQ(textOf("\xEF\xBB\xBF\r\n {\\rtf1 ok}"), u"ok");
}

TEST(RTFReader, ReadsLinksInfoAndPictures) {
  Dictionary attributes;
  const std::string rtf =
      "{\\rtf1\\ansi{\\info{\\title The {\\b title}}{\\author Ann}{\\keywords a, b ,c}"
      "{\\creatim\\yr2001\\mo2\\dy3\\hr4\\min5}{\\operator Ed}{\\doccomm note}}"
      "{\\field{\\*\\fldinst HYPERLINK \"http://x/\" \\\\l \"part\" \\\\o \"tip\"}{\\fldrslt "
      "link}} {\\*\\shppict{\\pict\\pngblip\\picwgoal400\\pichgoal200 89504e47\n0d0a}}"
      "{\\nonshppict{\\pict\\wmetafile8 00}}{\\pict\\jpegblip\\bin2 \xff\xd8}}";
  std::optional<AttributedString> s = initWithRTF(bytesOf(rtf), &attributes);
  ASSERT_TRUE(s);
  EXPECT_EQ(utf8(s->string()), "link \xEF\xBF\xBC\xEF\xBF\xBC");
  EXPECT_EQ(s->attributesAtIndex(0).link, u"http://x/#part");
  EXPECT_EQ(s->attributesAtIndex(4).link, u"");
  const TextAttachment& png = *s->attributesAtIndex(5).attachment;
  EXPECT_EQ(png.fileWrapper->contents, (Data{0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a}));
  EXPECT_EQ(png.fileWrapper->preferredFilename, u"image.png");
  EXPECT_EQ(png.width, 20);
  EXPECT_EQ(png.height, 10);
  EXPECT_EQ(s->attributesAtIndex(6).attachment->fileWrapper->contents, (Data{0xff, 0xd8}));
  EXPECT_EQ(attributes.at(u"Title"), Value(u"The title"));
  EXPECT_EQ(attributes.at(u"Author"), Value(u"Ann"));
  EXPECT_EQ(attributes.at(u"Editor"), Value(u"Ed"));
  EXPECT_EQ(attributes.at(u"Comment"), Value(u"note"));
  EXPECT_EQ(attributes.at(u"Keywords"), Value(Array{Value(u"a"), Value(u"b"), Value(u"c")}));
  EXPECT_EQ(attributes.at(u"CreationTime"), Value(Date{981173100}));
  EXPECT_EQ(attributes.at(u"DocumentType"), Value(u"NSRTF"));
  EXPECT_FALSE(attributes.count(u"CocoaRTFVersion"));
}

TEST(RTFReader, HostileNestingAndRepetitionStayBounded) {
  // Far deeper than the state stack: the text is kept, the depth is not.
  std::string deep = "{\\rtf1 ";
  for (int i = 0; i < 100000; ++i)
    deep += "{\\b x";
  for (int i = 0; i < 100000; ++i)
    deep += "}";
  deep += "}";
  EXPECT_EQ(textOf(deep).size(), 100000u);

  // Many skipped groups nested deep are skipped in one pass.
  std::string skipped = "{\\rtf1 a{\\*\\x ";
  for (int i = 0; i < 100000; ++i)
    skipped += "{";
  skipped += "}}b";
  EXPECT_EQ(textOf(skipped), u"a");

  // A toggle per character: as many runs as characters, no more text than bytes.
  std::string toggles = "{\\rtf1 ";
  for (int i = 0; i < 20000; ++i)
    toggles += (i % 2 ? "\\b0 x" : "\\b x");
  toggles += "}";
  std::optional<AttributedString> s = initWithRTF(bytesOf(toggles), nullptr);
  ASSERT_TRUE(s);
  EXPECT_EQ(s->length(), 20000u);
  EXPECT_EQ(s->runCount(), 20000u);

  // One attachment referenced again and again shares one wrapper.
  std::string many = "{\\rtf1 ";
  for (int i = 0; i < 1000; ++i)
    many += "{{\\NeXTGraphic big.png}\xac}";
  many += "}";
  FileWrapper package = FileWrapper::directory();
  package.addFileWrapper(FileWrapper::regularFile(Data(many.begin(), many.end()), u"TXT.rtf"));
  package.addFileWrapper(FileWrapper::regularFile(Data(100000, 7), u"big.png"));
  std::optional<AttributedString> shared = initWithRTFDFileWrapper(package, nullptr);
  ASSERT_TRUE(shared);
  ASSERT_EQ(shared->length(), 1000u);
  EXPECT_EQ(shared->attributesAtIndex(0).attachment->fileWrapper,
            shared->attributesAtIndex(999).attachment->fileWrapper);
  // And writing it stores the file once.
  EXPECT_EQ(RTFDFileWrapperFromRange(*shared, {}).children.size(), 2u);
}

}  // namespace
