// The markup decoder on any bytes, with the charset name and the default encoding taken from the
// input: byte 0 is the name's length (0-31), the name follows (read as Latin-1), then one byte
// picks the default encoding; the rest is the markup. The result is also encoded back and its
// declaration looked up.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "Classes/Log.h"
#include "markup/MarkupDecoding.h"

namespace {

constexpr ferncast::NSStringEncoding kDefaults[] = {
    ferncast::NSASCIIStringEncoding,
    ferncast::NSUTF8StringEncoding,
    ferncast::NSISOLatin1StringEncoding,
    ferncast::NSShiftJISStringEncoding,
    ferncast::NSUnicodeStringEncoding,
    ferncast::NSWindowsCP1251StringEncoding,
    ferncast::NSMacOSRomanStringEncoding,
    ferncast::NSKamenickyStringEncoding,
    ferncast::NSKOI8CS2StringEncoding,
    ferncast::kNoStringEncoding,
    0,
    0x80000930,  // EUC-CN
    0x80000A03,
    0x80000001,  // Big5, Mac Japanese (no converter)
    0x80000632,
    0x80000820,  // GB 18030, ISO-2022-JP
};

constexpr std::size_t kMaximumInput = 1 << 16;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool quiet = [] {
    ferncast::setLogSink([](std::string_view) {});
    return true;
  }();
  (void)quiet;
  if (size < 2 || size > kMaximumInput) return 0;
  std::size_t nameLength = data[0] % 32;
  if (size < 2 + nameLength) return 0;
  std::u16string name(data + 1, data + 1 + nameLength);
  ferncast::NSStringEncoding defaultEncoding =
      kDefaults[data[1 + nameLength] % std::size(kDefaults)];
  std::span<const std::uint8_t> markup(data + 2 + nameLength, size - 2 - nameLength);

  std::optional<std::u16string> text =
      ferncast::stringWithMarkupData(markup, name, defaultEncoding, u"");
  if (text) {
    ferncast::markupCharsetRange(*text);
    ferncast::markupData(*text);
  }
  ferncast::stringWithMarkupData(markup, u"text/html; charset=" + name, defaultEncoding);
  return 0;
}
