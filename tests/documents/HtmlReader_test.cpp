#include "webcontent/documents/HtmlReader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include <unicode/uchar.h>

#include <unordered_map>

#include "Classes/Unicode.h"
#include "markup/Html2Text.h"
#include "markup/MarkupDecoding.h"
#include "tests/AttributedText.h"
#include "tests/Corpus.h"
#include "tests/LocalHttpServer.h"
#include "tests/TestHosts.h"
#include "webcontent/documents/RTFD.h"

namespace ferncast {
namespace {

using namespace std::chrono_literals;

std::string utf8(std::u16string_view s) {
  return utf16ToUtf8(s);
}

HtmlReading read(std::u16string_view html, const HtmlReaderOptions& options = {}) {
  std::optional<HtmlReading> reading = readHTMLString(html, options);
  EXPECT_TRUE(reading) << utf8(html);
  return reading ? std::move(*reading) : HtmlReading{};
}

Attributes at(const HtmlReading& reading, std::u16string_view word) {
  return test_support::attributesOfWord(reading.string, word);
}

TEST(HtmlLayout, BlocksBreakLinesAndWhiteSpaceCollapses) {
  struct Case {
    const char16_t* html;
    const char16_t* text;
  } cases[] = {
      {u"<p>a  b\n c</p><p>d</p>", u"a b c\nd\n"},
      {u"  lead <b>bold</b>  trail ", u"lead bold trail"},
      {u"a<br>b<br/>c", u"a\nb\nc"},
      {u"<div>a<div>b</div>c</div>", u"a\nb\nc\n"},
      {u"<p>open<p>next", u"open\nnext\n"},             // implied end tags
      {u"<p>x<div>y</div></p>z", u"x\ny\nz"},           // a block closes p
      {u"<pre>\n a  b\n\tc</pre>d", u" a  b\n\tc\nd"},  // pre keeps white space
      {u"<table><tr><td>a<td>b</tr><tr><th>c</th><td><p>d</p></td></table>e", u"a\tb\nc\td\ne"},
      {u"<ul><li>one<li>two<ol><li>x</ol></ul>", u"\t\u2022\tone\n\t\u2022\ttwo\n\t1.\tx\n"},
      {u"<ol start=3 type=i><li>a<li value=9>b<li>c</ol>", u"\tiii.\ta\n\tix.\tb\n\tx.\tc\n"},
      {u"a<hr>b", u"a\n\nb"},
      {u"x &amp; y &lt;z&gt; &eacute;&#233;&nbsp;!", u"x & y <z> \u00E9\u00E9\u00A0!"},
      {u"<head><title>T</title><style>p{}</style><script>var a='<p>no</p>';</script></head>"
       u"<body>yes<!-- not --><noscript>no</noscript><template>no</template></body>",
       u"yes\n"},
      {u"<p hidden>no</p><p data-hidden=1>yes</p><p hidden=''>no</p>", u"yes\n"},
      {u"<p>a</p>\n\n   <p>b</p>", u"a\nb\n"},
      {u"<img alt='[pic]' src='x.png'> and <img alt=gone> <img src=y title=named>",
       u"[pic] and gone named"},
      {u"a\uFFFCb", u"ab"},  // stray attachment characters are not text
  };
  for (const Case& c : cases)
    EXPECT_EQ(utf8(read(c.html).string.string()), utf8(c.text)) << utf8(c.html);
}

TEST(HtmlLayout, InlineElementsGiveCharacterAttributes) {
  HtmlReading r = read(
      u"<p>plain <b>bold</b> <strong>strong</strong> <i>ital</i> <em>emph</em> <u>under</u> "
      u"<s>struck</s> <del>deleted</del> x<sup>up</sup> x<sub>down</sub> <code>mono</code> "
      u"<a href='/page?q=1'>link</a> <font color=red size=5 face='Arial, sans'>font</font> "
      u"<mark>marked</mark> <small>small</small></p>",
      {.baseURL = URL::URLWithString(u"http://example.test/dir/")});
  EXPECT_FALSE(at(r, u"plain").font.bold);
  EXPECT_EQ(at(r, u"plain").font.family, u"Times");
  EXPECT_EQ(at(r, u"plain").font.pointSize, 12);
  EXPECT_TRUE(at(r, u"bold").font.bold);
  EXPECT_TRUE(at(r, u"strong").font.bold);
  EXPECT_TRUE(at(r, u"ital").font.italic);
  EXPECT_TRUE(at(r, u"emph").font.italic);
  EXPECT_EQ(at(r, u"under").underline, UnderlineStyle::kSingle);
  EXPECT_TRUE(at(r, u"struck").strikethrough);
  EXPECT_TRUE(at(r, u"deleted").strikethrough);
  EXPECT_EQ(at(r, u"up").superscript, 1);
  EXPECT_EQ(at(r, u"down").superscript, -1);
  EXPECT_LT(at(r, u"up").font.pointSize, 12);
  EXPECT_EQ(at(r, u"mono").font.family, u"Courier");
  EXPECT_EQ(at(r, u"link").link, u"http://example.test/page?q=1");
  EXPECT_EQ(at(r, u"link").underline, UnderlineStyle::kSingle);
  EXPECT_EQ(at(r, u"font").foregroundColor, (Color{255, 0, 0}));
  EXPECT_EQ(at(r, u"font").font.family, u"Arial");
  EXPECT_EQ(at(r, u"font").font.pointSize, 18);
  EXPECT_EQ(at(r, u"marked").backgroundColor, (Color{255, 255, 0}));
  EXPECT_LT(at(r, u"small").font.pointSize, 12);
  EXPECT_FALSE(at(r, u" x").font.bold) << "attributes end with their element";
}

TEST(HtmlLayout, BlocksGiveParagraphAttributes) {
  HtmlReading r = read(
      u"<h1>Head1</h1><h2>Head2</h2><h6>Head6</h6><p>para</p>"
      u"<blockquote>quoted<blockquote>deeper</blockquote></blockquote>"
      u"<p align=right>righted</p><center>centred</center>"
      u"<ul><li>item<ul><li>nested</li></ul></li></ul><ol><li>numbered</li></ol>"
      u"<pre>preformatted</pre>");
  EXPECT_EQ(at(r, u"Head1").font.pointSize, 24);
  EXPECT_TRUE(at(r, u"Head1").font.bold);
  EXPECT_EQ(at(r, u"Head2").font.pointSize, 18);
  EXPECT_LT(at(r, u"Head6").font.pointSize, 12);
  EXPECT_GT(at(r, u"Head1").paragraphStyle.paragraphSpacing, 0);
  EXPECT_GT(at(r, u"para").paragraphStyle.paragraphSpacing, 0);
  EXPECT_EQ(at(r, u"quoted").paragraphStyle.headIndent, 36);
  EXPECT_EQ(at(r, u"deeper").paragraphStyle.headIndent, 72);
  EXPECT_EQ(at(r, u"righted").paragraphStyle.alignment, TextAlignment::kRight);
  EXPECT_EQ(at(r, u"centred").paragraphStyle.alignment, TextAlignment::kCenter);
  ASSERT_EQ(at(r, u"item").paragraphStyle.textLists.size(), 1u);
  EXPECT_EQ(at(r, u"item").paragraphStyle.textLists[0].markerFormat, u"{disc}");
  ASSERT_EQ(at(r, u"nested").paragraphStyle.textLists.size(), 2u);
  EXPECT_EQ(at(r, u"nested").paragraphStyle.textLists[1].markerFormat, u"{circle}");
  EXPECT_GT(at(r, u"nested").paragraphStyle.headIndent, at(r, u"item").paragraphStyle.headIndent);
  EXPECT_EQ(at(r, u"numbered").paragraphStyle.textLists.at(0).markerFormat, u"{decimal}.");
  EXPECT_EQ(at(r, u"preformatted").font.family, u"Courier");
  // The marker belongs to its item's paragraph.
  std::size_t item = r.string.string().find(u"item");
  EXPECT_EQ(r.string.attributesAtIndex(item - 3).paragraphStyle,
            r.string.attributesAtIndex(item).paragraphStyle);
}

TEST(HtmlLayout, StyleRulesAndAttributesApply) {
  HtmlReading r = read(
      u"<style>p { color: #010203 } .big { font-size: 2em } #top { text-align: center }"
      u" div p { color: red }</style>"
      u"<p>ruled</p><p class=big>doubled</p><p id=top>centred</p>"
      u"<p style='color: rgb(9,9,9); font-weight: 700; font-style: italic;"
      u" text-decoration: underline; background-color: #fff'>inline</p>"
      u"<div style='font-size: 20px'><span style='font-size: 50%'>half</span></div>"
      u"<p style='font-family: monospace'>fixed</p>");
  EXPECT_EQ(at(r, u"ruled").foregroundColor, (Color{1, 2, 3}));
  EXPECT_EQ(at(r, u"doubled").font.pointSize, 24);
  EXPECT_EQ(at(r, u"centred").paragraphStyle.alignment, TextAlignment::kCenter);
  Attributes inlineStyled = at(r, u"inline");
  EXPECT_EQ(inlineStyled.foregroundColor, (Color{9, 9, 9}));
  EXPECT_TRUE(inlineStyled.font.bold);
  EXPECT_TRUE(inlineStyled.font.italic);
  EXPECT_EQ(inlineStyled.underline, UnderlineStyle::kSingle);
  EXPECT_EQ(inlineStyled.backgroundColor, (Color{255, 255, 255}));
  EXPECT_EQ(at(r, u"half").font.pointSize, 7.5);
  EXPECT_EQ(at(r, u"fixed").font.family, u"Courier");
}

TEST(HtmlLayout, DocumentAttributesFromHead) {
  std::string page =
      "<html><head><meta charset=iso-8859-1><title> The\n &amp; Title </title>"
      "<meta name=Author content='A. Writer'><meta name=keywords content='one, two,,three'>"
      "<meta name=description content='About it'></head><body>caf\xE9</body></html>";
  std::optional<HtmlReading> r =
      readHTML({reinterpret_cast<const std::uint8_t*>(page.data()), page.size()}, {});
  ASSERT_TRUE(r);
  EXPECT_EQ(r->string.string(), u"caf\u00E9\n");
  const Dictionary& d = r->documentAttributes;
  EXPECT_EQ(d.at(u"DocumentType"), Value(u"NSHTML"));
  EXPECT_EQ(d.at(u"Title"), Value(u"The & Title"));
  EXPECT_EQ(d.at(u"Author"), Value(u"A. Writer"));
  EXPECT_EQ(d.at(u"Comment"), Value(u"About it"));
  EXPECT_EQ(d.at(u"Keywords"), Value(Array{u"one", u"two", u"three"}));
  EXPECT_EQ(d.at(u"CharacterEncoding"), Value(5));  // ISO Latin-1 as declared
}

TEST(HtmlLayout, GivenCharacterSetWinsAndEmptyPagesGiveNothing) {
  std::string page = "<p>\xC3\xA9</p>";  // UTF-8 é
  auto bytes = [](const std::string& s) {
    return std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(s.data()), s.size());
  };
  EXPECT_EQ(readHTML(bytes(page), {.textEncodingName = u"utf-8"})->string.string(), u"\u00E9\n");
  EXPECT_EQ(readHTML(bytes(page), {.textEncodingName = u"iso-8859-1"})->string.string(),
            u"\u00C3\u00A9\n");
  EXPECT_FALSE(readHTML(bytes(""), {}));
  EXPECT_FALSE(readHTML(bytes("<html><head><title>t</title></head><body> </body></html>"), {}));
}

const std::string kPng = std::string("\x89PNG\r\n\x1a\n", 8) + "rest of a picture";

// Pages whose images come from a server of the test's own on 127.0.0.1, read with the hook that
// lets only local hosts through, as when remote requests are refused.
class HtmlImages : public ::testing::Test {
 protected:
  HtmlImages()
      : server_({
            {"/a.png", {200, "image/png", kPng}},
            {"/page.html", {200, "text/html", "<p>not an image</p>"}},
            {"/hang.png", {.hang = true}},
            {"/to-far.png", {302, "text/plain", "", "http://far.test:{port}/a.png"}},
        }) {
    test_support::addTestHosts(resolver_);
  }

