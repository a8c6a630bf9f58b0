#include "Classes/NSString+Encoding.h"

#include <unicode/ucnv.h>

#include <cstdint>
#include <memory>

namespace ferncast {

namespace {

struct Converter {
  NSStringEncoding encoding;
  const char* name;
};

constexpr Converter kConverters[] = {
    {NSASCIIStringEncoding, "US-ASCII"},
    {NSJapaneseEUCStringEncoding, "EUC-JP"},
    {NSUTF8StringEncoding, "UTF-8"},
    {NSISOLatin1StringEncoding, "ISO-8859-1"},
    {NSShiftJISStringEncoding, "Shift_JIS"},
    {NSISOLatin2StringEncoding, "ISO-8859-2"},
    {NSUnicodeStringEncoding, "UTF-16"},
    {NSWindowsCP1251StringEncoding, "windows-1251"},
    {NSWindowsCP1252StringEncoding, "windows-1252"},
    {NSWindowsCP1253StringEncoding, "windows-1253"},
    {NSWindowsCP1254StringEncoding, "windows-1254"},
    {NSWindowsCP1250StringEncoding, "windows-1250"},
    {NSISO2022JPStringEncoding, "ISO-2022-JP"},
    {NSMacOSRomanStringEncoding, "macintosh"},
    {NSUTF16BigEndianStringEncoding, "UTF-16BE"},
    {NSUTF16LittleEndianStringEncoding, "UTF-16LE"},
    {NSUTF32StringEncoding, "UTF-32"},
    {NSUTF32BigEndianStringEncoding, "UTF-32BE"},
    {NSUTF32LittleEndianStringEncoding, "UTF-32LE"},
};

}  // namespace

const char* icuConverterNameOfEncoding(NSStringEncoding encoding) {
  for (const Converter& converter : kConverters) {
    if (converter.encoding == encoding) return converter.name;
  }
  return nullptr;
}

std::optional<std::u16string> stringWithData(const std::uint8_t* bytes, std::size_t length,
                                             NSStringEncoding encoding) {
  const char* name = icuConverterNameOfEncoding(encoding);
  if (!name) return std::nullopt;
  if (encoding == NSUTF8StringEncoding && length >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB &&
      bytes[2] == 0xBF) {
    bytes += 3;
    length -= 3;
  }
  if (length == 0) return std::u16string();
  if (length > INT32_MAX) return std::nullopt;  // ICU counts in int32_t

  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<UConverter, void (*)(UConverter*)> converter(ucnv_open(name, &status),
                                                               ucnv_close);
  if (U_FAILURE(status)) return std::nullopt;
  ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  if (U_FAILURE(status)) return std::nullopt;

  // Most encodings need at most one code unit per byte; retry once with the exact size if not.
  const char* source = reinterpret_cast<const char*>(bytes);
  const auto sourceLength = static_cast<int32_t>(length);
  std::u16string text(length, u'\0');
  int32_t produced = ucnv_toUChars(converter.get(), text.data(), static_cast<int32_t>(text.size()),
                                   source, sourceLength, &status);
  if (status == U_BUFFER_OVERFLOW_ERROR) {
    status = U_ZERO_ERROR;
    text.assign(static_cast<std::size_t>(produced), u'\0');
    produced = ucnv_toUChars(converter.get(), text.data(), produced, source, sourceLength, &status);
  }
  if (U_FAILURE(status)) return std::nullopt;
  text.resize(static_cast<std::size_t>(produced));
  return text;
}

}  // namespace ferncast
