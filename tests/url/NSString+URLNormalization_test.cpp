#include "url/NSString+URLNormalization.h"

#include <gtest/gtest.h>

#include <string>

#include "Classes/Unicode.h"
#include "url/URL.h"

namespace ferncast {
namespace {

std::string text(const std::optional<std::u16string>& s) {
  return s ? utf16ToUtf8(*s) : "(nil)";
}

TEST(NormalizedStringURL, CleansLinksAsWrittenInPages) {
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"  http://example.com/a  ", "http://example.com/a"},
      {u"\n\t/path\r\n", "/path"},
      {u"\u00a0/nbsp\u3000", "/nbsp"},  // white space beyond ASCII
      {u"\"/quoted\"", "/quoted"},
      {u"' /single ' ", "/single"},
      {u"\\\"/escaped\\\"", "/escaped"},
      {u"\"'/twice'\"", "/twice"},
      {u"\"/unbalanced", "%22/unbalanced"},
      {u"/a?x=1&amp;y=2", "/a?x=1&y=2"},
      {u"/caf&eacute;", "/caf%C3%A9"},
      {u"/a b", "/a%20b"},
      {u"/li\nne", "/line"},  // inner line feeds go, as in browsers
      {u"/100%", "/100%25"},
      {u"/ok%20%zz", "/ok%20%25zz"},
      {u"/<x>|{y}", "/%3Cx%3E%7C%7By%7D"},
      {u"/\U0001F600", "/%F0%9F%98%80"},
      {u"/\xd800", "/%EF%BF%BD"},
      {u"HTTP://User:PW@WWW.Example.COM:80/Path?Q#F", "http://User:PW@www.example.com:80/Path?Q#F"},
      {u"//CDN.Example.com/X", "//cdn.example.com/X"},
      {u"http://[FE80::1]/", "http://[fe80::1]/"},
      {u"http://%C3%A4.DE/", "http://%C3%A4.de/"},
      {u"Mailto:Ann@Example.com", "mailto:Ann@Example.com"},
      {u"#top", "#top"},
      {u"#", "#"},
      {u"", "(nil)"},
      {u"   ", "(nil)"},
      {u"\"\"", "(nil)"},
      {u"&#32;", "(nil)"},
  };
  for (const auto& [link, expected] : cases) {
    SCOPED_TRACE(utf16ToUtf8(link));
    std::optional<std::u16string> normalized = normalizedStringURL(link);
    EXPECT_EQ(text(normalized), expected);
    // Whatever comes out is a valid URL string.
    if (normalized) {
      EXPECT_TRUE(URL::URLWithNormalizedStringURL(*normalized));
    }
  }
}

TEST(NormalizedStringURL, EscapesLatin1PagesInLatin1) {
  EXPECT_EQ(normalizedStringURL(u"/caf\u00e9", NSISOLatin1StringEncoding), u"/caf%E9");
  EXPECT_EQ(normalizedStringURL(u"/\u20ac", NSISOLatin1StringEncoding), u"/%E2%82%AC");
  EXPECT_EQ(normalizedStringURL(u"/caf\u00e9", NSUTF8StringEncoding), u"/caf%C3%A9");
}

TEST(NormalizedRelLink, RootsBareNames) {
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"favicon.ico", "/favicon.ico"},
      {u"./a.css", "./a.css"},
      {u"../a.css", "../a.css"},
      {u"/a.css", "/a.css"},
      {u"http://x.com/a.css", "http://x.com/a.css"},
      {u"data:image/png", "/data:image/png"},
      {u" ", "(nil)"},
  };
  for (const auto& [link, expected] : cases) {
    SCOPED_TRACE(utf16ToUtf8(link));
    EXPECT_EQ(text(normalizedRelLink(link)), expected);
  }
}

TEST(NormalizedStringURL, HandlesAMegabyteLink) {
  std::u16string link = u" http://example.com/" + std::u16string(1 << 20, u'\u00e9') + u" ";
  std::optional<std::u16string> normalized = normalizedStringURL(link);
  ASSERT_TRUE(normalized);
  EXPECT_EQ(normalized->size(), 19 + 6 * (1u << 20));
}

}  // namespace
}  // namespace ferncast
