#include "service/FerncastHelper.h"

#include <chrono>

#include "markup/WebArchive+SearchableText.h"
#include "url/NSURL+Quill.h"
#include "webcontent/documents/DocumentReader.h"
#include "webcontent/documents/HtmlReader.h"
#include "webcontent/documents/RTFD.h"

namespace ferncast {
namespace {

// The exception guard of the five guarded operations, whose work goes in `body`: any exception
// gives `failure`, silently.
template <typename Result, typename Body>
Result guarded(Result failure, Body body) {
  try {
    return body();
  } catch (...) {
    return failure;
  }
}

}  // namespace

FerncastHelper::FerncastHelper() : _mdimporter(std::make_unique<MetaDataImporter>()) {}

bool FerncastHelper::respondsToSelector(std::u16string_view selector) const {
  return quillImExportRespondsToSelector(selector);
}

std::optional<Value> FerncastHelper::invoke(std::u16string_view selector, Array arguments) {
  return invokeQuillImExport(*this, selector, std::move(arguments));
}

std::optional<Data> FerncastHelper::PDFImageRepOfFile(std::u16string_view) {
  return guarded(std::optional<Data>(), [] { return std::optional<Data>(); });
}

std::optional<Dictionary> FerncastHelper::imageWithContentsOfFile(std::u16string_view, bool, bool) {
  return guarded(std::optional<Dictionary>(), [] { return std::optional<Dictionary>(); });
}

std::optional<Dictionary> FerncastHelper::attributed(bool attributed,
                                                     const std::optional<Data>& pdf) {
  return _attributed(attributed, pdf, std::nullopt, false);
}

std::optional<Dictionary> FerncastHelper::posterImageForMovieWithFile(std::u16string_view) {
  return std::nullopt;
}

std::optional<Dictionary> FerncastHelper::attributedStringWithContentsOfFile(
    std::u16string_view path) {
  return guarded(std::optional<Dictionary>(), [path]() -> std::optional<Dictionary> {
    Dictionary documentAttributes;
    std::optional<AttributedString> string = initWithPath(path, &documentAttributes);
    if (!string) return std::nullopt;
    return dictionaryWithObjectsAndKeys(
        {{u"Rtfd", Value(RTFDFromRange(*string, documentAttributes))},
         {u"DocumentAttributes", Value(std::move(documentAttributes))}});
  });
}

std::optional<Dictionary> FerncastHelper::searchableTextOfWebArchive(std::u16string_view path) {
  std::optional<std::u16string> baseURL, source;
  std::optional<std::u16string> text = searchableTextOfFile(path, &baseURL, &source);
  Dictionary reply = dictionaryWithObjectsAndKeys({{u"String", std::move(text)}});
  if (source) reply[u"Source"] = std::move(*source);
  if (baseURL) reply[u"URL"] = std::move(*baseURL);
  return reply;
}

bool FerncastHelper::writeRTFDData(const std::optional<Data>& rtfd, std::u16string_view path) {
  return guarded(false, [&rtfd, path] { return rtfd && writeRTFD(*rtfd, path); });
}

HTMLRenderingOptions FerncastHelper::_HTMLRenderingOptions(
    const std::optional<std::u16string>& baseURL, bool allowRemoteRequest,
    const std::optional<std::u16string>& charset) {
  HTMLRenderingOptions options;
  if (!allowRemoteRequest) options.resourceLoadDelegate = this;
  if (baseURL) {
    if (std::optional<URL> url = URL::URLWithString(*baseURL))
      options.baseURL = baseURLForWebKit(*url);
  }
  if (charset && !charset->empty()) options.textEncodingName = *charset;
  return options;
}

std::optional<Data> FerncastHelper::RTFDWithHTML(const std::optional<Data>& html,
                                                 const std::optional<std::u16string>& baseURL,
                                                 bool allowRemoteRequest,
                                                 const std::optional<std::u16string>& charset) {
  HTMLRenderingOptions options = _HTMLRenderingOptions(baseURL, allowRemoteRequest, charset);
  return guarded(std::optional<Data>(), [&]() -> std::optional<Data> {
    if (!html) return std::nullopt;
    std::optional<HtmlReading> reading = _renderHTML(*html, options);
    if (!reading) return std::nullopt;
    return RTFDFromRange(reading->string, {});
  });
}

std::optional<HtmlReading> FerncastHelper::_renderHTML(const Data& html,
                                                       const HTMLRenderingOptions& options) {
  HtmlReaderOptions reader;
  reader.baseURL = options.baseURL;
  reader.textEncodingName = options.textEncodingName.value_or(u"");
  reader.deadline = std::chrono::steady_clock::now() +
                    std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                        std::chrono::duration<float>(options.timeout));
  reader.resources.emplace();
  if (FerncastHelper* delegate = options.resourceLoadDelegate) {
    reader.resources->hook = [delegate](const URL& request, HostResolver& resolver) {
      return delegate->webView(request, resolver);
    };
  }
  return readHTML(html, reader);
}

std::optional<Dictionary> FerncastHelper::metaDataForFile(std::u16string_view path) {
  auto attributes = _mdimporter->metaDataOfFileAtPath(path);
  if (attributes) {
    std::erase_if(*attributes, [](const auto& entry) { return entry.second.template is<Null>(); });
  }
  return attributes;
}

bool FerncastHelper::supportsFile(std::u16string_view path) {
  return _mdimporter->supportsFileAtPath(path);
}

std::optional<URL> FerncastHelper::webView(const URL& request, HostResolver& resolver) {
  if (!isLocalURL(request, resolver, kHostLookupTimeout)) return std::nullopt;
  return request;
}

}  // namespace ferncast
