// ferncast article: the main article of an HTML page. FILE is a file or - for standard input,
// decoded as markup (tools/ferncast_markup_input.h).
//   check FILE: no output; 0 when the page looks like one article, 1 when not.
//   strip FILE: the page cut down to its article; 1 (no output) when it cannot be.
#include <memory>
#include <optional>
#include <string>

#include "tools/ferncast_cli.h"
#include "tools/ferncast_markup_input.h"
#include "webcontent/Reader.h"

namespace ferncast::cli {
namespace {

void addCommands(CLI::App& area) {
  auto path = std::make_shared<std::string>("-");
  CLI::App* check = area.add_subcommand("check", "0 when the page holds one main article");
  check->add_option("FILE", *path, "the page, or - for standard input");
  check->callback(
      [path] { finish(possibleArticle(readMarkupInput(*path)) ? kSuccess : kNegative); });

  CLI::App* strip = area.add_subcommand("strip", "the page cut down to its article");
  strip->add_option("FILE", *path, "the page, or - for standard input");
  strip->callback([path] {
    std::optional<std::u16string> article = stripToArticle(readMarkupInput(*path));
    if (!article) finish(kNegative);
    writeText(*article);
    finish(kSuccess);
  });
}

const RegisterArea kArticle{{"article", "article detection and extraction", addCommands}};

}  // namespace
}  // namespace ferncast::cli
