#include "url/QueryParameters.h"

#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "Classes/NSData+zlib.h"
#include "Classes/Unicode.h"
#include "tests/Corpus.h"
#include "url/NSString+URLUtilities.h"
#include "url/NSURL+Quill.h"

namespace ferncast {
namespace {

std::string text(const std::optional<std::u16string>& s) {
  return s ? utf16ToUtf8(*s) : "(nil)";
}

TEST(QueryParamNamed, FindsTheFirstPairWithAValue) {
  struct Case {
    const char16_t *url, *name;
    const char* value;
    bool contains;
  };
  const Case cases[] = {
      {u"p?id=7&x=1", u"id", "7", true},
      {u"p?ID=7", u"id", "(nil)", false},  // names are case-sensitive
      {u"p?id=", u"id", "(nil)", true},    // an empty value is there but never found
      {u"p?a=&a=2", u"a", "2", true},
      {u"p?a=1;b=2", u"b", "2", true},     // ";" separates too
      {u"p?a&b=1", u"b", "(nil)", false},  // the pair is named "a&b"
      {u"p?a&b=1", u"a&b", "1", true},
      {u"p?_x=1", u"x", "1", true},  // leading non-alphanumerics are not part of a name
      {u"p?_x=1", u"_x", "(nil)", false},
      {u"p?x=1&y", u"y", "(nil)", false},  // no "=" after it: ignored
      {u"p?x=a=b&y=2", u"x", "a=b", true},
      {u"p?\u00e9t\u00e9=ok", u"\u00e9t\u00e9", "ok", true},  // letters are Unicode letters
      {u"p#x=1", u"x", "(nil)", false},                       // no "?"
      {u"p?x=1#&f=2", u"f", "2", true},                       // the fragment is scanned too
      {u"p?x=1#f=2", u"x", "1#f=2", true},
      {u"p?x=1", u"", "(nil)", false},
      {u"?x=1", u"?x=1", "(nil)", false},  // a name as long as the string
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.url) + " / " + utf16ToUtf8(c.name));
    EXPECT_EQ(text(queryParamNamed(c.url, c.name)), c.value);
    EXPECT_EQ(containsQueryParamNamed(c.url, c.name), c.contains);
  }
}

TEST(QueryParams, CollectsAndCountsByTheSameRules) {
  struct Case {
    const char16_t* url;
    std::size_t count;
    QueryParameters parameters;
  };
  const Case cases[] = {
      {u"p?flag&x=1", 1, {{u"flag&x", u"1"}}},
      {u"p?a=1&b=&a=3", 3, {{u"a", u"3"}}},
      {u"p?a=1;;&&b=2", 2, {{u"a", u"1"}, {u"b", u"2"}}},
      {u"p?q=a+b%20c", 1, {{u"q", u"a+b%20c"}}},  // values as written
      {u"p?", 0, {}},
      {u"p?===", 0, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.url));
    EXPECT_EQ(numberOfQueryParams(c.url), c.count);
    ASSERT_TRUE(queryParams(c.url));
    EXPECT_EQ(*queryParams(c.url), c.parameters);
  }
  EXPECT_FALSE(queryParams(u"no-question-mark"));
  EXPECT_EQ(numberOfQueryParams(u"no-question-mark"), 0u);
  EXPECT_FALSE(queryParams(u"", 0));
  EXPECT_FALSE(queryParams(u"a=1", 3));  // start index at the end
}

TEST(PlainParameterLists, AreScannedFromTheStart) {
  EXPECT_EQ(paramNamed(u"a=1;b=2", u"b"), u"2");
  EXPECT_TRUE(containsParamNamed(u"a=;b=2", u"a"));
  EXPECT_FALSE(queryParamNamed(u"a=1;b=2", u"b"));
}

