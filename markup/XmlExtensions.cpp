#include "markup/XmlExtensions.h"

#include <cxxabi.h>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <type_traits>
#include <typeinfo>

#include "Classes/Log.h"
#include "markup/chartables/CharacterTables.h"
#include "markup/CodeUnitSearch.h"
#include "markup/chartables/NSString+QuillCompare.h"

namespace ferncast {
namespace {

constexpr std::size_t kPageSize = 4096;

std::size_t roundUpToPage(std::size_t bytes) {
  return (bytes + kPageSize - 1) / kPageSize * kPageSize;
}

// ---- Scanner ----

// The code units that matter inside a tag outside quoted values; all of them are below 64.
constexpr std::uint64_t kTagDelimiters = (std::uint64_t{1} << u'"') | (std::uint64_t{1} << u'\'') |
                                         (std::uint64_t{1} << u'=') | (std::uint64_t{1} << u'>');

// The ">" that ends a tag whose "<" lies before p, or end. An "=" arms the next quote to open a
// quoted value, which runs to the same quote again; a quote not after "=" opens nothing.
const char16_t* findTagEnd(const char16_t* p, const char16_t* end) {
  bool afterEquals = false;
  for (; p < end; ++p) {
    const char16_t c = *p;
    if (c >= 64 || !((kTagDelimiters >> c) & 1)) continue;
    if (c == u'>') return p;
    if (c == u'=') {
      afterEquals = true;
    } else if (afterEquals) {
      p = findCodeUnit(p + 1, end, c);
      if (p == end) return end;
      afterEquals = false;
    }
  }
  return end;
}

// The ">" of "-->" or "--!>" ("->" for a short comment), or end. p is three units past the "<",
// so looking back three units stays inside the comment.
const char16_t* findCommentEnd(const char16_t* p, const char16_t* end, bool shortComment) {
  for (;; ++p) {
    p = findCodeUnit(p, end, u'>');
    if (p == end) return end;
    if (p[-1] == u'-' && (shortComment || p[-2] == u'-')) return p;
    if (!shortComment && p[-1] == u'!' && p[-2] == u'-' && p[-3] == u'-') return p;
  }
}

// The ">" of "]>" or "]-->", or end; p is three units past the "<".
const char16_t* findSectionEnd(const char16_t* p, const char16_t* end) {
  for (;; ++p) {
    p = findCodeUnit(p, end, u'>');
    if (p == end) return end;
    if (p[-1] == u']' || (p[-1] == u'-' && p[-2] == u'-' && p[-3] == u']')) return p;
  }
}

// The first occurrence of `literal` wholly inside [p, end), or end.
const char16_t* findLiteral(const char16_t* p, const char16_t* end, std::u16string_view literal) {
  for (;; ++p) {
    p = findCodeUnit(p, end, literal[0]);
    if (static_cast<std::size_t>(end - p) < literal.size()) return end;
    if (std::equal(literal.begin() + 1, literal.end(), p + 1)) return p;
  }
}

// The first "<" in [p, end) followed by "/" or "!", or end. Script bodies are full of other "<".
const char16_t* findEndTagOrBang(const char16_t* p, const char16_t* end) {
#if defined(__SSE2__)
  const __m128i less = _mm_set1_epi16(u'<');
  const __m128i slash = _mm_set1_epi16(u'/');
  const __m128i bang = _mm_set1_epi16(u'!');
  for (; end - p > 8; p += 8) {
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1));
    const __m128i hits =
        _mm_and_si128(_mm_cmpeq_epi16(units, less),
                      _mm_or_si128(_mm_cmpeq_epi16(next, slash), _mm_cmpeq_epi16(next, bang)));
    if (int mask = _mm_movemask_epi8(hits)) {
      return p + (__builtin_ctz(static_cast<unsigned>(mask)) >> 1);
    }
  }
#endif
  for (; end - p > 1; ++p) {
    if (*p == u'<' && (p[1] == u'/' || p[1] == u'!')) return p;
  }
  return end;
}

