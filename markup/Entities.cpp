#include "markup/Entities.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "markup/chartables/CharacterTables.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ferncast {
namespace {

struct Row {
  const char* name;
  char16_t character;
};

// The entity table: HTML 4 names and the code points HTML 4 gives them.
// clang-format off
constexpr Row kRows[] = {
    // Latin-1 letters, in pairs
    {"AElig", 0x00C6}, {"aelig", 0x00E6}, {"Aacute", 0x00C1}, {"aacute", 0x00E1}, {"Acirc", 0x00C2},
    {"acirc", 0x00E2}, {"Agrave", 0x00C0}, {"agrave", 0x00E0}, {"Aring", 0x00C5}, {"aring", 0x00E5},
    {"Atilde", 0x00C3}, {"atilde", 0x00E3}, {"Auml", 0x00C4}, {"auml", 0x00E4}, {"Ccedil", 0x00C7},
    {"ccedil", 0x00E7}, {"ETH", 0x00D0}, {"eth", 0x00F0}, {"Eacute", 0x00C9}, {"eacute", 0x00E9},
    {"Ecirc", 0x00CA}, {"ecirc", 0x00EA}, {"Egrave", 0x00C8}, {"egrave", 0x00E8}, {"Euml", 0x00CB},
    {"euml", 0x00EB}, {"Iacute", 0x00CD}, {"iacute", 0x00ED}, {"Icirc", 0x00CE}, {"icirc", 0x00EE},
    {"Igrave", 0x00CC}, {"igrave", 0x00EC}, {"Iuml", 0x00CF}, {"iuml", 0x00EF}, {"Ntilde", 0x00D1},
    {"ntilde", 0x00F1}, {"Oacute", 0x00D3}, {"oacute", 0x00F3}, {"Ocirc", 0x00D4},
    {"ocirc", 0x00F4}, {"Ograve", 0x00D2}, {"ograve", 0x00F2}, {"Oslash", 0x00D8},
    {"oslash", 0x00F8}, {"Otilde", 0x00D5}, {"otilde", 0x00F5}, {"Ouml", 0x00D6}, {"ouml", 0x00F6},
    {"THORN", 0x00DE}, {"thorn", 0x00FE}, {"Uacute", 0x00DA}, {"uacute", 0x00FA}, {"Ucirc", 0x00DB},
    {"ucirc", 0x00FB}, {"Ugrave", 0x00D9}, {"ugrave", 0x00F9}, {"Uuml", 0x00DC}, {"uuml", 0x00FC},
    {"Yacute", 0x00DD}, {"yacute", 0x00FD}, {"yuml", 0x00FF}, {"szlig", 0x00DF},
    // Latin-1 symbols
    {"nbsp", 0x00A0}, {"iexcl", 0x00A1}, {"cent", 0x00A2}, {"pound", 0x00A3}, {"curren", 0x00A4},
    {"yen", 0x00A5}, {"brvbar", 0x00A6}, {"sect", 0x00A7}, {"uml", 0x00A8}, {"copy", 0x00A9},
    {"ordf", 0x00AA}, {"laquo", 0x00AB}, {"not", 0x00AC}, {"shy", 0x00AD}, {"reg", 0x00AE},
    {"macr", 0x00AF}, {"deg", 0x00B0}, {"plusmn", 0x00B1}, {"sup2", 0x00B2}, {"sup3", 0x00B3},
    {"acute", 0x00B4}, {"micro", 0x00B5}, {"para", 0x00B6}, {"middot", 0x00B7}, {"sup1", 0x00B9},
    {"ordm", 0x00BA}, {"raquo", 0x00BB}, {"frac14", 0x00BC}, {"frac12", 0x00BD}, {"frac34", 0x00BE},
    {"iquest", 0x00BF}, {"times", 0x00D7}, {"divide", 0x00F7},
    // Greek capitals
    {"Alpha", 0x0391}, {"Beta", 0x0392}, {"Gamma", 0x0393}, {"Delta", 0x0394}, {"Epsilon", 0x0395},
    {"Zeta", 0x0396}, {"Eta", 0x0397}, {"Theta", 0x0398}, {"Iota", 0x0399}, {"Kappa", 0x039A},
    {"Lambda", 0x039B}, {"Mu", 0x039C}, {"Nu", 0x039D}, {"Xi", 0x039E}, {"Omicron", 0x039F},
    {"Pi", 0x03A0}, {"Rho", 0x03A1}, {"Sigma", 0x03A3}, {"Tau", 0x03A4}, {"Upsilon", 0x03A5},
    {"Phi", 0x03A6}, {"Chi", 0x03A7}, {"Psi", 0x03A8}, {"Omega", 0x03A9},
    // Greek small letters and variants
    {"alpha", 0x03B1}, {"beta", 0x03B2}, {"gamma", 0x03B3}, {"delta", 0x03B4}, {"epsilon", 0x03B5},
    {"zeta", 0x03B6}, {"eta", 0x03B7}, {"theta", 0x03B8}, {"iota", 0x03B9}, {"kappa", 0x03BA},
    {"lambda", 0x03BB}, {"mu", 0x03BC}, {"nu", 0x03BD}, {"xi", 0x03BE}, {"omicron", 0x03BF},
    {"pi", 0x03C0}, {"rho", 0x03C1}, {"sigmaf", 0x03C2}, {"sigma", 0x03C3}, {"tau", 0x03C4},
    {"upsilon", 0x03C5}, {"phi", 0x03C6}, {"chi", 0x03C7}, {"psi", 0x03C8}, {"omega", 0x03C9},
    {"thetasym", 0x03D1}, {"upsih", 0x03D2}, {"piv", 0x03D6},
    // General punctuation and letter-like symbols
    {"bull", 0x2022}, {"hellip", 0x2026}, {"prime", 0x2032}, {"Prime", 0x2033}, {"oline", 0x203E},
    {"frasl", 0x2044}, {"weierp", 0x2118}, {"image", 0x2111}, {"real", 0x211C}, {"trade", 0x2122},
    {"alefsym", 0x2135},
    // Arrows
    {"larr", 0x2190}, {"uarr", 0x2191}, {"rarr", 0x2192}, {"darr", 0x2193}, {"harr", 0x2194},
    {"crarr", 0x21B5}, {"lArr", 0x21D0}, {"uArr", 0x21D1}, {"rArr", 0x21D2}, {"dArr", 0x21D3},
    {"hArr", 0x21D4},
    // Mathematical operators
    {"forall", 0x2200}, {"part", 0x2202}, {"exist", 0x2203}, {"empty", 0x2205}, {"nabla", 0x2207},
    {"isin", 0x2208}, {"notin", 0x2209}, {"ni", 0x220B}, {"prod", 0x220F}, {"sum", 0x2211},
    {"minus", 0x2212}, {"lowast", 0x2217}, {"radic", 0x221A}, {"prop", 0x221D}, {"infin", 0x221E},
    {"ang", 0x2220}, {"and", 0x2227}, {"or", 0x2228}, {"cap", 0x2229}, {"cup", 0x222A},
    {"int", 0x222B}, {"there4", 0x2234}, {"sim", 0x223C}, {"cong", 0x2245}, {"asymp", 0x2248},
    {"ne", 0x2260}, {"equiv", 0x2261}, {"le", 0x2264}, {"ge", 0x2265}, {"sub", 0x2282},
    {"sup", 0x2283}, {"nsub", 0x2284}, {"sube", 0x2286}, {"supe", 0x2287}, {"oplus", 0x2295},
    {"otimes", 0x2297}, {"perp", 0x22A5}, {"sdot", 0x22C5},
    // Technical symbols and card suits
    {"lceil", 0x2308}, {"rceil", 0x2309}, {"lfloor", 0x230A}, {"rfloor", 0x230B}, {"lang", 0x2329},
    {"rang", 0x232A}, {"loz", 0x25CA}, {"spades", 0x2660}, {"clubs", 0x2663}, {"hearts", 0x2665},
    {"diams", 0x2666},
    // Latin Extended, spacing modifiers and general punctuation
    {"OElig", 0x0152}, {"oelig", 0x0153}, {"Scaron", 0x0160}, {"scaron", 0x0161}, {"Yuml", 0x0178},
    {"circ", 0x02C6}, {"tilde", 0x02DC}, {"ensp", 0x2002}, {"emsp", 0x2003}, {"thinsp", 0x2009},
    {"zwnj", 0x200C}, {"zwj", 0x200D}, {"lrm", 0x200E}, {"rlm", 0x200F}, {"ndash", 0x2013},
    {"mdash", 0x2014}, {"lsquo", 0x2018}, {"rsquo", 0x2019}, {"sbquo", 0x201A}, {"ldquo", 0x201C},
    {"rdquo", 0x201D}, {"bdquo", 0x201E}, {"dagger", 0x2020}, {"Dagger", 0x2021},
    {"permil", 0x2030}, {"lsaquo", 0x2039}, {"rsaquo", 0x203A}, {"euro", 0x20AC},
};
// clang-format on

static_assert(std::size(kRows) == kEntityCount);

template <typename T, typename Field>
constexpr std::array<T, kEntityCount + 1> column(Field field, T terminator) {
  std::array<T, kEntityCount + 1> values{};
  for (std::size_t i = 0; i < kEntityCount; ++i)
    values[i] = field(kRows[i]);
  values[kEntityCount] = terminator;
  return values;
}

constexpr char16_t kFirstCharacter = 0x00A0;
constexpr char16_t kLastCharacter = 0x2666;
constexpr std::size_t kIndexSpan = kLastCharacter - kFirstCharacter + 1;

// Row numbers by character. A character of two rows, or one outside the span, fails the build.
constexpr std::array<std::uint16_t, kIndexSpan> buildReverseIndex() {
  std::array<std::uint16_t, kIndexSpan> rows{};
  rows.fill(kNoEntityRow);
  for (std::size_t i = 0; i < kEntityCount; ++i) {
    std::uint16_t& row = rows.at(kRows[i].character - kFirstCharacter);
    if (row != kNoEntityRow) throw "two rows for one character";
    row = static_cast<std::uint16_t>(i);
  }
  return rows;
}
constexpr std::array<std::uint16_t, kIndexSpan> kReverseIndex = buildReverseIndex();
static_assert(kReverseIndex.front() != kNoEntityRow && kReverseIndex.back() != kNoEntityRow);

// A name of up to 8 ASCII characters as a base-256 number; distinct names give distinct keys.
constexpr std::uint64_t nameKey(const char* name) {
  std::uint64_t key = 0;
  for (std::size_t i = 0; name[i]; ++i) {
    if (i == 8) throw "entity name too long for a key";
    key = key << 8 | static_cast<unsigned char>(name[i]);
  }
  return key;
}

struct NameKey {
  std::uint64_t key;
  char16_t character;
};

constexpr std::array<NameKey, kEntityCount> buildNameIndex() {
  std::array<NameKey, kEntityCount> keys{};
  for (std::size_t i = 0; i < kEntityCount; ++i)
    keys[i] = {nameKey(kRows[i].name), kRows[i].character};
  std::sort(keys.begin(), keys.end(),
            [](const NameKey& a, const NameKey& b) { return a.key < b.key; });
  return keys;
}
constexpr std::array<NameKey, kEntityCount> kNameIndex = buildNameIndex();

// The character of the entity whose key is `key`, or 0.
char16_t characterOfName(std::uint64_t key) {
  const NameKey* found =
      std::lower_bound(kNameIndex.begin(), kNameIndex.end(), key,
                       [](const NameKey& entry, std::uint64_t k) { return entry.key < k; });
  return found != kNameIndex.end() && found->key == key ? found->character : 0;
}

// The first `c` in [p, end), or end.
const char16_t* findCodeUnit(const char16_t* p, const char16_t* end, char16_t c) {
#if defined(__SSE2__)
  const __m128i needle = _mm_set1_epi16(static_cast<short>(c));
  for (; end - p >= 16; p += 16) {
    __m128i low = _mm_cmpeq_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), needle);
    __m128i high =
        _mm_cmpeq_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8)), needle);
    unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(low, high)));
    if (mask) return p + std::countr_zero(mask);
  }
