#include "markup/XmlExtensions.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Classes/Log.h"
#include "Classes/Unicode.h"
#include "tests/Corpus.h"

namespace ferncast {
namespace {

// --- Scanner
// --------------------------------------------------------------------------------------

// One handler call as "kind tagLocation+tagLength tTextLocation [name@nameLocation]".
std::string describeCall(std::u16string_view string, std::size_t nameLocation,
                         std::size_t nameLength, std::size_t tagLocation, std::size_t tagLength,
                         std::size_t textLocation, TagKind kind) {
  std::string call = std::to_string(static_cast<int>(kind)) + " " + std::to_string(tagLocation) +
                     "+" + std::to_string(tagLength) + " t" + std::to_string(textLocation);
  if (nameLocation != kNotFound) {
    call += " " + utf16ToUtf8(string.substr(nameLocation, nameLength)) + "@" +
            std::to_string(nameLocation);
  } else if (nameLength != 0) {
    call += " (name length without a location)";
  }
  return call;
}

struct Recorder {
  std::vector<std::string> calls;
  std::size_t stopAfter = 0;  // 0: never stop
  const char16_t* characters = nullptr;
  std::u16string_view string;
};

bool RecordingHandler(std::u16string_view string, char16_t* characters, std::size_t nameLocation,
                      std::size_t nameLength, std::size_t tagLocation, std::size_t tagLength,
                      std::size_t textLocation, TagKind kind, void* context) {
  auto& recorder = *static_cast<Recorder*>(context);
  recorder.characters = characters;
  recorder.string = string;
  recorder.calls.push_back(
      describeCall(string, nameLocation, nameLength, tagLocation, tagLength, textLocation, kind));
  return recorder.stopAfter != 0 && recorder.calls.size() == recorder.stopAfter;
}

std::vector<std::string> scan(std::u16string_view text, bool isMutable = false) {
  Recorder recorder;
  EXPECT_TRUE(GetTagsOfString(text, RecordingHandler, &recorder, isMutable));
  return recorder.calls;
}

struct ScanRow {
  std::u16string input;
  std::vector<std::string> calls;
};

void expectScans(const std::vector<ScanRow>& rows) {
  for (const ScanRow& row : rows) {
    EXPECT_EQ(scan(row.input), row.calls) << utf16ToUtf8(row.input);
    EXPECT_EQ(scan(row.input, true), row.calls) << "mutable: " << utf16ToUtf8(row.input);
  }
}

TEST(TagScanner, TextAndTagsArriveWithTheConstructThatEndsThem) {
  expectScans({
      {u"abc", {"0 3+0 t0"}},
      {u"a<b>c", {"1 1+3 t0 b@2", "0 5+0 t4"}},
      {u"<b><i>", {"1 0+3 t0 b@1", "1 3+3 t3 i@4", "0 6+0 t6"}},
      {u"<p>x</p>", {"1 0+3 t0 p@1", "1 4+4 t3 p@6", "0 8+0 t8"}},
  });
}

TEST(TagScanner, NameStartsAtFirstLetterAndEndsAtWhiteSlashOrBracket) {
  const std::pair<std::u16string, std::string> rows[] = {
      {u"<h1>", "1 0+4 t0 h1@1"},
      {u"<dc:date>", "1 0+9 t0 dc:date@1"},
      {u"<!DOCTYPE html>", "1 0+15 t0 DOCTYPE@2"},
      {u"<?xml version='1.0'?>", "1 0+21 t0 xml@2"},
      {u"< b>", "1 0+4 t0 b@2"},
      {u"<1a>", "1 0+4 t0 a@2"},
      {u"<br/>", "1 0+5 t0 br@1"},
      {u"<a=\"b>c\">", "1 0+9 t0 a=\"b@1"},
      {u"<\u00E9t\u00E9>", "1 0+5 t0 \xC3\xA9t\xC3\xA9@1"},
      {u"<a\u00A0b>", "1 0+5 t0 a@1"},
      {std::u16string(u"<a\0b>", 5), "1 0+5 t0 a@1"},
      {u"<>", "1 0+2 t0"},
      {u"<=>", "1 0+3 t0"},
      {u"<!>", "1 0+3 t0"},
      {u"<!D>", "1 0+4 t0 D@2"},
  };
  for (const auto& [input, first] : rows) {
    const std::vector<std::string> calls = scan(input);
    ASSERT_EQ(calls.size(), 2u) << utf16ToUtf8(input);
    EXPECT_EQ(calls[0], first) << utf16ToUtf8(input);
  }
}

TEST(TagScanner, OnlyQuotesAfterEqualsHideTheClosingBracket) {
  expectScans({
      {u"<a href='x>y'>t</a>", {"1 0+14 t0 a@1", "1 15+4 t14 a@17", "0 19+0 t19"}},
      // An apostrophe in an unquoted value opens a run up to the next apostrophe.
      {u"<a title=it's>x</a>'>", {"1 0+21 t0 a@1", "0 21+0 t21"}},
      {u"<a b=\"x>\" c='y>'>", {"1 0+17 t0 a@1", "0 17+0 t17"}},
      {u"<a b= \"x>\">", {"1 0+11 t0 a@1", "0 11+0 t11"}},
      // The "=" stays armed across an unquoted value and white space.
      {u"<a b=x \"y>z\">", {"1 0+13 t0 a@1", "0 13+0 t13"}},
      // A quote not after "=" opens nothing.
      {u"<a \"b>c\">", {"1 0+6 t0 a@1", "0 9+0 t6"}},
      {u"<a b='x' 'y>", {"1 0+12 t0 a@1", "0 12+0 t12"}},
      // Inside a double-quoted value a single quote and "=" mean nothing.
      {u"<a b=\"it's=\">x", {"1 0+13 t0 a@1", "0 14+0 t13"}},
      // "=" inside quotes does not arm the quote after the value.
      {u"<a b='=' \"c>", {"1 0+12 t0 a@1", "0 12+0 t12"}},
      // A "<" inside a tag is content: tags are never restarted.
      {u"<a <b>", {"1 0+6 t0 a@1", "0 6+0 t6"}},
  });
}

TEST(TagScanner, UnterminatedTagBecomesText) {
  expectScans({
      {u"x <b", {"0 4+0 t0"}},
      {u"<", {"0 1+0 t0"}},
      {u"<!", {"0 2+0 t0"}},
      {u"<a b=\">", {"0 7+0 t0"}},
      {u"<p>x<a href='y>", {"1 0+3 t0 p@1", "0 15+0 t3"}},
  });
}

TEST(TagScanner, CommentsEndAtTheirOwnTerminators) {
  expectScans({
      {u"<!-- a > b -->", {"2 0+14 t0", "0 14+0 t14"}},
      {u"<!-->", {"2 0+5 t0", "0 5+0 t5"}},
      {u"<!--->", {"2 0+6 t0", "0 6+0 t6"}},
      {u"<!->", {"2 0+4 t0", "0 4+0 t4"}},
      {u"<!-x->", {"2 0+6 t0", "0 6+0 t6"}},
      {u"<!-x>y->z", {"2 0+8 t0", "0 9+0 t8"}},
      {u"<!-x-->", {"2 0+7 t0", "0 7+0 t7"}},
      {u"<!--x->y-->", {"2 0+11 t0", "0 11+0 t11"}},
      {u"<!-- a -- b --!> c", {"2 0+16 t0", "0 18+0 t16"}},
      // A short comment does not end at "--!>".
      {u"<!-x--!>->", {"2 0+10 t0", "0 10+0 t10"}},
      {u"a<!--<b>-->c", {"2 1+10 t0", "0 12+0 t11"}},
  });
}

TEST(TagScanner, BracketSectionsEndAfterBracketOrConditionalEnd) {
  expectScans({
      {u"<![CDATA[ a > b ]]>", {"3 0+19 t0", "0 19+0 t19"}},
      {u"<![endif]-->", {"3 0+12 t0", "0 12+0 t12"}},
      {u"<![if !IE]><p>", {"3 0+11 t0", "1 11+3 t11 p@12", "0 14+0 t14"}},
      {u"<![x>]-->y]>", {"3 0+9 t0", "0 12+0 t9"}},
      // "]->" is no end: the unit three back must be "]" with "--" after it.
      {u"<![x]->y]>", {"3 0+10 t0", "0 10+0 t10"}},
      {u"<![>]>", {"3 0+6 t0", "0 6+0 t6"}},
  });
}

TEST(TagScanner, UnterminatedCommentOrSectionIsReportedWithTheRest) {
  expectScans({
      {u"<!-- never closed", {"2 0+17 t0", "0 17+0 t17"}},
      {u"a<!-", {"2 1+3 t0", "0 4+0 t4"}},
      {u"<![CDATA[ open", {"3 0+14 t0", "0 14+0 t14"}},
      {u"<![", {"3 0+3 t0", "0 3+0 t3"}},
      {u"<b>x<!--y", {"1 0+3 t0 b@1", "2 4+5 t3", "0 9+0 t9"}},
  });
}

TEST(TagScanner, ScriptAndStyleElementsAreReportedWhole) {
  expectScans({
      {u"<script>if (a<b) document.write('</SCRIPT>')</script>",
       {"1 0+42 t0 script@1", "1 44+9 t42 script@46", "0 53+0 t53"}},
      {u"<SCRIPT type=x>a<b>c</ScRiPt >d", {"1 0+30 t0 SCRIPT@1", "0 31+0 t30"}},
      {u"<style>p>a{}</style>b", {"1 0+20 t0 style@1", "0 21+0 t20"}},
      {u"<Style media='x>y'>i{}</STYLE>", {"1 0+30 t0 Style@1", "0 30+0 t30"}},
      // An end-tag name written inside a commented-out body is skipped.
      {u"<script><!-- x = '</script>'; --></script>", {"1 0+42 t0 script@1", "0 42+0 t42"}},
      {u"<style><!-- </style> --></style>x", {"1 0+32 t0 style@1", "0 33+0 t32"}},
      // Without "-->" after the comment, or without a later end tag, the first end tag counts.
      {u"<script><!-- </script>x", {"1 0+22 t0 script@1", "0 23+0 t22"}},
      {u"<script><!-- </script> -->", {"1 0+22 t0 script@1", "0 26+0 t22"}},
      // A comment opened after the end tag does not extend the element.
      {u"<script>a</script><!-- --></script>",
       {"1 0+18 t0 script@1", "2 18+8 t18", "1 26+9 t26 script@28", "0 35+0 t35"}},
      // The end tag is found by its prefix; the element ends at the next ">".
      {u"<script>a</scriptx>b", {"1 0+19 t0 script@1", "0 20+0 t19"}},
  });
}

TEST(TagScanner, ScriptLikeTagsThatAreNotElementsStayOrdinary) {
  expectScans({
      {u"<script/>x</script>", {"1 0+9 t0 script@1", "1 10+9 t9 script@12", "0 19+0 t19"}},
      {u"<script src=a/>x</script>", {"1 0+15 t0 script@1", "1 16+9 t15 script@18", "0 25+0 t25"}},
      {u"</script>", {"1 0+9 t0 script@2", "0 9+0 t9"}},
      {u"<scripts>x</scripts>", {"1 0+9 t0 scripts@1", "1 10+10 t9 scripts@12", "0 20+0 t20"}},
      {u"<styles>", {"1 0+8 t0 styles@1", "0 8+0 t8"}},
      // No end tag at all: the opening tag alone, and the body is scanned as markup.
      {u"<script>", {"1 0+8 t0 script@1", "0 8+0 t8"}},
      {u"<script>a<b>c", {"1 0+8 t0 script@1", "1 9+3 t8 b@10", "0 13+0 t12"}},
      {u"<script>a</style>", {"1 0+8 t0 script@1", "1 9+8 t8 style@11", "0 17+0 t17"}},
  });
}

TEST(TagScanner, ScriptEndTagWithoutBracketReachesOnePastTheEnd) {
  expectScans({
      {u"<script>x</script", {"1 0+18 t0 script@1", "0 17+0 t17"}},
      {u"a<style>b</STYLE", {"1 1+16 t0 style@2", "0 16+0 t16"}},
  });
}

TEST(TagScanner, ManyUnclosedScriptsStillFindTheLaterEndTag) {
  std::u16string text;
  for (int i = 0; i < 3; ++i)
    text += u"<script><!--";
  text += u"</script>--></script>";
  // The first opening tag claims everything up to the end tag after the "-->".
  EXPECT_EQ(scan(text), (std::vector<std::string>{"1 0+57 t0 script@1", "0 57+0 t57"}));
  // Repeated whole elements, each with its own commented body.
  EXPECT_EQ(
      scan(u"<script><!--</script>--></script><script><!--</script>--></script>"),
      (std::vector<std::string>{"1 0+33 t0 script@1", "1 33+33 t33 script@34", "0 66+0 t66"}));
}

TEST(TagScanner, HandlerReturningTrueStopsAtOnce) {
  for (bool isMutable : {false, true}) {
    Recorder recorder;
    recorder.stopAfter = 1;
    EXPECT_TRUE(GetTagsOfString(u"<a>b<c>d", RecordingHandler, &recorder, isMutable));
    EXPECT_EQ(recorder.calls, std::vector<std::string>{"1 0+3 t0 a@1"});
  }
  // The report of an unterminated comment cannot stop the final call.
  Recorder recorder;
  recorder.stopAfter = 1;
  EXPECT_TRUE(GetTagsOfString(u"<!-- x", RecordingHandler, &recorder, false));
  EXPECT_EQ(recorder.calls, (std::vector<std::string>{"2 0+6 t0", "0 6+0 t6"}));
}

TEST(TagScanner, NothingToScanAnswersFalseWithoutCalls) {
  Recorder recorder;
  EXPECT_FALSE(GetTagsOfString(u"", RecordingHandler, &recorder, false));
  EXPECT_FALSE(GetTagsOfString(u"", RecordingHandler, &recorder, true));
  EXPECT_FALSE(GetTagsOfString(std::u16string_view(), RecordingHandler, &recorder, false));
  EXPECT_FALSE(GetTagsOfString(u"<a>", nullptr, &recorder, false));
  EXPECT_TRUE(recorder.calls.empty());
}

TEST(TagScanner, HugeMutableTextFailsBeforeCopying) {
  // The copy's byte size would reach 0x7FFFFFFF; nothing is read.
  char16_t unit = u'x';
  Recorder recorder;
  EXPECT_FALSE(
      GetTagsOfString(std::u16string_view(&unit, 0x40000000), RecordingHandler, &recorder, true));
  EXPECT_FALSE(
      GetTagsOfString(std::u16string_view(&unit, kNotFound), RecordingHandler, &recorder, false));
  EXPECT_TRUE(recorder.calls.empty());
}

TEST(TagScanner, ImmutableScanLendsTheCallersStorage) {
  const std::u16string text = u"<a>b";
  Recorder recorder;
  GetTagsOfString(text, RecordingHandler, &recorder, false);
  EXPECT_EQ(recorder.characters, text.data());
  EXPECT_EQ(recorder.string.data(), text.data());
}

// Upper-cases each text run inside the scanner's copy, and checks that the caller's string can
// change meanwhile.
struct Editor {
  std::u16string* original;
  std::u16string seen;
};

bool EditingHandler(std::u16string_view string, char16_t* characters, std::size_t, std::size_t,
                    std::size_t tagLocation, std::size_t, std::size_t textLocation, TagKind,
                    void* context) {
  auto& editor = *static_cast<Editor*>(context);
  for (std::size_t i = textLocation; i < tagLocation; ++i) {
    if (characters[i] >= u'a' && characters[i] <= u'z') characters[i] -= 32;
  }
  editor.seen.append(string.substr(textLocation, tagLocation - textLocation));
  editor.original->assign(u"changed and much longer than before, so that it reallocates");
  return false;
}

TEST(TagScanner, MutableScanWorksOnAPrivateSnapshot) {
  std::u16string text = u"ab<i>cd<!--ef-->gh";
  const std::u16string before = text;
  Editor editor{&text, {}};
  EXPECT_TRUE(GetTagsOfString(text, EditingHandler, &editor, true));
  EXPECT_EQ(editor.seen, u"ABCDGH");
  EXPECT_NE(text, before);  // the handler edited the caller's string; the scan did not mind
}

// Text runs and constructs, in call order, put together give back the whole text.
struct Tiling {
  std::u16string rebuilt;
  std::size_t scripts = 0;
  std::size_t scriptsWithEndTag = 0;
};

bool TilingHandler(std::u16string_view string, char16_t*, std::size_t nameLocation,
                   std::size_t nameLength, std::size_t tagLocation, std::size_t tagLength,
                   std::size_t textLocation, TagKind kind, void* context) {
  auto& tiling = *static_cast<Tiling*>(context);
  tiling.rebuilt.append(string.substr(textLocation, tagLocation - textLocation));
  const std::u16string_view construct = string.substr(tagLocation, tagLength);
  tiling.rebuilt.append(construct);
  if (kind == TagKind::kTag && nameLength == 6 && construct[1] != u'/' &&
      construct[construct.size() - 2] != u'/') {
    std::u16string name(string.substr(nameLocation, nameLength));
    for (char16_t& c : name)
      c = static_cast<char16_t>(c | 0x20);
    if (name == u"script") {
      ++tiling.scripts;
      std::u16string upper(construct);
      for (char16_t& c : upper)
        c = c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c;
      tiling.scriptsWithEndTag += upper.find(u"</SCRIPT") != std::u16string::npos;
    }
  }
  return false;
}

TEST(TagScanner, TextRunsAndConstructsTileTheWholeText) {
  const std::u16string rows[] = {
      u"a<b>c<!-- d -->e<![CDATA[f]]>g<script>h</script>i",
      u"<a href='x>y'>t</a><!-- never closed",
      u"x <b",
      u"<script>x</script",
      u"<!-",
      u"<p>x<a href='y>",
  };
  for (const std::u16string& text : rows) {
    Tiling tiling;
    GetTagsOfString(text, TilingHandler, &tiling, false);
    EXPECT_EQ(tiling.rebuilt, text) << utf16ToUtf8(text);
  }
}

TEST(TagScanner, RealPagesTileAndEveryScriptFindsItsEndTag) {
  if (corpus::articlePages().empty()) GTEST_SKIP() << "no corpus";
  std::size_t pages = 0;
  std::size_t scripts = 0;
  for (const corpus::File& page : corpus::articlePages()) {
    const std::u16string text = utf8ToUtf16(page.bytes);
    Tiling tiling;
    EXPECT_TRUE(GetTagsOfString(text, TilingHandler, &tiling, false));
    EXPECT_EQ(tiling.rebuilt, text) << page.path;
    EXPECT_EQ(tiling.scriptsWithEndTag, tiling.scripts) << page.path;
    scripts += tiling.scripts;
    ++pages;
  }
  EXPECT_GT(pages, 0u);
  EXPECT_GT(scripts, pages);  // real pages carry scripts: the rule was exercised
}

// --- Guarded scan
// ---------------------------------------------------------------------------------

bool ThrowingHandler(std::u16string_view, char16_t*, std::size_t, std::size_t, std::size_t,
                     std::size_t, std::size_t, TagKind, void* context) {
  if (context) throw 7;
  throw std::runtime_error("handler failed");
}

TEST(ParseXml, StandardExceptionIsLoggedAndAnswersFalse) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  EXPECT_FALSE(parseXmlWithHandler(u"<a>", ThrowingHandler, nullptr, false));
  EXPECT_FALSE(parseXmlWithHandler(u"<a>", ThrowingHandler, nullptr, true));
  setLogSink({});
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0],
            "parseXmlWithHandler:context:mutable: (NSString):\nstd::runtime_error\nhandler "
            "failed\n");
}