// The first "</" + upperName at or after p, the name compared through the upper-case table, or
// end. With `commentOpen` (null on entry), the first "<!-" passed on the way is stored there.
const char16_t* findEndTag(const char16_t* p, const char16_t* end, std::u16string_view upperName,
                           const char16_t** commentOpen = nullptr) {
  const std::size_t needed = 2 + upperName.size();
  for (;; ++p) {
    p = findEndTagOrBang(p, end);
    if (p == end) return end;
    if (p[1] == u'!') {
      if (commentOpen && !*commentOpen && end - p > 2 && p[2] == u'-') *commentOpen = p;
      continue;
    }
    if (static_cast<std::size_t>(end - p) < needed) return end;
    if (startsWithNoCase(std::u16string_view(p + 2, upperName.size()), upperName)) return p;
  }
}

// A forward search that keeps its last answer: asking again from anywhere between the last start
// and the match found then costs nothing (a miss is remembered as `end`). This keeps texts with
// many unclosed scripts linear. Valid because the text after the current construct never changes.
class RememberedSearch {
 public:
  template <typename Search>
  const char16_t* find(const char16_t* from, Search search) {
    if (!from_ || from < from_ || from > found_) {
      from_ = from;
      found_ = search(from);
    }
    return found_;
  }

 private:
  const char16_t* from_ = nullptr;
  const char16_t* found_ = nullptr;
};

// Whether the name's units are the lower-case ASCII `word` with ASCII letters folded.
bool isAsciiName(const char16_t* name, std::u16string_view word) {
  for (std::size_t i = 0; i < word.size(); ++i) {
    if ((name[i] | 0x20) != word[i]) return false;
  }
  return true;
}

// The units the scan works on: the caller's storage, or a private page-rounded copy.
// Null when the copy cannot be made. Handlers see the caller's storage as writable only in name:
// the contract lets them write to the private copy alone.
class ScanBuffer {
 public:
  ScanBuffer(std::u16string_view string, bool copy) {
    if (!copy) {
      characters_ = const_cast<char16_t*>(string.data());
      return;
    }
    // The byte size of the copy must stay below 0x7FFFFFFF.
    if (string.size() > (kNotFound - 1) / 2) return;
    copy_.reset(new (std::nothrow) char16_t[roundUpToPage(string.size() * 2) / 2]);
    if (!copy_) return;
    std::memcpy(copy_.get(), string.data(), string.size() * sizeof(char16_t));
    characters_ = copy_.get();
  }
  char16_t* characters() const { return characters_; }

 private:
  std::unique_ptr<char16_t[]> copy_;
  char16_t* characters_ = nullptr;
};

struct WholeElement {
  std::u16string_view lowerName;  // as it must appear in the opening tag, ASCII-folded
  std::u16string_view upperName;  // as searched for in "</NAME"
};
constexpr WholeElement kScript{u"script", u"SCRIPT"};
constexpr WholeElement kStyle{u"style", u"STYLE"};

}  // namespace

