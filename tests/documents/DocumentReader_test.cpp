// The document reader: the format comes from the content before the extension, each format
// states its document type, plain text honours byte-order marks and declared charsets, web
// archives bring their images along, and what no format reads is nil.
#include "webcontent/documents/DocumentReader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "Classes/Unicode.h"
#include "tests/ScratchDirectory.h"
#include "webcontent/documents/FileWrapperFiles.h"
#include "webcontent/documents/RTFD.h"

namespace {

using namespace ferncast;
namespace fs = std::filesystem;

// Files of one test, named in UTF-16 as the reader takes them.
class DocumentReader : public ::testing::Test {
 protected:
  std::u16string write(const std::string& name, std::string_view bytes) const {
    return utf8ToUtf16(scratch_.write(name, bytes).string());
  }
  std::u16string path(const std::string& name) const {
    return utf8ToUtf16((scratch_ / name).string());
  }
  ferncast::testing::ScratchDirectory scratch_{"documents"};
};

std::string rtfdData(std::u16string_view text) {
  const Data data = RTFDFromRange(AttributedString(text), {});
  return std::string(data.begin(), data.end());
}

std::string webArchive() {
  auto resource = [](std::u16string url, std::u16string mime, std::string data) {
    return Value(Dictionary{{u"WebResourceURL", Value(std::move(url))},
                            {u"WebResourceMIMEType", Value(std::move(mime))},
                            {u"WebResourceTextEncodingName", Value(u"UTF-8")},
                            {u"WebResourceData", Value(Data(data.begin(), data.end()))}});
  };
  const Value archive = Dictionary{
      {u"WebMainResource",
       resource(u"http://a/page.html", u"text/html",
                "<html><head><title> The &amp; Page </title></head><body><p>Hello "
                "archive</p></body></html>")},
      {u"WebSubresources", Value(Array{resource(u"http://a/img/dot.png?x=1", u"image/png", "PNG"),
                                       resource(u"http://a/style.css", u"text/css", "p{}")})}};
  const Data bytes = binaryPropertyList(archive);
  return std::string(bytes.begin(), bytes.end());
}

TEST_F(DocumentReader, ChoosesTheFormatByContentThenByExtension) {
  // A pasteboard-form RTFD (no header) is only recognised by its extension.
  const std::string flat = rtfdData(u"flat");
  struct Row {
    const char* what;
    std::string name;
    std::string bytes;
    std::u16string text;
    std::u16string type;
  } rows[] = {
      {"RTF", "a.rtf", "{\\rtf1 rich}", u"rich", u"NSRTF"},
      {"RTF whatever the extension", "b.txt", "{\\rtf1 rich}", u"rich", u"NSRTF"},
      {"flat RTFD data", "c.dat", flat, u"flat", u"NSRTFD"},
      {"pasteboard RTFD by extension", "d.rtfd", flat.substr(8), u"flat", u"NSRTFD"},
      {"web archive", "e.bin", webArchive(), u"Hello archive\n\uFFFC", u"NSWebArchive"},
      {"plain UTF-8", "f", "caf\xC3\xA9\n", u"caf\u00e9\n", u"NSPlainText"},
      {"binary named as text", "g.txt", std::string("a\0\x01\x02", 4),
       std::u16string(u"a\0\x01\x02", 4), u"NSPlainText"},
  };
  for (const Row& row : rows) {
    Dictionary attributes;
    std::optional<AttributedString> s = initWithPath(write(row.name, row.bytes), &attributes);
    ASSERT_TRUE(s) << row.what;
    EXPECT_EQ(s->string(), row.text) << row.what;
    EXPECT_EQ(attributes[u"DocumentType"], Value(row.type)) << row.what;
  }
}

TEST_F(DocumentReader, PlainTextHonoursByteOrderMarksAndDeclaredCharsets) {
  struct Row {
    const char* what;
    std::string bytes;
    std::u16string text;
    std::int64_t encoding;
  } rows[] = {
      {"UTF-8 with BOM", "\xEF\xBB\xBFgr\xC3\xBC\xC3\x9F", u"gr\u00fc\u00df", 4},
      {"UTF-16 little-endian", std::string("\xFF\xFEh\0\xAC\x20", 6), u"h\u20ac", 10},
      {"UTF-16 big-endian", std::string("\xFE\xFF\0h\x20\xAC", 6), u"h\u20ac", 10},
      {"UTF-32 little-endian", std::string("\xFF\xFE\0\0h\0\0\0", 8), u"h", 0x8c000100},
      {"Windows-1252 by default", "caf\xE9 \x80", u"caf\u00e9 \u20ac", 12},
      {"a declared charset", "<meta charset=\"koi8-r\">\xF0\xD2\xC9\xD7\xC5\xD4",
       u"<meta charset=\"koi8-r\">\u041f\u0440\u0438\u0432\u0435\u0442", 0x80000a02},
  };
  for (const Row& row : rows) {
    Dictionary attributes;
    std::optional<AttributedString> s = initWithPath(write("t.txt", row.bytes), &attributes);
    ASSERT_TRUE(s) << row.what;
    EXPECT_EQ(utf16ToUtf8(s->string()), utf16ToUtf8(row.text)) << row.what;
    EXPECT_EQ(attributes[u"CharacterEncoding"], Value(row.encoding)) << row.what;
  }
}

TEST_F(DocumentReader, ReadsPackagesAndWebArchiveImages) {
  FileWrapper package = FileWrapper::directory();
  package.addFileWrapper(FileWrapper::regularFile(
      Data{'{', '\\', 'r', 't', 'f', '1', ' ', 'p', 'k', 'g', '}'}, u"TXT.rtf"));
  ASSERT_TRUE(writeFileWrapper(package, path("p.rtfd")));
  Dictionary attributes;
  std::optional<AttributedString> s = initWithPath(path("p.rtfd"), &attributes);
  ASSERT_TRUE(s);
  EXPECT_EQ(s->string(), u"pkg");
  EXPECT_EQ(attributes[u"DocumentType"], Value(u"NSRTFD"));

  std::optional<AttributedString> page =
      initWithPath(write("w.webarchive", webArchive()), &attributes);
  ASSERT_TRUE(page);
  const TextAttachment& image = *page->attributesAtIndex(page->length() - 1).attachment;
  EXPECT_EQ(image.fileWrapper->preferredFilename, u"dot.png");
  EXPECT_EQ(image.fileWrapper->contents, (Data{'P', 'N', 'G'}));
  EXPECT_EQ(attributes[u"Title"], Value(u"The & Page"));
}

TEST_F(DocumentReader, WhatNoFormatReadsIsNil) {
  fs::create_directories(scratch_ / "folder");
  const std::string png("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
  for (const std::u16string& p :
       {path("absent"), path("folder"), write("image.png", png), std::u16string()}) {
    EXPECT_FALSE(initWithPath(p, nullptr)) << utf16ToUtf8(p);
  }
  // Each format is one row; plain text is tried last.
  ASSERT_FALSE(documentReaders().empty());
  EXPECT_STREQ(documentReaders().back().name, "PlainText");
}

}  // namespace
