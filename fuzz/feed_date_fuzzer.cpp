// The feed date conversion over arbitrary strings (UTF-8 input, at most 4 KiB): a date that is
// read is a finite instant within years 1 to 9999 (give or take a zone offset), and its ISO 8601
// form reads back as the same instant (to the millisecond the form keeps).
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "Classes/Json.h"
#include "Classes/Unicode.h"
#include "webcontent/FeedDate.h"

using namespace ferncast;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 4096) return 0;
  const std::u16string text = utf8ToUtf16({reinterpret_cast<const char*>(data), size});
  const std::optional<Date> when = date(text);
  if (!when) return 0;
  const double seconds = when->secondsSince1970;
  // 0001-01-01 to 10000-01-01, give or take a day of zone offset.
  if (!std::isfinite(seconds) || seconds < -62135683200.0 || seconds > 253402387200.0) {
    __builtin_trap();
  }
  // Only years of four digits print as ISO 8601 that reads back.
  if (seconds < -30610224000.0 || seconds >= 253402300800.0) return 0;
  const std::optional<Date> again = date(utf8ToUtf16(iso8601(*when)));
  if (!again || std::fabs(again->secondsSince1970 - seconds) > 0.0015) __builtin_trap();
  return 0;
}