TEST(ParseXml, OtherExceptionsPassThrough) {
  int flag = 1;
  EXPECT_THROW(parseXmlWithHandler(u"<a>", ThrowingHandler, &flag, true), int);
}

TEST(ParseXml, AnswersLikeTheScanner) {
  Recorder recorder;
  EXPECT_TRUE(parseXmlWithHandler(u"a<b>", RecordingHandler, &recorder, false));
  EXPECT_EQ(recorder.calls, (std::vector<std::string>{"1 1+3 t0 b@2", "0 4+0 t4"}));
  EXPECT_FALSE(parseXmlWithHandler(u"", RecordingHandler, &recorder, false));
}

// --- Collectors
// -----------------------------------------------------------------------------------

TEST(Collectors, StringsOfTagsAndOfNonEmptyTexts) {
  const std::u16string text = u"a<b>c<!--d--><i>e";
  EXPECT_EQ(getXmlTags(text), (std::vector<std::u16string>{u"<b>", u"<!--d-->", u"<i>"}));
  EXPECT_EQ(getXmlContents(text), (std::vector<std::u16string>{u"a", u"c", u"e"}));
  EXPECT_TRUE(getXmlTags(u"").empty());
  EXPECT_TRUE(getXmlContents(u"<a><b>").empty());
  // A script running past the end is cut at the end of the text.
  EXPECT_EQ(getXmlTags(u"<script>x</script"), std::vector<std::u16string>{u"<script>x</script"});
}

