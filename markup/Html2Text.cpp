#include "markup/Html2Text.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "markup/chartables/CharacterTables.h"
#include "markup/Entities.h"
#include "markup/chartables/NSString+QuillCompare.h"
#include "markup/XmlExtensions.h"

namespace ferncast {
namespace {

// Text is written only while the body depth is positive; without only-body it starts so high
// that no page can bring it down to zero.
constexpr int kWholeDocumentDepth = 0x3FFFFFFF;

// The search-appliance flags of "<!-- googleoff: ... -->" and "<!-- googleon: ... -->".
constexpr unsigned kIndexFlag = 1, kSnippetFlag = 2, kAnchorFlag = 4, kAllFlags = 7;

// The junk limits, in code units.
constexpr std::size_t kMaxTextSinceBreak = 20000;
constexpr std::size_t kMaxTrimmedRun = 10000;
constexpr std::size_t kMaxLinkOrHeadingRun = 3500;
constexpr std::size_t kJunkTestMinimum = 99;

// The elements the handlers tell apart, by name.
enum class Element : unsigned char {
  kOther,
  kBody,
  kHead,
  kNoframes,
  kNoscript,
  kParagraph,    // p: two line feeds
  kLine,         // br dd dt li: one line feed
  kList,         // dl ol ul: one line feed
  kRule,         // hr: two line feeds
  kBlock,        // div table blockquote: two line feeds
  kHeading,      // h1...h9: two line feeds; a heading for the junk limits
  kCell,         // td th: a space between cells; trimmed text
  kRow,          // tr: a line feed
  kInlineBreak,  // code cite: a space
  kAnchor,       // a
  kImage,        // img
  kTitle,        // title: trimmed text
  kControl,      // option button label: trimmed text
  kFont,         // font: may hide text in the background colour
  kContainer,    // span section aside header footer nav form: may be boilerplate
};

bool equalsAscii(const char* lower, std::size_t length, const char* name) {
  return std::strlen(name) == length && std::memcmp(lower, name, length) == 0;
}

Element classify(const char16_t* name, std::size_t length) {
  if (length > 10) return Element::kOther;
  char lower[10];
  for (std::size_t i = 0; i < length; ++i) {
    char16_t c = name[i];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    lower[i] = c < 128 ? static_cast<char>(c) : '\0';
  }
  const char* s = lower;
  switch (length) {
    case 1:
      if (s[0] == 'p') return Element::kParagraph;
      if (s[0] == 'a') return Element::kAnchor;
      return Element::kOther;
    case 2:
      if (s[0] == 'h' && s[1] >= '0' && s[1] <= '9') return Element::kHeading;
      if (equalsAscii(s, 2, "br") || equalsAscii(s, 2, "li") || equalsAscii(s, 2, "dd") ||
          equalsAscii(s, 2, "dt")) {
        return Element::kLine;
      }
      if (equalsAscii(s, 2, "ul") || equalsAscii(s, 2, "ol") || equalsAscii(s, 2, "dl")) {
        return Element::kList;
      }
      if (equalsAscii(s, 2, "td") || equalsAscii(s, 2, "th")) return Element::kCell;
      if (equalsAscii(s, 2, "tr")) return Element::kRow;
      if (equalsAscii(s, 2, "hr")) return Element::kRule;
      return Element::kOther;
    case 3:
      if (equalsAscii(s, 3, "div")) return Element::kBlock;
      if (equalsAscii(s, 3, "img")) return Element::kImage;
      if (equalsAscii(s, 3, "nav")) return Element::kContainer;
      return Element::kOther;
    case 4:
      if (equalsAscii(s, 4, "body")) return Element::kBody;
      if (equalsAscii(s, 4, "head")) return Element::kHead;
      if (equalsAscii(s, 4, "code") || equalsAscii(s, 4, "cite")) return Element::kInlineBreak;
      if (equalsAscii(s, 4, "font")) return Element::kFont;
      if (equalsAscii(s, 4, "span") || equalsAscii(s, 4, "form")) return Element::kContainer;
      return Element::kOther;
    case 5:
      if (equalsAscii(s, 5, "table")) return Element::kBlock;
      if (equalsAscii(s, 5, "title")) return Element::kTitle;
      if (equalsAscii(s, 5, "label")) return Element::kControl;
      if (equalsAscii(s, 5, "aside")) return Element::kContainer;
      return Element::kOther;
    case 6:
      if (equalsAscii(s, 6, "option") || equalsAscii(s, 6, "button")) return Element::kControl;
      if (equalsAscii(s, 6, "footer") || equalsAscii(s, 6, "header")) return Element::kContainer;
      return Element::kOther;
    case 7:
      if (equalsAscii(s, 7, "section")) return Element::kContainer;
      return Element::kOther;
    case 8:
      if (equalsAscii(s, 8, "noframes")) return Element::kNoframes;
      if (equalsAscii(s, 8, "noscript")) return Element::kNoscript;
      return Element::kOther;
    case 10:
      if (equalsAscii(s, 10, "blockquote")) return Element::kBlock;
      return Element::kOther;
    default:
      return Element::kOther;
  }
}

// Boilerplate by class: a CLASS token, or one of its parts between "-" and "_", naming one of
// these marks navigation, footers, cookie banners, share bars and comment sections. Whole
// tokens and parts only, so that "commentary" or "unavailable" do not match.
constexpr const char* kBoilerplateClassNames[] = {
    "nav",     "navbar",  "navigation", "menu",    "breadcrumb", "breadcrumbs", "footer",  "cookie",
    "cookies", "consent", "share",      "sharing", "social",     "comments",    "comment",
};

bool isBoilerplateWord(const char16_t* word, std::size_t length) {
  if (length == 0 || length > 11) return false;
  char lower[11];
  for (std::size_t i = 0; i < length; ++i) {
    char16_t c = word[i];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    lower[i] = c < 128 ? static_cast<char>(c) : '\0';
  }
  for (const char* name : kBoilerplateClassNames) {
    if (equalsAscii(lower, length, name)) return true;
  }
  return false;
}

bool isBoilerplateClass(const char16_t* value, std::size_t length, const std::uint8_t* whiteSet) {
  std::size_t start = 0;
  for (std::size_t i = 0; i <= length; ++i) {
    char16_t c = i < length ? value[i] : u' ';
    if (c == u'-' || c == u'_' || characterIsMember(whiteSet, c)) {
      if (isBoilerplateWord(value + start, i - start)) return true;
      start = i + 1;
    }
  }
  return false;
}

// Colours compare without a leading "#" and ignoring case, so "#FFFFFF" hides text on "#ffffff".
bool sameColour(const char16_t* a, Range ra, const char16_t* b, Range rb) {
  const char16_t* p = a + ra.location;
  const char16_t* q = b + rb.location;
  std::size_t m = ra.length, n = rb.length;
  if (m > 0 && *p == u'#') ++p, --m;
  if (n > 0 && *q == u'#') ++q, --n;
  return m == n && m > 0 && equalsNoCase({p, m}, std::u16string_view(q, n));
}

bool isLineEnd(char16_t c) {
  switch (c) {
    case u'\n':
    case u'\r':
    case u'\f':
    case u'\x03':
    case u'\u2028':
    case u'\u2029':
    case u'\uFFFC':
    case u'\uFEFF':
      return true;
    default:
      return false;
  }
}

struct Context {
  // The output buffer: [buffer, write) holds the text so far; `limit` is its end.
  char16_t* buffer;
  char16_t* write;
  char16_t* limit;
  char16_t* lastBreak;  // just after the last line break written (or the buffer start)

