// The RTF reader: one pass over the bytes with a stack of group states. Text goes to the current
// destination (the document body, a font or colour table, an \info field, a field instruction,
// picture data, an attachment name); groups the reader does not know are skipped whole by a
// scan that only counts braces.
#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <map>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Classes/NSString+Encoding.h"
#include "Classes/Unicode.h"
#include "webcontent/documents/CodePages.h"
#include "webcontent/documents/RTF.h"

namespace ferncast {
namespace {

constexpr int kMaxTabs = 32;
constexpr int kMaxListLevel = 8;

enum class Destination : std::uint8_t {
  kBody,
  kFontTable,
  kColorTable,
  kInfo,
  kInfoText,
  kInfoTime,
  kFieldInstruction,
  kPicture,
  kNeXTGraphic,
  kListTable,
  kList,
  kListLevel,
  kLevelMarker,
  kListOverrideTable,
  kListOverride,
};

// The document attributes the \info fields fill.
enum class InfoField : std::uint8_t {
  kNone,
  kTitle,
  kSubject,
  kAuthor,
  kKeywords,
  kComment,
  kEditor,
  kCompany,
  kCopyright,
  kCreationTime,
  kModificationTime,
};

struct CharFormat {
  int font = -1;  // -1: the default font (\deff)
  int halfPoints = 24;
  int foreground = 0;  // colour table index; 0 is the automatic colour
  int background = 0;
  int up = 0;     // half-points, \up and \dn
  int link = -1;  // index of the field's URL
  std::int8_t superscript = 0;
  UnderlineStyle underline = UnderlineStyle::kNone;
  bool bold = false;
  bool italic = false;
  bool strikethrough = false;
  bool hidden = false;
  bool operator==(const CharFormat&) const = default;
};

struct Tab {
  int position = 0;
  TabAlignment alignment = TabAlignment::kLeft;
  bool operator==(const Tab&) const = default;
};

// Lengths in twips; unused tabs stay zero so that == compares only what was set.
struct ParaFormat {
  TextAlignment alignment = TextAlignment::kNatural;
  int firstIndent = 0;  // relative to the left indent, as \fi is
  int leftIndent = 0;
  int rightIndent = 0;
  int spaceBefore = 0;
  int spaceAfter = 0;
  int lineSpacing = 0;
  bool lineMultiple = false;
  int leading = 0;
  int list = 0;
  int level = 0;
  int tabCount = 0;
  TabAlignment nextTabAlignment = TabAlignment::kLeft;
  std::array<Tab, kMaxTabs> tabs{};
  bool operator==(const ParaFormat&) const = default;
};

struct State {
  CharFormat chars;
  ParaFormat para;
  Destination destination = Destination::kBody;
  InfoField info = InfoField::kNone;
  int uc = 1;
  int codePage = kDefaultCodePage;
  // The group of a platform attachment: its own text (the 0xAC placeholder) is not shown.
  bool attachmentHolder = false;
};

enum class Word : std::uint8_t {
  kUnknown,
  // destinations
  kFontTable,
  kColorTable,
  kInfo,
  kTitle,
  kSubject,
  kAuthor,
  kKeywords,
  kDocComment,
  kOperator,
  kCompany,
  kCopyright,
  kCreationTime,
  kRevisionTime,
  kField,
  kFieldInstruction,
  kFieldResult,
  kPicture,
  kNeXTGraphic,
  kListTable,
  kList,
  kListLevel,
  kLevelMarker,
  kListOverrideTable,
  kListOverride,
  kBodyGroup,
  kSkipGroup,
  // document
  kAnsi,
  kMac,
  kPc,
  kPca,
  kAnsiCodePage,
  kDefaultFont,
  kCocoaRTF,
  kPaperWidth,
  kPaperHeight,
  kMarginLeft,
  kMarginRight,
  kMarginTop,
  kMarginBottom,
  kViewWidth,
  kViewHeight,
  kViewScale,
  kViewKind,
  kDefaultTab,
  // character formatting
  kPlain,
  kFont,
  kFontSize,
  kBold,
  kItalic,
  kUnderline,
  kUnderlineDouble,
  kUnderlineThick,
  kUnderlineNone,
  kStrike,
  kStrikeDouble,
  kForeground,
  kBackground,
  kSuperscript,
  kSubscript,
  kNoSuperSub,
  kUp,
  kDown,
  kHidden,
  // paragraph formatting
  kParagraphDefault,
  kAlignLeft,
  kAlignRight,
  kAlignCenter,
  kAlignJustified,
  kFirstIndent,
  kLeftIndent,
  kRightIndent,
  kSpaceBefore,
  kSpaceAfter,
  kLineSpacing,
  kLineMultiple,
  kLeading,
  kTab,
  kBarTab,
  kTabRight,
  kTabCenter,
  kTabDecimal,
  kListNumber,
  kListLevelNumber,
  // characters
  kPar,
  kLine,
  kTabCharacter,
  kPage,
  kSection,
  kCell,
  kRow,
  kEmDash,
  kEnDash,
  kBullet,
  kLeftQuote,
  kRightQuote,
  kLeftDoubleQuote,
  kRightDoubleQuote,
  kEmSpace,
  kEnSpace,
  kQuarterSpace,
  kZeroWidthJoiner,
  kZeroWidthNonJoiner,
  kLeftToRightMark,
  kRightToLeftMark,
  kUnicode,
  kUnicodeSkip,
  kBinary,
  // tables inside destinations
  kCharset,
  kCodePage,
  kRed,
  kGreen,
  kBlue,
  kYear,
  kMonth,
  kDay,
  kHour,
  kMinute,
  kSecond,
  kPNG,
  kJPEG,
  kOtherPicture,
  kPictureWidthGoal,
  kPictureHeightGoal,
  kWidth,
  kHeight,
  kListId,
  kLevelFormat,
  kLevelStart,
};

const std::unordered_map<std::string_view, Word>& words() {
  static const std::unordered_map<std::string_view, Word> table = {
      {"fonttbl", Word::kFontTable},
      {"colortbl", Word::kColorTable},
      {"info", Word::kInfo},
      {"title", Word::kTitle},
      {"subject", Word::kSubject},
      {"author", Word::kAuthor},
      {"keywords", Word::kKeywords},
      {"doccomm", Word::kDocComment},
      {"operator", Word::kOperator},
      {"company", Word::kCompany},
      {"copyright", Word::kCopyright},
      {"creatim", Word::kCreationTime},
      {"revtim", Word::kRevisionTime},
      {"field", Word::kField},
      {"fldinst", Word::kFieldInstruction},
      {"fldrslt", Word::kFieldResult},
      {"pict", Word::kPicture},
      {"shppict", Word::kBodyGroup},
      {"NeXTGraphic", Word::kNeXTGraphic},
      {"listtable", Word::kListTable},
      {"list", Word::kList},
      {"listlevel", Word::kListLevel},
      {"levelmarker", Word::kLevelMarker},
      {"listoverridetable", Word::kListOverrideTable},
      {"listoverride", Word::kListOverride},
      {"listtext", Word::kBodyGroup},
      {"pntext", Word::kBodyGroup},
      {"result", Word::kBodyGroup},
      {"shprslt", Word::kBodyGroup},
      {"object", Word::kBodyGroup},
      // Groups whose text is not document text.
      {"stylesheet", Word::kSkipGroup},
      {"header", Word::kSkipGroup},
      {"headerl", Word::kSkipGroup},
      {"headerr", Word::kSkipGroup},
      {"headerf", Word::kSkipGroup},
      {"footer", Word::kSkipGroup},
      {"footerl", Word::kSkipGroup},
      {"footerr", Word::kSkipGroup},
      {"footerf", Word::kSkipGroup},
      {"footnote", Word::kSkipGroup},
      {"nonshppict", Word::kSkipGroup},
      {"printim", Word::kSkipGroup},
      {"buptim", Word::kSkipGroup},
      {"comment", Word::kSkipGroup},
      {"manager", Word::kSkipGroup},
      {"category", Word::kSkipGroup},
      {"hlinkbase", Word::kSkipGroup},
      {"userprops", Word::kSkipGroup},
      {"revtbl", Word::kSkipGroup},
      {"filetbl", Word::kSkipGroup},
      {"listname", Word::kSkipGroup},
      {"leveltext", Word::kSkipGroup},
      {"levelnumbers", Word::kSkipGroup},
      {"txe", Word::kSkipGroup},
      {"xe", Word::kSkipGroup},
      {"tc", Word::kSkipGroup},
      {"tcn", Word::kSkipGroup},
      {"objdata", Word::kSkipGroup},
      {"shpinst", Word::kSkipGroup},
      {"do", Word::kSkipGroup},
      {"fldtype", Word::kSkipGroup},
      {"atnid", Word::kSkipGroup},
      {"atnauthor", Word::kSkipGroup},
      {"annotation", Word::kSkipGroup},
      {"pn", Word::kSkipGroup},
      {"xmlnstbl", Word::kSkipGroup},
      {"ansi", Word::kAnsi},
      {"mac", Word::kMac},
      {"pc", Word::kPc},
      {"pca", Word::kPca},
      {"ansicpg", Word::kAnsiCodePage},
      {"deff", Word::kDefaultFont},
      {"cocoartf", Word::kCocoaRTF},
      {"paperw", Word::kPaperWidth},
      {"paperh", Word::kPaperHeight},
      {"margl", Word::kMarginLeft},
      {"margr", Word::kMarginRight},
      {"margt", Word::kMarginTop},
      {"margb", Word::kMarginBottom},
      {"vieww", Word::kViewWidth},
      {"viewh", Word::kViewHeight},
      {"viewscale", Word::kViewScale},
      {"viewkind", Word::kViewKind},
      {"deftab", Word::kDefaultTab},
      {"plain", Word::kPlain},
      {"f", Word::kFont},
      {"fs", Word::kFontSize},
      {"b", Word::kBold},
      {"i", Word::kItalic},
      {"ul", Word::kUnderline},
      {"uld", Word::kUnderline},
      {"uldash", Word::kUnderline},
      {"uldashd", Word::kUnderline},
      {"uldashdd", Word::kUnderline},
      {"ulw", Word::kUnderline},
      {"ulwave", Word::kUnderline},
      {"ulhwave", Word::kUnderline},
      {"ulldash", Word::kUnderline},
      {"uldb", Word::kUnderlineDouble},
      {"ululdbwave", Word::kUnderlineDouble},
      {"ulth", Word::kUnderlineThick},
      {"ulthd", Word::kUnderlineThick},
      {"ulthdash", Word::kUnderlineThick},
      {"ulthdashd", Word::kUnderlineThick},
      {"ulthdashdd", Word::kUnderlineThick},
      {"ulthldash", Word::kUnderlineThick},
      {"ulnone", Word::kUnderlineNone},
      {"strike", Word::kStrike},
      {"striked", Word::kStrikeDouble},
      {"cf", Word::kForeground},
      {"cb", Word::kBackground},
      {"highlight", Word::kBackground},
      {"chcbpat", Word::kBackground},
      {"super", Word::kSuperscript},
      {"sub", Word::kSubscript},
      {"nosupersub", Word::kNoSuperSub},
      {"up", Word::kUp},
      {"dn", Word::kDown},
      {"v", Word::kHidden},
      {"pard", Word::kParagraphDefault},
      {"ql", Word::kAlignLeft},
      {"qr", Word::kAlignRight},
      {"qc", Word::kAlignCenter},
      {"qj", Word::kAlignJustified},
      {"qd", Word::kAlignJustified},
      {"fi", Word::kFirstIndent},
      {"li", Word::kLeftIndent},
      {"lin", Word::kLeftIndent},
      {"ri", Word::kRightIndent},
      {"rin", Word::kRightIndent},
      {"sb", Word::kSpaceBefore},
      {"sa", Word::kSpaceAfter},
      {"sl", Word::kLineSpacing},
      {"slmult", Word::kLineMultiple},
      {"slleading", Word::kLeading},
      {"tx", Word::kTab},
      {"tb", Word::kBarTab},
      {"tqr", Word::kTabRight},
      {"tqc", Word::kTabCenter},
      {"tqdec", Word::kTabDecimal},
      {"ls", Word::kListNumber},
      {"ilvl", Word::kListLevelNumber},
      {"par", Word::kPar},
      {"line", Word::kLine},
      {"tab", Word::kTabCharacter},
      {"page", Word::kPage},
      {"sect", Word::kSection},
      {"cell", Word::kCell},
      {"nestcell", Word::kCell},
      {"row", Word::kRow},
      {"nestrow", Word::kRow},
      {"emdash", Word::kEmDash},
      {"endash", Word::kEnDash},
      {"bullet", Word::kBullet},
      {"lquote", Word::kLeftQuote},
      {"rquote", Word::kRightQuote},
      {"ldblquote", Word::kLeftDoubleQuote},
      {"rdblquote", Word::kRightDoubleQuote},
      {"emspace", Word::kEmSpace},
      {"enspace", Word::kEnSpace},
      {"qmspace", Word::kQuarterSpace},
      {"zwj", Word::kZeroWidthJoiner},
      {"zwnj", Word::kZeroWidthNonJoiner},
      {"ltrmark", Word::kLeftToRightMark},
      {"rtlmark", Word::kRightToLeftMark},
      {"u", Word::kUnicode},
      {"uc", Word::kUnicodeSkip},
      {"bin", Word::kBinary},
      {"fcharset", Word::kCharset},
      {"cpg", Word::kCodePage},
      {"red", Word::kRed},
      {"green", Word::kGreen},
      {"blue", Word::kBlue},
      {"yr", Word::kYear},
      {"mo", Word::kMonth},
      {"dy", Word::kDay},
      {"hr", Word::kHour},
      {"min", Word::kMinute},
      {"sec", Word::kSecond},
      {"pngblip", Word::kPNG},
      {"jpegblip", Word::kJPEG},
      {"wmetafile", Word::kOtherPicture},
      {"emfblip", Word::kOtherPicture},
      {"macpict", Word::kOtherPicture},
      {"dibitmap", Word::kOtherPicture},
      {"wbitmap", Word::kOtherPicture},
      {"pmmetafile", Word::kOtherPicture},
      {"picwgoal", Word::kPictureWidthGoal},
      {"pichgoal", Word::kPictureHeightGoal},
      {"width", Word::kWidth},
      {"height", Word::kHeight},
      {"listid", Word::kListId},
      {"levelnfc", Word::kLevelFormat},
      {"levelstartat", Word::kLevelStart},
  };
  return table;
}

// Bytes that end a run of plain text.
constexpr std::array<bool, 256> kSpecial = [] {
  std::array<bool, 256> table{};
  for (unsigned char c : {'\\', '{', '}', '\r', '\n'})
    table[c] = true;
  return table;
}();

bool isAlpha(std::uint8_t c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(std::uint8_t c) {
  return c >= '0' && c <= '9';
}
int hexValue(std::uint8_t c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::u16string trimmed(std::u16string_view text) {
  const auto space = [](char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; };
  std::size_t begin = 0, end = text.size();
  while (begin < end && space(text[begin]))
    ++begin;
  while (end > begin && space(text[end - 1]))
    --end;
  return std::u16string(text.substr(begin, end - begin));
}

// The marker format of a list level's \levelnfc number.
std::u16string markerFormatOfNumbering(int nfc) {
  switch (nfc) {
    case 0:
      return u"{decimal}";
    case 1:
      return u"{upper-roman}";
    case 2:
      return u"{lower-roman}";
    case 3:
      return u"{upper-alpha}";
    case 4:
      return u"{lower-alpha}";
    default:
      return u"{disc}";
  }
}

// The URL of a HYPERLINK field instruction ("HYPERLINK \"http://x/\" \l \"part\""), or empty.
std::u16string hyperlinkOf(std::u16string_view instruction) {
  std::size_t at = instruction.find(u"HYPERLINK");
  if (at == std::u16string_view::npos) return {};
  std::u16string_view rest = instruction.substr(at + 9);
  std::u16string url, anchor;
  bool nextIsAnchor = false;
  std::size_t i = 0;
  while (i < rest.size()) {
    if (rest[i] == u' ' || rest[i] == u'\t') {
      ++i;
      continue;
    }
    std::u16string token;
    if (rest[i] == u'"') {
      const std::size_t close = rest.find(u'"', i + 1);
      const std::size_t stop = close == std::u16string_view::npos ? rest.size() : close;
      token = rest.substr(i + 1, stop - i - 1);
      i = stop + 1;
    } else {
      const std::size_t stop = std::min(rest.find(u' ', i), rest.size());
      token = rest.substr(i, stop - i);
      i = stop;
    }
    if (token == u"\\l") {
      nextIsAnchor = true;
    } else if (!token.empty() && token[0] == u'\\') {
      // another switch (\o "tip", \t "frame"): its argument is not the URL
      nextIsAnchor = false;
      if (token.size() == 2 && token[1] != u'l') {
        while (i < rest.size() && rest[i] == u' ')
          ++i;
        if (i < rest.size() && rest[i] == u'"') {
          const std::size_t close = rest.find(u'"', i + 1);
          i = close == std::u16string_view::npos ? rest.size() : close + 1;
        }
      }
    } else if (nextIsAnchor) {
      anchor = token;
      nextIsAnchor = false;
    } else if (url.empty()) {
      url = token;
    }
  }
  if (!anchor.empty()) url += u"#" + anchor;
  return url;
}

class Reader {
 public:
  Reader(std::span<const std::uint8_t> bytes, const FileWrapper* package)
      : p_(bytes.data()), end_(bytes.data() + bytes.size()), package_(package) {}

  AttributedString read(Dictionary* documentAttributes);

 private:
  State& state() { return states_.back(); }

  // ---- tokens ----
  void controlWord(std::string_view name, bool hasParameter, int parameter);
  void controlSymbol(std::uint8_t symbol);
  void beginGroup();
  void endGroup();
  void skipGroup();
  void setDestination(Destination destination);

  // ---- text ----
  void textBytes(const std::uint8_t* bytes, std::size_t length);
  void decodeBytes(const std::uint8_t* bytes, std::size_t length, int codePage);
  void flushPending();
  void emitText(std::u16string_view text);
  void emitBody(std::u16string_view text);
  void emitCharacter(char16_t c) { emitText(std::u16string_view(&c, 1)); }
  void flushChunk();
  void emitAttachment(std::shared_ptr<const FileWrapper> wrapper, double width, double height);
  const Attributes& attributesFor(const CharFormat& chars, const ParaFormat& para);
  int codePageOfFont(int font) const;
  int fontCodePage() const;

  // ---- destinations ----
  void finishDestination(const State& closing);
  void commitFont();
  void commitColor();
  void finishPicture();
  void finishNeXTGraphic();
  void finishDocumentAttributes(Dictionary& attributes);

  const std::uint8_t* p_;
  const std::uint8_t* end_;
  const FileWrapper* package_;
  std::vector<State> states_;
  std::size_t overflow_ = 0;  // groups opened past kMaxRTFDepth
  bool finished_ = false;
  bool ignorableNext_ = false;  // \* seen: the next control word's group is skipped unless known

  int documentCodePage_ = kDefaultCodePage;
  int defaultFont_ = -1;

  struct FontEntry {
    std::u16string name;
    int codePage;
  };
  std::map<int, FontEntry> fonts_;
  int fontNumber_ = -1;
  int fontCharset_ = -1;
  int fontCodePage_ = 0;
  std::u16string fontName_;

  std::vector<std::optional<Color>> colors_;
  Color color_;
  bool colorSet_ = false;

  std::vector<std::u16string> links_;

  struct ListDefinition {
    int id = 0;
    std::vector<TextList> levels;
  };
  std::vector<ListDefinition> lists_;
  std::map<int, int> listOfOverride_;  // \ls number -> \listid
  ListDefinition list_;
  TextList level_;
  int overrideListId_ = 0, overrideNumber_ = 0;

  // Body text gathered under one format before it goes to the string.
  AttributedString out_;
  std::u16string chunk_;
  CharFormat chunkChars_;
  ParaFormat chunkPara_;
  bool cached_ = false;
  CharFormat cachedChars_;
  ParaFormat cachedPara_;
  Attributes cachedAttributes_;
  bool pendingCell_ = false;

  // Bytes of a multi-byte code page waiting to be decoded together.
  std::string pending_;
  int pendingCodePage_ = 0;
  std::size_t skipBytes_ = 0;  // \uN fallback bytes still to skip
  CodePageDecoder decoder_;
  std::u16string scratch_;
  int tableCodePage_ = -1;
  const std::array<char16_t, 256>* table_ = nullptr;

  std::u16string text_;   // \info field, field instruction or level marker being read
  std::string raw_;       // picture bytes or attachment name
  int pictureHigh_ = -1;  // first hex digit of a picture byte
  int pictureKind_ = 0;   // 1 PNG, 2 JPEG, -1 another kind
  int pictureWidth_ = 0, pictureHeight_ = 0;  // twips
  int graphicWidth_ = 0, graphicHeight_ = 0;  // twips
  std::array<int, 6> time_{};                 // year, month, day, hour, minute, second
  std::unordered_map<std::u16string, std::shared_ptr<const FileWrapper>> packageFiles_;

  Dictionary info_;
  std::optional<int> cocoaVersion_;
  int paperWidth_ = -1, paperHeight_ = -1, viewWidth_ = -1, viewHeight_ = -1;
  std::array<int, 4> margins_{-1, -1, -1, -1};
  int viewScale_ = -1, viewKind_ = -1, defaultTab_ = -1;
};

AttributedString Reader::read(Dictionary* documentAttributes) {
  while (p_ < end_ && *p_ != '{')
    ++p_;
  while (p_ < end_ && !finished_) {
    const std::uint8_t c = *p_;
    if (c == '{') {
      ++p_;
      beginGroup();
    } else if (c == '}') {
      ++p_;
      endGroup();
    } else if (c == '\\') {
      if (p_ + 1 >= end_) break;
      const std::uint8_t next = p_[1];
      if (isAlpha(next)) {
        const std::uint8_t* start = p_ + 1;
        const std::uint8_t* q = start;
        while (q < end_ && isAlpha(*q))
          ++q;
        std::string_view name(reinterpret_cast<const char*>(start),
                              static_cast<std::size_t>(q - start));
        bool negative = false, hasParameter = false;
        long long value = 0;
        if (q < end_ && *q == '-' && q + 1 < end_ && isDigit(q[1])) {
          negative = true;
          ++q;
        }
        for (int digits = 0; q < end_ && isDigit(*q); ++q, ++digits) {
          hasParameter = true;
          if (digits < 10) value = value * 10 + (*q - '0');
        }
        if (q < end_ && *q == ' ') ++q;
        p_ = q;
        value = std::clamp(negative ? -value : value, -2147483647LL, 2147483647LL);
        controlWord(name, hasParameter, static_cast<int>(value));
      } else if (next == '\'') {
        if (p_ + 3 < end_ + 0 && hexValue(p_[2]) >= 0 && hexValue(p_[3]) >= 0) {
          const auto byte = static_cast<std::uint8_t>(hexValue(p_[2]) * 16 + hexValue(p_[3]));
          p_ += 4;
          textBytes(&byte, 1);
        } else {
          p_ += 2;
        }
      } else {
        p_ += 2;
        controlSymbol(next);
      }
    } else if (c == '\r' || c == '\n') {
      ++p_;
    } else {
      const std::uint8_t* start = p_;
      ++p_;
      while (p_ < end_ && !kSpecial[*p_])
        ++p_;
      textBytes(start, static_cast<std::size_t>(p_ - start));
    }
  }
  flushPending();
  flushChunk();
  if (documentAttributes) finishDocumentAttributes(*documentAttributes);
  return std::move(out_);
}

void Reader::beginGroup() {
  flushPending();
  skipBytes_ = 0;
  ignorableNext_ = false;
  if (states_.empty()) {
    states_.emplace_back();
    return;
  }
  if (states_.size() >= kMaxRTFDepth) {
    ++overflow_;
    return;
  }
  State copy = state();
  copy.attachmentHolder = false;
  states_.push_back(copy);
}

void Reader::endGroup() {
  flushPending();
  skipBytes_ = 0;
  ignorableNext_ = false;
  if (overflow_ > 0) {
    --overflow_;
    return;
  }
  if (states_.size() <= 1) {
    finished_ = true;
    return;
  }
  if (state().destination == Destination::kFontTable && !fontName_.empty()) commitFont();
  const State closing = state();
  states_.pop_back();
  if (closing.destination != state().destination) finishDestination(closing);
}

// Skips the rest of the current group, honouring escaped braces and \bin data, and closes it.
void Reader::skipGroup() {
  std::size_t depth = 1;
  while (p_ < end_) {
    const std::uint8_t c = *p_++;
    if (c == '{') {
      ++depth;
    } else if (c == '}') {
      if (--depth == 0) break;
    } else if (c == '\\' && p_ < end_) {
      if (end_ - p_ > 3 && std::memcmp(p_, "bin", 3) == 0 && isDigit(p_[3])) {
        p_ += 3;
        long long n = 0;
        while (p_ < end_ && isDigit(*p_))
          n = std::min(n * 10 + (*p_++ - '0'), 1LL << 40);
        if (p_ < end_ && *p_ == ' ') ++p_;
        p_ += std::min<long long>(n, end_ - p_);
      } else {
        ++p_;  // the escaped character, whatever it is
      }
    }
  }
  if (overflow_ > 0) {
    --overflow_;
  } else if (states_.size() > 1) {
    states_.pop_back();
  } else {
    finished_ = true;
  }
}

void Reader::setDestination(Destination destination) {
  State& s = state();
  if (s.destination != destination) {
    if (destination == Destination::kInfoText || destination == Destination::kFieldInstruction ||
        destination == Destination::kLevelMarker) {
      text_.clear();
    }
    if (destination == Destination::kPicture || destination == Destination::kNeXTGraphic) {
      raw_.clear();
      pictureHigh_ = -1;
      pictureKind_ = 0;
      pictureWidth_ = pictureHeight_ = 0;
      graphicWidth_ = graphicHeight_ = 0;
    }
    if (destination == Destination::kInfoTime) time_ = {};
    if (destination == Destination::kList) list_ = {};
    if (destination == Destination::kListLevel) level_ = {};
    if (destination == Destination::kListOverride) overrideListId_ = overrideNumber_ = 0;
  }
  s.destination = destination;
}

void Reader::controlSymbol(std::uint8_t symbol) {
  switch (symbol) {
    case '\\':
    case '{':
    case '}':
      textBytes(&symbol, 1);
      return;
    case '*':
      flushPending();
      ignorableNext_ = true;
      return;
    case '\n':
    case '\r':
      controlWord("par", false, 0);
      return;
    case '~':
      flushPending();
      emitCharacter(u'\u00A0');
      return;
    case '-':
      flushPending();
      emitCharacter(u'\u00AD');
      return;
    case '_':
      flushPending();
      emitCharacter(u'\u2011');
      return;
    default:
      return;
  }
}

void Reader::controlWord(std::string_view name, bool hasParameter, int parameter) {
  flushPending();
  if (states_.empty()) return;
  const auto found = words().find(name);
  const Word word = found == words().end() ? Word::kUnknown : found->second;
  const bool ignorable = ignorableNext_;
  ignorableNext_ = false;
  if (word != Word::kUnicode) skipBytes_ = 0;
  State& s = state();
  const bool on = !hasParameter || parameter != 0;
  const Destination destination = s.destination;

  switch (word) {
    case Word::kUnknown:
      if (ignorable) skipGroup();
      return;
    case Word::kSkipGroup:
      skipGroup();
      return;
    // ---- destinations ----
    case Word::kFontTable:
      setDestination(Destination::kFontTable);
      fontNumber_ = -1;
      return;
    case Word::kColorTable:
      setDestination(Destination::kColorTable);
      color_ = {};
      colorSet_ = false;
      return;
    case Word::kInfo:
      setDestination(Destination::kInfo);
      return;
    case Word::kTitle:
    case Word::kSubject:
    case Word::kAuthor:
    case Word::kKeywords:
    case Word::kDocComment:
    case Word::kOperator:
    case Word::kCompany:
    case Word::kCopyright: {
      if (destination != Destination::kInfo && destination != Destination::kInfoText) {
        if (ignorable || destination != Destination::kBody) skipGroup();
        return;
      }
      static constexpr std::pair<Word, InfoField> kFields[] = {
          {Word::kTitle, InfoField::kTitle},        {Word::kSubject, InfoField::kSubject},
          {Word::kAuthor, InfoField::kAuthor},      {Word::kKeywords, InfoField::kKeywords},
          {Word::kDocComment, InfoField::kComment}, {Word::kOperator, InfoField::kEditor},
          {Word::kCompany, InfoField::kCompany},    {Word::kCopyright, InfoField::kCopyright}};
      for (const auto& [w, field] : kFields) {
        if (w == word) s.info = field;
      }
      setDestination(Destination::kInfoText);
      return;
    }
    case Word::kCreationTime:
    case Word::kRevisionTime:
      if (destination != Destination::kInfo) {
        skipGroup();
        return;
      }
      s.info =
          word == Word::kCreationTime ? InfoField::kCreationTime : InfoField::kModificationTime;
      setDestination(Destination::kInfoTime);
      return;
    case Word::kField:
      return;
    case Word::kFieldInstruction:
      if (destination == Destination::kBody || destination == Destination::kFieldInstruction) {
        setDestination(Destination::kFieldInstruction);
      } else {
        skipGroup();
      }
      return;
    case Word::kFieldResult:
    case Word::kBodyGroup:
      // Groups of document text (list markers, field results, pictures of shapes, objects'
      // results): read where the document text is, skipped elsewhere.
      if (destination != Destination::kBody) skipGroup();
      return;
    case Word::kPicture:
      if (destination == Destination::kBody) {
        setDestination(Destination::kPicture);
      } else {
        skipGroup();
      }
      return;
    case Word::kNeXTGraphic:
      if (destination != Destination::kBody) {
        skipGroup();
        return;
      }
      setDestination(Destination::kNeXTGraphic);
      if (states_.size() >= 2) states_[states_.size() - 2].attachmentHolder = true;
      return;
    case Word::kListTable:
      setDestination(Destination::kListTable);
      return;
    case Word::kList:
      if (destination == Destination::kListTable) {
        setDestination(Destination::kList);
      } else {
        skipGroup();
      }
      return;
    case Word::kListLevel:
      if (destination == Destination::kList) {
        setDestination(Destination::kListLevel);
      } else {
        skipGroup();
      }
      return;
    case Word::kLevelMarker:
      if (destination == Destination::kListLevel) {
        setDestination(Destination::kLevelMarker);
      } else {
        skipGroup();
      }
      return;
    case Word::kListOverrideTable:
      setDestination(Destination::kListOverrideTable);
      return;
    case Word::kListOverride:
      if (destination == Destination::kListOverrideTable) {
        setDestination(Destination::kListOverride);
      } else {
        skipGroup();
      }
      return;
    default:
      break;
  }
  if (ignorable && destination == Destination::kBody) {
    // "\*" before a formatting word marks a group of optional settings: nothing to show.
    skipGroup();
    return;
  }

  switch (word) {
    // ---- document ----
    case Word::kAnsi:
      documentCodePage_ = s.codePage = kDefaultCodePage;
      return;
    case Word::kMac:
      documentCodePage_ = s.codePage = 10000;
      return;
    case Word::kPc:
      documentCodePage_ = s.codePage = 437;
      return;
    case Word::kPca:
      documentCodePage_ = s.codePage = 850;
      return;
    case Word::kAnsiCodePage:
      if (hasParameter && parameter > 0) documentCodePage_ = s.codePage = parameter;
      return;
    case Word::kDefaultFont:
      if (hasParameter) defaultFont_ = parameter;
      return;
    case Word::kCocoaRTF:
      if (hasParameter) cocoaVersion_ = parameter;
      return;
    case Word::kPaperWidth:
      paperWidth_ = parameter;
      return;
    case Word::kPaperHeight:
      paperHeight_ = parameter;
      return;
    case Word::kMarginLeft:
      margins_[0] = parameter;
      return;
    case Word::kMarginRight:
      margins_[1] = parameter;
      return;
    case Word::kMarginTop:
      margins_[2] = parameter;
      return;
    case Word::kMarginBottom:
      margins_[3] = parameter;
      return;
    case Word::kViewWidth:
      viewWidth_ = parameter;
      return;
    case Word::kViewHeight:
      viewHeight_ = parameter;
      return;
    case Word::kViewScale:
      viewScale_ = parameter;
      return;
    case Word::kViewKind:
      viewKind_ = parameter;
      return;
    case Word::kDefaultTab:
      defaultTab_ = parameter;
      return;

    // ---- font and colour tables, info times, pictures, lists ----
    case Word::kFont:
      if (destination == Destination::kFontTable) {
        if (!fontName_.empty()) commitFont();
        fontNumber_ = parameter;
        fontCharset_ = -1;
        fontCodePage_ = 0;
      } else if (hasParameter) {
        s.chars.font = parameter;
        s.codePage = codePageOfFont(parameter);
      }
      return;
    case Word::kCharset:
      if (destination == Destination::kFontTable) fontCharset_ = parameter;
      return;
    case Word::kCodePage:
      if (destination == Destination::kFontTable) fontCodePage_ = parameter;
      return;
    case Word::kRed:
    case Word::kGreen:
    case Word::kBlue: {
      const auto value = static_cast<std::uint8_t>(std::clamp(parameter, 0, 255));
      (word == Word::kRed ? color_.red : word == Word::kGreen ? color_.green : color_.blue) = value;
      colorSet_ = true;
      return;
    }
    case Word::kYear:
      time_[0] = parameter;
      return;
    case Word::kMonth:
      time_[1] = parameter;
      return;
    case Word::kDay:
      time_[2] = parameter;
      return;
    case Word::kHour:
      time_[3] = parameter;
      return;
    case Word::kMinute:
      time_[4] = parameter;
      return;
    case Word::kSecond:
      time_[5] = parameter;
      return;
    case Word::kPNG:
    case Word::kJPEG:
    case Word::kOtherPicture:
      if (destination == Destination::kPicture) {
        pictureKind_ = word == Word::kPNG ? 1 : word == Word::kJPEG ? 2 : -1;
      }
      return;
    case Word::kPictureWidthGoal:
      pictureWidth_ = parameter;
      return;
    case Word::kPictureHeightGoal:
      pictureHeight_ = parameter;
      return;
    case Word::kWidth:
      graphicWidth_ = parameter;
      return;
    case Word::kHeight:
      graphicHeight_ = parameter;
      return;
    case Word::kListId:
      if (destination == Destination::kList) list_.id = parameter;
      if (destination == Destination::kListOverride) overrideListId_ = parameter;
      return;
    case Word::kLevelFormat:
      if (destination == Destination::kListLevel && level_.markerFormat.empty()) {
        level_.markerFormat = markerFormatOfNumbering(parameter);
      }
      return;
    case Word::kLevelStart:
      if (destination == Destination::kListLevel) level_.startingItem = parameter;
      return;
    case Word::kListNumber:
      if (destination == Destination::kListOverride) {
        overrideNumber_ = parameter;
      } else {
        s.para.list = parameter;
      }
      return;

    // ---- character formatting ----
    case Word::kPlain: {
      s.chars = CharFormat();
      s.chars.font = defaultFont_;
      s.codePage = codePageOfFont(defaultFont_);
      return;
    }
    case Word::kFontSize:
      if (hasParameter) s.chars.halfPoints = std::clamp(parameter, 1, 3276);
      return;
    case Word::kBold:
      s.chars.bold = on;
      return;
    case Word::kItalic:
      s.chars.italic = on;
      return;
    case Word::kUnderline:
      s.chars.underline = on ? UnderlineStyle::kSingle : UnderlineStyle::kNone;
      return;
    case Word::kUnderlineDouble:
      s.chars.underline = on ? UnderlineStyle::kDouble : UnderlineStyle::kNone;
      return;
    case Word::kUnderlineThick:
      s.chars.underline = on ? UnderlineStyle::kThick : UnderlineStyle::kNone;
      return;
    case Word::kUnderlineNone:
      s.chars.underline = UnderlineStyle::kNone;
      return;
    case Word::kStrike:
    case Word::kStrikeDouble:
      s.chars.strikethrough = on;
      return;
    case Word::kForeground:
      s.chars.foreground = std::max(parameter, 0);
      return;
    case Word::kBackground:
      s.chars.background = std::max(parameter, 0);
      return;
    case Word::kSuperscript:
      s.chars.superscript = 1;
      return;
    case Word::kSubscript:
      s.chars.superscript = -1;
      return;
    case Word::kNoSuperSub:
      s.chars.superscript = 0;
      return;
    case Word::kUp:
      s.chars.up = hasParameter ? std::clamp(parameter, -3276, 3276) : 6;
      return;
    case Word::kDown:
      s.chars.up = -(hasParameter ? std::clamp(parameter, -3276, 3276) : 6);
      return;
    case Word::kHidden:
      s.chars.hidden = on;
      return;

    // ---- paragraph formatting ----
    case Word::kParagraphDefault:
      s.para = ParaFormat();
      return;
    case Word::kAlignLeft:
      s.para.alignment = TextAlignment::kLeft;
      return;
    case Word::kAlignRight:
      s.para.alignment = TextAlignment::kRight;
      return;
    case Word::kAlignCenter:
      s.para.alignment = TextAlignment::kCenter;
      return;
    case Word::kAlignJustified:
      s.para.alignment = TextAlignment::kJustified;
      return;
    case Word::kFirstIndent:
      s.para.firstIndent = parameter;
      return;
    case Word::kLeftIndent:
      s.para.leftIndent = parameter;
      return;
    case Word::kRightIndent:
      s.para.rightIndent = parameter;
      return;
    case Word::kSpaceBefore:
      s.para.spaceBefore = parameter;
      return;
    case Word::kSpaceAfter:
      s.para.spaceAfter = parameter;
      return;
    case Word::kLineSpacing:
      s.para.lineSpacing = parameter;
      return;
    case Word::kLineMultiple:
      s.para.lineMultiple = on;
      return;
    case Word::kLeading:
      s.para.leading = parameter;
      return;
    case Word::kTabRight:
      s.para.nextTabAlignment = TabAlignment::kRight;
      return;
    case Word::kTabCenter:
      s.para.nextTabAlignment = TabAlignment::kCenter;
      return;
    case Word::kTabDecimal:
      s.para.nextTabAlignment = TabAlignment::kDecimal;
      return;
    case Word::kTab:
    case Word::kBarTab:
      if (s.para.tabCount < kMaxTabs) {
        s.para.tabs[static_cast<std::size_t>(s.para.tabCount++)] = {parameter,
                                                                    s.para.nextTabAlignment};
      }
      s.para.nextTabAlignment = TabAlignment::kLeft;
      return;
    case Word::kListLevelNumber:
      s.para.level = std::clamp(parameter, 0, kMaxListLevel);
      return;

    // ---- characters ----
    case Word::kPar:
      if (pendingCell_ && destination == Destination::kBody) pendingCell_ = false;
      emitCharacter(u'\n');
      return;
    case Word::kLine:
      emitCharacter(u'\u2028');
      return;
    case Word::kTabCharacter:
      emitCharacter(u'\t');
      return;
    case Word::kPage:
      emitCharacter(u'\f');
      return;
    case Word::kSection:
      if (destination == Destination::kBody && !out_.string().ends_with(u'\n') &&
          !chunk_.ends_with(u'\n') && (out_.length() > 0 || !chunk_.empty())) {
        emitCharacter(u'\n');
      }
      return;
    case Word::kCell:
      if (destination == Destination::kBody) {
        if (pendingCell_) emitBody(u"");
        pendingCell_ = true;
      }
      return;
    case Word::kRow:
      if (destination == Destination::kBody) {
        pendingCell_ = false;
        emitCharacter(u'\n');
      }
      return;
    case Word::kEmDash:
      emitCharacter(u'\u2014');
      return;
    case Word::kEnDash:
      emitCharacter(u'\u2013');
      return;
    case Word::kBullet:
      emitCharacter(u'\u2022');
      return;
    case Word::kLeftQuote:
      emitCharacter(u'\u2018');
      return;
    case Word::kRightQuote:
      emitCharacter(u'\u2019');
      return;
    case Word::kLeftDoubleQuote:
      emitCharacter(u'\u201C');
      return;
    case Word::kRightDoubleQuote:
      emitCharacter(u'\u201D');
      return;
    case Word::kEmSpace:
      emitCharacter(u'\u2003');
      return;
    case Word::kEnSpace:
      emitCharacter(u'\u2002');
      return;
    case Word::kQuarterSpace:
      emitCharacter(u'\u2005');
      return;
    case Word::kZeroWidthJoiner:
      emitCharacter(u'\u200D');
      return;
    case Word::kZeroWidthNonJoiner:
      emitCharacter(u'\u200C');
      return;
    case Word::kLeftToRightMark:
      emitCharacter(u'\u200E');
      return;
    case Word::kRightToLeftMark:
      emitCharacter(u'\u200F');
      return;
    case Word::kUnicode:
      if (hasParameter) {
        emitCharacter(static_cast<char16_t>(parameter < 0 ? parameter + 65536 : parameter));
        skipBytes_ = static_cast<std::size_t>(s.uc);
      }
      return;
    case Word::kUnicodeSkip:
      s.uc = std::clamp(parameter, 0, 16);
      return;
    case Word::kBinary: {
      const auto n =
          static_cast<std::size_t>(std::min<long long>(std::max(parameter, 0), end_ - p_));
      if (destination == Destination::kPicture) raw_.append(reinterpret_cast<const char*>(p_), n);
      p_ += n;
      return;
    }
    default:
      return;
  }
}

int Reader::codePageOfFont(int font) const {
  const auto it = fonts_.find(font);
  return it == fonts_.end() ? documentCodePage_ : it->second.codePage;
}

// ---- text ----

void Reader::textBytes(const std::uint8_t* bytes, std::size_t length) {
  ignorableNext_ = false;
  if (skipBytes_ > 0) {
    const std::size_t n = std::min(length, skipBytes_);
    bytes += n;
    length -= n;
    skipBytes_ -= n;
  }
  if (length == 0 || states_.empty()) return;
  State& s = state();
  switch (s.destination) {
    case Destination::kBody:
    case Destination::kInfoText:
    case Destination::kFieldInstruction:
    case Destination::kLevelMarker: {
      if (s.destination == Destination::kBody && (s.chars.hidden || s.attachmentHolder)) return;
      decodeBytes(bytes, length, s.codePage);
      return;
    }
    case Destination::kFontTable: {
      // A font's name is in its own code page and ends at a semicolon.
      const int codePage = fontCodePage();
      std::size_t start = 0;
      for (std::size_t i = 0; i < length; ++i) {
        if (bytes[i] != ';') continue;
        decodeBytes(bytes + start, i - start, codePage);
        flushPending();
        commitFont();
        start = i + 1;
      }
      decodeBytes(bytes + start, length - start, codePage);
      return;
    }
    case Destination::kColorTable:
      for (std::size_t i = 0; i < length; ++i) {
        if (bytes[i] == ';') commitColor();
      }
      return;
    case Destination::kPicture:
      for (std::size_t i = 0; i < length; ++i) {
        const int v = hexValue(bytes[i]);
        if (v < 0) continue;
        if (pictureHigh_ < 0) {
          pictureHigh_ = v;
        } else {
          raw_.push_back(static_cast<char>(pictureHigh_ * 16 + v));
          pictureHigh_ = -1;
        }
      }
      return;
    case Destination::kNeXTGraphic:
      if (raw_.size() < 4096) raw_.append(reinterpret_cast<const char*>(bytes), length);
      return;
    default:
      return;
  }
}

void Reader::decodeBytes(const std::uint8_t* bytes, std::size_t length, int codePage) {
  if (length == 0) return;
  if (tableCodePage_ != codePage) {
    tableCodePage_ = codePage;
    table_ = singleByteTable(codePage);
  }
  if (table_) {
    scratch_.clear();
    for (std::size_t i = 0; i < length; ++i)
      scratch_.push_back((*table_)[bytes[i]]);
    emitText(scratch_);
    return;
  }
  if (!pending_.empty() && pendingCodePage_ != codePage) flushPending();
  pendingCodePage_ = codePage;
  pending_.append(reinterpret_cast<const char*>(bytes), length);
}

void Reader::flushPending() {
  if (pending_.empty()) return;
  scratch_.clear();
  decoder_.decode(pendingCodePage_, reinterpret_cast<const std::uint8_t*>(pending_.data()),
                  pending_.size(), scratch_);
  pending_.clear();
  emitText(scratch_);
}

void Reader::emitText(std::u16string_view text) {
  if (states_.empty()) return;
  switch (state().destination) {
    case Destination::kBody:
      emitBody(text);
      return;
    case Destination::kInfoText:
    case Destination::kFieldInstruction:
    case Destination::kLevelMarker:
      if (text_.size() < 65536) text_.append(text);
      return;
    case Destination::kFontTable:
      if (fontName_.size() < 1024) fontName_.append(text);
      return;
    default:
      return;
  }
}

void Reader::emitBody(std::u16string_view text) {
  const State& s = state();
  if (s.chars.hidden || s.attachmentHolder) return;
  if (!chunk_.empty() && (s.chars != chunkChars_ || s.para != chunkPara_)) flushChunk();
  if (chunk_.empty()) {
    chunkChars_ = s.chars;
    chunkPara_ = s.para;
  }
  if (pendingCell_) {
    pendingCell_ = false;
    chunk_.push_back(u'\t');
  }
  chunk_.append(text);
}

void Reader::flushChunk() {
  if (chunk_.empty()) return;
  out_.append(chunk_, attributesFor(chunkChars_, chunkPara_));
  chunk_.clear();
}

void Reader::emitAttachment(std::shared_ptr<const FileWrapper> wrapper, double width,
                            double height) {
  const State& s = state();
  if (s.destination != Destination::kBody || s.chars.hidden) return;
  emitBody(u"");  // a pending cell separator first
  flushChunk();
  out_.appendAttachment({std::move(wrapper), width, height}, attributesFor(s.chars, s.para));
}

const Attributes& Reader::attributesFor(const CharFormat& chars, const ParaFormat& para) {
  if (cached_ && chars == cachedChars_ && para == cachedPara_) return cachedAttributes_;
  Attributes a;
  const int font = chars.font >= 0 ? chars.font : defaultFont_;
  if (const auto it = fonts_.find(font); it != fonts_.end()) a.font.family = it->second.name;
  a.font.pointSize = chars.halfPoints / 2.0;
  a.font.bold = chars.bold;
  a.font.italic = chars.italic;
  a.underline = chars.underline;
  a.strikethrough = chars.strikethrough;
  auto color = [this](int index) -> std::optional<Color> {
    return index > 0 && static_cast<std::size_t>(index) < colors_.size()
               ? colors_[static_cast<std::size_t>(index)]
               : std::nullopt;
  };
  a.foregroundColor = color(chars.foreground);
  a.backgroundColor = color(chars.background);
  if (chars.link >= 0) a.link = links_[static_cast<std::size_t>(chars.link)];
  a.superscript = chars.superscript;
  a.baselineOffset = chars.up / 2.0;

  ParagraphStyle& p = a.paragraphStyle;
  p.alignment = para.alignment;
  p.headIndent = para.leftIndent / 20.0;
  p.firstLineHeadIndent = (static_cast<double>(para.leftIndent) + para.firstIndent) / 20.0;
  p.tailIndent = para.rightIndent / 20.0;
  p.paragraphSpacingBefore = para.spaceBefore / 20.0;
  p.paragraphSpacing = para.spaceAfter / 20.0;
  p.lineSpacing = para.leading / 20.0;
  if (para.lineMultiple && para.lineSpacing > 0) p.lineHeightMultiple = para.lineSpacing / 240.0;
  for (int i = 0; i < para.tabCount; ++i) {
    const Tab& tab = para.tabs[static_cast<std::size_t>(i)];
    p.tabStops.push_back({tab.position / 20.0, tab.alignment});
  }
  if (para.list > 0) {
    const auto override = listOfOverride_.find(para.list);
    const int id = override == listOfOverride_.end() ? -1 : override->second;
    for (const ListDefinition& list : lists_) {
      if (list.id != id) continue;
      const std::size_t levels =
          std::min(list.levels.size(), static_cast<std::size_t>(para.level) + 1);
      p.textLists.assign(list.levels.begin(),
                         list.levels.begin() + static_cast<std::ptrdiff_t>(levels));
      break;
    }
  }
  cached_ = true;
  cachedChars_ = chars;
  cachedPara_ = para;
  cachedAttributes_ = std::move(a);
  return cachedAttributes_;
}

// ---- destinations ----

int Reader::fontCodePage() const {
  return fontCodePage_ > 0 ? fontCodePage_ : codePageOfCharset(fontCharset_, documentCodePage_);
}

void Reader::commitFont() {
  if (fontNumber_ >= 0 || !fontName_.empty()) {
    fonts_[fontNumber_] = {trimmed(fontName_), fontCodePage()};
    cached_ = false;
  }
  fontName_.clear();
}

void Reader::commitColor() {
  colors_.push_back(colorSet_ ? std::optional<Color>(color_) : std::nullopt);
  color_ = {};
  colorSet_ = false;
}

void Reader::finishPicture() {
  if ((pictureKind_ == 1 || pictureKind_ == 2) && !raw_.empty()) {
    FileWrapper wrapper = FileWrapper::regularFile(Data(raw_.begin(), raw_.end()),
                                                   pictureKind_ == 1 ? u"image.png" : u"image.jpg");
    emitAttachment(std::make_shared<const FileWrapper>(std::move(wrapper)), pictureWidth_ / 20.0,
                   pictureHeight_ / 20.0);
  }
  raw_.clear();
}

// The placeholder group's name is the attachment's file in the package: UTF-8 as the platform
// writes it, else the document's code page.
void Reader::finishNeXTGraphic() {
  std::string_view bytes = raw_;
  while (!bytes.empty() && (bytes.back() == ' ' || bytes.back() == '\t'))
    bytes.remove_suffix(1);
  while (!bytes.empty() && bytes.front() == ' ')
    bytes.remove_prefix(1);
  const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
  std::optional<std::u16string> name = stringWithData(data, bytes.size(), NSUTF8StringEncoding);
  if (!name) {
    name.emplace();
    decoder_.decode(documentCodePage_, data, bytes.size(), *name);
  }
  raw_.clear();
  if (!package_ || name->empty()) return;
  auto cached = packageFiles_.find(*name);
  if (cached == packageFiles_.end()) {
    const FileWrapper* child = package_->child(*name);
    if (!child) return;
    // Readers of an RTFD keep the name the attachment wanted, not the one made unique.
    FileWrapper copy = *child;
    const std::size_t marker = copy.filename.find(u"__#$!@%!#__");
    if (marker != std::u16string::npos && marker > 0 &&
        std::all_of(copy.filename.begin(),
                    copy.filename.begin() + static_cast<std::ptrdiff_t>(marker),
                    [](char16_t c) { return c >= u'0' && c <= u'9'; })) {
      copy.preferredFilename = copy.filename.substr(marker + 11);
    } else {
      copy.preferredFilename = copy.filename;
    }
    copy.filename.clear();
    cached =
        packageFiles_.emplace(*name, std::make_shared<const FileWrapper>(std::move(copy))).first;
  }
  emitAttachment(cached->second, graphicWidth_ / 20.0, graphicHeight_ / 20.0);
}

void Reader::finishDestination(const State& closing) {
  switch (closing.destination) {
    case Destination::kInfoText: {
      std::u16string value = trimmed(text_);
      text_.clear();
      if (value.empty()) return;
      switch (closing.info) {
        case InfoField::kTitle:
          info_[std::u16string(kTitleDocumentAttribute)] = value;
          return;
        case InfoField::kSubject:
          info_[std::u16string(kSubjectDocumentAttribute)] = value;
          return;
        case InfoField::kAuthor:
          info_[std::u16string(kAuthorDocumentAttribute)] = value;
          return;
        case InfoField::kComment:
          info_[std::u16string(kCommentDocumentAttribute)] = value;
          return;
        case InfoField::kEditor:
          info_[std::u16string(kEditorDocumentAttribute)] = value;
          return;
        case InfoField::kCompany:
          info_[std::u16string(kCompanyDocumentAttribute)] = value;
          return;
        case InfoField::kCopyright:
          info_[std::u16string(kCopyrightDocumentAttribute)] = value;
          return;
        case InfoField::kKeywords: {
          Array keywords;
          std::size_t start = 0;
          while (start <= value.size()) {
            std::size_t comma = value.find(u',', start);
            if (comma == std::u16string::npos) comma = value.size();
            std::u16string keyword =
                trimmed(std::u16string_view(value).substr(start, comma - start));
            if (!keyword.empty()) keywords.emplace_back(std::move(keyword));
            start = comma + 1;
          }
          info_[std::u16string(kKeywordsDocumentAttribute)] = std::move(keywords);
          return;
        }
        default:
          return;
      }
    }
    case Destination::kInfoTime: {
      if (time_[0] <= 0) return;
      std::tm tm{};
      tm.tm_year = std::clamp(time_[0], 1, 9999) - 1900;
      tm.tm_mon = std::clamp(time_[1], 1, 12) - 1;
      tm.tm_mday = std::clamp(time_[2], 1, 31);
      tm.tm_hour = std::clamp(time_[3], 0, 23);
      tm.tm_min = std::clamp(time_[4], 0, 59);
      tm.tm_sec = std::clamp(time_[5], 0, 59);
      const Date date{static_cast<double>(timegm(&tm))};
      info_[std::u16string(closing.info == InfoField::kCreationTime
                               ? kCreationTimeDocumentAttribute
                               : kModificationTimeDocumentAttribute)] = date;
      return;
    }
    case Destination::kFieldInstruction: {
      std::u16string url = hyperlinkOf(text_);
      text_.clear();
      if (url.empty() || state().destination != Destination::kBody) return;
      links_.push_back(std::move(url));
      state().chars.link = static_cast<int>(links_.size() - 1);
      return;
    }
    case Destination::kPicture:
      finishPicture();
      return;
    case Destination::kNeXTGraphic:
      finishNeXTGraphic();
      return;
    case Destination::kLevelMarker:
      level_.markerFormat = text_;
      text_.clear();
      return;
    case Destination::kListLevel:
      if (list_.levels.size() <= kMaxListLevel) list_.levels.push_back(level_);
      return;
    case Destination::kList:
      lists_.push_back(std::move(list_));
      list_ = {};
      cached_ = false;
      return;
    case Destination::kListOverride:
      listOfOverride_[overrideNumber_] = overrideListId_;
      cached_ = false;
      return;
    case Destination::kColorTable:
      cached_ = false;
      return;
    default:
      return;
  }
}

void Reader::finishDocumentAttributes(Dictionary& attributes) {
  attributes = std::move(info_);
  attributes[std::u16string(kDocumentTypeDocumentAttribute)] = std::u16string(kRTFTextDocumentType);
  if (cocoaVersion_) attributes[std::u16string(kCocoaVersionDocumentAttribute)] = *cocoaVersion_;
  auto points = [](int twips) { return twips / 20.0; };
  if (paperWidth_ > 0 || paperHeight_ > 0) {
    attributes[std::u16string(kPaperSizeDocumentAttribute)] =
        sizeString(points(paperWidth_ > 0 ? paperWidth_ : 12240),
                   points(paperHeight_ > 0 ? paperHeight_ : 15840));
  }
  const std::u16string_view marginKeys[4] = {
      kLeftMarginDocumentAttribute, kRightMarginDocumentAttribute, kTopMarginDocumentAttribute,
      kBottomMarginDocumentAttribute};
  for (std::size_t i = 0; i < 4; ++i) {
    if (margins_[i] >= 0) attributes[std::u16string(marginKeys[i])] = points(margins_[i]);
  }
  if (viewWidth_ > 0 && viewHeight_ > 0) {
    attributes[std::u16string(kViewSizeDocumentAttribute)] =
        sizeString(points(viewWidth_), points(viewHeight_));
  }
  if (viewScale_ > 0) attributes[std::u16string(kViewZoomDocumentAttribute)] = double(viewScale_);
  if (viewKind_ >= 0) attributes[std::u16string(kViewModeDocumentAttribute)] = viewKind_;
  if (defaultTab_ > 0) {
    attributes[std::u16string(kDefaultTabIntervalDocumentAttribute)] = points(defaultTab_);
  }
}

}  // namespace

bool isRTF(std::span<const std::uint8_t> bytes) {
  std::size_t i = 0;
  if (bytes.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) i = 3;
  while (i < bytes.size() &&
         (bytes[i] == ' ' || bytes[i] == '\t' || bytes[i] == '\r' || bytes[i] == '\n')) {
    ++i;
  }
  return bytes.size() - i >= 5 && std::memcmp(bytes.data() + i, "{\\rtf", 5) == 0;
}

std::optional<AttributedString> initWithRTF(std::span<const std::uint8_t> rtf,
                                            Dictionary* documentAttributes,
                                            const FileWrapper* package) {
  if (!isRTF(rtf)) return std::nullopt;
  return Reader(rtf, package).read(documentAttributes);
}

}  // namespace ferncast