  HtmlReaderOptions options(bool remoteAllowed = false) {
    HtmlReaderOptions o;
    o.baseURL = URL::URLWithString(utf8ToUtf16(server_.url("/dir/page.html")));
    ResourceLoaderOptions loader;
    loader.resolver = &resolver_;
    if (!remoteAllowed) {
      loader.hook = [](const URL& request, HostResolver& resolver) -> std::optional<URL> {
        if (!isLocalURL(request, resolver, kHostLookupTimeout)) return std::nullopt;
        return request;
      };
    }
    o.resources = loader;
    return o;
  }

  std::u16string port() const { return utf8ToUtf16(std::to_string(server_.port())); }

  HostTableResolver resolver_{nullptr};
  test_support::LocalHttpServer server_;
};

TEST_F(HtmlImages, LocalImagesLoadAndRefusedOrFailedOnesLeaveTheirAltText) {
  HtmlReading r = read(
      u"<p>A<img src='/a.png' alt=one width=40 height=20>"
      u"B<img src='http://far.test:" +
          port() +
          u"/a.png' alt=two>"
          u"C<img src='/to-far.png' alt=three>"
          u"D<img src='/page.html' alt=four>"
          u"E<img src='data:image/png;base64,iVBORw0KGgo=' alt=five>"
          u"F<span style='background-image: url(\"/a.png\")'>G</span></p>",
      options());
  EXPECT_EQ(r.string.string(), u"A\uFFFCBtwoCthreeDfourE\uFFFCF\uFFFCG\n");
  const Attributes& first = r.string.attributesAtIndex(1);
  ASSERT_TRUE(first.attachment);
  EXPECT_EQ(first.attachment->width, 30);
  EXPECT_EQ(first.attachment->height, 15);
  EXPECT_EQ(first.attachment->fileWrapper->preferredFilename, u"a.png");
  EXPECT_EQ(std::string(first.attachment->fileWrapper->contents.begin(),
                        first.attachment->fileWrapper->contents.end()),
            kPng);
  ASSERT_EQ(r.loads.size(), 6u);
  EXPECT_EQ(r.loads[1].outcome, LoadOutcome::kRefused);
  EXPECT_EQ(r.loads[2].outcome, LoadOutcome::kRefused);
  EXPECT_EQ(r.loads[2].redirects, 1);
  EXPECT_EQ(r.loads[3].outcome, LoadOutcome::kLoaded);  // loaded, but no image: alt text
  // One file for the image used twice.
  EXPECT_EQ(r.string.attributesAtIndex(1).attachment->fileWrapper,
            r.string.attributesAtIndex(r.string.length() - 3).attachment->fileWrapper);
}

TEST_F(HtmlImages, ResourcesWithoutHostAreAllowed) {
  HtmlReaderOptions o = options();
  o.baseURL.reset();
  HtmlReading r = read(u"<img src='images/x.png' alt=relative>", o);
  ASSERT_EQ(r.loads.size(), 1u);
  EXPECT_NE(r.loads[0].outcome, LoadOutcome::kRefused);
  EXPECT_EQ(r.string.string(), u"relative");
}

TEST_F(HtmlImages, ServerThatNeverAnswersStopsTheReadingAtTheDeadlineWithTheLayout) {
  HtmlReaderOptions o = options();
  o.deadline = std::chrono::steady_clock::now() + 300ms;
  auto started = std::chrono::steady_clock::now();
  HtmlReading r = read(u"<h1>Title</h1><p>text <img src='/hang.png' alt=waiting> more", o);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
  EXPECT_EQ(r.string.string(), u"Title\ntext waiting more\n");
  ASSERT_EQ(r.loads.size(), 1u);
  EXPECT_EQ(r.loads[0].error, "timed out");
}

TEST_F(HtmlImages, WithoutResourceOptionsNothingIsLoaded) {
  HtmlReading r = read(u"<img src='/a.png' alt=alt>", {.baseURL = options().baseURL});
  EXPECT_EQ(r.string.string(), u"alt");
  EXPECT_TRUE(r.loads.empty());
  EXPECT_TRUE(server_.requests().empty());
}

// Words as runs of letters and digits, counted.
std::unordered_map<std::u16string, int> wordCounts(std::u16string_view text) {
  std::unordered_map<std::u16string, int> counts;
  std::u16string word;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    if (i < text.size() && u_isalnum(text[i])) {
      word += text[i];
    } else if (!word.empty()) {
      ++counts[word];
      word.clear();
    }
  }
  return counts;
}

