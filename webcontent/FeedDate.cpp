#include "webcontent/FeedDate.h"

#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <array>
#include <cmath>
#include <memory>
#include <mutex>

namespace ferncast {
namespace {

// ---- Reading ----

constexpr char16_t fold(char16_t c) {
  return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c | 0x20) : c;
}
constexpr bool isLetter(char16_t c) {
  return fold(c) >= u'a' && fold(c) <= u'z';
}
constexpr bool isDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}
constexpr bool isSpace(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == u'\f' || c == u'\v' ||
         c == 0xA0;
}

// `word` (letters) begins `lower` and is at least `minimum` letters long.
bool abbreviates(std::u16string_view word, std::u16string_view lower, std::size_t minimum = 3) {
  if (word.size() < minimum || word.size() > lower.size()) return false;
  for (std::size_t i = 0; i < word.size(); ++i)
    if (fold(word[i]) != lower[i]) return false;
  return true;
}

bool equalsFolded(std::u16string_view word, std::u16string_view lower) {
  return word.size() == lower.size() && abbreviates(word, lower, 0);
}

constexpr std::array<std::u16string_view, 12> kMonths = {
    u"january", u"february", u"march",     u"april",   u"may",      u"june",
    u"july",    u"august",   u"september", u"october", u"november", u"december"};
constexpr std::array<std::u16string_view, 7> kWeekdays = {
    u"monday", u"tuesday", u"wednesday", u"thursday", u"friday", u"saturday", u"sunday"};

// 1-12, or 0 when the word names no month.
int monthNamed(std::u16string_view word) {
  for (std::size_t i = 0; i < kMonths.size(); ++i)
    if (abbreviates(word, kMonths[i])) return static_cast<int>(i) + 1;
  return 0;
}

bool isWeekday(std::u16string_view word) {
  for (std::u16string_view day : kWeekdays)
    if (abbreviates(word, day)) return true;
  return false;
}

struct NamedZone {
  std::u16string_view name;
  int minutes;
};
constexpr NamedZone kZones[] = {
    {u"ut", 0},         {u"utc", 0},        {u"gmt", 0},        {u"z", 0},
    {u"est", -5 * 60},  {u"edt", -4 * 60},  {u"cst", -6 * 60},  {u"cdt", -5 * 60},
    {u"mst", -7 * 60},  {u"mdt", -6 * 60},  {u"pst", -8 * 60},  {u"pdt", -7 * 60},
    {u"akst", -9 * 60}, {u"akdt", -8 * 60}, {u"hst", -10 * 60}, {u"ast", -4 * 60},
    {u"adt", -3 * 60},  {u"nst", -210},     {u"ndt", -150},     {u"wet", 0},
    {u"west", 60},      {u"bst", 60},       {u"cet", 60},       {u"cest", 2 * 60},
    {u"met", 60},       {u"mest", 2 * 60},  {u"eet", 2 * 60},   {u"eest", 3 * 60},
    {u"msk", 3 * 60},   {u"ist", 330},      {u"jst", 9 * 60},   {u"kst", 9 * 60},
    {u"hkt", 8 * 60},   {u"sgt", 8 * 60},   {u"awst", 8 * 60},  {u"acst", 570},
    {u"acdt", 630},     {u"aest", 10 * 60}, {u"aedt", 11 * 60}, {u"nzst", 12 * 60},
    {u"nzdt", 13 * 60},
};

// The fields read so far; the zone in minutes east of UTC.
struct Fields {
  int year = 0, month = 1, day = 1, hour = 0, minute = 0;
  double second = 0;
  int zone = 0;
};

class Reader {
 public:
  explicit Reader(std::u16string_view s) : s_(s) {}

