// URL parsing, the URL-string predicates, anchors and the query-parameter scanner over arbitrary
// text. The first byte picks the parameter name's length; the rest is UTF-8 text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "Classes/Unicode.h"
#include "url/NSString+URLUtilities.h"
#include "url/NSURL+Quill.h"
#include "url/QueryParameters.h"
#include "url/URL.h"

using namespace ferncast;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > 64 * 1024) return 0;
  std::u16string text = utf8ToUtf16({reinterpret_cast<const char*>(data) + 1, size - 1});
  std::u16string_view name = std::u16string_view(text).substr(0, data[0] % 16);

  bool (*const predicates[])(std::u16string_view) = {
      isWebKitStringURL,     isRemoteWebKitStringURL, isDownloadableStringURL,
      isLoadableStringURL,   isHTTPStringURL,         isFTPStringURL,
      isNewsStringURL,       isFeedStringURL,         isFileStringURL,
      isJavaScriptStringURL, isAppleScriptStringURL,  isMailStringURL,
      isMarkupMIMEType,      isHTMLMIMEType,          isMSOfficeMIMEType,
      isMultimediaMIMEType,  isRTFMIMEType,           isStylesheetOrScriptMIMEType};
  for (auto predicate : predicates)
    predicate(text);
  WebKitStringURL(text);
  stringByAddingPercentEscapesToURL(text, name, u":/?&;@#");

  // The scanner: every reader agrees on which pairs exist.
  std::optional<QueryParameters> parameters = queryParams(text);
  std::size_t count = numberOfQueryParams(text);
  if (parameters && parameters->size() > count) __builtin_trap();
  std::optional<std::u16string> value = queryParamNamed(text, name);
  if (value && !containsQueryParamNamed(text, name)) __builtin_trap();
  std::u16string replaced = stringByReplacingQueryParamNamed(text, name, u"R");
  if (!value && replaced != text) __builtin_trap();
  paramNamed(text, name);
  std::u16string appended = text;
  appendParameter(appended, u"q", name);

  if (std::optional<URL> url = URL::URLWithString(text)) {
    WebKitURL(*url);
    baseURLForWebKit(*url);
    URLWithAnchor(*url, name);
    URLWithoutAnchor(*url);
    isWebKitURL(*url);
    isLoadableURL(*url);
    queryParams(*url);
    stringByReplacingQueryParamNamed(*url, name, std::nullopt);
    std::optional<URL> base = URL::URLWithString(u"http://example.com/a/b?c#d");
    url->URLRelativeTo(*base);
    URL::URLWithString(name, *url);
  }
  return 0;
}
