#include "url/URL.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

std::string text(const std::optional<std::u16string>& s) {
  return s ? utf16ToUtf8(*s) : "(nil)";
}

struct ComponentsCase {
  const char* url;
  const char* scheme;
  const char* user;
  const char* password;
  const char* host;
  int port;  // 0: none
  const char* path;
  const char* query;
  const char* fragment;
  const char* resourceSpecifier;
};

TEST(URLComponents, KeepEveryComponentAsWritten) {
  const ComponentsCase cases[] = {
      // Components keep their case and dot segments; nothing is decoded.
      {"HTTP://User:pw@LocalHost:8080/a/../b%20c?x=1&y#f#g", "HTTP", "User", "pw", "LocalHost",
       8080, "/a/../b%20c", "x=1&y", "f#g", "//User:pw@LocalHost:8080/a/../b%20c?x=1&y#f#g"},
      {"https://example.com", "https", "(nil)", "(nil)", "example.com", 0, "/", "(nil)", "(nil)",
       "//example.com"},
      {"http://[::1]:80/", "http", "(nil)", "(nil)", "[::1]", 80, "/", "(nil)", "(nil)",
       "//[::1]:80/"},
      {"feed://example.com/rss.xml", "feed", "(nil)", "(nil)", "example.com", 0, "/rss.xml",
       "(nil)", "(nil)", "//example.com/rss.xml"},
      // Opaque URLs have no host; libcurl alone would refuse them.
      {"mailto:ann@example.com?subject=hi", "mailto", "(nil)", "(nil)", "(nil)", 0,
       "ann@example.com", "subject=hi", "(nil)", "ann@example.com?subject=hi"},
      {"feed:http://x.com/r", "feed", "(nil)", "(nil)", "(nil)", 0, "http://x.com/r", "(nil)",
       "(nil)", "http://x.com/r"},
      {"javascript:void(0)", "javascript", "(nil)", "(nil)", "(nil)", 0, "void(0)", "(nil)",
       "(nil)", "void(0)"},
      // An empty authority is no host (libcurl would take "x" for one).
      {"http:///x", "http", "(nil)", "(nil)", "(nil)", 0, "/x", "(nil)", "(nil)", "///x"},
      {"http:path", "http", "(nil)", "(nil)", "(nil)", 0, "path", "(nil)", "(nil)", "path"},
      {"file:///tmp/a%20b", "file", "(nil)", "(nil)", "(nil)", 0, "/tmp/a%20b", "(nil)", "(nil)",
       "///tmp/a%20b"},
      // Relative references.
      {"../a/b?q#f", "(nil)", "(nil)", "(nil)", "(nil)", 0, "../a/b", "q", "f", "../a/b?q#f"},
      {"//cdn.example.com/x.js", "(nil)", "(nil)", "(nil)", "cdn.example.com", 0, "/x.js", "(nil)",
       "(nil)", "//cdn.example.com/x.js"},
      {"#top", "(nil)", "(nil)", "(nil)", "(nil)", 0, "", "(nil)", "top", "#top"},
  };
  for (const ComponentsCase& c : cases) {
    SCOPED_TRACE(c.url);
    std::optional<URL> url = URL::URLWithString(utf8ToUtf16(c.url));
    ASSERT_TRUE(url);
    EXPECT_EQ(utf16ToUtf8(url->absoluteString()), c.url);
    EXPECT_EQ(text(url->scheme()), c.scheme);
    EXPECT_EQ(text(url->user()), c.user);
    EXPECT_EQ(text(url->password()), c.password);
    EXPECT_EQ(text(url->host()), c.host);
    EXPECT_EQ(url->port().value_or(0), c.port);
    EXPECT_EQ(text(url->path()), c.path);
    EXPECT_EQ(text(url->query()), c.query);
    EXPECT_EQ(text(url->fragment()), c.fragment);
    EXPECT_EQ(utf16ToUtf8(url->resourceSpecifier()), c.resourceSpecifier);
  }
}

TEST(URLComponents, InvalidStringsAreNoURLs) {
  const char16_t* cases[] = {
      u"",
      u"http://a b/",
      u"http://example.com/a b",
      u"http://example.com/\u00e4",
      u"http://example.com/\t",
      u"http://example.com/100%",
      u"http://example.com/%zz",
      u"http://example.com/<script>",
      u"http://example.com/a|b",
      u"http://example.com:99999/",
      u"http://exa mple.com/",
      u"http://[::1/",
      u"file://remote.example.com/x",
  };
  for (const char16_t* c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c));
    EXPECT_FALSE(URL::URLWithString(c));
    EXPECT_FALSE(URL::URLWithNormalizedStringURL(c));
  }
}