TEST(Collectors, DictionariesCarryContentOnlyWhenNotEmpty) {
  const std::vector<Dictionary> entries = getXml(u"a<b><i>e");
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(xmlTag(entries[0]), u"<b>");
  EXPECT_EQ(xmlContent(entries[0]), u"a");
  EXPECT_EQ(xmlTag(entries[1]), u"<i>");
  EXPECT_EQ(entries[1].count(u"Content"), 0u);
  EXPECT_EQ(xmlContent(entries[1]), u"");
  // The final call: an empty tag and the last text run.
  EXPECT_EQ(entries[2].count(u"Tag"), 1u);
  EXPECT_EQ(xmlTag(entries[2]), u"");
  EXPECT_EQ(xmlContent(entries[2]), u"e");
  EXPECT_TRUE(getXml(u"").empty());
}

TEST(Collectors, RangesHoldOneEntryPerCallIncludingEmptyRuns) {
  const std::u16string text = u"a<b><!--d-->e";
  std::vector<Range> tags{{9, 9}};  // stale entries are replaced
  std::vector<Range> texts;
  EXPECT_EQ(getXml(text, tags, texts), 3u);
  EXPECT_EQ(tags, (std::vector<Range>{{1, 3}, {4, 8}, {13, 0}}));
  EXPECT_EQ(texts, (std::vector<Range>{{0, 1}, {4, 0}, {12, 1}}));
  std::vector<Range> onlyTags;
  EXPECT_EQ(getXmlTags(text, onlyTags), 3u);
  EXPECT_EQ(onlyTags, tags);
  std::vector<Range> onlyTexts;
  EXPECT_EQ(getXmlContents(text, onlyTexts), 3u);
  EXPECT_EQ(onlyTexts, texts);
  // The one-past-the-end script length is kept as reported.
  EXPECT_EQ(getXmlTags(u"<script>x</script", onlyTags), 2u);
  EXPECT_EQ(onlyTags, (std::vector<Range>{{0, 18}, {17, 0}}));
  EXPECT_EQ(getXmlTags(u"", onlyTags), 0u);
  EXPECT_TRUE(onlyTags.empty());
}

