#include "Classes/NSString+HeaderFields.h"

#include <gtest/gtest.h>

#include <climits>
#include <optional>
#include <string>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

std::string show(const std::optional<std::u16string>& value) {
  return value ? "\"" + utf16ToUtf8(*value) + "\"" : "nil";
}

struct FieldCase {
  const char16_t* string;
  const char16_t* name;
  char16_t quotation;
  bool skipWhite;
  bool stopAtSemicolon;
  std::optional<std::u16string> expected;
};

TEST(CopyOfAttributeOfString, FindsValuesByTheFlagsRules) {
  const FieldCase cases[] = {
      // The name must leave room for at least "=".
      {u"CHARSET", u"CHARSET", u'\'', true, true, std::nullopt},
      {u"", u"CHARSET", u'\'', true, true, std::nullopt},
      // Names compare through the upper-case table, values keep their case.
      {u"text/html; charset=UTF-8", u"CHARSET", u'\'', true, true, u"UTF-8"},
      {u"text/html; ChArSeT=utf-8", u"CHARSET", u'\'', true, true, u"utf-8"},
      // U+017F LATIN SMALL LETTER LONG S upper-cases to "S" in the table.
      {u"text/html; char\u017Fet=x", u"CHARSET", u'\'', true, true, u"x"},
      // White space may come before "=", and after it only with skip-white.
      {u"text/html; charset =  utf-8 ; x", u"CHARSET", u'\'', true, true, u"utf-8"},
      {u"name= a b; c", u"NAME", u'\'', false, true, u" a b"},
      {u"name  = a", u"NAME", u'\'', false, true, u" a"},
      // A name not followed by "=" is passed over.
      {u"charset; charset=x", u"CHARSET", u'\'', true, true, u"x"},
      {u"charset x=y", u"CHARSET", u'\'', true, true, std::nullopt},
      // Nothing after "=" (and the white space skip-white eats): the search goes on and fails.
      {u"text/html; charset=", u"CHARSET", u'\'', true, true, std::nullopt},
      {u"text/html; charset=   ", u"CHARSET", u'\'', true, true, std::nullopt},
      // Quoted values: the quotation character, and with skip-white either quote.
      {u"a; charset=\"utf-8\"; b", u"CHARSET", u'\'', true, true, u"utf-8"},
      {u"a; charset='utf 8'", u"CHARSET", u'\'', true, true, u"utf 8"},
      {u"name=\"a;b\"", u"NAME", u'"', false, true, u"a;b"},
      {u"name=\"a;b\"", u"NAME", u'\'', false, true, u"\"a"},
      // An unterminated quoted value runs to the end.
      {u"charset=\"utf-8", u"CHARSET", u'\'', true, true, u"utf-8"},
      // An empty quoted value is rejected and the search goes on.
      {u"charset=\"\"; charset=latin1", u"CHARSET", u'\'', true, true, u"latin1"},
      {u"charset=''", u"CHARSET", u'\'', true, true, std::nullopt},
      {u"charset=\"", u"CHARSET", u'\'', true, true, std::nullopt},
      // Unquoted values: the rest of the string with both flags off ...
      {u"url=a; b c\"d", u"URL", u'\'', false, false, u"a; b c\"d"},
      // ... up to ";" with stop-at-semicolon ...
      {u"name=a b\"c;d", u"NAME", u'\'', false, true, u"a b\"c"},
      // ... and with skip-white also up to a quote, ">" or white space.
      {u"charset=utf-8>rest", u"CHARSET", u'\'', true, true, u"utf-8"},
      {u"charset=utf-8\"", u"CHARSET", u'\'', true, true, u"utf-8"},
      {u"charset=utf-8'", u"CHARSET", u'\'', true, true, u"utf-8"},
      {u"charset=utf-8\tx", u"CHARSET", u'\'', true, true, u"utf-8"},
      {u"url=a;b c", u"URL", u'\'', true, false, u"a;b"},
      // An unquoted value may be empty; it is still the first value found.
      {u"charset=;charset=x", u"CHARSET", u'\'', true, true, u""},
      // No word-boundary test: the name is found inside a longer one.
      {u"form-data; filename=\"f\"; name=\"n\"", u"NAME", u'"', false, true, u"f"},
      {u"xcharset=abc", u"CHARSET", u'\'', true, true, u"abc"},
  };
  for (const FieldCase& c : cases) {
    EXPECT_EQ(show(_copyOfAttributeOfString(c.string, c.name, c.quotation, c.skipWhite,
                                            c.stopAtSemicolon)),
              show(c.expected))
        << utf16ToUtf8(c.string) << " / " << utf16ToUtf8(c.name);
  }
}