  bool atEnd() const { return i_ == s_.size(); }
  char16_t peek(std::size_t ahead = 0) const {
    return i_ + ahead < s_.size() ? s_[i_ + ahead] : char16_t(0);
  }
  std::size_t position() const { return i_; }
  void reset(std::size_t position) { i_ = position; }
  bool take(char16_t c) {
    if (peek() != c) return false;
    ++i_;
    return true;
  }
  bool takeFolded(char16_t lower) {
    if (fold(peek()) != lower) return false;
    ++i_;
    return true;
  }
  // Skips white space; true when there was some.
  bool skipSpace() {
    std::size_t start = i_;
    while (i_ < s_.size() && isSpace(s_[i_]))
      ++i_;
    return i_ > start;
  }
  std::u16string_view letters() {
    std::size_t start = i_;
    while (i_ < s_.size() && isLetter(s_[i_]))
      ++i_;
    return s_.substr(start, i_ - start);
  }
  // Up to `most` digits (at least `least`); their count in `count`. False, having read nothing,
  // when there are fewer than `least`.
  bool number(int& value, std::size_t least, std::size_t most, std::size_t* count = nullptr) {
    std::size_t start = i_;
    value = 0;
    while (i_ < s_.size() && i_ - start < most && isDigit(s_[i_]))
      value = value * 10 + (s_[i_++] - u'0');
    if (i_ - start < least) {
      i_ = start;
      return false;
    }
    if (count) *count = i_ - start;
    return true;
  }
  // "." or "," and digits: the fraction they write (0 when there is none).
  double fraction() {
    if ((peek() != u'.' && peek() != u',') || !isDigit(peek(1))) return 0;
    ++i_;
    double value = 0, scale = 0.1;
    for (; i_ < s_.size() && isDigit(s_[i_]); ++i_, scale /= 10)
      value += (s_[i_] - u'0') * scale;
    return value;
  }

 private:
  std::u16string_view s_;
  std::size_t i_ = 0;
};

// "+hh", "+hhmm", "+hh:mm", "-h:mm": minutes east of UTC.
bool readOffset(Reader& r, int& minutes) {
  std::size_t start = r.position();
  int sign = r.take(u'+') ? 1 : r.take(u'-') ? -1 : 0;
  int hours = 0, mins = 0;
  std::size_t count = 0;
  if (!sign || !r.number(hours, 1, 4, &count)) {
    r.reset(start);
    return false;
  }
  if (count == 4 || count == 3) {
    mins = hours % 100;
    hours /= 100;
  } else if (r.take(u':') && !r.number(mins, 2, 2)) {
    r.reset(start);
    return false;
  }
  if (hours > 23 || mins > 59) {
    r.reset(start);
    return false;
  }
  minutes = sign * (hours * 60 + mins);
  return true;
}

// A zone by offset or name (see the header); false, having read nothing, when none is there.
bool readZone(Reader& r, int& minutes) {
  if (readOffset(r, minutes)) {
    // A name may follow the offset, as in "+0000 GMT".
    std::size_t afterOffset = r.position();
    r.skipSpace();
    std::u16string_view name = r.letters();
    if (name.empty() || name.size() > 5 || isLetter(r.peek())) r.reset(afterOffset);
    return true;
  }
  std::size_t start = r.position();
  std::u16string_view name = r.letters();
  if (name.empty()) return false;
  if (name.size() == 1) {
    char16_t c = fold(name[0]);
    if (c == u'j') {
      r.reset(start);
      return false;
    }
    minutes = c == u'z'   ? 0
              : c < u'j'  ? (c - u'a' + 1) * 60
              : c <= u'm' ? (c - u'a') * 60
                          : -(c - u'n' + 1) * 60;
    return true;
  }
  for (const NamedZone& zone : kZones) {
    if (equalsFolded(name, zone.name)) {
      minutes = zone.minutes;
      if (zone.minutes == 0 && zone.name != u"z") readOffset(r, minutes);  // "GMT+0100"
      return true;
    }
  }
  if (name.size() > 5) {
    r.reset(start);
    return false;
  }
  minutes = 0;
  return true;
}

