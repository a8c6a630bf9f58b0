#include "markup/Html2Text.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

std::string plain(std::u16string_view html) {
  return utf16ToUtf8(stringByConvertingHtml2PlainText(html));
}
std::string reformatted(std::u16string_view html) {
  return utf16ToUtf8(stringByConvertingHtml2ReformattedPlainText(html));
}

struct Case {
  std::u16string_view html;
  std::string text;
};

void expectAll(const Case* begin, const Case* end, std::string (*convert)(std::u16string_view)) {
  for (const Case* c = begin; c != end; ++c) {
    EXPECT_EQ(convert(c->html), c->text) << "input: " << utf16ToUtf8(c->html);
  }
}
#define EXPECT_CASES(cases, convert) expectAll(std::begin(cases), std::end(cases), convert)

// --- Layout ---------------------------------------------------------------------------------

TEST(Html2TextLayout, BlocksListsTablesAndBreaksKeepWordsApart) {
  const Case cases[] = {
      {u"a<br>b", "a\nb"},
      {u"a<br/>b", "a\nb"},
      {u"<td>a</td><td>b</td>", "a b"},
      {u"<p>a</p><p>b</p>", "a\n\nb"},
      {u"<P>a<P>b", "a\n\nb"},
      {u"a<li>b<li>c", "a\nb\nc"},
      {u"<ul>\n  <li>one</li>\n  <li>two</li>\n</ul>after", "one\ntwo\nafter"},
      {u"<h1>Title</h1>Text", "Title\n\nText"},
      {u"a<hr>b<blockquote>c</blockquote>d", "a\n\nb\n\nc\n\nd"},
      {u"<div><div><p>x</p></div></div>y", "x\n\ny"},
      {u"<dl><dt>term<dd>meaning</dl>", "term\nmeaning"},
      {u"<table><tr><td>1</td><td>2</td></tr><tr><td>3</td><td>4</td></tr></table>after",
       "1 2\n3 4\n\nafter"},
      {u"<table>\n<tr>\n<th>h1</th>\n<th>h2</th>\n</tr>\n</table>", "h1 h2"},
      {u"see<code>f()</code>here and <cite>Book</cite>", "see f() here and Book"},
      // Inline elements do not separate words.
      {u"un<b>believ</b>able <i>x</i> y", "unbelievable x y"},
      // A second break without text in between adds nothing.
      {u"a<br><br><br>b", "a\nb"},
      {u"a<p></p><p></p><div>b</div>", "a\n\nb"},
      // No white space at either end.
      {u"  <p>  lead  </p>  trail  <br>", "lead\n\ntrail"},
      {u"<br><p>x", "x"},
  };
  EXPECT_CASES(cases, plain);
}

TEST(Html2TextLayout, WhiteSpaceCollapsesToOneSpace) {
  const Case cases[] = {
      {u"a \n\t b", "a b"},         {u"a&nbsp;&nbsp;b", "a b"}, {u"a<span> </span>b", "a b"},
      {u"a <b> b </b> c", "a b c"}, {u"a\r\n\r\nb", "a b"},
  };
  EXPECT_CASES(cases, plain);
}

// --- Reformatting ---------------------------------------------------------------------------

TEST(Html2TextReformat, JoinsWrappedLinesAndKeepsParagraphsAndStructuredLines) {
  const Case cases[] = {
      {u"line one\nline two", "line one line two"},
      {u"para one\n\npara two", "para one\n\npara two"},
      {u"para one\n \t\n\n\npara two", "para one\n\npara two"},
      {u"a\r\nb", "a b"},
      {u"a\r\n\r\nb", "a\n\nb"},
      {u"a\rb", "a b"},
      {u"list:\n- one\n- two", "list:\n- one\n- two"},
      {u"a\n  indented", "a\nindented"},
      {u"path\n/usr/bin", "path\n/usr/bin"},
      {u"quote\n> said", "quote\n> said"},
      {u"code\n}", "code\n}"},
      {u"a\u2028b\u2029\u2029c", "a b\n\nc"},
      {u"a\fb", "a b"},
      {u"a  \t b", "a b"},
      // Across runs: the white space at the end of one run still separates.
      {u"one\n<b>two</b>\n\nthree", "one two\n\nthree"},
      // Cells and other trimmed-text elements stay on one line.
      {u"<td>a\n\nb</td><td>c</td>", "a b c"},
      {u"<title>long\n\ntitle</title>", "long title"},
  };
  EXPECT_CASES(cases, reformatted);
}

// --- Entities -------------------------------------------------------------------------------