  bool entities, stdEntities, nonUmlauted, reformat;
  bool removeJunk, googleTags, imageAlts;
  int bodyDepth;
  bool textWritten = false;
  bool junkWarning = false;
  unsigned searchApplianceFlags = kAllFlags;
  bool textSinceBreak = false;
  bool pendingSpace = false;

  // Per-element flags, cleared by "body".
  bool inTrimmedText = false;
  bool inNoframes = false;
  bool inNoscript = false;
  bool inLink = false;
  // The element judged to be junk: its name in the scanned characters and how many elements of
  // that name are open inside it, itself included.
  bool inJunk = false;
  const char16_t* junkName = nullptr;
  std::size_t junkNameLength = 0;
  int junkNesting = 0;

  int linkOrHeadingDepth = 0;
  // The BGCOLOR value of the body tag, in `bodyCharacters`.
  const char16_t* bodyCharacters = nullptr;
  Range backgroundColour;

  const std::uint8_t* whiteSet;
  const std::uint8_t* alphaNumSet;

  // Printable ASCII, most of any page, is answered without the bitmap.
  bool isWhite(char16_t c) const {
    return (c <= u' ' || c >= 0x7F) && characterIsMember(whiteSet, c);
  }
  bool lastIsWhite() const { return write == buffer || isWhite(write[-1]); }