#endif
  while (p < end && *p != c)
    ++p;
  return p;
}

// Whether [p, end) starts with the ASCII `word`.
template <std::size_t N>
bool startsWith(const char16_t* p, const char16_t* end, const char (&word)[N]) {
  if (static_cast<std::size_t>(end - p) < N - 1) return false;
  for (std::size_t i = 0; i + 1 < N; ++i) {
    if (p[i] != static_cast<unsigned char>(word[i])) return false;
  }
  return true;
}

const char16_t* skipSemicolon(const char16_t* p, const char16_t* end) {
  return p < end && *p == u';' ? p + 1 : p;
}

int hexDigitValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

bool isMarkupCharacter(char16_t c) {
  return c == u'"' || c == u'&' || c == u'<' || c == u'>';
}

// A recognised reference: the code unit it stands for and where the text goes on. `next` is null
// when the "&" is not the start of a reference.
struct Reference {
  const char16_t* next = nullptr;
  char16_t value = 0;
  bool foldable = false;  // passes through the umlaut table in non-umlauted decoding
};

// A name or number plus the code unit that ends it span at most this many code units.
constexpr std::ptrdiff_t kMaxReferenceSpan = 7;

// The reference at `amp` ("&" followed by at least one code unit, before `end`).
template <bool Standard, bool OnlyNumeric>
Reference parseReference(const char16_t* amp, const char16_t* end, const std::uint8_t* alnum) {
  const char16_t* q = amp + 1;
  if (startsWith(q, end, "apos")) return {skipSemicolon(q + 4, end), u'\'', false};
  if (startsWith(q, end, "nbsp")) return {skipSemicolon(q + 4, end), u'\u00A0', false};
  if constexpr (Standard) {
    if (startsWith(q, end, "quot")) return {skipSemicolon(q + 4, end), u'"', false};
    if (startsWith(q, end, "amp")) return {skipSemicolon(q + 3, end), u'&', false};
    if (startsWith(q, end, "gt")) return {skipSemicolon(q + 2, end), u'>', false};
    if (startsWith(q, end, "lt")) return {skipSemicolon(q + 2, end), u'<', false};
  }
  // The run of the reference starts at q; the code unit at limit would make it too long.
  const char16_t* limit = end - q > kMaxReferenceSpan ? q + kMaxReferenceSpan : end;
  const char16_t* t;
  char16_t value = 0;
  if (*q == u'#') {
    t = q + 1;
    if (t < end && (*t == u'x' || *t == u'X')) {
      for (++t; t < limit; ++t) {
        int digit = hexDigitValue(*t);
        if (digit < 0) break;
        value = static_cast<char16_t>(value * 16 + digit);
      }
    } else {
      for (; t < limit && *t >= u'0' && *t <= u'9'; ++t)
        value = static_cast<char16_t>(value * 10 + (*t - u'0'));
    }
    if (t - q >= kMaxReferenceSpan || value == 0) return {};
    if (!Standard && isMarkupCharacter(value)) return {};
  } else {
    if constexpr (OnlyNumeric) {
      return {};
    } else {
      std::uint64_t key = 0;
      bool ascii = true;
      for (t = q; t < limit && characterIsMember(alnum, *t); ++t) {
        ascii = ascii && *t < 128;
        key = key << 8 | (*t & 0xFF);
      }
      if (t == q || t - q >= kMaxReferenceSpan || !ascii) return {};
      value = characterOfName(key);
      if (value == 0) return {};
    }
  }
  return {skipSemicolon(t, end), value, true};
}

