#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "Classes/Log.h"
#include "Classes/NSData+zlib.h"
#include "Classes/Unicode.h"
#include "tests/Corpus.h"
#include "webcontent/HtmlExtensions.h"

namespace ferncast {
namespace {

using Strings = std::vector<std::u16string>;

std::string text(const std::optional<std::u16string>& s) {
  return s ? utf16ToUtf8(*s) : "(nil)";
}
std::string text(const std::optional<URL>& u) {
  return u ? utf16ToUtf8(u->absoluteString()) : "(nil)";
}

// Collects what is logged while it lives.
struct LogCapture {
  LogCapture() {
    setLogSink([this](std::string_view line) { lines.emplace_back(line); });
  }
  ~LogCapture() { setLogSink({}); }
  std::vector<std::string> lines;
};

TEST(HtmlLinks, AreNormalisedOnceEachInDocumentOrder) {
  std::u16string html =
      u"<html><head><base href='http://base.example.com/'></head><body>"
      u"<a href=\"/b\">B</a><A HREF=' /a '>A</A><map><area href=/c></map>"
      u"<a href=\"/b\">again</a><a href=\"/a\">and again</a><a name=x>no href</a>"
      u"<a href=\"  \">blank</a><a href='/d?x=1&amp;y=2'>D</a><a href=\"#top\">top</a>"
      u"</body></html>";
  std::optional<URL> base;
  EXPECT_EQ(htmlLinksBaseURL(html, &base), (Strings{u"/b", u"/a", u"/c", u"/d?x=1&y=2", u"#top"}));
  EXPECT_EQ(text(base), "http://base.example.com/");
  EXPECT_EQ(filteredHtmlLinksBaseURL(html, nullptr), htmlLinksBaseURL(html, nullptr));
}

TEST(HtmlLinks, LaterBaseTagsWinAndInvalidOnesAreLogged) {
  LogCapture log;
  std::optional<URL> base = URL::URLWithString(u"http://stale/");
  htmlLinksBaseURL(u"<base href='http://one/'><base href='ftp://two/'><a href=x>x</a>", &base);
  EXPECT_EQ(text(base), "(nil)");
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0], "Invalid base: ftp://two/");
  htmlLinksBaseURL(u"<a href=x>x</a>", &base);
  EXPECT_EQ(text(base), "(nil)");  // cleared when the page has none
}

TEST(HtmlLinks, ContainingMatchesAnchorTextCaseSensitively) {
  std::u16string html =
      u"<a href=/1>Read more</a><a href=/2>More</a><a href=/3><b>read</b> <i>more</i></a>"
      u"<a href=/4>more</a><area href=/5><a href=/6 rel=NoFollow>more news</a>"
      u"<a href=/7>mo<!-- c -->re</a>";
  EXPECT_EQ(htmlLinksContaining(html, u"more", false, nullptr),
            (Strings{u"/1", u"/3", u"/4", u"/6", u"/7"}));
  EXPECT_EQ(htmlLinksContaining(html, u"more", true, nullptr),
            (Strings{u"/1", u"/3", u"/4", u"/7"}));
  // A phrase at least as long as the anchor text must equal it.
  EXPECT_EQ(htmlLinksContaining(html, u"more news", false, nullptr), (Strings{u"/6"}));
  EXPECT_EQ(htmlLinksContaining(html, u"Read more!", false, nullptr), Strings{});
  // No phrase: every link, area tags included, nofollow still honoured.
  EXPECT_EQ(htmlLinksContaining(html, u"", true, nullptr),
            (Strings{u"/1", u"/2", u"/3", u"/4", u"/5", u"/7"}));
  EXPECT_EQ(filteredHtmlLinksContaining(html, u"more", true, nullptr),
            htmlLinksContaining(html, u"more", true, nullptr));
}

