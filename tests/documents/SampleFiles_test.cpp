// Real files: small RTF samples in the platform's form and in a word processor's form, and an
// RTFD package as the platform saves it (tests/documents/data). Their text agrees with unrtf's,
// and the package survives data and disk byte for byte.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "Classes/Unicode.h"
#include "tests/ScratchDirectory.h"
#include "webcontent/documents/DocumentReader.h"
#include "webcontent/documents/FileWrapperFiles.h"
#include "webcontent/documents/RTFD.h"

namespace {

using namespace ferncast;
namespace fs = std::filesystem;

const fs::path kData = fs::path(FERNCAST_SOURCE_DIR) / "tests/documents/data";

// unrtf's plain text of a file: what follows the dashes that end its header; nullopt without unrtf.
std::optional<std::string> unrtfText(const fs::path& path) {
  FILE* pipe = popen(("unrtf --text '" + path.string() + "' 2>/dev/null").c_str(), "r");
  if (!pipe) return std::nullopt;
  std::string out;
  char buffer[4096];
  std::size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0)
    out.append(buffer, n);
  if (pclose(pipe) != 0 || out.empty()) return std::nullopt;
  const std::size_t dashes = out.find("\n-----------------\n");
  return dashes == std::string::npos ? out : out.substr(dashes + 19);
}

// The printable ASCII of a text but white space and quotation marks: unrtf writes other
// characters in its own ways (Latin-1 bytes, nothing, or stand-ins for symbol fonts).
std::string comparable(std::string_view text) {
  std::string kept;
  for (char c : text) {
    if (c > ' ' && c < 0x7F && c != '"') kept.push_back(c);
  }
  return kept;
}

// Our text as unrtf shows it: a hyperlink as its URL in quotation marks instead of its text.
std::string asUnrtfShowsIt(const AttributedString& string) {
  std::string text;
  std::u16string link;
  for (std::size_t i = 0; i < string.runCount(); ++i) {
    const AttributedString::Run run = string.run(i);
    if (run.attributes.link != link && !run.attributes.link.empty()) {
      text += "\"" + utf16ToUtf8(run.attributes.link) + "\"";
    }
    link = run.attributes.link;
    if (link.empty()) {
      text += utf16ToUtf8(std::u16string_view(string.string()).substr(run.location, run.length));
    }
  }
  return text;
}

TEST(SampleFiles, TextAgreesWithUnrtfApartFromWhiteSpace) {
  for (const char* name : {"platform.rtf", "wordprocessor.rtf"}) {
    std::optional<std::string> theirs = unrtfText(kData / name);
    if (!theirs) GTEST_SKIP() << "unrtf is not installed";
    std::optional<AttributedString> ours =
        initWithPath(utf8ToUtf16((kData / name).string()), nullptr);
    ASSERT_TRUE(ours) << name;
    EXPECT_EQ(comparable(asUnrtfShowsIt(*ours)), comparable(*theirs)) << name;
  }
}

TEST(SampleFiles, PlatformRTFKeepsItsFormattingAndAttributes) {
  Dictionary attributes;
  std::optional<AttributedString> s =
      initWithPath(utf8ToUtf16((kData / "platform.rtf").string()), &attributes);
  ASSERT_TRUE(s);
  const std::u16string& text = s->string();
  EXPECT_TRUE(text.starts_with(u"Quarterly notes\nThe caf\u00e9 on the corner"))
      << utf16ToUtf8(text);
  EXPECT_NE(text.find(u"\u20ac 3.50 and the sign says \u201cna\u00efve\u201d in blue letters."),
            std::u16string::npos);
  const Attributes& heading = s->attributesAtIndex(0);
  EXPECT_TRUE(heading.font.bold);
  EXPECT_EQ(heading.font.pointSize, 18);
  EXPECT_EQ(heading.paragraphStyle.alignment, TextAlignment::kCenter);
  const Attributes& link = s->attributesAtIndex(text.find(u"blue letters"));
  EXPECT_EQ(link.link, u"http://example.com/");
  EXPECT_EQ(link.foregroundColor, (Color{0, 0, 233}));
  EXPECT_EQ(link.underline, UnderlineStyle::kSingle);
  const Attributes& item = s->attributesAtIndex(text.find(u"First point"));
  ASSERT_EQ(item.paragraphStyle.textLists.size(), 1u);
  EXPECT_EQ(item.paragraphStyle.textLists[0].markerFormat, u"{disc}");
  EXPECT_EQ(item.paragraphStyle.headIndent, 36);
  EXPECT_TRUE(s->attributesAtIndex(text.find(u"emphasis")).font.italic);
  EXPECT_EQ(s->attributesAtIndex(text.find(u"red")).foregroundColor, (Color{251, 2, 7}));
  EXPECT_NE(text.find(u"\t\u2022\tSecond point"), std::u16string::npos);
  EXPECT_EQ(attributes[u"Title"], Value(u"Quarterly notes"));
  EXPECT_EQ(attributes[u"Keywords"], Value(Array{Value(u"notes"), Value(u"quarter")}));
  EXPECT_EQ(attributes[u"CocoaRTFVersion"], Value(2761));
}

