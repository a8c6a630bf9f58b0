// The markup decoder on pages in many character sets (made here with glibc's iconv, so that the
// bytes do not come from the converters under test), its choice between candidates, the fallback
// chains, the declaration finder, file decoding and encoding back to bytes. Differential sweeps
// compare our ICU decoding with glibc's iconv byte sequence by byte sequence.
#include "markup/MarkupDecoding.h"

#include <gtest/gtest.h>
#include <iconv.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "Classes/Log.h"
#include "Classes/NSData+zlib.h"
#include "Classes/PropertyList.h"
#include "Classes/Unicode.h"
#include "tests/Corpus.h"

namespace ferncast {
namespace {

using Bytes = std::vector<std::uint8_t>;

// The UTF-8 text converted by glibc's iconv into `charset`; nullopt when iconv cannot.
std::optional<Bytes> iconvEncode(const std::string& utf8, const char* charset) {
  iconv_t cd = iconv_open(charset, "UTF-8");
  if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
  std::string out(utf8.size() * 4 + 16, '\0');
  char* in = const_cast<char*>(utf8.data());
  std::size_t inLeft = utf8.size();
  char* outPointer = out.data();
  std::size_t outLeft = out.size();
  std::size_t result = iconv(cd, &in, &inLeft, &outPointer, &outLeft);
  if (result != static_cast<std::size_t>(-1)) {
    result = iconv(cd, nullptr, nullptr, &outPointer, &outLeft);
  }
  iconv_close(cd);
  if (result == static_cast<std::size_t>(-1)) return std::nullopt;
  return Bytes(out.data(), outPointer);
}

// The bytes decoded by glibc's iconv from `charset`; nullopt for invalid input.
std::optional<std::u16string> iconvDecode(const Bytes& bytes, const char* charset) {
  iconv_t cd = iconv_open("UTF-16LE", charset);
  if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
  std::string out(bytes.size() * 4 + 16, '\0');
  char* in = reinterpret_cast<char*>(const_cast<std::uint8_t*>(bytes.data()));
  std::size_t inLeft = bytes.size();
  char* outPointer = out.data();
  std::size_t outLeft = out.size();
  std::size_t result = iconv(cd, &in, &inLeft, &outPointer, &outLeft);
  if (result != static_cast<std::size_t>(-1)) {
    result = iconv(cd, nullptr, nullptr, &outPointer, &outLeft);
  }
  iconv_close(cd);
  if (result == static_cast<std::size_t>(-1)) return std::nullopt;
  std::u16string text;
  for (const char* p = out.data(); p + 1 < outPointer; p += 2) {
    text.push_back(static_cast<char16_t>(static_cast<std::uint8_t>(p[0]) |
                                         static_cast<std::uint8_t>(p[1]) << 8));
  }
  return text;
}

Bytes bytesOf(std::string_view text) {
  return Bytes(text.begin(), text.end());
}
// Literals may hold NUL bytes.
template <std::size_t N>
Bytes bytesOf(const char (&text)[N]) {
  return Bytes(text, text + N - 1);
}

std::string page(const std::string& head, const std::string& body) {
  return "<html><head><title>t</title>" + head + "</head><body><p>" + body + "</p></body></html>";
}

std::string httpEquiv(const std::string& charset) {
  return "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=" + charset + "\">";
}

// ---- Single conversions -------------------------------------------------------------------

TEST(TryToCreateString, CountsUndecodableSequences) {
  struct Case {
    Bytes bytes;
    CFStringEncoding encoding;
    std::u16string text;
    std::size_t bad;
  };
  const std::vector<Case> cases = {
      {bytesOf("caf\xC3\xA9"), kCFStringEncodingUTF8, u"café", 0},
      {bytesOf("caf\xE9 \xFF"), kCFStringEncodingUTF8, u"caf\uFFFD \uFFFD", 2},
      {bytesOf("caf\xE9"), kCFStringEncodingISOLatin1, u"café", 0},
      {bytesOf("a\x80z"), kCFStringEncodingASCII, u"a\uFFFDz", 1},
      // ICU's own substitute for a lone invalid Shift-JIS byte is U+001A, which would hide it.
      {bytesOf("a\xA0z\x80"), kCFStringEncodingShiftJIS, u"a\uFFFDz\uFFFD", 2},
      {bytesOf("\x82\xA0"), kCFStringEncodingShiftJIS, u"あ", 0},
      {bytesOf("\xEF\xBB\xBFok"), kCFStringEncodingUTF8, u"ok", 0},  // BOM dropped
      {bytesOf("\xFF\xFEo\0k\0"), kCFStringEncodingUnicode, u"ok", 0},
      {bytesOf("\xFE\xFF\0o\0k"), kCFStringEncodingUnicode, u"ok", 0},
      {bytesOf("\0o\0k\0"), kCFStringEncodingUnicode, u"ok\uFFFD", 1},  // odd length
      {bytesOf("\xC8\xE4"), kCFStringEncodingKamenicky, u"╚Σ", 0},
  };
  for (const Case& c : cases) {
    std::size_t bad = 99;
    std::optional<std::u16string> text =
        tryToCreateStringWithEncoding(c.bytes.data(), c.bytes.size(), c.encoding, &bad);
    ASSERT_TRUE(text) << std::hex << c.encoding;
    EXPECT_EQ(*text, c.text) << std::hex << c.encoding;
    EXPECT_EQ(bad, c.bad) << std::hex << c.encoding;
  }
}

TEST(TryToCreateString, FailedAttemptsGiveNothingAndNoBadCount) {
  const Bytes bytes = bytesOf("abc");
  for (CFStringEncoding encoding : {kCFStringEncodingInvalidId, kCFStringEncodingMacJapanese,
                                    kCFStringEncodingShiftJIS_X0213, 0x12345u}) {
    std::size_t bad = 99;
    EXPECT_FALSE(tryToCreateStringWithEncoding(bytes.data(), bytes.size(), encoding, &bad));
    EXPECT_EQ(bad, 0u);
  }
  std::size_t bad = 99;
  EXPECT_FALSE(tryToCreateStringWithEncoding(nullptr, 0, kCFStringEncodingUTF8, &bad));
  // An escape sequence alone decodes to no characters at all.
  const Bytes escape = bytesOf("\x1B$B");
  EXPECT_FALSE(tryToCreateStringWithEncoding(escape.data(), escape.size(),
                                             kCFStringEncodingISO_2022_JP, nullptr));
}

TEST(ConvertEncodingToUnicode, OutputThatDoesNotFitFails) {
  const Bytes bytes = bytesOf("abcdef");
  char16_t buffer[8];
  std::size_t length = 99;
  EXPECT_FALSE(convertEncodingToUnicode(bytes.data(), bytes.size(), kCFStringEncodingUTF8, buffer,
                                        5, &length));
  EXPECT_EQ(length, 0u);
  EXPECT_TRUE(convertEncodingToUnicode(bytes.data(), bytes.size(), kCFStringEncodingUTF8, buffer, 6,
                                       &length));
  EXPECT_EQ(std::u16string(buffer, length), u"abcdef");
  EXPECT_FALSE(convertEncodingToUnicode(bytes.data(), bytes.size(), kCFStringEncodingKamenicky,
                                        buffer, 5, &length));
}

TEST(InitWithData, StrictDecodingRefusesInvalidBytes) {
  const Bytes latin1 = bytesOf("caf\xE9");
  EXPECT_FALSE(initWithData(latin1.data(), latin1.size(), NSUTF8StringEncoding));
  EXPECT_EQ(initWithData(latin1.data(), latin1.size(), NSISOLatin1StringEncoding), u"café");
  EXPECT_EQ(initWithData(latin1.data(), latin1.size(), NSMacOSRomanStringEncoding), u"cafÈ");
  EXPECT_EQ(initWithData(nullptr, 0, NSUTF8StringEncoding), u"");
  EXPECT_FALSE(initWithData(latin1.data(), latin1.size(), kNoStringEncoding));
  EXPECT_FALSE(initWithData(latin1.data(), latin1.size(), 0));
  EXPECT_EQ(initWithData(latin1.data(), latin1.size(), NSKamenickyStringEncoding), u"cafΘ");
}

// ---- The declaration inside markup ----------------------------------------------------------

TEST(MarkupCharset, FindsTheDeclarationBeforeTheBody) {
  struct Case {
    std::u16string markup;
    std::u16string charset;
  };
  const std::vector<Case> cases = {
      {u"<html><head><meta http-equiv=Content-Type content='text/html; charset=koi8-r'>",
       u"koi8-r"},
      {u"<meta content=\"text/html;charset=UTF-8\" http-equiv=\"content-type\">", u"UTF-8"},
      {u"<META CONTENT=\"text/html; CHARSET = 'windows-1251'\">", u"windows-1251"},
      {u"<meta charset=\"Shift_JIS\">", u"Shift_JIS"},
      {u"<meta charset=utf-8/>", u"utf-8/"},
      {u"<meta name=x content=\"no charset here\" charset=gbk>", u"gbk"},
      {u"<meta charset=\"windows&#45;1250\">", u"windows-1250"},  // entities decoded
      {u"<?xml version=\"1.0\" encoding=\"EUC-JP\"?><rss>", u"EUC-JP"},
      {u"<?XML encoding='big5'?>", u"big5"},
      {u"<xml encoding=\"big5\">", u""},    // not an XML declaration
      {u"</meta charset=latin2><p>", u""},  // end tags declare nothing
      {u"<meta name=description content=x><meta charset=latin2>", u"latin2"},
      {u"<body><meta charset=latin2>", u""},  // too late: after the body start
      {u"<BODY onload=x><meta charset=latin2>", u""},
      {u"<!-- <meta charset=latin2> --><p>", u""},  // comments are not tags
      {u"<title>Résumé</title><p>plain", u""},
      {u"", u""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(markupCharset(c.markup), c.charset) << utf16ToUtf8(c.markup);
  }
}

TEST(MarkupCharset, RangeCoversTheDeclaringTag) {
  std::u16string markup = u"<html><meta name=a><meta charset=koi8-r><body>";
  EXPECT_EQ(markupCharsetRange(markup), (Range{19, 21}));
  EXPECT_EQ(markupCharsetRange(u"<p>none</p>"), Range{});
  EXPECT_FALSE(markupCharsetRange(u"<body><meta charset=x>").found());
}

TEST(MarkupCharset, EncodingsOfTheDeclaration) {
  EXPECT_EQ(markupEncoding(u"<meta charset=windows-1251>"), NSWindowsCP1251StringEncoding);
  EXPECT_EQ(markupEncoding(u"<p>nothing"), kNoStringEncoding);
  EXPECT_EQ(defaultURLEncoding(u"<meta charset=iso-8859-1>"), NSISOLatin1StringEncoding);
  EXPECT_EQ(defaultURLEncoding(u"<meta charset=windows-1252>"), NSUTF8StringEncoding);
  EXPECT_EQ(defaultURLEncoding(u"<p>"), NSUTF8StringEncoding);
  EXPECT_EQ(headerEncoding(u"text/html; charset=\"EUC-JP\""), NSJapaneseEUCStringEncoding);
  EXPECT_EQ(headerEncoding(u"text/html"), kNoStringEncoding);
}

// ---- Encoding back ---------------------------------------------------------------------------

TEST(MarkupData, EncodesInTheDeclaredCharset) {
  NSStringEncoding used = 0;
  std::u16string markup = u"<meta charset=windows-1251><p>Привет</p>";
  Data data = markupData(markup, &used);
  EXPECT_EQ(used, NSWindowsCP1251StringEncoding);
  EXPECT_EQ(std::string(data.begin(), data.end()),
            "<meta charset=windows-1251><p>\xCF\xF0\xE8\xE2\xE5\xF2</p>");

  // What the charset cannot hold becomes a decimal character reference.
  data = markupData(u"<meta charset=iso-8859-1><p>café č 😀</p>", &used);
  EXPECT_EQ(used, NSISOLatin1StringEncoding);
  EXPECT_EQ(std::string(data.begin(), data.end()),
            "<meta charset=iso-8859-1><p>caf\xE9 &#269; &#128512;</p>");

  data = markupData(u"<meta charset=x-kam-cs><p>kůň $</p>", &used);
  EXPECT_EQ(used, NSKamenickyStringEncoding);
  EXPECT_EQ(std::string(data.begin(), data.end()), "<meta charset=x-kam-cs><p>k\x96\xA4 $</p>");
}

TEST(MarkupData, UndeclaredTextBecomesAsciiWithEntities) {
  NSStringEncoding used = 0;
  Data data = markupData(u"<p>café – 1€</p>", &used);
  EXPECT_EQ(used, NSASCIIStringEncoding);
  EXPECT_EQ(std::string(data.begin(), data.end()), "<p>caf&eacute; &ndash; 1&euro;</p>");
  data = markupData(u"", &used);
  EXPECT_TRUE(data.empty());
  EXPECT_EQ(used, NSASCIIStringEncoding);
}

// ---- Pages in many character sets -----------------------------------------------------------

struct PageCase {
  const char* iconvName;  // how glibc names it, to make the bytes
  const char* declared;   // as the page declares it
  const char* text;       // UTF-8
  NSStringEncoding expectedEncoding;
};

const std::vector<PageCase>& pageCases() {
  static const std::vector<PageCase> cases = {
      {"SHIFT_JIS", "Shift_JIS", "日本語のテキストです。カタカナも。", NSShiftJISStringEncoding},
      {"EUC-JP", "EUC-JP", "日本語のテキストです。ひらがな。", NSJapaneseEUCStringEncoding},
      {"ISO-2022-JP", "ISO-2022-JP", "日本語の電子メール。", NSISO2022JPStringEncoding},
      {"GB2312", "gb2312", "中文网页的内容。", 0x80000930},
      {"GBK", "GBK", "中文網頁與简体字。", 0x80000631},
      {"GB18030", "GB18030", "中文网页，还有€。", 0x80000632},
      {"BIG5", "big5", "繁體中文網頁。", 0x80000A03},
      {"EUC-KR", "euc-kr", "한국어 웹 페이지입니다.", 0x80000940},
      {"CP1251", "windows-1251", "Съешь же ещё этих мягких булок.", NSWindowsCP1251StringEncoding},
      {"KOI8-R", "koi8-r", "Съешь же ещё этих мягких булок.", 0x80000A02},
      {"ISO-8859-5", "iso-8859-5", "Съешь же ещё этих мягких булок.", 0x80000205},
      {"CP866", "cp866", "Съешь же ещё этих мягких булок.", 0x8000041B},
      {"ISO-8859-2", "ISO-8859-2", "Příliš žluťoučký kůň úpěl ďábelské ódy.",
       NSISOLatin2StringEncoding},
      {"CP1250", "windows-1250", "Zażółć gęślą jaźń.", NSWindowsCP1250StringEncoding},
      {"ISO-8859-7", "iso-8859-7", "Ξεσκεπάζω την ψυχοφθόρα βδελυγμία.", 0x80000207},
      {"CP1253", "windows-1253", "Ξεσκεπάζω την ψυχοφθόρα βδελυγμία.",
       NSWindowsCP1253StringEncoding},
      {"ISO-8859-8", "iso-8859-8", "דג סקרן שט בים מאוכזב.", 0x80000208},
      {"CP1256", "windows-1256", "نص عربي قصير.", 0x80000506},
      {"ISO-8859-9", "iso-8859-9", "Pijamalı hasta yağız şoföre çabucak güvendi.", 0x80000209},
      {"ISO-8859-15", "iso-8859-15", "Cœur à 5 €.", 0x8000020F},
      {"CP1252", "windows-1252", "Naïve “quotes” – 5 €.", NSWindowsCP1252StringEncoding},
      {"MACINTOSH", "macintosh", "Café ﬁn — «guillemets».", NSMacOSRomanStringEncoding},
      {"CP874", "windows-874", "ภาษาไทย", 0x8000041D},
      {"UTF-8", "utf-8", "Grüße, 世界, мир! 😀", NSUTF8StringEncoding},
  };
  return cases;
}

TEST(MarkupDecoder, DecodesPagesByTheirMetaTag) {
  for (const PageCase& c : pageCases()) {
    std::string html = page(httpEquiv(c.declared), c.text);
    std::optional<Bytes> bytes = iconvEncode(html, c.iconvName);
    ASSERT_TRUE(bytes) << c.iconvName;
    NSStringEncoding used = 0;
    std::optional<std::u16string> text = stringWithMarkupData(
        *bytes, std::u16string_view(), NSISOLatin1StringEncoding, u"http://example.com/", &used);
    ASSERT_TRUE(text) << c.declared;
    EXPECT_EQ(*text, utf8ToUtf16(html)) << c.declared;
    EXPECT_EQ(used, c.expectedEncoding) << c.declared;
  }
}

TEST(MarkupDecoder, DecodesPagesByTheNameFromOutside) {
  for (const PageCase& c : pageCases()) {
    std::string html = page("", c.text);
    std::optional<Bytes> bytes = iconvEncode(html, c.iconvName);
    ASSERT_TRUE(bytes) << c.iconvName;
    std::u16string contentType = u"text/html; charset=" + utf8ToUtf16(c.declared);
    std::optional<std::u16string> text =
        stringWithMarkupData(*bytes, contentType, NSISOLatin1StringEncoding);
    ASSERT_TRUE(text) << c.declared;
    EXPECT_EQ(*text, utf8ToUtf16(html)) << c.declared;
  }
}

TEST(MarkupDecoder, Utf16NeedsItsNameAndReadsEitherByteOrder) {
  std::string html = page("", "Grüße, 世界");
  for (const char* order : {"UTF-16LE", "UTF-16BE"}) {
    // The byte-order mark written as U+FEFF in the chosen order.
    std::optional<Bytes> bytes = iconvEncode("\uFEFF" + html, order);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(stringWithMarkupData(*bytes, u"utf-16", NSISOLatin1StringEncoding, u""),
              utf8ToUtf16(html))
        << order;
  }
}

TEST(MarkupDecoder, EmptyDataIsTheEmptyString) {
  NSStringEncoding used = 0;
  EXPECT_EQ(stringWithMarkupData(Bytes{}, u"utf-8", NSUTF8StringEncoding, u"", &used), u"");
  EXPECT_EQ(used, kNoStringEncoding);
}

// A page that the caller says is UTF-8 but whose meta tag claims Latin-1: when the bytes are clean
// UTF-8 that reading is kept (it is shorter than the Latin-1 misreading).
TEST(MarkupDecoder, CleanUtf8BeatsAWrongLatin1Claim) {
  std::string html = page(httpEquiv("ISO-8859-1"), "Grüße aus Köln");
  NSStringEncoding used = 0;
  EXPECT_EQ(stringWithMarkupData(bytesOf(html), u"utf-8", NSISOLatin1StringEncoding, u"", &used),
            utf8ToUtf16(html));
  EXPECT_EQ(used, NSUTF8StringEncoding);

  html = page(httpEquiv("windows-1251"), "Привет");
  EXPECT_EQ(stringWithMarkupData(bytesOf(html), u"utf-8", NSISOLatin1StringEncoding, u"", &used),
            utf8ToUtf16(html));
  EXPECT_EQ(used, NSUTF8StringEncoding);
}

// Without a name from outside, the page's own declaration wins even when it reads worse.
TEST(MarkupDecoder, TheDeclarationWinsWithoutANameFromOutside) {
  std::string html = page(httpEquiv("utf-8"), "caf\xE9");  // Latin-1 bytes under a UTF-8 claim
  NSStringEncoding used = 0;
  std::optional<std::u16string> text = stringWithMarkupData(bytesOf(html), std::u16string_view(),
                                                            NSISOLatin1StringEncoding, u"", &used);
  ASSERT_TRUE(text);
  EXPECT_NE(text->find(u"caf\uFFFD"), std::u16string::npos);
  EXPECT_EQ(used, NSUTF8StringEncoding);

  // The same bytes with Latin-1 named from outside: the named reading has fewer bad characters.
  text = stringWithMarkupData(bytesOf(html), u"iso-8859-1", NSUTF8StringEncoding, u"", &used);
  ASSERT_TRUE(text);
  EXPECT_NE(text->find(u"café"), std::u16string::npos);
  EXPECT_EQ(used, NSISOLatin1StringEncoding);
}

TEST(MarkupDecoder, NamedEncodingLosesToACleanerDeclaration) {
  std::optional<Bytes> bytes = iconvEncode(page(httpEquiv("windows-1252"), "naïve"), "CP1252");
  ASSERT_TRUE(bytes);
  NSStringEncoding used = 0;
  std::optional<std::u16string> text =
      stringWithMarkupData(*bytes, u"utf-8", NSISOLatin1StringEncoding, u"", &used);
  ASSERT_TRUE(text);
  EXPECT_NE(text->find(u"naïve"), std::u16string::npos);
  EXPECT_EQ(used, NSWindowsCP1252StringEncoding);
}

// A Windows-1251 claim over a Latin-1 guess decodes as Windows-1251.
TEST(MarkupDecoder, Windows1251ClaimOverLatin1Guess) {
  std::optional<Bytes> bytes = iconvEncode(page(httpEquiv("windows-1251"), "Привет"), "CP1251");
  ASSERT_TRUE(bytes);
  NSStringEncoding used = 0;
  std::optional<std::u16string> text =
      stringWithMarkupData(*bytes, u"iso-8859-1", NSISOLatin1StringEncoding, u"", &used);
  ASSERT_TRUE(text);
  EXPECT_NE(text->find(u"Привет"), std::u16string::npos);
  EXPECT_EQ(used, NSWindowsCP1251StringEncoding);
}

TEST(MarkupDecoder, UnknownOrPlaceholderNamesFallBackToTheDefault) {
  std::optional<Bytes> bytes = iconvEncode(page("", "Köln"), "ISO-8859-1");
  ASSERT_TRUE(bytes);
  for (const char16_t* name : {u"auto", u"x-user-defined", u"x-mac-japanese", u""}) {
    NSStringEncoding used = 0;
    EXPECT_EQ(stringWithMarkupData(*bytes, name, NSISOLatin1StringEncoding, u"", &used),
              utf8ToUtf16(page("", "Köln")));
    EXPECT_EQ(used, NSISOLatin1StringEncoding);
  }
  EXPECT_EQ(stringWithMarkupData(*bytes, NSISOLatin1StringEncoding), utf8ToUtf16(page("", "Köln")));
}

TEST(MarkupDecoder, DeclarationAfterTheBodyIsIgnored) {
  std::string html = "<html><body><meta charset=windows-1251><p>\xCF\xF0\xE8</p>";
  EXPECT_EQ(stringWithMarkupData(bytesOf(html), NSISOLatin1StringEncoding),
            utf8ToUtf16("<html><body><meta charset=windows-1251><p>Ïðè</p>"));
}

TEST(MarkupDecoder, CzechDeclarationsUseOurTables) {
  const std::string head = "<meta charset=x-kam-cs><p>";
  Bytes bytes = bytesOf(head + "k\x96\xA4");
  NSStringEncoding used = 0;
  EXPECT_EQ(
      stringWithMarkupData(bytes, std::u16string_view(), NSISOLatin1StringEncoding, u"", &used),
      utf8ToUtf16(head + "kůň"));
  EXPECT_EQ(used, NSKamenickyStringEncoding);
  bytes = bytesOf("<meta charset=koi8-cs2><p>\xCB\xD5\xCE $5");
  EXPECT_EQ(stringWithMarkupData(bytes, NSUTF8StringEncoding),
            utf8ToUtf16("<meta charset=koi8-cs2><p>ĺúň ¤5"));
}

TEST(MarkupDecoder, UnavailableDefaultWithoutDeclarationGivesNothing) {
  const CFStringEncoding macJapanese = 0x80000001;
  NSStringEncoding used = 0;
  EXPECT_FALSE(
      stringWithMarkupData(bytesOf("<p>x"), std::u16string_view(), macJapanese, u"", &used));
  EXPECT_EQ(used, kNoStringEncoding);
}

TEST(MarkupDecoder, AnyByteSequenceIsSafe) {
  // Junk, declarations of every kind, truncated multibyte sequences.
  const std::vector<std::string> inputs = {
      std::string("\0\0\0", 3),
      "<meta charset=utf-16>\xFF",
      "<meta charset=iso-2022-jp>\x1B$B",
      "<meta charset=big5>\xA4",
      "<meta charset=shift_jis>\x82",
      "<meta charset=euc-cn>\xB0",
      "<meta charset=x-mac-arabic>abc",
      "<?xml encoding='koi8-cs2'?>\xFF\xFE",
      "<meta content='text/html; charset=",
      "<script>",
  };
  for (const std::string& input : inputs) {
    for (NSStringEncoding fallback : {NSISOLatin1StringEncoding, NSUTF8StringEncoding,
                                      NSUnicodeStringEncoding, kNoStringEncoding}) {
      stringWithMarkupData(bytesOf(input), u"", fallback, u"");
    }
  }
}

// ---- Fallback chains --------------------------------------------------------------------------

TEST(FallbackChains, OrderAsTheDecoderTriesThem) {
  const std::vector<CFStringEncoding> japanese = {0xA01, 0x628, 0x1,   0x420, 0x620, 0x621, 0x622,
                                                  0x623, 0x624, 0x920, 0x820, 0x822, 0x821, 0x823};
  const std::vector<CFStringEncoding> chinese = {0x931, 0x630, 0xA05, 0x631, 0xA03, 0xA06, 0xA09};
  auto j = japaneseFallbackEncodings();
  auto c = chineseFallbackEncodings();
  EXPECT_EQ(std::vector<CFStringEncoding>(j.begin(), j.end()), japanese);
  EXPECT_EQ(std::vector<CFStringEncoding>(c.begin(), c.end()), chinese);
}

TEST(FallbackChains, FirstEncodingThatYieldsCharactersWins) {
  std::optional<Bytes> sjis = iconvEncode("日本語", "SHIFT_JIS");
  ASSERT_TRUE(sjis);
  CFStringEncoding used = 0;
  EXPECT_EQ(firstStringOfEncodings(*sjis, japaneseFallbackEncodings(), &used), u"日本語");
  EXPECT_EQ(used, kCFStringEncodingShiftJIS);

  // Members without a converter are passed over.
  const CFStringEncoding chain[] = {kCFStringEncodingShiftJIS_X0213, kCFStringEncodingMacJapanese,
                                    kCFStringEncodingEUC_JP};
  std::optional<Bytes> eucjp = iconvEncode("日本語", "EUC-JP");
  ASSERT_TRUE(eucjp);
  EXPECT_EQ(firstStringOfEncodings(*eucjp, chain, &used), u"日本語");
  EXPECT_EQ(used, kCFStringEncodingEUC_JP);

  // The Chinese chain begins with EUC-TW, which reads any EUC-CN bytes too.
  std::optional<Bytes> gb = iconvEncode("中文", "GB2312");
  ASSERT_TRUE(gb);
  EXPECT_TRUE(firstStringOfEncodings(*gb, chineseFallbackEncodings(), &used));
  EXPECT_EQ(used, kCFStringEncodingEUC_TW);

  EXPECT_FALSE(firstStringOfEncodings(Bytes{}, japaneseFallbackEncodings(), &used));
}

// ---- Files -----------------------------------------------------------------------------------

class MarkupFile : public ::testing::Test {
 protected:
  void SetUp() override {
    directory_ = std::filesystem::path(::testing::TempDir()) /
                 ("markup_decoding_test_" + std::to_string(getpid()));
    std::filesystem::create_directories(directory_);
  }
  void TearDown() override {
    std::error_code error;
    std::filesystem::remove_all(directory_, error);
  }
  std::u16string write(const std::string& name, const Bytes& bytes) {
    std::filesystem::path path = directory_ / name;
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return utf8ToUtf16(path.string());
  }
  std::filesystem::path directory_;
};

TEST_F(MarkupFile, DeclaredEncodingReplacesTheDefault) {
  std::optional<Bytes> bytes = iconvEncode(page(httpEquiv("koi8-r"), "Привет"), "KOI8-R");
  ASSERT_TRUE(bytes);
  NSStringEncoding used = 0;
  std::optional<std::u16string> text =
      stringWithMarkupContentsOfFile(write("koi8.html", *bytes), NSISOLatin1StringEncoding, &used);
  ASSERT_TRUE(text);
  EXPECT_NE(text->find(u"Привет"), std::u16string::npos);
  EXPECT_EQ(used, 0x80000A02u);
}

TEST_F(MarkupFile, InvalidUtf8UnderAUtf8ClaimIsReadAsMacRoman) {
  Bytes bytes = bytesOf(page(httpEquiv("utf-8"), "caf\x8E"));  // 0x8E is "é" in Mac OS Roman
  NSStringEncoding used = 0;
  std::optional<std::u16string> text =
      stringWithMarkupContentsOfFile(write("roman.html", bytes), NSISOLatin1StringEncoding, &used);
  ASSERT_TRUE(text);
  EXPECT_NE(text->find(u"café"), std::u16string::npos);
  EXPECT_EQ(used, NSMacOSRomanStringEncoding);
}

TEST_F(MarkupFile, StrictDefaultThatFailsGivesNothing) {
  EXPECT_FALSE(
      stringWithMarkupContentsOfFile(write("bad.html", bytesOf("caf\xE9")), NSUTF8StringEncoding));
}

TEST_F(MarkupFile, BinaryPropertyListIsReadAsXml) {
  Dictionary root{{u"WebResourceURL", Value(u"http://example.com/é")}};
  std::vector<std::uint8_t> binary = binaryPropertyList(Value(root));
  NSStringEncoding used = 0;
  std::optional<std::u16string> text =
      stringWithMarkupContentsOfFile(write("a.plist", binary), NSISOLatin1StringEncoding, &used);
  ASSERT_TRUE(text);
  EXPECT_EQ(*text, utf8ToUtf16(xmlPropertyList(Value(root))));
  EXPECT_NE(text->find(u"http://example.com/é"), std::u16string::npos);
  EXPECT_EQ(used, NSUTF8StringEncoding);
  EXPECT_FALSE(stringWithMarkupContentsOfFile(write("b.plist", bytesOf("bplist00junk")),
                                              NSISOLatin1StringEncoding));
}

TEST_F(MarkupFile, MissingFilesGiveNothing) {
  EXPECT_FALSE(stringWithMarkupContentsOfFile(u"", NSISOLatin1StringEncoding));
  EXPECT_FALSE(stringWithMarkupContentsOfFile(utf8ToUtf16((directory_ / "none").string()),
                                              NSISOLatin1StringEncoding));
}

// ---- Real pages ------------------------------------------------------------------------------

// The news and blog pages of the shared corpus: 48 declare UTF-8 in a meta tag before the body
// (a plain regular expression over the bytes finds these too), 11 declare nothing, and one
// (cc03ddb5...) puts its meta tag after "<body>", where it does not count. Read with a Latin-1
// guess, the declared ones must come out as their UTF-8 text, the others as Latin-1.
TEST(MarkupDecoder, RealPagesFollowTheirDeclaration) {
  if (corpus::articlePages().empty()) GTEST_SKIP() << "no shared corpus";
  std::size_t declared = 0, undeclared = 0;
  for (const corpus::File& page : corpus::articlePages()) {
    const std::filesystem::path& path = page.path;
    const std::optional<Data> bytes = Data(page.bytes.begin(), page.bytes.end());
    NSStringEncoding used = 0;
    std::optional<std::u16string> text =
        stringWithMarkupData(*bytes, std::u16string_view(), NSISOLatin1StringEncoding, u"", &used);
    ASSERT_TRUE(text) << path;
    if (used == NSUTF8StringEncoding) {
      ++declared;
      EXPECT_EQ(*text, utf8ToUtf16(std::string(bytes->begin(), bytes->end()))) << path;
    } else {
      ++undeclared;
      EXPECT_EQ(used, NSISOLatin1StringEncoding) << path;
      EXPECT_EQ(markupCharset(*text), u"") << path;
    }
  }
  EXPECT_EQ(declared, 48u);
  EXPECT_EQ(undeclared, 12u);
}

// ---- Differential: our ICU decoding against glibc's iconv
// ----------------------------------------

struct SweepCase {
  CFStringEncoding ours;
  const char* glibc;
  bool doubleByte;
  double minimumAgreement;  // share of sequences both decode that must decode alike
};

// Every single byte (or every lead and trail byte pair) decoded by both. ICU's IBM DOS tables
// rotate 0x1A, 0x1C and 0x7F, and the Mac and CJK tables differ in a few vendor characters;
// everything else must agree.
TEST(IconvDifferential, SweepsAgree) {
  const std::vector<SweepCase> cases = {
      {0x201, "ISO-8859-1", false, 1.0}, {0x202, "ISO-8859-2", false, 1.0},
      {0x205, "ISO-8859-5", false, 1.0}, {0x207, "ISO-8859-7", false, 1.0},
      {0x208, "ISO-8859-8", false, 1.0}, {0x20F, "ISO-8859-15", false, 1.0},
      {0x500, "CP1252", false, 1.0},     {0x501, "CP1250", false, 1.0},
      {0x502, "CP1251", false, 1.0},     {0x503, "CP1253", false, 1.0},
      {0x506, "CP1256", false, 1.0},     {0x507, "CP1257", false, 1.0},
      {0xA02, "KOI8-R", false, 1.0},     {0xA08, "KOI8-U", false, 1.0},
      {0x41D, "CP874", false, 1.0},      {0x600, "ASCII", false, 1.0},
      {0x400, "CP437", false, 0.98},     {0x41B, "CP866", false, 0.98},
      {0x0, "MACINTOSH", false, 0.99},   {0x7, "MAC-CYRILLIC", false, 0.99},
      {0x920, "EUC-JP", true, 0.99},     {0xA01, "CP932", true, 0.99},
      {0x940, "EUC-KR", true, 0.97},     {0x631, "GBK", true, 1.0},
      {0x930, "GB2312", true, 0.99},     {0x632, "GB18030", true, 0.99},
      {0xA03, "BIG5", true, 1.0},        {0xA06, "BIG5-HKSCS", true, 0.99},
  };
  for (const SweepCase& c : cases) {
    std::size_t both = 0, alike = 0;
    auto check = [&](const Bytes& bytes) {
      std::optional<std::u16string> reference = iconvDecode(bytes, c.glibc);
      if (!reference) return;
      std::size_t bad = 0;
      std::optional<std::u16string> ours =
          tryToCreateStringWithEncoding(bytes.data(), bytes.size(), c.ours, &bad);
      ASSERT_TRUE(ours) << c.glibc;
      ++both;
      alike += *ours == *reference;
    };
    if (c.doubleByte) {
      for (int lead = 0x81; lead < 0xFF; ++lead) {
        for (int trail = 0x40; trail < 0xFF; ++trail) {
          check(Bytes{static_cast<std::uint8_t>(lead), static_cast<std::uint8_t>(trail)});
        }
      }
    } else {
      for (int byte = 0; byte < 256; ++byte)
        check(Bytes{static_cast<std::uint8_t>(byte)});
    }
    ASSERT_GT(both, 0u) << c.glibc;
    EXPECT_GE(static_cast<double>(alike) / static_cast<double>(both), c.minimumAgreement)
        << c.glibc << ": " << alike << " of " << both;
  }
}

}  // namespace
}  // namespace ferncast