TEST(HtmlLinks, CallerTestsSeeHrefAndAnchorText) {
  struct Seen {
    std::vector<std::pair<std::u16string, std::u16string>> calls;
  } seen;
  LinkTestHandler record = [](std::u16string_view href, std::u16string_view anchor, void* c) {
    static_cast<Seen*>(c)->calls.emplace_back(href, anchor);
    return anchor != u"skip";
  };
  std::u16string html =
      u"<a href=/1>one <b>bold</b></a><a href=/2>skip</a><a href=/3><a href=/4>four</a>"
      u"<a href=''>empty</a><a>none</a><area href=/5>";
  EXPECT_EQ(htmlLinksBaseURL(html, nullptr, record, &seen), (Strings{u"/1", u"/4"}));
  // The nested opening tag replaced the pending /3; the empty href was never tested.
  ASSERT_EQ(seen.calls.size(), 3u);
  EXPECT_EQ(seen.calls[0], std::make_pair(std::u16string(u"/1"), std::u16string(u"one bold")));
  EXPECT_EQ(seen.calls[2].first, u"/4");
  // Without a context the test is not used at all.
  EXPECT_EQ(htmlLinksBaseURL(html, nullptr, record, nullptr).size(), 5u);
}

TEST(FilterLink, DropsLinksNoCrawlerCanFollow) {
  const std::pair<const char16_t*, bool> cases[] = {
      {u"#", true},
      {u"&", true},
      {u"-", true},
      {u":", true},
      {u"a", false},
      {u"/path", false},
      {u"page.html", false},
      {u"mailto:a@b.c", true},
      {u"javascript:void(0)", true},
      {u"feed:http://x/", false},  // a feed is kept though no "/" follows the colon
      {u"feed:", false},
      {u"news:", true},
      {u"http://x/", false},
      {u"irc://x/", true},
      {u"IRC://x/", true},
      {u"data://x", true},
      {u"about://x", true},
      {u"webcal://x", true},
      {u"sherlock://x", true},
      {u"javascript://x", true},
      {u"x-man-page://ls", true},
      {u"applescript://x", true},
      {u"quilladdress://x", true},
      {u"x-quill-note://x", true},
      {u"x-quillx://x", true},
      {u"ftp://x/", false},
      {u"gopher://x/", false},
      {u"1http://x", false},  // no scheme: a leading digit
      {u"a_b:c", false},
  };
  for (const auto& [link, expected] : cases)
    EXPECT_EQ(filterLink(link), expected) << utf16ToUtf8(link);
}

TEST(BaseURL, AcceptsRemoteWebKitURLsOnly) {
  LogCapture log;
  const std::pair<const char16_t*, const char*> cases[] = {
      {u" http://Example.com/dir/ ", "http://example.com/dir/"},
      {u"feed://x.com/", "feed://x.com/"},
      {u"#frag", "(nil)"},
      {u"", "(nil)"},
      {u"/relative/", "(nil)"},
      {u"file:///tmp/", "(nil)"},
  };
  for (const auto& [href, expected] : cases)
    EXPECT_EQ(text(baseURL(href)), expected);
  EXPECT_EQ(log.lines,
            (std::vector<std::string>{"Invalid base: /relative/", "Invalid base: file:///tmp/"}));
}

TEST(HtmlFrames, CollectFramesAndTheHead) {
  std::u16string html =
      u"<html><head><title>Frames &amp; more</title>"
      u"<meta http-equiv=Refresh content='5; URL=/next'>"
      u"<meta name=ROBOTS content='noindex'><meta name=robots content='NOINDEX'>"
      u"<meta name=robots content='nofollow'><meta name=robots content=''>"
      u"<meta name=Revisit-After content='7 days'>"
      u"<link rel='icon' href=plain.ico><link rel='Shortcut Icon' href=fav.ico>"
      u"<link rel='shortcut icon' href=second.ico><base href='http://b.example/'></head>"
      u"<frameset><frame src=' a.html '><iframe src=b.html></iframe><frame></frameset>"
      u"<a href=/link>x</a></html>";
  std::optional<URL> base;
  std::optional<std::u16string> favIcon, title, refresh, robots, revisit;
  bool isFeed = true, frameSet = true;
  HtmlHead head{&favIcon, &title, &refresh, &robots, &revisit, &isFeed};
  EXPECT_EQ(htmlFramesSet(html, &frameSet, &base, head), (Strings{u"a.html", u"b.html"}));
  EXPECT_FALSE(frameSet);  // never detected
  EXPECT_FALSE(isFeed);
  EXPECT_EQ(text(base), "http://b.example/");
  EXPECT_EQ(text(title), "Frames &amp; more");
  EXPECT_EQ(text(refresh), "5; URL=/next");
  EXPECT_EQ(text(robots), "noindex,nofollow");
  EXPECT_EQ(text(revisit), "7 days");
  EXPECT_EQ(text(favIcon), "/fav.ico");
  EXPECT_EQ(htmlLinksAndFramesSet(html, nullptr, nullptr, head),
            (Strings{u"/link", u"a.html", u"b.html"}));
  EXPECT_EQ(htmlFramesBaseURL(u"<p>no frames</p>", &base), Strings{});
  EXPECT_EQ(text(base), "(nil)");
}

