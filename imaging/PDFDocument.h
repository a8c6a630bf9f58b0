// PDF documents over MuPDF: the one place where the project talks to MuPDF.
//
// A PDFDocument owns its own MuPDF context and a copy of the document's bytes. Each document is
// used by one thread at a time (its methods are not safe to call concurrently, const ones
// included); different documents may be used on different threads at once. Nothing throws:
// bytes that are no PDF give a null document, a page that cannot be read gives nullopt.
//
// Memory is bounded: a document's MuPDF allocations are refused past kMemoryLimit, which turns a
// decompression bomb into a failed page rather than an exhausted process.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Classes/PropertyList.h"

namespace ferncast {

// A rectangle in PDF points (1/72 inch), origin at the lower left.
struct PDFRect {
  double x = 0, y = 0, width = 0, height = 0;
  bool operator==(const PDFRect&) const = default;
};

// Pixels of a rendered page: 8-bit RGB, three bytes a pixel, rows packed top row first.
struct PDFPageBitmap {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;
};

// A run of text that shares one font and size, in reading order. Every line ends with "\n",
// inside the run of its last character.
struct PDFTextRun {
  std::u16string text;
  std::string fontName;    // the PostScript name without a subset prefix: "Times-BoldItalic"
  std::string fontFamily;  // the family part of it: "Times"
  double fontSize = 0;     // in points
  bool bold = false;
  bool italic = false;
  bool operator==(const PDFTextRun&) const = default;
};

// The keys of the attribute dictionary, as the platform names them.
inline constexpr char16_t kPDFTitleAttribute[] = u"Title";
inline constexpr char16_t kPDFAuthorAttribute[] = u"Author";
inline constexpr char16_t kPDFSubjectAttribute[] = u"Subject";
inline constexpr char16_t kPDFCreatorAttribute[] = u"Creator";
inline constexpr char16_t kPDFProducerAttribute[] = u"Producer";
inline constexpr char16_t kPDFKeywordsAttribute[] = u"Keywords";
inline constexpr char16_t kPDFCreationDateAttribute[] = u"CreationDate";
inline constexpr char16_t kPDFModificationDateAttribute[] = u"ModDate";

class PDFDocument {
 public:
  // A point in time after which a running page extraction or rendering is abandoned (the page
  // then answers nullopt). Opening a document and loading a page take no deadline.
  using Deadline = std::optional<std::chrono::steady_clock::time_point>;

  static constexpr std::size_t kMemoryLimit = std::size_t{512} << 20;
  // Renderings above this many pixels are refused.
  static constexpr std::int64_t kMaxRenderPixels = 100'000'000;

  // Opens PDF bytes (copied) or a PDF file; damaged files are repaired as far as MuPDF can.
  // Null when the bytes are no PDF.
  [[nodiscard]] static std::unique_ptr<PDFDocument> open(std::span<const std::uint8_t> bytes);
  [[nodiscard]] static std::unique_ptr<PDFDocument> openFile(const std::string& path);

  ~PDFDocument();
  PDFDocument(const PDFDocument&) = delete;
  PDFDocument& operator=(const PDFDocument&) = delete;

  int pageCount() const;

  // A user password is needed to read the content. The page count is still right; the string
  // attributes are then left out, as they would come back still encrypted.
  bool isLocked() const;

  // "Title", "Author", "Subject", "Creator", "Producer" (strings), "Keywords" (an array of the
  // comma- or semicolon-separated words) and "CreationDate", "ModDate" (dates). Absent or empty
  // entries are left out.
  Dictionary documentAttributes() const;

  // The media box of a page: the page dictionary's MediaBox, inherited from its parents, not
  // rotated and not cropped. nullopt for an index out of range or a page that cannot be found.
  std::optional<PDFRect> mediaBox(int index) const;

  // The page's crop box as drawn, rotation applied: what renderPage draws, with its origin at 0.
  std::optional<PDFRect> pageBounds(int index) const;

  // The plain text of a page: lines in the order the page draws them, separated by "\n";
  // ligatures expanded. Empty for a page without text; nullopt when the page cannot be read or
  // the deadline passed.
  std::optional<std::u16string> pageString(int index, Deadline deadline = {}) const;

  // The text of the whole document as runs with their fonts, for an attributed string.
  // nullopt when the document is locked or the deadline passed.
  std::optional<std::vector<PDFTextRun>> textRuns(Deadline deadline = {}) const;

  // Renders a page onto white, its bounds (pageBounds) stretched to width × height pixels.
  // nullopt for an index out of range, a size that is not positive or above kMaxRenderPixels,
  // a page that fails to draw or a deadline that passed.
  std::optional<PDFPageBitmap> renderPage(int index, int width, int height,
                                          Deadline deadline = {}) const;

 private:
  struct State;
  explicit PDFDocument(std::unique_ptr<State> state);
  static std::unique_ptr<PDFDocument> openSource(std::span<const std::uint8_t> bytes,
                                                 const char* path);
  std::unique_ptr<State> state_;
};

// The instant of a PDF date string: "D:YYYYMMDDHHmmSSOHH'mm'", where every part after the year
// may be missing, "D:" is optional, O is "+", "-" or "Z" (also "Z00'00'" as Ghostscript writes
// it) and a missing zone means UTC. nullopt when the year is missing or a part is out of range.
std::optional<Date> dateFromPDFDateString(std::string_view text);

}  // namespace ferncast
