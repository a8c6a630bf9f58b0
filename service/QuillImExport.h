// QuillImExport: the ten operations of the helper's vended object, in protocol order.
//
// One declaration serves both ends: `FerncastHelper` implements the interface in the helper,
// `QuillImExportProxy` implements it in a client over a `Proxy`, and `kQuillImExport` (the
// selectors and their argument and result kinds) is what a client sets on its proxy and what the
// helper checks requests against. Arguments travel as copies, results come back as copies.
//
// Results: nullopt is nil. Paths are file-system paths as UTF-16 text.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Classes/PropertyList.h"
#include "service/Connection.h"
#include "service/Protocol.h"

namespace ferncast {

class QuillImExport {
 public:
  virtual ~QuillImExport() = default;

  // 1 "PDFImageRepOfFile:": PDF data of an image or PostScript file.
  virtual std::optional<Data> PDFImageRepOfFile(std::u16string_view path) = 0;
  // 2 "imageWithContentsOfFile:stringFromPDF:canUseSpotlight:": thumbnail and image facts.
  virtual std::optional<Dictionary> imageWithContentsOfFile(std::u16string_view path,
                                                            bool stringFromPDF,
                                                            bool canUseSpotlight) = 0;
  // 3 "attributed:stringWithPDF:": text and facts of PDF data.
  virtual std::optional<Dictionary> attributed(bool attributed, const std::optional<Data>& pdf) = 0;
  // 4 "posterImageForMovieWithFile:": poster frame, size and duration of a movie.
  virtual std::optional<Dictionary> posterImageForMovieWithFile(std::u16string_view path) = 0;
  // 5 "attributedStringWithContentsOfFile:": RTFD and document attributes of a document.
  virtual std::optional<Dictionary> attributedStringWithContentsOfFile(
      std::u16string_view path) = 0;
  // 6 "searchableTextOfWebArchive:": text, source and URL of a web archive.
  virtual std::optional<Dictionary> searchableTextOfWebArchive(std::u16string_view path) = 0;
  // 7 "writeRTFDData:toFile:": writes RTFD data as a file package.
  virtual bool writeRTFDData(const std::optional<Data>& rtfd, std::u16string_view path) = 0;
  // 8 "RTFDWithHTML:baseURL:allowRemoteRequest:charset:": HTML rendered to RTFD data. The base
  // URL travels as its absolute string.
  virtual std::optional<Data> RTFDWithHTML(const std::optional<Data>& html,
                                           const std::optional<std::u16string>& baseURL,
                                           bool allowRemoteRequest,
                                           const std::optional<std::u16string>& charset) = 0;
  // 9 "metaDataForFile:": importer attributes of a file.
  virtual std::optional<Dictionary> metaDataForFile(std::u16string_view path) = 0;
  // 10 "supportsFile:": whether an importer claims the file.
  virtual bool supportsFile(std::u16string_view path) = 0;
};

// The selectors and kinds of the ten operations, in protocol order.
extern const Protocol kQuillImExport;

// Whether `selector` is one of the ten operations.
bool quillImExportRespondsToSelector(std::u16string_view selector);

// Calls the operation named by `selector` on `object` with the request's arguments and returns
// its result as a value. Throws RemoteException ("NSInvalidArgumentException") for an unknown
// selector or arguments of the wrong number or kinds; exceptions of the operation pass on.
std::optional<Value> invokeQuillImExport(QuillImExport& object, std::u16string_view selector,
                                         Array arguments);

// The client's typed proxy: each operation is one round trip over `proxy`, on which the
// constructor sets kQuillImExport. Calls throw what Proxy::perform throws (ConnectionError,
// RemoteException).
class QuillImExportProxy final : public QuillImExport {
 public:
  explicit QuillImExportProxy(std::shared_ptr<Proxy> proxy);

  std::optional<Data> PDFImageRepOfFile(std::u16string_view path) override;
  std::optional<Dictionary> imageWithContentsOfFile(std::u16string_view path, bool stringFromPDF,
                                                    bool canUseSpotlight) override;
  std::optional<Dictionary> attributed(bool attributed, const std::optional<Data>& pdf) override;
  std::optional<Dictionary> posterImageForMovieWithFile(std::u16string_view path) override;
  std::optional<Dictionary> attributedStringWithContentsOfFile(std::u16string_view path) override;
  std::optional<Dictionary> searchableTextOfWebArchive(std::u16string_view path) override;
  bool writeRTFDData(const std::optional<Data>& rtfd, std::u16string_view path) override;
  std::optional<Data> RTFDWithHTML(const std::optional<Data>& html,
                                   const std::optional<std::u16string>& baseURL,
                                   bool allowRemoteRequest,
                                   const std::optional<std::u16string>& charset) override;
  std::optional<Dictionary> metaDataForFile(std::u16string_view path) override;
  bool supportsFile(std::u16string_view path) override;

  Proxy& proxy() const { return *proxy_; }

 private:
  std::shared_ptr<Proxy> proxy_;
};

}  // namespace ferncast
