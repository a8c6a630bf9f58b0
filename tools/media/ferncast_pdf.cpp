// ferncast pdf: the facts and the text of PDF documents.
//   info FILE: {"pageCount", "locked", "attributes": {...}, "mediaBox": "{w, h}"} (the media box of
//     the first page, "{0, 0}" without pages); 1 when the bytes are no PDF.
//   text FILE [--budget SECONDS]: the cleaned text of the pages read within the budget (60 s
//     unless given; 0 for none); 1 for a document without pages, locked or no PDF.
#include <memory>
#include <string>

#include "Classes/Unicode.h"
#include "imaging/PDFDocument+Conversion.h"
#include "imaging/PDFDocument.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {
namespace {

struct Options {
  std::string path = "-";
  double budget = 60;
};

std::unique_ptr<PDFDocument> openDocument(const std::string& path) {
  const std::string bytes = readInput(path);
  auto document =
      PDFDocument::open({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  if (!document) finish(kNegative, "pdf: not a PDF document: " + path);
  return document;
}

void addCommands(CLI::App& area) {
  auto options = std::make_shared<Options>();

  CLI::App* info = area.add_subcommand("info", "page count, lock, attributes and media box");
  info->add_option("FILE", options->path, "a PDF file, or - for standard input");
  info->callback([options] {
    auto document = openDocument(options->path);
    const std::optional<PDFRect> box = document->mediaBox(0);
    printJson(Dictionary{
        {u"pageCount", document->pageCount()},
        {u"locked", document->isLocked()},
        {u"attributes", document->documentAttributes()},
        {u"mediaBox", sizeString(box ? box->width : 0, box ? box->height : 0)},
    });
    finish(kSuccess);
  });

  CLI::App* text = area.add_subcommand("text", "the cleaned text of the pages within a budget");
  text->add_option("FILE", options->path, "a PDF file, or - for standard input");
  text->add_option("--budget", options->budget, "seconds to spend, 0 for no limit (default 60)");
  text->callback([options] {
    auto document = openDocument(options->path);
    if (document->isLocked()) finish(kNegative, "pdf: the document is locked by a password");
    const auto string = fixedAndNormalizedStringUsingTimeout(*document, options->budget);
    if (!string) finish(kNegative, "pdf: the document has no pages");
    writeText(*string);
    finish(kSuccess);
  });
}

const RegisterArea kPDF{{"pdf", "facts and text of PDF documents", addCommands}};

}  // namespace
}  // namespace ferncast::cli