TEST(Collectors, RangeListsGrowPastTheirFirstCapacity) {
  std::u16string text;
  for (int i = 0; i < 3000; ++i)
    text += u"<b>x";
  std::vector<Range> tags;
  std::vector<Range> texts;
  EXPECT_EQ(getXml(text, tags, texts), 3001u);
  ASSERT_EQ(tags.size(), 3001u);
  ASSERT_EQ(texts.size(), 3001u);
  EXPECT_EQ(tags[2999], (Range{11996, 3}));
  EXPECT_EQ(texts[3000], (Range{11999, 1}));
}

// --- Predicates and names
// -------------------------------------------------------------------------

struct PredicateRow {
  std::u16string tag;
  bool open, closed, meta, remark;
};

TEST(TagPredicates, LengthsAndMarkersDecide) {
  const PredicateRow rows[] = {
      {u"<a>", true, false, false, false},
      {u"</a>", false, true, false, false},
      {u"<br/>", true, true, false, false},
      {u"<a/>", true, true, false, false},
      {u"</>", false, false, false, false},  // too short to be closed
      {u"<>", false, false, false, false},
      {u"<a", false, false, false, false},
      {u"<![CDATA[x]]>", true, false, true, false},
      {u"<![x]>", true, false, false, false},  // too short for a section
      {u"<!---->", true, false, false, true},
      {u"<!--->", true, false, false, false},
      {u"", false, false, false, false},
  };
  for (const PredicateRow& row : rows) {
    SCOPED_TRACE(utf16ToUtf8(row.tag));
    EXPECT_EQ(isTagOpen(row.tag), row.open);
    EXPECT_EQ(isTagClosed(row.tag), row.closed);
    EXPECT_EQ(isMetaTag(row.tag), row.meta);
    EXPECT_EQ(isRemarkTag(row.tag), row.remark);
    const std::u16string padded = u"xx" + row.tag + u"yy";
    const Range range{2, row.tag.size()};
    EXPECT_EQ(isTagOpenInRange(padded, range), row.open);
    EXPECT_EQ(isTagClosedInRange(padded, range), row.closed);
    EXPECT_EQ(isMetaTagInRange(padded, range), row.meta);
    EXPECT_EQ(isRemarkTagInRange(padded, range), row.remark);
    EXPECT_EQ(isTagOpenCharacters(padded.data(), range), row.open);
    EXPECT_EQ(isTagClosedCharacters(padded.data(), range), row.closed);
  }
  EXPECT_FALSE(isTagOpenCharacters(nullptr, {0, 5}));
  EXPECT_FALSE(isTagClosedCharacters(nullptr, {0, 5}));
  // Ranges reaching past the string are clipped, not read.
  EXPECT_FALSE(isTagClosedInRange(u"<a>", {0, 10}));
  EXPECT_FALSE(isTagOpenInRange(u"<a>", {7, 3}));
}