TEST(URLResolution, FollowsTheReferenceResolutionExamples) {
  // RFC 3986, section 5.4.1, plus the cases libcurl resolves differently on its own.
  std::optional<URL> base = URL::URLWithString(u"http://a/b/c/d;p?q#base");
  ASSERT_TRUE(base);
  const std::pair<const char16_t*, const char16_t*> cases[] = {
      {u"g:h", u"g:h"},
      {u"g", u"http://a/b/c/g"},
      {u"./g", u"http://a/b/c/g"},
      {u"g/", u"http://a/b/c/g/"},
      {u"/g", u"http://a/g"},
      {u"//g", u"http://g/"},
      {u"?y", u"http://a/b/c/d;p?y"},
      {u"g?y", u"http://a/b/c/g?y"},
      {u"#s", u"http://a/b/c/d;p?q#s"},
      {u"g?y#s", u"http://a/b/c/g?y#s"},
      {u"", u"http://a/b/c/d;p?q"},
      {u"..", u"http://a/b/"},
      {u"../g", u"http://a/b/g"},
      {u"../../../g", u"http://a/g"},
      {u"g;x=1/../y", u"http://a/b/c/y"},
  };
  for (const auto& [reference, expected] : cases) {
    SCOPED_TRACE(utf16ToUtf8(reference));
    std::optional<URL> resolved = URL::URLWithString(reference, *base);
    ASSERT_TRUE(resolved);
    EXPECT_EQ(utf16ToUtf8(resolved->absoluteString()), utf16ToUtf8(expected));
  }
  std::optional<URL> relative = URL::URLWithString(u"../x?y");
  ASSERT_TRUE(relative);
  EXPECT_EQ(relative->URLRelativeTo(*base)->absoluteString(), u"http://a/b/x?y");
}

TEST(URLResolution, NeedsAHierarchicalBase) {
  std::optional<URL> mail = URL::URLWithString(u"mailto:ann@example.com");
  std::optional<URL> relative = URL::URLWithString(u"/a/b");
  ASSERT_TRUE(mail && relative);
  EXPECT_FALSE(URL::URLWithString(u"x", *mail));
  EXPECT_FALSE(URL::URLWithString(u"x", *relative));
  EXPECT_FALSE(URL::URLWithString(u"a b", *URL::URLWithString(u"http://h/")));
  // An absolute reference needs no base at all.
  EXPECT_EQ(URL::URLWithString(u"https://x/", *mail)->absoluteString(), u"https://x/");
}

TEST(FileURLs, EscapeThePathAndDecodeItBack) {
  std::optional<URL> url = URL::fileURLWithPath(u"/tmp/a b#c?\u00e9%");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->absoluteString(), u"file:///tmp/a%20b%23c%3F%C3%A9%25");
  EXPECT_TRUE(url->isFileURL());
  EXPECT_EQ(url->filePath(), "/tmp/a b#c?\xc3\xa9%");

  std::optional<URL> relative = URL::fileURLWithPath(u"x.txt");
  ASSERT_TRUE(relative);
  char* cwd = getcwd(nullptr, 0);
  EXPECT_EQ(relative->filePath(),
            std::string(cwd) + (std::string(cwd) == "/" ? "" : "/") + "x.txt");
  free(cwd);

  EXPECT_FALSE(URL::fileURLWithPath(u""));
  EXPECT_FALSE(URL::URLWithString(u"http://h/x")->filePath());
  EXPECT_FALSE(URL::URLWithString(u"file:///a%00b")->filePath());
}

TEST(HugeURLs, ParseAMegabyteURL) {
  std::u16string path(1 << 20, u'a');
  std::u16string string = u"http://example.com/" + path + u"?q=1#f";
  std::optional<URL> url = URL::URLWithString(string);
  ASSERT_TRUE(url);
  EXPECT_EQ(url->path()->size(), path.size() + 1);
  EXPECT_EQ(url->query(), u"q=1");
  std::optional<URL> resolved = URL::URLWithString(u"x", *url);
  ASSERT_TRUE(resolved);
  EXPECT_EQ(resolved->absoluteString(), u"http://example.com/x");
}

}  // namespace
}  // namespace ferncast
