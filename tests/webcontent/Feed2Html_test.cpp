// Feed pages byte for byte: item templates, enclosure lines, page heads and ends, style sheets,
// searchable forms, and agreement between the scan's own pages and pages built from item
// dictionaries.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "Classes/Json.h"
#include "Classes/Unicode.h"
#include "tests/Corpus.h"
#include "webcontent/Feed2Html.h"
#include "webcontent/FeedDate.h"
#include "webcontent/FeedExtensions.h"

namespace ferncast {
namespace {

namespace fs = std::filesystem;

const std::u16string kStart =
    u"<html>\n<head>\n<meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\"/>\n";
const std::u16string kHeadEnd = u"</head>\n<body>\n";
const std::u16string kEnd = u"\n</body>\n</html>";

// Dates shown as ISO 8601, so that pages do not depend on the locale; no style sheet.
class FeedPages : public ::testing::Test {
 protected:
  void SetUp() override {
    setDateTimeFormatter([](const Date& d) { return utf8ToUtf16(iso8601(d)); });
    setLinkableFeedStyleSheet(std::nullopt);
  }
  void TearDown() override {
    setDateTimeFormatter(nullptr);
    setLinkableFeedStyleSheet(std::nullopt);
    std::error_code error;
    if (!directory_.empty()) fs::remove_all(directory_, error);
  }

  // A style sheet file holding `css`; its path.
  std::u16string styleSheet(const std::string& css, const std::string& name) {
    directory_ = fs::path(::testing::TempDir()) / ("feed_pages_" + std::to_string(getpid()));
    fs::create_directories(directory_);
    const fs::path path = directory_ / name;
    std::ofstream(path, std::ios::binary) << css;
    return utf8ToUtf16(path.string());
  }