struct NameRow {
  std::u16string tag;
  std::optional<std::u16string> name;
  bool open, closed;
};

TEST(TagNames, FollowTheScannersRuleAndTellOpenFromClosed) {
  const NameRow rows[] = {
      {u"<a href=x>", u"a", true, false},
      {u"</p>", u"p", false, true},
      {u"<br/>", u"br", true, true},
      {u"<img src=x />", u"img", true, true},
      {u"<!DOCTYPE html>", u"DOCTYPE", true, false},
      {u"<1>", std::nullopt, true, false},
      {u"<>", std::nullopt, false, false},
      {u"ab", u"ab", false, false},
      {u"<a", u"a", false, false},
      {u"", std::nullopt, false, false},
  };
  for (const NameRow& row : rows) {
    SCOPED_TRACE(utf16ToUtf8(row.tag));
    bool open = !row.open;
    bool closed = !row.closed;
    EXPECT_EQ(nameOfTag(row.tag, open, closed), row.name);
    EXPECT_EQ(open, row.open);
    EXPECT_EQ(closed, row.closed);
    EXPECT_EQ(nameOfTag(row.tag), row.name);
    const std::u16string padded = u"x>" + row.tag + u"y";
    EXPECT_EQ(nameOfTagInRange(padded, {2, row.tag.size()}), row.name);
    EXPECT_EQ(nameOfTagInStringRange(padded, 2, row.tag.size()), row.name);
    open = !row.open;
    closed = !row.closed;
    EXPECT_EQ(nameOfTagInRange(padded, {2, row.tag.size()}, open, closed), row.name);
    EXPECT_EQ(open, row.open);
    EXPECT_EQ(closed, row.closed);
  }
}

