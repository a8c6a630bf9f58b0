// ferncast html rtfd FILE [--base URL] [--allow-remote] [--charset NAME] -o OUT: the page rendered
// to RTFD as the helper's RTFDWithHTML renders it, in this process. OUT is the RTFD package to
// write (replaced whole), or "-" for the serialized RTFD data on standard output. Each image load
// is one JSON line on standard error:
//   {"url": ..., "result": "allowed"|"refused"|"failed", "finalURL": ..., "redirects": N,
//    "bytes": N (allowed), "error": "..." (failed)}
// Exit 1 when the page gives nothing (nil), 2 when FILE or OUT cannot be read or written.
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "Classes/Json.h"
#include "Classes/Unicode.h"
#include "service/FerncastHelper.h"
#include "tools/ferncast_cli.h"
#include "webcontent/documents/RTFD.h"

namespace ferncast::cli {
namespace {

struct Options {
  std::string path;
  std::string base;
  bool allowRemote = false;
  std::string charset;
  std::string out;
};

const char* resultName(LoadOutcome outcome) {
  switch (outcome) {
    case LoadOutcome::kLoaded:
      return "allowed";
    case LoadOutcome::kRefused:
      return "refused";
    case LoadOutcome::kFailed:
      break;
  }
  return "failed";
}

void printLoad(const LoadedResource& load) {
  Dictionary line;
  line[u"url"] = load.url.absoluteString();
  line[u"result"] = utf8ToUtf16(resultName(load.outcome));
  line[u"finalURL"] = load.finalURL.absoluteString();
  line[u"redirects"] = load.redirects;
  if (load.outcome == LoadOutcome::kLoaded) line[u"bytes"] = load.data.size();
  if (load.outcome == LoadOutcome::kFailed) line[u"error"] = utf8ToUtf16(load.error);
  std::string text = toJson(line);
  while (!text.empty() && text.back() == '\n')
    text.pop_back();
  std::fprintf(stderr, "%s\n", text.c_str());
}

void render(const Options& o) {
  const std::string bytes = readInput(o.path);
  FerncastHelper helper;
  std::optional<std::u16string> base;
  if (!o.base.empty()) base = argumentText(o.base);
  HTMLRenderingOptions options =
      helper._HTMLRenderingOptions(base, o.allowRemote, argumentText(o.charset));
  std::optional<HtmlReading> reading =
      helper._renderHTML(Data(bytes.begin(), bytes.end()), options);
  if (reading) {
    for (const LoadedResource& load : reading->loads)
      printLoad(load);
  }
  if (!reading) finish(kNegative, o.path + ": the page gives no text");
  Data rtfd = RTFDFromRange(reading->string, {});
  if (o.out == "-") {
    writeOutput(std::string_view(reinterpret_cast<const char*>(rtfd.data()), rtfd.size()));
  } else if (!writeRTFD(rtfd, utf8ToUtf16(o.out))) {
    finish(kUsage, o.out + ": cannot be written");
  }
  finish(kSuccess);
}

void addCommands(CLI::App& area) {
  auto o = std::make_shared<Options>();
  CLI::App* rtfd = area.add_subcommand("rtfd", "the page rendered to RTFD, image loads on stderr");
  rtfd->add_option("FILE", o->path, "the HTML file, or - for standard input")->required();
  rtfd->add_option("--base", o->base, "the base URL of the page");
  rtfd->add_flag("--allow-remote", o->allowRemote,
                 "load images from any host (else only from this machine and its networks)");
  rtfd->add_option("--charset", o->charset, "the character set of the page");
  rtfd->add_option("-o,--output", o->out, "the RTFD package to write, or - for RTFD data")
      ->required();
  rtfd->callback([o] { render(*o); });
}

const RegisterArea kHtmlRtfd{{"html", "HTML queries, rewriting and conversion", addCommands}};

}  // namespace
}  // namespace ferncast::cli
