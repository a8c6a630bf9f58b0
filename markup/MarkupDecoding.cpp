#include "markup/MarkupDecoding.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/ucnv_err.h>

#include <algorithm>
#include <array>
#include <memory>

#include "Classes/NSData+Quill.h"
#include "Classes/NSString+HeaderFields.h"
#include "Classes/Unicode.h"
#include "markup/chartables/CharacterTables.h"
#include "markup/CzechEncodings.h"
#include "markup/Entities.h"
#include "markup/chartables/NSString+QuillCompare.h"
#include "markup/XmlExtensions.h"

namespace ferncast {
namespace {

constexpr char16_t kReplacementCharacter = 0xFFFD;

struct ConverterCloser {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using ConverterPtr = std::unique_ptr<UConverter, ConverterCloser>;

ConverterPtr openConverter(CFStringEncoding encoding) {
  const char* name = icuConverterLookupName(encoding);
  if (!name) return nullptr;
  UErrorCode status = U_ZERO_ERROR;
  ConverterPtr converter(ucnv_open(name, &status));
  return U_SUCCESS(status) ? std::move(converter) : nullptr;
}

// One U+FFFD for each undecodable sequence, whatever the converter's own substitute: ICU writes
// U+001A for single invalid bytes of some tables, which would hide them from the bad counts.
void writeReplacementCharacter(const void*, UConverterToUnicodeArgs* arguments, const char*,
                               int32_t, UConverterCallbackReason reason, UErrorCode* status) {
  if (reason > UCNV_IRREGULAR) return;  // reset, close, clone: nothing to write
  *status = U_ZERO_ERROR;
  ucnv_cbToUWriteUChars(arguments, reinterpret_cast<const UChar*>(&kReplacementCharacter), 1, 0,
                        status);
}

enum class Errors { kReplace, kFail };

// Converts into `buffer`; the number of code units written, or nullopt when the converter does
// not open, the output does not fit, or (kFail) some input is invalid or unmapped.
std::optional<std::size_t> convert(const std::uint8_t* bytes, std::size_t length,
                                   CFStringEncoding encoding, char16_t* buffer,
                                   std::size_t capacity, Errors errors) {
  if (encoding == kCFStringEncodingKamenicky || encoding == kCFStringEncodingKOI8_CS2) {
    if (length > capacity) return std::nullopt;
    const char16_t* table =
        encoding == kCFStringEncodingKamenicky ? kamenickyTable() : koi8cs2Table();
    for (std::size_t i = 0; i < length; ++i)
      buffer[i] = table[bytes[i]];
    return length;
  }
  ConverterPtr converter = openConverter(encoding);
  if (!converter) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  if (errors == Errors::kReplace) {
    ucnv_setToUCallBack(converter.get(), writeReplacementCharacter, nullptr, nullptr, nullptr,
                        &status);
  } else {
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &status);
  }
  UChar* target = reinterpret_cast<UChar*>(buffer);
  const char* source = reinterpret_cast<const char*>(bytes);
  ucnv_toUnicode(converter.get(), &target, reinterpret_cast<UChar*>(buffer + capacity), &source,
                 source + length, nullptr, true, &status);
  if (U_FAILURE(status)) return std::nullopt;
  std::size_t produced = static_cast<std::size_t>(target - reinterpret_cast<UChar*>(buffer));
  bool utf8 = encoding == kCFStringEncodingUTF8;
  if (utf8 && produced > 0 && buffer[0] == 0xFEFF) {
    std::copy(buffer + 1, buffer + produced, buffer);
    --produced;
  }
  return produced;
}

// Our own two encodings have string numbers but no platform extended number.
CFStringEncoding extendedEncoding(NSStringEncoding encoding) {
  if (encoding == NSKamenickyStringEncoding) return kCFStringEncodingKamenicky;
  if (encoding == NSKOI8CS2StringEncoding) return kCFStringEncodingKOI8_CS2;
  return CFStringConvertNSStringEncodingToEncoding(encoding);
}

NSStringEncoding stringEncoding(CFStringEncoding encoding) {
  if (encoding == kCFStringEncodingKamenicky) return NSKamenickyStringEncoding;
  if (encoding == kCFStringEncodingKOI8_CS2) return NSKOI8CS2StringEncoding;
  return CFStringConvertEncodingToNSStringEncoding(encoding);
}

std::optional<std::u16string> tryToCreateString(std::span<const std::uint8_t> data,
                                                NSStringEncoding encoding, std::size_t* badCount) {
  return tryToCreateStringWithEncoding(data.data(), data.size(), extendedEncoding(encoding),
                                       badCount);
}

constexpr CFStringEncoding kJapaneseFallbacks[] = {
    kCFStringEncodingShiftJIS,      kCFStringEncodingShiftJIS_X0213, kCFStringEncodingMacJapanese,
    kCFStringEncodingDOSJapanese,   kCFStringEncodingJIS_X0201_76,   kCFStringEncodingJIS_X0208_83,
    kCFStringEncodingJIS_X0208_90,  kCFStringEncodingJIS_X0212_90,   kCFStringEncodingJIS_C6226_78,
    kCFStringEncodingEUC_JP,        kCFStringEncodingISO_2022_JP,    kCFStringEncodingISO_2022_JP_1,
    kCFStringEncodingISO_2022_JP_2, kCFStringEncodingISO_2022_JP_3,
};

constexpr CFStringEncoding kChineseFallbacks[] = {
    kCFStringEncodingEUC_TW, kCFStringEncodingGB_2312_80, kCFStringEncodingHZ_GB_2312,
    kCFStringEncodingGBK_95, kCFStringEncodingBig5,       kCFStringEncodingBig5_HKSCS_1999,
    kCFStringEncodingBig5_E,
};

// ---- The declaration inside markup ----

struct EncodingContext {
  std::optional<std::u16string> charset;
  Range range;
};

bool nameIs(const char16_t* name, std::size_t length, std::u16string_view upperName) {
  return equalsNoCase(std::u16string_view(name, length), upperName);
}

bool RetrieveEncodingHandler(std::u16string_view string, char16_t* characters,
                             std::size_t nameLocation, std::size_t nameLength,
                             std::size_t tagLocation, std::size_t tagLength, std::size_t,
                             TagKind kind, void* context) {
  if (kind != TagKind::kTag || nameLocation == kNotFound) return false;
  auto* encoding = static_cast<EncodingContext*>(context);
  const char16_t* name = characters + nameLocation;
  if (nameIs(name, nameLength, u"BODY")) return true;  // declarations come before the body
  tagLength = std::min(tagLength, string.size() - tagLocation);
  std::optional<std::u16string> charset;
  if (nameIs(name, nameLength, u"META") && tagLength > 2 && characters[tagLocation + 1] != u'/') {
    std::optional<std::u16string> content = _attributeOfTagCharactersWithName(
        characters, tagLocation, tagLength, "CONTENT", true, nullptr);
    if (content) charset = headerCharset(*content);
    if (!charset) {
      charset = _attributeOfTagCharactersWithName(characters, tagLocation, tagLength, "CHARSET",
                                                  false, nullptr);
    }
    if (charset) charset = stringByConvertingEntitiesToCharacters(*charset);
  } else if (nameIs(name, nameLength, u"XML") && tagLength > 1 &&
             characters[tagLocation + 1] == u'?') {
    charset = _attributeOfTagCharactersWithName(characters, tagLocation, tagLength, "ENCODING",
                                                false, nullptr);
  }
  if (!charset) return false;
  encoding->charset = std::move(charset);
  encoding->range = Range{tagLocation, tagLength};
  return true;
}

EncodingContext retrieveEncoding(std::u16string_view string) {
  EncodingContext context;
  GetTagsOfString(string, RetrieveEncodingHandler, &context, false);
  return context;
}

// ---- Encoding ----

Data encodeWithTable(std::u16string_view string, const char16_t* table) {
  Data data;
  data.reserve(string.size());
  for (char16_t c : string) {
    const char16_t* end = table + 256;
    const char16_t* found = c == kReplacementCharacter ? end : std::find(table, end, c);
    if (found != end) {
      data.push_back(static_cast<std::uint8_t>(found - table));
    } else {
      std::string reference = "&#" + std::to_string(static_cast<unsigned>(c)) + ";";
      data.insert(data.end(), reference.begin(), reference.end());
    }
  }
  return data;
}

std::optional<Data> encode(std::u16string_view string, CFStringEncoding encoding) {
  if (encoding == kCFStringEncodingKamenicky) return encodeWithTable(string, kamenickyTable());
  if (encoding == kCFStringEncodingKOI8_CS2) return encodeWithTable(string, koi8cs2Table());
  ConverterPtr converter = openConverter(encoding);
  if (!converter) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_ESCAPE, UCNV_ESCAPE_XML_DEC, nullptr,
                        nullptr, &status);
  Data data(string.size() * 4 + 16);
  for (;;) {
    char* target = reinterpret_cast<char*>(data.data());
    const UChar* source = reinterpret_cast<const UChar*>(string.data());
    ucnv_resetFromUnicode(converter.get());
    status = U_ZERO_ERROR;
    ucnv_fromUnicode(converter.get(), &target, target + data.size(), &source,
                     source + string.size(), nullptr, true, &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
      data.resize(data.size() * 2);
      continue;
    }
    if (U_FAILURE(status)) return std::nullopt;
    data.resize(static_cast<std::size_t>(target - reinterpret_cast<char*>(data.data())));
    return data;
  }
}

}  // namespace