bool GetTagsOfString(std::u16string_view string, TagHandler handler, void* context,
                     bool isMutable) {
  const std::size_t length = string.size();
  if (length == 0 || !handler || length >= kNotFound) return false;
  ScanBuffer buffer(string, isMutable);
  char16_t* const characters = buffer.characters();
  if (!characters) return false;
  initLowerCharsTable();
  const std::uint8_t* const letters = alphaCharacterSetRep();
  const std::uint8_t* const white = whiteCharacterSetRep();

  const std::u16string_view text(characters, length);
  const char16_t* const begin = characters;
  const char16_t* const end = begin + length;
  RememberedSearch scriptEnds, styleEnds, commentCloses;

  // The end of the script or style element whose opening tag is [start, p], found by its end tag
  // (skipping one written inside a commented-out body); p itself when there is none. The result
  // is the ">" after the end tag's name, or end when no ">" follows.
  auto wholeElementEnd = [&](const char16_t* start, const char16_t* p, const WholeElement& element,
                             RememberedSearch& endTags) {
    // The first search from an element notes the first "<!-" before its end tag on the way.
    const char16_t* commentOpen = nullptr;
    bool searched = false;
    const char16_t* endTag = endTags.find(start + 1, [&](const char16_t* from) {
      searched = true;
      return findEndTag(from, end, element.upperName, &commentOpen);
    });
    if (endTag == end) return p;
    if (!searched) {
      commentOpen = findLiteral(start, endTag, u"<!-");
      if (commentOpen == endTag) commentOpen = nullptr;
    }
    if (commentOpen) {
      const char16_t* commentClose = commentCloses.find(
          commentOpen, [&](const char16_t* from) { return findLiteral(from, end, u"-->"); });
      if (commentClose != end) {
        const char16_t* later = endTags.find(commentClose, [&](const char16_t* from) {
          return findEndTag(from, end, element.upperName);
        });
        if (later != end) endTag = later;
      }
    }
    return findCodeUnit(endTag + 2 + element.upperName.size(), end, u'>');
  };

  std::size_t textLocation = 0;
  const char16_t* start = begin;
  TagKind unterminated = TagKind::kEndOfText;
  for (const char16_t* p = begin; (p = findCodeUnit(p, end, u'<')) != end;) {
    start = p;
    TagKind kind = TagKind::kTag;
    if (end - p > 2 && p[1] == u'!' && p[2] == u'[') {
      kind = TagKind::kSection;
      p = findSectionEnd(p + 3, end);
    } else if (end - p > 2 && p[1] == u'!' && p[2] == u'-') {
      kind = TagKind::kComment;
      p = findCommentEnd(p + 3, end, end - p == 3 || p[3] != u'-');
    } else {
      p = findTagEnd(p + 1, end);
    }
    if (p == end) {
      unterminated = kind;
      break;
    }

    // The construct is [start, p]; a tag's name starts at its first letter.
    std::size_t nameLocation = kNotFound;
    std::size_t nameLength = 0;
    if (kind == TagKind::kTag) {
      const char16_t* name = start + 1;
      while (name < p && !characterIsMember(letters, *name))
        ++name;
      if (name < p) {
        const char16_t* nameEnd = name + 1;
        while (nameEnd < p && *nameEnd != u'/' && *nameEnd != u'>' &&
               !characterIsMember(white, *nameEnd)) {
          ++nameEnd;
        }
        nameLocation = static_cast<std::size_t>(name - begin);
        nameLength = static_cast<std::size_t>(nameEnd - name);
        if (start[1] != u'/' && p[-1] != u'/') {
          if (nameLength == 6 && isAsciiName(name, kScript.lowerName)) {
            p = wholeElementEnd(start, p, kScript, scriptEnds);
          } else if (nameLength == 5 && isAsciiName(name, kStyle.lowerName)) {
            p = wholeElementEnd(start, p, kStyle, styleEnds);
          }
        }
      }
    }

    // p may be `end` for an element whose end tag has no ">": its length then reaches one past
    // the text, and the next text run starts at the end.
    const std::size_t tagLocation = static_cast<std::size_t>(start - begin);
    const std::size_t tagLength = static_cast<std::size_t>(p - start) + 1;
    if (handler(text, characters, nameLocation, nameLength, tagLocation, tagLength, textLocation,
                kind, context)) {
      return true;
    }
    textLocation = std::min(tagLocation + tagLength, length);
    p = begin + textLocation;
  }

  if (unterminated == TagKind::kComment || unterminated == TagKind::kSection) {
    const std::size_t tagLocation = static_cast<std::size_t>(start - begin);
    handler(text, characters, kNotFound, 0, tagLocation, length - tagLocation, textLocation,
            unterminated, context);
    textLocation = length;
  }
  handler(text, characters, kNotFound, 0, length, 0, textLocation, TagKind::kEndOfText, context);
  return true;
}