TEST(Html2TextEntities, TextEntitiesAreDecodedWithoutBecomingMarkup) {
  const Case cases[] = {
      {u"caf&eacute; &amp; cr&#232;me", "café & crème"},
      {u"&lt;script&gt;alert(1)&lt;/script&gt;", "<script>alert(1)</script>"},
      {u"AT&T &#x263A;", "AT&T ☺"},
      {u"<p>&quot;quoted&quot;</p>", "\"quoted\""},
      {u"&amp", "&"},
      {u"&lt", "&lt"},  // too short a run to hold an entity
  };
  EXPECT_CASES(cases, plain);
}

TEST(Html2TextEntities, OptionsChooseWhichEntitiesAreDecodedAndWhetherAccentsStay) {
  const std::u16string_view html = u"<p>caf&eacute; &amp; &lt;b&gt; é</p>";
  struct {
    bool entities, stdEntities, nonUmlauted;
    std::string text;
  } cases[] = {
      {true, true, false, "café & <b> é"},
      {true, true, true, "cafe & <b> e"},
      {true, false, false, "café &amp; &lt;b&gt; é"},
      {false, true, false, "caf&eacute; & <b> é"},
      {false, false, false, "caf&eacute; &amp; &lt;b&gt; é"},
      {false, false, true, "caf&eacute; &amp; &lt;b&gt; e"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(utf16ToUtf8(stringByConvertingHtml2PlainTextEntities(html, c.entities, c.stdEntities,
                                                                   c.nonUmlauted, false, false,
                                                                   false, nullptr, false, true)),
              c.text)
        << c.entities << c.stdEntities << c.nonUmlauted;
  }
  // Short runs are folded too.
  EXPECT_EQ(utf16ToUtf8(stringByConvertingHtml2PlainTextNonUmlauted(u"<b>é</b>", true)), "e");
}

// --- Head, body and fallbacks ----------------------------------------------------------------

std::string onlyBody(std::u16string_view html) {
  return utf16ToUtf8(stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, true, false));
}

TEST(Html2TextBody, OnlyBodyLeavesOutTheHeadAndFallsBackToTheWholePage) {
  const Case cases[] = {
      {u"<html><head><title>T</title><style>p{color:red}</style></head>"
       u"<body><p>B</p></body></html>",
       "B"},
      {u"<head><title>T</title></head><body>in</body>after", "in"},
      // No body, or an empty one: the whole page counts.
      {u"<title>T</title><p>x</p>", "T\n\nx"},
      {u"<title>T</title><body> </body>", "T"},
      {u"<body/>self-closing body counts for nothing", "self-closing body counts for nothing"},
      // A frameset page's alternative content, with a body inside noframes.
      {u"<frameset></frameset><noframes><body>Frames text</body></noframes>", "Frames text"},
  };
  EXPECT_CASES(cases, onlyBody);
  EXPECT_EQ(plain(u"<html><head><title>T</title></head><body><p>B</p></body></html>"), "T\n\nB");
}

TEST(Html2TextBody, MarkupWithoutTextComesBackUnchanged) {
  for (std::u16string_view html : {u"", u"<html><img src=x></html>", u"<script>var a;</script>"}) {
    EXPECT_EQ(stringByConvertingHtml2PlainText(html), html);
    EXPECT_EQ(stringByConvertingHtml2SimplifiedPlainText(html), html);
  }
  // White space is no text for the full conversion, nor is what a frameset page shows instead.
  for (std::u16string_view html :
       {u"<p> </p>\n<br>", u"<frameset><noframes>no frames</noframes></frameset>"}) {
    EXPECT_EQ(stringByConvertingHtml2PlainText(html), html);
  }
}

TEST(Html2TextBody, ScriptsStylesCommentsAndNoscriptGiveNoText) {
  const Case cases[] = {
      {u"a<script>var x = '<p>no</p>';</script>b", "ab"},
      {u"a<style>p { content: 'no' }</style>b", "ab"},
      {u"a<!-- no -->b<![CDATA[ no ]]>c", "abc"},
      {u"<body>a <noscript>Enable JavaScript</noscript> b</body>", "a b"},
      {u"<body>a <noframes>no frames</noframes> b</body>", "a b"},
      {u"<body><noscript><p>only</p></noscript></body>",
       "<body><noscript><p>only</p></noscript></body>"},
  };
  EXPECT_CASES(cases, plain);
}

// --- Search-appliance directives -------------------------------------------------------------

std::string googleTags(std::u16string_view html) {
  return utf16ToUtf8(stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, false, true));
}