template <bool Standard, bool OnlyNumeric, bool NonUmlauted>
std::size_t decode(const char16_t* p, const char16_t* end, char16_t* out) {
  char16_t* const begin = out;
  const std::uint8_t* alnum = OnlyNumeric ? nullptr : alphaNumCharacterSetRep();
  const char16_t* umlauts = NonUmlauted ? initUmlautsCharsTable() : nullptr;
  for (;;) {
    const char16_t* amp = findCodeUnit(p, end, u'&');
    if constexpr (NonUmlauted) {
      while (p < amp)
        *out++ = umlauts[*p++];
    } else {
      std::size_t count = static_cast<std::size_t>(amp - p);
      if (count && out != p) std::memmove(out, p, count * sizeof(char16_t));
      out += count;
      p = amp;
    }
    if (p == end) break;
    Reference reference =
        end - p >= 2 ? parseReference<Standard, OnlyNumeric>(p, end, alnum) : Reference{};
    if (reference.next) {
      *out++ = NonUmlauted && reference.foldable ? umlauts[reference.value] : reference.value;
      p = reference.next;
    } else {
      *out++ = u'&';
      ++p;
    }
  }
  return static_cast<std::size_t>(out - begin);
}

using Decoder = std::size_t (*)(const char16_t*, const char16_t*, char16_t*);