bool parseXmlWithHandler(std::u16string_view string, TagHandler handler, void* context,
                         bool isMutable) {
  try {
    return GetTagsOfString(string, handler, context, isMutable);
  } catch (const std::exception& exception) {
    const char* mangled = typeid(exception).name();
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
    logException("parseXmlWithHandler:context:mutable:", "NSString",
                 demangled ? demangled.get() : mangled, exception.what());
    return false;
  }
}

// ---- Collectors ----

namespace {

std::u16string_view clipped(std::u16string_view string, std::size_t location, std::size_t length) {
  if (location >= string.size()) return {};
  return string.substr(location, std::min(length, string.size() - location));
}

struct ArrayCollector {
  bool tags = false;
  bool texts = false;
  std::vector<std::u16string> strings;  // tags or texts alone
  std::vector<Dictionary> entries;      // both
};

bool StoreToArrayHandler(std::u16string_view string, char16_t*, std::size_t, std::size_t,
                         std::size_t tagLocation, std::size_t tagLength, std::size_t textLocation,
                         TagKind, void* context) {
  auto& collector = *static_cast<ArrayCollector*>(context);
  const std::u16string_view tag = clipped(string, tagLocation, tagLength);
  const std::u16string_view text = string.substr(textLocation, tagLocation - textLocation);
  if (collector.tags && collector.texts) {
    Dictionary entry{{u"Tag", Value(tag)}};
    if (!text.empty()) entry.emplace(u"Content", Value(text));
    collector.entries.push_back(std::move(entry));
  } else if (collector.tags) {
    if (!tag.empty()) collector.strings.emplace_back(tag);
  } else if (!text.empty()) {
    collector.strings.emplace_back(text);
  }
  return false;
}

// One range list of a range collector. Capacity grows in page-sized steps of 8-byte entries, as
// the callers' memory budget assumes; a list that cannot grow is dropped for good.
class RangeList {
 public:
  RangeList(std::vector<Range>* list, std::size_t textLength) : list_(list) {
    if (list_) {
      list_->clear();
      grow(roundUpToPage(textLength / 2) / 8);
    }
  }
  void add(Range range, std::size_t count) {
    if (!list_) return;
    if (list_->size() == list_->capacity()) grow(roundUpToPage(count * 16) / 8);
    if (list_) list_->push_back(range);
  }

 private:
  void grow(std::size_t entries) {
    try {
      list_->reserve(entries);
    } catch (const std::bad_alloc&) {
      std::vector<Range>().swap(*list_);
      list_ = nullptr;
    }
  }
  std::vector<Range>* list_;
};

struct RangeCollector {
  RangeList tags;
  RangeList texts;
  std::size_t count = 0;
};

bool StoreToRangesHandler(std::u16string_view, char16_t*, std::size_t, std::size_t,
                          std::size_t tagLocation, std::size_t tagLength, std::size_t textLocation,
                          TagKind, void* context) {
  auto& collector = *static_cast<RangeCollector*>(context);
  ++collector.count;
  collector.tags.add({tagLocation, tagLength}, collector.count);
  collector.texts.add({textLocation, tagLocation - textLocation}, collector.count);
  return false;
}

std::vector<std::u16string> collectStrings(std::u16string_view string, bool tags) {
  ArrayCollector collector;
  collector.tags = tags;
  collector.texts = !tags;
  GetTagsOfString(string, StoreToArrayHandler, &collector, false);
  return std::move(collector.strings);
}

std::size_t collectRanges(std::u16string_view string, std::vector<Range>* tagRanges,
                          std::vector<Range>* textRanges) {
  RangeCollector collector{RangeList(tagRanges, string.size()),
                           RangeList(textRanges, string.size())};
  GetTagsOfString(string, StoreToRangesHandler, &collector, false);
  return collector.count;
}

}  // namespace

std::vector<std::u16string> getXmlTags(std::u16string_view string) {
  return collectStrings(string, true);
}

std::vector<std::u16string> getXmlContents(std::u16string_view string) {
  return collectStrings(string, false);
}

