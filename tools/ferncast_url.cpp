// ferncast url: URL components and predicates, web-view URLs, anchors, MIME types, HTTP status
// codes and query parameters. Arguments are UTF-8 text; results go to standard output.
//   info URL: JSON of the components (null when absent), "valid", every URL predicate (NO for an
//     invalid URL) and every string predicate; 1 when the string is no URL.
//   webkit URL, base-for-webkit URL, with-anchor URL ANCHOR, without-anchor URL, webkit-string
//     STRING: the resulting URL string; 1 for nil (or an invalid URL).
//   is-local URL: no output, 0 when the URL is local (a file, no host, or a host on this machine
//     or its networks), 1 when not.
//   mime TYPE: JSON of every MIME-type predicate. http-status CODE: JSON {okay, temporaryError,
//     message}.
//   param NAME URL: the value; 1 for nil. has-param NAME URL: no output, 0 YES, 1 NO.
//   params URL: JSON object; 1 for nil. count-params URL: the number.
//     With --object these four read the query component of the URL object instead.
//   replace-param NAME VALUE URL (or NAME URL with --nil): the whole URL string; with --object
//     the changed query only (1 when the URL has none).
//   list-param NAME LIST: the value in a plain parameter list; 1 for nil.
//   append-param NAME VALUE URL: the URL string with the parameter appended.
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/ferncast_cli.h"
#include "url/NSString+URLUtilities.h"
#include "url/NSURL+Internet.h"
#include "url/NSURL+Quill.h"
#include "url/URL.h"

