#include "url/NSString+URLUtilities.h"

#include <gtest/gtest.h>

#include <string>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

struct PrefixCase {
  const char16_t* string;
  // WebKit, RemoteWebKit, Downloadable, Loadable, HTTP, FTP, News
  bool expected[7];
};

TEST(URLStringPrefixes, MatchTheirListsIgnoringCaseAndRespectTheMinimumLength) {
  const PrefixCase cases[] = {
      {u"http://x", {1, 1, 1, 1, 1, 0, 0}},
      {u"HTTPS://x", {1, 1, 1, 1, 1, 0, 0}},
      {u"feed://x", {1, 1, 0, 1, 0, 0, 0}},
      {u"www.x", {1, 1, 1, 1, 0, 0, 0}},
      {u"file:///", {1, 0, 0, 1, 0, 0, 0}},
      {u"ftp://x", {0, 0, 1, 1, 0, 1, 0}},
      {u"sFtp://x", {0, 0, 1, 1, 0, 1, 0}},
      {u"ftp.x", {0, 0, 1, 1, 0, 0, 0}},
      {u"news://x", {0, 0, 0, 0, 0, 0, 1}},
      {u"nntp://", {0, 0, 0, 0, 0, 0, 1}},
      // Too short for a list even though a prefix matches.
      {u"www.", {0, 0, 0, 0, 0, 0, 0}},
      {u"ftp:/", {0, 0, 0, 0, 0, 0, 0}},
      // Exactly the minimum: "http:/" is six characters, one short for the HTTP list.
      {u"http:/", {0, 0, 0, 0, 0, 0, 0}},
      {u"ftp://", {0, 0, 1, 1, 0, 1, 0}},
      {u" http://x", {0, 0, 0, 0, 0, 0, 0}},
      {u"", {0, 0, 0, 0, 0, 0, 0}},
  };
  for (const PrefixCase& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.string));
    EXPECT_EQ(isWebKitStringURL(c.string), c.expected[0]);
    EXPECT_EQ(isRemoteWebKitStringURL(c.string), c.expected[1]);
    EXPECT_EQ(isDownloadableStringURL(c.string), c.expected[2]);
    EXPECT_EQ(isLoadableStringURL(c.string), c.expected[3]);
    EXPECT_EQ(isHTTPStringURL(c.string), c.expected[4]);
    EXPECT_EQ(isFTPStringURL(c.string), c.expected[5]);
    EXPECT_EQ(isNewsStringURL(c.string), c.expected[6]);
  }
}

TEST(URLStringSchemes, RecogniseFeedFileScriptStrings) {
  struct Case {
    const char16_t* string;
    bool feed, file, javaScript, appleScript;
  };
  const Case cases[] = {
      {u"feed:", 1, 0, 0, 0},      {u"FEED:http://x", 1, 0, 0, 0},
      {u"/Users/x", 0, 1, 0, 0},   {u"~/x", 0, 1, 0, 0},
      {u"~", 0, 1, 0, 0},          {u"File://x", 0, 1, 0, 0},
      {u"file:/x", 0, 0, 0, 0},    {u"JavaScript:void(0)", 0, 0, 1, 0},
      {u"javascript", 0, 0, 0, 0}, {u"applescript:tell", 0, 0, 0, 1},
      {u"", 0, 0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.string));
    EXPECT_EQ(isFeedStringURL(c.string), c.feed);
    EXPECT_EQ(isFileStringURL(c.string), c.file);
    EXPECT_EQ(isJavaScriptStringURL(c.string), c.javaScript);
    EXPECT_EQ(isAppleScriptStringURL(c.string), c.appleScript);
  }
}

TEST(MailStrings, AcceptShortDomainsOnly) {
  const std::pair<const char16_t*, bool> cases[] = {
      {u"mailto:a@bc", false},  // exactly 11 characters
      {u"mailto:a@bcd", true},  // 12
      {u"MAILTO:anything", true},
      {u"ann@example.com", true},
      {u"a.b-c_d@host.info", true},
      {u"ann@mail.de.", true},
      {u"ann@mail.de?subject=x", true},
      {u"ann@mail.co.uk", true},
      {u"ann@example.museum", false},    // a final label of more than four
      {u"ann@mail.example.org", false},  // a long second label
      {u"ann@mail.de,bob@x.de", false},
      {u"ann@mail.de/x", false},
      {u"a@b.c", true},
      {u"a@b.", false},  // no letter after the dot
      {u"a@b.1x", false},
      {u"a@bcd", false},  // no dot
      {u"a@.bc", false},
      {u"@ab.cd", false},
      {u"-a@b.cd", false},
      {u"a-@b.cd", false},
      {u"a+b@c.de", false},
      {u"http://a@b.de", false},  // ":" comes first
      {u"a/b@c.de", false},
      {u"a@b", false},  // shorter than five
      {u"", false},
  };
  for (const auto& [string, expected] : cases) {
    SCOPED_TRACE(utf16ToUtf8(string));
    EXPECT_EQ(isMailStringURL(string), expected);
  }
}

