#include "imaging/PDFDocument+Conversion.h"

#include <exception>

#include "markup/chartables/NSString+Quill.h"

namespace ferncast {

std::optional<std::u16string> fixedAndNormalizedStringUsingTimeout(const PageTextSource& source,
                                                                   double budgetSeconds) {
  using SteadyClock = std::chrono::steady_clock;
  const std::size_t count = source.pageCount;
  if (count == 0) return std::nullopt;
  const bool timed = budgetSeconds > 0;
  SteadyClock::time_point start;
  PDFDocument::Deadline abandonAt;
  if (timed) {
    start = source.now();
    abandonAt = start +
                std::chrono::duration_cast<SteadyClock::duration>(
                    std::chrono::duration<double>(budgetSeconds)) +
                kPageOverrun;
  }
  std::u16string result;
  result.reserve(std::min<std::size_t>(count, 4096) * 2048);
  for (std::size_t index = 0; index < count; ++index) {
    const SteadyClock::time_point pageStart = timed ? source.now() : SteadyClock::time_point{};
    try {
      std::optional<std::u16string> text = source.pageText(index, abandonAt);
      if (text && !text->empty()) {
        fixAndNormalizeString(*text);
        result += *text;
        result.push_back(u'\n');
      }
    } catch (const std::exception&) {
      // The page adds nothing; the pages before it stay.
    }
    if (timed) {
      const SteadyClock::time_point now = source.now();
      const std::chrono::duration<double> total = now - start, page = now - pageStart;
      if (total.count() + page.count() >= budgetSeconds) break;
    }
  }
  return result;
}

std::optional<std::u16string> fixedAndNormalizedStringUsingTimeout(const PDFDocument& document,
                                                                   double budgetSeconds) {
  const int count = document.pageCount();
  PageTextSource source;
  source.pageCount = count > 0 ? static_cast<std::size_t>(count) : 0;
  source.pageText = [&document](std::size_t index, PDFDocument::Deadline deadline) {
    return document.pageString(static_cast<int>(index), deadline);
  };
  return fixedAndNormalizedStringUsingTimeout(source, budgetSeconds);
}

std::optional<std::u16string> fixedAndNormalizedString(const PDFDocument& document) {
  return fixedAndNormalizedStringUsingTimeout(document, 0);
}

}  // namespace ferncast