TEST(Html2TextDirectives, GoogleoffAndGoogleonCommentsSwitchIndexingAndLinkText) {
  const Case cases[] = {
      {u"<!-- googleoff: index -->secret<!-- googleon: index --> public", "public"},
      {u"<!-- GoogleOff: INDEX -->secret<!-- googleON: Index -->public", "public"},
      {u"<!-- googleoff: all -->secret<!-- googleon: all -->public", "public"},
      {u"<!-- googleoff: index -->secret<!-- googleon: all -->public", "public"},
      {u"on <!-- googleoff: index -->secret<!-- googleon: snippet -->still off", "on"},
      {u"a <!-- googleoff: snippet -->snippets are still text", "a snippets are still text"},
      {u"<!-- googleoff: anchor -->see <a href=x>link</a> text<!-- googleon: anchor --> "
       u"<a href=y>back</a>",
       "see text back"},
      // Directives are read in the head too.
      {u"<head><!-- googleoff: index --></head><body>hidden</body>",
       "<head><!-- googleoff: index --></head><body>hidden</body>"},
  };
  EXPECT_CASES(cases, googleTags);
  EXPECT_EQ(plain(u"<!-- googleoff: index -->kept without the option"), "kept without the option");
}

// --- Junk -----------------------------------------------------------------------------------

std::string withoutJunk(std::u16string_view html, bool* junk) {
  return utf16ToUtf8(stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, false, true,
                                                                 junk, false, true));
}

TEST(Html2TextJunk, BoilerplateAndHiddenTextAreLeftOut) {
  const Case cases[] = {
      {u"<head><title>Page title</title></head><body>"
       u"<nav><ul><li><a href=/>Home</a><li><a href=/news>News</a></ul></nav>"
       u"<article><h1>Story</h1><p>Story text.</p></article>"
       u"<div class=\"site-footer\"><p>Copyright 2024</p><div>Imprint</div></div>"
       u"</body>",
       "Story\n\nStory text."},
      {u"<div class=\"cookie-banner\"><p>We use cookies.</p><button>Accept</button></div>"
       u"<p>Article</p>",
       "Article"},
      {u"<p>Article</p><ul class=\"share-buttons\"><li>Facebook<li>Twitter</ul><p>More</p>",
       "Article\n\nMore"},
      {u"<p>Article</p><section id=comments class=\"comments-area\"><h2>3 comments</h2>"
       u"<ol class=comment-list><li>Nice!</ol></section>",
       "Article"},
      {u"<div class=\"c-header__navbar\">menu</div>x", "x"},
      {u"<span class='social'>Share</span> text", "text"},
      // Words that only contain a boilerplate name are no boilerplate.
      {u"<div class=commentary>Analysis</div><div class=unavailable>Sold out</div>",
       "Analysis\n\nSold out"},
      // Empty elements and void elements with such classes hide nothing.
      {u"<hr class=footer-line>After<img class=share-icon alt=icon> text", "After icon text"},
      {u"<body bgcolor=\"#FFFFFF\"><font color=\"#ffffff\">cheap pills</font>Real "
       u"<font color=#000000>text</font></body>",
       "Real text"},
  };
  for (const Case& c : cases) {
    bool junk = true;
    EXPECT_EQ(withoutJunk(c.html, &junk), c.text) << utf16ToUtf8(c.html);
    EXPECT_FALSE(junk) << utf16ToUtf8(c.html);
  }
  // The same pages keep everything without the option.
  EXPECT_EQ(plain(u"<div class=footer>Imprint</div><nav>Home</nav> Text"), "Imprint\n\nHome Text");
}

TEST(Html2TextJunk, RunawayAndSeparatorTextRaisesTheWarning) {
  std::u16string words;
  for (int i = 0; i < 2500; ++i)
    words += u"word ";  // 12,500 code units
  std::u16string separators;
  for (int i = 0; i < 20; ++i)
    separators += u"ab -------- ";
  struct {
    const char* fault;
    std::u16string html;
    std::string text;
  } cases[] = {
      {"a line of more than 20,000 code units", u"<p>keep</p>" + words + words, "keep"},
      {"a run of more than 10,000 in a cell", u"<p>keep</p><td>" + words + u"</td>", "keep"},
      {"a run of more than 3,500 in a link", u"<p>keep</p><a href=x>" + words + u"</a>", "keep"},
      {"hidden text made of separators", u"<p>keep</p><div class=menu>" + separators + u"</div>",
       "keep"},
  };
  for (const auto& c : cases) {
    bool junk = false;
    EXPECT_EQ(withoutJunk(c.html, &junk), c.text) << c.fault;
    EXPECT_TRUE(junk) << c.fault;
  }
  // Without the option the text stays and no warning is given.
  bool junk = true;
  std::u16string text = stringByConvertingHtml2PlainTextNonUmlauted(
      u"<td>" + words + u"</td>", false, false, false, false, &junk, false, true);
  EXPECT_EQ(text.size(), words.size() - 1);
  EXPECT_FALSE(junk);
}