// HTML -> RTFD -> plain text keeps the words of the page's plain text (onlyBody: the reader lays
// out the body, not the head's title).
TEST(HtmlLayout, RoundTripThroughRTFDKeepsTheWordsOfThePlainTextOfArticlePages) {
  const std::vector<corpus::File>& pages = corpus::articlePages();
  if (pages.empty()) GTEST_SKIP() << "no article corpus";
  long total = 0, kept = 0;
  for (const auto& page : pages) {
    std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(page.bytes.data()),
                                        page.bytes.size());
    std::optional<std::u16string> html = stringWithMarkupData(bytes, NSWindowsCP1252StringEncoding);
    ASSERT_TRUE(html) << page.path;
    std::u16string plain =
        stringByConvertingHtml2PlainTextNonUmlauted(*html, false, false, true, false);
    std::optional<HtmlReading> reading = readHTML(bytes, {});
    ASSERT_TRUE(reading) << page.path;
    Data rtfd = RTFDFromRange(reading->string, reading->documentAttributes);
    std::optional<AttributedString> back = initWithRTFD(rtfd, nullptr);
    ASSERT_TRUE(back) << page.path;
    auto expected = wordCounts(plain);
    auto found = wordCounts(back->string());
    long pageTotal = 0, pageKept = 0;
    for (const auto& [word, count] : expected) {
      pageTotal += count;
      auto it = found.find(word);
      pageKept += std::min(count, it == found.end() ? 0 : it->second);
    }
    total += pageTotal;
    kept += pageKept;
  }
  double recall = double(kept) / total;
  std::printf("word recall over %zu pages: %.4f\n", pages.size(), recall);
  EXPECT_GE(recall, 0.99);
}

}  // namespace
}  // namespace ferncast
