#include "Classes/ContentTypes.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "tests/ScratchDirectory.h"

namespace ferncast {
namespace {

using testing::ScratchDirectory;

const std::string kPngBytes("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\x01\0\0\0\x01\x08\x06\0\0\0", 29);
const std::string kJpegBytes("\xFF\xD8\xFF\xE0\0\x10JFIF\0\x01\x01\0\0\x01\0\x01\0\0", 20);

std::u16string u16(const std::filesystem::path& path) {
  return utf8ToUtf16(path.string());
}

TEST(ContentTypeForExtension, MapsTableExtensionsInAnyCase) {
  const std::pair<std::u16string_view, std::u16string_view> cases[] = {
      {u"jpg", u"public.jpeg"},
      {u"JPEG", u"public.jpeg"},
      {u"Jpe", u"public.jpeg"},
      {u"tif", u"public.tiff"},
      {u"pdf", u"com.adobe.pdf"},
      {u"ps", u"com.adobe.postscript"},
      {u"EPS", u"com.adobe.encapsulated-postscript"},
      {u"docx", u"org.openxmlformats.wordprocessingml.document"},
      {u"webarchive", u"com.apple.webarchive"},
      {u"m4a", u"public.mpeg-4-audio"},
      {u"mdimporter", u"com.apple.metadata-importer"},
      {u"", u"public.data"},
  };
  for (const auto& [extension, type] : cases)
    EXPECT_EQ(contentTypeForExtension(extension), type) << utf16ToUtf8(extension);
}

TEST(ContentTypeForExtension, UnknownExtensionsGetDistinctDynamicDataTypes) {
  const std::u16string xyz = contentTypeForExtension(u"xyz");
  EXPECT_EQ(xyz.rfind(u"dyn.a", 0), 0u) << utf16ToUtf8(xyz);
  EXPECT_EQ(contentTypeForExtension(u"XYZ"), xyz);  // extensions are case-insensitive
  EXPECT_NE(contentTypeForExtension(u"xyw"), xyz);
  EXPECT_NE(contentTypeForExtension(u"xy"), xyz);
  // Separators of the tag specification inside an extension must not end its field.
  for (std::u16string_view odd : {u"a:0=B", u"a\\", u"\u00e9t\u00e9", u"x=y"}) {
    const std::u16string type = contentTypeForExtension(odd);
    EXPECT_EQ(contentTypeConformanceChain(type),
              (std::vector<std::u16string>{type, u"public.data", u"public.item"}))
        << utf16ToUtf8(odd);
    EXPECT_FALSE(contentTypeConformsTo(type, u"public.image")) << utf16ToUtf8(odd);
  }
}

TEST(ContentTypeConformance, ChainIsBreadthFirstAndEachTypeOnce) {
  EXPECT_EQ(contentTypeConformanceChain(u"public.jpeg"),
            (std::vector<std::u16string>{u"public.jpeg", u"public.image", u"public.data",
                                         u"public.content", u"public.item"}));
  // Two paths lead to public.audiovisual-content; it is listed once.
  EXPECT_EQ(contentTypeConformanceChain(u"public.mpeg-4-audio"),
            (std::vector<std::u16string>{u"public.mpeg-4-audio", u"public.mpeg-4", u"public.audio",
                                         u"public.movie", u"public.audiovisual-content",
                                         u"public.data", u"public.content", u"public.item"}));
  EXPECT_EQ(contentTypeConformanceChain(u"org.example.unknown"),
            (std::vector<std::u16string>{u"org.example.unknown"}));
}

TEST(ContentTypeConformance, FollowsEverySecondParent) {
  const struct {
    std::u16string_view type, parent;
    bool conforms;
  } cases[] = {
      {u"public.jpeg", u"public.jpeg", true},
      {u"public.jpeg", u"public.content", true},
      {u"public.aiff-audio", u"public.audio", true},
      {u"org.openxmlformats.wordprocessingml.document", u"com.pkware.zip-archive", true},
      {u"org.openxmlformats.wordprocessingml.document", u"public.composite-content", true},
      {u"com.apple.metadata-importer", u"com.apple.package", true},
      {u"com.apple.rtfd", u"public.data", false},  // a package is a folder, not data
      {u"com.adobe.encapsulated-postscript", u"public.image", false},
      {u"public.image", u"public.jpeg", false},  // conformance is not symmetric
      {u"org.example.unknown", u"public.item", false},
      {u"dyn.aZZZ", u"public.data", false},  // not a well-formed dynamic type
      {u"", u"public.data", false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(contentTypeConformsTo(c.type, c.parent), c.conforms)
        << utf16ToUtf8(c.type) << " -> " << utf16ToUtf8(c.parent);
}

TEST(ContentTypeOfPath, ExtensionFirstThenContentThenDynamic) {
  ScratchDirectory scratch("content_types");
  const struct {
    const char* name;
    std::string bytes;
    std::u16string_view expected;  // empty: a dynamic type conforming to public.data
  } cases[] = {
      {"photo.JPG", kPngBytes, u"public.jpeg"},  // a known extension wins over the bytes
      {"picture", kPngBytes, u"public.png"},     // no extension: libmagic
      {"picture.unknownext", kJpegBytes, u"public.jpeg"},
      {"Report", "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n1 0 obj\n<<>>\nendobj\n", u"com.adobe.pdf"},
      {"README", "Plain words on a line.\nAnd another line.\n", u"public.plain-text"},
      {"blob", std::string("\x01\x02\x03\xF0\xF1\xF2\x00\x00\x7F", 9), u"public.data"},
      {"empty", "", u"public.data"},
      {"notes.zzq", std::string("\x01\x02\x03\xF0\xF1\xF2\x00\x00\x7F", 9), u""},
      {"flat.rtfd", "A flat file is no package.\n", u"public.plain-text"},  // judged by content
  };
  for (const auto& c : cases) {
    const std::optional<std::u16string> type =
        contentTypeOfPath(u16(scratch.write(c.name, c.bytes)));
    ASSERT_TRUE(type) << c.name;
    if (c.expected.empty()) {
      EXPECT_EQ(type->rfind(u"dyn.a", 0), 0u) << c.name << ": " << utf16ToUtf8(*type);
      EXPECT_TRUE(contentTypeConformsTo(*type, u"public.data")) << c.name;
    } else {
      EXPECT_EQ(*type, c.expected) << c.name;
    }
  }
}

TEST(ContentTypeOfPath, FoldersArePackagesOnlyByExtension) {
  ScratchDirectory scratch("content_types");
  const std::pair<const char*, std::u16string_view> cases[] = {
      {"Document.RTFD", u"com.apple.rtfd"},
      {"Importer.mdimporter", u"com.apple.metadata-importer"},
      {"plain", u"public.folder"},
      {"looks.pdf", u"public.folder"},  // a file type's extension does not make a package
  };
  for (const auto& [name, expected] : cases) {
    std::filesystem::create_directory(scratch / name);
    EXPECT_EQ(contentTypeOfPath(u16(scratch / name)), std::u16string(expected)) << name;
  }
  // A trailing slash names the same folder.
  EXPECT_EQ(contentTypeOfPath(u16(scratch / "Document.RTFD") + u"/"), u"com.apple.rtfd");
}

TEST(ContentTypeOfPath, MissingPathsAndLinksToNothingHaveNone) {
  ScratchDirectory scratch("content_types");
  EXPECT_FALSE(contentTypeOfPath(u16(scratch / "missing.jpg")));
  EXPECT_FALSE(contentTypeOfPath(u""));
  std::filesystem::create_symlink(scratch / "missing.jpg", scratch / "dangling.jpg");
  EXPECT_FALSE(contentTypeOfPath(u16(scratch / "dangling.jpg")));
  scratch.write("target", kPngBytes);
  std::filesystem::create_symlink(scratch / "target", scratch / "link");
  EXPECT_EQ(contentTypeOfPath(u16(scratch / "link")), u"public.png");
}

// Sets the Finder information of a file; false when the file system keeps no user attributes.
bool setFinderInfo(const std::filesystem::path& file, const std::string& value) {
  if (setxattr(file.c_str(), "user.com.apple.FinderInfo", value.data(), value.size(), 0) == 0)
    return true;
  EXPECT_TRUE(errno == ENOTSUP || errno == EOPNOTSUPP) << "setxattr: " << errno;
  return false;
}

TEST(ClassicFileType, ComesFromTheFinderInfoAttribute) {
  ScratchDirectory scratch("content_types");
  const std::string padding(24, '\0');
  const struct {
    const char* name;
    std::string finderInfo;  // empty: no attribute
    std::optional<std::u16string> expected;
  } cases[] = {
      {"report.dat", "PDF CARO" + padding, u"'PDF '"},
      {"lower", "pdf CARO" + padding, u"'pdf '"},  // kept exactly as stored
      {"roman", "\xA5\xA5\xA5\xA5" + padding, u"'\u2022\u2022\u2022\u2022'"},  // Mac Roman
      {"zero", std::string(32, '\0'), std::nullopt},
      {"short", "PD", std::nullopt},
      {"none", "", std::nullopt},
  };
  for (const auto& c : cases) {
    const std::filesystem::path file = scratch.write(c.name, "x");
    if (!c.finderInfo.empty() && !setFinderInfo(file, c.finderInfo))
      GTEST_SKIP() << "no user extended attributes on " << scratch.path();
    EXPECT_EQ(classicFileTypeOfPath(u16(file)), c.expected) << c.name;
  }
  EXPECT_FALSE(classicFileTypeOfPath(u16(scratch / "missing")));
  EXPECT_FALSE(classicFileTypeOfPath(u16(scratch.path())));  // folders have no file type
}

}  // namespace
}  // namespace ferncast
