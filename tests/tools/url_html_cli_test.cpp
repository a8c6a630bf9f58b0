// The "ferncast url" and "ferncast html" commands as a user runs them: exit statuses and output.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/tools/RunFerncast.h"

namespace {

using ferncast::cli_test::Outcome;

namespace fs = std::filesystem;

using UrlHtmlCommand = ferncast::cli_test::FerncastTest;

TEST_F(UrlHtmlCommand, UrlCommandsPrintResultsAndExitOneForNil) {
  struct Case {
    const char* arguments;
    int status;
    const char* out;
  };
  const Case cases[] = {
      {"url webkit 'http://LOCALHOST:8/p'", 0, "http://127.0.0.1:8/p\n"},
      {"url webkit 'not a url'", 1, ""},
      {"url webkit-string 'feed://x/'", 0, "http://x/\n"},
      {"url base-for-webkit 'ftp://x/'", 1, ""},
      {"url is-local 'http://127.0.0.1:9/a.png'", 0, ""},
      {"url is-local 'file:///nowhere'", 0, ""},
      {"url is-local 'http://203.0.113.1/a.png'", 1, ""},
      {"url with-anchor 'http://x/#!/a' b", 0, "http://x/#!/a#b\n"},
      {"url without-anchor 'http://x/p#a'", 0, "http://x/p\n"},
      {"url http-status 503", 0,
       "{\"message\":\"Service Unavailable\",\"okay\":false,\"temporaryError\":true}\n"},
      {"url http-status 99x", 2, ""},
      {"url param id 'p?id=7&x=1'", 0, "7\n"},
      {"url param id 'p?id='", 1, ""},
      {"url has-param id 'p?id='", 0, ""},
      {"url has-param --object id 'http://h/p#?id=1'", 1, ""},
      {"url params 'p?flag&x=1'", 0, "{\"flag&x\":\"1\"}\n"},
      {"url params 'p'", 1, ""},
      {"url count-params 'p?a=1;b=&c'", 0, "2\n"},
      {"url replace-param x 9 'p?x=1&y=2'", 0, "p?x=9&y=2\n"},
      {"url replace-param --nil x 'p?x=1&y=2'", 0, "p?x=&y=2\n"},
      {"url replace-param --object x 9 'http://h/p?x=1&y=2'", 0, "x=9&y=2\n"},
      {"url replace-param x 'p?x=1'", 2, ""},
      {"url list-param b 'a=1;b=2'", 0, "2\n"},
      {"url append-param q 'a b&c' 'http://h/p'", 0, "http://h/p?q=a%20b%26c\n"},
  };
  for (const Case& c : cases) {
    Outcome result = run(c.arguments);
    EXPECT_EQ(result.status, c.status) << c.arguments;
    EXPECT_EQ(result.out, c.out) << c.arguments;
  }
  Outcome info = run("url info 'mailto:ann@example.com'");
  EXPECT_EQ(info.status, 0);
  EXPECT_NE(info.out.find("\"isMailURL\":true"), std::string::npos);
  EXPECT_NE(info.out.find("\"isMailStringURL\":true"), std::string::npos);
  EXPECT_NE(info.out.find("\"host\":null"), std::string::npos);
  Outcome invalid = run("url info 'www.a b.com'");
  EXPECT_EQ(invalid.status, 1);
  EXPECT_NE(invalid.out.find("\"valid\":false"), std::string::npos);
  EXPECT_NE(invalid.out.find("\"isWebKitStringURL\":true"), std::string::npos);
}

TEST_F(UrlHtmlCommand, HtmlCommandsReadDecodedPagesFromStandardInput) {
  // A Latin-1 page that says so: the decoder reads its "é" right.
  const std::string page =
      "<html><head><meta charset=iso-8859-1><title>Caf\xe9</title>"
      "<base href='http://b.example/'><meta name=description content='d'></head>"
      "<body><a href=/one>one</a><a href=/two rel=nofollow>more</a><p>x<span>y</span></p>"
      "<iframe src=f.html></iframe></body></html>";
  struct Case {
    const char* arguments;
    int status;
    const char* out;
  };
  const Case cases[] = {
      {"html title", 0, "Caf\xc3\xa9\n"},
      {"html links --nofollow", 0, "{\"baseURL\":\"http://b.example/\",\"links\":[\"/one\"]}\n"},
      {"html links --containing more -", 0,
       "{\"baseURL\":\"http://b.example/\",\"links\":[\"/two\"]}\n"},
      {"html meta-value description", 0, "d\n"},
      {"html http-equiv refresh", 1, ""},
      {"html base -", 0, "http://b.example/\n"},
      {"html favicon", 1, ""},
      {"html is-html", 0, ""},
      {"html keep-bodies '<span' -- -", 0, "<span>y</span>\n"},
      {"html keep-bodies '<table' -- -", 1, ""},
  };
  for (const Case& c : cases) {
    Outcome result = run(c.arguments, page);
    EXPECT_EQ(result.status, c.status) << c.arguments;
    EXPECT_EQ(result.out, c.out) << c.arguments;
  }
  Outcome frames = run("html frames", page);
  EXPECT_EQ(frames.status, 0);
  EXPECT_NE(frames.out.find("\"frames\":[\"f.html\"]"), std::string::npos) << frames.out;
  EXPECT_EQ(run("html strip-tag span", "<p>x<span>y</span></p>").out, "<p>xy</p>");
  EXPECT_EQ(run("html strip-tags", "<p>x</p><p>y</p>").out, "x y");
  EXPECT_EQ(run("html set-base '' -", "<head><base href=x></head>").out, "<head></head>");
  EXPECT_EQ(run("html is-html", "<p>a paragraph</p>").status, 1);
}

}  // namespace