// --- Images ---------------------------------------------------------------------------------

TEST(Html2TextImages, AltTextStandsForTheImageUnlessTurnedOff) {
  const Case cases[] = {
      {u"a<img src=x alt='Logo'>b", "a Logo b"},
      {u"a<img src=x title=\"Tip &amp; trick\">b", "a Tip & trick b"},
      {u"a<img alt=first title=second>b", "a first b"},
      {u"a<img src=x>b", "ab"},
      {u"<noscript><img alt=pixel></noscript>text", "text"},
  };
  EXPECT_CASES(cases, plain);
  EXPECT_EQ(utf16ToUtf8(stringByConvertingHtml2PlainTextNonUmlauted(u"a<img alt='Logo'>b", false,
                                                                    false, false, false, false)),
            "ab");
}

// --- Variants -------------------------------------------------------------------------------

TEST(Html2TextVariants, EachVariantAppliesItsFixedOptions) {
  const std::u16string_view html =
      u"<html><head><title>Títle</title></head><body>"
      u"<p>Line one\nline two</p><!-- googleoff: index -->off<!-- googleon: index -->"
      u"<img alt=Pic></body></html>";
  struct {
    const char* variant;
    std::u16string text;
  } cases[] = {
      {"plain", stringByConvertingHtml2PlainText(html)},
      {"reformatted", stringByConvertingHtml2ReformattedPlainText(html)},
      {"non-umlauted", stringByConvertingHtml2PlainTextNonUmlauted(html, true)},
      {"four options", stringByConvertingHtml2PlainTextNonUmlauted(html, false, true, true, true)},
      {"five options",
       stringByConvertingHtml2PlainTextNonUmlauted(html, false, false, true, false, false)},
      {"junk options", stringByConvertingHtml2PlainTextNonUmlauted(html, true, false, false, true,
                                                                   nullptr, false, true)},
      {"simplified", stringByConvertingHtml2SimplifiedPlainText(html)},
  };
  const std::string expected[] = {
      "Títle\n\nLine one line two\n\noff Pic",
      "Títle\n\nLine one line two\n\noff Pic",
      "Title\n\nLine one line two\n\noff Pic",
      "Line one line two\n\nPic",
      "Line one line two\n\noff",
      "Line one line two\n\noff Pic",
      "Line one\nline two off",
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(utf16ToUtf8(cases[i].text), expected[i]) << cases[i].variant;
  }
}

TEST(Html2TextVariants, SimplifiedJoinsTheBodysRawRunsWithSpaces) {
  const Case cases[] = {
      {u"<head><title>x</title></head><body>a  b<p>c &amp; d</body>", "a  b c & d"},
      {u"<title>T</title>no body", "T no body"},
      {u"<body>one<br/>two</body>", "one two"},
  };
  EXPECT_CASES(cases, [](std::u16string_view html) {
    return utf16ToUtf8(stringByConvertingHtml2SimplifiedPlainText(html));
  });
}

// --- Hostile input --------------------------------------------------------------------------

TEST(Html2TextHostile, GiantConstructsDeepNestingAndBinaryJunkConvert) {
  std::u16string giantTag = u"before<a title='" + std::u16string(1 << 20, u'x');
  std::u16string giantComment = u"before<!--" + std::u16string(1 << 20, u'-');
  std::u16string nested;
  for (int i = 0; i < 100000; ++i)
    nested += u"<table><tr><td>";
  nested += u"deep";
  EXPECT_EQ(stringByConvertingHtml2PlainText(giantComment), u"before");
  EXPECT_EQ(plain(nested), "deep");
  // An unterminated tag is text.
  EXPECT_EQ(stringByConvertingHtml2PlainText(giantTag).size(), giantTag.size());

  std::mt19937 random(5);
  std::u16string junk(1 << 20, u'\0');
  for (char16_t& c : junk)
    c = static_cast<char16_t>(random());
  for (int options = 0; options < 8; ++options) {
    bool flag = false;
    std::u16string text = stringByConvertingHtml2PlainTextEntities(
        junk, options & 1, true, options & 2, options & 4, options & 1, options & 2, &flag,
        options & 4, true);
    EXPECT_LE(text.size(), junk.size());
  }
}

}  // namespace
}  // namespace ferncast