std::vector<Dictionary> getXml(std::u16string_view string) {
  ArrayCollector collector;
  collector.tags = collector.texts = true;
  GetTagsOfString(string, StoreToArrayHandler, &collector, false);
  return std::move(collector.entries);
}

std::u16string xmlTag(const Dictionary& entry) {
  auto it = entry.find(u"Tag");
  const std::u16string* tag = it == entry.end() ? nullptr : it->second.as<std::u16string>();
  return tag ? *tag : std::u16string();
}

std::u16string xmlContent(const Dictionary& entry) {
  auto it = entry.find(u"Content");
  const std::u16string* content = it == entry.end() ? nullptr : it->second.as<std::u16string>();
  return content ? *content : std::u16string();
}

std::size_t getXmlTags(std::u16string_view string, std::vector<Range>& tagRanges) {
  return collectRanges(string, &tagRanges, nullptr);
}

std::size_t getXmlContents(std::u16string_view string, std::vector<Range>& textRanges) {
  return collectRanges(string, nullptr, &textRanges);
}

std::size_t getXml(std::u16string_view string, std::vector<Range>& tagRanges,
                   std::vector<Range>& textRanges) {
  return collectRanges(string, &tagRanges, &textRanges);
}

// ---- Predicates and names ----

namespace {

// The part of `range` that lies inside the string.
Range clip(std::u16string_view string, Range range) {
  if (range.location >= string.size()) return {string.size(), 0};
  return {range.location, std::min(range.length, string.size() - range.location)};
}

std::optional<std::u16string> nameInCharacters(const char16_t* tag, std::size_t length) {
  const std::uint8_t* letters = alphaCharacterSetRep();
  const std::uint8_t* white = whiteCharacterSetRep();
  const char16_t* end = tag + length;
  const char16_t* name = tag;
  while (name < end && !characterIsMember(letters, *name))
    ++name;
  if (name == end) return std::nullopt;
  const char16_t* nameEnd = name + 1;
  while (nameEnd < end && *nameEnd != u'/' && *nameEnd != u'>' &&
         !characterIsMember(white, *nameEnd)) {
    ++nameEnd;
  }
  return std::u16string(name, nameEnd);
}

void openAndClosed(const char16_t* tag, std::size_t length, bool& isOpen, bool& isClosed) {
  isOpen = isClosed = false;
  if (length < 3) return;
  if (tag[1] == u'/') {
    isClosed = true;
  } else {
    isOpen = true;
    isClosed = length >= 4 && tag[length - 2] == u'/';
  }
}

bool beginsBangWith(const char16_t* tag, std::size_t length, char16_t third) {
  return length >= 7 && tag[1] == u'!' && tag[2] == third;
}

}  // namespace

bool isTagOpenCharacters(const char16_t* characters, Range range) {
  return characters && range.length >= 3 && characters[range.location + 1] != u'/';
}

bool isTagOpen(std::u16string_view string) {
  return isTagOpenInRange(string, {0, string.size()});
}

bool isTagOpenInRange(std::u16string_view string, Range range) {
  return isTagOpenCharacters(string.data(), clip(string, range));
}

bool isTagClosedCharacters(const char16_t* characters, Range range) {
  if (!characters || range.length < 4) return false;
  const char16_t* tag = characters + range.location;
  return tag[1] == u'/' || tag[range.length - 2] == u'/';
}

bool isTagClosed(std::u16string_view string) {
  return isTagClosedInRange(string, {0, string.size()});
}

bool isTagClosedInRange(std::u16string_view string, Range range) {
  return isTagClosedCharacters(string.data(), clip(string, range));
}

bool isMetaTag(std::u16string_view string) {
  return isMetaTagInRange(string, {0, string.size()});
}

bool isMetaTagInRange(std::u16string_view string, Range range) {
  range = clip(string, range);
  return beginsBangWith(string.data() + range.location, range.length, u'[');
}

bool isRemarkTag(std::u16string_view string) {
  return isRemarkTagInRange(string, {0, string.size()});
}