template <bool Standard, bool OnlyNumeric>
Decoder decoder(bool nonUmlauted) {
  return nonUmlauted ? decode<Standard, OnlyNumeric, true> : decode<Standard, OnlyNumeric, false>;
}

Decoder decoder(bool standard, bool onlyNumeric, bool nonUmlauted) {
  if (standard) {
    return onlyNumeric ? decoder<true, true>(nonUmlauted) : decoder<true, false>(nonUmlauted);
  }
  return onlyNumeric ? decoder<false, true>(nonUmlauted) : decoder<false, false>(nonUmlauted);
}

// Below this length the decoders hand their input back unchanged.
constexpr std::size_t kShortestDecodable = 4;

// Writes "&#N;" with the decimal value of `c` and returns the position after it.
char16_t* writeNumericReference(char16_t* out, char16_t c) {
  char16_t digits[5];
  int count = 0;
  unsigned value = c;
  do {
    digits[count++] = static_cast<char16_t>(u'0' + value % 10);
    value /= 10;
  } while (value);
  *out++ = u'&';
  *out++ = u'#';
  while (count)
    *out++ = digits[--count];
  *out++ = u';';
  return out;
}

std::size_t numericReferenceLength(char16_t c) {
  return c >= 10000 ? 8 : c >= 1000 ? 7 : c >= 100 ? 6 : c >= 10 ? 5 : 4;
}

