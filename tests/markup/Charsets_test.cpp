// Charset names as pages and servers spell them, the two encoding number spaces, and which
// encodings have a converter.
#include "markup/Charsets.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Classes/Log.h"
#include "Classes/Unicode.h"

namespace ferncast {
namespace {

struct NameCase {
  const char* name;
  CFStringEncoding expected;
};

void expectNames(const std::vector<NameCase>& cases) {
  for (const NameCase& c : cases) {
    EXPECT_EQ(charset2CFStringEncoding(utf8ToUtf16(c.name)), c.expected) << '"' << c.name << '"';
  }
}

TEST(CharsetNames, SpellingsFromTheWildReachTheirEncoding) {
  expectNames({
      {"ISO-8859-1", 0x201},
      {"iso_8859-1", 0x201},
      {"ISO8859-1", 0x201},
      {"8859-1", 0x201},
      {"ISO-8859-2", 0x202},
      {"iso_8859-2", 0x202},
      {"ISO8859-2", 0x202},
      {"8859-2", 0x202},
      {"ISO-8859-8-I", 0x208},
      {"iso-8859-15", 0x20F},
      {"ISO-8859-16", 0x210},
      {"iso-8859-11", 0x20B},
      {"windows-1250", 0x501},
      {"Windows-1251", 0x502},
      {"windows-1252", 0x500},
      {"cp1253", 0x503},
      {"x-cp1258", 0x508},
      {"windows-1361", 0x510},
      {"ibm866", 0x41B},
      {"cp437", 0x400},
      {"IBM852", 0x412},
      {"windows-874", 0x41D},
      {"cp932", 0x420},
      {"asmo-708", 0x206},
      {"Shift_JIS", 0xA01},
      {"shift-jis", 0xA01},
      {"x-sjis", 0xA01},
      {"EUC-JP", 0x920},
      {"x-euc-jp", 0x920},
      {"EUC-KR", 0x940},
      {"euc-cn", 0x930},
      {"euc-tw", 0x931},
      {"GB2312", 0x930},
      {"gb_2312-80", 0x930},
      {"GBK", 0x631},
      {"GB18030", 0x632},
      {"Big5", 0xA03},
      {"big5-hkscs", 0xA03},
      {"KOI8-R", 0xA02},
      {"koi8-u", 0xA02},
      {"ISO-2022-JP", 0x820},
      {"csISO2022JP", 0x820},
      {"iso-2022-jp-1", 0x822},
      {"ISO-2022-JP-2", 0x821},
      {"iso-2022-jp-3", 0x823},
      {"ks_c_5601-1987", 0x640},
      {"KSC5601-87", 0x640},
      {"ksc5601-92", 0x641},
      {"UTF-8", 0x08000100},
      {"utf8", 0x08000100},
      {"utf", 0x08000100},
      {"unicode", 0x08000100},
      {"unicode-1-1-utf-8", 0x08000100},
      {"UTF-16", 0x100},
      {"utf-16le", 0x100},
      {"US-ASCII", 0x600},
      {"ascii", 0x600},
      {"UTF-7", 0x600},
      {"ISO646-US", 0x600},
      {"latin1", 0x201},
      {"Latin-2", 0x202},
      {"latin5", 0x209},
      {"csISOLatin6", 0x20A},
      {"latin-9", 0x20F},
      {"latin10", 0x210},
      {"windows", 0x500},
      {"iso", 0x201},
      {"visual", 0x208},
      {"x-kam-cs", 0xA001},
      {"kbkam", 0xA001},
      {"KOI8-CS2", 0xA002},
      {"csn_369103", 0xA002},
      {"en-us", 0x08000100},
      {"en-GB", 0x08000100},
      {"none", 0x600},
  });
}

// Authors mistype "8859-1" in many ways; the table keeps reading them as Latin-1.
TEST(CharsetNames, MisspelledLatin1StaysLatin1) {
  expectNames({
      {"iso-8591", 0x201},
      {"iso-80591", 0x201},
      {"iso-85591", 0x201},
      {"iso-8819-1", 0x201},
      {"iso-8839-1", 0x201},
      {"iso-8851-1", 0x201},
      {"iso-8861-1", 0x201},
      {"iso-8869-1", 0x201},
      {"iso-8879-1", 0x201},
      {"iso-8909-1", 0x201},
      {"iso-9959-1", 0x201},
      {"iso-10059-1", 0x201},
      {"iso-8100-91", 0x201},
      {"iso-8859", 0x201},
      {"iso-8592-2", 0x202},
      {"iso-8959-9", 0x209},
  });
}

TEST(CharsetNames, TyposOfUtf8StayUtf8) {
  expectNames({{"utf-08", 0x08000100},
               {"uft-8", 0x08000100},
               {"utf-2d8", 0x08000100},
               {"utf-9", 0x08000100},
               {"x-utf8", 0x08000100}});
}

TEST(CharsetNames, MacScriptNamesFollowThePrefix) {
  expectNames({
      {"macintosh", 0},
      {"x-mac-roman", 0},
      {"MacOSRoman", 0},
      {"x-mac-roman-latin1", 0xA04},
      {"x-mac-romanian", 38},
      {"x-mac-cyrillic", 7},
      {"x-mac-ce", 29},
      {"x-mac-centraleurroman", 29},
      {"x-mac-celtic", 39},
      {"x-mac-japanese", 1},
      {"x-mac-chinesetrad", 2},
      {"x-mac-chinesesimp", 25},
      {"mac-greek", 6},
      {"x-mac-ukrainian", 0x98},
      {"x-mac-farsi", 0x8C},
      {"x-mac-inuit", 0xEC},
      {"x-mac-extarabic", 31},
      {"x-mac-arabic", 4},
  });
}

TEST(CharsetNames, UnknownAndShortNamesGiveNone) {
  expectNames({
      {"", kCFStringEncodingInvalidId},
      {"en", kCFStringEncodingInvalidId},
      {"l1", kCFStringEncodingInvalidId},
      {"auto", kCFStringEncodingInvalidId},
      {"x-user-defined", kCFStringEncodingInvalidId},
      {"tis-620", kCFStringEncodingInvalidId},
      {"mac", kCFStringEncodingInvalidId},
      {"x-mac-klingon", kCFStringEncodingInvalidId},
      {"iso-8859-12", kCFStringEncodingInvalidId},
      {"windows-31j", kCFStringEncodingInvalidId},
      {"--- ", kCFStringEncodingInvalidId},
  });
}

struct StringEncodingCase {
  const char* name;
  NSStringEncoding expected;
};

TEST(CharsetNames, StringEncodingsOfNames) {
  std::vector<StringEncodingCase> cases = {
      {"shift_jis", NSShiftJISStringEncoding},  // 0xA01 is special-cased to 8
      {"cp932", NSShiftJISStringEncoding},      // DOS Japanese has the small number itself
      {"utf-8", NSUTF8StringEncoding},
      {"iso-8859-1", NSISOLatin1StringEncoding},
      {"iso-8859-2", NSISOLatin2StringEncoding},
      {"windows-1251", NSWindowsCP1251StringEncoding},
      {"windows-1250", NSWindowsCP1250StringEncoding},
      {"windows-1252", NSWindowsCP1252StringEncoding},
      {"macintosh", NSMacOSRomanStringEncoding},
      {"euc-jp", NSJapaneseEUCStringEncoding},
      {"iso-2022-jp", NSISO2022JPStringEncoding},
      {"utf-16", NSUnicodeStringEncoding},
      {"us-ascii", NSASCIIStringEncoding},
      {"gb2312", 0x80000930},
      {"big5", 0x80000A03},
      {"koi8-r", 0x80000A02},
      {"iso-8859-5", 0x80000205},
      {"x-kam-cs", NSKamenickyStringEncoding},
      {"koi8-cs2", NSKOI8CS2StringEncoding},
      // Known names whose converters Debian's ICU does not build.
      {"x-mac-japanese", kNoStringEncoding},
      {"iso-8859-16", kNoStringEncoding},
      {"iso-2022-jp-3", kNoStringEncoding},
      {"windows-1361", kNoStringEncoding},
  };
  for (const StringEncodingCase& c : cases) {
    std::u16string name = utf8ToUtf16(c.name);
    EXPECT_EQ(charset2NSStringEncoding(name), c.expected) << c.name;
    EXPECT_EQ(NSEncodingFromName(name), c.expected) << c.name;
  }
}

class CharsetLog : public ::testing::Test {
 protected:
  void SetUp() override {
    setLogSink([this](std::string_view line) { lines_.emplace_back(line); });
  }
  void TearDown() override { setLogSink({}); }
  std::vector<std::string> lines_;
};

TEST_F(CharsetLog, UnknownNamesAreLoggedOncePerLookup) {
  EXPECT_EQ(charset2NSStringEncoding(u"x-user-defined"), kNoStringEncoding);
  EXPECT_EQ(charset2NSStringEncoding(u"x-mac-japanese"), kNoStringEncoding);
  ASSERT_EQ(lines_.size(), 2u);
  EXPECT_EQ(lines_[0], "Unknown/Unsupported encoding: x-user-defined");
  EXPECT_EQ(lines_[1], "Unknown/Unsupported encoding: x-mac-japanese");
}

TEST_F(CharsetLog, PlaceholderNamesAreSilent) {
  for (const char16_t* name : {u"", u"auto", u"AUTO", u"Auto", u"/", u"0", u"<", u">"}) {
    EXPECT_EQ(charset2NSStringEncoding(name), kNoStringEncoding);
  }
  EXPECT_TRUE(lines_.empty());
  charset2CFStringEncoding(u"x-user-defined");  // the extended look-up never logs
  EXPECT_TRUE(lines_.empty());
}

TEST(EncodingNumbers, SmallStringNumbersMapBothWays) {
  const std::vector<std::pair<NSStringEncoding, CFStringEncoding>> pairs = {
      {1, 0x600},  {2, 0xB01},  {3, 0x920},  {4, 0x08000100}, {5, 0x201},  {6, 0x21},
      {7, 0xBFF},  {8, 0x420},  {9, 0x202},  {10, 0x100},     {11, 0x502}, {12, 0x500},
      {13, 0x503}, {14, 0x504}, {15, 0x501}, {21, 0x820},     {30, 0},
  };
  for (auto [ns, cf] : pairs) {
    EXPECT_EQ(CFStringConvertEncodingToNSStringEncoding(cf), ns) << std::hex << cf;
    EXPECT_EQ(CFStringConvertNSStringEncodingToEncoding(ns), cf) << ns;
  }
}

TEST(EncodingNumbers, OtherEncodingsCarryTheHighBit) {
  for (CFStringEncoding cf : {0x632u, 0xA01u, 0xA03u, 0x930u, 0x10000100u, 0x205u}) {
    EXPECT_EQ(CFStringConvertEncodingToNSStringEncoding(cf), 0x80000000u | cf);
    EXPECT_EQ(CFStringConvertNSStringEncodingToEncoding(0x80000000u | cf), cf);
  }
  EXPECT_EQ(CFStringConvertNSStringEncodingToEncoding(0x90000100u), 0x10000100u);  // UTF-16BE
}

TEST(EncodingNumbers, NoneAndStrayNumbersHaveNoCounterpart) {
  EXPECT_EQ(CFStringConvertEncodingToNSStringEncoding(kCFStringEncodingInvalidId),
            kNoStringEncoding);
  for (NSStringEncoding ns : {0u, 16u, 29u, 31u, 1000u, kNoStringEncoding,
                              NSKamenickyStringEncoding, NSKOI8CS2StringEncoding}) {
    EXPECT_EQ(CFStringConvertNSStringEncodingToEncoding(ns), kCFStringEncodingInvalidId) << ns;
  }
}

TEST(Converters, EncodingsTheDecoderNeedsOpen) {
  const std::vector<std::pair<CFStringEncoding, const char*>> expected = {
      {0x0, "macos-0_2-10.2"},       {0x7, "macos-7_3-10.2"},
      {0x201, "ISO-8859-1"},         {0x202, "ibm-912_P100-1995"},
      {0x41B, "ibm-866_P100-1995"},  {0x420, "ibm-943_P15A-2003"},
      {0x500, "ibm-5348_P100-1997"}, {0x501, "ibm-5346_P100-1998"},
      {0x502, "ibm-5347_P100-1998"}, {0x600, "US-ASCII"},
      {0x631, "windows-936-2000"},   {0x632, "gb18030"},
      {0x640, "windows-949-2000"},   {0x820, "ISO_2022,locale=ja,version=0"},
      {0x920, "euc-jp-2007"},        {0x930, "ibm-1383_P110-1999"},
      {0x931, "euc-tw-2014"},        {0x940, "ibm-970_P110_P110-2006_U2"},
      {0xA01, "ibm-943_P15A-2003"},  {0xA02, "ibm-878_P100-1996"},
      {0xA03, "windows-950-2000"},   {0xA05, "HZ"},
      {0xA06, "ibm-1375_P100-2008"}, {0x100, "UTF-16"},
      {0x08000100, "UTF-8"},
  };
  for (auto [encoding, name] : expected) {
    ASSERT_NE(icuConverterName(encoding), nullptr) << std::hex << encoding;
    EXPECT_STREQ(icuConverterName(encoding), name) << std::hex << encoding;
    EXPECT_TRUE(CFStringIsEncodingAvailable(encoding)) << std::hex << encoding;
  }
}

// These have names but no converter in Debian's ICU 72: asking must answer "unavailable", not
// crash or pick a wrong converter.
TEST(Converters, MissingConvertersAreUnavailable) {
  for (CFStringEncoding encoding :
       {0x1u, 0x2u, 0x3u, 0x4u, 0x5u, 0x15u, 0x210u, 0x510u, 0x620u, 0x628u, 0x630u, 0x823u, 0xA04u,
        0xA09u, 0x98u, kCFStringEncodingInvalidId}) {
    EXPECT_FALSE(CFStringIsEncodingAvailable(encoding)) << std::hex << encoding;
    EXPECT_EQ(icuConverterName(encoding), nullptr) << std::hex << encoding;
    EXPECT_EQ(icuConverterLookupName(encoding), nullptr) << std::hex << encoding;
  }
}

TEST(Converters, CzechEncodingsAreAvailableWithoutIcu) {
  for (CFStringEncoding encoding : {kCFStringEncodingKamenicky, kCFStringEncodingKOI8_CS2}) {
    EXPECT_TRUE(CFStringIsEncodingAvailable(encoding));
    EXPECT_EQ(icuConverterName(encoding), nullptr);
  }
}

}  // namespace
}  // namespace ferncast
