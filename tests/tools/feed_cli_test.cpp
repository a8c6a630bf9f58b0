// "ferncast feed", "ferncast article" and "ferncast error-page" run as a user runs them: outputs,
// exit statuses, options and standard input.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/tools/RunFerncast.h"

namespace {

using ferncast::cli_test::Outcome;

namespace fs = std::filesystem;

using FeedCommands = ferncast::cli_test::FerncastTest;

const std::string kFeed =
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><rss version=\"2.0\"><channel>"
    "<title>Caf\xe9</title><item><title>One</title><link>/one</link>"
    "<description>First</description><pubDate>Thu, 01 Jan 2004 19:48:21 GMT</pubDate></item>"
    "<item><title>Two</title><description>two</description></item></channel></rss>";

TEST_F(FeedCommands, ItemsAreJsonInDocumentOrder) {
  const std::string feed = write("feed.xml", kFeed);
  Outcome items = run("feed items --base http://example.com/feed.xml " + feed);
  EXPECT_EQ(items.status, 0) << items.err;
  EXPECT_EQ(items.out,
            "[{\"author\":\"\",\"calendarDate\":{\"date\":\"2004-01-01T19:48:21Z\"},\"content\":"
            "\"\",\"date\":\"Thu, 01 Jan 2004 19:48:21 GMT\",\"description\":\"First\",\"link\":"
            "\"http://example.com/one\",\"title\":\"One\"},{\"author\":\"\",\"content\":\"\","
            "\"date\":\"\",\"description\":\"two\",\"link\":\"\",\"title\":\"Two\"}]\n");
  // Standard input, no base; a document that is no feed gives no items.
  EXPECT_EQ(run("feed items -", "<rss><item><title>s</title></item></rss>").out,
            "[{\"author\":\"\",\"content\":\"\",\"date\":\"\",\"description\":\"\",\"link\":\"\","
            "\"title\":\"s\"}]\n");
  EXPECT_EQ(run("feed items", "<html><rss><item/></rss></html>").out, "[]\n");
  EXPECT_EQ(run("feed items --base 'not a url' " + feed).status, 2);
  EXPECT_EQ(run("feed items " + (directory_ / "missing.xml").string()).status, 2);
}

TEST_F(FeedCommands, FeedQuestionsAnswerWithTheirStatus) {
  const std::string feed = write("feed.xml", kFeed);
  const std::string truncated = write("truncated.xml", kFeed.substr(0, kFeed.size() - 20));
  const std::string page = write("page.html", "<html><body>hello</body></html>");
  EXPECT_EQ(run("feed is-feed " + feed).status, 0);
  EXPECT_EQ(run("feed is-feed " + page).status, 1);
  Outcome complete = run("feed complete " + feed);
  EXPECT_EQ(complete.status, 0);
  EXPECT_EQ(complete.out, "{\"complete\":true,\"found\":true}\n");
  EXPECT_EQ(run("feed complete " + truncated).out, "{\"complete\":false,\"found\":true}\n");
  Outcome none = run("feed complete " + page);
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "{\"complete\":false,\"found\":false}\n");
  const std::string empties =
      write("empties.xml",
            "<rss><item><title>T</title><description>t</description></item>"
            "<item><title>T</title><description>text</description></item><item></item></rss>");
  EXPECT_EQ(run("feed empty-items " + empties).out, "[true,false,true]\n");
}

