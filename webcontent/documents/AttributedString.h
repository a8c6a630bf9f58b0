// Attributed strings: UTF-16 text with runs of character and paragraph attributes, the stand-in
// for NSAttributedString. Document readers (RTF, RTFD, plain text, web archives, and the HTML and
// office readers) build them by appending; the RTF and RTFD writers walk their runs.
//
// The text is one std::u16string. Attributes cover it in runs: each run is a maximal range of
// characters with one Attributes value, so neighbouring runs always differ. An attachment stands
// in the text as U+FFFC (kAttachmentCharacter) whose attributes carry it.
//
// Document attributes (title, author, paper size, ...) travel beside the string as a property-list
// Dictionary under the platform's keys (kTitleDocumentAttribute, ...), as readers state them.
//
// Values: copying an AttributedString copies everything but the file wrappers of attachments,
// which are immutable and shared. Any thread may use its own strings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Classes/PropertyList.h"
#include "markup/NotFound.h"
#include "webcontent/documents/FileWrapper.h"

namespace ferncast {

inline constexpr char16_t kAttachmentCharacter = u'\uFFFC';

// ---- Character attributes ----

struct Color {
  std::uint8_t red = 0, green = 0, blue = 0;
  bool operator==(const Color&) const = default;
};

struct Font {
  // The family (or face) name as the document gives it: "Helvetica", "Times New Roman". Empty
  // means the default font of whoever renders or writes the text.
  std::u16string family;
  double pointSize = 12;
  bool bold = false;
  bool italic = false;
  bool operator==(const Font&) const = default;
};

enum class UnderlineStyle : std::uint8_t { kNone, kSingle, kDouble, kThick };

// ---- Paragraph attributes ----

enum class TextAlignment : std::uint8_t { kNatural, kLeft, kRight, kCenter, kJustified };
enum class TabAlignment : std::uint8_t { kLeft, kRight, kCenter, kDecimal };

struct TabStop {
  double location = 0;  // points from the leading margin
  TabAlignment alignment = TabAlignment::kLeft;
  bool operator==(const TabStop&) const = default;
};

// One level of a list. The marker itself ("\t•\t", "\t1.\t") is text of the paragraph, as the
// platform keeps it.
struct TextList {
  // The platform's marker format: "{disc}", "{circle}", "{square}", "{hyphen}", "{decimal}",
  // "{lower-alpha}", "{upper-alpha}", "{lower-roman}", "{upper-roman}", possibly with text around
  // it ("{decimal}.").
  std::u16string markerFormat;
  int startingItem = 1;
  bool operator==(const TextList&) const = default;
};

// Lengths in points. A paragraph style applies to whole paragraphs: readers give every character
// of a paragraph the same style, and writers take the style of a paragraph's first character.
struct ParagraphStyle {
  TextAlignment alignment = TextAlignment::kNatural;
  double firstLineHeadIndent = 0;  // from the leading margin, first line
  double headIndent = 0;           // from the leading margin, other lines
  double tailIndent = 0;           // from the trailing margin
  double lineSpacing = 0;          // extra space between lines
  double lineHeightMultiple = 0;   // 0: natural line height
  double paragraphSpacing = 0;     // after the paragraph
  double paragraphSpacingBefore = 0;
  std::vector<TabStop> tabStops;    // by location
  std::vector<TextList> textLists;  // the lists the paragraph is in, outermost first
  bool operator==(const ParagraphStyle&) const = default;
};

// An attachment: a file (or folder) shown as one character.
struct TextAttachment {
  std::shared_ptr<const FileWrapper> fileWrapper;  // never null inside a string
  double width = 0, height = 0;                    // points; 0 when not stated
  // Same size and equal wrappers (FileWrapper::operator==).
  bool operator==(const TextAttachment& other) const;
};

struct Attributes {
  Font font;
  UnderlineStyle underline = UnderlineStyle::kNone;
  bool strikethrough = false;
  std::optional<Color> foregroundColor;  // nullopt: the default text colour
  std::optional<Color> backgroundColor;  // nullopt: none
  std::u16string link;                   // the URL of a link, empty when none
  int superscript = 0;                   // > 0 superscript, < 0 subscript
  double baselineOffset = 0;             // points, upward
  ParagraphStyle paragraphStyle;
  std::optional<TextAttachment> attachment;  // only on kAttachmentCharacter
  bool operator==(const Attributes&) const = default;
};

// ---- The string ----

class AttributedString {
 public:
  // A run of characters [location, location + length) sharing `attributes`, which live as long as
  // the string is not changed.
  struct Run {
    std::size_t location;
    std::size_t length;
    const Attributes& attributes;
  };

  AttributedString() = default;
  explicit AttributedString(std::u16string_view text, const Attributes& attributes = {});

  const std::u16string& string() const { return text_; }
  std::size_t length() const { return text_.size(); }

