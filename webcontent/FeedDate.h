// Dates as feeds write them: the string-to-date conversion `date`, and the date-time formatter
// that feed pages use to show them.
//
// `date` reads, ignoring surrounding white space and the case of names:
//   - Internet message dates (RFC 822, 850, 1123, 2822): an optional weekday ("Thu", "Thursday",
//     "Thurs", followed by "," or not), the day, the month's English name (3 letters or more of
//     it, "Sept" too), the year, separated by spaces or "-"; then an optional time
//     "h:mm[:ss[.fff]]" with an optional "AM"/"PM"; then an optional zone. The month may also
//     come first ("Jan 5, 2004 7:48 PM", "Wed Jan 18 2006 10:05:00 GMT-0800 (PST)"), and asctime's
//     order is read too ("Sun Nov  6 08:49:37 1994", with a zone before the year or not).
//     Two-digit years are 2000-2049 below 50 and 1950-1999 from 50 up; three-digit years add 1900.
//   - ISO 8601, W3C-DTF and RFC 3339: "YYYY", "YYYY-MM", "YYYY-MM-DD" ("/" may stand for "-"),
//     the basic form "YYYYMMDD", each optionally followed by "T", "t" or a space and
//     "hh:mm[:ss[.f...]]" (basic form "hhmm[ss]"), then an optional zone. A missing month or day
//     is the first one.
//   Zones: "Z", "+hhmm", "-hh:mm", "+hh"; "UT", "UTC", "GMT" (optionally followed by an offset, as
//   in "GMT+0100"); the North American names EST, EDT, CST, CDT, MST, MDT, PST, PDT and a few
//   other common ones (CET, CEST, BST, JST, ...); single military letters (A-I, K-M are +1 to
//   +12 hours, N-Y are -1 to -12, Z is UTC: the military meaning, not RFC 822's inverted one).
//   An unknown alphabetic zone of up to five letters counts as UTC, and so does a missing zone.
//   After the zone a name in parentheses, or a zone name after a numeric offset, is ignored.
// Fields are checked (month 1-12, the day within its month, hours 0-23 or 24:00:00, minutes
// 0-59, seconds 0-60, years 1-9999; a weekday that does not fit the date is ignored). Anything
// else, such as trailing words, is unreadable: nullopt.
//
// Threads: `date` is pure. The formatter is process-wide; set it before other threads format.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Classes/PropertyList.h"

namespace ferncast {

// The instant a feed's date string names; nullopt when it cannot be read.
std::optional<Date> date(std::u16string_view string);

// The text that shows a date on a feed page. The host application may install its own; without
// one (or after setting an empty function), ICU's medium date style and short time style in the
// process's default locale and time zone are used (as "Jan 1, 2004, 7:48 PM" in English).
using DateTimeFormatter = std::function<std::u16string(const Date&)>;
void setDateTimeFormatter(DateTimeFormatter formatter);
// The date through the current formatter (thread-safe; the default formatter is per thread).
std::u16string stringFromDate(const Date& date);

}  // namespace ferncast
