#include "webcontent/documents/CodePages.h"

#include <unicode/ucnv.h>

#include <map>
#include <mutex>
#include <string>

namespace ferncast {
namespace {

// The ICU converter name of a code page.
std::string converterName(int codePage) {
  switch (codePage) {
    case 10000:
      return "macintosh";
    case 10001:
      return "windows-932";  // Mac Japanese: Shift-JIS is the nearest ICU has
    case 10006:
      return "x-mac-greek";
    case 10007:
      return "x-mac-cyrillic";
    case 10029:
      return "x-mac-centraleurroman";
    case 10081:
      return "x-mac-turkish";
    case 437:
    case 737:
    case 775:
    case 850:
    case 852:
    case 855:
    case 857:
    case 860:
    case 861:
    case 862:
    case 863:
    case 864:
    case 865:
    case 866:
    case 869:
      return "ibm-" + std::to_string(codePage);
    default:
      return "windows-" + std::to_string(codePage);
  }
}

UConverter* openConverter(int codePage) {
  UErrorCode error = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(converterName(codePage).c_str(), &error);
  if (U_FAILURE(error)) {
    if (converter) ucnv_close(converter);
    return nullptr;
  }
  return converter;
}

struct Tables {
  std::mutex mutex;
  // A null entry marks a multi-byte code page.
  std::map<int, std::unique_ptr<std::array<char16_t, 256>>> byCodePage;
};

Tables& tables() {
  static Tables* instance = new Tables;  // kept for the life of the process
  return *instance;
}

std::unique_ptr<std::array<char16_t, 256>> buildTable(int codePage) {
  UConverter* converter = openConverter(codePage);
  if (!converter && codePage != kDefaultCodePage) return buildTable(kDefaultCodePage);
  if (!converter) return nullptr;
  std::unique_ptr<std::array<char16_t, 256>> table;
  if (ucnv_getMaxCharSize(converter) == 1) {
    table = std::make_unique<std::array<char16_t, 256>>();
    for (int byte = 0; byte < 256; ++byte) {
      const char in = static_cast<char>(byte);
      UChar out[4];
      UErrorCode error = U_ZERO_ERROR;
      ucnv_reset(converter);
      const int32_t n = ucnv_toUChars(converter, out, 4, &in, 1, &error);
      (*table)[byte] = U_SUCCESS(error) && n == 1 ? out[0] : u'\uFFFD';
    }
  }
  ucnv_close(converter);
  return table;
}

}  // namespace

int codePageOfCharset(int charset, int documentCodePage) {
  switch (charset) {
    case 2:
      return kDefaultCodePage;  // symbol fonts: their bytes as Windows-1252
    case 77:
      return 10000;
    case 78:
      return 10001;
    case 128:
      return 932;
    case 129:
      return 949;
    case 134:
      return 936;
    case 136:
      return 950;
    case 161:
      return 1253;
    case 162:
      return 1254;
    case 163:
      return 1258;
    case 177:
      return 1255;
    case 178:
      return 1256;
    case 186:
      return 1257;
    case 204:
      return 1251;
    case 222:
      return 874;
    case 238:
      return 1250;
    case 254:
      return 437;
    case 255:
      return 850;
    default:
      return documentCodePage;
  }
}

const std::array<char16_t, 256>* singleByteTable(int codePage) {
  Tables& all = tables();
  std::lock_guard<std::mutex> lock(all.mutex);
  auto it = all.byCodePage.find(codePage);
  if (it == all.byCodePage.end()) {
    it = all.byCodePage.emplace(codePage, buildTable(codePage)).first;
  }
  return it->second.get();
}

struct CodePageDecoder::Converter {
  int codePage = -1;
  UConverter* converter = nullptr;
  ~Converter() {
    if (converter) ucnv_close(converter);
  }
};

CodePageDecoder::CodePageDecoder() : converter_(std::make_unique<Converter>()) {}
CodePageDecoder::~CodePageDecoder() = default;

void CodePageDecoder::decode(int codePage, const std::uint8_t* bytes, std::size_t length,
                             std::u16string& out) {
  if (length == 0) return;
  if (const std::array<char16_t, 256>* table = singleByteTable(codePage)) {
    for (std::size_t i = 0; i < length; ++i)
      out.push_back((*table)[bytes[i]]);
    return;
  }
  if (converter_->codePage != codePage) {
    if (converter_->converter) ucnv_close(converter_->converter);
    converter_->converter = openConverter(codePage);
    converter_->codePage = codePage;
  }
  if (!converter_->converter) {
    out.append(length, u'\uFFFD');
    return;
  }
  ucnv_reset(converter_->converter);
  const std::size_t start = out.size();
  const std::size_t capacity = 2 * length + 4;  // a byte never gives more than a pair
  out.resize(start + capacity);
  UErrorCode error = U_ZERO_ERROR;
  UChar* const begin = reinterpret_cast<UChar*>(out.data() + start);
  UChar* target = begin;
  const char* source = reinterpret_cast<const char*>(bytes);
  ucnv_toUnicode(converter_->converter, &target, begin + capacity, &source, source + length,
                 nullptr, true, &error);
  out.resize(start + (U_SUCCESS(error) ? static_cast<std::size_t>(target - begin) : 0));
}

}  // namespace ferncast
