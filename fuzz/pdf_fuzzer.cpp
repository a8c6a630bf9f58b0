// PDF bytes through PDFDocument: page count, lock, attributes, media boxes, the budgeted text and
// a small rendering of the first page. Every page has a small time budget, so hostile pages end.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "imaging/PDFDocument+Conversion.h"
#include "imaging/PDFDocument.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferncast;
  if (size > 65536) return 0;
  auto document = PDFDocument::open({data, size});
  if (!document) return 0;
  const int count = document->pageCount();
  if (count < 0) std::abort();
  const Dictionary attributes = document->documentAttributes();
  if (document->isLocked() && !attributes.empty()) std::abort();
  for (int i = 0; i < count && i < 4; ++i) {
    if (auto box = document->mediaBox(i); box && (box->width < 0 || box->height < 0)) std::abort();
  }
  const auto text = fixedAndNormalizedStringUsingTimeout(*document, 0.01);
  if ((count == 0) != !text.has_value()) std::abort();
  if (count > 0) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    if (auto bitmap = document->renderPage(0, 16, 16, deadline);
        bitmap && bitmap->rgb.size() != 768) {
      std::abort();
    }
  }
  return 0;
}
