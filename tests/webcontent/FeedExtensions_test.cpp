// Feed detection and item collection: RSS 0.9x and 2.0, RDF, Atom, broken feeds, link choice,
// empty items, and the feeds of the shared corpus.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Classes/Json.h"
#include "Classes/Unicode.h"
#include "tests/Corpus.h"
#include "webcontent/FeedExtensions.h"

namespace ferncast {
namespace {

// An item's value as text: strings as they are, other values as JSON, "(absent)" when missing.
std::string field(const Value& item, std::u16string_view key) {
  const Value* value = valueForKey(item, key);
  if (!value) return "(absent)";
  if (const std::u16string* s = value->as<std::u16string>()) return utf16ToUtf8(*s);
  return toJson(*value);
}

Array items(std::u16string_view feed, const std::optional<URL>& base = std::nullopt) {
  return getItemsOfFeed(feed, base);
}

TEST(FeedDetection, ARootTagBeforeAnyHtmlTagMakesAFeed) {
  struct Case {
    const char16_t* text;
    bool feed;
  };
  const Case cases[] = {
      {u"<?xml version=\"1.0\"?><rss version=\"2.0\"><channel></channel></rss>", true},
      {u"<!DOCTYPE rss SYSTEM \"x.dtd\"><RSS version=\"0.91\">", true},
      {u"<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">", true},
      {u"<RDF:rdf>", true},
      {u"<rdf-rdf>", false},  // the fourth unit must be ":"
      {u"<feed xmlns=\"http://www.w3.org/2005/Atom\"><entry/></feed>", true},
      {u"<html><body><rss version=\"2.0\"></rss></body></html>", false},
      {u"<head></head><feed>", false},
      {u"<p>text</p><Body><feed>", false},
      {u"<p>a paragraph</p><rss>", true},  // other tags are passed over
      {u"<rssx><feeds>", false},
      {u"no markup at all", false},
      {u"", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(isFeed(c.text), c.feed) << utf16ToUtf8(c.text);
  }
}

TEST(FeedCompleteness, TheClosingOrSelfClosingRootTagCompletesTheFeed) {
  struct Case {
    const char16_t* text;
    bool found, complete;
  };
  const Case cases[] = {
      {u"<rss><channel><item><title>a</title></item></channel></rss>", true, true},
      {u"<rss><channel><item><title>a</title></item>", true, false},  // truncated
      {u"<feed xmlns=\"x\"/>", true, true},
      {u"<rdf:RDF><item></item></rdf:RDF>", true, true},
      {u"<html><body>no feed</body></html>", false, false},
      {u"", false, false},
  };
  for (const Case& c : cases) {
    bool complete = !c.complete;
    EXPECT_EQ(isFeedComplete(c.text, &complete), c.found) << utf16ToUtf8(c.text);
    EXPECT_EQ(complete, c.complete) << utf16ToUtf8(c.text);
  }
  EXPECT_TRUE(isFeedComplete(u"<rss></rss>", nullptr));
}

TEST(FeedItems, Rss2ItemsCarryEveryKeyInDocumentOrder) {
  const Array result = items(
      u"<?xml version=\"1.0\"?>\n<rss version=\"2.0\" "
      u"xmlns:content=\"http://purl.org/rss/1.0/modules/content/\">\n<channel>\n"
      u"<title>Channel</title><link>http://example.com/</link>\n"
      u"<item>\n<title>First &amp; best</title>\n<link>http://example.com/1</link>\n"
      u"<description>&lt;p&gt;One&lt;/p&gt;</description>\n"
      u"<content:encoded><![CDATA[<p>Full &amp; one</p>]]></content:encoded>\n"
      u"<author>me@example.com (Me)</author>\n<pubDate>Thu, 01 Jan 2004 19:48:21 GMT</pubDate>\n"
      u"<category>news</category><category domain=\"x\">tech</category>\n"
      u"<enclosure url=\"http://example.com/a.mp3?x=1&amp;y=2\" length=\"12345\" "
      u"type=\"audio/mpeg\"/>\n</item>\n"
      u"<item><title>Second</title></item>\n</channel>\n</rss>");
  ASSERT_EQ(result.size(), 2u);
  const Value& first = result[0];
  EXPECT_EQ(field(first, u"title"), "First & best");
  EXPECT_EQ(field(first, u"link"), "http://example.com/1");
  EXPECT_EQ(field(first, u"description"), "<p>One</p>");
  EXPECT_EQ(field(first, u"content"), "<p>Full &amp; one</p>");  // CDATA stays as written
  EXPECT_EQ(field(first, u"author"), "me@example.com (Me)");
  EXPECT_EQ(field(first, u"date"), "Thu, 01 Jan 2004 19:48:21 GMT");
  EXPECT_EQ(field(first, u"calendarDate"), "{\"date\":\"2004-01-01T19:48:21Z\"}");
  EXPECT_EQ(field(first, u"tags"), "[\"news\",\"tech\"]");
  EXPECT_EQ(field(first, u"enclosures"),
            "[{\"length\":\"12345\",\"url\":\"http://example.com/a.mp3?x=1&y=2\"}]");
  // Missing values are empty strings; tags, enclosures and calendarDate are left out.
  const Value& second = result[1];
  EXPECT_EQ(toJson(second),
            "{\"author\":\"\",\"content\":\"\",\"date\":\"\",\"description\":\"\",\"link\":\"\","
            "\"title\":\"Second\"}");
}

TEST(FeedItems, Rss09xAndRdfItemsAreRead) {
  const Array rss091 = items(
      u"<!DOCTYPE rss PUBLIC \"-//Netscape Communications//DTD RSS 0.91//EN\" "
      u"\"http://my.netscape.com/publish/formats/rss-0.91.dtd\">\n<rss version=\"0.91\"><channel>"
      u"<title>c</title><item><title>Caf&eacute; news</title>"
      u"<link>http://example.com/cafe</link><description>Hot &#8211; fresh</description></item>"
      u"</channel></rss>");
  ASSERT_EQ(rss091.size(), 1u);
  EXPECT_EQ(field(rss091[0], u"title"), "Caf\xc3\xa9 news");
  EXPECT_EQ(field(rss091[0], u"description"), "Hot \xe2\x80\x93 fresh");

  const Array rdf = items(
      u"<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\" "
      u"xmlns=\"http://purl.org/rss/1.0/\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\">"
      u"<channel rdf:about=\"http://example.com/index.rdf\"><title>Channel</title>"
      u"<items><rdf:Seq><rdf:li resource=\"http://example.com/1\"/></rdf:Seq></items></channel>"
      u"<item rdf:about=\"http://example.com/1\"><title>One</title>"
      u"<link>http://example.com/1</link><dc:creator>Ann</dc:creator>"
      u"<dc:date>2003-12-31T10:14:55-08:00</dc:date></item>"
      u"<item rdf:about=\"http://example.com/2\"><title>Two</title></item></rdf:RDF>");
  ASSERT_EQ(rdf.size(), 2u);
  EXPECT_EQ(field(rdf[0], u"author"), "Ann");
  EXPECT_EQ(field(rdf[0], u"calendarDate"), "{\"date\":\"2003-12-31T18:14:55Z\"}");
  EXPECT_EQ(field(rdf[1], u"title"), "Two");
}

TEST(FeedItems, AtomEntriesTakeSummaryContentAuthorBlocksAndAlternateLinks) {
  const Array result = items(
      u"<feed xmlns=\"http://www.w3.org/2005/Atom\"><title>Feed</title>"
      u"<author><name>Feed author</name></author>"
      u"<entry><title type=\"html\">Example &lt;b&gt;Atom&lt;/b&gt;</title>"
      u"<link rel=\"self\" href=\"http://example.com/self\"/>"
      u"<link rel=\"edit\" href=\"http://example.com/edit\"/>"
      u"<link rel=\"service.post\" href=\"http://example.com/post\"/>"
      u"<link rel=\"alternate\" type=\"text/html\" href=\"http://example.com/?a=1&amp;b=2\"/>"
      u"<id>tag:example.com,2004:1</id><updated>2003-12-31T10:14:55Z</updated>"
      u"<published>2003-12-30T10:14:55Z</published>"
      u"<author><name>Example author</name><email>me@example.com</email>"
      u"<uri>http://example.com/</uri></author>"
      u"<category term=\"tag one\"/><category term=\"a &amp; b\" label=\"x\"/>"
      u"<summary>Short</summary>"
      u"<content type=\"xhtml\"><div xmlns=\"http://www.w3.org/1999/xhtml\">"
      u"Example &lt;b&gt; <b>Atom</b> caf&#233;</div></content></entry>"
      u"<entry><title>Two</title><author><name>Only name</name></author></entry>"
      u"<entry><title>Three</title><author><email>mail@example.com</email></author></entry>"
      u"</feed>");
  ASSERT_EQ(result.size(), 3u);
  EXPECT_EQ(field(result[0], u"title"), "Example <b>Atom</b>");
  EXPECT_EQ(field(result[0], u"link"), "http://example.com/?a=1&b=2");
  EXPECT_EQ(field(result[0], u"date"), "2003-12-31T10:14:55Z");  // the first date element
  EXPECT_EQ(field(result[0], u"author"), "Example author (me@example.com)");
  EXPECT_EQ(field(result[0], u"tags"), "[\"tag one\",\"a & b\"]");
  EXPECT_EQ(field(result[0], u"description"), "Short");
  // Inline XHTML keeps its markup and its escaped markup; other entities are decoded.
  EXPECT_EQ(field(result[0], u"content"), "<div>Example &lt;b&gt; <b>Atom</b> caf\xc3\xa9</div>");
  EXPECT_EQ(field(result[1], u"author"), "Only name");
  EXPECT_EQ(field(result[2], u"author"), "mail@example.com");
}

TEST(FeedItems, InlineMarkupLosesItsNamespaceDeclarationsOnly) {
  struct Case {
    const char16_t* summary;
    const char* expected;
  };
  const Case cases[] = {
      {u"<div xmlns='http://www.w3.org/1999/xhtml' class=\"a\">x</div>",
       "<div class=\"a\">x</div>"},
      {u"<p xmlns:foo = \"bar\"\ttitle=\"xmlns=no\" xmlns=bare>y</p>",
       "<p\ttitle=\"xmlns=no\">y</p>"},
      {u"<a href=\"x\" xmlnsx=\"y\">z</a> xmlns=\"text\"",
       "<a href=\"x\" xmlnsx=\"y\">z</a> "
       "xmlns=\"text\""},
      {u"<br xmlns=\"a\"/>", "<br/>"},
      {u"<img xmlns=\"a\" src=b>", "<img src=b>"},
      {u"plain xmlns=\"text\"", "plain xmlns=\"text\""},
  };
  for (const Case& c : cases) {
    const Array result =
        items(u"<feed><entry><summary>" + std::u16string(c.summary) + u"</summary></entry></feed>");
    ASSERT_EQ(result.size(), 1u);
    EXPECT_EQ(field(result[0], u"description"), c.expected) << utf16ToUtf8(c.summary);
  }
}

TEST(FeedItems, TheFirstLinkElementWinsAndAGuidNeverReplacesOne) {
  struct Case {
    const char16_t* item;
    const char* link;
  };
  const Case cases[] = {
      {u"<link>http://a/</link><guid>http://b/</guid>", "http://a/"},
      // A permalink guid before the link element stands only until the link element comes.
      {u"<guid>http://b/</guid><link>http://a/</link>", "http://a/"},
      {u"<guid>http://b/</guid>", "http://b/"},
      {u"<guid isPermaLink=\"true\">https://b/</guid>", "https://b/"},
      {u"<guid isPermaLink=\"false\">http://b/</guid>", ""},
      {u"<link>http://a/</link><guid isPermaLink=\"false\">http://b/</guid>", "http://a/"},
      {u"<guid>tag:example.com,2004:1</guid>", ""},  // no remote web URL
      {u"<guid>http://b/</guid><guid>http://c/</guid>", "http://b/"},
      {u"<link>http://a/</link><link>http://c/</link>", "http://a/"},
      {u"<link href=\"http://h/\"/><link>http://a/</link>", "http://h/"},
      {u"<link rel=\"self\" href=\"http://s/\"/><link>http://a/</link>", "http://a/"},
      {u"<link rel=\"enclosure\" href=\"http://e/\"/><link rel=\"alternate\" href=\"http://a/\"/>",
       "http://e/"},
      {u"<link>  </link><link>http://a/</link>", "http://a/"},
  };
  for (const Case& c : cases) {
    const Array result =
        items(u"<rss><channel><item>" + std::u16string(c.item) + u"</item></channel></rss>");
    ASSERT_EQ(result.size(), 1u) << utf16ToUtf8(c.item);
    EXPECT_EQ(field(result[0], u"link"), c.link) << utf16ToUtf8(c.item);
  }
}

TEST(FeedItems, LinksAreCleanedWhenTheItemEnds) {
  const std::optional<URL> base = URL::URLWithString(u"http://example.com/feeds/rss.xml");
  ASSERT_TRUE(base);
  struct Case {
    const char16_t* link;
    bool withBase;
    const char* expected;
  };
  const Case cases[] = {
      {u"/2004/01/item.html", true, "http://example.com/2004/01/item.html"},
      {u"/2004/01/item.html", false, "/2004/01/item.html"},
      {u"item.html", true, "item.html"},  // only links beginning with "/"
      {u"http://news.google.com/news/url?sa=t&amp;ct=us&amp;url=http://real.example.org/a?b=1"
       u"&amp;cid=12345&amp;ei=x",
       false, "http://real.example.org/a?b=1"},
      {u"http://news.google.com/news/url?sa=t&amp;url=http://real.example.org/a", false,
       "http://real.example.org/a"},
      {u"&lt;a href=\"http://example.com/anchor\"&gt;text&lt;/a&gt;", false,
       "http://example.com/anchor"},
      {u"&lt;a href='http://example.com/single'&gt;", false, "http://example.com/single"},
      {u"&lt;a href=http://example.com/bare&gt;text", false, "http://example.com/bare"},
  };
  for (const Case& c : cases) {
    const Array result =
        items(u"<rss><item><link>" + std::u16string(c.link) + u"</link></item></rss>",
              c.withBase ? base : std::nullopt);
    ASSERT_EQ(result.size(), 1u);
    EXPECT_EQ(field(result[0], u"link"), c.expected) << utf16ToUtf8(c.link);
  }
}

TEST(FeedItems, BrokenFeedsGiveWhatCanBeRead) {
  struct Case {
    const char16_t* feed;
    const char* json;
  };
  const Case cases[] = {
      // A title without its closing tag fills nothing; the rest of the item still counts.
      {u"<rss><item><title>Lost<link>http://a/</link></item></rss>",
       R"([{"author":"","content":"","date":"","description":"","link":"http://a/","title":""}])"},
      // An item that never closes is dropped; the one before it stays.
      {u"<rss><item><title>One</title></item><item><title>Two</title><description>x",
       R"([{"author":"","content":"","date":"","description":"","link":"","title":"One"}])"},
      // An opening item tag inside an open item starts again.
      {u"<rss><item><title>One</title><item><title>Two</title></item></rss>",
       R"([{"author":"","content":"","date":"","description":"","link":"","title":"Two"}])"},
      // Entities in titles, undeclared ones too; white space trimmed; CDATA around a title.
      {u"<rss><item><title>\n  AT&amp;T &lt;3 &nbsp;&copy; &bogus; &#x41;  </title>"
       u"<description><![CDATA[ <b>x</b> ]]>&amp; more</description></item></rss>",
       "[{\"author\":\"\",\"content\":\"\",\"date\":\"\",\"description\":\"<b>x</b> & "
       "more\",\"link\":\"\",\"title\":\"AT&T <3 \xc2\xa0\xc2\xa9 &bogus; A\"}]"},
      // A CDATA section that never ends hides the rest of the feed: the item never closes.
      {u"<rss><item><title><![CDATA[Open</title></item></rss>", "[]"},
      // Elements outside items are not collected; an unreadable date gives no calendarDate.
      {u"<rss><channel><title>c</title><pubDate>x</pubDate><item><pubDate>soon</pubDate>"
       u"</item></channel></rss>",
       R"([{"author":"","content":"","date":"soon","description":"","link":"","title":""}])"},
      // Empty slots do not block later elements of the same slot.
      {u"<feed><entry><summary>  </summary><description>second</description></entry></feed>",
       R"([{"author":"","content":"","date":"","description":"second","link":"","title":""}])"},
      // Item tags without a feed root give nothing.
      {u"<item><title>orphan</title></item>", "[]"},
      {u"<html><rss><item><title>x</title></item></rss></html>", "[]"},
      {u"", "[]"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(toJson(items(c.feed)), c.json) << utf16ToUtf8(c.feed);
  }
}

TEST(FeedItems, EnclosuresKeepWhatTheirAttributesGive) {
  const Array result = items(
      u"<rss><item><enclosure url=\"http://e/1.mp3\" length=\"99999999999999999999999\"/>"
      u"<enclosure length=\"5\"/><enclosure url=\"http://e/2.mp3\"/>"
      u"<enclosure url=\"http://e/3.mp3\" length=\"3 MB\"></enclosure></item></rss>");
  ASSERT_EQ(result.size(), 1u);
  EXPECT_EQ(field(result[0], u"enclosures"),
            R"([{"length":"99999999999999999999999","url":"http://e/1.mp3"},{},)"
            R"({"url":"http://e/2.mp3"},{"length":"3 MB","url":"http://e/3.mp3"}])");
}

TEST(EmptyFeedItems, NothingBeyondTheTitleIsEmpty) {
  struct Case {
    Dictionary item;
    bool empty;
  };
  const Case cases[] = {
      {{{u"title", u"T"}, {u"description", u"Some text"}}, false},
      {{{u"title", u"T"}}, true},
      {{{u"title", u"T"}, {u"description", u" \n\t\u00a0"}}, true},
      {{{u"title", u"T"}, {u"description", u""}}, true},
      {{{u"title", u"Hello World"}, {u"description", u"hello world"}}, true},
      {{{u"title", u"Hello, World!"}, {u"description", u"hello world"}}, true},  // letters only
      {{{u"title", u"Hello 2 World"}, {u"description", u"hello world"}}, true},  // digits too
      {{{u"title", u"Video"}, {u"description", u"<iframe src=x></iframe>video"}}, true},
      {{{u"title", u"Video"}, {u"description", u"<iframe src=x></iframe>video!"}}, false},
      {{{u"title", u"T"}, {u"content", u""}, {u"description", u"Body"}}, false},
      {{{u"title", u"T"}, {u"content", u"T"}, {u"description", u"Body"}}, true},
      {{{u"description", u"Body"}}, false},
      {{{u"title", u""}, {u"description", u""}}, true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(isEmptyFeedItem(c.item), c.empty) << toJson(c.item);
  }
}

// ---- Hostile input ----

TEST(HostileFeeds, HugeFeedsUnclosedItemsAndHostileLengthsAreReadWithoutHarm) {
  constexpr std::size_t kSize = 50u << 20;  // 50 MB of UTF-16 text
  const std::u16string item =
      u"<item><title>Item</title><link>http://example.com/i</link><description>" +
      std::u16string(400, u'x') + u"</description><enclosure url=\"http://e/a.mp3\" length=\"" +
      std::u16string(20, u'9') + u"\"/></item>\n";
  std::u16string huge = u"<rss><channel>";
  huge.reserve(kSize + item.size());
  std::size_t count = 0;
  for (; huge.size() < kSize; ++count)
    huge += item;
  Array result = getItemsOfFeed(huge);
  ASSERT_EQ(result.size(), count);
  EXPECT_EQ(field(result.back(), u"link"), "http://example.com/i");
  result.clear();

  // An item that never closes, and a description that never closes, collect nothing.
  huge.replace(0, 14, u"<rss><item><description>");
  for (std::size_t at = huge.find(u"</"); at != std::u16string::npos; at = huge.find(u"</", at))
    huge[at] = u'[';
  EXPECT_TRUE(getItemsOfFeed(huge).empty());
  bool complete = true;
  EXPECT_TRUE(isFeedComplete(huge, &complete));
  EXPECT_FALSE(complete);

  // An enclosure length of a million digits is kept as written.
  const std::u16string length(1u << 20, u'7');
  result =
      getItemsOfFeed(u"<rss><item><enclosure url=\"u\" length=\"" + length + u"\"/></item></rss>");
  ASSERT_EQ(result.size(), 1u);
  const Value* enclosures = valueForKey(result[0], u"enclosures");
  ASSERT_TRUE(enclosures && enclosures->as<Array>() && enclosures->as<Array>()->size() == 1);
  EXPECT_EQ(*valueForKey(enclosures->as<Array>()->front(), u"length"), Value(length));
}

// ---- The feeds of the shared corpus ----

namespace fs = std::filesystem;

std::u16string readFeed(const fs::path& path) {
  return utf8ToUtf16(corpus::readFile(path));
}

TEST(CorpusFeeds, EveryWellFormedFeedIsRecognisedAndItsEntriesCollected) {
  if (!corpus::present("feeds")) GTEST_SKIP() << "no shared corpus";
  std::size_t feeds = 0;
  for (const corpus::File& file : corpus::files("feeds/wellformed", ".xml")) {
    const std::u16string feed = utf8ToUtf16(file.bytes);
    ++feeds;
    EXPECT_TRUE(isFeed(feed)) << file.path;
    bool complete = false;
    EXPECT_TRUE(isFeedComplete(feed, &complete)) << file.path;
    EXPECT_TRUE(complete) << file.path;
    // Each "<item" or "<entry" element that closes gives one item.
    std::size_t opened = 0;
    for (std::u16string_view tag : {u"</item>", u"</entry>"}) {
      for (std::size_t at = feed.find(tag); at != std::u16string::npos; at = feed.find(tag, at + 1))
        ++opened;
    }
    EXPECT_EQ(getItemsOfFeed(feed).size(), opened) << file.path;
  }
  EXPECT_GT(feeds, 100u);
}

TEST(CorpusFeeds, EntryTitlesLinksAndSummariesMatchTheirExpectations) {
  const fs::path root = corpus::folder("feeds/wellformed");
  if (!fs::is_directory(root)) GTEST_SKIP() << root << " is absent";
  struct Case {
    const char* file;
    const char16_t* key;
    const char* expected;
  };
  const Case cases[] = {
      {"atom/entry_title.xml", u"title", "Example Atom"},
      {"rss/item_description_code_br.xml", u"description", "<code>&lt;br /></code>"},
      {"rss/item_content_encoded.xml", u"content", "<p>Example content</p>"},
      {"atom/entry_summary_escaped_markup.xml", u"description", "Example <b>Atom</b>"},
      {"atom/entry_summary_naked_markup.xml", u"description", "Example <b>Atom</b>"},
      {"rdf/rdf_item_description.xml", u"description", "Example description"},
      {"atom/entry_summary_inline_markup.xml", u"description", "<div>Example <b>Atom</b></div>"},
      {"atom/entry_summary_inline_markup_2.xml", u"description",
       "<div>History of the &lt;blink&gt; tag</div>"},
      {"atom/entry_title_inline_markup.xml", u"title", "<div>Example <b>Atom</b></div>"},
  };
  for (const Case& c : cases) {
    const fs::path path = root / c.file;
    if (!fs::exists(path)) continue;
    const Array result = getItemsOfFeed(readFeed(path));
    ASSERT_FALSE(result.empty()) << c.file;
    EXPECT_EQ(field(result[0], c.key), c.expected) << c.file;
  }
}

}  // namespace
}  // namespace ferncast
