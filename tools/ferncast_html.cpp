// ferncast html: queries over an HTML page and rewritten copies of it. The page (FILE, or - for
// standard input) is decoded with the markup decoder (its declared charset, UTF-8 by default).
//   links [--containing PHRASE] [--nofollow] FILE: JSON {"links": [...], "baseURL": URL|null}.
//   frames [--with-links] FILE: JSON {"frames", "baseURL", "favicon", "title", "refresh",
//     "robots", "revisit", "isFeed"} (absent values null).
//   images|resources|objects FILE: JSON array.
//   title [--normalized]|favicon|date|canonical|base FILE, meta-value NAME FILE, http-equiv NAME
//     FILE: the value; 1 when there is none (an empty title included).
//   meta [--convert-entities] FILE: JSON object. keywords FILE: JSON {"keywords", "description",
//     "title", "indexTitle"}. is-html FILE: no output, 0 YES, 1 NO.
//   set-base URL FILE, add-base URL FILE, strip-tags FILE, strip-tag NAME FILE,
//   strip-bodies PATTERN... -- FILE, keep-bodies PATTERN... -- FILE (1 when nothing is kept),
//   strip-objects [--replace-images] FILE, strip-links FILE: the rewritten page.
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "markup/MarkupDecoding.h"
#include "tools/ferncast_cli.h"
#include "webcontent/HtmlExtensions.h"