TEST(HtmlFrames, DetectFeedsBeforeTheDocumentElement) {
  const std::pair<const char16_t*, bool> cases[] = {
      {u"<?xml version='1.0'?><rss version='2.0'><channel></channel></rss>", true},
      {u"<feed xmlns='http://www.w3.org/2005/Atom'></feed>", true},
      {u"<RDF:rdf></RDF:rdf>", true},
      {u"<html><body><rss></rss></body></html>", false},
      {u"<head></head><feed>", false},
      {u"<rdf-rdf>", false},
  };
  for (const auto& [html, expected] : cases) {
    bool isFeed = !expected;
    HtmlHead head;
    head.isFeed = &isFeed;
    htmlLinksAndFramesSet(html, nullptr, nullptr, head);
    EXPECT_EQ(isFeed, expected) << utf16ToUtf8(html);
  }
}

TEST(RevisitAfter, ReadsNumberAndUnit) {
  const std::pair<const char16_t*, std::optional<double>> cases[] = {
      {u"7 days", 604800},   {u"1 Day", 86400},
      {u"30", 30 * 86400.0}, {u"2 weeks", 1209600},
      {u"1 month", 2592000}, {u"1 year", 31536000},
      {u"12 hours", 43200},  {u"10 minutes", 600},
      {u"45 seconds", 45},   {u"1.5 days", 129600},
      {u" 3  d", 259200},    {u"days", std::nullopt},
      {u"", std::nullopt},   {u"5 fortnights", std::nullopt},
  };
  for (const auto& [value, expected] : cases)
    EXPECT_EQ(revisitAfter(value), expected) << utf16ToUtf8(value);
}

TEST(HtmlResources, CollectImagesSheetsScriptsAndObjects) {
  std::u16string html =
      u"<html><head><link rel=icon href=favicon.ico><link rel='apple-touch-image' href=/t.png>"
      u"<link rel=ico href=no.ico><link rel=stylesheet href=s.css><link rel=styl href=no.css>"
      u"<link rel='alternate stylesheet' href='/alt.css'>"
      u"<script src='/app.js'></script><script>var x = '<img src=no.png>';</script>"
      u"<style media='@import \"/in-tag.css\"'></style><style>@import \"/in-body.css\";</style>"
      u"</head><body background='/bg.png'><img src='a.png'><img src='a.png'><img alt=x>"
      u"<object data=/no.swf href=/movie.swf></object><embed src=/no.mov href=/e.mov>"
      u"</body></html>";
  EXPECT_EQ(htmlImages(html), (Strings{u"/bg.png", u"/favicon.ico", u"/t.png", u"a.png"}));
  EXPECT_EQ(htmlStylesheetsAndScripts(html),
            (Strings{u"/alt.css", u"/app.js", u"/in-tag.css", u"/s.css"}));
  EXPECT_EQ(htmlEmbeddedObjects(html), (Strings{u"/e.mov", u"/movie.swf"}));
}

