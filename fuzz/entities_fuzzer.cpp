// The entity decoders under every flag combination (taken from the first byte) and the encoders,
// over the remaining bytes read as UTF-16 code units. Checks that in-place and separate decoding
// agree, that decoding never grows the text, and that the standard and numeric encodings decode
// back to their input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "markup/Entities.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

// The inverse of stringByConvertingCharactersToJSON.
std::u16string unescapeJson(const std::u16string& escaped) {
  std::u16string text;
  for (std::size_t i = 0; i < escaped.size(); ++i) {
    char16_t c = escaped[i];
    if (c != u'\\') {
      text.push_back(c);
      continue;
    }
    check(++i < escaped.size());
    switch (escaped[i]) {
      case u'b':
        text.push_back(u'\b');
        break;
      case u't':
        text.push_back(u'\t');
        break;
      case u'n':
        text.push_back(u'\n');
        break;
      case u'f':
        text.push_back(u'\f');
        break;
      case u'r':
        text.push_back(u'\r');
        break;
      default:
        text.push_back(escaped[i]);
    }
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferncast;
  if (size < 1 || size > 65536) return 0;
  const bool standard = data[0] & 1, onlyNumeric = data[0] & 2, nonUmlauted = data[0] & 4;
  std::u16string text((size - 1) / 2, u'\0');
  std::memcpy(text.data(), data + 1, text.size() * sizeof(char16_t));

  // An exactly sized copy, so that any read past the end is caught.
  char16_t* source = new char16_t[text.size() + 1];
  std::memcpy(source, text.data(), text.size() * sizeof(char16_t));
  char16_t* separate = new char16_t[text.size() + 1];
  std::size_t n = convertEntities2Characters(source, separate, 0, text.size(), standard,
                                             onlyNumeric, nonUmlauted);
  check(n <= text.size());
  std::size_t m = convertEntities2Characters(source, source, 0, text.size(), standard, onlyNumeric,
                                             nonUmlauted);
  check(m == n && std::memcmp(source, separate, n * sizeof(char16_t)) == 0);
  delete[] separate;
  delete[] source;

  std::u16string decoded =
      stringByConvertingEntitiesToCharacters(text, standard, onlyNumeric, nonUmlauted);
  check(decoded.size() <= text.size());
  std::u16string standardDecoded = stringByConvertingStandardEntitiesToCharacters(text);
  check(standardDecoded.size() <= text.size());

  check(stringByConvertingEntitiesToCharacters(
            stringByConvertingCharactersToStandardEntities(text)) == text);
  if (text.find(u'&') == std::u16string::npos) {
    check(stringByConvertingEntitiesToCharacters(stringByConvertingHighCharactersToEntities(text),
                                                 false, true, false) == text);
  }
  std::u16string named = stringByConvertingCharactersToEntities(text);
  for (char16_t c : named)
    check(c < 128);
  check(unescapeJson(stringByConvertingCharactersToJSON(text)) == text);
  return 0;
}
