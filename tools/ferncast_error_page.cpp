// ferncast error-page [--url URL] [--title TITLE] [--text-file F]: 0 when the page with this URL,
// title and plain text (F, or - for standard input, decoded as markup) is a server's error page,
// 1 when not. With --rate-limit: 0 when the text is a page-load-frequency notice. No output.
#include <memory>
#include <optional>
#include <string>

#include "tools/ferncast_cli.h"
#include "tools/ferncast_markup_input.h"
#include "webcontent/ErrorPages.h"

namespace ferncast::cli {
namespace {

struct Options {
  std::optional<std::string> url, title, textFile;
  bool rateLimit = false;
};

void addCommands(CLI::App& command) {
  auto o = std::make_shared<Options>();
  command.add_option("--url", o->url, "the page's URL");
  command.add_option("--title", o->title, "the page's title");
  command.add_option("--text-file", o->textFile, "a file with the page's plain text, - for stdin");
  command.add_flag("--rate-limit", o->rateLimit, "test for a page-load-frequency notice instead");
  command.callback([o] {
    std::optional<std::u16string> url, title, text;
    if (o->url) url = argumentText(*o->url);
    if (o->title) title = argumentText(*o->title);
    if (o->textFile) text = readMarkupInput(*o->textFile);
    const bool yes =
        o->rateLimit ? exceededPageLoadFrequency(url, text) : isErrorPage(url, title, text);
    finish(yes ? kSuccess : kNegative);
  });
}

const RegisterArea kErrorPage{
    {"error-page", "whether a page is a server's error page", addCommands, true}};

}  // namespace
}  // namespace ferncast::cli