bool convertEncodingToUnicode(const std::uint8_t* bytes, std::size_t length,
                              CFStringEncoding encoding, char16_t* buffer, std::size_t capacity,
                              std::size_t* outLength) {
  std::optional<std::size_t> produced =
      convert(bytes, length, encoding, buffer, capacity, Errors::kReplace);
  if (outLength) *outLength = produced.value_or(0);
  return produced.has_value();
}

std::optional<std::u16string> tryToCreateStringWithEncoding(const std::uint8_t* data,
                                                            std::size_t length,
                                                            CFStringEncoding encoding,
                                                            std::size_t* badCount) {
  if (badCount) *badCount = 0;
  std::u16string string(std::max<std::size_t>(length, 32), u'\0');
  std::size_t produced = 0;
  if (!convertEncodingToUnicode(data, length, encoding, string.data(), string.size(), &produced) ||
      produced == 0) {
    return std::nullopt;
  }
  string.resize(produced);
  if (badCount)
    *badCount =
        static_cast<std::size_t>(std::count(string.begin(), string.end(), kReplacementCharacter));
  return string;
}

std::optional<std::u16string> initWithData(const std::uint8_t* bytes, std::size_t length,
                                           NSStringEncoding encoding) {
  CFStringEncoding extended = extendedEncoding(encoding);
  if (!CFStringIsEncodingAvailable(extended)) return std::nullopt;
  // No converter makes more than two code units of a byte.
  std::u16string string(length * 2 + 2, u'\0');
  std::optional<std::size_t> produced =
      convert(bytes, length, extended, string.data(), string.size(), Errors::kFail);
  if (!produced) return std::nullopt;
  string.resize(*produced);
  return string;
}