  // Appends text with the given attributes; empty text appends nothing. A string holds at most
  // kMaxDistinctAttributes different attribute values: past that, new text takes the attributes
  // of the text before it, so hostile documents cannot make the runs grow beyond their text.
  void append(std::u16string_view text, const Attributes& attributes);
  void append(const AttributedString& other);
  // Appends kAttachmentCharacter carrying `attachment` (whose wrapper must not be null) with the
  // other attributes of `attributes`.
  void appendAttachment(TextAttachment attachment, const Attributes& attributes);

  // Gives every character of [location, location + length) (clipped to the text) `style`.
  void setParagraphStyle(std::size_t location, std::size_t length, const ParagraphStyle& style);

  std::size_t runCount() const { return runs_.size(); }
  // The index-th run, index < runCount().
  Run run(std::size_t index) const;
  // The attributes of the character at `index` (< length()); `runIndex` (may be null) receives
  // the index of its run.
  const Attributes& attributesAtIndex(std::size_t index, std::size_t* runIndex = nullptr) const;

  // Same text and same attributes at every character.
  bool operator==(const AttributedString& other) const;

  static constexpr std::size_t kMaxDistinctAttributes = 1 << 16;

 private:
  struct RunStart {
    std::size_t location;
    std::uint32_t attributes;  // index into attributes_
  };
  std::uint32_t intern(const Attributes& attributes);

  std::u16string text_;
  std::vector<RunStart> runs_;
  std::vector<Attributes> attributes_;  // distinct values, referred to by runs
  std::unordered_multimap<std::size_t, std::uint32_t> byHash_;
};

// The paragraph around `index`: from after the previous paragraph separator (line feed, carriage
// return, CR LF, U+2029) to after the next one (included), or to the end of the text.
Range paragraphRangeAt(std::u16string_view text, std::size_t index);

// ---- Document attributes: keys and the values readers give ----

inline constexpr std::u16string_view kDocumentTypeDocumentAttribute = u"DocumentType";  // string
inline constexpr std::u16string_view kCharacterEncodingDocumentAttribute =
    u"CharacterEncoding";  // integer, NSStringEncoding (plain text)
inline constexpr std::u16string_view kCocoaVersionDocumentAttribute =
    u"CocoaRTFVersion";  // integer, the \cocoartf number of platform-written RTF
inline constexpr std::u16string_view kTitleDocumentAttribute = u"Title";        // string
inline constexpr std::u16string_view kAuthorDocumentAttribute = u"Author";      // string
inline constexpr std::u16string_view kSubjectDocumentAttribute = u"Subject";    // string
inline constexpr std::u16string_view kKeywordsDocumentAttribute = u"Keywords";  // array of strings
inline constexpr std::u16string_view kCommentDocumentAttribute = u"Comment";    // string
inline constexpr std::u16string_view kEditorDocumentAttribute = u"Editor";      // string
inline constexpr std::u16string_view kCompanyDocumentAttribute = u"Company";    // string
inline constexpr std::u16string_view kCopyrightDocumentAttribute = u"Copyright";        // string
inline constexpr std::u16string_view kCreationTimeDocumentAttribute = u"CreationTime";  // date
inline constexpr std::u16string_view kModificationTimeDocumentAttribute =
    u"ModificationTime";  // date
// Sizes as size strings ("{612, 792}", Classes/Unicode.h sizeString), lengths in points.
inline constexpr std::u16string_view kPaperSizeDocumentAttribute = u"PaperSize";
inline constexpr std::u16string_view kLeftMarginDocumentAttribute = u"LeftMargin";      // real
inline constexpr std::u16string_view kRightMarginDocumentAttribute = u"RightMargin";    // real
inline constexpr std::u16string_view kTopMarginDocumentAttribute = u"TopMargin";        // real
inline constexpr std::u16string_view kBottomMarginDocumentAttribute = u"BottomMargin";  // real
inline constexpr std::u16string_view kViewSizeDocumentAttribute = u"ViewSize";  // size string
inline constexpr std::u16string_view kViewZoomDocumentAttribute = u"ViewZoom";  // real, percent
inline constexpr std::u16string_view kViewModeDocumentAttribute = u"ViewMode";  // integer
inline constexpr std::u16string_view kDefaultTabIntervalDocumentAttribute =
    u"DefaultTabInterval";  // real

// Values of kDocumentTypeDocumentAttribute.
inline constexpr std::u16string_view kPlainTextDocumentType = u"NSPlainText";
inline constexpr std::u16string_view kRTFTextDocumentType = u"NSRTF";
inline constexpr std::u16string_view kRTFDTextDocumentType = u"NSRTFD";
inline constexpr std::u16string_view kHTMLTextDocumentType = u"NSHTML";
inline constexpr std::u16string_view kWebArchiveTextDocumentType = u"NSWebArchive";
inline constexpr std::u16string_view kDocFormatTextDocumentType = u"NSDocFormat";
inline constexpr std::u16string_view kOfficeOpenXMLTextDocumentType = u"NSOfficeOpenXML";
inline constexpr std::u16string_view kOpenDocumentTextDocumentType = u"NSOpenDocument";

}  // namespace ferncast
