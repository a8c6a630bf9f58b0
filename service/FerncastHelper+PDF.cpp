// The PDF worker of FerncastHelper: page count, attributes, text and first-page size of PDF data.
#include <array>
#include <chrono>

#include "Classes/Unicode.h"
#include "imaging/PDFDocument+Conversion.h"
#include "imaging/PDFDocument.h"
#include "markup/chartables/NSString+Quill.h"
#include "markup/chartables/NSString+QuillCompare.h"
#include "service/FerncastHelper.h"
#include "service/PDFDocument+AttributedString.h"
#include "webcontent/documents/RTFD.h"

namespace ferncast {
namespace {

constexpr double kPDFTextSeconds = 60.0;

// Producers whose PDFs take the PDF framework's own text even when an importer could give one.
bool producerWantsOwnText(std::u16string_view producer) {
  static constexpr std::array<const char*, 2> kContained = {"Compart", "Ghostscript"};
  constexpr std::u16string_view kEnding = u"Quartz PDFContext";
  return containsSubCStrings(producer, kContained, false) ||
         (producer.size() >= kEnding.size() &&
          isEqualToStringNoCase(producer.substr(producer.size() - kEnding.size()), kEnding));
}

}  // namespace

std::optional<Dictionary> FerncastHelper::_attributed(bool attributed,
                                                      const std::optional<Data>& pdf,
                                                      std::optional<std::u16string_view> file,
                                                      bool size) {
  if (!pdf) return std::nullopt;
  std::unique_ptr<PDFDocument> document = PDFDocument::open(*pdf);
  if (!document) return std::nullopt;
  const Dictionary pdfAttributes = document->documentAttributes();
  Dictionary reply;
  if (document->isLocked()) {
    reply[u"Locked"] = true;
  } else if (attributed) {
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(kPDFTextSeconds));
    if (std::optional<AttributedString> string = attributedString(*document, deadline)) {
      reply[u"String"] = RTFDFromRange(*string, {});
    }
  } else {
    std::optional<std::u16string> text;
    const Value* producer = valueForKey(Value(pdfAttributes), kPDFProducerAttribute);
    const std::u16string* producerText = producer ? producer->as<std::u16string>() : nullptr;
    if (file && producerText && !producerText->empty() && !producerWantsOwnText(*producerText)) {
      if (std::optional<std::u16string> imported = _mdimporter->textContentOfFileAtPath(*file)) {
        text = fixedAndNormalizedString(*imported);
      }
    }
    if (!text) text = fixedAndNormalizedStringUsingTimeout(*document, kPDFTextSeconds);
    if (text) reply[u"String"] = std::move(*text);
  }
  const int pages = document->pageCount();
  reply[u"PageCount"] = pages;
  for (const auto& [key, value] : pdfAttributes)
    reply[key] = value;
  if (size && pages > 0) {
    const PDFRect box = document->mediaBox(0).value_or(PDFRect());
    reply[u"Size"] = sizeString(box.width, box.height);
    reply[u"PixelSize"] = sizeString(box.width, box.height);
    reply[u"Alpha"] = false;
  }
  return reply;
}

}  // namespace ferncast
