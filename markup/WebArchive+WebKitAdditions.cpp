#include "markup/WebArchive+WebKitAdditions.h"

#include "markup/WebResource+WebKitAdditions.h"

namespace ferncast {

std::vector<std::u16string> webArchiveFileTypes() {
  return {u"webarchive", u"WEBARCHIVE"};
}

bool isWebArchiveExtension(std::u16string_view extension) {
  constexpr std::u16string_view kExtension = u"webarchive";
  if (extension.size() != kExtension.size()) return false;
  for (std::size_t i = 0; i < extension.size(); ++i) {
    char16_t c = extension[i];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    if (c != kExtension[i]) return false;
  }
  return true;
}

bool isWebArchiveFile(std::u16string_view path) {
  while (path.size() > 1 && path.back() == u'/')
    path.remove_suffix(1);
  std::size_t slash = path.rfind(u'/');
  std::u16string_view name = slash == std::u16string_view::npos ? path : path.substr(slash + 1);
  std::size_t dot = name.rfind(u'.');
  if (dot == std::u16string_view::npos || dot == 0) return false;
  return isWebArchiveExtension(name.substr(dot + 1));
}

std::optional<std::u16string> documentSource(const WebArchive& archive) {
  return documentSource(archive.mainResource());
}

const std::u16string& baseURL(const WebArchive& archive) {
  return archive.mainResource().URL;
}

std::optional<std::u16string> documentSourceOfFile(std::u16string_view path,
                                                   std::optional<std::u16string>* baseURL) {
  if (baseURL) baseURL->reset();
  std::optional<WebArchive> archive = WebArchive::fromFile(path);
  if (!archive) return std::nullopt;
  if (baseURL) *baseURL = archive->mainResource().URL;
  return documentSource(*archive);
}

const WebResource* subresourceForURL(const WebArchive& archive, std::u16string_view URL) {
  if (archive.mainResource().URL == URL) return &archive.mainResource();
  for (const WebResource& resource : archive.subresources()) {
    if (resource.URL == URL) return &resource;
  }
  for (const WebArchive& subframe : archive.subframeArchives()) {
    if (const WebResource* found = subresourceForURL(subframe, URL)) return found;
  }
  return nullptr;
}

const WebArchive* subArchiveForURL(const WebArchive& archive, std::u16string_view URL) {
  if (archive.mainResource().URL == URL) return &archive;
  for (const WebArchive& subframe : archive.subframeArchives()) {
    if (const WebArchive* found = subArchiveForURL(subframe, URL)) return found;
  }
  return nullptr;
}

}  // namespace ferncast
