// ferncast document: files read as the text system reads documents (RTF, RTFD, web archives,
// plain text, and the formats added to the reader table).
//   rtfd FILE [-o OUT.rtfd-data]: the RTFD data of the document, with its document attributes,
//                                 as the helper's attributedStringWithContentsOfFile makes them;
//                                 prints the attributes as JSON and writes the data to OUT.
//   text FILE:                    the plain text of the document, UTF-8.
// 1 when no format reads the file (nil).
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "Classes/Unicode.h"
#include "tools/ferncast_cli.h"
#include "webcontent/documents/DocumentReader.h"
#include "webcontent/documents/RTFD.h"

namespace ferncast::cli {
namespace {

AttributedString readDocument(const std::string& path, Dictionary* attributes) {
  std::optional<AttributedString> string = initWithPath(utf8ToUtf16(path), attributes);
  if (!string) finish(kNegative, path + ": no document the reader can read");
  return std::move(*string);
}

void addCommands(CLI::App& area) {
  struct Options {
    std::string path, output;
  };
  auto o = std::make_shared<Options>();

  CLI::App* rtfd = area.add_subcommand("rtfd", "the RTFD data and attributes of a document");
  rtfd->add_option("FILE", o->path, "a document file or package")->required();
  rtfd->add_option("-o,--output", o->output, "where to write the RTFD data");
  rtfd->callback([o] {
    Dictionary attributes;
    const AttributedString string = readDocument(o->path, &attributes);
    if (!o->output.empty()) {
      const Data data = RTFDFromRange(string, attributes);
      std::ofstream out(o->output, std::ios::binary);
      out.write(reinterpret_cast<const char*>(data.data()),
                static_cast<std::streamsize>(data.size()));
      if (!out.flush()) finish(kUsage, o->output + ": cannot be written");
    }
    printJson(attributes);
    finish(kSuccess);
  });

  CLI::App* text = area.add_subcommand("text", "the plain text of a document");
  text->add_option("FILE", o->path, "a document file or package")->required();
  text->callback([o] {
    writeText(readDocument(o->path, nullptr).string());
    finish(kSuccess);
  });
}

const RegisterArea kDocument{
    {"document", "documents read by the text system's reader", addCommands}};

}  // namespace
}  // namespace ferncast::cli
