// PDFDocument(AttributedString): the text of a PDF document as an attributed string, each text
// run with its font family, size, weight and slant, for the attributed PDF requests.
//
// Pure functions; the document is the caller's and is used by this thread only during the call.
#pragma once

#include <optional>
#include <span>

#include "imaging/PDFDocument.h"
#include "webcontent/documents/AttributedString.h"

namespace ferncast {

// The document's text runs within `deadline`; nullopt when the document is locked or the text
// cannot be read in time.
std::optional<AttributedString> attributedString(const PDFDocument& document,
                                                 PDFDocument::Deadline deadline = {});

// The runs one after the other; a run without a family takes its font's full name.
AttributedString attributedStringOfTextRuns(std::span<const PDFTextRun> runs);

}  // namespace ferncast