TEST(ReplacingParameters, ChangesOnlyTheFirstPairWithAValue) {
  struct Case {
    const char16_t *url, *name;
    std::optional<std::u16string_view> replacement;
    const char16_t* expected;
  };
  const Case cases[] = {
      {u"p?x=1&y=2", u"x", u"9", u"p?x=9&y=2"},  {u"p?x=1&y=2", u"x", std::nullopt, u"p?x=&y=2"},
      {u"p?x=1&y=2", u"z", u"9", u"p?x=1&y=2"},  {u"p?x=&x=1", u"x", u"9", u"p?x=&x=9"},
      {u"p?x=1;y=22", u"y", u"3", u"p?x=1;y=3"}, {u"p", u"x", u"9", u"p"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(utf16ToUtf8(c.url));
    EXPECT_EQ(stringByReplacingQueryParamNamed(c.url, c.name, c.replacement), c.expected);
  }
  // The scanner function itself with a replacement never answers nil.
  EXPECT_EQ(queryParamNamed(u"", u"x", 0, u"y"), u"");
}

TEST(AppendParameter, EscapesTheValueAndPicksTheSeparator) {
  std::u16string url = u"http://h/p";
  appendParameter(url, u"q", u"a b&c");
  EXPECT_EQ(url, u"http://h/p?q=a%20b%26c");
  appendParameter(url, u"r", u"x:/?;@#\u00fc");
  EXPECT_EQ(url, u"http://h/p?q=a%20b%26c&r=x%3A%2F%3F%3B%40%23%C3%BC");
  appendParameter(url, u"", u"v");
  appendParameter(url, u"n", u"");
  EXPECT_EQ(url, u"http://h/p?q=a%20b%26c&r=x%3A%2F%3F%3B%40%23%C3%BC");
  // What was appended reads back escaped, as written.
  EXPECT_EQ(queryParamNamed(url, u"q"), u"a%20b%26c");
}

TEST(HugeQueries, ScanAMegabyteInOnePass) {
  std::u16string url = u"http://h/p?";
  for (int i = 0; i < 100000; ++i)
    url += u"k" + utf8ToUtf16(std::to_string(i)) + u"=v&";
  url += u"last=1";
  EXPECT_EQ(numberOfQueryParams(url), 100001u);
  EXPECT_EQ(queryParamNamed(url, u"last"), u"1");
  std::u16string noEquals = u"?" + std::u16string(1 << 20, u'a');
  EXPECT_EQ(numberOfQueryParams(noEquals), 0u);
}

// Links from real pages: the string scanner from "?" and the URL object's query must agree when
// there is no fragment, and both must agree with a plain split on "&" for simple queries.
// The double-quoted href values of a page that hold a "?" and no "#".
std::vector<std::string> queryLinks(const std::string& page) {
  std::vector<std::string> links;
  for (std::size_t at = page.find("href=\""); at != std::string::npos;
       at = page.find("href=\"", at + 1)) {
    std::size_t start = at + 6, end = page.find('"', start);
    if (end == std::string::npos) break;
    std::string link = page.substr(start, end - start);
    if (link.find('?') != std::string::npos && link.find('#') == std::string::npos)
      links.push_back(link);
  }
  return links;
}

// A query of name=value pairs joined by "&", names of ASCII letters, digits, "_", "." and "-"
// starting with a letter or digit, values without "&", ";" or "=".
bool isPlainQuery(std::u16string_view query) {
  auto isNameUnit = [](char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
           c == u'_' || c == u'.' || c == u'-';
  };
  std::size_t start = 0;
  for (;;) {
    std::size_t end = std::min(query.find(u'&', start), query.size());
    std::u16string_view pair = query.substr(start, end - start);
    std::size_t equals = pair.find(u'=');
    if (equals == 0 || equals == std::u16string_view::npos || equals + 1 == pair.size())
      return false;
    if (!isNameUnit(pair[0]) || pair[0] == u'_' || pair[0] == u'.' || pair[0] == u'-') return false;
    for (char16_t c : pair.substr(0, equals))
      if (!isNameUnit(c)) return false;
    if (pair.substr(equals + 1).find_first_of(u";=") != std::u16string_view::npos) return false;
    if (end == query.size()) return true;
    start = end + 1;
  }
}

TEST(QueryParametersOnRealLinks, AgreeBetweenStringAndURLObjectAndASimpleSplit) {
  const std::vector<corpus::File>& pages = corpus::articlePages();
  if (pages.empty()) GTEST_SKIP() << "no corpus";
  std::size_t compared = 0, simple = 0;
  for (const corpus::File& page : pages) {
    for (std::string link : queryLinks(page.bytes)) {
      for (std::size_t p; (p = link.find("&amp;")) != std::string::npos;)
        link.replace(p, 5, "&");
      std::u16string string = utf8ToUtf16(link);
      std::optional<URL> url = URL::URLWithString(string);
      // (An empty query component has nothing to scan: nil, where the string gives an empty map.)
      if (!url || !url->query() || url->query()->empty()) continue;
      SCOPED_TRACE(link);
      ++compared;
      EXPECT_EQ(numberOfQueryParams(string), numberOfQueryParams(*url));
      EXPECT_EQ(queryParams(string), queryParams(*url));
      // Queries of plain name=value pairs split on "&" the obvious way.
      std::u16string query = *url->query();
      if (!isPlainQuery(query)) continue;
      ++simple;
      QueryParameters split;
      std::size_t start = 0;
      while (start <= query.size()) {
        std::size_t end = query.find(u'&', start);
        if (end == std::u16string::npos) end = query.size();
        std::u16string pair = query.substr(start, end - start);
        std::size_t equals = pair.find(u'=');
        split.insert_or_assign(pair.substr(0, equals), pair.substr(equals + 1));
        start = end + 1;
      }
      EXPECT_EQ(queryParams(*url), split);
      for (const auto& [name, value] : split)
        EXPECT_EQ(queryParamNamed(*url, name), value);
    }
  }
  EXPECT_GT(compared, 50u);
  EXPECT_GT(simple, 20u);
}

}  // namespace
}  // namespace ferncast