std::span<const CFStringEncoding> japaneseFallbackEncodings() {
  return kJapaneseFallbacks;
}
std::span<const CFStringEncoding> chineseFallbackEncodings() {
  return kChineseFallbacks;
}

std::optional<std::u16string> firstStringOfEncodings(std::span<const std::uint8_t> data,
                                                     std::span<const CFStringEncoding> encodings,
                                                     CFStringEncoding* usedEncoding) {
  std::u16string buffer(std::max<std::size_t>(data.size(), 32), u'\0');
  for (CFStringEncoding encoding : encodings) {
    std::size_t produced = 0;
    if (convertEncodingToUnicode(data.data(), data.size(), encoding, buffer.data(), buffer.size(),
                                 &produced) &&
        produced > 0) {
      if (usedEncoding) *usedEncoding = encoding;
      buffer.resize(produced);
      return buffer;
    }
  }
  return std::nullopt;
}

std::u16string markupCharset(std::u16string_view string) {
  return retrieveEncoding(string).charset.value_or(std::u16string());
}

Range markupCharsetRange(std::u16string_view string) {
  return retrieveEncoding(string).range;
}

NSStringEncoding markupEncoding(std::u16string_view string) {
  return charset2NSStringEncoding(markupCharset(string));
}

NSStringEncoding headerEncoding(std::u16string_view contentType) {
  return charset2NSStringEncoding(headerCharset(contentType).value_or(std::u16string()));
}

