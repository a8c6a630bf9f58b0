// ferncast entities: decoding and encoding of character entities, and JSON escaping.
//   decode [--standard|--no-standard] [--numeric-only] [--non-umlauted] [FILE|-]: every entity
//     decoded (the standard four too unless --no-standard);
//   decode-standard [FILE|-]: only "&quot;", "&amp;", "&lt;" and "&gt;";
//   encode [FILE|-]: named entities where HTML 4 has a name, "&#N;" for other non-ASCII;
//   encode-high [FILE|-]: "&#N;" for all non-ASCII; encode-standard [FILE|-]: the standard four;
//   json [FILE|-]: escaped for the inside of a JSON string.
// UTF-8 text in, UTF-8 text out, nothing added; exit 0 (2 for unreadable input).
#include <memory>
#include <string>

#include "markup/Entities.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {
namespace {

struct Options {
  std::string path = "-";
  bool standard = true;
  bool onlyNumeric = false;
  bool nonUmlauted = false;
};

using Conversion = std::u16string (*)(std::u16string_view);

CLI::App* addCommand(CLI::App& area, const char* name, const char* description,
                     std::shared_ptr<Options> options) {
  CLI::App* command = area.add_subcommand(name, description);
  command->add_option("FILE", options->path, "UTF-8 input file, or - for standard input");
  return command;
}

void addConversion(CLI::App& area, const char* name, const char* description, Conversion conversion,
                   std::shared_ptr<Options> options) {
  addCommand(area, name, description, options)->callback([options, conversion] {
    writeText(conversion(readTextInput(options->path)));
    finish(kSuccess);
  });
}

void addCommands(CLI::App& area) {
  auto options = std::make_shared<Options>();

  CLI::App* decode = addCommand(area, "decode", "decode character entities", options);
  decode->add_flag("--standard,!--no-standard", options->standard,
                   "decode &quot; &amp; &lt; &gt; too (default) or keep them");
  decode->add_flag("--numeric-only", options->onlyNumeric, "leave named entities alone");
  decode->add_flag("--non-umlauted", options->nonUmlauted, "also strip accents from the result");
  decode->callback([options] {
    writeText(stringByConvertingEntitiesToCharacters(readTextInput(options->path),
                                                     options->standard, options->onlyNumeric,
                                                     options->nonUmlauted));
    finish(kSuccess);
  });

  addConversion(area, "decode-standard", "decode only &quot; &amp; &lt; &gt;",
                stringByConvertingStandardEntitiesToCharacters, options);
  addConversion(area, "encode", "named or numeric entities for every non-ASCII character",
                stringByConvertingCharactersToEntities, options);
  addConversion(area, "encode-high", "numeric entities for every non-ASCII code unit",
                stringByConvertingHighCharactersToEntities, options);
  addConversion(area, "encode-standard", "escape \" & < > as entities",
                stringByConvertingCharactersToStandardEntities, options);
  addConversion(area, "json", "escape for the inside of a JSON string",
                stringByConvertingCharactersToJSON, options);
}

const RegisterArea kEntities{{"entities", "character entities and JSON escaping", addCommands}};

}  // namespace
}  // namespace ferncast::cli