TEST(HtmlHeadValues, StopAtTheBody) {
  struct Case {
    const char16_t* html;
    const char* title;
    const char* favIcon;
    const char* canonical;
    const char* base;
  };
  const Case cases[] = {
      {u"<html><head><title> Hello &amp; bye </title>"
       u"<link rel='SHORTCUT ICON' href=f.ico><link rel=canonical href=' http://X.com/c '>"
       u"<base href=http://b.com/></head>",
       " Hello &amp; bye ", "/f.ico", "http://x.com/c", "http://b.com/"},
      {u"<head><title>never closed", "", "(nil)", "(nil)", "(nil)"},
      {u"<body><title>late</title><link rel=canonical href=/late><base href=http://late/>", "",
       "(nil)", "(nil)", "(nil)"},
      {u"<title/>text<link rel=canonical href='#frag'><link rel=canonical href=/second>", "",
       "(nil)", "/second", "(nil)"},
      {u"<base href='#x'><base href=http://second/>", "", "(nil)", "(nil)", "(nil)"},
      {u"<link rel=icon href=/plain.ico>", "", "(nil)", "(nil)", "(nil)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.html));
    EXPECT_EQ(utf16ToUtf8(htmlTitle(c.html)), c.title);
    EXPECT_EQ(text(htmlFavIcon(c.html)), c.favIcon);
    EXPECT_EQ(text(htmlCanonicalURL(c.html)), c.canonical);
    EXPECT_EQ(text(htmlBaseURL(c.html)), c.base);
  }
  EXPECT_EQ(normalizedHtmlTitle(cases[0].html), u"Hello & bye");
  EXPECT_EQ(normalizedHtmlTitle(u"<p>none</p>"), u"");
}

TEST(HtmlDate, RecognisesDatedMetaNames) {
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"<meta name=date content=2020-01-01>", "2020-01-01"},
      {u"<meta name=DisplayDate content=d>", "d"},
      {u"<meta name='DC.date.issued' content=d>", "d"},
      {u"<meta name='date.created' content=d>", "d"},
      {u"<meta name='article_date' content=d>", "d"},
      {u"<meta name='og:pubdate' content=d>", "d"},
      {u"<meta name='citation_publicationDate' content=d>", "d"},
      {u"<meta http-equiv=Last-Modified content='Mon, 1 Jan 2001'>", "Mon, 1 Jan 2001"},
      {u"<meta name=date content=''><meta name=pdate content=second>", "second"},
      {u"<meta name=dates content=d>", "(nil)"},
      {u"<meta name=update content=d>", "(nil)"},
      {u"<body><meta name=date content=late>", "(nil)"},
  };
  for (const auto& [html, expected] : cases)
    EXPECT_EQ(text(htmlDate(html)), expected) << utf16ToUtf8(html);
}

TEST(HtmlMeta, JoinsRepeatedTagsAndMatchesBothNames) {
  std::u16string html =
      u"<head><meta name=Description content='First'><meta name=description content='Second'>"
      u"<meta name='DC.Description' content='Dublin'><meta name=keywords content='a, b'>"
      u"<meta name=dc.keywords content=c><meta name=author content='A &amp; B'>"
      u"<meta name=dc.rights content=(c)><meta name=IndexTitle content=Index>"
      u"<meta name=dc.title content='DC title'><meta name=date content=2001>"
      u"<meta http-equiv=refresh content=10><meta http-equiv=Content-Type content=text/html>"
      u"<meta name=empty content=''><title>Element title</title></head>"
      u"<body><meta name=author content=late></body>";
  EXPECT_EQ(text(htmlMetaDescription(html)), "First Second Dublin");
  EXPECT_EQ(text(htmlMetaKeywords(html)), "a, b c");
  EXPECT_EQ(text(htmlMetaAuthor(html)), "A & B");
  EXPECT_EQ(text(htmlMetaCopyright(html)), "(c)");
  EXPECT_EQ(text(htmlMetaIndexTitle(html)), "Index");
  EXPECT_EQ(text(htmlMetaTitle(html)), "DC title");
  EXPECT_EQ(text(htmlMetaDate(html)), "2001");
  EXPECT_EQ(text(htmlMetaRefresh(html)), "10");
  EXPECT_EQ(text(htmlMetaHTTPEquiv(html, u"content-type")), "text/html");
  EXPECT_EQ(text(htmlMetaAttributeWithName(html, u"EMPTY")), "(nil)");
  EXPECT_EQ(text(htmlMetaAttributeWithName(html, u"")), "(nil)");
  EXPECT_EQ(text(htmlMetaAttributeWithName(html, u"missing")), "(nil)");

  std::optional<std::u16string> keywords, description, title, indexTitle;
  htmlMetaKeywords(html, &keywords, &description, &title, &indexTitle);
  EXPECT_EQ(text(keywords), "a, b");
  EXPECT_EQ(text(description), "First Second");
  EXPECT_EQ(text(title), "DC title");
  EXPECT_EQ(text(indexTitle), "Index");
  htmlMetaKeywords(u"<title>T</title><meta name=title content=M><meta name=dc.keywords content=k>",
                   &keywords, &description, &title, nullptr);
  EXPECT_EQ(text(keywords), "k");
  EXPECT_EQ(text(description), "(nil)");
  EXPECT_EQ(text(title), "T");
}