TEST(SampleFiles, WordProcessorRTFReadsAsItsWriterMeant) {
  Dictionary attributes;
  std::optional<AttributedString> s =
      initWithPath(utf8ToUtf16((kData / "wordprocessor.rtf").string()), &attributes);
  ASSERT_TRUE(s);
  EXPECT_EQ(utf16ToUtf8(s->string()),
            "Trip report\n"
            "We left at 9:30 and paid \u20ac12 for a caf\u00e9 au lait. Bold words, italic words "
            "and a footnote.\n"
            "Day\tPlace\nMonday\tLisbon\n"
            "\u00b7\tTrams run often\n"
            "\u00b7\tPastries are cheap\n"
            "The last line.\n");
  EXPECT_EQ(s->attributesAtIndex(0).font.family, u"Liberation Serif");
  EXPECT_TRUE(s->attributesAtIndex(0).font.bold);
  EXPECT_EQ(s->attributesAtIndex(0).paragraphStyle.paragraphSpacing, 6);
  EXPECT_EQ(attributes[u"Title"], Value(u"Trip report"));
  EXPECT_EQ(attributes[u"CreationTime"], Value(Date{1710408600}));
  EXPECT_EQ(attributes[u"PaperSize"], Value(sizeString(11906 / 20.0, 16838 / 20.0)));
  EXPECT_FALSE(attributes.count(u"CocoaRTFVersion"));
}

TEST(SampleFiles, PlatformPackageReadsAndSurvivesDataAndDiskByteForByte) {
  const std::u16string package = utf8ToUtf16((kData / "platform.rtfd").string());
  Dictionary attributes;
  std::optional<AttributedString> s = initWithPath(package, &attributes);
  ASSERT_TRUE(s);
  EXPECT_EQ(s->string(), u"A green dot:\n\uFFFC and a red one: \uFFFC\nThe end.");
  const TextAttachment& green = *s->attributesAtIndex(13).attachment;
  const TextAttachment& red = *s->attributesAtIndex(30).attachment;
  EXPECT_EQ(green.fileWrapper->preferredFilename, u"dot.png");
  EXPECT_EQ(red.fileWrapper->preferredFilename, u"dot.png");
  const std::string greenBytes =
      ferncast::testing::ScratchDirectory::read(kData / "platform.rtfd/dot.png");
  EXPECT_EQ(green.fileWrapper->contents, Data(greenBytes.begin(), greenBytes.end()));
  EXPECT_NE(green.fileWrapper->contents, red.fileWrapper->contents);
  EXPECT_EQ(green.width, 1);
  EXPECT_EQ(attributes[u"DocumentType"], Value(u"NSRTFD"));

  // Package -> data -> package: every file comes back byte for byte.
  std::optional<FileWrapper> folder = fileWrapperWithPath(package);
  ASSERT_TRUE(folder);
  const Data data = serializedRepresentation(*folder);
  std::optional<FileWrapper> fromData = fileWrapperWithSerializedRepresentation(data);
  ASSERT_TRUE(fromData);
  const ferncast::testing::ScratchDirectory copy("package");
  ASSERT_TRUE(writeFileWrapper(*fromData, utf8ToUtf16((copy / "p.rtfd").string())));
  std::size_t files = 0;
  for (const auto& entry : fs::directory_iterator(kData / "platform.rtfd")) {
    EXPECT_EQ(ferncast::testing::ScratchDirectory::read(copy / "p.rtfd" / entry.path().filename()),
              ferncast::testing::ScratchDirectory::read(entry.path()))
        << entry.path();
    ++files;
  }
  EXPECT_EQ(files, 3u);
}

}  // namespace
