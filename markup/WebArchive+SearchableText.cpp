#include "markup/WebArchive+SearchableText.h"

#include "markup/Html2Text.h"
#include "markup/WebArchive+WebKitAdditions.h"
#include "markup/WebResource+WebKitAdditions.h"

namespace ferncast {

void appendSearchableTextTo(const WebArchive& archive, std::u16string& text) {
  if (std::optional<std::u16string> source = documentSource(archive.mainResource())) {
    std::u16string part = stringByConvertingHtml2PlainTextNonUmlauted(
        *source, /*nonUmlauted=*/false, /*reformat=*/true, /*onlyBody=*/true,
        /*googleTags=*/false);
    if (!part.empty()) {
      text += u"\n\n";
      text += part;
    }
  }
  for (const WebArchive& subframe : archive.subframeArchives()) {
    appendSearchableTextTo(subframe, text);
  }
}

std::u16string searchableText(const WebArchive& archive) {
  std::u16string text;
  appendSearchableTextTo(archive, text);
  return text;
}

std::u16string searchableTextAndSource(const WebArchive& archive,
                                       std::optional<std::u16string>* source) {
  if (source) *source = documentSource(archive);
  return searchableText(archive);
}

std::optional<std::u16string> searchableTextOfFile(std::u16string_view path,
                                                   std::optional<std::u16string>* baseURL,
                                                   std::optional<std::u16string>* source) {
  if (baseURL) baseURL->reset();
  if (source) source->reset();
  std::optional<WebArchive> archive = WebArchive::fromFile(path);
  if (!archive) return std::nullopt;
  if (baseURL) *baseURL = archive->mainResource().URL;
  return searchableTextAndSource(*archive, source);
}

}  // namespace ferncast
