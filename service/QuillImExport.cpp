#include "service/QuillImExport.h"

#include <iterator>
#include <utility>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

using K = ValueKind;
constexpr K kPath[] = {K::kString};
constexpr K kImage[] = {K::kString, K::kBoolean, K::kBoolean};
constexpr K kPDF[] = {K::kBoolean, K::kOptionalData};
constexpr K kWrite[] = {K::kOptionalData, K::kString};
constexpr K kHTML[] = {K::kOptionalData, K::kOptionalString, K::kBoolean, K::kOptionalString};

// Protocol order; kInvokers below follows it.
enum Operation {
  kPDFImageRepOfFile,
  kImageWithContentsOfFile,
  kAttributed,
  kPosterImageForMovieWithFile,
  kAttributedStringWithContentsOfFile,
  kSearchableTextOfWebArchive,
  kWriteRTFDData,
  kRTFDWithHTML,
  kMetaDataForFile,
  kSupportsFile,
};

constexpr OperationSignature kOperations[] = {
    {u"PDFImageRepOfFile:", kPath, K::kOptionalData},
    {u"imageWithContentsOfFile:stringFromPDF:canUseSpotlight:", kImage, K::kOptionalDictionary},
    {u"attributed:stringWithPDF:", kPDF, K::kOptionalDictionary},
    {u"posterImageForMovieWithFile:", kPath, K::kOptionalDictionary},
    {u"attributedStringWithContentsOfFile:", kPath, K::kOptionalDictionary},
    {u"searchableTextOfWebArchive:", kPath, K::kOptionalDictionary},
    {u"writeRTFDData:toFile:", kWrite, K::kBoolean},
    {u"RTFDWithHTML:baseURL:allowRemoteRequest:charset:", kHTML, K::kOptionalData},
    {u"metaDataForFile:", kPath, K::kOptionalDictionary},
    {u"supportsFile:", kPath, K::kBoolean},
};

// Argument accessors for arguments already checked against the signature.
std::u16string_view string(const Array& a, std::size_t i) {
  return *a[i].as<std::u16string>();
}
bool boolean(const Array& a, std::size_t i) {
  return *a[i].as<bool>();
}
std::optional<Data> data(Array& a, std::size_t i) {
  if (auto* d = a[i].as<Data>()) return std::move(*d);
  return std::nullopt;
}
std::optional<std::u16string> optionalString(Array& a, std::size_t i) {
  if (auto* s = a[i].as<std::u16string>()) return std::move(*s);
  return std::nullopt;
}

template <typename T>
std::optional<Value> result(std::optional<T> r) {
  if (!r) return std::nullopt;
  return Value(std::move(*r));
}

using Invoker = std::optional<Value> (*)(QuillImExport&, Array&);
constexpr Invoker kInvokers[] = {
    [](QuillImExport& o, Array& a) { return result(o.PDFImageRepOfFile(string(a, 0))); },
    [](QuillImExport& o, Array& a) {
      return result(o.imageWithContentsOfFile(string(a, 0), boolean(a, 1), boolean(a, 2)));
    },
    [](QuillImExport& o, Array& a) { return result(o.attributed(boolean(a, 0), data(a, 1))); },
    [](QuillImExport& o, Array& a) { return result(o.posterImageForMovieWithFile(string(a, 0))); },
    [](QuillImExport& o, Array& a) {
      return result(o.attributedStringWithContentsOfFile(string(a, 0)));
    },
    [](QuillImExport& o, Array& a) { return result(o.searchableTextOfWebArchive(string(a, 0))); },
    [](QuillImExport& o, Array& a) {
      return std::optional<Value>(o.writeRTFDData(data(a, 0), string(a, 1)));
    },
    [](QuillImExport& o, Array& a) {
      return result(
          o.RTFDWithHTML(data(a, 0), optionalString(a, 1), boolean(a, 2), optionalString(a, 3)));
    },
    [](QuillImExport& o, Array& a) { return result(o.metaDataForFile(string(a, 0))); },
    [](QuillImExport& o, Array& a) { return std::optional<Value>(o.supportsFile(string(a, 0))); },
};
static_assert(std::size(kInvokers) == std::size(kOperations));

Value optional(const std::optional<Data>& d) {
  return d ? Value(*d) : Value(Null{});
}
Value optional(const std::optional<std::u16string>& s) {
  return s ? Value(*s) : Value(Null{});
}

