// Classification of image files by name, classic type and first bytes.
#include "imaging/ImageClassification.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "Classes/Unicode.h"
#include "tests/imaging/MediaTestFiles.h"

namespace ferncast {
namespace {

namespace fs = std::filesystem;
using media_test::testFolder;
using media_test::writeFile;

std::u16string u16(const fs::path& path) {
  return utf8ToUtf16(path.string());
}

TEST(ImageFileTypes, StartFromTheDecodersAndEndWithTheOwnList) {
  const std::vector<std::u16string>& types = ImageFileTypes();
  for (std::u16string_view readable :
       {u"jpg", u"png", u"tiff", u"gif", u"webp", u"bmp", u"pict", u"pdf", u"'JPEG'", u"'PNGf'"})
    EXPECT_NE(std::find(types.begin(), types.end(), readable), types.end())
        << utf16ToUtf8(readable);
  ASSERT_GE(types.size(), 8u);
  const std::vector<std::u16string> tail(types.end() - 8, types.end());
  EXPECT_EQ(tail, (std::vector<std::u16string>{u"jpe", u"JPE", u"ps", u"PS", u"eps", u"EPS", u"ai",
                                               u"AI"}));
  // Decoders we do not trust with outside bytes add nothing.
  for (std::u16string_view untrusted : {u"csv", u"mat", u"v", u"fits", u"gz"})
    EXPECT_EQ(std::find(types.begin(), types.end(), untrusted), types.end())
        << utf16ToUtf8(untrusted);
}

TEST(ImageExtensions, PredicatesCompareExtensionsWithoutCaseAndTypesExactly) {
  const struct {
    OptionalString extension, type;
    bool web, image, postScript, pdf, realPDF, bundle;
  } cases[] = {
      {u"JPG", std::nullopt, true, true, false, false, false, false},
      {u"jp2", std::nullopt, true, true, false, false, false, false},
      {u"tiff", std::nullopt, false, true, false, false, false, false},
      {u"eps", std::nullopt, false, true, true, true, false, false},
      {u"Ai", std::nullopt, false, true, true, true, false, false},
      {u"PDF", std::nullopt, false, true, false, true, true, false},
      {u"dat", u"'PDF '", false, true, false, true, true, false},
      {u"dat", u"'pdf '", false, false, false, false, false, false},  // types are exact
      {u"dat", u"'JPEG'", false, true, false, false, false, false},
      {u"dat", u"", false, false, false, false, false, false},  // empty type: no type
      {u"pdfd", std::nullopt, false, false, false, false, false, true},
      {u"PDFD", std::nullopt, false, false, false, false, false, true},
      {std::nullopt, std::nullopt, false, false, false, false, false, false},
  };
  for (const auto& c : cases) {
    const std::string name = c.extension ? utf16ToUtf8(*c.extension) : "nil";
    EXPECT_EQ(isWebImageExtension(c.extension), c.web) << name;
    EXPECT_EQ(isImageExtension(c.extension, c.type), c.image) << name;
    EXPECT_EQ(isPostScriptExtension(c.extension), c.postScript) << name;
    EXPECT_EQ(isPDFExtension(c.extension, c.type), c.pdf) << name;
    EXPECT_EQ(isRealPDFExtension(c.extension, c.type), c.realPDF) << name;
    EXPECT_EQ(isPDFBundleExtension(c.extension), c.bundle) << name;
  }
}

TEST(ImageFiles, ClassicTypeMakesADataFileARealPDF) {
  const fs::path file = testFolder() / "x.dat";
  writeFile(file, "%PDF-1.4\n");
  const std::string finderInfo = "PDF CARO" + std::string(24, '\0');
  if (setxattr(file.c_str(), "user.com.apple.FinderInfo", finderInfo.data(), finderInfo.size(),
               0) != 0)
    GTEST_SKIP() << "no user extended attributes here";
  EXPECT_TRUE(isRealPDFFile(u16(file)));
  EXPECT_TRUE(isPDFFile(u16(file)));
  EXPECT_TRUE(isImageFile(u16(file)));
  EXPECT_FALSE(isPostScriptFile(u16(file)));
  EXPECT_FALSE(isRealPDFFile(std::nullopt));
}

TEST(ImageFiles, UTIImageFilesConformToAReadableImageType) {
  writeFile(testFolder() / "photo.jpg", "not really, but named so");
  writeFile(testFolder() / "noname",
            std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\x01\0\0\0\x01\x08\x06\0\0\0", 29));
  writeFile(testFolder() / "notes.txt", "words\n");
  writeFile(testFolder() / "drawing.eps", "%!PS-Adobe-3.0 EPSF-3.0\n");
  const std::pair<const char*, bool> cases[] = {
      {"photo.jpg", true},    {"noname", true},       {"notes.txt", false},
      {"drawing.eps", false}, {"missing.png", false},
  };
  for (const auto& [name, expected] : cases)
    EXPECT_EQ(isUTIImageFile(u16(testFolder() / name)), expected) << name;
  EXPECT_FALSE(isUTIImageFile(std::nullopt));
  EXPECT_FALSE(isUTIImageFile(u""));
}

TEST(PathToPDF, PrefersTheBundlesOwnNameThenAnyPDF) {
  const fs::path report = testFolder() / "Report.PDFD";
  fs::create_directories(report);
  writeFile(report / "Report.pdf", "%PDF");
  writeFile(report / "another.pdf", "%PDF");
  EXPECT_EQ(pathToPDF(u16(report)), u16(report / "Report.pdf"));

  const fs::path scan = testFolder() / "x.pdfd";
  fs::create_directories(scan);
  writeFile(scan / "notes.txt", "");
  writeFile(scan / "scan.PDF", "%PDF");
  EXPECT_EQ(pathToPDF(u16(scan)), u16(scan / "scan.PDF"));

  const fs::path empty = testFolder() / "empty.pdfd";
  fs::create_directories(empty);
  EXPECT_EQ(pathToPDF(u16(empty)), u16(empty));
  EXPECT_EQ(pathToPDF(u"/some/file.pdf"), u"/some/file.pdf");
  EXPECT_EQ(pathToPDF(std::nullopt), std::nullopt);
  EXPECT_TRUE(isPDFBundle(u"/a/b.PdFd"));
  EXPECT_FALSE(isPDFBundle(std::nullopt));
}

TEST(PathExtensionForType, ClassicTypesMimeTypesAndExtensions) {
  const std::pair<OptionalString, std::optional<std::u16string>> cases[] = {
      {u"'JPEG'", u"jpeg"},
      {u"'.SGI'", u"sgi"},
      {u"'XXXX'", std::nullopt},
      {u"jpg", u"jpg"},
      {u"image/x-portable-graymap", u"pgm"},
      {u"image/vnd.adobe.photoshop", u"psd"},
      {u"application/postscript-level2", u"ps"},
      {u"image/jpeg", u"jpeg"},
      {u"image/svg+xml", u"svg+xml"},  // "svg-xml" does not occur in it
      // "X-" stays, but the row's name occurs inside, without regard to case.
      {u"image/X-PORTABLE-BITMAP", u"pbm"},
      {u"image/x", std::nullopt},
      {u"image/x-y", std::nullopt},
      {u"image/", std::nullopt},
      {u"a/b/c", u"a/b/c"},
      {u"", std::nullopt},
      {std::nullopt, std::nullopt},
  };
  for (const auto& [type, extension] : cases)
    EXPECT_EQ(pathExtensionForType(type), extension) << (type ? utf16ToUtf8(*type) : "nil");
}

TEST(PathExtensionForData, FirstSignatureInTheFirstKilobyte) {
  using namespace std::string_literals;
  const std::pair<std::string, std::optional<std::u16string>> cases[] = {
      {"%PDF-1.7", u"pdf"},
      {std::string(1020, 'x') + "%PDF", u"pdf"},
      {std::string(1021, 'x') + "%PDF", std::nullopt},  // ends past byte 1024
      {"\0\0\0\x0CjP  \r\n\x87\n\0\0\0\x14"
       "ftypjp2 "s,
       u"jp2"},
      {"\x89PNG\r\n", u"png"},
      {"GIF89a", u"gif"},
      {"GIF87a", u"gif"},
      {"\xFF\xD8\xFF\xE0\0\x10JFIF"s, u"jpeg"},
      {"\xFF\xD8\xFF\xE1\0\x10"
       "Exif\0\0MM\0*"s,
       std::nullopt},            // EXIF-only JPEG
      {"II*\0"s, std::nullopt},  // a TIFF without the word
      {"xx TIFF", u"tiff"},
      {"8BPS.. Photoshop", u"psd"},
      {"TIFF and %PDF", u"pdf"},  // the table's order decides
      {"abc", std::nullopt},
  };
  for (const auto& [bytes, extension] : cases)
    EXPECT_EQ(pathExtensionForData(Data(bytes.begin(), bytes.end())), extension) << bytes;
  EXPECT_EQ(pathExtensionForData(std::nullopt), std::nullopt);
}

}  // namespace
}  // namespace ferncast