bool isRemarkTagInRange(std::u16string_view string, Range range) {
  range = clip(string, range);
  return beginsBangWith(string.data() + range.location, range.length, u'-');
}

std::optional<std::u16string> nameOfTag(std::u16string_view string) {
  return nameInCharacters(string.data(), string.size());
}

std::optional<std::u16string> nameOfTagInRange(std::u16string_view string, Range range) {
  range = clip(string, range);
  return nameInCharacters(string.data() + range.location, range.length);
}

std::optional<std::u16string> nameOfTagInStringRange(std::u16string_view string,
                                                     std::size_t location, std::size_t length) {
  return nameOfTagInRange(string, {location, length});
}

std::optional<std::u16string> nameOfTag(std::u16string_view string, bool& isOpen, bool& isClosed) {
  return nameOfTagInRange(string, {0, string.size()}, isOpen, isClosed);
}

std::optional<std::u16string> nameOfTagInRange(std::u16string_view string, Range range,
                                               bool& isOpen, bool& isClosed) {
  range = clip(string, range);
  openAndClosed(string.data() + range.location, range.length, isOpen, isClosed);
  return nameInCharacters(string.data() + range.location, range.length);
}

// ---- Attributes ----

namespace {

// How the two attribute walks differ: the character form (ASCII name, "=" and ">", "_" may not
// precede the name, repeated "=" skipped, optional meta-content values) and the string form.
struct WalkRules {
  std::size_t margin;
  char16_t assign;
  char16_t end;
  bool characterForm;
  bool metaContent;
};

// Where a quoted meta CONTENT value that starts at `start` ends: see _attributeOfTagCharacters...
std::size_t metaContentEnd(const char16_t* s, std::size_t start, std::size_t length,
                           char16_t quote) {
  std::size_t depth = 0;
  for (std::size_t k = start; k < length; ++k) {
    const char16_t c = s[k];
    if (c == u'<') {
      if (startsWithNoCase(std::u16string_view(s + k + 1, length - k - 1), u"META")) return k;
      ++depth;
    } else if (c == u'>') {
      if (k == start) continue;
      if (depth == 0) return k;
      --depth;
    } else if (c == quote) {
      if (depth == 1) {
        if (k - start >= 2 && s[k - 1] == u'/' && s[k - 2] == u'<') return k - 2;
        if (k - start >= 1 && s[k - 1] == u'<') return k - 1;
      }
      return k;
    }
  }
  return length;
}

// The value range, relative to s, of attribute `name` in the construct s[0, length).
template <typename Name>
Range findAttribute(const char16_t* s, std::size_t length, const Name& name,
                    const WalkRules& rules) {
  const std::size_t n = name.size();
  if (!s || n == 0 || length <= n + rules.margin) return {};
  const char16_t* upper = initUpperCharsTable();
  const std::uint8_t* alnum = alphaNumCharacterSetRep();
  const std::uint8_t* white = whiteCharacterSetRep();
  const char16_t first =
      upper[static_cast<std::make_unsigned_t<typename Name::value_type>>(name[0])];
  const std::size_t walkEnd = length - 1 - n;
  for (std::size_t i = 0; i < walkEnd; ++i) {
    const char16_t c = s[i];
    if (c == u'"' || c == u'\'') {
      const char16_t* close = findCodeUnit(s + i + 1, s + length, c);
      if (close == s + length) return {};
      i = static_cast<std::size_t>(close - s);
      continue;
    }
    if (upper[c] != first) continue;
    if (i > 0) {
      const char16_t before = s[i - 1];
      if (characterIsMember(alnum, before) || before == u'-' ||
          (rules.characterForm && before == u'_')) {
        continue;
      }
    }
    if (!startsWithNoCase(std::u16string_view(s + i, n), name)) continue;
    std::size_t j = i + n;
    while (j < length && characterIsMember(white, s[j]))
      ++j;
    if (j == length || s[j] != rules.assign) continue;
    ++j;
    if (rules.characterForm) {
      while (j < length && s[j] == rules.assign)
        ++j;
    }
    while (j < length && characterIsMember(white, s[j]))
      ++j;
    if (j == length) return {};

    std::size_t start = j;
    std::size_t stop = j;
    const char16_t quote = s[j];
    if (quote == u'"' || quote == u'\'') {
      start = stop = j + 1;
      if (rules.metaContent) {
        stop = metaContentEnd(s, start, length, quote);
      } else {
        while (stop < length && s[stop] != quote && s[stop] != rules.end)
          ++stop;
      }
    } else {
      while (stop < length && s[stop] != rules.end && !characterIsMember(white, s[stop]))
        ++stop;
    }
    while (stop > start && characterIsMember(white, s[stop - 1]))
      --stop;
    if (stop == start) return {};
    return {start, stop - start};
  }
  return {};
}

Range tagAttributeRange(const char16_t* tag, std::size_t length, std::string_view name,
                        bool metaContent = false) {
  return findAttribute(tag, length, name, {5, u'=', u'>', true, metaContent});
}

Range stringAttributeRange(const char16_t* s, std::size_t length, std::u16string_view name,
                           std::size_t margin, char16_t assign, char16_t end) {
  return findAttribute(s, length, name, {margin, assign, end, false, false});
}

Range styleRange(const char16_t* s, std::size_t length, std::u16string_view name) {
  return stringAttributeRange(s, length, name, 1, u':', u';');
}

std::optional<std::u16string> valueAt(const char16_t* s, Range range) {
  if (!range.found()) return std::nullopt;
  return std::u16string(s + range.location, range.length);
}

}  // namespace

