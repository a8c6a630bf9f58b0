#include "webcontent/documents/HtmlReader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <unordered_map>

#include "markup/chartables/CharacterTables.h"
#include "markup/Entities.h"
#include "markup/MarkupDecoding.h"
#include "markup/XmlExtensions.h"
#include "url/NSString+URLNormalization.h"
#include "webcontent/documents/CssSubset.h"
#include "webcontent/documents/ListMarkers.h"

namespace ferncast {
namespace {

using Clock = std::chrono::steady_clock;

constexpr double kDefaultFontSize = 12;  // 16 CSS pixels
constexpr char16_t kDefaultFamily[] = u"Times";
constexpr char16_t kMonospaceFamily[] = u"Courier";
constexpr double kMonospaceScale = 13.0 / 16.0;
constexpr Color kLinkColor{0, 0, 238};
constexpr std::size_t kMaxDepth = 256;
// The layout looks at the clock every so many constructs.
constexpr unsigned kClockInterval = 256;

// The elements the reader tells apart.
enum class Tag : std::uint8_t {
  kOther,
  kA,
  kB,
  kI,
  kU,
  kS,
  kSup,
  kSub,
  kCode,
  kSmall,
  kBig,
  kFont,
  kMark,
  kP,
  kBlock,
  kH1,
  kH2,
  kH3,
  kH4,
  kH5,
  kH6,
  kPre,
  kBlockquote,
  kCenter,
  kUl,
  kOl,
  kLi,
  kDl,
  kDt,
  kDd,
  kTable,
  kTr,
  kTd,
  kTh,
  kCaption,
  kBr,
  kHr,
  kImg,
  kHtml,
  kHead,
  kBody,
  kTitle,
  kStyle,
  kScript,
  kHidden,
  kBase,
  kMeta,
  kVoid,
  kOption,
  kSelect,
};

struct TagName {
  const char* name;
  Tag tag;
};

constexpr TagName kTagNames[] = {
    {"a", Tag::kA},
    {"b", Tag::kB},
    {"strong", Tag::kB},
    {"i", Tag::kI},
    {"em", Tag::kI},
    {"cite", Tag::kI},
    {"var", Tag::kI},
    {"dfn", Tag::kI},
    {"address", Tag::kBlock},
    {"u", Tag::kU},
    {"ins", Tag::kU},
    {"s", Tag::kS},
    {"strike", Tag::kS},
    {"del", Tag::kS},
    {"sup", Tag::kSup},
    {"sub", Tag::kSub},
    {"code", Tag::kCode},
    {"tt", Tag::kCode},
    {"kbd", Tag::kCode},
    {"samp", Tag::kCode},
    {"small", Tag::kSmall},
    {"big", Tag::kBig},
    {"font", Tag::kFont},
    {"mark", Tag::kMark},
    {"p", Tag::kP},
    {"div", Tag::kBlock},
    {"section", Tag::kBlock},
    {"article", Tag::kBlock},
    {"header", Tag::kBlock},
    {"footer", Tag::kBlock},
    {"nav", Tag::kBlock},
    {"aside", Tag::kBlock},
    {"main", Tag::kBlock},
    {"figure", Tag::kBlock},
    {"figcaption", Tag::kBlock},
    {"form", Tag::kBlock},
    {"fieldset", Tag::kBlock},
    {"legend", Tag::kBlock},
    {"details", Tag::kBlock},
    {"summary", Tag::kBlock},
    {"hgroup", Tag::kBlock},
    {"noframes", Tag::kBlock},
    {"frameset", Tag::kBlock},
    {"listing", Tag::kPre},
    {"xmp", Tag::kPre},
    {"plaintext", Tag::kPre},
    {"h1", Tag::kH1},
    {"h2", Tag::kH2},
    {"h3", Tag::kH3},
    {"h4", Tag::kH4},
    {"h5", Tag::kH5},
    {"h6", Tag::kH6},
    {"pre", Tag::kPre},
    {"blockquote", Tag::kBlockquote},
    {"center", Tag::kCenter},
    {"ul", Tag::kUl},
    {"menu", Tag::kUl},
    {"dir", Tag::kUl},
    {"ol", Tag::kOl},
    {"li", Tag::kLi},
    {"dl", Tag::kDl},
    {"dt", Tag::kDt},
    {"dd", Tag::kDd},
    {"table", Tag::kTable},
    {"tr", Tag::kTr},
    {"td", Tag::kTd},
    {"th", Tag::kTh},
    {"caption", Tag::kCaption},
    {"br", Tag::kBr},
    {"hr", Tag::kHr},
    {"img", Tag::kImg},
    {"html", Tag::kHtml},
    {"head", Tag::kHead},
    {"body", Tag::kBody},
    {"title", Tag::kTitle},
    {"style", Tag::kStyle},
    {"script", Tag::kScript},
    {"template", Tag::kHidden},
    {"noscript", Tag::kHidden},
    {"iframe", Tag::kHidden},
    {"object", Tag::kHidden},
    {"canvas", Tag::kHidden},
    {"datalist", Tag::kHidden},
    {"base", Tag::kBase},
    {"meta", Tag::kMeta},
    {"area", Tag::kVoid},
    {"col", Tag::kVoid},
    {"embed", Tag::kVoid},
    {"input", Tag::kVoid},
    {"link", Tag::kVoid},
    {"param", Tag::kVoid},
    {"source", Tag::kVoid},
    {"track", Tag::kVoid},
    {"wbr", Tag::kVoid},
    {"keygen", Tag::kVoid},
    {"option", Tag::kOption},
    {"select", Tag::kSelect},
};

Tag tagOf(std::u16string_view lower) {
  static const auto* table = [] {
    auto* map = new std::unordered_map<std::u16string, Tag>();
    for (const TagName& entry : kTagNames)
      map->emplace(std::u16string(entry.name, entry.name + std::strlen(entry.name)), entry.tag);
    return map;
  }();
  auto found = table->find(std::u16string(lower));
  return found == table->end() ? Tag::kOther : found->second;
}

// Elements that end the paragraph before and after them.
bool isBlock(Tag t) {
  switch (t) {
    case Tag::kP:
    case Tag::kBlock:
    case Tag::kH1:
    case Tag::kH2:
    case Tag::kH3:
    case Tag::kH4:
    case Tag::kH5:
    case Tag::kH6:
    case Tag::kPre:
    case Tag::kBlockquote:
    case Tag::kCenter:
    case Tag::kUl:
    case Tag::kOl:
    case Tag::kLi:
    case Tag::kDl:
    case Tag::kDt:
    case Tag::kDd:
    case Tag::kTable:
    case Tag::kTr:
    case Tag::kCaption:
    case Tag::kHr:
    case Tag::kBody:
      return true;
    default:
      return false;
  }
}

bool isVoid(Tag t) {
  return t == Tag::kBr || t == Tag::kHr || t == Tag::kImg || t == Tag::kBase || t == Tag::kMeta ||
         t == Tag::kVoid;
}

bool isHtmlSpace(char16_t c) {
  return c == u' ' || c == u'\n' || c == u'\t' || c == u'\r' || c == u'\f';
}

// The image kind of loaded bytes, as a file-name extension: by their first bytes, else by an
// "image/..." media type; empty when they are no image.
std::string imageExtension(const Data& data, std::u16string_view mediaType) {
  auto starts = [&](std::string_view magic) {
    return data.size() >= magic.size() && std::memcmp(data.data(), magic.data(), magic.size()) == 0;
  };
  if (starts("\x89PNG")) return "png";
  if (starts("\xFF\xD8\xFF")) return "jpg";
  if (starts("GIF8")) return "gif";
  if (starts("RIFF") && data.size() >= 12 && std::memcmp(data.data() + 8, "WEBP", 4) == 0)
    return "webp";
  if (starts("BM")) return "bmp";
  if (starts(std::string_view("II*\0", 4)) || starts(std::string_view("MM\0*", 4))) return "tiff";
  if (starts(std::string_view("\0\0\1\0", 4))) return "ico";
  std::string_view head(reinterpret_cast<const char*>(data.data()),
                        std::min<std::size_t>(data.size(), 1024));
  if (head.find("<svg") != std::string_view::npos) return "svg";
  std::string subtype;
  if (mediaType.starts_with(u"image/")) {
    for (char16_t c : mediaType.substr(6, 8)) {
      if (!((c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9'))) break;
      subtype += static_cast<char>(c);
    }
  }
  return subtype;
}

// A file name for an attachment: the last path segment of its URL when usable, else "image",
// with the extension of its kind when it has none.
std::u16string attachmentName(const URL& url, const std::string& extension) {
  std::u16string name;
  if (url.path()) {
    std::u16string_view path = *url.path();
    std::size_t slash = path.rfind(u'/');
    name = path.substr(slash == std::u16string_view::npos ? 0 : slash + 1);
  }
  if (name.size() > 100 || !isValidFilename(name) || name.find(u'%') != std::u16string::npos)
    name = u"image";
  if (name.find(u'.') == std::u16string::npos) {
    name += u'.';
    for (char e : extension)
      name += static_cast<char16_t>(e);
  }
  return name;
}

// Whether the tag has the attribute `lower`, with a value or without one ("<p hidden>").
bool hasAttribute(const char16_t* characters, Range range, std::u16string_view lower) {
  const char16_t* p = characters + range.location;
  const std::size_t n = range.length;
  char16_t quote = 0;
  for (std::size_t i = 1; i + lower.size() < n; ++i) {
    char16_t c = p[i];
    if (quote) {
      if (c == quote) quote = 0;
      continue;
    }
    if (c == u'"' || c == u'\'') {
      quote = c;
      continue;
    }
    if (!isHtmlSpace(p[i - 1])) continue;
    std::size_t k = 0;
    while (k < lower.size() && (p[i + k] | 0x20) == lower[k])
      ++k;
    if (k < lower.size()) continue;
    char16_t after = p[i + k];
    if (isHtmlSpace(after) || after == u'=' || after == u'/' || after == u'>') return true;
  }
  return false;
}

// An element on the stack of open elements.
struct Element {
  std::u16string name;  // lower case
  Tag tag = Tag::kOther;
  Attributes attributes;  // for the text inside; its paragraph style is the block's
  bool hidden = false;
  bool pre = false;
  int cellDepth = 0;  // table cells open around and including this element
  // Lists: the list's marker format and next number; rows: cells so far.
  std::u16string markerFormat;
  int counter = 0;
  int listLevel = 0;
};

struct ImagePlaceholder {
  std::size_t position;
  std::optional<URL> url;
  std::u16string alt;
  double width = 0, height = 0;
};

class Layout {
 public:
  Layout(std::u16string_view html, const HtmlReaderOptions& options)
      : html_(html), baseURL_(options.baseURL), deadline_(options.deadline) {
    Element root;
    root.name = u"#root";
    root.attributes.font.family = kDefaultFamily;
    root.attributes.font.pointSize = kDefaultFontSize;
    stack_.push_back(std::move(root));
  }

  void run() {
    parseXmlWithHandler(html_, handler, this, false);
    popTo(1);
    flush();
  }

  AttributedString& string() { return out_; }
  std::vector<ImagePlaceholder>& images() { return images_; }
  Dictionary& documentAttributes() { return documentAttributes_; }
  const std::optional<URL>& base() const { return baseURL_; }

 private:
  static bool handler(std::u16string_view string, char16_t* characters, std::size_t nameLocation,
                      std::size_t nameLength, std::size_t tagLocation, std::size_t tagLength,
                      std::size_t textLocation, TagKind kind, void* context) {
    auto& self = *static_cast<Layout*>(context);
    if (self.deadline_ && ++self.calls_ % kClockInterval == 0 && Clock::now() >= *self.deadline_)
      return true;
    if (tagLocation > textLocation)
      self.text(characters + textLocation, tagLocation - textLocation);
    if (kind != TagKind::kTag || nameLocation == kNotFound) return false;
    tagLength = std::min(tagLength, string.size() - tagLocation);
    self.tag(characters, nameLocation, nameLength, Range{tagLocation, tagLength});
    return false;
  }

  const Element& top() const { return stack_.back(); }

  // ---- Text ----

  void text(const char16_t* run, std::size_t length) {
    if (inTitle_) {
      title_.append(run, length);
      return;
    }
    if (top().hidden) return;
    scratch_.resize(length);
    length = convertEntities2Characters(run, scratch_.data(), 0, length, true, false, false);
    const char16_t* s = scratch_.data();
    if (top().pre) {
      for (std::size_t i = 0; i < length; ++i) {
        char16_t c = s[i];
        if (c == u'\r') {
          if (i + 1 < length && s[i + 1] == u'\n') continue;
          c = u'\n';
        }
        if (c == u'\n' && skipNextPreLineFeed_) {
          skipNextPreLineFeed_ = false;
          continue;
        }
        skipNextPreLineFeed_ = false;
        if (c == kAttachmentCharacter) continue;
        put(c);
        if (c == u'\n') lineStart_ = true;
      }
      return;
    }
    for (std::size_t i = 0; i < length; ++i) {
      char16_t c = s[i];
      if (isHtmlSpace(c)) {
        if (!lineStart_) pendingSpace_ = true;
        continue;
      }
      if (c == kAttachmentCharacter) continue;
      if (pendingSpace_) put(u' ');
      put(c);
    }
  }

  // Writes one code unit of content, starting a paragraph when at the start of a line.
  void put(char16_t c) {
    if (lineStart_) {
      flush();
      paragraphStyle_ = top().attributes.paragraphStyle;
      lineStart_ = false;
    }
    pendingSpace_ = false;
    buffer_ += c;
    skipNextPreLineFeed_ = false;
  }

  // Appends the buffered text with the attributes in force.
  void flush() {
    if (buffer_.empty()) return;
    Attributes attributes = top().attributes;
    attributes.paragraphStyle = paragraphStyle_;
    out_.append(buffer_, attributes);
    buffer_.clear();
  }

  char16_t lastWritten() const {
    if (!buffer_.empty()) return buffer_.back();
    return out_.length() ? out_.string().back() : u'\n';
  }

  // Inside a table cell, blocks only separate words.
  void separateInCell() {
    if (!lineStart_ && !isHtmlSpace(lastWritten())) pendingSpace_ = true;
  }

  // Ends the line unless it is empty.
  void endLine(bool evenInCell = false) {
    if (top().cellDepth > 0 && !evenInCell) return separateInCell();
    if (lineStart_) return;
    buffer_ += u'\n';
    flush();
    lineStart_ = true;
    pendingSpace_ = false;
  }

  // ---- Tags ----

  void tag(char16_t* characters, std::size_t nameLocation, std::size_t nameLength, Range range) {
    const bool end = range.length >= 2 && characters[range.location + 1] == u'/';
    const bool selfClosing =
        range.length >= 3 && characters[range.location + range.length - 2] == u'/';
    if (nameLength > 32) nameLength = 32;
    std::u16string name(characters + nameLocation, nameLength);
    for (char16_t& c : name)
      if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c | 0x20);
    const Tag t = tagOf(name);
    if (t == Tag::kStyle) {
      if (!end) styleElement(characters, range);
      return;
    }
    if (t == Tag::kScript) return;
    if (end) {
      closeElement(name, t);
      return;
    }
    openElement(characters, range, std::move(name), t, selfClosing);
  }

  // A whole <style>...</style>: its rules join the page's style sheet.
  void styleElement(const char16_t* characters, Range range) {
    std::u16string_view element(characters + range.location, range.length);
    std::size_t open = element.find(u'>');
    if (open == std::u16string_view::npos) return;
    std::size_t close = element.rfind(u"</");
    if (close == std::u16string_view::npos || close <= open) close = element.size();
    styleSheet_.addRules(element.substr(open + 1, close - open - 1));
  }

  std::optional<std::u16string> attribute(const char16_t* characters, Range range,
                                          std::string_view name) const {
    std::optional<std::u16string> value = attributeOfTagCharacters(characters, range, name);
    if (value && value->find(u'&') != std::u16string::npos)
      value = stringByConvertingEntitiesToCharacters(*value);
    return value;
  }

  std::optional<URL> resolve(const std::u16string& link) const {
    std::optional<std::u16string> normalized = normalizedStringURL(link);
    if (!normalized) return std::nullopt;
    if (baseURL_) {
      if (std::optional<URL> url = URL::URLWithString(*normalized, *baseURL_)) return url;
    }
    return URL::URLWithString(*normalized);
  }

  // Pops elements above index `keep` (exclusive of `keep` itself when inclusive is false).
  void popTo(std::size_t index) {
    while (stack_.size() > std::max<std::size_t>(index, 1)) {
      const Element& element = top();
      flush();
      const bool block = isBlock(element.tag);
      const bool wasHidden = element.hidden;
      const Tag tag = element.tag;
      if (tag == Tag::kTitle) inTitle_ = false;
      if (block && !wasHidden) endLine(tag == Tag::kTr || tag == Tag::kTable);
      stack_.pop_back();
      if (block && !wasHidden && top().cellDepth > 0) separateInCell();
    }
  }

  // The nearest open element (from the top) whose tag is in `targets`, not looking past one in
  // `boundaries`; 0 when none.
  std::size_t findOpen(std::initializer_list<Tag> targets,
                       std::initializer_list<Tag> boundaries) const {
    for (std::size_t i = stack_.size(); i-- > 1;) {
      Tag t = stack_[i].tag;
      if (std::find(targets.begin(), targets.end(), t) != targets.end()) return i;
      if (std::find(boundaries.begin(), boundaries.end(), t) != boundaries.end()) return 0;
    }
    return 0;
  }

  void closeImplied(Tag t) {
    std::size_t found = 0;
    if (t == Tag::kLi) {
      found = findOpen({Tag::kLi}, {Tag::kUl, Tag::kOl, Tag::kTable});
    } else if (t == Tag::kDt || t == Tag::kDd) {
      found = findOpen({Tag::kDt, Tag::kDd}, {Tag::kDl, Tag::kTable});
    } else if (t == Tag::kTr) {
      found = findOpen({Tag::kTr}, {Tag::kTable});
    } else if (t == Tag::kTd || t == Tag::kTh) {
      found = findOpen({Tag::kTd, Tag::kTh}, {Tag::kTr, Tag::kTable});
    } else if (t == Tag::kOption) {
      found = findOpen({Tag::kOption}, {Tag::kSelect});
    } else if (t == Tag::kBody) {
      found = findOpen({Tag::kHead}, {});
    }
    if (found) popTo(found);
    if (isBlock(t) || t == Tag::kTable) {
      // A block closes an open paragraph.
      std::size_t p = findOpen({Tag::kP}, {Tag::kBlock, Tag::kTd, Tag::kTh, Tag::kLi,
                                           Tag::kBlockquote, Tag::kTable, Tag::kDd, Tag::kBody});
      if (p) popTo(p);
    }
  }

  void closeElement(const std::u16string& name, Tag t) {
    if (t == Tag::kBr) return lineBreak();
    if (inTitle_ && t != Tag::kTitle) return;
    // The nearest open element of that name, looking no deeper than a table when the end tag is
    // not of a table's own.
    for (std::size_t i = stack_.size(), looked = 0; i-- > 1 && looked < 64; ++looked) {
      if (stack_[i].name == name) return popTo(i);
      if (stack_[i].tag == Tag::kTable && t != Tag::kTable) break;
    }
    if (t == Tag::kP) endLine();
  }

  void lineBreak() {
    if (top().hidden) return;
    if (top().cellDepth > 0) return separateInCell();
    put(u'\n');
    lineStart_ = true;
    pendingSpace_ = false;
  }

  void openElement(char16_t* characters, Range range, std::u16string name, Tag t,
                   bool selfClosing) {
    if (inTitle_) return;
    if (t == Tag::kBase) {
      if (std::optional<std::u16string> href = attribute(characters, range, "HREF")) {
        if (std::optional<URL> base = resolve(*href); base && base->host()) baseURL_ = base;
      }
      return;
    }
    if (t == Tag::kMeta) return meta(characters, range);
    if (t == Tag::kTitle) {
      if (!documentAttributes_.count(std::u16string(kTitleDocumentAttribute))) {
        inTitle_ = true;
        title_.clear();
      }
    }
    closeImplied(t);
    if (t == Tag::kBr) return lineBreak();

    const Element& parent = top();
    Element element;
    element.name = std::move(name);
    element.tag = t;
    element.attributes = parent.attributes;
    element.hidden = parent.hidden || t == Tag::kHead || t == Tag::kHidden || t == Tag::kTitle;
    element.pre = parent.pre || t == Tag::kPre;
    element.cellDepth = parent.cellDepth + (t == Tag::kTd || t == Tag::kTh ? 1 : 0);
    element.listLevel = parent.listLevel;
    if (!element.hidden && hasAttribute(characters, range, u"hidden")) element.hidden = true;
    applyTagDefaults(element, characters, range);
    CssDeclarations css;
    if (!styleSheet_.empty()) {
      css = styleSheet_.match(element.name, attribute(characters, range, "CLASS").value_or(u""),
                              attribute(characters, range, "ID").value_or(u""));
    }
    std::optional<std::u16string> style = attribute(characters, range, "STYLE");
    CssDeclarations inlineCss;
    if (style) inlineCss = parseCssDeclarations(*style);
    css.merge(inlineCss);
    applyCss(element, css, parent.attributes.font.pointSize);

    if (!element.hidden && isBlock(t)) {
      flush();
      endLine(t == Tag::kTr);
    }
    if (t == Tag::kHr) {
      if (!element.hidden && top().cellDepth == 0) {
        flush();
        Attributes rule = top().attributes;
        paragraphStyle_ = rule.paragraphStyle;
        buffer_ += u'\n';
        flush();
        lineStart_ = true;
      }
      return;
    }
    if (t == Tag::kImg) {
      if (!element.hidden) image(characters, range, element);
      return;
    }
    const bool pushes = !isVoid(t) && !selfClosing && stack_.size() < kMaxDepth;
    if (!pushes) return;
    flush();
    if (t == Tag::kTd || t == Tag::kTh) {
      std::size_t row = findOpen({Tag::kTr}, {Tag::kTable});
      if (row && stack_[row].counter++ > 0 && !element.hidden) {
        put(u'\t');
      }
    }
    if (t == Tag::kLi && !element.hidden) listItem(element, characters, range);
    if (t == Tag::kPre) skipNextPreLineFeed_ = true;
    const bool hidden = element.hidden;
    std::optional<std::u16string> background =
        !hidden && inlineCss.backgroundImage ? inlineCss.backgroundImage : std::nullopt;
    stack_.push_back(std::move(element));
    if (background) placeImage(*background, u"", 0, 0);
  }

  void meta(const char16_t* characters, Range range) {
    std::optional<std::u16string> name = attribute(characters, range, "NAME");
    std::optional<std::u16string> content = attribute(characters, range, "CONTENT");
    if (!name || !content || content->empty()) return;
    std::u16string lower = *name;
    for (char16_t& c : lower)
      if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c | 0x20);
    if (lower == u"author") {
      documentAttributes_[std::u16string(kAuthorDocumentAttribute)] = *content;
    } else if (lower == u"description") {
      documentAttributes_[std::u16string(kCommentDocumentAttribute)] = *content;
    } else if (lower == u"keywords") {
      Array keywords;
      std::size_t start = 0;
      while (start <= content->size()) {
        std::size_t comma = std::min(content->find(u',', start), content->size());
        std::u16string_view word(content->data() + start, comma - start);
        while (!word.empty() && isHtmlSpace(word.front()))
          word.remove_prefix(1);
        while (!word.empty() && isHtmlSpace(word.back()))
          word.remove_suffix(1);
        if (!word.empty()) keywords.emplace_back(std::u16string(word));
        start = comma + 1;
      }
      if (!keywords.empty())
        documentAttributes_[std::u16string(kKeywordsDocumentAttribute)] = std::move(keywords);
    }
  }

  static void setHeading(Element& e, double scale, double spacingEm) {
    e.attributes.font.pointSize = kDefaultFontSize * scale;
    e.attributes.font.bold = true;
    double spacing = e.attributes.font.pointSize * spacingEm;
    e.attributes.paragraphStyle.paragraphSpacing = spacing;
    e.attributes.paragraphStyle.paragraphSpacingBefore = spacing;
  }

  void applyTagDefaults(Element& e, const char16_t* characters, Range range) {
    Attributes& a = e.attributes;
    ParagraphStyle& p = a.paragraphStyle;
    if (isBlock(e.tag)) {
      // A block's paragraphs start without the spacing of the block around them.
      p.paragraphSpacing = p.paragraphSpacingBefore = 0;
    }
    switch (e.tag) {
      case Tag::kA:
        if (std::optional<std::u16string> href = attribute(characters, range, "HREF")) {
          std::optional<URL> url = resolve(*href);
          a.link = url ? url->absoluteString() : *href;
          a.foregroundColor = kLinkColor;
          a.underline = UnderlineStyle::kSingle;
        }
        break;
      case Tag::kB:
      case Tag::kTh:
        a.font.bold = true;
        break;
      case Tag::kI:
        a.font.italic = true;
        break;
      case Tag::kU:
        a.underline = UnderlineStyle::kSingle;
        break;
      case Tag::kS:
        a.strikethrough = true;
        break;
      case Tag::kSup:
      case Tag::kSub:
        a.superscript += e.tag == Tag::kSup ? 1 : -1;
        a.font.pointSize *= 0.83;
        break;
      case Tag::kCode:
      case Tag::kPre:
        if (a.font.family != kMonospaceFamily) {
          a.font.family = kMonospaceFamily;
          a.font.pointSize *= kMonospaceScale;
        }
        break;
      case Tag::kSmall:
        a.font.pointSize *= 0.83;
        break;
      case Tag::kBig:
        a.font.pointSize *= 1.2;
        break;
      case Tag::kMark:
        a.backgroundColor = Color{255, 255, 0};
        break;
      case Tag::kFont: {
        if (auto color = attribute(characters, range, "COLOR")) {
          if (auto c = parseCssColor(*color)) a.foregroundColor = c;
        }
        if (auto face = attribute(characters, range, "FACE"); face && !face->empty()) {
          a.font.family = face->substr(0, face->find(u','));
        }
        if (auto size = attribute(characters, range, "SIZE"); size && !size->empty()) {
          static constexpr double kSizes[] = {7.5, 7.5, 9.75, 12, 13.5, 18, 24, 36};
          int n = 0, sign = 0;
          for (char16_t c : *size) {
            if (c == u'+' || c == u'-')
              sign = c == u'+' ? 1 : -1;
            else if (c >= u'0' && c <= u'9')
              n = std::min(n * 10 + (c - u'0'), 100);
          }
          n = sign ? 3 + sign * n : n;
          a.font.pointSize = kSizes[std::clamp(n, 1, 7)];
        }
        break;
      }
      case Tag::kP:
        p.paragraphSpacing = a.font.pointSize;
        break;
      case Tag::kH1:
        setHeading(e, 2.0, 0.67);
        break;
      case Tag::kH2:
        setHeading(e, 1.5, 0.83);
        break;
      case Tag::kH3:
        setHeading(e, 1.17, 1.0);
        break;
      case Tag::kH4:
        setHeading(e, 1.0, 1.33);
        break;
      case Tag::kH5:
        setHeading(e, 0.83, 1.67);
        break;
      case Tag::kH6:
        setHeading(e, 0.67, 2.33);
        break;
      case Tag::kBlockquote:
      case Tag::kDd:
        p.headIndent += kListIndentStep;
        p.firstLineHeadIndent += kListIndentStep;
        break;
      case Tag::kCenter:
        p.alignment = TextAlignment::kCenter;
        break;
      case Tag::kUl:
      case Tag::kOl: {
        ++e.listLevel;
        TextList list;
        if (e.tag == Tag::kOl) {
          std::optional<std::u16string> type = attribute(characters, range, "TYPE");
          std::u16string kind = type && !type->empty() ? type->substr(0, 1) : u"1";
          list.markerFormat = kind == u"a"   ? u"{lower-alpha}."
                              : kind == u"A" ? u"{upper-alpha}."
                              : kind == u"i" ? u"{lower-roman}."
                              : kind == u"I" ? u"{upper-roman}."
                                             : u"{decimal}.";
          if (auto start = attribute(characters, range, "START")) {
            list.startingItem = std::clamp(
                std::atoi(std::string(start->begin(), start->end()).c_str()), -99999, 99999);
          }
        } else {
          list.markerFormat = e.listLevel == 1   ? u"{disc}"
                              : e.listLevel == 2 ? u"{circle}"
                                                 : u"{square}";
        }
        e.markerFormat = list.markerFormat;
        e.counter = list.startingItem;
        std::vector<TextList> lists = p.textLists;
        lists.push_back(std::move(list));
        setListParagraphStyle(p, lists);
        break;
      }
      default:
        break;
    }
    if (isBlock(e.tag) || e.tag == Tag::kTd || e.tag == Tag::kTh) {
      if (auto align = attribute(characters, range, "ALIGN")) {
        if (auto parsed = parseCssDeclarations(u"text-align:" + *align).textAlign)
          p.alignment = *parsed;
      }
    }
  }

  void applyCss(Element& e, const CssDeclarations& css, double parentSize) {
    Attributes& a = e.attributes;
    if (css.color) a.foregroundColor = css.color;
    if (css.backgroundColor) a.backgroundColor = css.backgroundColor;
    if (css.bold) a.font.bold = *css.bold;
    if (css.italic) a.font.italic = *css.italic;
    if (css.fontSize) {
      double size = css.fontSize->relative ? parentSize * css.fontSize->value : css.fontSize->value;
      a.font.pointSize = std::clamp(size, 1.0, 1000.0);
    }
    if (css.fontFamily) a.font.family = *css.fontFamily;
    if (css.underline)
      a.underline = *css.underline ? UnderlineStyle::kSingle : UnderlineStyle::kNone;
    if (css.strikethrough) a.strikethrough = *css.strikethrough;
    if (css.textAlign && (isBlock(e.tag) || e.tag == Tag::kTd || e.tag == Tag::kTh))
      a.paragraphStyle.alignment = *css.textAlign;
  }

  void listItem(Element& item, const char16_t* characters, Range range) {
    std::size_t list = findOpen({Tag::kUl, Tag::kOl}, {Tag::kTable});
    std::u16string format = list ? stack_[list].markerFormat : u"{disc}";
    int n = 1;
    if (list) {
      if (auto value = attribute(characters, range, "VALUE")) {
        stack_[list].counter = std::atoi(std::string(value->begin(), value->end()).c_str());
      }
      n = stack_[list].counter++;
    }
    // The marker is text of the item's paragraph, in the item's style.
    Element marker = item;
    stack_.push_back(std::move(marker));
    put(u'\t');
    for (char16_t c : listMarker(format, n))
      put(c);
    put(u'\t');
    flush();
    stack_.pop_back();
  }

  void image(const char16_t* characters, Range range, const Element& element) {
    std::optional<std::u16string> source = attribute(characters, range, "SRC");
    // As in the plain text of a page: the ALT text, or failing that the TITLE.
    std::optional<std::u16string> alt = attribute(characters, range, "ALT");
    if (!alt || alt->empty()) alt = attribute(characters, range, "TITLE");
    int width = 0, height = 0;
    getTagWidth(width, height, characters, range);
    stack_.push_back(element);
    if (source && !source->empty()) {
      placeImage(*source, alt.value_or(u""), width * 0.75, height * 0.75);
    } else if (alt) {
      text(alt->data(), alt->size());
    }
    stack_.pop_back();
  }

  void placeImage(const std::u16string& source, std::u16string alt, double width, double height) {
    if (top().hidden) return;
    if (pendingSpace_) put(u' ');
    put(kAttachmentCharacter);
    flush();
    images_.push_back({out_.length() - 1, resolve(source), std::move(alt), width, height});
  }

  std::u16string_view html_;
  std::optional<URL> baseURL_;
  std::optional<Clock::time_point> deadline_;
  unsigned calls_ = 0;
  std::vector<Element> stack_;
  CssStyleSheet styleSheet_;
  AttributedString out_;
  std::u16string buffer_;
  std::u16string scratch_;
  ParagraphStyle paragraphStyle_;
  bool lineStart_ = true;
  bool pendingSpace_ = false;
  bool skipNextPreLineFeed_ = false;
  bool inTitle_ = false;
  std::u16string title_;
  std::vector<ImagePlaceholder> images_;
  Dictionary documentAttributes_;

 public:
  // The title as read, white space collapsed.
  std::u16string title() const {
    std::u16string decoded = stringByConvertingEntitiesToCharacters(title_);
    std::u16string collapsed;
    for (char16_t c : decoded) {
      if (isHtmlSpace(c)) {
        if (!collapsed.empty() && collapsed.back() != u' ') collapsed += u' ';
      } else {
        collapsed += c;
      }
    }
    while (!collapsed.empty() && collapsed.back() == u' ')
      collapsed.pop_back();
    return collapsed;
  }
};

// Replaces the placeholders with attachments of the loaded images, or with their alternative
// text.
AttributedString withImages(const AttributedString& laidOut,
                            const std::vector<ImagePlaceholder>& images,
                            const std::vector<LoadedResource>& loads) {
  // One wrapper per loaded URL, shared by its attachments.
  std::unordered_map<std::u16string, std::shared_ptr<const FileWrapper>> wrappers;
  std::vector<std::shared_ptr<const FileWrapper>> wrapperOf(images.size());
  for (std::size_t i = 0, k = 0; i < images.size(); ++i) {
    if (!images[i].url) continue;
    const LoadedResource& load = loads[k++];
    if (load.outcome != LoadOutcome::kLoaded) continue;
    std::string extension = imageExtension(load.data, load.MIMEType);
    if (extension.empty()) continue;
    auto& wrapper = wrappers[load.url.absoluteString()];
    if (!wrapper) {
      wrapper = std::make_shared<FileWrapper>(
          FileWrapper::regularFile(load.data, attachmentName(load.url, extension)));
    }
    wrapperOf[i] = wrapper;
  }
  AttributedString result;
  const std::u16string& text = laidOut.string();
  std::size_t next = 0;  // the next placeholder
  for (std::size_t r = 0; r < laidOut.runCount(); ++r) {
    AttributedString::Run run = laidOut.run(r);
    std::size_t start = run.location;
    const std::size_t end = run.location + run.length;
    while (next < images.size() && images[next].position < end) {
      const ImagePlaceholder& image = images[next];
      result.append(std::u16string_view(text).substr(start, image.position - start),
                    run.attributes);
      if (wrapperOf[next]) {
        result.appendAttachment({wrapperOf[next], image.width, image.height}, run.attributes);
      } else {
        result.append(image.alt, run.attributes);
      }
      start = image.position + 1;
      ++next;
    }
    result.append(std::u16string_view(text).substr(start, end - start), run.attributes);
  }
  return result;
}

}  // namespace

std::optional<HtmlReading> readHTMLString(std::u16string_view html,
                                          const HtmlReaderOptions& options) {
  initCharacterTables();
  Layout layout(html, options);
  layout.run();
  HtmlReading reading;
  reading.documentAttributes = std::move(layout.documentAttributes());
  reading.documentAttributes[std::u16string(kDocumentTypeDocumentAttribute)] =
      std::u16string(kHTMLTextDocumentType);
  std::u16string title = layout.title();
  if (!title.empty()) reading.documentAttributes[std::u16string(kTitleDocumentAttribute)] = title;

  std::vector<ImagePlaceholder>& images = layout.images();
  if (images.empty()) {
    reading.string = std::move(layout.string());
  } else {
    std::vector<URL> urls;
    for (const ImagePlaceholder& image : images)
      if (image.url) urls.push_back(*image.url);
    if (options.resources && !urls.empty()) {
      ResourceLoaderOptions loader = *options.resources;
      if (options.deadline) loader.deadline = *options.deadline;
      reading.loads = loadResources(urls, loader);
    } else {
      for (const URL& url : urls) {
        reading.loads.push_back({url, url, LoadOutcome::kFailed, {}, {}, "not loaded"});
      }
    }
    reading.string = withImages(layout.string(), images, reading.loads);
    if (!options.resources) reading.loads.clear();
  }
  if (reading.string.length() == 0) return std::nullopt;
  return reading;
}

std::optional<HtmlReading> readHTML(std::span<const std::uint8_t> data,
                                    const HtmlReaderOptions& options) {
  if (data.empty()) return std::nullopt;
  NSStringEncoding used = kNoStringEncoding;
  std::optional<std::u16string> html = stringWithMarkupData(
      data, options.textEncodingName, NSWindowsCP1252StringEncoding, u"", &used);
  if (!html) return std::nullopt;
  std::optional<HtmlReading> reading = readHTMLString(*html, options);
  if (reading && used != kNoStringEncoding) {
    reading->documentAttributes[std::u16string(kCharacterEncodingDocumentAttribute)] =
        static_cast<std::int64_t>(used);
  }
  return reading;
}

}  // namespace ferncast
