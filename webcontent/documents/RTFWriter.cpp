// The RTF writer: the header and tables first, then the runs of the string, each paragraph
// opening with its \pard settings when they change and each run with the control words that
// differ from the run before.
#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <string>
#include <unordered_map>
#include <vector>

#include "Classes/Unicode.h"
#include "webcontent/documents/CodePages.h"
#include "webcontent/documents/RTF.h"

namespace ferncast {
namespace {

constexpr std::u16string_view kDefaultFamily = u"Helvetica";

// A number rounded to the 32-bit range RTF readers expect; 0 for NaN.
int whole(double value) {
  if (std::isnan(value)) return 0;
  return static_cast<int>(std::lround(std::clamp(value, -2147483647.0, 2147483647.0)));
}

int twips(double points) {
  return whole(points * 20);
}

// Windows-1252 bytes of the characters above ASCII that it holds.
const std::unordered_map<char16_t, std::uint8_t>& windows1252() {
  static const std::unordered_map<char16_t, std::uint8_t> map = [] {
    std::unordered_map<char16_t, std::uint8_t> result;
    const std::array<char16_t, 256>* table = singleByteTable(kDefaultCodePage);
    for (int byte = 0x80; table && byte < 0x100; ++byte) {
      if ((*table)[byte] != u'\uFFFD')
        result.emplace((*table)[byte], static_cast<std::uint8_t>(byte));
    }
    return result;
  }();
  return map;
}

void appendNumber(std::string& out, long long value) {
  out += std::to_string(value);
}

void controlWord(std::string& out, std::string_view word, long long value) {
  out += '\\';
  out += word;
  appendNumber(out, value);
}

// Text as RTF: ASCII as it is, Windows-1252 as \'xx, the rest as \uc0\uN.
void appendEscaped(std::string& out, std::u16string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  for (char16_t c : text) {
    switch (c) {
      case u'\\':
        out += "\\\\";
        continue;
      case u'{':
        out += "\\{";
        continue;
      case u'}':
        out += "\\}";
        continue;
      case u'\t':
        out += "\\tab ";
        continue;
      case u'\n':
      case u'\r':
      case u'\u2029':
        out += "\\\n";
        continue;
      case u'\u2028':
        out += "\\line ";
        continue;
      case u'\f':
        out += "\\page ";
        continue;
      default:
        break;
    }
    if (c >= 0x20 && c < 0x7F) {
      out += static_cast<char>(c);
      continue;
    }
    if (c >= 0x80) {
      const auto& map = windows1252();
      if (const auto it = map.find(c); it != map.end()) {
        out += "\\'";
        out += kHex[it->second >> 4];
        out += kHex[it->second & 15];
        continue;
      }
    }
    out += "\\uc0";  // as the platform writes it: no fallback bytes follow
    controlWord(out, "u", static_cast<std::int16_t>(c));
    out += ' ';
  }
}

std::optional<double> numberValue(const Dictionary& attributes, std::u16string_view key) {
  const auto it = attributes.find(std::u16string(key));
  return it == attributes.end() ? std::nullopt : it->second.number();
}

const std::u16string* stringValue(const Dictionary& attributes, std::u16string_view key) {
  const auto it = attributes.find(std::u16string(key));
  return it == attributes.end() ? nullptr : it->second.as<std::u16string>();
}

// The width and height of a size string ("{612, 792}").
std::optional<std::pair<double, double>> sizeValue(const Dictionary& attributes,
                                                   std::u16string_view key) {
  const std::u16string* text = stringValue(attributes, key);
  if (!text) return std::nullopt;
  std::string ascii;
  for (char16_t c : *text)
    ascii.push_back(c < 0x80 ? static_cast<char>(c) : '?');
  double width = 0, height = 0;
  if (std::sscanf(ascii.c_str(), " {%lf , %lf }", &width, &height) != 2) return std::nullopt;
  return std::make_pair(width, height);
}

// The family class RTF states for a font, by its name.
const char* familyClass(std::u16string_view family) {
  if (family.starts_with(u"Helvetica") || family.starts_with(u"Arial")) return "\\fswiss";
  if (family.starts_with(u"Times")) return "\\froman";
  if (family.starts_with(u"Courier") || family.starts_with(u"Menlo") ||
      family.starts_with(u"Monaco")) {
    return "\\fmodern";
  }
  return "\\fnil";
}

bool isBulletFormat(std::u16string_view format) {
  return format.find(u"{decimal}") == std::u16string_view::npos &&
         format.find(u"-roman}") == std::u16string_view::npos &&
         format.find(u"-alpha}") == std::u16string_view::npos;
}

int numberingOfFormat(std::u16string_view format) {
  if (format.find(u"{decimal}") != std::u16string_view::npos) return 0;
  if (format.find(u"{upper-roman}") != std::u16string_view::npos) return 1;
  if (format.find(u"{lower-roman}") != std::u16string_view::npos) return 2;
  if (format.find(u"{upper-alpha}") != std::u16string_view::npos) return 3;
  if (format.find(u"{lower-alpha}") != std::u16string_view::npos) return 4;
  return 23;
}

// The character formatting written so far, as RTF numbers.
struct CharState {
  int font = -1;  // -1: not yet written
  int halfPoints = -1;
  bool bold = false, italic = false, strikethrough = false;
  UnderlineStyle underline = UnderlineStyle::kNone;
  int foreground = 0, background = 0;
  int superscript = 0;
  int up = 0;
};

class Writer {
 public:
  Writer(const AttributedString& string, const Dictionary& attributes,
         std::span<const std::u16string> attachmentNames)
      : string_(string), attributes_(attributes), names_(attachmentNames) {}