// --- Attributes
// -----------------------------------------------------------------------------------

struct AttributeRow {
  std::u16string tag;
  const char* name;
  std::optional<std::u16string> value;
};

TEST(TagAttributes, CharacterFormWalk) {
  const AttributeRow rows[] = {
      {u"<img data-src=a src=b>", "SRC", u"b"},
      {u"<a href = '  x '>", "HREF", u"  x"},
      {u"<A HrEf=X>", "HREF", u"X"},
      {u"<a x_href=1 href=2>", "HREF", u"2"},
      {u"<a xhref=1 href=2>", "HREF", u"2"},
      {u"<a title=\"href=x\" href=y>", "HREF", u"y"},
      {u"<a title='href=x' href=y>", "HREF", u"y"},
      {u"<a href=x/>", "HREF", u"x/"},
      {u"<a href==x>", "HREF", u"x"},
      {u"<a href=\"x>y\">", "HREF", u"x"},
      {u"<a href=\"x'y\">", "HREF", u"x'y"},
      {u"<a href=\"\">", "HREF", std::nullopt},
      {u"<a href=\"  \">", "HREF", std::nullopt},
      {u"<a href>", "HREF", std::nullopt},
      {u"<a href x=1>", "HREF", std::nullopt},
      {u"<a hrefx=1 href=2>", "HREF", u"2"},
      {u"<a b=1 href=", "HREF", std::nullopt},
      {u"<a href='xyz", "HREF", u"xyz"},
      {u"<a href=x\ty>", "HREF", u"x"},
      {u"<a title=\"x >", "HREF", std::nullopt},  // unclosed quote ends the walk
      {u"<a h=1>", "H", u"1"},
      {u"<ah=1>", "H", std::nullopt},  // not longer than the name plus 5
      {u"<a href=x>", "", std::nullopt},
      {u"<href=x y>", "HREF", u"x"},              // the tag name is walked too
      {u"<a\u00E9href=1 href=2>", "HREF", u"2"},  // a letter before the name
      {u"<a \u00B7href=1>", "HREF", u"1"},        // a non-alphanumeric unit before it
  };
  for (const AttributeRow& row : rows) {
    SCOPED_TRACE(utf16ToUtf8(row.tag) + " " + row.name);
    EXPECT_EQ(attributeOfTagCharacters(row.tag.data(), row.tag.size(), row.name), row.value);
    const std::u16string padded = u"<x>" + row.tag;
    const Range tag{3, row.tag.size()};
    EXPECT_EQ(attributeOfTagCharacters(padded.data(), tag, row.name), row.value);
    const Range range = rangeOfAttributeOfTagCharacters(padded.data(), tag, row.name);
    if (row.value) {
      ASSERT_TRUE(range.found());
      EXPECT_EQ(padded.substr(range.location, range.length), *row.value);
    } else {
      EXPECT_EQ(range, Range());
    }
    EXPECT_EQ(rangeOfAttributeOfTagCharacters(row.tag.data(), row.tag.size(), row.name).found(),
              row.value.has_value());
  }
  EXPECT_EQ(attributeOfTagCharacters(nullptr, 20, "HREF"), std::nullopt);
}

