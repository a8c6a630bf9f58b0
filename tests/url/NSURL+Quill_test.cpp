#include "url/NSURL+Quill.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

URL url(std::u16string_view string) {
  std::optional<URL> result = URL::URLWithString(string);
  EXPECT_TRUE(result) << utf16ToUtf8(string);
  return result.value_or(*URL::URLWithString(u"invalid:"));
}

std::string text(const std::optional<URL>& u) {
  return u ? utf16ToUtf8(u->absoluteString()) : "(nil)";
}

// A temporary file and directory that exist for the test's life.
class TemporaryFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    char directory[] = "/tmp/ferncast-url-XXXXXX";
    ASSERT_TRUE(mkdtemp(directory));
    directory_ = directory;
    file_ = directory_ + "/a file.html";
    FILE* f = fopen(file_.c_str(), "w");
    ASSERT_TRUE(f);
    fclose(f);
  }
  void TearDown() override {
    unlink(file_.c_str());
    rmdir(directory_.c_str());
  }
  URL fileURL(const std::string& path) { return *URL::fileURLWithPath(utf8ToUtf16(path)); }
  std::string directory_, file_;
};

TEST(SchemeGroups, ClassifyURLObjectsIgnoringCase) {
  struct Case {
    const char16_t* url;
    // HTTP, FTP, feed, downloadable, news, mail, JavaScript, AppleScript
    bool expected[8];
  };
  const Case cases[] = {
      {u"HTTP://x.com/", {1, 0, 0, 1, 0, 0, 0, 0}},  {u"https://x.com/", {1, 0, 0, 1, 0, 0, 0, 0}},
      {u"sftp://x.com/", {0, 1, 0, 1, 0, 0, 0, 0}},  {u"Feed://x.com/", {0, 0, 1, 0, 0, 0, 0, 0}},
      {u"nntp://x/", {0, 0, 0, 0, 1, 0, 0, 0}},      {u"MailTo:a@b.c", {0, 0, 0, 0, 0, 1, 0, 0}},
      {u"javascript:f()", {0, 0, 0, 0, 0, 0, 1, 0}}, {u"applescript:x", {0, 0, 0, 0, 0, 0, 0, 1}},
      {u"httpx://x.com/", {0, 0, 0, 0, 0, 0, 0, 0}}, {u"/no/scheme", {0, 0, 0, 0, 0, 0, 0, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.url));
    URL u = url(c.url);
    EXPECT_EQ(isHTTPURL(u), c.expected[0]);
    EXPECT_EQ(isFTPURL(u), c.expected[1]);
    EXPECT_EQ(isFeedURL(u), c.expected[2]);
    EXPECT_EQ(isDownloadableURL(u), c.expected[3]);
    EXPECT_EQ(isNewsURL(u), c.expected[4]);
    EXPECT_EQ(isMailURL(u), c.expected[5]);
    EXPECT_EQ(isJavaScriptURL(u), c.expected[6]);
    EXPECT_EQ(isAppleScriptURL(u), c.expected[7]);
  }
  EXPECT_TRUE(isScheme(url(u"FILE:///x"), kFileScheme));
  EXPECT_FALSE(isScheme(url(u"file:///x"), kHTTPSchemes | kFTPSchemes | kFeedScheme));
}

TEST(WebKitURLs, NeedAUsableHost) {
  const std::pair<const char16_t*, bool> cases[] = {
      {u"http://example.com/", true},
      {u"feed://example.com/", true},
      {u"http://a...b/", false},  // "..." in the host
      {u"http://a..b/", true},
      {u"http://-/", false},     // no letter or digit
      {u"http:///path", false},  // no host
      {u"http:path", false},
      {u"ftp://example.com/", false},
      {u"feed:http://example.com/", false},  // no host of its own
  };
  for (const auto& [string, expected] : cases) {
    SCOPED_TRACE(utf16ToUtf8(string));
    EXPECT_EQ(isWebKitURL(url(string)), expected);
    EXPECT_EQ(isRemoteWebKitURL(url(string)), expected);
  }
}

