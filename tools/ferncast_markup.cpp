// ferncast markup: the tag scanner and its attribute accessors.
//   tags [FILE|-]: one JSON object per handler call, one per line, in call order:
//     {"kind":1,"name":"b","nameLocation":2,"nameLength":1,"tagLocation":1,"tagLength":3,
//      "textLocation":0}; "name" is null and "nameLocation" 2147483647 when there is none.
//     Positions count UTF-16 code units of the UTF-8 input. Empty input prints nothing.
//   attribute NAME [--style] [FILE|-]: the value of attribute NAME (upper-cased) in the first tag
//     of the input, or with --style the property NAME of the whole input read as a declaration
//     list ("width: 20px; height: 10px"); printed as UTF-8 with a line feed. 1 when there is none.
#include <memory>
#include <optional>
#include <string>

#include "Classes/Json.h"
#include "markup/chartables/CharacterTables.h"
#include "markup/XmlExtensions.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {
namespace {

bool PrintCallHandler(std::u16string_view string, char16_t*, std::size_t nameLocation,
                      std::size_t nameLength, std::size_t tagLocation, std::size_t tagLength,
                      std::size_t textLocation, TagKind kind, void* context) {
  std::string& out = *static_cast<std::string*>(context);
  out += "{\"kind\":" + std::to_string(static_cast<int>(kind)) + ",\"name\":";
  out += nameLocation == kNotFound ? "null" : jsonString(string.substr(nameLocation, nameLength));
  out += ",\"nameLocation\":" + std::to_string(nameLocation);
  out += ",\"nameLength\":" + std::to_string(nameLength);
  out += ",\"tagLocation\":" + std::to_string(tagLocation);
  out += ",\"tagLength\":" + std::to_string(tagLength);
  out += ",\"textLocation\":" + std::to_string(textLocation) + "}\n";
  return false;
}

bool FirstTagHandler(std::u16string_view, char16_t*, std::size_t, std::size_t,
                     std::size_t tagLocation, std::size_t tagLength, std::size_t, TagKind kind,
                     void* context) {
  if (kind != TagKind::kTag) return false;
  *static_cast<std::optional<Range>*>(context) = Range{tagLocation, tagLength};
  return true;
}

struct AttributeOptions {
  std::string name;
  bool style = false;
  std::string path = "-";
};

void addCommands(CLI::App& area) {
  auto tagsPath = std::make_shared<std::string>("-");
  CLI::App* tags = area.add_subcommand("tags", "every construct the tag scanner reports, as JSON");
  tags->add_option("FILE", *tagsPath, "input file, or - for standard input");
  tags->callback([tagsPath] {
    const std::u16string text = readTextInput(*tagsPath);
    std::string out;
    GetTagsOfString(text, PrintCallHandler, &out, false);
    writeOutput(out);
    finish(kSuccess);
  });

  auto options = std::make_shared<AttributeOptions>();
  CLI::App* attribute =
      area.add_subcommand("attribute", "the value of an attribute of the first tag");
  attribute->add_option("NAME", options->name, "attribute name (any case)")->required();
  attribute->add_flag("--style", options->style,
                      "read NAME as a property of a style declaration list (the whole input)");
  attribute->add_option("FILE", options->path, "input file, or - for standard input");
  attribute->callback([options] {
    const std::u16string text = readTextInput(options->path);
    std::u16string name = argumentText(options->name);
    for (char16_t& unit : name)
      unit = toUpper(unit);
    std::optional<std::u16string> value;
    if (options->style) {
      value = attributeOfStyleWithName(text, name);
    } else {
      std::optional<Range> tag;
      GetTagsOfString(text, FirstTagHandler, &tag, false);
      if (tag) value = attributeOfTagInRange(text, *tag, name);
    }
    if (!value) finish(kNegative);
    writeText(*value + u"\n");
    finish(kSuccess);
  });
}

const RegisterArea kMarkup{{"markup", "the tag scanner and its accessors", addCommands}};

}  // namespace
}  // namespace ferncast::cli
