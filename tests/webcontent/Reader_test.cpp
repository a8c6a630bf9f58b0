// Article detection and extraction: the word thresholds at their edges, the ways an article
// begins and ends, markers, and the pages of the shared article corpus.
#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <string>

#include "Classes/Unicode.h"
#include "tests/Corpus.h"
#include "webcontent/Reader.h"

namespace ferncast {
namespace {

// `n` words separated by `separator`.
std::u16string words(std::size_t n, std::u16string_view separator = u" ") {
  std::u16string text;
  for (std::size_t i = 0; i < n; ++i) {
    if (i) text += separator;
    text += u"word";
  }
  return text;
}

std::u16string page(std::u16string_view body) {
  return u"<html><head></head><body>" + std::u16string(body) + u"</body></html>";
}

TEST(ArticleThresholds, WordCountsDecideAtTheirEdges) {
  struct Case {
    const char* name;
    std::u16string html;
    bool article;
  };
  const Case cases[] = {
      {"100 article words of 301",
       page(u"<h1></h1>" + words(100) + u"<hr>" + words(201) + u"<h2></h2>"), true},
      {"100 article words of 303",
       page(u"<h1></h1>" + words(100) + u"<hr>" + words(203) + u"<h2></h2>"), false},
      {"100 words in all", page(u"<h1></h1>" + words(100) + u"<hr><h2></h2>"), true},
      {"99 words in all", page(u"<h1></h1>" + words(99) + u"<hr><h2></h2>"), false},
      {"words inside links do not count",
       page(u"<h1></h1>" + words(99) + u"<a href=x>" + words(150) + u"</a><hr><h2></h2>"), false},
      {"a self-closing anchor opens no link",
       page(u"<h1></h1>" + words(99) + u"<a name=x/>" + words(1) + u"<hr><h2></h2>"), true},
      {"entities are decoded before counting",
       page(u"<h1></h1>" + words(99, u"&amp;") + u"<hr><h2></h2>"), false},
      {"no-break spaces separate words",
       page(u"<h1></h1>" + words(100, u"&nbsp;") + u"<hr><h2></h2>"), true},
      {"one heading is not enough", page(u"<h1></h1>" + words(300) + u"<hr>"), false},
      {"no body tag", u"<h1></h1>" + words(300) + u"<hr><h2></h2>", false},
      {"no end found and no marker", page(u"<h1></h1>" + words(300) + u"<h2></h2>"), false},
      {"a final section of 100 words counts",
       page(u"<h1></h1>" + words(50) + u"<h2></h2>" + words(100) + u"<div class=article>"), true},
      {"a final section of 99 words is dropped",
       page(u"<h1></h1>" + words(50) + u"<h2></h2>" + words(99) + u"<div class=article>"), false},
      {"", u"", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(possibleArticle(c.html), c.article) << c.name;
  }
}

TEST(ArticleExtraction, TheArticleRunsFromItsHeadingToWhereItEnds) {
  const std::u16string head = u"<html><head><title>t</title></head><body class=x>";
  const std::u16string tail = u"</body>\n</html>\n";
  struct Case {
    const char* name;
    std::u16string body;
    std::optional<std::u16string> article;  // between the body's tags; nullopt for none
  };
  const std::u16string text = words(150);
  const Case cases[] = {
      {"comments end the article",
       u"<div id=nav>menu</div><h1>Title</h1><p>" + text +
           u"</p><div class=\"comments\"><h3>Comments</h3><p>Nice</p></div>",
       u"<h1>Title</h1><p>" + text + u"</p>"},
      {"a comment id ends it too",
       u"<h1>Title</h1>" + text + u"<div id=CommentList><h2>c</h2></div>",
       u"<h1>Title</h1>" + text},
      {"the next heading of the article's level ends it",
       u"<h2>A</h2>" + text + u"<h2>B</h2>" + words(20), u"<h2>A</h2>" + text},
      {"short sections restart the article",
       u"<h2>A</h2>" + words(50) + u"<h2>B</h2>" + words(50) + u"<h2>C</h2>" + text + u"<hr>" +
           words(10) + u"<h3>D</h3>",
       u"<h2>C</h2>" + text},
      {"a higher-ranked heading restarts it",
       u"<h3>small</h3>" + text + u"<h1>Big</h1>" + text + u"<hr><h2>x</h2>",
       u"<h1>Big</h1>" + text},
      {"a link to the print view ends it",
       u"<h1>T</h1>" + text + u"<a href=\"/story?view=print\">print</a><h2>x</h2>",
       u"<h1>T</h1>" + text},
      {"a link back to the top ends it",
       u"<h1>T</h1>" + text + u"<A HREF=\"#top\">top</A><h2>x</h2>", u"<h1>T</h1>" + text},
      {"a bookmarklet ends it",
       u"<h1>T</h1>" + text + u"<a href=\"javascript:share()\">share</a><h2>x</h2>",
       u"<h1>T</h1>" + text},
      {"other links do not", u"<h1>T</h1>" + text + u"<a href=\"#topics\">more</a><h2>x</h2>",
       std::nullopt},
      {"a marker alone is not enough to strip",
       u"<div class=\"article-body\"><h1>T</h1>" + text + u"<h2>x</h2>" + text + u"</div>",
       std::nullopt},
  };
  for (const Case& c : cases) {
    const std::u16string html = head + c.body + tail;
    std::optional<std::u16string> stripped = stripToArticle(html);
    if (!c.article) {
      EXPECT_FALSE(stripped) << c.name;
      continue;
    }
    ASSERT_TRUE(stripped) << c.name;
    EXPECT_EQ(*stripped, head + u"\n" + *c.article + u"\n" + tail) << c.name;
    EXPECT_TRUE(possibleArticle(html)) << c.name;
  }
}

TEST(ArticleMarkers, IdOrClassNameTheArticleOrItsComments) {
  struct Case {
    const char16_t* tag;
    bool article;
  };
  // A page whose end is never found: only a marker makes it an article.
  const Case cases[] = {
      {u"<div class=article>", true},
      {u"<div class=\"ARTICLE\">", true},
      {u"<div id=\"main-artikel\">", true},
      {u"<div class=\"articles\">", true},
      {u"<div class=\"art\">", false},
      {u"<div class=\"articl\">", false},
      {u"<h3 class=\"article-title\">", true},
      {u"<span class=article>", false},  // only headings and divs
      {u"</div class=article>", false},  // closing tags are no markers
      {u"<div class=comments>", true},   // it ends the article instead
  };
  const std::u16string text = words(150);
  for (const Case& c : cases) {
    const std::u16string html = page(u"<h1>T</h1>" + text + c.tag + u"<h2>x</h2>" + text);
    EXPECT_EQ(possibleArticle(html), c.article) << utf16ToUtf8(c.tag);
  }
  // A page without a closing body tag keeps nothing after the article.
  const std::u16string open = u"<body><h1>T</h1>" + text + u"<hr><h2>x</h2>";
  EXPECT_EQ(stripToArticle(open), u"<body>\n<h1>T</h1>" + text + u"\n");
}

// ---- The article corpus ----

TEST(ArticleCorpus, StrippedPagesAreShorterAndAgreeWithTheDecision) {
  if (corpus::articlePages().empty()) GTEST_SKIP() << "no shared corpus";
  std::size_t pages = 0, stripped = 0;
  for (const corpus::File& page : corpus::articlePages()) {
    const std::u16string html = utf8ToUtf16(page.bytes);
    ++pages;
    std::optional<std::u16string> article = stripToArticle(html);
    if (!article) continue;
    ++stripped;
    EXPECT_TRUE(possibleArticle(html)) << page.path;
    EXPECT_LE(article->size(), html.size() + 2) << page.path;
  }
  EXPECT_GT(pages, 0u);
  RecordProperty("stripped", static_cast<int>(stripped));
}

}  // namespace
}  // namespace ferncast
