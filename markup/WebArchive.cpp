#include "markup/WebArchive.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

// Moves the string at `key` into `out`. False when the entry is present but not a string.
bool takeOptionalString(Dictionary& dictionary, std::u16string_view key, std::u16string& out) {
  auto entry = dictionary.find(std::u16string(key));
  if (entry == dictionary.end()) return true;
  auto* string = entry->second.as<std::u16string>();
  if (!string) return false;
  out = std::move(*string);
  return true;
}

// A resource from its dictionary, or nullopt when a required key is missing or any key has the
// wrong type.
std::optional<WebResource> resourceFromDictionary(Dictionary& dictionary) {
  WebResource resource;
  auto data = dictionary.find(u"WebResourceData");
  auto url = dictionary.find(u"WebResourceURL");
  if (data == dictionary.end() || url == dictionary.end()) return std::nullopt;
  auto* bytes = data->second.as<Data>();
  auto* urlString = url->second.as<std::u16string>();
  if (!bytes || !urlString) return std::nullopt;
  auto response = dictionary.find(u"WebResourceResponse");
  if (response != dictionary.end() && !response->second.is<Data>()) return std::nullopt;
  if (!takeOptionalString(dictionary, u"WebResourceMIMEType", resource.MIMEType) ||
      !takeOptionalString(dictionary, u"WebResourceTextEncodingName", resource.textEncodingName) ||
      !takeOptionalString(dictionary, u"WebResourceFrameName", resource.frameName)) {
    return std::nullopt;
  }
  resource.data = std::move(*bytes);
  resource.URL = std::move(*urlString);
  return resource;
}

// The whole file, or nullopt when it cannot be read.
std::optional<Data> readFile(std::u16string_view path) {
  int fd = open(utf16ToUtf8(path).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  Data bytes;
  struct stat status;
  if (fstat(fd, &status) == 0 && status.st_size > 0) {
    bytes.reserve(static_cast<std::size_t>(status.st_size));
  }
  std::uint8_t buffer[65536];
  for (;;) {
    ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    bytes.insert(bytes.end(), buffer, buffer + n);
  }
  close(fd);
  return bytes;
}

}  // namespace

std::optional<WebArchive> WebArchive::fromFile(std::u16string_view path) {
  if (path.empty()) return std::nullopt;
  std::optional<Data> bytes = readFile(path);
  if (!bytes) return std::nullopt;
  return fromData(bytes->data(), bytes->size());
}

std::optional<WebArchive> WebArchive::fromData(const std::uint8_t* bytes, std::size_t length) {
  if (!bytes || length == 0) return std::nullopt;
  std::optional<Value> plist = propertyListFromBytes(bytes, length);
  if (!plist) return std::nullopt;
  return fromPropertyList(std::move(*plist));
}

std::optional<WebArchive> WebArchive::fromPropertyList(Value plist) {
  auto* root = plist.as<Dictionary>();
  if (!root) return std::nullopt;

  auto main = root->find(u"WebMainResource");
  if (main == root->end()) return std::nullopt;
  auto* mainDictionary = main->second.as<Dictionary>();
  if (!mainDictionary || mainDictionary->find(u"WebResourceMIMEType") == mainDictionary->end()) {
    return std::nullopt;
  }
  std::optional<WebResource> mainResource = resourceFromDictionary(*mainDictionary);
  if (!mainResource) return std::nullopt;

  WebArchive archive;
  archive.mainResource_ = std::move(*mainResource);

  if (auto list = root->find(u"WebSubresources"); list != root->end()) {
    auto* items = list->second.as<Array>();
    if (!items) return std::nullopt;
    archive.subresources_.reserve(items->size());
    for (Value& item : *items) {
      auto* dictionary = item.as<Dictionary>();
      if (!dictionary) return std::nullopt;
      if (auto resource = resourceFromDictionary(*dictionary)) {
        archive.subresources_.push_back(std::move(*resource));
      }
    }
  }

  if (auto list = root->find(u"WebSubframeArchives"); list != root->end()) {
    auto* items = list->second.as<Array>();
    if (!items) return std::nullopt;
    for (Value& item : *items) {
      if (auto subframe = fromPropertyList(std::move(item))) {
        archive.subframeArchives_.push_back(std::move(*subframe));
      }
    }
  }
  return archive;
}

}  // namespace ferncast
