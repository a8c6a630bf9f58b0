#include "webcontent/documents/WordDocuments.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace ferncast {
namespace {

const Data kCompoundHeader = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1, 0, 0};

TEST(WordDocuments, ContentTestNeedsTheCompoundFileHeaderAndTheExtension) {
  const Data text = {'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd'};
  struct Case {
    const Data* data;
    std::u16string_view extension;
    bool matches;
  } cases[] = {
      {&kCompoundHeader, u"doc", true},
      {&kCompoundHeader, u"dot", true},
      {&kCompoundHeader, u"xls", false},  // other compound files are not Word's
      {&text, u"doc", false},
      {nullptr, u"doc", false},
  };
  for (const Case& c : cases)
    EXPECT_EQ(matchesWordDocument({u"x", c.data, c.extension}), c.matches);
}

TEST(WordDocuments, FilesAntiwordCannotReadGiveNothing) {
  namespace fs = std::filesystem;
  fs::path file = fs::path(::testing::TempDir()) / ("broken_" + std::to_string(getpid()) + ".doc");
  Data broken = kCompoundHeader;
  broken.resize(4096, 0xFF);
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(broken.data()),
             static_cast<std::streamsize>(broken.size()));
  const std::u16string path(file.u16string());
  EXPECT_FALSE(readWordDocument({path, &broken, u"doc"}));
  EXPECT_FALSE(readWordDocument({u"", &broken, u"doc"}));
  EXPECT_FALSE(readWordDocument({u"/nonexistent/x.doc", &broken, u"doc"}));
  fs::remove(file);
}

}  // namespace
}  // namespace ferncast