TEST_F(TemporaryFiles, FileURLsAreWebKitURLsAndLoadableWhenTheFileExists) {
  URL file = fileURL(file_), directory = fileURL(directory_), missing = fileURL(file_ + ".gone");
  EXPECT_TRUE(isWebKitURL(missing));
  EXPECT_FALSE(isRemoteWebKitURL(file));
  EXPECT_TRUE(isLoadableURL(file));
  EXPECT_FALSE(isLoadableURL(directory));
  EXPECT_FALSE(isLoadableURL(missing));
  EXPECT_TRUE(isLoadableURL(url(u"feed://x/")));
  EXPECT_FALSE(isLoadableURL(url(u"mailto:a@b.c")));

  // The base for the web view: the file itself while it exists (directories too).
  EXPECT_EQ(baseURLForWebKit(file), file);
  EXPECT_EQ(baseURLForWebKit(directory), directory);
  EXPECT_FALSE(baseURLForWebKit(missing));
}

TEST(WebKitURLs, RewriteLoopbackAndFeedURLs) {
  const std::pair<const char16_t*, const char16_t*> cases[] = {
      {u"http://USER:pw@LOCALHOST:8080/p?q=1#f", u"http://USER:pw@127.0.0.1:8080/p?q=1#f"},
      {u"https://localhost", u"https://127.0.0.1/"},
      {u"FEED://example.com/rss?x", u"http://example.com/rss?x"},
      {u"feed:http://example.com/rss", u"http://example.com/rss"},
      {u"feed:HTTPS://example.com/rss", u"http:HTTPS://example.com/rss"},
      {u"feed:", u"feed:"},  // no specifier
      {u"file://localhost/tmp/x", u"file://localhost/tmp/x"},
      {u"ftp://localhost/", u"ftp://127.0.0.1/"},
      {u"http://example.com/", u"http://example.com/"},
      {u"//LocalHost/x", u"//127.0.0.1/x"},  // a reference without a scheme
  };
  for (const auto& [string, expected] : cases) {
    SCOPED_TRACE(utf16ToUtf8(string));
    EXPECT_EQ(WebKitURL(url(string)).absoluteString(), expected);
  }
}

TEST(BaseURLsForWebKit, AcceptHTTPAndFeedsOnly) {
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"https://example.com/a", "https://example.com/a"},
      {u"http://localhost/", "http://localhost/"},  // no loopback rewrite here
      {u"ftp://example.com/", "(nil)"},
      {u"FEED://example.com/rss", "http://example.com/rss"},
      {u"feed:http://example.com/rss", "http://example.com/rss"},
      {u"feed:", "(nil)"},
      {u"mailto:a@b.c", "(nil)"},
  };
  for (const auto& [string, expected] : cases) {
    SCOPED_TRACE(utf16ToUtf8(string));
    EXPECT_EQ(text(baseURLForWebKit(url(string))), expected);
  }
  EXPECT_EQ(text(baseURLForWebKitUsingAnchor(url(u"https://x.com/a#b"), u"c")),
            "https://x.com/a#c");
  EXPECT_EQ(text(baseURLForWebKitUsingAnchor(url(u"ftp://x.com/"), u"c")), "(nil)");
}

TEST(Anchors, KeepHashBangPaths) {
  struct Case {
    const char16_t* url;
    const char* withAnchor;  // anchor "new"
    const char* withoutAnchor;
  };
  const Case cases[] = {
      {u"http://x.com/p", "http://x.com/p#new", "http://x.com/p"},
      {u"http://x.com/p#old", "http://x.com/p#new", "http://x.com/p"},
      {u"http://x.com/p#", "http://x.com/p#new", "http://x.com/p"},
      {u"http://x.com/#!/a/b", "http://x.com/#!/a/b#new", "http://x.com/#!/a/b"},
      {u"http://x.com/#//a", "http://x.com/#//a#new", "http://x.com/#//a"},
      {u"http://x.com/#!a", "http://x.com/#new", "http://x.com/"},
      {u"http://x.com/#a#b", "http://x.com/#new", "http://x.com/"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.url));
    EXPECT_EQ(text(URLWithAnchor(url(c.url), u"new")), c.withAnchor);
    EXPECT_EQ(utf16ToUtf8(URLWithoutAnchor(url(c.url)).absoluteString()), c.withoutAnchor);
  }
  EXPECT_EQ(text(URLWithAnchor(url(u"http://x.com/p#old"), u"")), "http://x.com/p#old");
  EXPECT_EQ(text(URLWithAnchor(url(u"http://x.com/p"), u"a b")), "(nil)");
}

