// The whole text of a PDF document as one cleaned string, page by page, within a time budget.
//
// Each page's text gets fixAndNormalizeString (markup/NSString+Quill.h) and one line feed after
// it; a page without text, or one that cannot be read, adds nothing. With a budget above 0 the
// loop stops after a page when the time since the start plus that page's own time reaches the
// budget (the page's time counts twice, so slow documents stop earlier), so the first page is
// always read. Beyond that, a page still running at the start time + budget + kPageOverrun is
// abandoned (MuPDF's cookie), so one hostile page cannot hold the caller much past the budget.
// A truncated result carries no marker. Runs on the caller's thread; the document is the
// caller's, used by this thread only while the call runs.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "imaging/PDFDocument.h"

namespace ferncast {

inline constexpr std::chrono::seconds kPageOverrun{1};

// nullopt for a document without pages; empty when no page has text. A budget of 0 or less means
// no budget.
[[nodiscard]] std::optional<std::u16string> fixedAndNormalizedStringUsingTimeout(
    const PDFDocument& document, double budgetSeconds);
[[nodiscard]] std::optional<std::u16string> fixedAndNormalizedString(const PDFDocument& document);

// The page loop behind them, over any source of page text and any clock (tests use a fake one).
// `pageText(i, deadline)` answers the raw text of page i, or nullopt when the page fails.
struct PageTextSource {
  std::size_t pageCount = 0;
  std::function<std::optional<std::u16string>(std::size_t, PDFDocument::Deadline)> pageText;
  std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
};
[[nodiscard]] std::optional<std::u16string> fixedAndNormalizedStringUsingTimeout(
    const PageTextSource& source, double budgetSeconds);

}  // namespace ferncast
