// ferncast feed: RSS, RDF and Atom feeds. FILE is a file or - for standard input, decoded as
// markup (tools/ferncast_markup_input.h).
//   items [--base URL] [FILE]: JSON array of the item dictionaries ("calendarDate" as
//     {"date": ISO 8601}).
//   is-feed FILE: no output; 0 when it is a feed, 1 when not.
//   complete FILE: JSON {"found": bool, "complete": bool}; 1 when no feed root was found.
//   empty-items FILE: JSON array, one Boolean per item: whether it is empty.
//   html [--base URL] [--style-sheet PATH] [--inline] FILE: the display page (the input itself
//     when it is no feed); the style sheet linked, or inline with --inline.
//   searchable-html FILE: the items as one searchable page.
//   date STRING: the instant in ISO 8601 UTC; 1 when the string cannot be read.
#include <memory>
#include <optional>
#include <string>

#include "Classes/Json.h"
#include "tools/ferncast_cli.h"
#include "tools/ferncast_markup_input.h"
#include "webcontent/Feed2Html.h"
#include "webcontent/FeedDate.h"
#include "webcontent/FeedExtensions.h"

namespace ferncast::cli {
namespace {

struct Options {
  std::string path = "-";
  std::string base;
  std::string styleSheet;
  bool inlineStyle = false;
  std::string dateString;
};

std::optional<URL> baseURL(const std::string& base) {
  if (base.empty()) return std::nullopt;
  std::optional<URL> url = URL::URLWithString(argumentText(base));
  if (!url) finish(kUsage, "--base " + base + ": not a URL");
  return url;
}

void addCommands(CLI::App& area) {
  auto o = std::make_shared<Options>();
  auto command = [&](const char* name, const char* description) {
    CLI::App* sub = area.add_subcommand(name, description);
    sub->add_option("FILE", o->path, "the feed, or - for standard input");
    return sub;
  };

  CLI::App* items = command("items", "the item dictionaries as JSON");
  items->add_option("--base", o->base, "the URL that links beginning with / are relative to");
  items->callback([o] {
    printJson(getItemsOfFeed(readMarkupInput(o->path), baseURL(o->base)));
    finish(kSuccess);
  });

  command("is-feed", "0 when the input is a feed, 1 when not")->callback([o] {
    finish(isFeed(readMarkupInput(o->path)) ? kSuccess : kNegative);
  });

  command("complete", "whether a feed root exists and the feed text is complete")->callback([o] {
    bool complete = false;
    const bool found = isFeedComplete(readMarkupInput(o->path), &complete);
    printJson(Dictionary{{u"found", found}, {u"complete", complete}});
    finish(found ? kSuccess : kNegative);
  });

  command("empty-items", "whether each item is empty")->callback([o] {
    Array empty;
    for (const Value& item : getItemsOfFeed(readMarkupInput(o->path)))
      empty.emplace_back(isEmptyFeedItem(*item.as<Dictionary>()));
    printJson(empty);
    finish(kSuccess);
  });

  CLI::App* html = command("html", "the feed as a display page");
  html->add_option("--base", o->base, "the URL that links beginning with / are relative to");
  html->add_option("--style-sheet", o->styleSheet, "the path of the feed style sheet");
  html->add_flag("--inline", o->inlineStyle, "put the style sheet inside the page");
  html->callback([o] {
    if (!o->styleSheet.empty()) setLinkableFeedStyleSheet(argumentText(o->styleSheet));
    writeText(stringByConvertingFeed(readMarkupInput(o->path), baseURL(o->base), !o->inlineStyle));
    finish(kSuccess);
  });

  command("searchable-html", "the items as one searchable page")->callback([o] {
    writeText(stringByConvertingItemsToSearchableHTML(getItemsOfFeed(readMarkupInput(o->path))));
    finish(kSuccess);
  });

  CLI::App* dateCommand = area.add_subcommand("date", "a feed date as ISO 8601 UTC");
  dateCommand->add_option("STRING", o->dateString, "the date as the feed writes it")->required();
  dateCommand->callback([o] {
    std::optional<Date> when = date(argumentText(o->dateString));
    if (!when) finish(kNegative);
    writeOutput(iso8601(*when) + "\n");
    finish(kSuccess);
  });
}

const RegisterArea kFeed{{"feed", "feeds: items, pages and dates", addCommands}};

}  // namespace
}  // namespace ferncast::cli