TEST_F(FeedCommands, PagesUseTheStyleSheetAsAsked) {
  const std::string css = write("My.feeds.stylesheet.css", "p{}");
  const std::string feed = write(
      "plain.xml", "<rss><channel><title>C</title><item><title>I</title></item></channel></rss>");
  const std::string start =
      "<html>\n<head>\n<meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\"/>\n";
  const std::string rest =
      "<title>C</title>\n</head>\n<body><div class=\"page_header\"><div "
      "class=\"page_title\"><nobr>C</nobr></div></div>\n\n<div class=\"feed_header\">I<br/></div>"
      "<div class=\"feed_article\">\n\n</div>\n\n</body>\n</html>";
  EXPECT_EQ(run("feed html " + feed).out, start + rest);
  EXPECT_EQ(run("feed html --inline --style-sheet " + css + " " + feed).out,
            start + "<style type=\"text/css\"><!--p{}--></style>\n" + rest);
  Outcome linked = run("feed html --style-sheet " + css + " " + feed);
  EXPECT_EQ(linked.out, start + "<link rel=\"stylesheet\" type=\"text/css\" href=\"file://" + css +
                            "\"/>\n" + rest);
  // Dates are shown in the process locale; the input comes back when it is no feed.
  const std::string dated = run("feed html " + write("feed.xml", kFeed)).out;
  EXPECT_NE(dated.find("<font class=\"feed_date\">"), std::string::npos);
  EXPECT_NE(dated.find("2004"), std::string::npos);
  EXPECT_NE(dated.find("<nobr>Caf\xc3\xa9</nobr>"), std::string::npos);
  EXPECT_EQ(run("feed html -", "<p>not a feed</p>").out, "<p>not a feed</p>");
  Outcome searchable = run("feed searchable-html " + feed);
  EXPECT_EQ(searchable.out, start +
                                "</head>\n<body>\n\n<div class=\"feed_header\">I<br/></div>"
                                "<div class=\"feed_article\">\n\n</div>\n\n</body>\n</html>");
}

TEST_F(FeedCommands, DatesPrintAsIso8601OrAnswerOne) {
  Outcome good = run("feed date 'Wed, 02 Oct 2002 08:00:00 EST'");
  EXPECT_EQ(good.status, 0);
  EXPECT_EQ(good.out, "2002-10-02T13:00:00Z\n");
  Outcome bad = run("feed date 'next tuesday'");
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.out, "");
  EXPECT_EQ(run("feed date").status, 2);
}

TEST_F(FeedCommands, ArticlesAreCheckedAndStripped) {
  std::string words;
  for (int i = 0; i < 150; ++i)
    words += "word ";
  const std::string article = write("article.html", "<html><body><h1>T</h1>" + words +
                                                        "<div class=comments><h2>c</h2></div>"
                                                        "</body></html>");
  const std::string teaser = write("teaser.html", "<html><body><h1>T</h1>few words</body></html>");
  EXPECT_EQ(run("article check " + article).status, 0);
  EXPECT_EQ(run("article check " + teaser).status, 1);
  Outcome stripped = run("article strip " + article);
  EXPECT_EQ(stripped.status, 0);
  EXPECT_EQ(stripped.out, "<html><body>\n<h1>T</h1>" + words + "\n</body></html>");
  Outcome none = run("article strip -", "<html><body><h1>T</h1>few words</body></html>");
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "");
}

TEST_F(FeedCommands, ErrorPagesAndRateLimitNotices) {
  const std::string missing = write("missing.txt", "Die Seite wurde nicht gefunden");
  const std::string notice =
      write("notice.txt", "You have exceeded the allowed page-load frequency");
  EXPECT_EQ(run("error-page --title '404 Not Found'").status, 0);
  EXPECT_EQ(run("error-page --title 'Welcome'").status, 1);
  EXPECT_EQ(run("error-page").status, 1);
  EXPECT_EQ(run("error-page --url http://e/404.html --text-file " + missing).status, 0);
  EXPECT_EQ(run("error-page --url http://e/404.html --text-file -", "Welcome home").status, 1);
  EXPECT_EQ(run("error-page --rate-limit --text-file " + notice).status, 0);
  EXPECT_EQ(run("error-page --rate-limit --text-file " + missing).status, 1);
  EXPECT_EQ(run("error-page --text-file " + (directory_ / "absent.txt").string()).status, 2);
  EXPECT_EQ(run("error-page --bogus").status, 2);
}

}  // namespace
