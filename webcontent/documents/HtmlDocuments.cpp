#include "webcontent/documents/HtmlDocuments.h"

#include <chrono>
#include <string>
#include <unordered_map>

#include "url/AsciiCase.h"
#include "webcontent/documents/HtmlReader.h"

namespace ferncast {
namespace {

constexpr std::chrono::seconds kReadingTimeout{15};

std::string_view textOf(const DocumentSource& source) {
  if (!source.data) return {};
  return {reinterpret_cast<const char*>(source.data->data()), source.data->size()};
}

bool startsWithIgnoringCase(std::string_view s, std::string_view lower) {
  if (s.size() < lower.size()) return false;
  for (std::size_t i = 0; i < lower.size(); ++i) {
    char c = s[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c | 0x20);
    if (c != lower[i]) return false;
  }
  return true;
}

bool containsIgnoringCase(std::string_view s, std::string_view lower) {
  for (std::size_t i = 0; i + lower.size() <= s.size(); ++i)
    if (startsWithIgnoringCase(s.substr(i), lower)) return true;
  return false;
}

}  // namespace

bool matchesHTMLContent(const DocumentSource& source) {
  std::string_view text = textOf(source);
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\n' ||
                           text.front() == '\r' || text.front() == '\f')) {
    text.remove_prefix(1);
  }
  for (std::string_view start : {"<!doctype html", "<html", "<head", "<body", "<!--"}) {
    if (startsWithIgnoringCase(text, start)) return true;
  }
  std::string_view head = text.substr(0, 1024);
  return containsIgnoringCase(head, "<html") || containsIgnoringCase(head, "<body");
}

std::optional<Document> readHTMLDocument(const DocumentSource& source) {
  if (!source.data) return std::nullopt;
  HtmlReaderOptions options;
  options.baseURL = URL::fileURLWithPath(source.path);
  options.deadline = std::chrono::steady_clock::now() + kReadingTimeout;
  options.resources.emplace();
  options.resources->hook = [](const URL&, HostResolver&) -> std::optional<URL> {
    return std::nullopt;  // no network for files
  };
  std::optional<HtmlReading> reading = readHTML(*source.data, options);
  if (!reading) return std::nullopt;
  return Document{std::move(reading->string), std::move(reading->documentAttributes)};
}

std::optional<Document> readWebArchiveHTML(const WebArchive& archive,
                                           std::unordered_set<std::u16string>* shown) {
  const WebResource& main = archive.mainResource();
  if (!ascii::startsWithIgnoringCase(main.MIMEType, u"text/html") &&
      !ascii::startsWithIgnoringCase(main.MIMEType, u"application/xhtml")) {
    return std::nullopt;
  }
  std::unordered_map<std::u16string, ArchivedResource> resources;
  std::unordered_map<std::u16string, const std::u16string*> written;  // key -> the archive's URL
  for (const WebResource& resource : archive.subresources()) {
    std::optional<URL> url = URL::URLWithString(resource.URL);
    std::u16string key = url ? url->absoluteString() : resource.URL;
    written.emplace(key, &resource.URL);
    resources.emplace(std::move(key), ArchivedResource{resource.data, resource.MIMEType});
  }
  HtmlReaderOptions options;
  options.baseURL = URL::URLWithString(main.URL);
  options.textEncodingName = main.textEncodingName;
  options.deadline = std::chrono::steady_clock::now() + kReadingTimeout;
  options.resources.emplace();
  options.resources->archive = &resources;
  std::optional<HtmlReading> reading = readHTML(main.data, options);
  if (!reading) return std::nullopt;
  for (const LoadedResource& load : reading->loads) {
    auto found = written.find(load.url.absoluteString());
    if (shown && load.outcome == LoadOutcome::kLoaded && found != written.end())
      shown->insert(*found->second);
  }
  reading->documentAttributes[std::u16string(kDocumentTypeDocumentAttribute)] =
      std::u16string(kWebArchiveTextDocumentType);
  return Document{std::move(reading->string), std::move(reading->documentAttributes)};
}

}  // namespace ferncast