std::optional<std::u16string> _attributeOfTagCharactersWithName(const char16_t* characters,
                                                                std::size_t location,
                                                                std::size_t length,
                                                                std::string_view name,
                                                                bool metaContent, Range* outRange) {
  const char16_t* tag = characters ? characters + location : nullptr;
  Range range = tagAttributeRange(tag, length, name, metaContent);
  if (outRange) {
    *outRange = range.found() ? Range{location + range.location, range.length} : Range{};
    return std::nullopt;
  }
  return valueAt(tag, range);
}

std::optional<std::u16string> attributeOfTagCharacters(const char16_t* characters,
                                                       std::size_t length, std::string_view name) {
  return _attributeOfTagCharactersWithName(characters, 0, length, name, false, nullptr);
}

std::optional<std::u16string> attributeOfTagCharacters(const char16_t* characters, Range range,
                                                       std::string_view name) {
  return _attributeOfTagCharactersWithName(characters, range.location, range.length, name, false,
                                           nullptr);
}

Range rangeOfAttributeOfTagCharacters(const char16_t* characters, std::size_t length,
                                      std::string_view name) {
  return rangeOfAttributeOfTagCharacters(characters, Range{0, length}, name);
}

Range rangeOfAttributeOfTagCharacters(const char16_t* characters, Range range,
                                      std::string_view name) {
  Range value;
  _attributeOfTagCharactersWithName(characters, range.location, range.length, name, false, &value);
  return value;
}

std::optional<std::u16string> _attributeOfStringWithName(std::u16string_view string,
                                                         std::size_t location, std::size_t length,
                                                         std::u16string_view name,
                                                         std::size_t margin, char16_t assign,
                                                         char16_t end) {
  const Range range = clip(string, {location, length});
  const char16_t* s = string.data() + range.location;
  return valueAt(s, stringAttributeRange(s, range.length, name, margin, assign, end));
}

std::optional<std::u16string> attributeOfTagWithName(std::u16string_view string,
                                                     std::u16string_view name) {
  return _attributeOfStringWithName(string, 0, string.size(), name, 5, u'=', u'>');
}

std::optional<std::u16string> attributeOfTagInRange(std::u16string_view string, Range range,
                                                    std::u16string_view name) {
  return _attributeOfStringWithName(string, range.location, range.length, name, 5, u'=', u'>');
}

std::optional<std::u16string> attributeOfStyleWithName(std::u16string_view string,
                                                       std::u16string_view name) {
  return _attributeOfStringWithName(string, 0, string.size(), name, 1, u':', u';');
}