NSStringEncoding defaultURLEncoding(std::u16string_view string) {
  return markupEncoding(string) == NSISOLatin1StringEncoding ? NSISOLatin1StringEncoding
                                                             : NSUTF8StringEncoding;
}

Data markupData(std::u16string_view string) {
  return markupData(string, nullptr);
}

Data markupData(std::u16string_view string, NSStringEncoding* usedEncoding) {
  NSStringEncoding encoding = NSASCIIStringEncoding;
  Data data;
  if (!string.empty()) {
    encoding = markupEncoding(string);
    std::optional<Data> encoded;
    if (encoding != kNoStringEncoding) encoded = encode(string, extendedEncoding(encoding));
    if (!encoded) {
      encoding = NSASCIIStringEncoding;
      std::u16string ascii = stringByConvertingCharactersToEntities(string);
      encoded = encode(ascii, kCFStringEncodingASCII);
    }
    data = std::move(encoded).value_or(Data());
  }
  if (usedEncoding) *usedEncoding = encoding;
  return data;
}

std::optional<std::u16string> stringWithMarkupData(std::span<const std::uint8_t> data,
                                                   std::u16string_view encodingName,
                                                   NSStringEncoding defaultEncoding,
                                                   std::u16string_view,
                                                   NSStringEncoding* usedEncoding) {
  NSStringEncoding ignored;
  NSStringEncoding& used = usedEncoding ? *usedEncoding : ignored;
  used = kNoStringEncoding;
  if (data.empty()) return std::u16string();

  NSStringEncoding declared = defaultEncoding;
  bool nameGiven = false;
  if (!encodingName.empty()) {
    NSStringEncoding named = NSEncodingFromName(encodingName);
    if (named != 0 && named != kNoStringEncoding) {
      declared = named;
      nameGiven = true;
    }
  }

  std::size_t firstBad = 0;
  std::optional<std::u16string> first = tryToCreateString(data, declared, &firstBad);
  used = declared;
  // With no first reading there is no declaration to read: 0 stands for "nothing read".
  NSStringEncoding markup = first ? markupEncoding(*first) : 0;
  if (markup == declared || markup == NSASCIIStringEncoding || markup == kNoStringEncoding) {
    if (!first) used = kNoStringEncoding;
    return first;
  }

  std::optional<std::u16string> second;
  std::size_t secondBad = 0;
  if (markup != 0) {
    if (markup == NSWindowsCP1251StringEncoding &&
        !(nameGiven && declared == NSUTF8StringEncoding)) {
      first.reset();
      declared = NSWindowsCP1250StringEncoding;
    } else if (markup == stringEncoding(kCFStringEncodingBig5)) {
      first.reset();
      declared = stringEncoding(kCFStringEncodingBig5_HKSCS_1999);
    }
    second = tryToCreateString(data, markup, &secondBad);
  }

  if (second) {
    used = markup;
    if (secondBad == 0 && declared == NSUTF8StringEncoding && first && firstBad == 0 && nameGiven &&
        (markup == NSISOLatin1StringEncoding || markup == NSWindowsCP1251StringEncoding) &&
        first->size() < second->size()) {
      used = declared;  // a clean UTF-8 reading is shorter than a single-byte misreading
      return first;
    }
    if (first && nameGiven && firstBad < secondBad) {
      used = declared;
      return first;
    }
    return second;
  }

  std::optional<std::u16string> result;
  std::span<const CFStringEncoding> chain;
  if (markup == NSShiftJISStringEncoding) chain = japaneseFallbackEncodings();
  if (markup == stringEncoding(kCFStringEncodingEUC_CN)) chain = chineseFallbackEncodings();
  if (!chain.empty()) {
    CFStringEncoding winner = kCFStringEncodingInvalidId;
    result = firstStringOfEncodings(data, chain, &winner);
    used = stringEncoding(winner);
  } else {
    result = std::move(first);
    used = declared;
  }
  if (!result && declared != markup) {
    result = initWithData(data.data(), data.size(), declared);
    used = declared;
    if (!result && markup != defaultEncoding && declared != defaultEncoding) {
      result = initWithData(data.data(), data.size(), defaultEncoding);
      used = defaultEncoding;
    }
  }
  if (!result) used = kNoStringEncoding;
  return result;
}

