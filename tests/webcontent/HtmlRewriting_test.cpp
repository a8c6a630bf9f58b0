#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "webcontent/HtmlExtensions.h"

namespace ferncast {
namespace {

std::string text(const std::optional<std::u16string>& s) {
  return s ? utf16ToUtf8(*s) : "(nil)";
}

TEST(SettingTheBaseURL, ReplacesAddsOrRemovesTheBaseElement) {
  struct Case {
    const char16_t* html;
    std::optional<std::u16string_view> url;
    const char16_t* expected;
  };
  const Case cases[] = {
      {u"<html><head><title>t</title><base href=old></head><body></body></html>", u"http://n/",
       u"<html><head><title>t</title><BASE href=\"http://n/\"/>\n</head><body></body></html>"},
      {u"<head><base href=old></head>", u"", u"<head></head>"},
      {u"<HEAD lang=en><title>t</title></HEAD>", u"http://n/?a=1&b=\"2\"",
       u"<HEAD lang=en><BASE "
       u"href=\"http://n/?a=1&amp;b=&quot;2&quot;\"/>\n<title>t</title></HEAD>"},
      {u"<p>no head, no base</p>", u"http://n/", u"<p>no head, no base</p>"},
      {u"<p>no head, no base</p>", u"", u"<p>no head, no base</p>"},
      {u"<head></head>", u"", u"<head></head>"},
      // A base tag after <body> is not the page's base element.
      {u"<head></head><body><base href=late>", u"http://n/",
       u"<head><BASE href=\"http://n/\"/>\n</head><body><base href=late>"},
      // A base tag without HREF does not count.
      {u"<head><base target=_top></head>", u"http://n/",
       u"<head><BASE href=\"http://n/\"/>\n<base target=_top></head>"},
      {u"<head><base href=old></head>", std::nullopt, u"<head><base href=old></head>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.html));
    EXPECT_EQ(stringBySettingBaseURL(c.html, c.url), c.expected);
  }
}

TEST(AddingTheBaseURL, OnlyWhenTheHeadHasNone) {
  EXPECT_EQ(stringByAddingBaseURL(u"<head></head>", u"http://n/"),
            u"<head><BASE href=\"http://n/\"/>\n</head>");
  EXPECT_EQ(stringByAddingBaseURL(u"<head><base href=o></head>", u"http://n/"),
            u"<head><base href=o></head>");
  EXPECT_EQ(stringByAddingBaseURL(u"<p>x</p>", u"http://n/"), u"<p>x</p>");
  EXPECT_EQ(stringByAddingBaseURL(u"<head></head>", u""), u"<head></head>");
}

TEST(StripTags, SpacesTextRunsApart) {
  const std::pair<const char16_t*, const char16_t*> cases[] = {
      {u"<p>one</p><p>two</p>", u"one two"},
      {u"one<br>two", u"one two"},
      {u"one <b>two</b>", u"one two"},
      {u"a&amp;b<i>c</i>", u"a&amp;b c"},  // entities stay
      {u"<script>var a = '<p>no</p>';</script>text", u"text"},
      {u"x<!-- comment -->y", u"x y"},
      {u"x<br>\n<br>y", u"x \ny"},
      {u"<a title='>'>t</a>", u"t"},
      {u"unterminated <b", u"unterminated <b"},
      {u"", u""},
  };
  for (const auto& [html, expected] : cases) {
    SCOPED_TRACE(utf16ToUtf8(html));
    EXPECT_EQ(stripTags(html), expected);
  }
}

TEST(StripTag, RemovesOneKindOfTagOnly) {
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"<p><span class=a>one</span> <SPAN>two</Span></p>", "<p>one two</p>"},
      {u"<span/>x<spans>y</spans>", "x<spans>y</spans>"},
      {u"a<span>b", "ab"},
      {u"<p>no spans</p>", "(nil)"},
      {u"<!-- <span> -->", "(nil)"},
  };
  for (const auto& [html, expected] : cases) {
    SCOPED_TRACE(utf16ToUtf8(html));
    EXPECT_EQ(text(stripTag(html, "SPAN")), expected);
  }
  EXPECT_EQ(text(stripTag(u"<iframe src=x></iframe>after", "IFRAME")), "after");
}

TEST(StripTagBodies, RemovesOrKeepsWholeNestedElements) {
  struct Case {
    const char16_t* html;
    std::vector<std::u16string> patterns;
    const char* removed;
    const char* kept;
  };
  const Case cases[] = {
      {u"a<div>b<div>c</div>d</div>e<div>f</div>g",
       {u"<div"},
       "aeg",
       "<div>b<div>c</div>d</div>\n<div>f</div>\n"},
      {u"<DIV class=x>in</div>out", {u"<span", u"<div"}, "out", "<DIV class=x>in</div>\n"},
      // A self-closing tag of the same name ends a level (kept so).
      {u"<div>a<div/>b</div>c", {u"<div"}, "b</div>c", "<div>a<div/>\n"},
      {u"<div/>x", {u"<div"}, "<div/>x", "(nil)"},
      {u"x<script>if (a<b) f('</div>');</script>y<style>p{}</style>z",
       {u"<script", u"<style"},
       "xyz",
       "<script>if (a<b) f('</div>');</script>\n<style>p{}</style>\n"},
      {u"<div>never closed<p>x", {u"<div"}, "", "<div>never closed<p>x"},
      {u"<p>x</p>", {u"<p class"}, "<p>x</p>", "(nil)"},  // longer than the tag
      {u"<p>x</p>", {}, "<p>x</p>", "(nil)"},
      {u"<p>x</p>", {u""}, "<p>x</p>", "(nil)"},
      {u"<div>b</div>", {u"<DIV"}, "", "<div>b</div>\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.html));
    EXPECT_EQ(text(stripTagBodies(c.html, c.patterns, false)), c.removed);
    EXPECT_EQ(text(stripTagBodiesExcept(c.html, c.patterns)), c.kept);
  }
  EXPECT_EQ(text(stripTagBodiesExcept(u"", {u"<div"})), "(nil)");
  EXPECT_EQ(stripTagBodies(u"", {u"<div"}), u"");
}

TEST(StripObjects, DropsMediaAndOptionallyReplacesImages) {
  struct Case {
    const char16_t* html;
    const char* withoutImages;
    const char* withImages;
  };
  const Case cases[] = {
      {u"Home<img src=logo.png alt=Logo>", "Home<img src=logo.png alt=Logo>", "Home Logo\n"},
      {u"Home <img title=T>", "Home <img title=T>", "Home T\n"},
      {u"<img src=x.png>after", "<img src=x.png>after", "after"},
      // Text inside is dropped, other tags inside are not.
      {u"a<video src=v>fallback <b>text</b></video>b", "a<b></b>b", "a<b></b>b"},
      {u"<object><param name=p value=v/><embed src=e/>text</object>rest", "rest", "rest"},
      // A void tag written without "/>" hides the text up to a closing tag of its name.
      {u"<embed src=e>text<p>more", "<p>", "<p>"},
      {u"<iframe/>kept", "kept", "kept"},
      {u"<script>x</script><link rel=stylesheet href=s><p>p</p>", "<p>p</p>", "<p>p</p>"},
      {u"<audio>never closed", "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.html));
    EXPECT_EQ(utf16ToUtf8(stripObjectsAndReplaceImages(c.html, false)), c.withoutImages);
    EXPECT_EQ(utf16ToUtf8(stripObjectsAndReplaceImages(c.html, true)), c.withImages);
  }
}

TEST(StripLinks, RemovesAnchorsWithTheirText) {
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"<p>Go <a href=x>there <b>now</b></a>!</p><link rel=x>", "<p>Go <b></b>!</p>"},
      {u"<a name=x/>kept<A HREF=y>gone</A>", "kept"},
      {u"<a href=x>unterminated", ""},
      {u"<area href=z>", "<area href=z>"},
  };
  for (const auto& [html, expected] : cases) {
    SCOPED_TRACE(utf16ToUtf8(html));
    EXPECT_EQ(utf16ToUtf8(stripLinks(html)), expected);
  }
}

TEST(StripAttributesOfTag, KeepsOnlyHrefAndSrc) {
  struct Case {
    const char16_t* html;
    const char* name;
    const char* expected;
  };
  const Case cases[] = {
      {u"<a class=c href='x' onclick=\"f()\">t</a>", "A", "<a href=\"x\">t</a>"},
      {u"<IMG alt=a src=i.png width=1 /><img>", "IMG", "<IMG src=\"i.png\"/><img>"},
      {u"<a href='say \"hi\"'>", "A", "<a href='say \"hi\"'>"},
      {u"<p class=c><a>", "A", "<p class=c><a>"},
      {u"<script src=s.js type=t>var x;</script>", "SCRIPT",
       "<script src=\"s.js\">var x;</script>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.html));
    EXPECT_EQ(utf16ToUtf8(stripAttributesOfTag(c.html, c.name)), c.expected);
  }
}

TEST(RewritesOfMalformedMarkup, NeverLoseTextOutsideTags) {
  const char16_t* pages[] = {
      u"<p title='unclosed>text</p>more",
      u"<<>>text<",
      u"<!-- never closed",
      u"<![CDATA[ x ]]>y",
      u"</>a</ b>c",
      u"<a href=it's>x</a>'>y",
  };
  for (const char16_t* page : pages) {
    SCOPED_TRACE(utf16ToUtf8(page));
    // With no tag of that name the page stands; without link and object tags it is unchanged.
    EXPECT_FALSE(stripTag(page, "NOSUCH"));
    EXPECT_EQ(stringBySettingBaseURL(page, u"http://x/"), page);
    EXPECT_EQ(*stripTagBodies(page, {u"<nosuch"}, false), page);
  }
}

TEST(HugePages, RewriteInOnePass) {
  std::u16string page = u"<html><head><title>t</title></head><body>";
  std::u16string chunk = u"<div class=x><a href='/l'>link</a> text <img src=i alt=A></div>\n";
  while (page.size() < (4u << 20))
    page += chunk;
  EXPECT_LT(stripTags(page).size(), page.size());
  EXPECT_EQ(stripTagBodiesExcept(page, {u"<div"})->size(), page.size() - 41);
  EXPECT_LT(stripObjectsAndReplaceImages(page, true).size(), page.size());
  EXPECT_EQ(htmlLinksBaseURL(page, nullptr).size(), 1u);
  EXPECT_EQ(htmlImages(page).size(), 1u);
  EXPECT_EQ(htmlTitle(page), u"t");
}

}  // namespace
}  // namespace ferncast