TEST(MIMETypes, ClassifyByFamily) {
  using Predicate = bool (*)(std::u16string_view);
  struct Case {
    Predicate predicate;
    const char* name;
    std::vector<const char16_t*> yes, no;
  };
  const Case cases[] = {
      {isMarkupMIMEType,
       "markup",
       {u"text/plain", u"TEXT/html", u"application/xhtml+xml", u"application/rss+xml",
        u"application/RSD+xml", u"application/atom", u"application/rdf"},
       {u"application/RDF", u"application/json", u"image/svg+xml", u"", u"xml"}},
      {isHTMLMIMEType,
       "HTML",
       {u"text/plain", u"text/css", u"application/xhtml+xml", u"x/HTM"},
       {u"application/xml", u""}},
      {isWebArchiveMIMEType,
       "web archive",
       {u"application/x-webarchive", u"Application/X-WebArchive"},
       {u"application/x-webarchive2", u"application/webarchive"}},
      {isImageMIMEType, "image", {u"image/png", u"IMAGE/jpeg"}, {u"x-image/png", u"imag"}},
      {isTextMIMEType, "text", {u"text/", u"Text/rtf"}, {u"application/text"}},
      {isPlainTextMIMEType,
       "plain text",
       {u"text/plain", u"TEXT/PLAIN"},
       {u"text/plain; charset=utf-8", u"text/html"}},
      {isStylesheetOrScriptMIMEType,
       "style sheet or script",
       {u"text/css", u"application/x-JavaScript", u"application/pointplus"},
       {u"text/html", u"application/ecmascript"}},
      {isRTFMIMEType,
       "RTF",
       {u"text/rtf", u"application/X-RTF", u"text/richtext"},
       {u"text/RichText", u"text/rtfd", u"application/rtf+xml"}},
      {isPDFMIMEType, "PDF", {u"application/pdf", u"application/X-PDF"}, {u"application/pdfx"}},
      {isPostScriptMIMEType,
       "PostScript",
       {u"application/postscript", u"x/x-PostScript"},
       {u"application/eps"}},
      {isMSWordMIMEType,
       "Word",
       {u"application/msword", u"application/x-doc", u"application/DOCX", u"x/dot"},
       {u"application/docm", u"application/vnd.ms-excel"}},
      {isMSPowerPointMIMEType,
       "PowerPoint",
       {u"application/vnd.ms-powerpoint", u"application/ppt", u"application/x-pptx"},
       {u"application/msword"}},
      {isMSExcelMIMEType,
       "Excel",
       {u"application/vnd.ms-excel", u"application/xlsx", u"application/x-xls"},
       {u"application/csv"}},
      {isMSOfficeMIMEType,
       "Office",
       {u"application/msword", u"application/ppt", u"x/xls"},
       {u"application/pdf"}},
      {isOpenOfficeMIMEType,
       "OpenOffice",
       {u"application/vnd.oasis.opendocument.text-master"},
       {u"application/vnd.oasis.opendocument.spreadsheet"}},
      {isStarOfficeMIMEType,
       "StarOffice",
       {u"application/vnd.sun.xml.writer.global"},
       {u"application/vnd.sun.xml.calc"}},
      {isMultimediaMIMEType,
       "multimedia",
       {u"audio/mpeg", u"Video/mp4", u"image/x-wmf", u"application/ASF", u"video/x-asx",
        u"application/x-msmetafile"},
       {u"image/png", u"application/ogg"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (const char16_t* type : c.yes)
      EXPECT_TRUE(c.predicate(type)) << utf16ToUtf8(type);
    for (const char16_t* type : c.no)
      EXPECT_FALSE(c.predicate(type)) << utf16ToUtf8(type);
  }
}

TEST(WebKitStrings, TurnFeedIntoHTTP) {
  EXPECT_EQ(WebKitStringURL(u"FEED://x.com/rss"), u"http://x.com/rss");
  EXPECT_EQ(WebKitStringURL(u"feed:http://x.com/rss"), u"http:http://x.com/rss");
  EXPECT_EQ(WebKitStringURL(u"feeds://x"), u"feeds://x");
  EXPECT_EQ(WebKitStringURL(u"feed"), u"feed");
}

TEST(PercentEscapes, EscapeIllegalCharactersAsUTF8) {
  struct Case {
    const char16_t *string, *leave, *escape, *expected;
  };
  const Case cases[] = {
      {u"a b&c", u"", u":/?&;@#", u"a%20b%26c"},
      {u"x=1+2,(ok)!*'~$", u"", u":/?&;@#", u"x=1+2,(ok)!*'~$"},
      {u"100%\"<>[]\\^`{|}", u"", u"", u"100%25%22%3C%3E%5B%5D%5C%5E%60%7B%7C%7D"},
      {u"\u00e9\u20ac\U0001F600", u"", u"", u"%C3%A9%E2%82%AC%F0%9F%98%80"},
      {u"\xd800x", u"", u"", u"%EF%BF%BDx"},
      {u"a b/c", u" ", u"/", u"a b%2Fc"},
      {u"\n\t", u"", u"", u"%0A%09"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.string));
    EXPECT_EQ(stringByAddingPercentEscapesToURL(c.string, c.leave, c.escape), c.expected);
  }
}

}  // namespace
}  // namespace ferncast