// The first code unit at or above 128 in [p, end), or end.
const char16_t* findHighCharacter(const char16_t* p, const char16_t* end) {
  while (p < end && *p < 128)
    ++p;
  return p;
}

// What each code unit below 128 becomes: itself, or a replacement of up to kMaxReplacement code
// units.
constexpr std::size_t kMaxReplacement = 6;
struct Replacement {
  std::uint8_t length;
  char16_t units[kMaxReplacement];
};
using ReplacementTable = std::array<Replacement, 128>;

constexpr ReplacementTable identityReplacements() {
  ReplacementTable table{};
  for (std::size_t c = 0; c < table.size(); ++c)
    table[c] = {1, {static_cast<char16_t>(c)}};
  return table;
}

constexpr Replacement replacement(std::u16string_view text) {
  Replacement r{static_cast<std::uint8_t>(text.size()), {}};
  std::copy(text.begin(), text.end(), r.units);
  return r;
}

// A copy of `string` with the code units below 128 replaced as `table` says. The first pass sizes
// the output exactly; the second copies every table entry whole into the slack after the end, so
// that neither pass branches on whether a code unit is replaced.
std::u16string replaceCodeUnits(std::u16string_view string, const ReplacementTable& table) {
  std::size_t length = 0;
  for (char16_t c : string)
    length += c < 128 ? table[c].length : 1;
  if (length == string.size()) return std::u16string(string);  // replacements are longer
  std::u16string result(length + kMaxReplacement, u'\0');
  char16_t* out = result.data();
  for (char16_t c : string) {
    if (c < 128) {
      std::memcpy(out, table[c].units, sizeof table[c].units);  // inlined, unlike copy_n
      out += table[c].length;
    } else {
      *out++ = c;
    }
  }
  result.resize(length);
  return result;
}

}  // namespace