TEST(HtmlMeta, DictionaryByLowerCaseName) {
  std::u16string html =
      u"<meta name=Keywords content='a'><meta name=KEYWORDS content='b'>"
      u"<meta name=Description content='x &amp;  y\n\n z'>"
      u"<meta name=markup content='&lt;b&gt;bold&lt;/b&gt;&lt;p&gt;next'>"
      u"<meta http-equiv=refresh content=5><meta name=nocontent>";
  std::map<std::u16string, std::u16string> raw = htmlMetaAttributes(html);
  EXPECT_EQ(raw, (std::map<std::u16string, std::u16string>{
                     {u"keywords", u"a b"},
                     {u"description", u"x &amp;  y\n\n z"},
                     {u"markup", u"&lt;b&gt;bold&lt;/b&gt;&lt;p&gt;next"}}));
  std::map<std::u16string, std::u16string> converted =
      htmlMetaAttributesByConvertingEntitiesToCharacters(html);
  EXPECT_EQ(converted[u"description"], u"x & y z");
  EXPECT_EQ(converted[u"markup"].find(u'<'), std::u16string::npos);
  EXPECT_NE(converted[u"markup"].find(u"bold"), std::u16string::npos);
}

TEST(IsHTML, NeedsMarkupAroundAnHtmlSignature) {
  const std::pair<const char16_t*, bool> cases[] = {
      {u"  <html><body>x</body></html>\n", true},
      {u"<!doctype html><p>x</p>", true},
      {u"<p><title>T</title></p>", true},
      {u"<p>A paragraph</p>", false},
      {u"<html", false},
      {u"<htm>", false},
      {u"html>", false},
      {u"<HTML>", true},
      {u"", false},
  };
  for (const auto& [string, expected] : cases)
    EXPECT_EQ(isHTML(string), expected) << utf16ToUtf8(string);
}

std::vector<std::u16string> corpusPages() {
  std::vector<std::u16string> pages;
  for (const corpus::File& page : corpus::articlePages())
    pages.push_back(utf8ToUtf16(page.bytes));
  return pages;
}

TEST(HtmlLinksOnRealPages, AgreeAcrossHandlersAndKeepFirstAppearance) {
  std::vector<std::u16string> pages = corpusPages();
  if (pages.empty()) GTEST_SKIP() << "no corpus";
  std::size_t total = 0;
  for (const std::u16string& page : pages) {
    Strings links = htmlLinksBaseURL(page, nullptr);
    total += links.size();
    std::set<std::u16string> unique(links.begin(), links.end());
    EXPECT_EQ(unique.size(), links.size());  // each once
    // The links-and-frames handler finds the same links, plus frames.
    Strings all = htmlLinksAndFramesBaseURL(page, nullptr);
    Strings frames = htmlFramesBaseURL(page, nullptr);
    std::set<std::u16string> expected = unique;
    expected.insert(frames.begin(), frames.end());
    EXPECT_EQ(std::set<std::u16string>(all.begin(), all.end()), expected);
    // An empty phrase is no test; a link's own anchor text finds that link.
    EXPECT_EQ(htmlLinksContaining(page, u"", false, nullptr), links);
    // Nofollow only ever removes links.
    Strings followed = htmlLinksContaining(page, u"", true, nullptr);
    std::set<std::u16string> followedSet(followed.begin(), followed.end());
    EXPECT_TRUE(
        std::includes(unique.begin(), unique.end(), followedSet.begin(), followedSet.end()));
    // Without anchors only the area links can remain.
    Strings remaining = htmlLinksBaseURL(stripLinks(page), nullptr);
    std::set<std::u16string> remainingSet(remaining.begin(), remaining.end());
    EXPECT_TRUE(
        std::includes(unique.begin(), unique.end(), remainingSet.begin(), remainingSet.end()));
    EXPECT_EQ(htmlTitle(stripTagBodies(page, {u"<script", u"<style"})), htmlTitle(page));
  }
  EXPECT_GT(total, 1000u);
}

}  // namespace
}  // namespace ferncast
