// ferncast html text [options] [FILE...|-]: the plain text of HTML pages, UTF-8.
// Each input is decoded with the markup decoder: with --charset NAME as the name from outside,
// otherwise as a markup file (standard input as markup bytes) with ISO Latin-1 as the default.
// With several inputs each text ends with a form feed and a line feed. --junk-flag prints
// "junk: YES" or "junk: NO" per input on standard error. 2 when an input cannot be read or
// decoded.
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "markup/Html2Text.h"
#include "markup/MarkupDecoding.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {
namespace {

struct Options {
  bool reformat = false, onlyBody = false, googleTags = false, removeJunk = false;
  bool noImageAlts = false, nonUmlauted = false, simple = false, noEntities = false;
  bool junkFlag = false;
  std::string charset;
  std::vector<std::string> paths;
};

std::u16string readMarkup(const std::string& path, const std::string& charset) {
  std::optional<std::u16string> html;
  if (!charset.empty() || path == "-") {
    const std::string bytes = readInput(path);
    std::span<const std::uint8_t> data(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                       bytes.size());
    html = stringWithMarkupData(data, argumentText(charset), NSISOLatin1StringEncoding, u"");
  } else {
    html = stringWithMarkupContentsOfFile(utf8ToUtf16(path), NSISOLatin1StringEncoding);
  }
  if (!html) finish(kUsage, path + ": cannot be read or decoded");
  return std::move(*html);
}

std::u16string convert(const std::u16string& html, const Options& o, bool& junk) {
  junk = false;
  if (o.simple) return stringByConvertingHtml2SimplifiedPlainText(html);
  return stringByConvertingHtml2PlainTextEntities(html, !o.noEntities, !o.noEntities, o.nonUmlauted,
                                                  o.reformat, o.onlyBody, o.removeJunk, &junk,
                                                  o.googleTags, !o.noImageAlts);
}

void addCommands(CLI::App& area) {
  auto o = std::make_shared<Options>();
  CLI::App* text = area.add_subcommand("text", "the plain text of HTML pages");
  CLI::Option* simple =
      text->add_flag("--simple", o->simple, "only the body's text runs joined by spaces");
  auto option = [&](const char* name, bool& flag, const char* description) {
    text->add_flag(name, flag, description)->excludes(simple);
  };
  option("--reformat", o->reformat, "keep the line structure of the text");
  option("--only-body", o->onlyBody, "only the text of the body (the whole page when empty)");
  option("--google-tags", o->googleTags, "obey <!-- googleoff: --> and <!-- googleon: -->");
  option("--remove-junk", o->removeJunk, "leave out boilerplate, hidden text and the title");
  option("--no-image-alts", o->noImageAlts, "leave out the ALT text of images");
  option("--non-umlauted", o->nonUmlauted, "strip accents from letters");
  option("--no-entities", o->noEntities, "keep character entities as written");
  text->add_option("--charset", o->charset, "the charset of the input, as a name");
  text->add_flag("--junk-flag", o->junkFlag, "print \"junk: YES|NO\" on standard error");
  text->add_option("FILE", o->paths, "HTML files, or - for standard input");
  text->callback([o] {
    if (o->paths.empty()) o->paths.push_back("-");
    const bool several = o->paths.size() > 1;
    for (const std::string& path : o->paths) {
      bool junk = false;
      std::u16string plain = convert(readMarkup(path, o->charset), *o, junk);
      if (several) plain += u"\f\n";
      writeText(plain);
      if (o->junkFlag) std::fputs(junk ? "junk: YES\n" : "junk: NO\n", stderr);
    }
    finish(kSuccess);
  });
}

const RegisterArea kHtmlText{{"html", "HTML text, queries and rewriting", addCommands}};

}  // namespace
}  // namespace ferncast::cli