constexpr std::array<const char*, kEntityCount + 1> entityStrings =
    column([](const Row& row) { return row.name; }, "");
constexpr std::array<char16_t, kEntityCount + 1> entityCharacters =
    column([](const Row& row) { return row.character; }, u'\0');

const EntityConversionTables& initConversionTables() {
  static constexpr EntityConversionTables tables{kFirstCharacter, kLastCharacter,
                                                 kReverseIndex.data()};
  return tables;
}

std::uint16_t entityRowOfCharacter(char16_t c) {
  return c >= kFirstCharacter && c <= kLastCharacter ? kReverseIndex[c - kFirstCharacter]
                                                     : kNoEntityRow;
}

std::size_t convertEntities2Characters(const char16_t* source, char16_t* destination,
                                       std::size_t start, std::size_t length, bool standard,
                                       bool onlyNumeric, bool nonUmlauted) {
  const char16_t* begin = source + start;
  return decoder(standard, onlyNumeric, nonUmlauted)(begin, begin + length, destination);
}

std::size_t convertStdEntities2Characters(char16_t* characters, std::size_t length) {
  const char16_t* p = characters;
  const char16_t* end = characters + length;
  char16_t* out = characters;
  for (;;) {
    const char16_t* amp = findCodeUnit(p, end, u'&');
    std::size_t count = static_cast<std::size_t>(amp - p);
    if (count && out != p) std::memmove(out, p, count * sizeof(char16_t));
    out += count;
    p = amp;
    if (p == end) break;
    // The position of the ";" decides which name is tried.
    std::ptrdiff_t left = end - p;
    std::ptrdiff_t span = 0;
    char16_t value = 0;
    if (left > 5 && p[5] == u';') {
      span = 6;
      value = startsWith(p + 1, end, "quot") ? u'"' : 0;
    } else if (left > 4 && p[4] == u';') {
      span = 5;
      value = startsWith(p + 1, end, "amp") ? u'&' : 0;
    } else if (left > 3 && p[3] == u';') {
      span = 4;
      value = startsWith(p + 1, end, "gt") ? u'>' : startsWith(p + 1, end, "lt") ? u'<' : 0;
    }
    if (value) {
      *out++ = value;
      p += span;
    } else {
      *out++ = u'&';
      ++p;
    }
  }
  return static_cast<std::size_t>(out - characters);
}

std::u16string stringByConvertingEntitiesToCharacters(std::u16string_view string) {
  return stringByConvertingEntitiesToCharacters(string, true, false, false);
}

std::u16string stringByConvertingEntitiesToCharactersNonUmlauted(std::u16string_view string,
                                                                 bool nonUmlauted) {
  return stringByConvertingEntitiesToCharacters(string, true, false, nonUmlauted);
}

std::u16string stringByConvertingEntitiesToCharacters(std::u16string_view string, bool standard,
                                                      bool onlyNumericEntities, bool nonUmlauted) {
  std::u16string result(string);
  if (string.size() < kShortestDecodable) return result;
  // Text before the first "&" is copied as it is, unless every code unit is to be folded.
  const char16_t* begin = string.data();
  const char16_t* end = begin + string.size();
  std::size_t first =
      nonUmlauted ? 0 : static_cast<std::size_t>(findCodeUnit(begin, end, u'&') - begin);
  if (first == string.size()) return result;
  result.resize(first + convertEntities2Characters(result.data(), result.data() + first, first,
                                                   result.size() - first, standard,
                                                   onlyNumericEntities, nonUmlauted));
  return result;
}

