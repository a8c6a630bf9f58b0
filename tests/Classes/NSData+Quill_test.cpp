#include "Classes/NSData+Quill.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "Classes/Log.h"
#include "Classes/Unicode.h"

namespace ferncast {
namespace {

Data bytesOf(std::string_view text) {
  return Data(text.begin(), text.end());
}

TEST(IsAsciiData, AcceptsPrintableBytesAndSixControlBytes) {
  const std::pair<std::string, bool> cases[] = {
      {"", false},
      {"plain text 0123 ~{}", true},
      {"\t\n\r\f\b", true},
      {"\x03", true},  // end-of-text counts as text
      {"\x7f", true},
      {"a\x0b", false},  // the vertical tab does not
      {std::string("a\0", 2), false},
      {"a\x01", false},
      {"a\x1b[0m", false},
      {"caf\xC3\xA9", false},
      {"\x80", false},
      {"\xff", false},
  };
  for (const auto& [bytes, expected] : cases)
    EXPECT_EQ(isAsciiData(bytesOf(bytes)), expected) << bytes;
}

TEST(IsRTFData, FindsTheSignatureAnywhereAndReportsCocoaRTF) {
  const struct {
    std::string bytes;
    bool rtf;
    bool cocoa;
  } cases[] = {
      {"{\\rtf1\\ansi\\ansicpg1252\\cocoartf1038\\cocoasubrtf360", true, true},
      {"{\\rtf1\\ansi hello}", true, false},
      {"junk before {\\rtf1 x}", true, false},
      {"{\\rtf", true, false},
      {"\\cocoartf1038 {\\rtf1}", true, false},  // "\cocoartf" must follow "{\rtf"
      {"{\\rtf1}{\\rtf1\\cocoartf", true, true},
      {"{\\RTF1\\cocoartf", false, false},
      {"{\\rt", false, false},
      {"\\cocoartf1038", false, false},
      {"", false, false},
  };
  for (const auto& c : cases) {
    const Data data = bytesOf(c.bytes);
    EXPECT_EQ(isRTFData(data), c.rtf) << c.bytes;
    bool cocoa = !c.cocoa;
    EXPECT_EQ(isRTFData(data, &cocoa), c.rtf) << c.bytes;
    EXPECT_EQ(cocoa, c.cocoa) << c.bytes;
    EXPECT_EQ(isRTFData(data, nullptr), c.rtf) << c.bytes;
  }
}

class LogCapture : public ::testing::Test {
 protected:
  void SetUp() override {
    setLogSink([this](std::string_view text) { messages_.emplace_back(text); });
  }
  void TearDown() override { setLogSink({}); }
  std::vector<std::string> messages_;
};

TEST_F(LogCapture, DumpWritesCharactersThenHex) {
  const struct {
    std::string bytes;
    std::string logged;
  } cases[] = {
      {"abc", "abc             : 61 62 63 \n"},
      {"a\tb\x01", "a b             : 61 09 62 01 \n"},
      {"0123456789abcdef", "0123456789abcdef: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 \n"},
      {"0123456789abcdefXY",
       "\n0123456789abcdef: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 \n"
       "XY              : 58 59 \n\n"},
      // Bytes from 128 on show as the Latin-1 character of that value.
      {"\xE9\xFF", "\xC3\xA9\xC3\xBF              : e9 ff \n"},
  };
  for (const auto& c : cases) {
    messages_.clear();
    dump(bytesOf(c.bytes));
    ASSERT_EQ(messages_.size(), 1u) << c.bytes;
    EXPECT_EQ(messages_[0], c.logged);
  }
  messages_.clear();
  dump(Data{});
  EXPECT_TRUE(messages_.empty());
}

TEST_F(LogCapture, DumpAsArrayWritesACArray) {
  const struct {
    Data bytes;
    std::string logged;
  } cases[] = {
      {{0x41}, "\nconst unsigned char data[] = {\n\t0x41\n};\n \n"},
      {{0x00, 0xff}, "\nconst unsigned char data[] = {\n\t0x00, 0xff\n};\n \n"},
      {Data(16, 7),
       "\nconst unsigned char data[] = {\n\t0x07, 0x07, 0x07, 0x07, 0x07, 0x07, 0x07, 0x07, "
       "0x07, 0x07, 0x07, 0x07, 0x07, 0x07, 0x07, 0x07\n};\n \n"},
      {Data(17, 7),
       "\nconst unsigned char data[] = {\n\t0x07, 0x07, 0x07, 0x07, 0x07, 0x07, 0x07, 0x07, "
       "0x07, 0x07, 0x07, 0x07, 0x07, 0x07, 0x07, 0x07, \n\t0x07\n};\n \n"},
  };
  for (const auto& c : cases) {
    messages_.clear();
    dumpAsArray(c.bytes);
    ASSERT_EQ(messages_.size(), 1u);
    EXPECT_EQ(messages_[0], c.logged);
  }
  messages_.clear();
  dumpAsArray(Data{});
  EXPECT_TRUE(messages_.empty());
}

class UncachedRead : public ::testing::Test {
 protected:
  void SetUp() override {
    directory_ =
        std::filesystem::path(::testing::TempDir()) / ("quill_test_" + std::to_string(::getpid()));
    std::filesystem::create_directories(directory_);
  }
  void TearDown() override {
    std::error_code error;
    std::filesystem::remove_all(directory_, error);
  }
  std::u16string write(const std::string& name, const Data& data) {
    const auto path = directory_ / name;
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data.data()),
               static_cast<std::streamsize>(data.size()));
    return utf8ToUtf16(path.string());
  }
  std::filesystem::path directory_;
};

TEST_F(UncachedRead, ReadsWholeFiles) {
  std::mt19937 random(5);
  Data large(300000);
  for (auto& byte : large)
    byte = static_cast<std::uint8_t>(random());
  const std::pair<const char*, Data> files[] = {
      {"empty", Data{}}, {"nul", Data(3, 0)}, {"large.bin", large}, {"caf\xC3\xA9.txt", {'x'}}};
  for (const auto& [name, data] : files) {
    auto read = dataWithUncachedContentsOfFile(write(name, data));
    ASSERT_TRUE(read) << name;
    EXPECT_EQ(*read, data) << name;
  }
}

TEST_F(UncachedRead, UnreadablePathsGiveNil) {
  EXPECT_FALSE(dataWithUncachedContentsOfFile(utf8ToUtf16((directory_ / "missing").string())));
  EXPECT_FALSE(dataWithUncachedContentsOfFile(utf8ToUtf16(directory_.string())));
  EXPECT_FALSE(dataWithUncachedContentsOfFile(u""));
}

}  // namespace
}  // namespace ferncast
