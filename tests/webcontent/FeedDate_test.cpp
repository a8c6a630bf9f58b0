// The string-to-date conversion over dates as real feeds write them, and the date-time formatter.
#include <gtest/gtest.h>

#include <string>

#include "Classes/Json.h"
#include "Classes/Unicode.h"
#include "webcontent/FeedDate.h"

namespace ferncast {
namespace {

std::string instant(std::u16string_view text) {
  std::optional<Date> when = date(text);
  return when ? iso8601(*when) : "(none)";
}

TEST(FeedDates, ReadRealWorldStringsAsTheirInstants) {
  struct Case {
    const char16_t* text;
    const char* expected;
  };
  const Case cases[] = {
      {u"Thu, 01 Jan 2004 19:48:21 GMT", "2004-01-01T19:48:21Z"},
      {u"Sat, 07 Sep 2002 00:00:01 GMT", "2002-09-07T00:00:01Z"},
      {u"Sun, 19 May 2002 15:21:36 GMT", "2002-05-19T15:21:36Z"},
      {u"Mon, 3 Jan 2005 12:00:00 +0000", "2005-01-03T12:00:00Z"},
      {u"Wed, 02 Oct 2002 08:00:00 EST", "2002-10-02T13:00:00Z"},
      {u"Wed, 02 Oct 2002 13:00:00 GMT", "2002-10-02T13:00:00Z"},
      {u"Wed, 02 Oct 2002 15:00:00 +0200", "2002-10-02T13:00:00Z"},
      {u"Tue, 10 Jun 2003 04:00:00 GMT", "2003-06-10T04:00:00Z"},
      {u"Tue, 18 Oct 2005 09:00:00 PDT", "2005-10-18T16:00:00Z"},
      {u"Mon, 12 Sep 2005 15:31:50 +0200 (CEST)", "2005-09-12T13:31:50Z"},
      {u"Wed, 17 Aug 2005 23:54:04 -0000", "2005-08-17T23:54:04Z"},
      {u"Sat, 3 Sep 2005 4:10:00 +0000", "2005-09-03T04:10:00Z"},
      {u"Sun, 04 Sep 2005 08:30 GMT", "2005-09-04T08:30:00Z"},
      {u"Fri, 09 Sep 2005 11:30:00 Z", "2005-09-09T11:30:00Z"},
      {u"Tue, 1 Nov 2005 2:33:04 EST", "2005-11-01T07:33:04Z"},
      {u"Thu, 29 Sep 2005 18:23:00 -0700", "2005-09-30T01:23:00Z"},
      {u"Mon,21 Nov 2005 16:43:22 GMT", "2005-11-21T16:43:22Z"},
      {u"Friday, 10 Feb 2006 10:22:15 GMT", "2006-02-10T10:22:15Z"},
      {u"Thursday, 01-Jan-04 19:48:21 GMT", "2004-01-01T19:48:21Z"},
      {u"Sun, 06 Nov 1994 08:49:37 GMT", "1994-11-06T08:49:37Z"},
      {u"Sunday, 06-Nov-94 08:49:37 GMT", "1994-11-06T08:49:37Z"},
      {u"Thu, 01 Jan 04 19:48:21 GMT", "2004-01-01T19:48:21Z"},
      {u"Thu, 01 Jan 99 19:48:21 GMT", "1999-01-01T19:48:21Z"},
      {u"Thu, 01 Jan 49 19:48:21 GMT", "2049-01-01T19:48:21Z"},
      {u"Thu, 01 Jan 50 19:48:21 GMT", "1950-01-01T19:48:21Z"},
      {u"Fri, 01 Jan 104 00:00:00 GMT", "2004-01-01T00:00:00Z"},
      {u"Thu, 01 Jan 2004 19:48:21 UT", "2004-01-01T19:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 UTC", "2004-01-01T19:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 EDT", "2004-01-01T23:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 CST", "2004-01-02T01:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 CDT", "2004-01-02T00:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 MST", "2004-01-02T02:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 MDT", "2004-01-02T01:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 PST", "2004-01-02T03:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 A", "2004-01-01T18:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 M", "2004-01-01T07:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 N", "2004-01-01T20:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 Y", "2004-01-02T07:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 K", "2004-01-01T09:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 +05:30", "2004-01-01T14:18:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 GMT+0100", "2004-01-01T18:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 +0000 GMT", "2004-01-01T19:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21 CET", "2004-01-01T18:48:21Z"},
      {u"Thu, 01 Jan 2004 19:48:21GMT", "2004-01-01T19:48:21Z"},
      {u"  Thu, 01 Jan 2004 19:48:21 GMT\n", "2004-01-01T19:48:21Z"},
      {u"thu, 01 jan 2004 19:48:21 gmt", "2004-01-01T19:48:21Z"},
      {u"Thu, 1 January 2004 19:48", "2004-01-01T19:48:00Z"},
      {u"Tue, 14 Sept 2004 10:00:00 GMT", "2004-09-14T10:00:00Z"},
      {u"Tues, 14 Sep 2004 10:00:00 GMT", "2004-09-14T10:00:00Z"},
      {u"28 Oct 2005 14:04:16 GMT", "2005-10-28T14:04:16Z"},
      {u"01 Jan 2004", "2004-01-01T00:00:00Z"},
      {u"5 Jan 2004 7:48 PM", "2004-01-05T19:48:00Z"},
      {u"5 Jan 2004 12:15 AM", "2004-01-05T00:15:00Z"},
      {u"Mon, 26 Jan 2004 16:31:00.250 +0000", "2004-01-26T16:31:00.250Z"},
      {u"Thu, 31 Dec 2009 23:59:60 GMT", "2010-01-01T00:00:00Z"},
      {u"Thu, 01 Jan 2004 19:48:21 XYZ", "2004-01-01T19:48:21Z"},
      {u"Jan 18, 2006 10:05 AM", "2006-01-18T10:05:00Z"},
      {u"January 5, 2004", "2004-01-05T00:00:00Z"},
      {u"Wed Jan 18 2006 10:05:00 GMT-0800 (PST)", "2006-01-18T18:05:00Z"},
      {u"Sun Nov  6 08:49:37 1994", "1994-11-06T08:49:37Z"},
      {u"Thu Jan  1 19:48:21 UTC 2004", "2004-01-01T19:48:21Z"},
      {u"Thu Jan 01 19:48:21 EST 2004", "2004-01-02T00:48:21Z"},
      {u"2003-12-31T10:14:55Z", "2003-12-31T10:14:55Z"},
      {u"2003-12-31T10:14:55-08:00", "2003-12-31T18:14:55Z"},
      {u"2003-12-31T10:14:55+01:00", "2003-12-31T09:14:55Z"},
      {u"2003-12-31T10:14:55.118-08:00", "2003-12-31T18:14:55.118Z"},
      {u"2003-12-31T10:14:55.5Z", "2003-12-31T10:14:55.500Z"},
      {u"2003-12-31T10:14:55,25Z", "2003-12-31T10:14:55.250Z"},
      {u"2003-12-31T10:14Z", "2003-12-31T10:14:00Z"},
      {u"2002-10-17T17:00+01:00", "2002-10-17T16:00:00Z"},
      {u"2003-12-31T10:14:55", "2003-12-31T10:14:55Z"},
      {u"2003-12-31 10:14:55", "2003-12-31T10:14:55Z"},
      {u"2003-12-31 10:14:55 -0800", "2003-12-31T18:14:55Z"},
      {u"2003-12-31t10:14:55z", "2003-12-31T10:14:55Z"},
      {u"2003-12-31T10:14:55+0530", "2003-12-31T04:44:55Z"},
      {u"2003-12-31T10:14:55+05", "2003-12-31T05:14:55Z"},
      {u"2003-12-31", "2003-12-31T00:00:00Z"},
      {u"2003-12", "2003-12-01T00:00:00Z"},
      {u"2003", "2003-01-01T00:00:00Z"},
      {u"2004-2-5", "2004-02-05T00:00:00Z"},
      {u"2004/02/05 08:00", "2004-02-05T08:00:00Z"},
      {u"20031231", "2003-12-31T00:00:00Z"},
      {u"20031231T101455Z", "2003-12-31T10:14:55Z"},
      {u"20031231T1014-0100", "2003-12-31T11:14:00Z"},
      {u"20031231T1014,5Z", "2003-12-31T10:14:30Z"},
      {u"2004-02-29T00:00:00Z", "2004-02-29T00:00:00Z"},
      {u"2000-02-29T12:00:00Z", "2000-02-29T12:00:00Z"},
      {u"2004-12-31T24:00:00Z", "2005-01-01T00:00:00Z"},
      {u"1969-07-20T20:17:40Z", "1969-07-20T20:17:40Z"},
      {u"1601-01-01T00:00:00Z", "1601-01-01T00:00:00Z"},
      {u"2038-01-19T03:14:08Z", "2038-01-19T03:14:08Z"},
      {u"2010-12-01T10:14:55Z", "2010-12-01T10:14:55Z"},
  };
  static_assert(std::size(cases) >= 80);
  for (const Case& c : cases) {
    EXPECT_EQ(instant(c.text), c.expected) << utf16ToUtf8(c.text);
  }
}

TEST(FeedDates, UnreadableOrImpossibleStringsGiveNoDate) {
  const char16_t* const cases[] = {
      u"",
      u"   ",
      u"yesterday",
      u"Thu, 32 Jan 2004 19:48:21 GMT",
      u"Thu, 29 Feb 2003 19:48:21 GMT",
      u"1900-02-29",
      u"2003-13-01",
      u"2003-00-10",
      u"2003-12-31T25:00:00Z",
      u"2003-12-31T24:00:01Z",
      u"2003-12-31T10:60:00Z",
      u"2003-12-31T10:14:61Z",
      u"Thu, 01 Foo 2004 19:48:21 GMT",
      u"Thu, 01 Jan 2004 19:48:21 GMT trailing words",
      u"2003-12-31T10:14:55Z junk",
      u"2003-12-31T10:14:55+25:00",
      u"Thu, 01 Jan 2004 13:48 PM",
      u"Thu, 01 Jan 2004 19:48:21 (GMT",
      u"0000-01-01",
      u"200312",
      u"12/31/2003",
      u"Thu, 01 Jan",
      u"Thu, 01 Jan 2004 19:48:21 Central European Time",
  };
  for (const char16_t* text : cases) {
    EXPECT_EQ(instant(text), "(none)") << utf16ToUtf8(text);
  }
}

TEST(FeedDates, TheHostsFormatterReplacesTheDefaultAndCanBeRemovedAgain) {
  const Date when{1072986501};  // 2004-01-01T19:48:21Z
  const std::u16string standard = stringFromDate(when);
  EXPECT_FALSE(standard.empty());
  EXPECT_NE(standard.find(u"2004"), std::u16string::npos) << utf16ToUtf8(standard);
  setDateTimeFormatter([](const Date& d) { return utf8ToUtf16(iso8601(d)); });
  EXPECT_EQ(stringFromDate(when), u"2004-01-01T19:48:21Z");
  setDateTimeFormatter(nullptr);
  EXPECT_EQ(stringFromDate(when), standard);
}

}  // namespace
}  // namespace ferncast
