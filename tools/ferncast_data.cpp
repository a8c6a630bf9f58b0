// ferncast data: compression, inflation, multipart form data and byte-class tests.
//   gzip [--level N] [FILE|-], deflate [--level N] [FILE|-], inflate [FILE|-]: bytes in, bytes out;
//     1 with a message and no output when the operation answers nil or NO.
//   form --boundary B [FILE|-]: the fields as JSON; 1 for nil.
//   is-ascii [FILE|-], is-rtf [FILE|-]: no output; 0 for YES, 1 for NO.
#include <memory>
#include <optional>
#include <string>

#include "Classes/NSData+HTTP.h"
#include "Classes/NSData+Quill.h"
#include "Classes/NSData+zlib.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {
namespace {

struct Options {
  std::string path = "-";
  int level = -1;
  std::string boundary;
};

Data readData(const std::string& path) {
  const std::string bytes = readInput(path);
  return Data(bytes.begin(), bytes.end());
}

[[noreturn]] void finishWithData(const std::optional<Data>& data, const char* failure) {
  if (!data) finish(kNegative, failure);
  writeOutput({reinterpret_cast<const char*>(data->data()), data->size()});
  finish(kSuccess);
}

CLI::App* addCommand(CLI::App& area, const char* name, const char* description,
                     std::shared_ptr<Options> options) {
  CLI::App* command = area.add_subcommand(name, description);
  command->add_option("FILE", options->path, "input file, or - for standard input");
  return command;
}

void addCommands(CLI::App& area) {
  auto options = std::make_shared<Options>();

  CLI::App* gzip = addCommand(area, "gzip", "compress with gzip framing", options);
  gzip->add_option("--level", options->level, "compression level: -1 (default) or 1 to 9");
  gzip->callback([options] {
    finishWithData(dataByGzippingData(readData(options->path), options->level),
                   "gzip: nothing compressed (empty input or zlib error)");
  });

  CLI::App* deflate = addCommand(area, "deflate", "compress with zlib framing", options);
  deflate->add_option("--level", options->level, "compression level: -1 (default) or 1 to 9");
  deflate->callback([options] {
    finishWithData(dataByDeflatingData(readData(options->path), options->level),
                   "deflate: nothing compressed (empty input or zlib error)");
  });

  addCommand(area, "inflate", "inflate one zlib or gzip stream", options)->callback([options] {
    finishWithData(dataByInflatingData(readData(options->path)),
                   "inflate: not one complete zlib or gzip stream");
  });

  CLI::App* form =
      addCommand(area, "form", "fields of a multipart/form-data body as JSON", options);
  form->add_option("--boundary", options->boundary, "the boundary of the body")->required();
  form->callback([options] {
    auto fields = formDataUsingBoundary(readData(options->path), argumentText(options->boundary));
    if (!fields) finish(kNegative, "form: not a multipart body with this boundary");
    printJson(std::move(*fields));
    finish(kSuccess);
  });

  addCommand(area, "is-ascii", "exit 0 when the bytes are ASCII text, else 1", options)
      ->callback(
          [options] { finish(isAsciiData(readData(options->path)) ? kSuccess : kNegative); });

  addCommand(area, "is-rtf", "exit 0 when the bytes hold RTF, else 1", options)
      ->callback([options] { finish(isRTFData(readData(options->path)) ? kSuccess : kNegative); });
}

const RegisterArea kData{{"data", "compressed data, form data and byte tests", addCommands}};

}  // namespace
}  // namespace ferncast::cli