namespace ferncast::cli {
namespace {

struct Options {
  std::vector<std::string> arguments;
  bool object = false;
  bool nilReplacement = false;
};

std::u16string argument(const Options& options, std::size_t index) {
  return argumentText(options.arguments.at(index));
}

URL urlArgument(const Options& options, std::size_t index) {
  std::optional<URL> url = URL::URLWithString(argument(options, index));
  if (!url) finish(kNegative, "not a valid URL: " + options.arguments.at(index));
  return *url;
}

[[noreturn]] void finishWithText(const std::optional<std::u16string>& text) {
  if (!text) finish(kNegative);
  writeText(*text);
  writeOutput("\n");
  finish(kSuccess);
}

[[noreturn]] void finishWithURL(const std::optional<URL>& url) {
  finishWithText(url ? std::optional<std::u16string>(url->absoluteString()) : std::nullopt);
}

Value optionalText(const std::optional<std::u16string>& text) {
  return text ? Value(*text) : Value();
}

Value parametersValue(const QueryParameters& parameters) {
  Dictionary dictionary;
  for (const auto& [name, value] : parameters)
    dictionary.emplace(name, value);
  return dictionary;
}

void info(const Options& options) {
  std::u16string string = argument(options, 0);
  std::optional<URL> url = URL::URLWithString(string);
  Dictionary result;
  result[u"valid"] = url.has_value();
  result[u"absoluteString"] = url ? Value(url->absoluteString()) : Value();
  result[u"scheme"] = url ? optionalText(url->scheme()) : Value();
  result[u"user"] = url ? optionalText(url->user()) : Value();
  result[u"password"] = url ? optionalText(url->password()) : Value();
  result[u"host"] = url ? optionalText(url->host()) : Value();
  result[u"port"] = url && url->port() ? Value(*url->port()) : Value();
  result[u"path"] = url ? optionalText(url->path()) : Value();
  result[u"query"] = url ? optionalText(url->query()) : Value();
  result[u"fragment"] = url ? optionalText(url->fragment()) : Value();
  result[u"resourceSpecifier"] = url ? Value(url->resourceSpecifier()) : Value();
  const std::pair<const char16_t*, bool (*)(const URL&)> urlPredicates[] = {
      {u"isHTTPURL", isHTTPURL},
      {u"isFTPURL", isFTPURL},
      {u"isFeedURL", isFeedURL},
      {u"isDownloadableURL", isDownloadableURL},
      {u"isLoadableURL", isLoadableURL},
      {u"isWebKitURL", isWebKitURL},
      {u"isRemoteWebKitURL", isRemoteWebKitURL},
      {u"isNewsURL", isNewsURL},
      {u"isMailURL", isMailURL},
      {u"isJavaScriptURL", isJavaScriptURL},
      {u"isAppleScriptURL", isAppleScriptURL},
  };
  for (const auto& [name, predicate] : urlPredicates)
    result[name] = url && predicate(*url);
  const std::pair<const char16_t*, bool (*)(std::u16string_view)> stringPredicates[] = {
      {u"isWebKitStringURL", isWebKitStringURL},
      {u"isRemoteWebKitStringURL", isRemoteWebKitStringURL},
      {u"isDownloadableStringURL", isDownloadableStringURL},
      {u"isLoadableStringURL", isLoadableStringURL},
      {u"isHTTPStringURL", isHTTPStringURL},
      {u"isFTPStringURL", isFTPStringURL},
      {u"isNewsStringURL", isNewsStringURL},
      {u"isFeedStringURL", isFeedStringURL},
      {u"isFileStringURL", isFileStringURL},
      {u"isJavaScriptStringURL", isJavaScriptStringURL},
      {u"isAppleScriptStringURL", isAppleScriptStringURL},
      {u"isMailStringURL", isMailStringURL},
  };
  for (const auto& [name, predicate] : stringPredicates)
    result[name] = predicate(string);
  printJson(result);
  finish(url ? kSuccess : kNegative);
}

void mime(const Options& options) {
  std::u16string type = argument(options, 0);
  const std::pair<const char16_t*, bool (*)(std::u16string_view)> predicates[] = {
      {u"isMarkupMIMEType", isMarkupMIMEType},
      {u"isHTMLMIMEType", isHTMLMIMEType},
      {u"isWebArchiveMIMEType", isWebArchiveMIMEType},
      {u"isImageMIMEType", isImageMIMEType},
      {u"isTextMIMEType", isTextMIMEType},
      {u"isPlainTextMIMEType", isPlainTextMIMEType},
      {u"isStylesheetOrScriptMIMEType", isStylesheetOrScriptMIMEType},
      {u"isRTFMIMEType", isRTFMIMEType},
      {u"isPDFMIMEType", isPDFMIMEType},
      {u"isPostScriptMIMEType", isPostScriptMIMEType},
      {u"isMSWordMIMEType", isMSWordMIMEType},
      {u"isMSPowerPointMIMEType", isMSPowerPointMIMEType},
      {u"isMSExcelMIMEType", isMSExcelMIMEType},
      {u"isMSOfficeMIMEType", isMSOfficeMIMEType},
      {u"isOpenOfficeMIMEType", isOpenOfficeMIMEType},
      {u"isStarOfficeMIMEType", isStarOfficeMIMEType},
      {u"isMultimediaMIMEType", isMultimediaMIMEType},
  };
  Dictionary result;
  for (const auto& [name, predicate] : predicates)
    result[name] = predicate(type);
  printJson(result);
  finish(kSuccess);
}

void httpStatus(const Options& options) {
  const std::string& text = options.arguments.at(0);
  char* end = nullptr;
  long code = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end) finish(kUsage, "http-status: not an integer: " + text);
  printJson(Dictionary{{u"okay", isHTTPStatusCodeOkay(code)},
                       {u"temporaryError", isHTTPStatusCodeTemporaryError(code)},
                       {u"message", optionalText(messageForHTTPError(code))}});
  finish(kSuccess);
}

void replaceParam(const Options& options) {
  std::size_t count = options.nilReplacement ? 2 : 3;
  if (options.arguments.size() != count)
    finish(kUsage, options.nilReplacement ? "replace-param --nil: NAME URL"
                                          : "replace-param: NAME VALUE URL");
  std::u16string name = argument(options, 0);
  std::optional<std::u16string> value;
  if (!options.nilReplacement) value = argument(options, 1);
  std::optional<std::u16string_view> replacement;
  if (value) replacement = *value;
  if (options.object) {
    finishWithText(
        stringByReplacingQueryParamNamed(urlArgument(options, count - 1), name, replacement));
  }
  finishWithText(stringByReplacingQueryParamNamed(argument(options, count - 1), name, replacement));
}

struct Command {
  const char* name;
  const char* description;
  std::vector<const char*> arguments;  // positional names, all required
  void (*run)(const Options&);
  bool takesObject = false;
};

void addCommands(CLI::App& area) {
  const Command commands[] = {
      {"info", "components and predicates of a URL as JSON", {"URL"}, info},
      {"webkit",
       "the URL for the web view",
       {"URL"},
       [](const Options& o) { finishWithURL(WebKitURL(urlArgument(o, 0))); }},
      {"webkit-string",
       "a URL string for the web view (feed: becomes http:)",
       {"STRING"},
       [](const Options& o) { finishWithText(WebKitStringURL(argument(o, 0))); }},
      {"base-for-webkit",
       "the base URL for HTML in the web view",
       {"URL"},
       [](const Options& o) { finishWithURL(baseURLForWebKit(urlArgument(o, 0))); }},
      {"with-anchor",
       "the URL with its anchor replaced",
       {"URL", "ANCHOR"},
       [](const Options& o) { finishWithURL(URLWithAnchor(urlArgument(o, 0), argument(o, 1))); }},
      {"without-anchor",
       "the URL without its anchor",
       {"URL"},
       [](const Options& o) { finishWithURL(URLWithoutAnchor(urlArgument(o, 0))); }},
      {"is-local",
       "exit 0 when the URL is a file, has no host, or its host is on this machine or its "
       "networks, else 1",
       {"URL"},
       [](const Options& o) { finish(isLocalURL(urlArgument(o, 0)) ? kSuccess : kNegative); }},
      {"mime", "MIME-type predicates as JSON", {"TYPE"}, mime},
      {"http-status",
       "okay, temporary error and message of an HTTP status code",
       {"CODE"},
       httpStatus},
      {"param",
       "the value of a query parameter",
       {"NAME", "URL"},
       [](const Options& o) {
         finishWithText(o.object ? queryParamNamed(urlArgument(o, 1), argument(o, 0))
                                 : queryParamNamed(argument(o, 1), argument(o, 0)));
       },
       true},
      {"has-param",
       "exit 0 when the query has the parameter, else 1",
       {"NAME", "URL"},
       [](const Options& o) {
         bool has = o.object ? containsQueryParamNamed(urlArgument(o, 1), argument(o, 0))
                             : containsQueryParamNamed(argument(o, 1), argument(o, 0));
         finish(has ? kSuccess : kNegative);
       },
       true},
      {"params",
       "the query parameters as JSON",
       {"URL"},
       [](const Options& o) {
         auto parameters = o.object ? queryParams(urlArgument(o, 0)) : queryParams(argument(o, 0));
         if (!parameters) finish(kNegative);
         printJson(parametersValue(*parameters));
         finish(kSuccess);
       },
       true},
      {"count-params",
       "the number of query parameters",
       {"URL"},
       [](const Options& o) {
         std::size_t count = o.object ? numberOfQueryParams(urlArgument(o, 0))
                                      : numberOfQueryParams(argument(o, 0));
         writeOutput(std::to_string(count) + "\n");
         finish(kSuccess);
       },
       true},
      {"list-param",
       "the value of a parameter in a plain list such as a=1;b=2",
       {"NAME", "LIST"},
       [](const Options& o) { finishWithText(paramNamed(argument(o, 1), argument(o, 0))); }},
      {"append-param",
       "the URL string with a parameter appended",
       {"NAME", "VALUE", "URL"},
       [](const Options& o) {
         std::u16string url = argument(o, 2);
         appendParameter(url, argument(o, 0), argument(o, 1));
         finishWithText(url);
       }},
  };
  for (const Command& command : commands) {
    auto options = std::make_shared<Options>();
    CLI::App* sub = area.add_subcommand(command.name, command.description);
    std::string names;
    for (const char* name : command.arguments)
      names += std::string(names.empty() ? "" : " ") + name;
    sub->add_option("ARGUMENTS", options->arguments, names)
        ->expected(static_cast<int>(command.arguments.size()))
        ->required();
    if (command.takesObject)
      sub->add_flag("--object", options->object, "use the query component of the URL object");
    sub->callback([options, run = command.run] { run(*options); });
  }
  auto options = std::make_shared<Options>();
  CLI::App* replace = area.add_subcommand(
      "replace-param", "replace a query parameter's value: NAME VALUE URL, or NAME URL with --nil");
  replace->add_option("ARGUMENTS", options->arguments, "NAME VALUE URL")
      ->required()
      ->expected(2, 3);
  replace->add_flag("--object", options->object, "return the changed query of the URL object");
  replace->add_flag("--nil", options->nilReplacement, "empty the value (a nil replacement)");
  replace->callback([options] { replaceParam(*options); });
}

const RegisterArea kURL{
    {"url", "URL components, predicates, anchors and query parameters", addCommands}};

}  // namespace
}  // namespace ferncast::cli
