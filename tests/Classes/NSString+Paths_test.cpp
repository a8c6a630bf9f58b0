#include "Classes/NSString+Paths.h"

#include <gtest/gtest.h>

namespace ferncast {
namespace {

TEST(PathComponents, TrailingSlashesAndHiddenNamesDoNotMakeExtensions) {
  const struct {
    std::u16string_view path, last, extension, withoutExtension;
  } cases[] = {
      {u"/tmp/scratch.tiff", u"scratch.tiff", u"tiff", u"/tmp/scratch"},
      {u"/tmp/scratch..tiff", u"scratch..tiff", u"tiff", u"/tmp/scratch."},
      {u"/tmp/Report.PDFD/", u"Report.PDFD", u"PDFD", u"/tmp/Report"},
      {u"/tmp.d/scratch", u"scratch", u"", u"/tmp.d/scratch"},  // a dot in a folder name
      {u"/home/.profile", u".profile", u"", u"/home/.profile"},
      {u"name.", u"name.", u"", u"name."},
      {u"/", u"/", u"", u"/"},
      {u"", u"", u"", u""},
      {u"a.tar.gz", u"a.tar.gz", u"gz", u"a.tar"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(lastPathComponent(c.path), c.last) << std::string(c.path.begin(), c.path.end());
    EXPECT_EQ(pathExtension(c.path), c.extension) << std::string(c.path.begin(), c.path.end());
    EXPECT_EQ(stringByDeletingPathExtension(c.path), c.withoutExtension)
        << std::string(c.path.begin(), c.path.end());
  }
}

TEST(PathJoining, PutsExactlyOneSlashBetweenParts) {
  EXPECT_EQ(stringByAppendingPathComponent(u"/tmp/", u"a.pdf"), u"/tmp/a.pdf");
  EXPECT_EQ(stringByAppendingPathComponent(u"/tmp", u"/a.pdf"), u"/tmp/a.pdf");
  EXPECT_EQ(stringByAppendingPathComponent(u"/", u"a"), u"/a");
  EXPECT_EQ(stringByAppendingPathComponent(u"", u"a"), u"a");
  EXPECT_EQ(stringByAppendingPathExtension(u"/tmp/Report/", u"pdf"), u"/tmp/Report.pdf");
}

}  // namespace
}  // namespace ferncast
