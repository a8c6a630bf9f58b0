// ferncast type FILE: the content type of a file or folder and the types it conforms to, as
// {"contentType": "public.jpeg", "conformsTo": ["public.image", ...], "classicType": "'JPEG'"}
// ("classicType" only when the file carries one). 2 when nothing exists at FILE.
#include <memory>
#include <string>

#include "Classes/ContentTypes.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {
namespace {

void addCommands(CLI::App& command) {
  auto path = std::make_shared<std::string>();
  command.add_option("FILE", *path, "a file or folder")->required();
  command.callback([path] {
    const std::u16string file = argumentText(*path);
    const std::optional<std::u16string> type = contentTypeOfPath(file);
    if (!type) finish(kUsage, "type: no such file or folder: " + *path);
    Array conformsTo;
    for (std::u16string& parent : contentTypeConformanceChain(*type))
      if (parent != *type) conformsTo.emplace_back(std::move(parent));
    Dictionary result{{u"contentType", *type}, {u"conformsTo", std::move(conformsTo)}};
    if (std::optional<std::u16string> classic = classicFileTypeOfPath(file))
      result.emplace(u"classicType", std::move(*classic));
    printJson(std::move(result));
    finish(kSuccess);
  });
}

const RegisterArea kType{
    {"type", "the content type of a file and the types it conforms to", addCommands, true}};

}  // namespace
}  // namespace ferncast::cli