std::u16string stringByConvertingStandardEntitiesToCharacters(std::u16string_view string) {
  std::u16string result(string);
  if (string.size() < kShortestDecodable) return result;
  result.resize(convertStdEntities2Characters(result.data(), result.size()));
  return result;
}

std::u16string stringByConvertingCharactersToEntities(std::u16string_view string) {
  const char16_t* begin = string.data();
  const char16_t* end = begin + string.size();
  const char16_t* first = findHighCharacter(begin, end);
  if (first == end) return std::u16string(string);
  // The exact length, and the worst-case byte size of the ASCII buffer this output fits in.
  std::size_t length = static_cast<std::size_t>(first - begin);
  std::uint64_t bound = length;
  for (const char16_t* p = first; p < end; ++p) {
    char16_t c = *p;
    if (c < 128) {
      ++length;
      ++bound;
    } else if (std::uint16_t row = entityRowOfCharacter(c); row != kNoEntityRow) {
      length += std::strlen(kRows[row].name) + 2;
      bound += 10;
    } else {
      length += numericReferenceLength(c);
      bound += 8;
    }
  }
  constexpr std::uint64_t kPageSize = 4096;
  if ((bound + kPageSize - 1) / kPageSize * kPageSize > 0x7FFFFFFE) return std::u16string(string);
  std::u16string result(length, u'\0');
  char16_t* out = std::copy(begin, first, result.data());
  for (const char16_t* p = first; p < end; ++p) {
    char16_t c = *p;
    if (c < 128) {
      *out++ = c;
    } else if (std::uint16_t row = entityRowOfCharacter(c); row != kNoEntityRow) {
      *out++ = u'&';
      for (const char* name = kRows[row].name; *name; ++name)
        *out++ = static_cast<char16_t>(*name);
      *out++ = u';';
    } else {
      out = writeNumericReference(out, c);
    }
  }
  return result;
}

std::u16string stringByConvertingHighCharactersToEntities(std::u16string_view string) {
  const char16_t* begin = string.data();
  const char16_t* end = begin + string.size();
  const char16_t* first = findHighCharacter(begin, end);
  if (first == end) return std::u16string(string);
  std::size_t length = static_cast<std::size_t>(first - begin);
  for (const char16_t* p = first; p < end; ++p)
    length += *p < 128 ? 1 : numericReferenceLength(*p);
  std::u16string result(length, u'\0');
  char16_t* out = std::copy(begin, first, result.data());
  for (const char16_t* p = first; p < end; ++p)
    out = *p < 128 ? (*out = *p, out + 1) : writeNumericReference(out, *p);
  return result;
}

std::u16string stringByConvertingCharactersToStandardEntities(std::u16string_view string) {
  static constexpr ReplacementTable kEntities = [] {
    ReplacementTable table = identityReplacements();
    table[u'"'] = replacement(u"&quot;");
    table[u'&'] = replacement(u"&amp;");
    table[u'<'] = replacement(u"&lt;");
    table[u'>'] = replacement(u"&gt;");
    return table;
  }();
  return replaceCodeUnits(string, kEntities);
}

std::u16string stringByConvertingCharactersToJSON(std::u16string_view string) {
  static constexpr ReplacementTable kEscapes = [] {
    ReplacementTable table = identityReplacements();
    table[u'"'] = replacement(u"\\\"");
    table[u'\\'] = replacement(u"\\\\");
    table[u'/'] = replacement(u"\\/");
    table[u'\b'] = replacement(u"\\b");
    table[u'\t'] = replacement(u"\\t");
    table[u'\n'] = replacement(u"\\n");
    table[u'\f'] = replacement(u"\\f");
    table[u'\r'] = replacement(u"\\r");
    return table;
  }();
  return replaceCodeUnits(string, kEscapes);
}

}  // namespace ferncast