// "h:mm[:ss[.fff]]" and an optional AM or PM; nothing is read or set when there is no time.
bool readTime(Reader& r, Fields& f) {
  std::size_t start = r.position();
  int hour = 0, minute = 0, seconds = 0;
  double second = 0;
  if (!r.number(hour, 1, 2) || !r.take(u':') || !r.number(minute, 2, 2)) {
    r.reset(start);
    return false;
  }
  if (r.take(u':')) {
    if (!r.number(seconds, 2, 2)) {
      r.reset(start);
      return false;
    }
    second = seconds + r.fraction();
  }
  std::size_t beforeMeridiem = r.position();
  r.skipSpace();
  std::u16string_view word = r.letters();
  bool pm = equalsFolded(word, u"pm"), am = equalsFolded(word, u"am");
  if (!pm && !am) {
    r.reset(beforeMeridiem);
  } else if (hour < 1 || hour > 12) {
    r.reset(start);
    return false;
  } else {
    hour = hour % 12 + (pm ? 12 : 0);
  }
  f.hour = hour;
  f.minute = minute;
  f.second = second;
  return true;
}

int fullYear(int year, std::size_t digits) {
  if (digits == 2) return year < 50 ? 2000 + year : 1900 + year;
  if (digits == 3) return 1900 + year;
  return year;
}

// The end of an Internet message date: an optional zone, an optional name in parentheses, white
// space.
bool readTail(Reader& r, Fields& f, bool zoneRead) {
  r.skipSpace();
  if (!zoneRead && !r.atEnd() && r.peek() != u'(') readZone(r, f.zone);
  r.skipSpace();
  if (r.take(u'(')) {
    while (!r.atEnd() && r.peek() != u')')
      r.reset(r.position() + 1);
    if (!r.take(u')')) return false;
    r.skipSpace();
  }
  return r.atEnd();
}

// Day first: "5 Jan 2004 ...", "05-Jan-04 ...".
bool readDayFirst(Reader& r, Fields& f) {
  std::size_t digits = 0;
  if (!r.number(f.day, 1, 2)) return false;
  bool dashed = r.take(u'-');
  if (!dashed) {
    r.take(u'.');
    r.skipSpace();
  }
  f.month = monthNamed(r.letters());
  if (!f.month) return false;
  r.take(u'.');
  if (dashed ? !r.take(u'-') : (!r.take(u'-') && !r.skipSpace() && !r.take(u','))) return false;
  r.skipSpace();
  if (!r.number(f.year, 2, 4, &digits)) return false;
  f.year = fullYear(f.year, digits);
  r.take(u',');
  if (r.skipSpace()) readTime(r, f);
  return readTail(r, f, false);
}

// Month first: "Jan 5, 2004 7:48 PM", "Jan 18 2006 10:05:00 GMT-0800", and asctime's
// "Nov  6 08:49:37 1994" or "Nov 6 08:49:37 UTC 1994".
bool readMonthFirst(Reader& r, Fields& f) {
  f.month = monthNamed(r.letters());
  if (!f.month) return false;
  r.take(u'.');
  r.skipSpace();
  if (!r.number(f.day, 1, 2)) return false;
  r.take(u',');
  r.skipSpace();
  std::size_t digits = 0;
  std::size_t beforeYear = r.position();
  if (r.number(f.year, 4, 4, &digits) && r.peek() != u':') {
    r.take(u',');
    if (r.skipSpace()) readTime(r, f);
    return readTail(r, f, false);
  }
  r.reset(beforeYear);
  if (!readTime(r, f)) return false;
  r.skipSpace();
  bool zoneRead = !isDigit(r.peek()) && readZone(r, f.zone);
  r.skipSpace();
  if (!r.number(f.year, 4, 4)) return false;
  return readTail(r, f, zoneRead);
}

bool readMessageDate(Reader& r, Fields& f) {
  std::size_t start = r.position();
  std::u16string_view word = r.letters();
  if (!word.empty() && isWeekday(word)) {
    r.take(u'.');
    r.take(u',');
    r.skipSpace();
  } else {
    r.reset(start);
  }
  return isDigit(r.peek()) ? readDayFirst(r, f) : readMonthFirst(r, f);
}