  Data write();

 private:
  int fontIndex(const Font& font);
  int colorIndex(const std::optional<Color>& color);
  int listIndex(const std::vector<TextList>& lists);
  void writeHeader();
  void writeInfo();
  void writePageSettings();
  void writeParagraphStyle(const ParagraphStyle& style);
  void writeCharacterChanges(const Attributes& attributes);
  void writeAttachment(const TextAttachment& attachment, std::size_t index);
  void openLink(std::u16string_view url);
  void closeLink();

  const AttributedString& string_;
  const Dictionary& attributes_;
  std::span<const std::u16string> names_;
  std::string out_;
  std::vector<std::u16string> fonts_;
  std::unordered_map<std::u16string, int> fontIndices_;
  std::vector<Color> colors_;  // after the automatic colour (index 0)
  std::vector<std::vector<TextList>> lists_;
  CharState chars_;
  CharState charsOutsideLink_;
  std::u16string link_;
};

int Writer::fontIndex(const Font& font) {
  const std::u16string family(font.family.empty() ? kDefaultFamily : font.family);
  const auto [it, added] = fontIndices_.emplace(family, static_cast<int>(fonts_.size()));
  if (added) fonts_.push_back(family);
  return it->second;
}

int Writer::colorIndex(const std::optional<Color>& color) {
  if (!color) return 0;
  for (std::size_t i = 0; i < colors_.size(); ++i) {
    if (colors_[i] == *color) return static_cast<int>(i) + 1;
  }
  colors_.push_back(*color);
  return static_cast<int>(colors_.size());
}

int Writer::listIndex(const std::vector<TextList>& lists) {
  for (std::size_t i = 0; i < lists_.size(); ++i) {
    if (lists_[i] == lists) return static_cast<int>(i) + 1;
  }
  lists_.push_back(lists);
  return static_cast<int>(lists_.size());
}

void Writer::writeHeader() {
  out_ = "{\\rtf1\\ansi\\ansicpg1252";
  controlWord(out_, "cocoartf", kCocoaRTFVersion);
  out_ += "\n\\cocoatextscaling0\\cocoaplatform0{\\fonttbl";
  for (std::size_t i = 0; i < fonts_.size(); ++i) {
    controlWord(out_, "f", static_cast<long long>(i));
    out_ += familyClass(fonts_[i]);
    out_ += "\\fcharset0 ";
    appendEscaped(out_, fonts_[i]);
    out_ += ';';
  }
  out_ += "}\n{\\colortbl;";
  for (const Color& color : colors_) {
    controlWord(out_, "red", color.red);
    controlWord(out_, "green", color.green);
    controlWord(out_, "blue", color.blue);
    out_ += ';';
  }
  out_ += "}\n{\\*\\expandedcolortbl;";
  out_.append(colors_.size(), ';');
  out_ += "}\n";
  if (lists_.empty()) return;
  out_ += "{\\*\\listtable";
  for (std::size_t i = 0; i < lists_.size(); ++i) {
    out_ += "{\\list";
    controlWord(out_, "listtemplateid", static_cast<long long>(i) + 1);
    out_ += "\\listhybrid";
    for (std::size_t level = 0; level < lists_[i].size(); ++level) {
      const TextList& list = lists_[i][level];
      const int numbering = numberingOfFormat(list.markerFormat);
      out_ += "{\\listlevel";
      controlWord(out_, "levelnfc", numbering);
      controlWord(out_, "levelnfcn", numbering);
      out_ += "\\leveljc0\\leveljcn0\\levelfollow0";
      controlWord(out_, "levelstartat", list.startingItem);
      out_ += "\\levelspace360\\levelindent0{\\*\\levelmarker ";
      appendEscaped(out_, list.markerFormat);
      out_ += "}{\\leveltext";
      if (isBulletFormat(list.markerFormat)) {
        out_ += "\\'01\\uc0\\u8226 ;}{\\levelnumbers;}";
      } else {
        out_ += "\\'02\\'";
        out_ += static_cast<char>('0' + level / 10);
        out_ += static_cast<char>('0' + level % 10);
        out_ += ".;}{\\levelnumbers\\'01;}";
      }
      controlWord(out_, "fi", -360);
      controlWord(out_, "li", 720 * (static_cast<long long>(level) + 1));
      controlWord(out_, "lin", 720 * (static_cast<long long>(level) + 1));
      out_ += " }";
    }
    out_ += "{\\listname ;}";
    controlWord(out_, "listid", static_cast<long long>(i) + 1);
    out_ += '}';
  }
  out_ += "}\n{\\*\\listoverridetable";
  for (std::size_t i = 0; i < lists_.size(); ++i) {
    out_ += "{\\listoverride";
    controlWord(out_, "listid", static_cast<long long>(i) + 1);
    out_ += "\\listoverridecount0";
    controlWord(out_, "ls", static_cast<long long>(i) + 1);
    out_ += '}';
  }
  out_ += "}\n";
}

void Writer::writeInfo() {
  std::string info;
  auto text = [&](std::u16string_view key, const char* group) {
    std::u16string value;
    if (const std::u16string* s = stringValue(attributes_, key)) {
      value = *s;
    } else if (const auto it = attributes_.find(std::u16string(key)); it != attributes_.end()) {
      if (const Array* items = it->second.as<Array>()) {
        for (const Value& item : *items) {
          if (const std::u16string* s = item.as<std::u16string>()) {
            if (!value.empty()) value += u", ";
            value += *s;
          }
        }
      }
    }
    if (value.empty()) return;
    info += "{";
    info += group;
    info += ' ';
    appendEscaped(info, value);
    info += "}\n";
  };
  auto time = [&](std::u16string_view key, const char* group) {
    const auto it = attributes_.find(std::u16string(key));
    const Date* date = it == attributes_.end() ? nullptr : it->second.as<Date>();
    if (!date || !std::isfinite(date->secondsSince1970)) return;
    const auto seconds = static_cast<std::time_t>(std::floor(date->secondsSince1970));
    std::tm tm{};
    if (!gmtime_r(&seconds, &tm)) return;
    info += "{";
    info += group;
    controlWord(info, "yr", tm.tm_year + 1900);
    controlWord(info, "mo", tm.tm_mon + 1);
    controlWord(info, "dy", tm.tm_mday);
    controlWord(info, "hr", tm.tm_hour);
    controlWord(info, "min", tm.tm_min);
    controlWord(info, "sec", tm.tm_sec);
    info += "}\n";
  };
  text(kTitleDocumentAttribute, "\\title");
  text(kSubjectDocumentAttribute, "\\subject");
  text(kAuthorDocumentAttribute, "\\author");
  text(kEditorDocumentAttribute, "\\operator");
  text(kKeywordsDocumentAttribute, "\\keywords");
  text(kCommentDocumentAttribute, "\\doccomm");
  text(kCompanyDocumentAttribute, "\\*\\company");
  text(kCopyrightDocumentAttribute, "\\*\\copyright");
  time(kCreationTimeDocumentAttribute, "\\creatim");
  time(kModificationTimeDocumentAttribute, "\\revtim");
  if (!info.empty()) out_ += "{\\info\n" + info + "}";
}

void Writer::writePageSettings() {
  std::string settings;
  if (const auto paper = sizeValue(attributes_, kPaperSizeDocumentAttribute)) {
    controlWord(settings, "paperw", twips(paper->first));
    controlWord(settings, "paperh", twips(paper->second));
  }
  const std::pair<std::u16string_view, const char*> margins[] = {
      {kLeftMarginDocumentAttribute, "margl"},
      {kRightMarginDocumentAttribute, "margr"},
      {kTopMarginDocumentAttribute, "margt"},
      {kBottomMarginDocumentAttribute, "margb"}};
  for (const auto& [key, word] : margins) {
    if (const auto value = numberValue(attributes_, key))
      controlWord(settings, word, twips(*value));
  }
  if (const auto view = sizeValue(attributes_, kViewSizeDocumentAttribute)) {
    controlWord(settings, "vieww", twips(view->first));
    controlWord(settings, "viewh", twips(view->second));
  }
  if (const auto zoom = numberValue(attributes_, kViewZoomDocumentAttribute)) {
    controlWord(settings, "viewscale", whole(*zoom));
  }
  if (const auto mode = numberValue(attributes_, kViewModeDocumentAttribute)) {
    controlWord(settings, "viewkind", whole(*mode));
  }
  if (const auto tab = numberValue(attributes_, kDefaultTabIntervalDocumentAttribute)) {
    controlWord(settings, "deftab", twips(*tab));
  }
  if (!settings.empty()) out_ += settings + "\n";
}

void Writer::writeParagraphStyle(const ParagraphStyle& style) {
  out_ += "\\pard";
  for (const TabStop& tab : style.tabStops) {
    switch (tab.alignment) {
      case TabAlignment::kRight:
        out_ += "\\tqr";
        break;
      case TabAlignment::kCenter:
        out_ += "\\tqc";
        break;
      case TabAlignment::kDecimal:
        out_ += "\\tqdec";
        break;
      case TabAlignment::kLeft:
        break;
    }
    controlWord(out_, "tx", twips(tab.location));
  }
  const int left = twips(style.headIndent);
  if (left != 0) controlWord(out_, "li", left);
  const int first = twips(style.firstLineHeadIndent) - left;
  if (first != 0) controlWord(out_, "fi", first);
  if (twips(style.tailIndent) != 0) controlWord(out_, "ri", twips(style.tailIndent));
  if (twips(style.paragraphSpacingBefore) != 0) {
    controlWord(out_, "sb", twips(style.paragraphSpacingBefore));
  }
  if (twips(style.paragraphSpacing) != 0) controlWord(out_, "sa", twips(style.paragraphSpacing));
  if (style.lineHeightMultiple > 0) {
    controlWord(out_, "sl", whole(style.lineHeightMultiple * 240));
    out_ += "\\slmult1";
  }
  if (twips(style.lineSpacing) != 0) controlWord(out_, "slleading", twips(style.lineSpacing));
  switch (style.alignment) {
    case TextAlignment::kLeft:
      out_ += "\\ql";
      break;
    case TextAlignment::kRight:
      out_ += "\\qr";
      break;
    case TextAlignment::kCenter:
      out_ += "\\qc";
      break;
    case TextAlignment::kJustified:
      out_ += "\\qj";
      break;
    case TextAlignment::kNatural:
      break;
  }
  if (!style.textLists.empty()) {
    controlWord(out_, "ls", listIndex(style.textLists));
    controlWord(out_, "ilvl", static_cast<long long>(style.textLists.size()) - 1);
  }
  out_ += "\\pardirnatural\\partightenfactor0\n";
}

void Writer::writeCharacterChanges(const Attributes& a) {
  CharState next;
  next.font = fontIndex(a.font);
  next.halfPoints = std::clamp(twips(a.font.pointSize) / 10, 1, 3276);
  next.bold = a.font.bold;
  next.italic = a.font.italic;
  next.strikethrough = a.strikethrough;
  next.underline = a.underline;
  next.foreground = colorIndex(a.foregroundColor);
  next.background = colorIndex(a.backgroundColor);
  next.superscript = a.superscript > 0 ? 1 : a.superscript < 0 ? -1 : 0;
  next.up = std::clamp(twips(a.baselineOffset) / 10, -3276, 3276);
  const std::size_t before = out_.size();
  if (next.font != chars_.font) controlWord(out_, "f", next.font);
  if (next.halfPoints != chars_.halfPoints) controlWord(out_, "fs", next.halfPoints);
  if (next.bold != chars_.bold) out_ += next.bold ? "\\b" : "\\b0";
  if (next.italic != chars_.italic) out_ += next.italic ? "\\i" : "\\i0";
  if (next.underline != chars_.underline) {
    switch (next.underline) {
      case UnderlineStyle::kNone:
        out_ += "\\ulnone";
        break;
      case UnderlineStyle::kSingle:
        out_ += "\\ul";
        break;
      case UnderlineStyle::kDouble:
        out_ += "\\uldb";
        break;
      case UnderlineStyle::kThick:
        out_ += "\\ulth";
        break;
    }
  }
  if (next.strikethrough != chars_.strikethrough) {
    out_ += next.strikethrough ? "\\strike" : "\\strike0";
  }
  if (next.foreground != chars_.foreground) controlWord(out_, "cf", next.foreground);
  if (next.background != chars_.background) controlWord(out_, "cb", next.background);
  if (next.superscript != chars_.superscript) {
    out_ += next.superscript > 0 ? "\\super" : next.superscript < 0 ? "\\sub" : "\\nosupersub";
  }
  if (next.up != chars_.up) {
    if (next.up >= 0) {
      controlWord(out_, "up", next.up);
    } else {
      controlWord(out_, "dn", -next.up);
    }
  }
  if (out_.size() != before) out_ += ' ';
  chars_ = next;
}

void Writer::openLink(std::u16string_view url) {
  charsOutsideLink_ = chars_;
  link_ = url;
  out_ += "{\\field{\\*\\fldinst{HYPERLINK \"";
  std::u16string quoted;
  for (char16_t c : url) {
    if (c == u'"') {
      quoted += u"%22";
    } else {
      quoted += c;
    }
  }
  appendEscaped(out_, quoted);
  out_ += "\"}}{\\fldrslt ";
}

void Writer::closeLink() {
  if (link_.empty()) return;
  out_ += "}}";
  chars_ = charsOutsideLink_;
  link_.clear();
}

void Writer::writeAttachment(const TextAttachment& attachment, std::size_t index) {
  out_ += "{{\\NeXTGraphic ";
  // The name as UTF-8 bytes, escaped like the bytes of any text.
  static constexpr char kHex[] = "0123456789abcdef";
  for (char b : utf16ToUtf8(names_[index])) {
    const auto byte = static_cast<std::uint8_t>(b);
    if (byte == '\\' || byte == '{' || byte == '}') {
      out_ += '\\';
      out_ += b;
    } else if (byte >= 0x20 && byte < 0x7F) {
      out_ += b;
    } else {
      out_ += "\\'";
      out_ += kHex[byte >> 4];
      out_ += kHex[byte & 15];
    }
  }
  if (twips(attachment.width) > 0) {
    out_ += ' ';
    controlWord(out_, "width", twips(attachment.width));
  }
  if (twips(attachment.height) > 0) {
    out_ += ' ';
    controlWord(out_, "height", twips(attachment.height));
  }
  out_ += " \\noorient\n}\xAC}";
}

Data Writer::write() {
  // The tables fill as the body uses fonts, colours and lists; the platform always lists
  // Helvetica and white first.
  colors_.push_back({255, 255, 255});
  fontIndex(Font());
  const std::u16string& text = string_.string();
  std::optional<ParagraphStyle> paragraphStyle;
  bool paragraphStart = true;
  // Settings are written only before something is written under them, so that what is left out
  // (attachments without a name) leaves no trace.
  auto prepare = [&](std::size_t at, const Attributes& a) {
    if (paragraphStart) {
      closeLink();
      const ParagraphStyle& style = string_.attributesAtIndex(at).paragraphStyle;
      if (!paragraphStyle || !(*paragraphStyle == style)) {
        out_ += '\n';
        writeParagraphStyle(style);
        paragraphStyle = style;
      }
      paragraphStart = false;
    }
    if (a.link != link_) {
      closeLink();
      if (!a.link.empty()) openLink(a.link);
    }
    writeCharacterChanges(a);
  };
  auto writeText = [&](std::size_t from, std::size_t to, const Attributes& a) {
    if (from == to) return;
    prepare(from, a);
    appendEscaped(out_, std::u16string_view(text).substr(from, to - from));
  };
  std::size_t attachmentIndex = 0;
  for (std::size_t r = 0; r < string_.runCount(); ++r) {
    const AttributedString::Run run = string_.run(r);
    const Attributes& a = run.attributes;
    std::size_t i = run.location;
    const std::size_t end = run.location + run.length;
    while (i < end) {
      // Up to the end of the run or past the next paragraph separator, whichever comes first.
      std::size_t stop = i;
      while (stop < end && text[stop] != u'\n' && text[stop] != u'\r' && text[stop] != u'\u2029') {
        ++stop;
      }
      const bool endsParagraph = stop < end;
      if (endsParagraph) ++stop;
      for (std::size_t j = i; j < stop; ++j) {
        if (text[j] != kAttachmentCharacter || !a.attachment) continue;
        writeText(i, j, a);
        const std::size_t index = attachmentIndex++;
        if (index < names_.size() && !names_[index].empty()) {
          prepare(j, a);
          writeAttachment(*a.attachment, index);
        }
        i = j + 1;
      }
      writeText(i, stop, a);
      i = stop;
      if (endsParagraph) paragraphStart = true;
    }
  }
  closeLink();
  if (!paragraphStyle) {
    out_ += '\n';
    writeParagraphStyle(ParagraphStyle());
    writeCharacterChanges(Attributes());
  }
  // The list table holds the lists the paragraphs used, so the header comes last.
  const std::string body = std::move(out_) + '}';
  writeHeader();
  writeInfo();
  writePageSettings();
  out_ += body;
  return Data(out_.begin(), out_.end());
}

}  // namespace

Data RTFFromRange(const AttributedString& string, const Dictionary& documentAttributes) {
  return Writer(string, documentAttributes, {}).write();
}

Data RTFFromRange(const AttributedString& string, const Dictionary& documentAttributes,
                  std::span<const std::u16string> attachmentNames) {
  return Writer(string, documentAttributes, attachmentNames).write();
}

}  // namespace ferncast
