#include "service/PDFDocument+AttributedString.h"

#include "Classes/Unicode.h"

namespace ferncast {

std::optional<AttributedString> attributedString(const PDFDocument& document,
                                                 PDFDocument::Deadline deadline) {
  std::optional<std::vector<PDFTextRun>> runs = document.textRuns(deadline);
  if (!runs) return std::nullopt;
  return attributedStringOfTextRuns(*runs);
}

AttributedString attributedStringOfTextRuns(std::span<const PDFTextRun> runs) {
  AttributedString string;
  for (const PDFTextRun& run : runs) {
    Attributes attributes;
    attributes.font.family = utf8ToUtf16(run.fontFamily.empty() ? run.fontName : run.fontFamily);
    attributes.font.pointSize = run.fontSize > 0 ? run.fontSize : 12;
    attributes.font.bold = run.bold;
    attributes.font.italic = run.italic;
    string.append(run.text, attributes);
  }
  return string;
}

}  // namespace ferncast