TEST(CopyOfAttributeOfString, WholeNameMatchSkipsLongerNamesAndQuotedValues) {
  struct Case {
    const char16_t* string;
    const char16_t* name;
    std::optional<std::u16string> expected;
  };
  const Case cases[] = {
      {u"form-data; filename=\"f\"", u"NAME", std::nullopt},
      {u"form-data; filename=\"f\"", u"FILENAME", u"f"},
      {u"form-data; filename=\"f\"; name=\"n\"", u"NAME", u"n"},
      {u"name=\"n\"; filename=\"f\"", u"NAME", u"n"},
      {u"x-name=\"a\"; my_name=\"b\"; name2=\"c\"; name=\"d\"", u"NAME", u"d"},
      // A parameter-like text inside a quoted value is not a parameter.
      {u"filename=\"name=x.txt\"; name=\"real\"", u"NAME", u"real"},
      {u"filename=\"name=x.txt\"", u"NAME", std::nullopt},
      {u"filename=\"it's.txt\"; name=\"n\"", u"NAME", u"n"},
      // An unclosed quote hides the rest.
      {u"filename=\"oops; name=\"", u"NAME", std::nullopt},
      {u"NAME=\"v\"", u"NAME", u"v"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(show(_copyOfAttributeOfString(c.string, c.name, u'"', false, true,
                                            FieldNameMatch::kWholeName)),
              show(c.expected))
        << utf16ToUtf8(c.string) << " / " << utf16ToUtf8(c.name);
  }
}

TEST(HeaderFieldNamed, TakesNamesInAnyCaseAndDefaultsToTheApostrophe) {
  EXPECT_EQ(show(headerFieldNamed(u"attachment; Filename='a b.txt'", u"filename")),
            show(u"a b.txt"));
  EXPECT_EQ(show(headerFieldNamed(u"attachment; filename=\"a b.txt\"", u"FileName")),
            show(u"\"a b.txt\""));
  EXPECT_EQ(show(headerFieldNamed(u"attachment; filename=\"a b.txt\"", u"filename", u'"')),
            show(u"a b.txt"));
  EXPECT_EQ(show(headerFieldNamed(u"multipart/form-data; boundary=----WebKitFormBoundary7MA4",
                                  u"boundary")),
            show(u"----WebKitFormBoundary7MA4"));
  // Callers other than form data keep the look-up without a word boundary.
  EXPECT_EQ(show(headerFieldNamed(u"form-data; filename=\"f\"", u"name", u'"')), show(u"f"));
  EXPECT_EQ(show(headerFieldNamed(u"form-data; filename=\"f\"", u"name", u'"',
                                  FieldNameMatch::kWholeName)),
            "nil");
}

TEST(HeaderCharset, ReadsRealContentTypes) {
  const std::pair<const char16_t*, std::optional<std::u16string>> cases[] = {
      {u"text/html; charset=utf-8", u"utf-8"},
      {u"text/html;charset=windows-1252", u"windows-1252"},
      {u"text/html; Charset=\"UTF-8\"", u"UTF-8"},
      {u"application/xhtml+xml; charset=ISO-8859-15", u"ISO-8859-15"},
      {u"text/plain; charset=utf-8; format=flowed", u"utf-8"},
      {u"text/html; charset = 'Shift_JIS' ", u"Shift_JIS"},
      {u"text/xml; charset=\"euc-jp\"; x=y", u"euc-jp"},
      // A meta CONTENT value as pages write it, with junk after the name.
      {u"text/html; charset=iso-8859-1\">", u"iso-8859-1"},
      {u"text/html", std::nullopt},
      {u"text/html; charset=", std::nullopt},
  };
  for (const auto& [value, expected] : cases)
    EXPECT_EQ(show(headerCharset(value)), show(expected)) << utf16ToUtf8(value);
}

TEST(HeaderRefresh, ReadsRealRefreshValues) {
  const std::pair<const char16_t*, std::optional<std::u16string>> cases[] = {
      {u"5; URL=http://example.com/next", u"http://example.com/next"},
      {u"0;url=/login?a=1;b=2", u"/login?a=1;b=2"},  // no stop at ";"
      {u"3; url='/next page.html'", u"/next page.html"},
      {u"3; URL=\"/quoted\"", u"/quoted"},
      {u"10;URL = /spaced", u"/spaced"},
      {u"1; url=/a b", u"/a"},
      {u"30", std::nullopt},
      {u"5; URL=", std::nullopt},
  };
  for (const auto& [value, expected] : cases)
    EXPECT_EQ(show(headerRefresh(value)), show(expected)) << utf16ToUtf8(value);
}

TEST(RefreshInterval, ReadsTheLeadingInteger) {
  const std::pair<const char16_t*, int> cases[] = {
      {u"5; URL=http://example.com/", 5},
      {u"  12;url=/x", 12},
      {u"\t\n 3", 3},
      {u"0", 0},
      {u"-3", -3},
      {u"+7;", 7},
      {u"url=/x", 0},
      {u"", 0},
      {u"- 4", 0},
      {u"2147483647", INT_MAX},
      {u"2147483648", INT_MAX},
      {u"99999999999999999999999", INT_MAX},
      {u"-2147483648", INT_MIN},
      {u"-99999999999999999999999", INT_MIN},
  };
  for (const auto& [value, expected] : cases)
    EXPECT_EQ(refreshInterval(value), expected) << utf16ToUtf8(value);
}

}  // namespace
}  // namespace ferncast