std::optional<Data> dataOf(std::optional<Value> v) {
  if (v) {
    if (auto* d = v->as<Data>()) return std::move(*d);
  }
  return std::nullopt;
}
std::optional<Dictionary> dictionaryOf(std::optional<Value> v) {
  if (v) {
    if (auto* d = v->as<Dictionary>()) return std::move(*d);
  }
  return std::nullopt;
}
bool booleanOf(const std::optional<Value>& v) {
  return v && v->is<bool>() && *v->as<bool>();
}

}  // namespace

const Protocol kQuillImExport{u"QuillImExport", kOperations};

bool quillImExportRespondsToSelector(std::u16string_view selector) {
  return kQuillImExport.operation(selector) != nullptr;
}

std::optional<Value> invokeQuillImExport(QuillImExport& object, std::u16string_view selector,
                                         Array arguments) {
  const OperationSignature* signature = kQuillImExport.operation(selector);
  if (!signature) {
    throw RemoteException("NSInvalidArgumentException",
                          "QuillImExport has no operation " + utf16ToUtf8(selector));
  }
  if (!argumentsConform(arguments, *signature)) {
    throw RemoteException("NSInvalidArgumentException",
                          "The arguments do not match " + utf16ToUtf8(selector));
  }
  return kInvokers[signature - kOperations](object, arguments);
}

// ---- QuillImExportProxy ----

QuillImExportProxy::QuillImExportProxy(std::shared_ptr<Proxy> proxy) : proxy_(std::move(proxy)) {
  proxy_->setProtocolForProxy(&kQuillImExport);
}

std::optional<Data> QuillImExportProxy::PDFImageRepOfFile(std::u16string_view path) {
  return dataOf(proxy_->perform(kOperations[kPDFImageRepOfFile].selector, {Value(path)}));
}

std::optional<Dictionary> QuillImExportProxy::imageWithContentsOfFile(std::u16string_view path,
                                                                      bool stringFromPDF,
                                                                      bool canUseSpotlight) {
  return dictionaryOf(proxy_->perform(kOperations[kImageWithContentsOfFile].selector,
                                      {Value(path), Value(stringFromPDF), Value(canUseSpotlight)}));
}

std::optional<Dictionary> QuillImExportProxy::attributed(bool attributed,
                                                         const std::optional<Data>& pdf) {
  return dictionaryOf(
      proxy_->perform(kOperations[kAttributed].selector, {Value(attributed), optional(pdf)}));
}

std::optional<Dictionary> QuillImExportProxy::posterImageForMovieWithFile(
    std::u16string_view path) {
  return dictionaryOf(
      proxy_->perform(kOperations[kPosterImageForMovieWithFile].selector, {Value(path)}));
}

std::optional<Dictionary> QuillImExportProxy::attributedStringWithContentsOfFile(
    std::u16string_view path) {
  return dictionaryOf(
      proxy_->perform(kOperations[kAttributedStringWithContentsOfFile].selector, {Value(path)}));
}

std::optional<Dictionary> QuillImExportProxy::searchableTextOfWebArchive(std::u16string_view path) {
  return dictionaryOf(
      proxy_->perform(kOperations[kSearchableTextOfWebArchive].selector, {Value(path)}));
}

bool QuillImExportProxy::writeRTFDData(const std::optional<Data>& rtfd, std::u16string_view path) {
  return booleanOf(
      proxy_->perform(kOperations[kWriteRTFDData].selector, {optional(rtfd), Value(path)}));
}

std::optional<Data> QuillImExportProxy::RTFDWithHTML(const std::optional<Data>& html,
                                                     const std::optional<std::u16string>& baseURL,
                                                     bool allowRemoteRequest,
                                                     const std::optional<std::u16string>& charset) {
  return dataOf(proxy_->perform(
      kOperations[kRTFDWithHTML].selector,
      {optional(html), optional(baseURL), Value(allowRemoteRequest), optional(charset)}));
}

std::optional<Dictionary> QuillImExportProxy::metaDataForFile(std::u16string_view path) {
  return dictionaryOf(proxy_->perform(kOperations[kMetaDataForFile].selector, {Value(path)}));
}

bool QuillImExportProxy::supportsFile(std::u16string_view path) {
  return booleanOf(proxy_->perform(kOperations[kSupportsFile].selector, {Value(path)}));
}

}  // namespace ferncast