namespace ferncast::cli {
namespace {

struct Options {
  std::vector<std::string> arguments;  // the command's own arguments, then FILE
  std::string containing;
  bool nofollow = false, withLinks = false, normalized = false, convertEntities = false;
  bool replaceImages = false;
};

std::u16string readPage(const std::string& path) {
  const std::string bytes = readInput(path);
  std::span<const std::uint8_t> data(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                     bytes.size());
  std::optional<std::u16string> html = stringWithMarkupData(data, NSUTF8StringEncoding);
  if (!html)
    finish(kUsage, (path == "-" ? std::string("standard input") : path) + ": cannot be decoded");
  return std::move(*html);
}

// The page named by the last argument (standard input when there is none).
std::u16string page(const Options& options) {
  return readPage(options.arguments.empty() ? "-" : options.arguments.back());
}

Value optionalText(const std::optional<std::u16string>& text) {
  return text ? Value(*text) : Value();
}

Value urlValue(const std::optional<URL>& url) {
  return url ? Value(url->absoluteString()) : Value();
}

Value stringArray(const std::vector<std::u16string>& strings) {
  return Array(strings.begin(), strings.end());
}

[[noreturn]] void finishWithText(const std::optional<std::u16string>& text) {
  if (!text) finish(kNegative);
  writeText(*text);
  writeOutput("\n");
  finish(kSuccess);
}

[[noreturn]] void finishWithPage(const std::optional<std::u16string>& html) {
  if (!html) finish(kNegative);
  writeText(*html);
  finish(kSuccess);
}

std::string upperASCII(std::string name) {
  for (char& c : name)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  return name;
}

void links(const Options& o) {
  std::optional<URL> base;
  std::u16string phrase = argumentText(o.containing);
  std::vector<std::u16string> found = htmlLinksContaining(page(o), phrase, o.nofollow, &base);
  printJson(Dictionary{{u"links", stringArray(found)}, {u"baseURL", urlValue(base)}});
  finish(kSuccess);
}

void frames(const Options& o) {
  std::optional<URL> base;
  std::optional<std::u16string> favIcon, title, refresh, robots, revisit;
  bool isFeed = false;
  HtmlHead head{&favIcon, &title, &refresh, &robots, &revisit, &isFeed};
  std::u16string html = page(o);
  std::vector<std::u16string> found = o.withLinks
                                          ? htmlLinksAndFramesSet(html, nullptr, &base, head)
                                          : htmlFramesSet(html, nullptr, &base, head);
  printJson(Dictionary{{u"frames", stringArray(found)},
                       {u"baseURL", urlValue(base)},
                       {u"favicon", optionalText(favIcon)},
                       {u"title", optionalText(title)},
                       {u"refresh", optionalText(refresh)},
                       {u"robots", optionalText(robots)},
                       {u"revisit", optionalText(revisit)},
                       {u"isFeed", isFeed}});
  finish(kSuccess);
}

void meta(const Options& o) {
  std::u16string html = page(o);
  auto attributes = o.convertEntities ? htmlMetaAttributesByConvertingEntitiesToCharacters(html)
                                      : htmlMetaAttributes(html);
  Dictionary result;
  for (auto& [name, content] : attributes)
    result.emplace(name, content);
  printJson(result);
  finish(kSuccess);
}

void keywords(const Options& o) {
  std::optional<std::u16string> keywords, description, title, indexTitle;
  htmlMetaKeywords(page(o), &keywords, &description, &title, &indexTitle);
  printJson(Dictionary{{u"keywords", optionalText(keywords)},
                       {u"description", optionalText(description)},
                       {u"title", optionalText(title)},
                       {u"indexTitle", optionalText(indexTitle)}});
  finish(kSuccess);
}

void title(const Options& o) {
  std::u16string html = page(o);
  std::u16string text = o.normalized ? normalizedHtmlTitle(html) : htmlTitle(html);
  finishWithText(text.empty() ? std::nullopt : std::optional(text));
}

// Patterns are every argument but the last, which names the page.
void bodies(const Options& o, bool except) {
  if (o.arguments.size() < 2) finish(kUsage, "give at least one PATTERN and the FILE");
  std::vector<std::u16string> patterns;
  for (std::size_t i = 0; i + 1 < o.arguments.size(); ++i)
    patterns.push_back(argumentText(o.arguments[i]));
  finishWithPage(stripTagBodies(page(o), patterns, except));
}

struct Command {
  const char* name;
  const char* description;
  const char* arguments;  // shown in the help, FILE last
  std::size_t count;      // arguments before FILE; SIZE_MAX: one or more
  void (*run)(const Options&);
};

void addCommands(CLI::App& area) {
  const Command commands[] = {
      {"links", "the page's links and base URL as JSON", "FILE", 0, links},
      {"frames", "frames and page-head facts as JSON", "FILE", 0, frames},
      {"images", "images and icons as JSON", "FILE", 0,
       [](const Options& o) { printJson(stringArray(htmlImages(page(o)))); }},
      {"resources", "style sheets and scripts as JSON", "FILE", 0,
       [](const Options& o) { printJson(stringArray(htmlStylesheetsAndScripts(page(o)))); }},
      {"objects", "embedded objects as JSON", "FILE", 0,
       [](const Options& o) { printJson(stringArray(htmlEmbeddedObjects(page(o)))); }},
      {"title", "the title of the page", "FILE", 0, title},
      {"favicon", "the shortcut icon", "FILE", 0,
       [](const Options& o) { finishWithText(htmlFavIcon(page(o))); }},
      {"date", "the date of a meta tag", "FILE", 0,
       [](const Options& o) { finishWithText(htmlDate(page(o))); }},
      {"canonical", "the canonical URL", "FILE", 0,
       [](const Options& o) { finishWithText(htmlCanonicalURL(page(o))); }},
      {"base", "the base URL", "FILE", 0,
       [](const Options& o) {
         std::optional<URL> base = htmlBaseURL(page(o));
         finishWithText(base ? std::optional(base->absoluteString()) : std::nullopt);
       }},
      {"meta", "meta names and contents as JSON", "FILE", 0, meta},
      {"meta-value", "the content of the meta tags with a NAME", "NAME FILE", 1,
       [](const Options& o) {
         finishWithText(htmlMetaAttributeWithName(page(o), argumentText(o.arguments[0])));
       }},
      {"http-equiv", "the content of the meta tags with an HTTP-EQUIV", "NAME FILE", 1,
       [](const Options& o) {
         finishWithText(htmlMetaHTTPEquiv(page(o), argumentText(o.arguments[0])));
       }},
      {"keywords", "keywords, description, title and index title as JSON", "FILE", 0, keywords},
      {"is-html", "exit 0 when the text is an HTML page, else 1", "FILE", 0,
       [](const Options& o) { finish(isHTML(page(o)) ? kSuccess : kNegative); }},
      {"set-base", "set, add or (with an empty URL) remove the base element", "URL FILE", 1,
       [](const Options& o) {
         finishWithPage(stringBySettingBaseURL(page(o), argumentText(o.arguments[0])));
       }},
      {"add-base", "add a base element when the page has none", "URL FILE", 1,
       [](const Options& o) {
         finishWithPage(stringByAddingBaseURL(page(o), argumentText(o.arguments[0])));
       }},
      {"strip-tags", "the text between tags", "FILE", 0,
       [](const Options& o) { finishWithPage(stripTags(page(o))); }},
      {"strip-tag", "remove every tag of one name", "NAME FILE", 1,
       [](const Options& o) {
         std::u16string html = page(o);
         std::optional<std::u16string> stripped = stripTag(html, upperASCII(o.arguments[0]));
         finishWithPage(stripped ? stripped : html);
       }},
      {"strip-bodies", "remove whole elements whose tags start with a PATTERN such as <script",
       "PATTERN... -- FILE", SIZE_MAX, [](const Options& o) { bodies(o, false); }},
      {"keep-bodies", "keep only whole elements whose tags start with a PATTERN",
       "PATTERN... -- FILE", SIZE_MAX, [](const Options& o) { bodies(o, true); }},
      {"strip-objects", "remove plug-ins, media, scripts and link tags", "FILE", 0,
       [](const Options& o) {
         finishWithPage(stripObjectsAndReplaceImages(page(o), o.replaceImages));
       }},
      {"strip-links", "remove anchors with their text, and link tags", "FILE", 0,
       [](const Options& o) { finishWithPage(stripLinks(page(o))); }},
  };
  for (const Command& command : commands) {
    auto options = std::make_shared<Options>();
    CLI::App* sub = area.add_subcommand(command.name, command.description);
    CLI::Option* arguments = sub->add_option("ARGUMENTS", options->arguments, command.arguments);
    if (command.count == SIZE_MAX) {
      arguments->required()->expected(2, -1);
    } else if (command.count > 0) {
      arguments->required()->expected(static_cast<int>(command.count),
                                      static_cast<int>(command.count) + 1);
    } else {
      arguments->expected(0, 1);
    }
    std::string name = command.name;
    if (name == "links") {
      sub->add_option("--containing", options->containing,
                      "only links whose anchor text contains PHRASE");
      sub->add_flag("--nofollow", options->nofollow, "skip links with rel=nofollow");
    } else if (name == "frames") {
      sub->add_flag("--with-links", options->withLinks, "add the hrefs of a and area tags");
    } else if (name == "title") {
      sub->add_flag("--normalized", options->normalized, "decode entities and trim white space");
    } else if (name == "meta") {
      sub->add_flag("--convert-entities", options->convertEntities,
                    "decode entities and simplify white space and markup");
    } else if (name == "strip-objects") {
      sub->add_flag("--replace-images", options->replaceImages,
                    "replace images by their alternative text");
    }
    sub->callback([options, run = command.run, count = command.count] {
      // Commands with arguments of their own read the page from the one after them (or stdin).
      if (count != SIZE_MAX && options->arguments.size() == count)
        options->arguments.push_back("-");
      run(*options);
      finish(kSuccess);
    });
  }
}

const RegisterArea kHtml{{"html", "queries over HTML pages and rewritten copies", addCommands}};

}  // namespace
}  // namespace ferncast::cli
