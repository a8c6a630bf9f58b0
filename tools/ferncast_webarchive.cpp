// ferncast webarchive: Safari web archives.
//   text FILE:   the searchable text (each frame's text after two line feeds), UTF-8.
//   source FILE: the main resource's markup, UTF-8; 1 when it is no markup.
//   url FILE:    the main resource's URL and a line feed.
//   info FILE:   the resources as JSON: {"mainResource": R, "subresources": [R...],
//                "subframeArchives": [archive...]} with R = {"URL", "MIMEType",
//                "textEncodingName", "frameName", "length"}.
// Every command answers 1 with a message when the file holds no web archive, 2 when it cannot be
// read.
#include <memory>
#include <optional>
#include <string>

#include "markup/WebArchive+SearchableText.h"
#include "markup/WebArchive+WebKitAdditions.h"
#include "markup/WebArchive.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {
namespace {

WebArchive readArchive(const std::string& path) {
  const std::string bytes = readInput(path);
  std::optional<WebArchive> archive =
      WebArchive::fromData(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  if (!archive) finish(kNegative, (path == "-" ? "standard input" : path) + ": no web archive");
  return std::move(*archive);
}

Value resourceInfo(const WebResource& resource) {
  return Dictionary{{u"URL", Value(resource.URL)},
                    {u"MIMEType", Value(resource.MIMEType)},
                    {u"textEncodingName", Value(resource.textEncodingName)},
                    {u"frameName", Value(resource.frameName)},
                    {u"length", Value(resource.data.size())}};
}

Value archiveInfo(const WebArchive& archive) {
  Array subresources, subframes;
  for (const WebResource& resource : archive.subresources()) {
    subresources.push_back(resourceInfo(resource));
  }
  for (const WebArchive& subframe : archive.subframeArchives()) {
    subframes.push_back(archiveInfo(subframe));
  }
  return Dictionary{{u"mainResource", resourceInfo(archive.mainResource())},
                    {u"subresources", Value(std::move(subresources))},
                    {u"subframeArchives", Value(std::move(subframes))}};
}

void addCommands(CLI::App& area) {
  auto path = std::make_shared<std::string>("-");
  auto add = [&area, path](const char* name, const char* description) {
    CLI::App* command = area.add_subcommand(name, description);
    command->add_option("FILE", *path, "a .webarchive file, or - for standard input");
    return command;
  };

  add("text", "the searchable text of the page and its frames")->callback([path] {
    writeText(searchableText(readArchive(*path)));
    finish(kSuccess);
  });
  add("source", "the markup of the main resource")->callback([path] {
    std::optional<std::u16string> source = documentSource(readArchive(*path));
    if (!source) finish(kNegative, "source: the main resource is no markup");
    writeText(*source);
    finish(kSuccess);
  });
  add("url", "the URL of the main resource")->callback([path] {
    writeText(baseURL(readArchive(*path)) + u"\n");
    finish(kSuccess);
  });
  add("info", "the resources and frames as JSON")->callback([path] {
    printJson(archiveInfo(readArchive(*path)));
    finish(kSuccess);
  });
}

const RegisterArea kWebArchive{{"webarchive", "Safari web archives", addCommands}};

}  // namespace
}  // namespace ferncast::cli
