// Pasteboard rules for images.
#include "imaging/Pasteboard.h"

#include <gtest/gtest.h>

#include "Classes/Unicode.h"
#include "imaging/Image.h"
#include "tests/imaging/ImageTestFiles.h"
#include "tests/imaging/MediaTestFiles.h"

namespace ferncast {
namespace {

using namespace image_test;
using media_test::testFolder;
using media_test::writeFile;

Value paths(std::initializer_list<std::string> names) {
  Array list;
  for (const std::string& name : names)
    list.push_back(Value(std::u16string_view(utf8ToUtf16(name))));
  return Value(std::move(list));
}

TEST(CanProbablyInitWithPasteboard, FirstAvailableTypeDecides) {
  const std::string png = (testFolder() / "paste.png").string();
  const Data pngBytes = encode(solidImage(4, 4, kRed), ".png");
  writeFile(png, std::string(pngBytes.begin(), pngBytes.end()));
  const std::string text = (testFolder() / "paste.txt").string();
  writeFile(text, "words");
  const struct {
    const char* name;
    std::vector<std::pair<const char16_t*, Value>> contents;
    bool expected;
  } cases[] = {
      {"empty", {}, false},
      {"image data, not decoded", {{kPasteboardTypeTIFF, Value(Data{1, 2, 3})}}, true},
      {"icon family", {{kPasteboardTypeIconFamily, Value(Data{1})}}, true},
      {"one image file", {{kPasteboardTypeFilenames, paths({png})}}, true},
      {"one text file", {{kPasteboardTypeFilenames, paths({text})}}, false},
      {"two image files", {{kPasteboardTypeFilenames, paths({png, png})}}, false},
      {"file URL of an image", {{kPasteboardTypeURL, Value(utf8ToUtf16("file://" + png))}}, true},
      {"file URL as a list",
       {{kPasteboardTypeURL, Value(Array{utf8ToUtf16("file://" + png), u""})}},
       true},
      {"URL of a missing file", {{kPasteboardTypeURL, Value(u"file:///nonexistent/x.png")}}, false},
      {"web URL", {{kPasteboardTypeURL, Value(u"https://example.com/x.png")}}, false},
      // Image data comes before file names in preference, whatever the pasteboard's order.
      {"file names, then PDF",
       {{kPasteboardTypeFilenames, paths({text})}, {kPasteboardTypePDF, Value(Data{1})}},
       true},
      {"other types only", {{u"public.utf8-plain-text", Value(u"x")}}, false},
  };
  for (const auto& c : cases) {
    Pasteboard pasteboard;
    for (const auto& [type, value] : c.contents)
      pasteboard.setValue(type, value);
    EXPECT_EQ(canProbablyInitWithPasteboard(&pasteboard), c.expected) << c.name;
  }
  EXPECT_FALSE(canProbablyInitWithPasteboard(nullptr));
}

TEST(ImageWithPasteboardIcon, FileThenIconThenData) {
  const std::string png = (testFolder() / "icon.png").string();
  const Data red = encode(solidImage(6, 4, kRed), ".png");
  writeFile(png, std::string(red.begin(), red.end()));
  Pasteboard pasteboard;
  pasteboard.setValue(kPasteboardTypeFilenames, paths({png}));
  pasteboard.setData(kPasteboardTypeIconFamily, encode(solidImage(16, 16, kBlue), ".png"));
  auto fromFile = imageWithPasteboardIcon(pasteboard);
  ASSERT_TRUE(fromFile);
  EXPECT_EQ(fromFile->size(), (Size{6, 4}));

  pasteboard.setValue(kPasteboardTypeFilenames, paths({png, png}));
  auto fromIcon = imageWithPasteboardIcon(pasteboard);
  ASSERT_TRUE(fromIcon);
  EXPECT_EQ(fromIcon->size(), (Size{16, 16}));

  Pasteboard dataOnly;
  dataOnly.setData(kPasteboardTypeIconFamily, {});
  dataOnly.setData(kPasteboardTypePNG, red);
  auto fromData = imageWithPasteboardIcon(dataOnly);
  ASSERT_TRUE(fromData);
  EXPECT_EQ(fromData->size(), (Size{6, 4}));
  EXPECT_FALSE(imageWithPasteboardIcon(Pasteboard()));
}

}  // namespace
}  // namespace ferncast
