#include "service/FerncastHelper.h"

#include "markup/WebArchive+SearchableText.h"
#include "webcontent/documents/DocumentReader.h"
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

std::optional<Data> FerncastHelper::RTFDWithHTML(const std::optional<Data>&,
                                                 const std::optional<std::u16string>&, bool,
                                                 const std::optional<std::u16string>&) {
  return guarded(std::optional<Data>(), [] { return std::optional<Data>(); });
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

std::optional<std::u16string> FerncastHelper::webView(std::u16string_view) {
  return std::nullopt;
}

}  // namespace ferncast
