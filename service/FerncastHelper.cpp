#include "service/FerncastHelper.h"

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

std::optional<Dictionary> FerncastHelper::attributedStringWithContentsOfFile(std::u16string_view) {
  return guarded(std::optional<Dictionary>(), [] { return std::optional<Dictionary>(); });
}

std::optional<Dictionary> FerncastHelper::searchableTextOfWebArchive(std::u16string_view) {
  return std::nullopt;
}

bool FerncastHelper::writeRTFDData(const std::optional<Data>&, std::u16string_view) {
  return guarded(false, [] { return false; });
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

std::optional<Dictionary> FerncastHelper::_attributed(bool, const std::optional<Data>&,
                                                      std::optional<std::u16string_view>, bool) {
  return std::nullopt;
}

std::optional<std::u16string> FerncastHelper::webView(std::u16string_view) {
  return std::nullopt;
}

}  // namespace ferncast
