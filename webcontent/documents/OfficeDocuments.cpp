#include "webcontent/documents/OfficeDocuments.h"

#include <zip.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <unordered_map>

#include "Classes/Unicode.h"
#include "webcontent/documents/CssSubset.h"
#include "webcontent/documents/ListMarkers.h"

namespace ferncast {
namespace {

constexpr int kMaxDepth = 256;
constexpr double kDefaultSize = 12;
constexpr double kHeadingSizes[] = {24, 18, 14, 12, 10, 8};

// ---- Packages ----

struct ZipCloser {
  void operator()(zip_t* archive) const { zip_discard(archive); }
};

std::unique_ptr<zip_t, ZipCloser> openZip(std::span<const std::uint8_t> bytes) {
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &error);
  zip_error_fini(&error);
  if (!source) return nullptr;
  zip_error_init(&error);
  zip_t* archive = zip_open_from_source(source, ZIP_RDONLY, &error);
  zip_error_fini(&error);
  if (!archive) zip_source_free(source);
  return std::unique_ptr<zip_t, ZipCloser>(archive);
}

// An entry's bytes, at most kMaxPartBytes whatever its header claims.
std::optional<Data> readEntry(zip_t* archive, std::string_view name) {
  std::string entry(name);
  zip_file_t* file = zip_fopen(archive, entry.c_str(), 0);
  if (!file) return std::nullopt;
  Data bytes;
  std::uint8_t buffer[65536];
  bool ok = true;
  for (;;) {
    zip_int64_t n = zip_fread(file, buffer, sizeof buffer);
    if (n < 0) ok = false;
    if (n <= 0) break;
    if (bytes.size() + static_cast<std::size_t>(n) > kMaxPartBytes) {
      ok = false;
      break;
    }
    bytes.insert(bytes.end(), buffer, buffer + n);
  }
  zip_fclose(file);
  if (!ok) return std::nullopt;
  return bytes;
}

PackagePart zipParts(zip_t* archive) {
  return [archive](std::string_view name) { return readEntry(archive, name); };
}

// Parses XML keeping white-space-only text (spaces between words in their own runs). nullptr on
// failure.
std::unique_ptr<pugi::xml_document> parseXml(const std::optional<Data>& bytes) {
  if (!bytes) return nullptr;
  auto document = std::make_unique<pugi::xml_document>();
  try {
    pugi::xml_parse_result result =
        document->load_buffer(bytes->data(), bytes->size(),
                              pugi::parse_default | pugi::parse_ws_pcdata, pugi::encoding_auto);
    if (!result) return nullptr;
  } catch (const std::exception&) {
    return nullptr;
  }
  return document;
}

// The name without its namespace prefix.
std::string_view local(const pugi::xml_node& node) {
  std::string_view name = node.name();
  std::size_t colon = name.find(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

std::string_view localOf(std::string_view name) {
  std::size_t colon = name.find(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

// The attribute with this local name, whatever its prefix.
pugi::xml_attribute attributeNamed(const pugi::xml_node& node, std::string_view name) {
  for (pugi::xml_attribute a : node.attributes())
    if (localOf(a.name()) == name) return a;
  return {};
}

std::string_view value(const pugi::xml_node& node, std::string_view name) {
  return attributeNamed(node, name).value();
}

pugi::xml_node child(const pugi::xml_node& node, std::string_view name) {
  for (pugi::xml_node c : node.children())
    if (c.type() == pugi::node_element && local(c) == name) return c;
  return {};
}

std::u16string utf16(std::string_view s) {
  return utf8ToUtf16(s);
}

// "on" unless the value says off.
bool toggle(const pugi::xml_node& node) {
  std::string_view v = value(node, "val");
  return !(v == "0" || v == "false" || v == "off" || v == "none");
}

double number(std::string_view s, double fallback) {
  std::string text(s);
  char* end = nullptr;
  double v = std::strtod(text.c_str(), &end);
  return end == text.c_str() || !std::isfinite(v) ? fallback : v;
}

// "2024-05-06T07:08:09Z" and its shorter forms, read as UTC.
std::optional<Date> parseDate(std::string_view s) {
  std::tm tm{};
  int fields = std::sscanf(std::string(s).c_str(), "%4d-%2d-%2dT%2d:%2d:%2d", &tm.tm_year,
                           &tm.tm_mon, &tm.tm_mday, &tm.tm_hour, &tm.tm_min, &tm.tm_sec);
  if (fields < 3) return std::nullopt;
  tm.tm_year -= 1900;
  tm.tm_mon -= 1;
  return Date{static_cast<double>(timegm(&tm))};
}

// A list level's marker and its platform format.
struct ListLevel {
  std::u16string format;  // TextList markerFormat; empty until a level is known
  int start = 1;
};

ListLevel listLevel(std::string_view kind, int level) {
  ListLevel l;
  if (kind == "decimal" || kind == "1")
    l.format = u"{decimal}.";
  else if (kind == "lowerLetter" || kind == "a")
    l.format = u"{lower-alpha}.";
  else if (kind == "upperLetter" || kind == "A")
    l.format = u"{upper-alpha}.";
  else if (kind == "lowerRoman" || kind == "i")
    l.format = u"{lower-roman}.";
  else if (kind == "upperRoman" || kind == "I")
    l.format = u"{upper-roman}.";
  else
    l.format = level == 0 ? u"{disc}" : level == 1 ? u"{circle}" : u"{square}";
  return l;
}

// The levels down to `level`, those the document leaves out made bullets.
std::vector<ListLevel> levelsTo(std::vector<ListLevel> levels, int level) {
  if (levels.size() <= static_cast<std::size_t>(level)) levels.resize(level + 1);
  for (int i = 0; i <= level; ++i)
    if (levels[i].format.empty()) levels[i] = listLevel("bullet", i);
  return levels;
}

// Character formatting that a style or a run may set.
struct RunProperties {
  std::optional<bool> bold, italic, strike;
  std::optional<UnderlineStyle> underline;
  std::optional<double> size;
  std::optional<Color> color, background;
  std::optional<std::u16string> family;
  std::optional<int> superscript;

  void merge(const RunProperties& o) {
    if (o.bold) bold = o.bold;
    if (o.italic) italic = o.italic;
    if (o.strike) strike = o.strike;
    if (o.underline) underline = o.underline;
    if (o.size) size = o.size;
    if (o.color) color = o.color;
    if (o.background) background = o.background;
    if (o.family) family = o.family;
    if (o.superscript) superscript = o.superscript;
  }
  void applyTo(Attributes& a) const {
    if (bold) a.font.bold = *bold;
    if (italic) a.font.italic = *italic;
    if (strike) a.strikethrough = *strike;
    if (underline) a.underline = *underline;
    if (size) a.font.pointSize = std::clamp(*size, 1.0, 1000.0);
    if (color) a.foregroundColor = color;
    if (background) a.backgroundColor = background;
    if (family) a.font.family = *family;
    if (superscript) a.superscript = *superscript;
  }
};

struct ParagraphProperties {
  std::optional<TextAlignment> alignment;
  std::optional<double> indent;
  int headingLevel = 0;  // 1...6, 0 for none
};

// A paragraph or character style, with the style it is based on.
struct NamedStyle {
  std::string parent;
  RunProperties run;
  ParagraphProperties paragraph;
};

// Merges the style `id` after the styles it is based on (at most 10 deep, so loops end).
void resolveStyle(const std::unordered_map<std::string, NamedStyle>& styles, std::string id,
                  RunProperties& run, ParagraphProperties* paragraph) {
  std::vector<const NamedStyle*> chain;
  while (!id.empty() && chain.size() < 10) {
    auto found = styles.find(id);
    if (found == styles.end()) break;
    chain.push_back(&found->second);
    id = found->second.parent;
  }
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    run.merge((*it)->run);
    if (!paragraph) continue;
    const ParagraphProperties& p = (*it)->paragraph;
    if (p.alignment) paragraph->alignment = p.alignment;
    if (p.indent) paragraph->indent = p.indent;
    if (p.headingLevel) paragraph->headingLevel = p.headingLevel;
  }
}

// Builds the string paragraph by paragraph; a paragraph's style is known at its start.
class Builder {
 public:
  void text(std::u16string_view s, const Attributes& a) {
    if (s.empty()) return;
    out_.append(s, a);
    lineStart_ = s.back() == u'\n';
  }
  void attachment(std::shared_ptr<const FileWrapper> wrapper, const Attributes& a) {
    out_.appendAttachment({std::move(wrapper)}, a);
    lineStart_ = false;
  }
  void endParagraph(const Attributes& a) { text(u"\n", a); }
  bool atLineStart() const { return lineStart_; }
  AttributedString take() { return std::move(out_); }

 private:
  AttributedString out_;
  bool lineStart_ = true;
};

// Gives the paragraph the lists down to `level` and writes the item's marker.
void listItem(Builder& builder, Attributes& a, const std::vector<ListLevel>& levels, int level,
              int n) {
  std::vector<TextList> lists;
  for (int i = 0; i <= level; ++i)
    lists.push_back({levels[i].format, levels[i].start});
  setListParagraphStyle(a.paragraphStyle, lists);
  builder.text(u"\t" + listMarker(levels[level].format, n) + u"\t", a);
}

// Keywords separated by commas or semicolons.
Array keywordList(std::u16string_view text) {
  Array words;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = std::min(text.find_first_of(u",;", start), text.size());
    std::u16string_view word = text.substr(start, end - start);
    while (!word.empty() && word.front() == u' ')
      word.remove_prefix(1);
    while (!word.empty() && word.back() == u' ')
      word.remove_suffix(1);
    if (!word.empty()) words.emplace_back(std::u16string(word));
    start = end + 1;
  }
  return words;
}

// A metadata element of a package and the document attribute it gives.
struct PropertyName {
  const char* element;  // local name
  std::u16string_view key;
};

// The document attributes of the metadata elements under `parent`: dates for the time keys,
// keyword lists (one element with a list, or one element per keyword), text for the rest.
void readPropertyElements(const pugi::xml_node& parent, std::span<const PropertyName> names,
                          Dictionary& attributes) {
  Array keywords;
  for (pugi::xml_node n : parent.children()) {
    auto found = std::find_if(names.begin(), names.end(),
                              [&](const PropertyName& p) { return local(n) == p.element; });
    std::u16string text = utf16(n.text().get());
    if (found == names.end() || text.empty()) continue;
    if (found->key == kKeywordsDocumentAttribute) {
      for (Value& word : keywordList(text))
        keywords.push_back(std::move(word));
    } else if (found->key == kCreationTimeDocumentAttribute ||
               found->key == kModificationTimeDocumentAttribute) {
      if (auto date = parseDate(n.text().get())) attributes[std::u16string(found->key)] = *date;
    } else {
      attributes[std::u16string(found->key)] = std::move(text);
    }
  }
  if (!keywords.empty())
    attributes[std::u16string(kKeywordsDocumentAttribute)] = std::move(keywords);
}

// ---- Office Open XML ----

class DocxReader {
 public:
  explicit DocxReader(const PackagePart& part) : part_(part) {}

  std::optional<Document> read() {
    auto document = parseXml(part_("word/document.xml"));
    if (!document) return std::nullopt;
    pugi::xml_node body = child(child(*document, "document"), "body");
    if (!body) return std::nullopt;
    readRelationships();
    readStyles();
    readNumbering();
    block(body, 0, false);
    Document result{builder_.take(), {}};
    result.documentAttributes[std::u16string(kDocumentTypeDocumentAttribute)] =
        std::u16string(kOfficeOpenXMLTextDocumentType);
    readProperties(result.documentAttributes);
    return result;
  }

 private:
  void readRelationships() {
    auto rels = parseXml(part_("word/_rels/document.xml.rels"));
    if (!rels) return;
    for (pugi::xml_node r : child(*rels, "Relationships").children()) {
      if (local(r) != "Relationship") continue;
      Relationship& target = relationships_[r.attribute("Id").value()];
      target.target = r.attribute("Target").value();
      target.external = std::string_view(r.attribute("TargetMode").value()) == "External";
    }
  }

  static RunProperties runProperties(const pugi::xml_node& rPr) {
    RunProperties p;
    for (pugi::xml_node n : rPr.children()) {
      std::string_view name = local(n);
      if (name == "b")
        p.bold = toggle(n);
      else if (name == "i")
        p.italic = toggle(n);
      else if (name == "strike" || name == "dstrike")
        p.strike = toggle(n);
      else if (name == "u") {
        std::string_view v = value(n, "val");
        p.underline = v == "none" || v == "0" ? UnderlineStyle::kNone
                      : v == "double"         ? UnderlineStyle::kDouble
                      : v == "thick"          ? UnderlineStyle::kThick
                                              : UnderlineStyle::kSingle;
      } else if (name == "sz")
        p.size = number(value(n, "val"), 2 * kDefaultSize) / 2;
      else if (name == "color") {
        if (auto c = parseCssColor(u"#" + utf16(value(n, "val")))) p.color = c;
      } else if (name == "highlight") {
        if (auto c = parseCssColor(utf16(value(n, "val")))) p.background = c;
      } else if (name == "shd") {
        std::string_view fill = value(n, "fill");
        if (!fill.empty() && fill != "auto")
          if (auto c = parseCssColor(u"#" + utf16(fill))) p.background = c;
      } else if (name == "rFonts") {
        std::string_view family = value(n, "ascii");
        if (family.empty()) family = value(n, "hAnsi");
        if (!family.empty()) p.family = utf16(family);
      } else if (name == "vertAlign") {
        std::string_view v = value(n, "val");
        p.superscript = v == "superscript" ? 1 : v == "subscript" ? -1 : 0;
      }
    }
    return p;
  }

  static ParagraphProperties paragraphProperties(const pugi::xml_node& pPr) {
    ParagraphProperties p;
    for (pugi::xml_node n : pPr.children()) {
      std::string_view name = local(n);
      if (name == "jc") {
        std::string_view v = value(n, "val");
        p.alignment = v == "center"                      ? TextAlignment::kCenter
                      : v == "right" || v == "end"       ? TextAlignment::kRight
                      : v == "both" || v == "distribute" ? TextAlignment::kJustified
                                                         : TextAlignment::kLeft;
      } else if (name == "ind") {
        std::string_view left = value(n, "left");
        if (left.empty()) left = value(n, "start");
        if (!left.empty()) p.indent = number(left, 0) / 20;  // twips
      } else if (name == "outlineLvl") {
        p.headingLevel = std::clamp(static_cast<int>(number(value(n, "val"), 9)) + 1, 0, 6);
        if (number(value(n, "val"), 9) >= 6) p.headingLevel = 0;
      }
    }
    return p;
  }

  void readStyles() {
    auto styles = parseXml(part_("word/styles.xml"));
    if (!styles) return;
    pugi::xml_node root = child(*styles, "styles");
    pugi::xml_node defaults = child(child(child(root, "docDefaults"), "rPrDefault"), "rPr");
    defaultRun_ = runProperties(defaults);
    for (pugi::xml_node s : root.children()) {
      if (local(s) != "style") continue;
      NamedStyle& style = styles_[value(s, "styleId").data()];
      style.parent = value(child(s, "basedOn"), "val");
      style.run = runProperties(child(s, "rPr"));
      style.paragraph = paragraphProperties(child(s, "pPr"));
      std::string name(value(child(s, "name"), "val"));
      std::transform(name.begin(), name.end(), name.begin(), ::tolower);
      if (name.starts_with("heading ") && name.size() == 9 && name[8] >= '1' && name[8] <= '6')
        style.paragraph.headingLevel = name[8] - '0';
      if (name == "title") style.paragraph.headingLevel = 1;
    }
  }

  void readNumbering() {
    auto numbering = parseXml(part_("word/numbering.xml"));
    if (!numbering) return;
    pugi::xml_node root = child(*numbering, "numbering");
    std::map<std::string, std::vector<ListLevel>> abstract;
    for (pugi::xml_node a : root.children()) {
      if (local(a) != "abstractNum") continue;
      std::vector<ListLevel>& levels = abstract[value(a, "abstractNumId").data()];
      for (pugi::xml_node l : a.children()) {
        if (local(l) != "lvl") continue;
        int level = std::clamp(static_cast<int>(number(value(l, "ilvl"), 0)), 0, 8);
        if (levels.size() <= static_cast<std::size_t>(level)) levels.resize(level + 1);
        levels[level] = listLevel(value(child(l, "numFmt"), "val"), level);
        levels[level].start = static_cast<int>(number(value(child(l, "start"), "val"), 1));
      }
    }
    for (pugi::xml_node n : root.children()) {
      if (local(n) != "num") continue;
      auto found = abstract.find(value(child(n, "abstractNumId"), "val").data());
      if (found != abstract.end()) lists_[value(n, "numId").data()] = found->second;
    }
  }

  // Body-level content: paragraphs, tables and the containers around them.
  void block(const pugi::xml_node& node, int depth, bool inCell) {
    if (depth > kMaxDepth) return;
    for (pugi::xml_node n : node.children()) {
      std::string_view name = local(n);
      if (name == "p")
        paragraph(n, inCell);
      else if (name == "tbl")
        table(n, depth + 1);
      else if (name == "sdt")
        block(child(n, "sdtContent"), depth + 1, inCell);
      else if (name == "customXml" || name == "ins")
        block(n, depth + 1, inCell);
    }
  }

  void table(const pugi::xml_node& tbl, int depth) {
    if (depth > kMaxDepth) return;
    for (pugi::xml_node row : tbl.children()) {
      if (local(row) != "tr") continue;
      bool firstCell = true;
      Attributes rowAttributes = base_;
      for (pugi::xml_node cell : row.children()) {
        if (local(cell) != "tc") continue;
        if (!firstCell) builder_.text(u"\t", rowAttributes);
        firstCell = false;
        cellStart_ = true;
        block(cell, depth + 1, true);
      }
      builder_.endParagraph(rowAttributes);
    }
  }

  void paragraph(const pugi::xml_node& p, bool inCell) {
    pugi::xml_node pPr = child(p, "pPr");
    RunProperties run;
    ParagraphProperties properties;
    std::string styleId(value(child(pPr, "pStyle"), "val"));
    if (styleId.empty()) styleId = "Normal";
    resolveStyle(styles_, styleId, run, &properties);
    ParagraphProperties direct = paragraphProperties(pPr);
    if (direct.alignment) properties.alignment = direct.alignment;
    if (direct.indent) properties.indent = direct.indent;
    if (direct.headingLevel) properties.headingLevel = direct.headingLevel;
    run.merge(runProperties(child(pPr, "rPr")));

    Attributes a = base_;
    defaultRun_.applyTo(a);
    if (properties.headingLevel) {
      a.font.bold = true;
      a.font.pointSize = kHeadingSizes[properties.headingLevel - 1];
    }
    run.applyTo(a);
    ParagraphStyle& style = a.paragraphStyle;
    if (properties.alignment) style.alignment = *properties.alignment;
    if (properties.indent) style.headIndent = style.firstLineHeadIndent = *properties.indent;

    if (inCell && !cellStart_) builder_.text(u" ", a);
    cellStart_ = false;
    pugi::xml_node numPr = child(pPr, "numPr");
    if (numPr) listMarker(numPr, a);
    inlineContent(p, a, 0);
    if (!inCell) builder_.endParagraph(a);
  }

  void listMarker(const pugi::xml_node& numPr, Attributes& a) {
    std::string id(value(child(numPr, "numId"), "val"));
    auto found = lists_.find(id);
    if (found == lists_.end() || id == "0") return;
    int level = std::clamp(static_cast<int>(number(value(child(numPr, "ilvl"), "val"), 0)), 0, 8);
    std::vector<ListLevel> levels = levelsTo(found->second, level);
    std::vector<int>& counters = counters_[id];
    counters.resize(9, 0);
    for (int deeper = level + 1; deeper < 9; ++deeper)
      counters[deeper] = 0;
    int n = counters[level] == 0 ? levels[level].start : counters[level] + 1;
    counters[level] = n;
    listItem(builder_, a, levels, level, n);
  }

  // Runs and what holds them inside a paragraph.
  void inlineContent(const pugi::xml_node& node, const Attributes& a, int depth) {
    if (depth > kMaxDepth) return;
    for (pugi::xml_node n : node.children()) {
      std::string_view name = local(n);
      if (name == "r") {
        runContent(n, a);
      } else if (name == "hyperlink") {
        Attributes link = a;
        auto found = relationships_.find(value(n, "id").data());
        if (found != relationships_.end() && found->second.external) {
          link.link = utf16(found->second.target);
          link.underline = UnderlineStyle::kSingle;
          link.foregroundColor = Color{0, 0, 238};
        }
        inlineContent(n, link, depth + 1);
      } else if (name == "ins" || name == "smartTag" || name == "fldSimple" ||
                 name == "customXml" || name == "moveTo") {
        inlineContent(n, a, depth + 1);
      } else if (name == "sdt") {
        inlineContent(child(n, "sdtContent"), a, depth + 1);
      }
    }
  }

  void runContent(const pugi::xml_node& r, const Attributes& paragraph) {
    Attributes a = paragraph;
    pugi::xml_node rPr = child(r, "rPr");
    std::string charStyle(value(child(rPr, "rStyle"), "val"));
    if (!charStyle.empty()) {
      RunProperties styled;
      resolveStyle(styles_, charStyle, styled, nullptr);
      styled.applyTo(a);
    }
    runProperties(rPr).applyTo(a);
    for (pugi::xml_node n : r.children()) {
      std::string_view name = local(n);
      if (name == "t")
        builder_.text(utf16(n.text().get()), a);
      else if (name == "tab")
        builder_.text(u"\t", a);
      else if (name == "br" || name == "cr")
        builder_.text(u"\n", a);
      else if (name == "noBreakHyphen")
        builder_.text(u"\u2011", a);
      else if (name == "drawing" || name == "pict" || name == "object")
        picture(n, a);
    }
  }

  // The first image an embedded drawing refers to ("r:embed" of a:blip, "r:id" of v:imagedata).
  void picture(const pugi::xml_node& drawing, const Attributes& a) {
    std::string id;
    std::vector<pugi::xml_node> stack = {drawing};
    int visited = 0;
    while (!stack.empty() && id.empty() && ++visited < 10000) {
      pugi::xml_node n = stack.back();
      stack.pop_back();
      std::string_view name = local(n);
      if (name == "blip")
        id = value(n, "embed");
      else if (name == "imagedata")
        id = value(n, "id");
      for (pugi::xml_node c = n.last_child(); c; c = c.previous_sibling())
        if (c.type() == pugi::node_element) stack.push_back(c);
    }
    auto found = relationships_.find(id);
    if (id.empty() || found == relationships_.end() || found->second.external) return;
    std::string target = found->second.target;
    std::string path = target.starts_with("/") ? target.substr(1) : "word/" + target;
    std::optional<Data> bytes = part_(path);
    if (!bytes) return;
    std::string name = target.substr(target.find_last_of('/') + 1);
    builder_.attachment(std::make_shared<const FileWrapper>(
                            FileWrapper::regularFile(std::move(*bytes), utf16(name))),
                        a);
  }

  void readProperties(Dictionary& attributes) {
    static constexpr PropertyName kCore[] = {
        {"title", kTitleDocumentAttribute},
        {"subject", kSubjectDocumentAttribute},
        {"creator", kAuthorDocumentAttribute},
        {"description", kCommentDocumentAttribute},
        {"lastModifiedBy", kEditorDocumentAttribute},
        {"keywords", kKeywordsDocumentAttribute},
        {"created", kCreationTimeDocumentAttribute},
        {"modified", kModificationTimeDocumentAttribute},
    };
    if (auto core = parseXml(part_("docProps/core.xml")))
      readPropertyElements(child(*core, "coreProperties"), kCore, attributes);
    auto app = parseXml(part_("docProps/app.xml"));
    if (app) {
      std::u16string company = utf16(child(child(*app, "Properties"), "Company").text().get());
      if (!company.empty()) attributes[std::u16string(kCompanyDocumentAttribute)] = company;
    }
  }

 private:
  struct Relationship {
    std::string target;
    bool external = false;
  };

  const PackagePart& part_;
  Builder builder_;
  Attributes base_ = [] {
    Attributes a;
    a.font.pointSize = kDefaultSize;
    return a;
  }();
  bool cellStart_ = false;
  RunProperties defaultRun_;
  std::unordered_map<std::string, Relationship> relationships_;
  std::unordered_map<std::string, NamedStyle> styles_;
  std::unordered_map<std::string, std::vector<ListLevel>> lists_;
  std::unordered_map<std::string, std::vector<int>> counters_;
};

// ---- OpenDocument text ----

class OdtReader {
 public:
  explicit OdtReader(const PackagePart& part) : part_(part) {}

  std::optional<Document> read() {
    auto content = parseXml(part_("content.xml"));
    if (!content) return std::nullopt;
    pugi::xml_node root = child(*content, "document-content");
    pugi::xml_node text = child(child(root, "body"), "text");
    if (!text) return std::nullopt;
    if (auto styles = parseXml(part_("styles.xml"))) {
      pugi::xml_node stylesRoot = child(*styles, "document-styles");
      readStyles(child(stylesRoot, "styles"));
      readStyles(child(stylesRoot, "automatic-styles"));
    }
    readStyles(child(root, "automatic-styles"));
    block(text, 0, false);
    Document result{builder_.take(), {}};
    result.documentAttributes[std::u16string(kDocumentTypeDocumentAttribute)] =
        std::u16string(kOpenDocumentTextDocumentType);
    readMeta(result.documentAttributes);
    return result;
  }

 private:
  void readStyles(const pugi::xml_node& node) {
    for (pugi::xml_node s : node.children()) {
      std::string_view kind = local(s);
      if (kind == "style") {
        NamedStyle& style = styles_[value(s, "name").data()];
        style.parent = value(s, "parent-style-name");
        pugi::xml_node t = child(s, "text-properties");
        RunProperties& r = style.run;
        std::string_view weight = value(t, "font-weight");
        if (!weight.empty()) r.bold = weight == "bold" || number(weight, 400) >= 600;
        std::string_view fontStyle = value(t, "font-style");
        if (!fontStyle.empty()) r.italic = fontStyle == "italic" || fontStyle == "oblique";
        std::string_view under = value(t, "text-underline-style");
        if (!under.empty())
          r.underline = under == "none" ? UnderlineStyle::kNone : UnderlineStyle::kSingle;
        std::string_view through = value(t, "text-line-through-style");
        if (!through.empty()) r.strike = through != "none";
        std::string_view size = value(t, "font-size");
        if (size.ends_with("pt")) r.size = number(size, kDefaultSize);
        if (auto c = parseCssColor(utf16(value(t, "color")))) r.color = c;
        std::string_view background = value(t, "background-color");
        if (!background.empty() && background != "transparent")
          if (auto c = parseCssColor(utf16(background))) r.background = c;
        std::string_view family = value(t, "font-name");
        if (!family.empty()) r.family = utf16(family);
        std::string_view position = value(t, "text-position");
        if (!position.empty()) {
          r.superscript = position.starts_with("super") ? 1
                          : position.starts_with("sub") ? -1
                          : number(position, 0) > 0     ? 1
                          : number(position, 0) < 0     ? -1
                                                        : 0;
        }
        pugi::xml_node p = child(s, "paragraph-properties");
        std::string_view align = value(p, "text-align");
        if (!align.empty()) {
          style.paragraph.alignment = align == "center"                    ? TextAlignment::kCenter
                                      : align == "end" || align == "right" ? TextAlignment::kRight
                                      : align == "justify" ? TextAlignment::kJustified
                                                           : TextAlignment::kLeft;
        }
        std::string_view margin = value(p, "margin-left");
        if (margin.ends_with("cm"))
          style.paragraph.indent = number(margin, 0) * 72 / 2.54;
        else if (margin.ends_with("in"))
          style.paragraph.indent = number(margin, 0) * 72;
        else if (margin.ends_with("pt"))
          style.paragraph.indent = number(margin, 0);
      } else if (kind == "list-style") {
        std::vector<ListLevel>& levels = listStyles_[value(s, "name").data()];
        for (pugi::xml_node l : s.children()) {
          int level = std::clamp(static_cast<int>(number(value(l, "level"), 1)) - 1, 0, 9);
          if (levels.size() <= static_cast<std::size_t>(level)) levels.resize(level + 1);
          if (local(l) == "list-level-style-number") {
            levels[level] = listLevel(value(l, "num-format"), level);
            levels[level].start = static_cast<int>(number(value(l, "start-value"), 1));
          } else {
            levels[level] = listLevel("bullet", level);
          }
        }
      }
    }
  }

  void block(const pugi::xml_node& node, int depth, bool inCell) {
    if (depth > kMaxDepth) return;
    for (pugi::xml_node n : node.children()) {
      std::string_view name = local(n);
      if (name == "p" || name == "h")
        paragraph(n, name == "h", inCell);
      else if (name == "list")
        list(n, depth + 1, inCell);
      else if (name == "table")
        table(n, depth + 1);
      else if (name == "section" || name == "index-body" || name == "table-of-content" ||
               name == "illustration-index" || name == "alphabetical-index")
        block(n, depth + 1, inCell);
    }
  }

  void list(const pugi::xml_node& node, int depth, bool inCell) {
    if (depth > kMaxDepth) return;
    std::string styleName(value(node, "style-name"));
    if (styleName.empty() && !listStack_.empty()) styleName = listStack_.back().style;
    listStack_.push_back({styleName, 0});
    for (pugi::xml_node item : node.children()) {
      std::string_view name = local(item);
      if (name != "list-item" && name != "list-header") continue;
      pendingItem_ = name == "list-item";
      std::string_view start = value(item, "start-value");
      if (!start.empty()) listStack_.back().counter = static_cast<int>(number(start, 1)) - 1;
      block(item, depth + 1, inCell);
      pendingItem_ = false;
    }
    listStack_.pop_back();
  }

  void table(const pugi::xml_node& node, int depth) {
    if (depth > kMaxDepth) return;
    for (pugi::xml_node n : node.children()) {
      std::string_view name = local(n);
      if (name == "table-header-rows" || name == "table-rows" || name == "table-row-group") {
        table(n, depth + 1);
        continue;
      }
      if (name != "table-row") continue;
      bool firstCell = true;
      for (pugi::xml_node cell : n.children()) {
        if (local(cell) != "table-cell") continue;
        if (!firstCell) builder_.text(u"\t", base_);
        firstCell = false;
        cellStart_ = true;
        block(cell, depth + 1, true);
      }
      builder_.endParagraph(base_);
    }
  }

  void paragraph(const pugi::xml_node& p, bool heading, bool inCell) {
    RunProperties run;
    ParagraphProperties properties;
    resolveStyle(styles_, value(p, "style-name").data(), run, &properties);
    Attributes a = base_;
    if (heading) {
      int level = std::clamp(static_cast<int>(number(value(p, "outline-level"), 1)), 1, 6);
      a.font.bold = true;
      a.font.pointSize = kHeadingSizes[level - 1];
    }
    run.applyTo(a);
    if (properties.alignment) a.paragraphStyle.alignment = *properties.alignment;
    if (properties.indent)
      a.paragraphStyle.headIndent = a.paragraphStyle.firstLineHeadIndent = *properties.indent;
    if (inCell && !cellStart_) builder_.text(u" ", a);
    cellStart_ = false;
    if (pendingItem_ && !listStack_.empty()) listMarker(a);
    pendingItem_ = false;
    spacePending_ = false;
    lineStart_ = true;
    inlineContent(p, a, 0);
    if (!inCell) builder_.endParagraph(a);
  }

  void listMarker(Attributes& a) {
    const int level = static_cast<int>(listStack_.size()) - 1;
    std::vector<ListLevel> levels = levelsTo(listStyles_[listStack_.front().style], level);
    int& counter = listStack_.back().counter;
    int n = counter == 0 ? levels[level].start : counter + 1;
    counter = n;
    listItem(builder_, a, levels, level, n);
  }

  // Text with white space collapsed, as OpenDocument wants; text:s stands for real spaces.
  void write(std::u16string_view s, const Attributes& a) {
    std::u16string out;
    for (char16_t c : s) {
      if (c == u' ' || c == u'\t' || c == u'\n' || c == u'\r') {
        spacePending_ = !lineStart_;
        continue;
      }
      if (spacePending_) out += u' ';
      spacePending_ = false;
      lineStart_ = false;
      out += c;
    }
    builder_.text(out, a);
  }

  void inlineContent(const pugi::xml_node& node, const Attributes& a, int depth) {
    if (depth > kMaxDepth) return;
    for (pugi::xml_node n : node.children()) {
      if (n.type() == pugi::node_pcdata || n.type() == pugi::node_cdata) {
        write(utf16(n.value()), a);
        continue;
      }
      if (n.type() != pugi::node_element) continue;
      std::string_view name = local(n);
      if (name == "span") {
        Attributes styled = a;
        RunProperties run;
        resolveStyle(styles_, value(n, "style-name").data(), run, nullptr);
        run.applyTo(styled);
        inlineContent(n, styled, depth + 1);
      } else if (name == "a") {
        Attributes link = a;
        link.link = utf16(value(n, "href"));
        link.underline = UnderlineStyle::kSingle;
        link.foregroundColor = Color{0, 0, 238};
        inlineContent(n, link, depth + 1);
      } else if (name == "s") {
        flushSpace(a);
        int count = std::clamp(static_cast<int>(number(value(n, "c"), 1)), 1, 1000);
        builder_.text(std::u16string(count, u' '), a);
        lineStart_ = false;
      } else if (name == "tab") {
        flushSpace(a);
        builder_.text(u"\t", a);
        lineStart_ = false;
      } else if (name == "line-break") {
        builder_.text(u"\n", a);
        spacePending_ = false;
        lineStart_ = true;
      } else if (name == "frame") {
        frame(n, a, depth + 1);
      } else if (name == "note" || name == "annotation" || name == "bookmark-ref" ||
                 name == "deletion" || name == "tracked-changes") {
        continue;
      } else {
        inlineContent(n, a, depth + 1);  // meta, ruby, fields: their text
      }
    }
  }

  void flushSpace(const Attributes& a) {
    if (spacePending_) builder_.text(u" ", a);
    spacePending_ = false;
  }

  void frame(const pugi::xml_node& node, const Attributes& a, int depth) {
    if (depth > kMaxDepth) return;
    for (pugi::xml_node n : node.children()) {
      std::string_view name = local(n);
      if (name == "image") {
        std::string href(value(n, "href"));
        if (href.empty() || href.find("://") != std::string::npos) continue;
        if (href.starts_with("./")) href.erase(0, 2);
        std::optional<Data> bytes = part_(href);
        if (!bytes) continue;
        flushSpace(a);
        std::string file = href.substr(href.find_last_of('/') + 1);
        builder_.attachment(std::make_shared<const FileWrapper>(
                                FileWrapper::regularFile(std::move(*bytes), utf16(file))),
                            a);
        lineStart_ = false;
        return;  // one picture per frame (the others are replacements)
      }
      if (name == "text-box") block(n, depth + 1, true);
    }
  }

  void readMeta(Dictionary& attributes) {
    static constexpr PropertyName kMeta[] = {
        {"title", kTitleDocumentAttribute},
        {"subject", kSubjectDocumentAttribute},
        {"description", kCommentDocumentAttribute},
        {"initial-creator", kAuthorDocumentAttribute},
        {"creator", kEditorDocumentAttribute},
        {"keyword", kKeywordsDocumentAttribute},
        {"creation-date", kCreationTimeDocumentAttribute},
        {"date", kModificationTimeDocumentAttribute},
    };
    if (auto meta = parseXml(part_("meta.xml")))
      readPropertyElements(child(child(*meta, "document-meta"), "meta"), kMeta, attributes);
  }

  struct OpenList {
    std::string style;
    int counter;
  };

  const PackagePart& part_;
  Builder builder_;
  Attributes base_ = [] {
    Attributes a;
    a.font.pointSize = kDefaultSize;
    return a;
  }();
  bool cellStart_ = false;
  bool pendingItem_ = false;
  bool spacePending_ = false;
  bool lineStart_ = true;
  std::vector<OpenList> listStack_;
  std::unordered_map<std::string, NamedStyle> styles_;
  std::unordered_map<std::string, std::vector<ListLevel>> listStyles_;
};

std::span<const std::uint8_t> bytesOf(const DocumentSource& source) {
  if (!source.data) return {};
  return {source.data->data(), source.data->size()};
}

bool isZip(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 4 && bytes[0] == 'P' && bytes[1] == 'K' && bytes[2] == 3 && bytes[3] == 4;
}

}  // namespace

std::optional<Document> readOfficeOpenXML(const PackagePart& part) {
  return DocxReader(part).read();
}

std::optional<Document> readOpenDocumentText(const PackagePart& part) {
  return OdtReader(part).read();
}

std::optional<Document> readOfficeOpenXMLData(std::span<const std::uint8_t> zip) {
  auto archive = openZip(zip);
  if (!archive) return std::nullopt;
  return readOfficeOpenXML(zipParts(archive.get()));
}

std::optional<Document> readOpenDocumentTextData(std::span<const std::uint8_t> zip) {
  auto archive = openZip(zip);
  if (!archive) return std::nullopt;
  return readOpenDocumentText(zipParts(archive.get()));
}

bool matchesOfficeOpenXML(const DocumentSource& source) {
  std::span<const std::uint8_t> bytes = bytesOf(source);
  if (!isZip(bytes)) return false;
  auto archive = openZip(bytes);
  return archive && zip_name_locate(archive.get(), "word/document.xml", 0) >= 0;
}

bool matchesOpenDocumentText(const DocumentSource& source) {
  std::span<const std::uint8_t> bytes = bytesOf(source);
  if (!isZip(bytes)) return false;
  // The "mimetype" entry comes first, stored, so its text sits at a fixed place.
  std::string_view text(reinterpret_cast<const char*>(bytes.data()),
                        std::min<std::size_t>(bytes.size(), 100));
  return text.find("mimetypeapplication/vnd.oasis.opendocument.text") != std::string_view::npos;
}

std::optional<Document> readOfficeOpenXMLDocument(const DocumentSource& source) {
  return readOfficeOpenXMLData(bytesOf(source));
}

std::optional<Document> readOpenDocumentTextDocument(const DocumentSource& source) {
  return readOpenDocumentTextData(bytesOf(source));
}

}  // namespace ferncast