TEST(TagAttributes, MetaContentModeLetsMarkupNest) {
  const AttributeRow rows[] = {
      {u"<meta content=\"text/html; charset=utf-8\">", "CONTENT", u"text/html; charset=utf-8"},
      {u"<meta content=\"<b>bold</b>\" name=x>", "CONTENT", u"<b>bold</b>"},
      {u"<meta content=\"a<meta b\">", "CONTENT", u"a"},
      {u"<meta content=\"a<META b\">", "CONTENT", u"a"},
      {u"<meta content=\"x<\">", "CONTENT", u"x"},
      {u"<meta content=\"x</\">", "CONTENT", u"x"},
      {u"<meta content=\"x<a<\">", "CONTENT", u"x<a<"},  // depth 2: nothing cut
      {u"<meta content=\"a>b\">", "CONTENT", u"a"},
      {u"<meta content=\">b\">", "CONTENT", u">b"},
      {u"<meta content=\"<i>>b\">", "CONTENT", u"<i>"},
      {u"<meta content=\"<me\">", "CONTENT", u"<me"},
      {u"<meta content=x>y>", "CONTENT", u"x"},  // unquoted values are unchanged
  };
  for (const AttributeRow& row : rows) {
    SCOPED_TRACE(utf16ToUtf8(row.tag));
    EXPECT_EQ(_attributeOfTagCharactersWithName(row.tag.data(), 0, row.tag.size(), row.name, true,
                                                nullptr),
              row.value);
    Range range{1, 1};
    EXPECT_EQ(_attributeOfTagCharactersWithName(row.tag.data(), 0, row.tag.size(), row.name, true,
                                                &range),
              std::nullopt);
    EXPECT_EQ(
        range.found() ? std::optional(row.tag.substr(range.location, range.length)) : std::nullopt,
        row.value);
  }
  // Normal mode stops at the first ">".
  const std::u16string tag = u"<meta content=\"<b>bold</b>\">";
  EXPECT_EQ(attributeOfTagCharacters(tag.data(), tag.size(), "CONTENT"), u"<b");
}

TEST(TagAttributes, OutRangeIsOffsetByTheLocation) {
  const std::u16string text = u"0123<a href=xy>";
  Range range;
  EXPECT_EQ(_attributeOfTagCharactersWithName(text.data(), 4, 11, "HREF", false, &range),
            std::nullopt);
  EXPECT_EQ(range, (Range{12, 2}));
  EXPECT_EQ(_attributeOfTagCharactersWithName(text.data(), 4, 11, "SRC", false, &range),
            std::nullopt);
  EXPECT_EQ(range, Range());
}

struct StringAttributeRow {
  std::u16string text;
  std::u16string name;
  std::optional<std::u16string> value;
};

TEST(TagAttributes, StringFormForTags) {
  const StringAttributeRow rows[] = {
      {u"<img data-src=a src=b>", u"src", u"b"},
      {u"<a href = '  x '>", u"Href", u"  x"},
      {u"<a x_href=1 href=2>", u"HREF", u"1"},  // "_" may precede the name here
      {u"<a href==x>", u"HREF", u"=x"},         // only one "=" is taken
      {u"<a href=\"x>y\">", u"HREF", u"x"},
      {u"<a href=x/>", u"HREF", u"x/"},
      {u"<a href=\"\">", u"HREF", std::nullopt},
      {u"<a \u00E9l\u00E8ve=1>", u"\u00C9L\u00C8VE", u"1"},  // any name, upper-cased
      {u"<a \u00E9l\u00E8ve=1>", u"\u00E9l\u00E8ve", u"1"},
      {u"<ah=1>", u"h", std::nullopt},
  };
  for (const StringAttributeRow& row : rows) {
    SCOPED_TRACE(utf16ToUtf8(row.text) + " " + utf16ToUtf8(row.name));
    EXPECT_EQ(attributeOfTagWithName(row.text, row.name), row.value);
    const std::u16string padded = u"<b x=1>" + row.text + u"<i y=2>";
    EXPECT_EQ(attributeOfTagInRange(padded, {7, row.text.size()}, row.name), row.value);
  }
  // A range reaching past the string is clipped.
  EXPECT_EQ(attributeOfTagInRange(u"<a href=x>", {0, 99}, u"HREF"), u"x");
  EXPECT_EQ(attributeOfTagInRange(u"<a href=x>", {50, 9}, u"HREF"), std::nullopt);
}