// ISO 8601 and its profiles.
bool readIsoDate(Reader& r, Fields& f) {
  std::size_t digits = 0;
  if (!r.number(f.year, 4, 8, &digits)) return false;
  bool basic = digits == 8;
  if (basic) {
    f.day = f.year % 100;
    f.month = f.year / 100 % 100;
    f.year /= 10000;
  } else if (digits != 4) {
    return false;
  } else {
    char16_t separator = r.peek();
    if ((separator == u'-' || separator == u'/') && isDigit(r.peek(1))) {
      r.take(separator);
      if (!r.number(f.month, 1, 2)) return false;
      if (r.take(separator) && !r.number(f.day, 1, 2)) return false;
    }
  }
  std::size_t beforeTime = r.position();
  if (r.takeFolded(u't') || (r.take(u' ') && isDigit(r.peek()))) {
    std::size_t count = 0;
    int hhmm = 0;
    if (basic && r.number(hhmm, 4, 6, &count) && count != 5) {
      if (count == 6) {
        f.second = hhmm % 100;
        hhmm /= 100;
      }
      f.hour = hhmm / 100;
      f.minute = hhmm % 100;
      f.second += r.fraction() * (count == 6 ? 1 : 60);  // a fraction of the last unit
    } else if (!r.number(f.hour, 2, 2) || !r.take(u':') || !r.number(f.minute, 2, 2)) {
      return false;
    } else if (r.take(u':')) {
      int seconds = 0;
      if (!r.number(seconds, 2, 2)) return false;
      f.second = seconds + r.fraction();
    }
    std::size_t beforeZone = r.position();
    r.skipSpace();
    if (!r.atEnd() && !readZone(r, f.zone)) r.reset(beforeZone);
  } else {
    r.reset(beforeTime);
  }
  r.skipSpace();
  return r.atEnd();
}

constexpr bool isLeapYear(int y) {
  return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

int daysInMonth(int year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// Days from 1970-01-01 to the civil date (proleptic Gregorian calendar).
long long daysFromCivil(long long y, unsigned m, unsigned d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<long long>(doe) - 719468;
}

std::optional<Date> instant(const Fields& f) {
  if (f.year < 1 || f.year > 9999 || f.month < 1 || f.month > 12 || f.day < 1 ||
      f.day > daysInMonth(f.year, f.month) || f.minute > 59 || f.second >= 61)
    return std::nullopt;
  if (f.hour > 24 || (f.hour == 24 && (f.minute || f.second))) return std::nullopt;
  long long days =
      daysFromCivil(f.year, static_cast<unsigned>(f.month), static_cast<unsigned>(f.day));
  double seconds = static_cast<double>(days) * 86400.0 + f.hour * 3600.0 + f.minute * 60.0 +
                   f.second - f.zone * 60.0;
  return Date{seconds};
}

// ---- Showing ----

std::mutex formatterMutex;
DateTimeFormatter& installedFormatter() {
  static DateTimeFormatter formatter;
  return formatter;
}

std::u16string defaultFormat(const Date& date) {
  thread_local std::unique_ptr<icu::DateFormat> format(icu::DateFormat::createDateTimeInstance(
      icu::DateFormat::kMedium, icu::DateFormat::kShort, icu::Locale::getDefault()));
  if (!format) return {};
  icu::UnicodeString text;
  format->format(date.secondsSince1970 * 1000.0, text);
  return std::u16string(text.getBuffer(), static_cast<std::size_t>(text.length()));
}

}  // namespace

std::optional<Date> date(std::u16string_view string) {
  while (!string.empty() && isSpace(string.front()))
    string.remove_prefix(1);
  while (!string.empty() && isSpace(string.back()))
    string.remove_suffix(1);
  if (string.empty()) return std::nullopt;
  Fields fields;
  Reader reader(string);
  bool read = false;
  if (isDigit(string[0])) {
    read = readIsoDate(reader, fields);
    if (!read) {
      fields = Fields();
      reader.reset(0);
      read = readMessageDate(reader, fields);
    }
  } else {
    read = readMessageDate(reader, fields);
  }
  return read ? instant(fields) : std::nullopt;
}

void setDateTimeFormatter(DateTimeFormatter formatter) {
  std::lock_guard<std::mutex> lock(formatterMutex);
  installedFormatter() = std::move(formatter);
}

std::u16string stringFromDate(const Date& date) {
  DateTimeFormatter formatter;
  {
    std::lock_guard<std::mutex> lock(formatterMutex);
    formatter = installedFormatter();
  }
  return formatter ? formatter(date) : defaultFormat(date);
}

}  // namespace ferncast