std::optional<std::u16string> stringWithMarkupData(std::span<const std::uint8_t> data,
                                                   NSStringEncoding defaultEncoding) {
  return stringWithMarkupData(data, std::u16string_view(), defaultEncoding, std::u16string_view());
}

std::optional<std::u16string> stringWithMarkupData(std::span<const std::uint8_t> data,
                                                   std::u16string_view contentType,
                                                   NSStringEncoding defaultEncoding) {
  std::u16string name = headerCharset(contentType).value_or(std::u16string());
  return stringWithMarkupData(data, name, defaultEncoding, std::u16string_view());
}

std::optional<std::u16string> stringWithMarkupContentsOfFile(std::u16string_view path,
                                                             NSStringEncoding defaultEncoding,
                                                             NSStringEncoding* usedEncoding) {
  NSStringEncoding ignored;
  NSStringEncoding& used = usedEncoding ? *usedEncoding : ignored;
  used = kNoStringEncoding;
  if (path.empty()) return std::nullopt;
  std::optional<Data> data = dataWithUncachedContentsOfFile(path);
  if (!data) return std::nullopt;

  static constexpr std::string_view kBinaryPropertyList = "bplist";
  if (data->size() >= kBinaryPropertyList.size() &&
      std::equal(kBinaryPropertyList.begin(), kBinaryPropertyList.end(), data->begin())) {
    std::optional<Value> plist = propertyListFromBytes(data->data(), data->size());
    if (!plist) return std::nullopt;
    used = NSUTF8StringEncoding;
    return utf8ToUtf16(xmlPropertyList(*plist));
  }

  std::optional<std::u16string> string = initWithData(data->data(), data->size(), defaultEncoding);
  if (!string) return std::nullopt;  // no text to read a declaration from
  used = defaultEncoding;
  NSStringEncoding declared = markupEncoding(*string);
  if (declared == defaultEncoding || declared == kNoStringEncoding ||
      declared == NSASCIIStringEncoding) {
    return string;
  }
  if (std::optional<std::u16string> again = initWithData(data->data(), data->size(), declared)) {
    used = declared;
    return again;
  }
  if (declared == NSUTF8StringEncoding) {
    if (std::optional<std::u16string> roman =
            initWithData(data->data(), data->size(), NSMacOSRomanStringEncoding)) {
      used = NSMacOSRomanStringEncoding;
      return roman;
    }
  }
  return string;
}

}  // namespace ferncast