TEST(TagAttributes, StringFormForStyleDeclarations) {
  const StringAttributeRow rows[] = {
      {u"width: 20px; height:10px", u"height", u"10px"},
      {u"width: 20px; height:10px", u"WIDTH", u"20px"},
      {u"a:1", u"A", u"1"},
      {u"a:", u"A", std::nullopt},
      {u"color: red;background-color: blue", u"COLOR", u"red"},
      {u"background-color: blue", u"COLOR", std::nullopt},
      {u"background-color: blue", u"BACKGROUND-COLOR", u"blue"},
      {u"font-family: 'a;b'; x:1", u"FONT-FAMILY", u"a"},  // a quoted value stops at ";" too
      {u"font-family: 'a;b'; x:1", u"X", u"1"},
      {u"width: 20 px", u"WIDTH", u"20"},
      {u"width::5", u"WIDTH", u":5"},  // one ":" only
  };
  for (const StringAttributeRow& row : rows) {
    SCOPED_TRACE(utf16ToUtf8(row.text) + " " + utf16ToUtf8(row.name));
    EXPECT_EQ(attributeOfStyleWithName(row.text, row.name), row.value);
    const std::u16string padded = u"q:0;" + row.text + u";z:9";
    EXPECT_EQ(attributeOfStyleInRange(padded, {4, row.text.size()}, row.name), row.value);
  }
}

// --- Sizes and backgrounds
// ------------------------------------------------------------------------

struct SizeRow {
  std::u16string tag;
  bool found;
  int width, height;
};

TEST(TagSizes, WidthThenHeightOrTheMisspeltHeighOrTheStyle) {
  const SizeRow rows[] = {
      {u"<img width=100 height=50>", true, 100, 50},
      {u"<img WIDTH='100' HEIGHT=\"50\">", true, 100, 50},
      {u"<img width=100 heigh=50>", true, 100, 50},
      {u"<img width=100 height=0 heigh=7>", true, 100, 7},
      {u"<img width=\"100%\" height=\"50%\">", true, 100, 50},
      {u"<img width=100>", true, 100, 0},
      {u"<img style=\"width: 20px; height: 30px\">", true, 20, 30},
      {u"<img width=0 style=\"width:5\">", true, 5, 0},
      {u"<img style=\"height: 30px\" height=4>", false, 0, 0},
      {u"<img width=-5 height=3>", false, -5, 3},
      {u"<img width=abc height=3>", false, 0, 0},
      {u"<img width=99999999999 height=1>", true, 2147483647, 1},
      {u"<img data-width=100 width=7 height=8>", true, 7, 8},
      {u"<img w=1>", false, 0, 0},  // shorter than 10
  };
  for (const SizeRow& row : rows) {
    SCOPED_TRACE(utf16ToUtf8(row.tag));
    int width = -1;
    int height = -1;
    EXPECT_EQ(getTagWidth(width, height, row.tag.data(), row.tag.size()), row.found);
    EXPECT_EQ(width, row.width);
    EXPECT_EQ(height, row.height);
    width = height = -1;
    EXPECT_EQ(getTagWidth(row.tag, width, height), row.found);
    EXPECT_EQ(width, row.width);
    EXPECT_EQ(height, row.height);
    const std::u16string padded = u"ab" + row.tag + u"cd";
    width = height = -1;
    EXPECT_EQ(getTagWidth(width, height, padded.data(), Range{2, row.tag.size()}), row.found);
    EXPECT_EQ(width, row.width);
    width = height = -1;
    EXPECT_EQ(getTagWidth(padded, width, height, Range{2, row.tag.size()}), row.found);
    EXPECT_EQ(height, row.height);
  }
}

struct BackgroundRow {
  std::u16string tag;
  std::optional<std::u16string> url;
};

TEST(TagBackgrounds, UrlOfNonRepeatingBackgroundStyle) {
  const BackgroundRow rows[] = {
      {u"<div style=\"background: url('a.png') no-repeat\">", u"a.png"},
      {u"<div style=\"BACKGROUND-IMAGE: URL(''b.png''); background-repeat: No-Repeat\">", u"b.png"},
      {u"<td style=\"background:url(c.gif) no-repeat top\">", u"c.gif"},
      {u"<td style=\"background:url(\"c.gif\") no-repeat\">", std::nullopt},  // quote ends STYLE
      {u"<td style='background:url(\"c.gif\") no-repeat'>", u"\"c.gif\""},
      {u"<div style=\"background: url('a.png')\">", std::nullopt},    // repeating
      {u"<div style=\"background: red; no-repeat\">", std::nullopt},  // no url(
      {u"<div style=\"backgrounds: url(a) no-repeat\">", std::nullopt},
      {u"<div style=\"background: url(a no-repeat\">", std::nullopt},  // no ")"
      {u"<div style=\"background: url(') no-repeat\">", u"'"},
      {u"<div style=\"background: url() no-repeat\">", u""},
      {u"</div style=\"background: url(a) no-repeat\">", std::nullopt},  // not an opening tag
      {u"<div>", std::nullopt},
  };
  for (const BackgroundRow& row : rows) {
    SCOPED_TRACE(utf16ToUtf8(row.tag));
    EXPECT_EQ(backgroundStyleURLOfTagCharacters(row.tag.data(), row.tag.size()), row.url);
    const std::u16string padded = u"<p>" + row.tag;
    EXPECT_EQ(backgroundStyleURLOfTagCharacters(padded.data(), Range{3, row.tag.size()}), row.url);
  }
}

}  // namespace
}  // namespace ferncast
