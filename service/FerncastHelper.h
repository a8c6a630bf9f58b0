// FerncastHelper: the object the helper process vends under "FerncastHelper32".
//
// It answers the ten operations of QuillImExport, in the helper's one thread, one request at a
// time. Failure is nil or NO: PDFImageRepOfFile, imageWithContentsOfFile,
// attributedStringWithContentsOfFile, writeRTFDData and RTFDWithHTML catch every exception of
// their work and answer nil (NO), logging nothing; the other five let exceptions pass to the
// connection, which hands them back to the caller.
//
// Operations whose subsystems are not in yet answer nil or NO.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Classes/PropertyList.h"
#include "service/Protocol.h"
#include "service/QuillImExport.h"
#include "spotlight/MetaDataImporter.h"
#include "url/NSURL+Internet.h"
#include "url/URL.h"
#include "webcontent/documents/HtmlReader.h"

namespace ferncast {

// The name under which the helper registers its connection.
inline constexpr std::u16string_view kFerncastHelperName = u"FerncastHelper32";

class FerncastHelper;

// The options RTFDWithHTML hands the HTML reader, under the platform reader's names.
struct HTMLRenderingOptions {
  bool useWebKit = true;  // "UseWebKit"
  float timeout = 15.0f;  // "Timeout": seconds over the page and all its loads
  // "WebResourceLoadDelegate": set only when remote requests are refused.
  FerncastHelper* resourceLoadDelegate = nullptr;
  std::optional<URL> baseURL;                      // "BaseURL": baseURLForWebKit of the given one
  std::optional<std::u16string> textEncodingName;  // the character set, when given and not empty
};

class FerncastHelper : public QuillImExport, public RemoteObject {
 public:
  FerncastHelper();
  FerncastHelper(const FerncastHelper&) = delete;
  FerncastHelper& operator=(const FerncastHelper&) = delete;

  // RemoteObject: the operations of QuillImExport.
  bool respondsToSelector(std::u16string_view selector) const override;
  std::optional<Value> invoke(std::u16string_view selector, Array arguments) override;

  // QuillImExport, in protocol order.
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
  // The importer's attributes without the keys whose value is Null; nullopt stays nullopt.
  std::optional<Dictionary> metaDataForFile(std::u16string_view path) override;
  bool supportsFile(std::u16string_view path) override;

  // Not in the protocol, so not reachable through the connection:
  // the PDF worker behind attributed:stringWithPDF: and the image requests: page count,
  // attributes, text and (when `size`) the first page's size of PDF data; `file`, when given,
  // lets the importer supply the text.
  std::optional<Dictionary> _attributed(bool attributed, const std::optional<Data>& pdf,
                                        std::optional<std::u16string_view> file, bool size);
  // The HTML reader's resource-load hook (webView:resource:willSendRequest:...): the request to
  // let the load proceed when isLocalURL says so (hosts looked up with `resolver`), nullopt to
  // cancel it. Redirects come here with their new URL.
  std::optional<URL> webView(const URL& request, HostResolver& resolver);
  // The work of RTFDWithHTML: the page laid out with `options`, its images loaded through the
  // hook when one is set, within the time-out; nullopt when the page gives nothing. May throw.
  std::optional<HtmlReading> _renderHTML(const Data& html, const HTMLRenderingOptions& options);
  // The reader options of RTFDWithHTML for these arguments.
  HTMLRenderingOptions _HTMLRenderingOptions(const std::optional<std::u16string>& baseURL,
                                             bool allowRemoteRequest,
                                             const std::optional<std::u16string>& charset);

 private:
  std::unique_ptr<MetaDataImporter> _mdimporter;
};

}  // namespace ferncast