TEST(HTTPStatus, OkayAndTemporaryCodes) {
  const std::pair<long, bool> okay[] = {{-1, true},   {100, true},  {200, true},
                                        {201, false}, {206, false}, {207, true},
                                        {299, true},  {300, false}, {404, false}};
  for (const auto& [code, expected] : okay)
    EXPECT_EQ(isHTTPStatusCodeOkay(code), expected) << code;
  for (long code = 0; code < 1000; ++code) {
    bool temporary = code == 307 || code == 408 || code == 500 || code == 502 || code == 503 ||
                     code == 504 || code == 507 || code == 509 || code == 510;
    EXPECT_EQ(isHTTPStatusCodeTemporaryError(code), temporary) << code;
  }
}

TEST(HTTPStatus, MessagesCoverTheFortyNineCodes) {
  const std::pair<long, const char*> known[] = {{100, "Continue"},
                                                {207, "Multi-Status"},
                                                {226, "IM Used"},
                                                {302, "Moved Temporarily"},
                                                {401, "Authorization Required"},
                                                {404, "Not Found"},
                                                {503, "Service Unavailable"},
                                                {509, "Bandwidth Limit Exceeded"},
                                                {510, "Disconnected"}};
  for (const auto& [code, message] : known)
    EXPECT_EQ(utf16ToUtf8(messageForHTTPError(code).value_or(u"(nil)")), message) << code;
  int count = 0;
  for (long code = -1000; code < 1000; ++code)
    count += messageForHTTPError(code).has_value();
  EXPECT_EQ(count, 49);
  EXPECT_FALSE(messageForHTTPError(306));
  EXPECT_FALSE(messageForHTTPError(418));
}

TEST(URLLoadingErrors, MapToHTTPStatusAndTemporariness) {
  struct Case {
    URLErrorCode code;
    int status;
    bool temporary;
  };
  const Case cases[] = {
      {URLErrorCode::kZeroByteResource, 204, false},
      {URLErrorCode::kUserAuthenticationRequired, 401, false},
      {URLErrorCode::kUserCancelledAuthentication, 401, false},
      {URLErrorCode::kRedirectToNonExistentLocation, 302, false},
      {URLErrorCode::kHTTPTooManyRedirects, 302, false},
      {URLErrorCode::kTimedOut, 408, true},
      {URLErrorCode::kNoPermissionsToReadFile, 403, false},
      {URLErrorCode::kFileDoesNotExist, 404, false},
      {URLErrorCode::kBadServerResponse, 0, true},
      {URLErrorCode::kNotConnectedToInternet, 0, true},
      {URLErrorCode::kNetworkConnectionLost, 0, true},
      {URLErrorCode::kCannotFindHost, 0, false},
      {URLErrorCode::kCancelled, 0, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.code));
    EXPECT_EQ(HTTPStatusCodeForNSURLError(c.code), c.status);
    EXPECT_EQ(isTemporaryNSURLError(c.code), c.temporary);
  }
  EXPECT_EQ(HTTPStatusCodeForNSURLError(std::nullopt), 0);
  EXPECT_FALSE(isTemporaryNSURLError(std::nullopt));
  EXPECT_EQ(static_cast<int>(URLErrorCode::kZeroByteResource), -1014);
  EXPECT_EQ(static_cast<int>(URLErrorCode::kNoPermissionsToReadFile), -1102);
}

TEST(URLObjectQueries, ScanTheQueryComponentOnly) {
  URL u = url(u"http://h/p?x=1&y=2#z=3");
  EXPECT_EQ(queryParamNamed(u, u"x"), u"1");
  EXPECT_FALSE(queryParamNamed(u, u"z"));  // the fragment is not part of the query
  EXPECT_EQ(numberOfQueryParams(u), 2u);
  EXPECT_TRUE(containsQueryParamNamed(url(u"http://h/?a=&b=1"), u"a"));
  EXPECT_EQ(stringByReplacingQueryParamNamed(u, u"x", u"9"), u"x=9&y=2");
  EXPECT_EQ(stringByReplacingQueryParamNamed(u, u"x", std::nullopt), u"x=&y=2");
  URL noQuery = url(u"http://h/p");
  EXPECT_FALSE(queryParams(noQuery));
  EXPECT_FALSE(stringByReplacingQueryParamNamed(noQuery, u"x", u"9"));
  EXPECT_EQ(numberOfQueryParams(noQuery), 0u);
}

}  // namespace
}  // namespace ferncast
