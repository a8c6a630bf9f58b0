// Safari web archives (".webarchive"): a saved page as a main resource, its subresources (images,
// style sheets, scripts) and, for framed pages, one nested archive per frame.
//
// The file is a property list (binary as Safari writes it, or XML) whose root dictionary holds
//   "WebMainResource"      a resource dictionary, required;
//   "WebSubresources"      an array of resource dictionaries, optional;
//   "WebSubframeArchives"  an array of archive dictionaries of the same shape, optional;
// and each resource dictionary holds "WebResourceData" (data, required), "WebResourceURL" (string,
// required), and optionally "WebResourceMIMEType", "WebResourceTextEncodingName",
// "WebResourceFrameName" (strings) and "WebResourceResponse" (data; not read further).
//
// Reading follows WebKit's acceptance rules: the archive is refused (nullopt) when the root is no
// dictionary, the main resource is missing, invalid or has no MIME type, or a subresource list or
// subframe list is not an array, or the subresource list holds something other than dictionaries.
// A subresource dictionary that is not a valid resource (a missing or mistyped required key, a
// mistyped optional one) is left out, and so is a subframe archive that is not a valid archive.
//
// WebArchive and WebResource are plain values: copies are deep, any thread may use its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/PropertyList.h"

namespace ferncast {

struct WebResource {
  Data data;
  std::u16string URL;
  // Empty when the archive does not say.
  std::u16string MIMEType;
  std::u16string textEncodingName;
  std::u16string frameName;
};

class WebArchive {
 public:
  // The archive in property-list bytes, or nullopt when they hold none (see above).
  static std::optional<WebArchive> fromData(const std::uint8_t* bytes, std::size_t length);
  // The archive in a property-list value; nullopt as above.
  static std::optional<WebArchive> fromPropertyList(Value plist);
  // The archive in a file, read whole; nullopt also when the file is unreadable or empty.
  static std::optional<WebArchive> fromFile(std::u16string_view path);

  const WebResource& mainResource() const { return mainResource_; }
  const std::vector<WebResource>& subresources() const { return subresources_; }
  const std::vector<WebArchive>& subframeArchives() const { return subframeArchives_; }

 private:
  WebResource mainResource_;
  std::vector<WebResource> subresources_;
  std::vector<WebArchive> subframeArchives_;
};

}  // namespace ferncast