  fs::path directory_;
};

std::u16string itemHtml(const Dictionary& item) {
  const std::u16string page = stringByConvertingItemsToDisplayHTML(Array{Value(item)});
  return page.substr(kStart.size() + kHeadEnd.size(),
                     page.size() - kStart.size() - kHeadEnd.size() - kEnd.size());
}

TEST_F(FeedPages, EachItemGetsTheTemplateOfItsLinkAndDateLine) {
  const std::u16string date = u"Thu, 01 Jan 2004 19:48:21 GMT";
  struct Case {
    Dictionary item;
    const char16_t* html;
  };
  const Case cases[] = {
      {{{u"title", u"T & U"},
        {u"link", u"http://e/1?a=1&b=\"2\""},
        {u"date", date},
        {u"author", u"Ann <a@e>"},
        {u"content", u"<p>Text</p>"},
        {u"description", u"d"}},
       u"\n<div class=\"feed_header\"><a class=\"feed_link\" "
       u"href=\"http://e/1?a=1&amp;b=&quot;2&quot;\">T &amp; U</a><br/><font "
       u"class=\"feed_date\">Ann &lt;a@e&gt; - 2004-01-01T19:48:21Z</font></div><div "
       u"class=\"feed_article\">\n<p>Text</p>\n</div>\n"},
      // Link, no date: the author is not shown.
      {{{u"title", u"T"}, {u"link", u"http://e/"}, {u"author", u"Ann"}, {u"description", u"d"}},
       u"\n<div class=\"feed_header\"><a class=\"feed_link\" href=\"http://e/\">T</a><br/></div>"
       u"<div class=\"feed_article\">\nd\n</div>\n"},
      // Date without author: the date alone.
      {{{u"title", u"T"}, {u"date", date}, {u"content", u""}, {u"description", u"d"}},
       u"\n<div class=\"feed_header\">T<br/><font class=\"feed_date\">2004-01-01T19:48:21Z</font>"
       u"</div><div class=\"feed_article\">\nd\n</div>\n"},
      // An unreadable date gives no date line; a missing title and text are empty.
      {{{u"date", u"someday"}, {u"author", u"Ann"}},
       u"\n<div class=\"feed_header\"><br/></div><div class=\"feed_article\">\n\n</div>\n"},
      // Iframe and span tags leave the text; their contents stay.
      {{{u"title", u"T"},
        {u"content", u"<p>a<span class=x>b</span><iframe src=v>c</iframe><SPAN>d</SPAN></p>"}},
       u"\n<div class=\"feed_header\">T<br/></div><div class=\"feed_article\">\n"
       u"<p>abcd</p>\n</div>\n"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(itemHtml(c.item), c.html) << toJson(c.item);
  }
}

TEST_F(FeedPages, EnclosureLinesDependOnTheirLength) {
  Array enclosures;
  for (auto [url, length] :
       {std::pair<const char16_t*, const char16_t*>{u"http://e/a/1.mp3", u"12345"},
        {u"http://e/2.mp3", u"3 MB"},
        {u"http://e/3.mp3", u"0"},
        {u"http://e/4.mp3", u""},
        {u"http://e/5.mp3", u"-7"},
        {u"http://e/dir/", u"99999999999999999999"}}) {
    enclosures.emplace_back(Dictionary{{u"url", url}, {u"length", length}});
  }
  enclosures.emplace_back(Dictionary{{u"url", u"http://e/6.mp3"}});
  enclosures.emplace_back(Dictionary{});
  const Dictionary item{{u"title", u"T"}, {u"enclosures", enclosures}};
  EXPECT_EQ(itemHtml(item),
            u"\n<div class=\"feed_header\">T<br/></div><div class=\"feed_article\">\n\n"
            u"<div class=\"feed_enclosures\"><p>\n"
            u"<a class=\"feed_enclosure\" href=\"http://e/a/1.mp3\">1.mp3</a>&nbsp;(12345 bytes)"
            u"<br/>\n"
            u"<a class=\"feed_enclosure\" href=\"http://e/2.mp3\">2.mp3</a>&nbsp;(3 MB)<br/>\n"
            u"<a class=\"feed_enclosure\" href=\"http://e/3.mp3\">3.mp3</a><br/>\n"
            u"<a class=\"feed_enclosure\" href=\"http://e/4.mp3\">4.mp3</a><br/>\n"
            u"<a class=\"feed_enclosure\" href=\"http://e/5.mp3\">5.mp3</a><br/>\n"
            u"<a class=\"feed_enclosure\" href=\"http://e/dir/\">dir</a>&nbsp;"
            u"(99999999999999999999 bytes)<br/>\n"
            u"<a class=\"feed_enclosure\" href=\"http://e/6.mp3\">6.mp3</a><br/>\n"
            u"<a class=\"feed_enclosure\" href=\"\"></a><br/>\n"
            u"</p></div>\n</div>\n");
}

const char16_t kFeed[] =
    u"<?xml version=\"1.0\"?><rss version=\"2.0\"><channel><title>News &amp; more</title>"
    u"<image><title>Logo</title></image>"
    u"<item><title>One</title><link>/one</link><description>&lt;b&gt;1&lt;/b&gt;</description>"
    u"<pubDate>Thu, 01 Jan 2004 19:48:21 GMT</pubDate><author>Ann</author>"
    u"<category>c</category><enclosure url=\"http://e/1.mp3\" length=\"10\"/></item>"
    u"<item><title>Two</title></item></channel></rss>";

const std::u16string kFeedItems =
    u"\n<div class=\"feed_header\"><a class=\"feed_link\" href=\"http://example.com/one\">One</a>"
    u"<br/><font class=\"feed_date\">Ann - 2004-01-01T19:48:21Z</font></div><div "
    u"class=\"feed_article\">\n<b>1</b>\n<div class=\"feed_enclosures\"><p>\n"
    u"<a class=\"feed_enclosure\" href=\"http://e/1.mp3\">1.mp3</a>&nbsp;(10 bytes)<br/>\n"
    u"</p></div>\n</div>\n"
    u"\n<div class=\"feed_header\">Two<br/></div><div class=\"feed_article\">\n\n</div>\n";

TEST_F(FeedPages, AFeedPageHasTheFeedTitleAndEveryItem) {
  const std::optional<URL> base = URL::URLWithString(u"http://example.com/feed.xml");
  EXPECT_EQ(stringByConvertingFeed(kFeed, base, true),
            kStart +
                u"<title>News &amp; more</title>\n</head>\n<body><div class=\"page_header\"><div "
                u"class=\"page_title\"><nobr>News &amp; more</nobr></div></div>\n" +
                kFeedItems + kEnd);
}

TEST_F(FeedPages, FeedsWithoutTitleOrItemsCloseTheirHeadAsTheyCan) {
  EXPECT_EQ(stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(
                u"<feed><entry><title>E</title></entry></feed>", true),
            kStart + kHeadEnd +
                u"\n<div class=\"feed_header\">E<br/></div><div class=\"feed_article\">\n\n"
                u"</div>\n" +
                kEnd);
  EXPECT_EQ(stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(
                u"<rss><channel><title> </title></channel></rss>", true),
            kStart + kHeadEnd + kEnd);
  EXPECT_EQ(stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(u"<rss></rss>", true),
            kStart + u"\n</head>\n</html>");
}

TEST_F(FeedPages, AStringThatIsNoFeedComesBackUnchanged) {
  for (const char16_t* text : {u"<html><body><rss><item>x</item></rss></body></html>",
                               u"plain text", u"", u"<item><title>t</title></item>"}) {
    EXPECT_EQ(stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(text, true), text);
  }
}

TEST_F(FeedPages, TheStyleSheetIsLinkedOrInlineAndCanBeSwappedIn) {
  const std::u16string path = styleSheet("body { color: red; }", "Ferncast.feeds.stylesheet.css");
  setLinkableFeedStyleSheet(path);
  const std::u16string url = URL::fileURLWithPath(path)->absoluteString();
  const std::u16string link =
      u"<link rel=\"stylesheet\" type=\"text/css\" href=\"" + url + u"\"/>\n";
  const std::u16string style = u"<style type=\"text/css\"><!--body { color: red; }--></style>\n";
  const std::u16string feed = u"<rss><item><title>t</title></item></rss>";
  const std::u16string items =
      u"\n<div class=\"feed_header\">t<br/></div><div class=\"feed_article\">\n\n</div>\n";

  const std::u16string linked =
      stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(feed, true);
  EXPECT_EQ(linked, kStart + link + kHeadEnd + items + kEnd);
  const std::u16string inlined =
      stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(feed, false);
  EXPECT_EQ(inlined, kStart + style + kHeadEnd + items + kEnd);
  // The swap replaces the link element; the line feed after it stays.
  const std::u16string swapped = kStart + style + u"\n" + kHeadEnd + items + kEnd;
  EXPECT_EQ(stringByReplacingLinkedStyleSheet(linked), swapped);
  // The old spelling of local file URLs is swapped too; other pages stay as they are.
  std::u16string localhost = linked;
  localhost.replace(localhost.find(u"file://"), 7, u"file://localhost");
  EXPECT_EQ(stringByReplacingLinkedStyleSheet(localhost), swapped);
  EXPECT_EQ(stringByReplacingLinkedStyleSheet(inlined), inlined);
  const std::u16string remote =
      u"<link rel=\"stylesheet\" type=\"text/css\" href=\"file://host/x.feeds.stylesheet.css\"/>";
  EXPECT_EQ(stringByReplacingLinkedStyleSheet(remote), remote);

  // The style sheet belongs to display pages only.
  const Dictionary item{{u"title", u"t"}, {u"author", u"Ann"}};
  EXPECT_EQ(stringByConvertingItemToDisplayHTMLUsingLinkedStyleSheet(item, false),
            kStart + style + u"<meta name=\"author\" content=\"Ann\"/>" + kHeadEnd + items + kEnd);
  EXPECT_EQ(stringByConvertingItemToDisplayHTML(item),
            kStart + link + u"<meta name=\"author\" content=\"Ann\"/>" + kHeadEnd + items + kEnd);
  EXPECT_EQ(stringByConvertingItemToSearchableHTML(item), kStart + kHeadEnd + items + kEnd);

  // A style sheet that is no UTF-8 is left out of inline pages and swaps to nothing.
  setLinkableFeedStyleSheet(styleSheet("p { content: \"\xff\"; }", "Bad.feeds.stylesheet.css"));
  const std::u16string bad = stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(feed, true);
  EXPECT_EQ(stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(feed, false),
            kStart + kHeadEnd + items + kEnd);
  EXPECT_EQ(stringByReplacingLinkedStyleSheet(bad), kStart + u"\n" + kHeadEnd + items + kEnd);
}

TEST_F(FeedPages, SearchablePagesHoldNoStyleDateAuthorOrEnclosure) {
  setLinkableFeedStyleSheet(styleSheet("p {}", "s.feeds.stylesheet.css"));
  const Array items = getItemsOfFeed(kFeed);
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(stringByConvertingItemsToSearchableHTML(items),
            kStart + kHeadEnd +
                u"\n<div class=\"feed_header\"><a class=\"feed_link\" href=\"/one\">One</a><br/>"
                u"</div><div class=\"feed_article\">\n<b>1</b>\n</div>\n"
                u"\n<div class=\"feed_header\">Two<br/></div><div "
                u"class=\"feed_article\">\n\n</div>\n" +
                kEnd);
  EXPECT_EQ(stringByConvertingItemsToSearchableHTML(Array{Value(u"no item"), Value(42)}),
            kStart + kHeadEnd + kEnd);
}

TEST(EntitiesOfFeedText, MarkupCharactersOrHighCharactersBecomeReferences) {
  auto convert = [](std::u16string_view text, bool high) {
    return stringByConvertingBufferToEntities(text.data(), text.size(), high);
  };
  EXPECT_EQ(convert(u"a \"b\" & <c> d\u00e9", false), u"a &quot;b&quot; &amp; &lt;c&gt; d\u00e9");
  EXPECT_EQ(convert(u"<\u00e9\u20ac>", true), u"<&#233;&#8364;>");
  EXPECT_EQ(convert(u"nothing to do", false), u"nothing to do");
  EXPECT_EQ(convert(u"", true), u"");
  EXPECT_EQ(stringByConvertingBufferToEntities(nullptr, 0, false), u"");
}

// The scan writes a feed's page itself; the same items rendered from their dictionaries must
// give the same page body.
TEST_F(FeedPages, TheScansPageAgreesWithPagesOfItsItemDictionaries) {
  std::vector<std::u16string> feeds = {kFeed};
  for (const corpus::File& file : corpus::files("feeds", ".xml"))
    feeds.push_back(utf8ToUtf16(file.bytes));
  for (const std::u16string& feed : feeds) {
    if (!isFeed(feed)) continue;
    const std::u16string page =
        stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(feed, true);
    const std::u16string list = stringByConvertingItemsToDisplayHTML(getItemsOfFeed(feed));
    const std::u16string listItems =
        list.substr(kStart.size() + kHeadEnd.size(),
                    list.size() - kStart.size() - kHeadEnd.size() - kEnd.size());
    if (listItems.empty()) continue;
    const std::size_t at = page.find(listItems);
    EXPECT_NE(at, std::u16string::npos) << utf16ToUtf8(feed.substr(0, 200));
    if (at != std::u16string::npos) {
      EXPECT_EQ(page.substr(at + listItems.size()), kEnd);
    }
  }
}

}  // namespace
}  // namespace ferncast