  void clearElementFlags() {
    inTrimmedText = inNoframes = inNoscript = inLink = inJunk = false;
    junkNesting = 0;
  }

  // Discards the text since the last line break when it has grown beyond reason.
  void dropRunawayLine() {
    if (removeJunk && static_cast<std::size_t>(write - lastBreak) > kMaxTextSinceBreak) {
      write = lastBreak;
      textSinceBreak = false;
      junkWarning = true;
    }
  }

  void writeSpace() {
    if (!lastIsWhite()) *write++ = u' ';
  }

  // Ends the line with `count` (1 or 2) line feeds in all, none at the very start, and no space
  // before them.
  void writeBreak(int count) {
    dropRunawayLine();
    while (write > buffer && write[-1] == u' ')
      --write;
    if (write == buffer) return;
    int present = write[-1] != u'\n' ? 0 : (write - buffer >= 2 && write[-2] == u'\n') ? 2 : 1;
    for (; present < count; ++present)
      *write++ = u'\n';
    lastBreak = write;
    textSinceBreak = false;
  }
};

// The run with its entities decoded and its accents folded by the context's options: the run
// itself when that changes nothing, else a copy in `scratch`. `length` becomes the new length.
const char16_t* decodeRun(const Context& c, const char16_t* run, std::size_t& length,
                          char16_t* scratch) {
  const bool decode = length >= 4 && (c.entities || c.stdEntities) &&
                      std::u16string_view(run, length).find(u'&') != std::u16string_view::npos;
  if (!decode && !c.nonUmlauted) return run;
  if (decode && c.entities) {
    length =
        convertEntities2Characters(run, scratch, 0, length, c.stdEntities, false, c.nonUmlauted);
    return scratch;
  }
  if (c.nonUmlauted) {
    const char16_t* umlauts = initUmlautsCharsTable();
    for (std::size_t i = 0; i < length; ++i)
      scratch[i] = umlauts[run[i]];
  } else {
    std::memcpy(scratch, run, length * sizeof(char16_t));
  }
  if (decode) length = convertStdEntities2Characters(scratch, length);
  return scratch;
}

// Copies the decoded run s[0, n), which begins and ends with non-white code units, to the output
// (which never overtakes it), every white-space run becoming one space.
void writeCollapsed(Context& c, const char16_t* s, std::size_t n) {
  char16_t* w = c.write;
  std::size_t i = 0;
  while (i < n) {
    if (!c.isWhite(s[i])) {
      *w++ = s[i++];
      continue;
    }
    while (c.isWhite(s[i]))
      ++i;
    *w++ = u' ';
  }
  c.write = w;
}

// White space between words when the line structure is kept: several line ends make a paragraph
// break, one line end a line feed before a line that starts with a space, "-", "/", ">" or "}"
// (indented, listed, quoted or code lines), anything else a space.
void writeGap(Context& c, int lineEnds, char16_t next) {
  if (lineEnds >= 2) {
    c.writeBreak(2);
  } else if (lineEnds == 1 &&
             (next == u' ' || next == u'-' || next == u'/' || next == u'>' || next == u'}')) {
    c.writeBreak(1);
  } else {
    c.writeSpace();
  }
}

// Copies the decoded run s[0, n), which holds a non-white code unit, keeping its line structure.
// Trailing white space is left pending (or, with a blank line in it, written as a paragraph
// break).
void writeReformatted(Context& c, const char16_t* s, std::size_t n) {
  std::size_t i = 0;
  while (i < n) {
    if (!c.isWhite(s[i])) {
      *c.write++ = s[i++];
      continue;
    }
    int lineEnds = 0;
    std::size_t afterLineEnd = n;
    for (; i < n && c.isWhite(s[i]); ++i) {
      if (!isLineEnd(s[i])) continue;
      if (!(s[i] == u'\n' && i > 0 && s[i - 1] == u'\r')) ++lineEnds;  // CR LF counts once
      afterLineEnd = i + 1;
    }
    if (i == n) {
      if (lineEnds >= 2) c.writeBreak(2);
      c.pendingSpace = lineEnds < 2;
      return;
    }
    writeGap(c, lineEnds, afterLineEnd < n ? s[afterLineEnd] : u'\0');
  }
  c.pendingSpace = false;
}

// Writes one run of text from the scanned characters.
void appendRangeToPlainText(Context& c, const char16_t* characters, std::size_t location,
                            std::size_t length) {
  if (c.removeJunk && ((c.inTrimmedText && length > kMaxTrimmedRun) ||
                       (c.linkOrHeadingDepth > 0 && length > kMaxLinkOrHeadingRun))) {
    c.junkWarning = true;
    return;
  }
  const char16_t* run = characters + location;
  std::size_t start = 0;
  while (start < length && c.isWhite(run[start]))
    ++start;
  if (start < length) {
    // A run to decode is decoded just past the write position, leaving room for a separating
    // space. The text written from it never overtakes it: a code unit gives at most one, a
    // white-space run at most as many as it has. The buffer holds four code units per input code
    // unit and the text needs at most two, so the check below never fails.
    char16_t* scratch = c.write + 1;
    if (length > static_cast<std::size_t>(c.limit - scratch)) return;
    run = decodeRun(c, run, length, scratch);
    start = 0;
    while (start < length && c.isWhite(run[start]))
      ++start;
  }
  const char16_t* s = run;
  const std::size_t n = length;
  if (start == n) {
    // Only white space: it separates words, except inside a trimmed-text element.
    if (n > 0 && !c.inTrimmedText) c.pendingSpace = true;
    return;
  }
  if (c.reformat && !c.inTrimmedText) {
    if (start == 0 && c.pendingSpace) c.writeSpace();
    writeReformatted(c, s, n);
  } else {
    if (start > 0 || c.pendingSpace) c.writeSpace();
    std::size_t end = n;
    while (c.isWhite(s[end - 1]))
      --end;
    writeCollapsed(c, s + start, end - start);
    c.pendingSpace = end < n;
  }
  c.textWritten = true;
  c.textSinceBreak = true;
  c.dropRunawayLine();
}

// Text inside an element judged to be junk is not written; a long run of it that is mostly made
// of long runs of separators (spacing, rules, punctuation) marks the page as junk.
void testJunkRun(Context& c, const char16_t* characters, std::size_t location, std::size_t length) {
  if (length <= kJunkTestMinimum) return;
  char16_t* s = c.write + 1;
  if (length > static_cast<std::size_t>(c.limit - s)) return;
  std::size_t n =
      convertEntities2Characters(characters + location, s, 0, length, true, false, false);
  std::size_t start = 0, end = n;
  while (start < end && c.isWhite(s[start]))
    ++start;
  while (end > start && c.isWhite(s[end - 1]))
    --end;
  if (end - start <= kJunkTestMinimum) return;
  std::size_t runs = 0, separators = 0;
  bool inRun = false;
  for (std::size_t i = start; i < end; ++i) {
    bool separator = !characterIsMember(c.alphaNumSet, s[i]);
    if (separator) {
      ++separators;
      if (!inRun) ++runs;
    }
    inRun = separator;
  }
  if (runs > 4 && separators > 5 * runs) c.junkWarning = true;
}

void obeySearchApplianceComment(Context& c, const char16_t* comment, std::size_t length) {
  bool off = containsNoCase({comment, length}, "googleoff:");
  if (!off && !containsNoCase({comment, length}, "googleon:")) return;
  unsigned flags = 0;
  if (containsNoCase({comment, length}, "all")) {
    flags = kAllFlags;
  } else {
    if (containsNoCase({comment, length}, "index")) flags |= kIndexFlag;
    if (containsNoCase({comment, length}, "snippet")) flags |= kSnippetFlag;
    if (containsNoCase({comment, length}, "anchor")) flags |= kAnchorFlag;
  }
  if (off) {
    c.searchApplianceFlags &= ~flags;
  } else {
    c.searchApplianceFlags |= flags;
  }
}

bool isSuppressed(const Context& c) {
  return c.inNoframes || c.inNoscript || c.inJunk ||
         (c.googleTags && (!(c.searchApplianceFlags & kIndexFlag) ||
                           (c.inLink && !(c.searchApplianceFlags & kAnchorFlag))));
}

// Follows the element judged to be junk: nested elements of its name, and its end.
void trackJunkElement(Context& c, const char16_t* name, std::size_t nameLength, bool isEnd,
                      bool selfClosing) {
  if (selfClosing || !equalsNoCase({name, nameLength}, {c.junkName, c.junkNameLength})) return;
  c.junkNesting += isEnd ? -1 : 1;
  if (c.junkNesting <= 0) c.inJunk = false;
}

// Judges an opening tag: boilerplate by its class (or, for nav, by itself), or text in the
// background colour.
void judgeJunkElement(Context& c, const char16_t* characters, Element element, Range tag,
                      std::size_t nameLocation, std::size_t nameLength) {
  bool junk = false;
  if (element == Element::kFont) {
    if (c.backgroundColour.found()) {
      Range colour = rangeOfAttributeOfTagCharacters(characters, tag, "COLOR");
      junk = colour.found() && sameColour(characters, colour, c.bodyCharacters, c.backgroundColour);
    }
  } else if (nameLength == 3 && toLower(characters[nameLocation]) == u'n') {
    junk = true;  // <nav>
  } else {
    Range value = rangeOfAttributeOfTagCharacters(characters, tag, "CLASS");
    junk =
        value.found() && isBoilerplateClass(characters + value.location, value.length, c.whiteSet);
  }
  if (junk) {
    c.inJunk = true;
    c.junkName = characters + nameLocation;
    c.junkNameLength = nameLength;
    c.junkNesting = 1;
  }
}

bool PlainTextHandler(std::u16string_view string, char16_t* characters, std::size_t nameLocation,
                      std::size_t nameLength, std::size_t tagLocation, std::size_t tagLength,
                      std::size_t textLocation, TagKind kind, void* context) {
  Context& c = *static_cast<Context*>(context);
  tagLength = std::min(tagLength, string.size() - tagLocation);

  Element element = Element::kOther;
  bool isEnd = false, selfClosing = false;
  if (kind == TagKind::kTag && nameLength > 0 && tagLength >= 3) {
    element = classify(characters + nameLocation, nameLength);
    isEnd = characters[tagLocation + 1] == u'/';
    selfClosing = !isEnd && characters[tagLocation + tagLength - 2] == u'/';
  }

  // The text before the construct.
  if (c.bodyDepth > 0 && tagLocation > textLocation) {
    if (c.inJunk) {
      testJunkRun(c, characters, textLocation, tagLocation - textLocation);
    } else if (!isSuppressed(c) && !(c.removeJunk && element == Element::kTitle)) {
      appendRangeToPlainText(c, characters, textLocation, tagLocation - textLocation);
    }
  }

  if (kind == TagKind::kComment) {
    if (c.googleTags && tagLength > 18) {
      obeySearchApplianceComment(c, characters + tagLocation, tagLength);
    }
    return false;
  }
  if (element == Element::kOther) return false;

  // Structure, at any depth.
  if (!selfClosing) {
    int step = isEnd ? -1 : 1;
    switch (element) {
      case Element::kBody:
        c.bodyDepth += step;
        c.clearElementFlags();
        if (!isEnd) {
          c.bodyCharacters = characters;
          c.backgroundColour =
              rangeOfAttributeOfTagCharacters(characters, Range{tagLocation, tagLength}, "BGCOLOR");
        }
        return false;
      case Element::kHead:
        c.bodyDepth -= step;
        return false;
      case Element::kNoframes:
        c.bodyDepth += step;
        c.inNoframes = !isEnd;
        return false;
      case Element::kNoscript:
        c.bodyDepth += step;
        c.inNoscript = !isEnd;
        return false;
      default:
        break;
    }
  }
  if (c.bodyDepth < 1) return false;

  // Elements that change how the text inside them is treated.
  if (c.inJunk) {
    trackJunkElement(c, characters + nameLocation, nameLength, isEnd, selfClosing);
  } else if (c.removeJunk && !isEnd && !selfClosing &&
             (element == Element::kBlock || element == Element::kList ||
              element == Element::kContainer || element == Element::kFont)) {
    // Only elements whose end tag is never left out, so that the junk is sure to end.
    judgeJunkElement(c, characters, element, Range{tagLocation, tagLength}, nameLocation,
                     nameLength);
  }
  switch (element) {
    case Element::kAnchor:
    case Element::kHeading:
      if (!selfClosing) {
        c.linkOrHeadingDepth = std::max(0, c.linkOrHeadingDepth + (isEnd ? -1 : 1));
        if (element == Element::kAnchor) c.inLink = !isEnd;
      }
      break;
    case Element::kCell:
    case Element::kTitle:
    case Element::kControl:
      if (!selfClosing) c.inTrimmedText = !isEnd;
      break;
    default:
      break;
  }

  // Line layout.
  switch (element) {
    case Element::kParagraph:
    case Element::kBlock:
    case Element::kRule:
    case Element::kHeading:
      if (c.textSinceBreak) c.writeBreak(2);
      break;
    case Element::kLine:
    case Element::kList:
      if (c.textSinceBreak) c.writeBreak(1);
      break;
    case Element::kCell:
      if (!isEnd) c.writeSpace();
      break;
    case Element::kRow:
      if (!isEnd) c.writeBreak(1);
      break;
    case Element::kInlineBreak:
      if (c.textSinceBreak) c.writeSpace();
      break;
    case Element::kImage:
      if (c.imageAlts && !isEnd && !isSuppressed(c)) {
        Range tag{tagLocation, tagLength};
        Range alt = rangeOfAttributeOfTagCharacters(characters, tag, "ALT");
        if (!alt.found()) alt = rangeOfAttributeOfTagCharacters(characters, tag, "TITLE");
        if (alt.found()) {
          // The alternative text stands as a word of its own.
          c.pendingSpace = true;
          appendRangeToPlainText(c, characters, alt.location, alt.length);
          c.pendingSpace = true;
        }
      }
      break;
    default:
      break;
  }
  return false;
}

bool SimplePlainTextHandler(std::u16string_view string, char16_t* characters,
                            std::size_t nameLocation, std::size_t nameLength,
                            std::size_t tagLocation, std::size_t tagLength,
                            std::size_t textLocation, TagKind kind, void* context) {
  Context& c = *static_cast<Context*>(context);
  if (c.bodyDepth > 0 && tagLocation > textLocation) {
    std::size_t length = tagLocation - textLocation;
    if (c.write != c.buffer) *c.write++ = u' ';
    if (length >= 4) {
      c.write += convertEntities2Characters(characters + textLocation, c.write, 0, length, true,
                                            false, false);
    } else {
      std::memcpy(c.write, characters + textLocation, length * sizeof(char16_t));
      c.write += length;
    }
    c.textWritten = true;
  }
  tagLength = std::min(tagLength, string.size() - tagLocation);
  if (kind != TagKind::kTag || nameLength == 0 || tagLength < 3) return false;
  bool isEnd = characters[tagLocation + 1] == u'/';
  if (!isEnd && characters[tagLocation + tagLength - 2] == u'/') return false;
  int step = isEnd ? -1 : 1;
  switch (classify(characters + nameLocation, nameLength)) {
    case Element::kBody:
    case Element::kNoframes:
      c.bodyDepth += step;
      break;
    case Element::kHead:
      c.bodyDepth -= step;
      break;
    default:
      break;
  }
  return false;
}

struct Options {
  bool entities, stdEntities, nonUmlauted, reformat, onlyBody, removeJunk, googleTags, imageAlts;
};

void resetContext(Context& c, char16_t* buffer, std::size_t capacity, const Options& o,
                  bool onlyBody) {
  c = Context{};
  c.buffer = c.write = c.lastBreak = buffer;
  c.limit = buffer + capacity;
  c.entities = o.entities;
  c.stdEntities = o.stdEntities;
  c.nonUmlauted = o.nonUmlauted;
  c.reformat = o.reformat;
  c.removeJunk = o.removeJunk;
  c.googleTags = o.googleTags;
  c.imageAlts = o.imageAlts;
  c.bodyDepth = onlyBody ? 0 : kWholeDocumentDepth;
  c.whiteSet = whiteCharacterSetRep();
  c.alphaNumSet = alphaNumCharacterSetRep();
}

struct FreeDeleter {
  void operator()(char16_t* p) const { std::free(p); }
};

std::u16string convertHtml2PlainTextUsingHandler(std::u16string_view html, TagHandler handler,
                                                 const Options& options, bool* junkWarning) {
  if (junkWarning) *junkWarning = false;
  // Four output code units per input code unit; a buffer of 2 GB or more is refused.
  constexpr std::size_t kMaxBufferBytes = 0x7FFFFFFF;
  if (html.empty() || html.size() >= kMaxBufferBytes / 8) return std::u16string(html);
  std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  std::size_t bytes = (html.size() * 8 + page - 1) / page * page;
  // malloc maps a large buffer lazily: only the pages the text reaches are ever touched.
  std::unique_ptr<char16_t, FreeDeleter> buffer(static_cast<char16_t*>(std::malloc(bytes)));
  if (!buffer) return std::u16string(html);

  std::size_t capacity = bytes / sizeof(char16_t);
  Context c;
  resetContext(c, buffer.get(), capacity, options, options.onlyBody);
  // Entities are decoded straight into the output buffer, so the scan needs no private copy.
  bool scanned = parseXmlWithHandler(html, handler, &c, false);
  if (scanned && options.onlyBody && !c.textWritten) {
    resetContext(c, buffer.get(), capacity, options, false);
    parseXmlWithHandler(html, handler, &c, false);
  }
  if (!c.textWritten) return std::u16string(html);
  if (handler == PlainTextHandler) {
    while (c.write > c.buffer && c.isWhite(c.write[-1]))
      --c.write;
  }
  if (junkWarning) *junkWarning = c.junkWarning;
  return std::u16string(c.buffer, c.write);
}

}  // namespace

std::u16string stringByConvertingHtml2PlainText(std::u16string_view html) {
  return convertHtml2PlainTextUsingHandler(
      html, PlainTextHandler, {true, true, false, false, false, false, false, true}, nullptr);
}

std::u16string stringByConvertingHtml2ReformattedPlainText(std::u16string_view html) {
  return convertHtml2PlainTextUsingHandler(
      html, PlainTextHandler, {true, true, false, true, false, false, false, true}, nullptr);
}

std::u16string stringByConvertingHtml2PlainTextNonUmlauted(std::u16string_view html,
                                                           bool nonUmlauted) {
  return convertHtml2PlainTextUsingHandler(
      html, PlainTextHandler, {true, true, nonUmlauted, false, false, false, false, true}, nullptr);
}

std::u16string stringByConvertingHtml2PlainTextNonUmlauted(std::u16string_view html,
                                                           bool nonUmlauted, bool reformat,
                                                           bool onlyBody, bool googleTags) {
  return convertHtml2PlainTextUsingHandler(
      html, PlainTextHandler,
      {true, true, nonUmlauted, reformat, onlyBody, false, googleTags, true}, nullptr);
}

std::u16string stringByConvertingHtml2PlainTextNonUmlauted(std::u16string_view html,
                                                           bool nonUmlauted, bool reformat,
                                                           bool onlyBody, bool googleTags,
                                                           bool imageAlts) {
  return convertHtml2PlainTextUsingHandler(
      html, PlainTextHandler,
      {true, true, nonUmlauted, reformat, onlyBody, false, googleTags, imageAlts}, nullptr);
}

std::u16string stringByConvertingHtml2PlainTextNonUmlauted(std::u16string_view html,
                                                           bool nonUmlauted, bool reformat,
                                                           bool onlyBody, bool removeJunk,
                                                           bool* junkWarning, bool googleTags,
                                                           bool imageAlts) {
  return convertHtml2PlainTextUsingHandler(
      html, PlainTextHandler,
      {true, true, nonUmlauted, reformat, onlyBody, removeJunk, googleTags, imageAlts},
      junkWarning);
}

std::u16string stringByConvertingHtml2PlainTextEntities(std::u16string_view html, bool entities,
                                                        bool stdEntities, bool nonUmlauted,
                                                        bool reformat, bool onlyBody,
                                                        bool removeJunk, bool* junkWarning,
                                                        bool googleTags, bool imageAlts) {
  return convertHtml2PlainTextUsingHandler(
      html, PlainTextHandler,
      {entities, stdEntities, nonUmlauted, reformat, onlyBody, removeJunk, googleTags, imageAlts},
      junkWarning);
}

std::u16string stringByConvertingHtml2SimplifiedPlainText(std::u16string_view html) {
  return convertHtml2PlainTextUsingHandler(
      html, SimplePlainTextHandler, {true, true, false, false, true, false, false, true}, nullptr);
}

}  // namespace ferncast