std::optional<std::u16string> attributeOfStyleInRange(std::u16string_view string, Range range,
                                                      std::u16string_view name) {
  return _attributeOfStringWithName(string, range.location, range.length, name, 1, u':', u';');
}

// ---- Sizes and backgrounds ----

namespace {

// The leading integer of the units, as a C-style scan reads it: white space, a sign, decimal
// digits; 0 when there are none, clamped to the int range.
int leadingInteger(const char16_t* s, Range range) {
  if (!range.found()) return 0;
  const std::uint8_t* white = whiteCharacterSetRep();
  const char16_t* p = s + range.location;
  const char16_t* end = p + range.length;
  while (p < end && characterIsMember(white, *p))
    ++p;
  bool negative = false;
  if (p < end && (*p == u'-' || *p == u'+')) negative = *p++ == u'-';
  long long value = 0;
  for (; p < end && *p >= u'0' && *p <= u'9'; ++p) {
    value = std::min(value * 10 + (*p - u'0'), static_cast<long long>(INT_MAX) + 1);
  }
  if (negative) value = -value;
  return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}

}  // namespace

bool getTagWidth(int& width, int& height, const char16_t* characters, Range range) {
  width = height = 0;
  if (!characters || range.length < 10) return false;
  const char16_t* tag = characters + range.location;
  const std::size_t length = range.length;
  width = leadingInteger(tag, tagAttributeRange(tag, length, "WIDTH"));
  if (width != 0) {
    height = leadingInteger(tag, tagAttributeRange(tag, length, "HEIGHT"));
    if (height == 0) height = leadingInteger(tag, tagAttributeRange(tag, length, "HEIGH"));
  } else if (Range style = tagAttributeRange(tag, length, "STYLE"); style.found()) {
    const char16_t* declarations = tag + style.location;
    width = leadingInteger(declarations, styleRange(declarations, style.length, u"WIDTH"));
    if (width != 0) {
      height = leadingInteger(declarations, styleRange(declarations, style.length, u"HEIGHT"));
    }
  }
  return width > 0;
}

bool getTagWidth(int& width, int& height, const char16_t* characters, std::size_t length) {
  return getTagWidth(width, height, characters, Range{0, length});
}

bool getTagWidth(std::u16string_view string, int& width, int& height, Range range) {
  return getTagWidth(width, height, string.data(), clip(string, range));
}

bool getTagWidth(std::u16string_view string, int& width, int& height) {
  return getTagWidth(width, height, string.data(), Range{0, string.size()});
}

std::optional<std::u16string> backgroundStyleURLOfTagCharacters(const char16_t* characters,
                                                                Range range) {
  if (!isTagOpenCharacters(characters, range)) return std::nullopt;
  const char16_t* tag = characters + range.location;
  const Range style = tagAttributeRange(tag, range.length, "STYLE");
  if (!style.found()) return std::nullopt;
  const std::u16string_view value(tag + style.location, style.length);
  constexpr auto npos = std::u16string_view::npos;
  if (findNoCase(value, u"BACKGROUND:") == npos &&
      findNoCase(value, u"BACKGROUND-IMAGE:") == npos) {
    return std::nullopt;
  }
  if (findNoCase(value, u"NO-REPEAT") == npos) return std::nullopt;
  const std::size_t url = findNoCase(value, u"URL(");
  if (url == npos) return std::nullopt;
  std::size_t first = url + 4;
  std::size_t last = value.find(u')', first);
  if (last == npos) return std::nullopt;
  while (last - first >= 2 && value[first] == u'\'' && value[last - 1] == u'\'') {
    ++first;
    --last;
  }
  return std::u16string(value.substr(first, last - first));
}

std::optional<std::u16string> backgroundStyleURLOfTagCharacters(const char16_t* characters,
                                                                std::size_t length) {
  return backgroundStyleURLOfTagCharacters(characters, Range{0, length});
}

}  // namespace ferncast
