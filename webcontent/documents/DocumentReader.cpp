#include "webcontent/documents/DocumentReader.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <unordered_set>

#include "Classes/NSData+Quill.h"
#include "Classes/NSString+Encoding.h"
#include "Classes/Unicode.h"
#include "markup/MarkupDecoding.h"
#include "markup/WebArchive+SearchableText.h"
#include "markup/WebArchive+WebKitAdditions.h"
#include "markup/WebArchive.h"
#include "webcontent/HtmlExtensions.h"
#include "webcontent/documents/FileWrapperFiles.h"
#include "webcontent/documents/HtmlDocuments.h"
#include "webcontent/documents/OfficeDocuments.h"
#include "webcontent/documents/RTF.h"
#include "webcontent/documents/RTFD.h"
#include "webcontent/documents/WordDocuments.h"

namespace ferncast {
namespace {

std::span<const std::uint8_t> bytesOf(const DocumentSource& source) {
  return source.data ? std::span<const std::uint8_t>(*source.data)
                     : std::span<const std::uint8_t>();
}

Document documentOf(AttributedString string, Dictionary attributes) {
  return {std::move(string), std::move(attributes)};
}

// ---- RTFD ----

bool isRTFDPackage(std::u16string_view path) {
  struct stat status;
  const std::string text = utf16ToUtf8(path) + "/TXT.rtf";
  return stat(text.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool matchesRTFD(const DocumentSource& source) {
  return source.data ? isRTFDData(*source.data) : isRTFDPackage(source.path);
}

std::optional<Document> readRTFD(const DocumentSource& source) {
  Dictionary attributes;
  std::optional<AttributedString> string;
  if (source.data) {
    string = initWithRTFD(*source.data, &attributes);
  } else if (std::optional<FileWrapper> package = fileWrapperWithPath(source.path)) {
    string = initWithRTFDFileWrapper(*package, &attributes);
  }
  if (!string) return std::nullopt;
  return documentOf(std::move(*string), std::move(attributes));
}

// ---- RTF ----

bool matchesRTF(const DocumentSource& source) {
  return isRTF(bytesOf(source));
}

std::optional<Document> readRTF(const DocumentSource& source) {
  Dictionary attributes;
  std::optional<AttributedString> string = initWithRTF(bytesOf(source), &attributes);
  if (!string) return std::nullopt;
  return documentOf(std::move(*string), std::move(attributes));
}

// ---- Web archives ----

bool matchesWebArchive(const DocumentSource& source) {
  const std::span<const std::uint8_t> bytes = bytesOf(source);
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return (text.starts_with("bplist00") || text.find("<plist") < 512) &&
         text.find("WebMainResource") != std::string_view::npos;
}

// The last component of a URL's path, as an attachment's name.
std::u16string fileNameOfURL(std::u16string_view url) {
  url = url.substr(0, std::min(url.find(u'?'), url.find(u'#')));
  const std::size_t slash = url.find_last_of(u'/');
  return std::u16string(slash == std::u16string_view::npos ? url : url.substr(slash + 1));
}

// The main resource's text through the searchable-text reader, then each image of the archive
// as an attachment on a line of its own.
std::optional<Document> readWebArchive(const DocumentSource& source) {
  const std::span<const std::uint8_t> bytes = bytesOf(source);
  std::optional<WebArchive> archive = WebArchive::fromData(bytes.data(), bytes.size());
  if (!archive) return std::nullopt;
  std::unordered_set<std::u16string> shown;
  std::optional<Document> page = readWebArchiveHTML(*archive, &shown);
  if (!page) {
    std::optional<std::u16string> markup;
    std::u16string text = searchableTextAndSource(*archive, &markup);
    text.erase(0, std::min(text.find_first_not_of(u'\n'), text.size()));
    Dictionary attributes{
        {std::u16string(kDocumentTypeDocumentAttribute), Value(kWebArchiveTextDocumentType)}};
    if (markup) {
      std::u16string title = normalizedHtmlTitle(*markup);
      if (!title.empty()) attributes[std::u16string(kTitleDocumentAttribute)] = std::move(title);
    }
    page = documentOf(AttributedString(text), std::move(attributes));
  }
  // The archive's images that the page does not show follow, each on a line of its own.
  AttributedString& string = page->string;
  for (const WebResource& resource : archive->subresources()) {
    if (!resource.MIMEType.starts_with(u"image/") || resource.data.empty() ||
        shown.contains(resource.URL)) {
      continue;
    }
    if (string.length() == 0 || string.string().back() != u'\n') string.append(u"\n", {});
    string.appendAttachment({std::make_shared<const FileWrapper>(FileWrapper::regularFile(
                                resource.data, fileNameOfURL(resource.URL)))},
                            {});
  }
  return page;
}

// ---- Plain text ----

// Text has no NUL and few other control bytes in its first 4 KiB, or starts with a byte-order mark.
bool matchesPlainText(const DocumentSource& source) {
  const std::span<const std::uint8_t> bytes = bytesOf(source);
  if (!source.data) return false;
  if (bytes.size() >= 2 &&
      ((bytes[0] == 0xFF && bytes[1] == 0xFE) || (bytes[0] == 0xFE && bytes[1] == 0xFF))) {
    return true;
  }
  const std::size_t sample = std::min<std::size_t>(bytes.size(), 4096);
  std::size_t control = 0;
  for (std::size_t i = 0; i < sample; ++i) {
    const std::uint8_t c = bytes[i];
    if (c == 0) return false;
    if ((c < 0x20 && c != '\t' && c != '\n' && c != '\r' && c != '\f' && c != 0x1B) || c == 0x7F) {
      ++control;
    }
  }
  return control * 100 <= sample;
}

// UTF-16 code units of bytes in either order; an odd last byte is dropped.
std::u16string utf16Units(std::span<const std::uint8_t> bytes, bool bigEndian) {
  std::u16string text;
  text.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    text.push_back(bigEndian ? static_cast<char16_t>(bytes[i] << 8 | bytes[i + 1])
                             : static_cast<char16_t>(bytes[i + 1] << 8 | bytes[i]));
  }
  return text;
}

// Byte-order marks first; then strict UTF-8; then the markup decoder with Windows-1252 as the
// default, which also honours a charset the text declares.
std::optional<Document> readPlainText(const DocumentSource& source) {
  const std::span<const std::uint8_t> bytes = bytesOf(source);
  if (!source.data) return std::nullopt;
  std::optional<std::u16string> text;
  NSStringEncoding encoding = NSUTF8StringEncoding;
  auto startsWith = [&bytes](std::initializer_list<std::uint8_t> bom) {
    return bytes.size() >= bom.size() && std::equal(bom.begin(), bom.end(), bytes.begin());
  };
  if (startsWith({0xFF, 0xFE, 0, 0}) || startsWith({0, 0, 0xFE, 0xFF})) {
    text = stringWithData(
        bytes.data() + 4, bytes.size() - 4,
        bytes[0] == 0xFF ? NSUTF32LittleEndianStringEncoding : NSUTF32BigEndianStringEncoding);
    encoding = NSUTF32StringEncoding;
  } else if (startsWith({0xFF, 0xFE}) || startsWith({0xFE, 0xFF})) {
    text = utf16Units(bytes.subspan(2), bytes[0] == 0xFE);
    encoding = NSUnicodeStringEncoding;
  } else if (startsWith({0xEF, 0xBB, 0xBF})) {
    text = utf8ToUtf16(
        std::string_view(reinterpret_cast<const char*>(bytes.data()) + 3, bytes.size() - 3));
  }
  if (!text) text = stringWithData(bytes.data(), bytes.size(), NSUTF8StringEncoding);
  if (!text) {
    text = stringWithMarkupData(bytes, u"", NSWindowsCP1252StringEncoding, u"", &encoding);
  }
  if (!text) return std::nullopt;
  Dictionary attributes{
      {std::u16string(kDocumentTypeDocumentAttribute), Value(kPlainTextDocumentType)},
      {std::u16string(kCharacterEncodingDocumentAttribute), Value(encoding)}};
  return documentOf(AttributedString(*text), std::move(attributes));
}

constexpr std::u16string_view kRTFDExtensions[] = {u"rtfd"};
constexpr std::u16string_view kRTFExtensions[] = {u"rtf"};
constexpr std::u16string_view kWebArchiveExtensions[] = {u"webarchive"};
constexpr std::u16string_view kOfficeOpenXMLExtensions[] = {u"docx", u"docm", u"dotx"};
constexpr std::u16string_view kOpenDocumentTextExtensions[] = {u"odt", u"ott"};
constexpr std::u16string_view kWordDocumentExtensions[] = {u"doc", u"dot"};
constexpr std::u16string_view kHTMLExtensions[] = {u"html", u"htm", u"xhtml", u"shtml"};
constexpr std::u16string_view kPlainTextExtensions[] = {u"txt", u"text"};

constexpr DocumentFormat kFormats[] = {
    {"RTFD", matchesRTFD, kRTFDExtensions, readRTFD},
    {"RTF", matchesRTF, kRTFExtensions, readRTF},
    {"WebArchive", matchesWebArchive, kWebArchiveExtensions, readWebArchive},
    {"OfficeOpenXML", matchesOfficeOpenXML, kOfficeOpenXMLExtensions, readOfficeOpenXMLDocument},
    {"OpenDocumentText", matchesOpenDocumentText, kOpenDocumentTextExtensions,
     readOpenDocumentTextDocument},
    {"WordDocument", matchesWordDocument, kWordDocumentExtensions, readWordDocument},
    {"HTML", matchesHTMLContent, kHTMLExtensions, readHTMLDocument},
    // Keep plain text last: its content test accepts almost any text.
    {"PlainText", matchesPlainText, kPlainTextExtensions, readPlainText},
};

std::u16string lowerCaseExtension(std::u16string_view path) {
  while (path.size() > 1 && path.back() == u'/')
    path.remove_suffix(1);
  const std::size_t slash = path.find_last_of(u'/');
  const std::u16string_view name =
      slash == std::u16string_view::npos ? path : path.substr(slash + 1);
  const std::size_t dot = name.find_last_of(u'.');
  if (dot == std::u16string_view::npos || dot == 0) return {};
  std::u16string extension(name.substr(dot + 1));
  for (char16_t& c : extension) {
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
  }
  return extension;
}

}  // namespace

std::span<const DocumentFormat> documentReaders() {
  return kFormats;
}

std::optional<AttributedString> initWithPath(std::u16string_view path,
                                             Dictionary* documentAttributes) {
  const std::string systemPath = utf16ToUtf8(path);
  struct stat status;
  if (path.empty() || stat(systemPath.c_str(), &status) != 0) return std::nullopt;
  std::optional<Data> data;
  if (!S_ISDIR(status.st_mode)) {
    if (!S_ISREG(status.st_mode) || static_cast<std::size_t>(status.st_size) > kMaxDocumentBytes) {
      return std::nullopt;
    }
    data = dataWithUncachedContentsOfFile(path);
    if (!data || data->size() > kMaxDocumentBytes) return std::nullopt;
  }
  const std::u16string extension = lowerCaseExtension(path);
  const DocumentSource source{path, data ? &*data : nullptr, extension};

  std::array<bool, std::size(kFormats)> tried{};
  auto attempt = [&](std::size_t i) -> std::optional<AttributedString> {
    tried[i] = true;
    std::optional<Document> document = kFormats[i].read(source);
    if (!document) return std::nullopt;
    if (documentAttributes) *documentAttributes = std::move(document->documentAttributes);
    return std::move(document->string);
  };
  for (std::size_t i = 0; i < std::size(kFormats); ++i) {
    if (!kFormats[i].matchesContent(source)) continue;
    if (std::optional<AttributedString> string = attempt(i)) return string;
  }
  for (std::size_t i = 0; i < std::size(kFormats); ++i) {
    const auto& extensions = kFormats[i].extensions;
    if (tried[i] ||
        std::find(extensions.begin(), extensions.end(), extension) == extensions.end()) {
      continue;
    }
    if (std::optional<AttributedString> string = attempt(i)) return string;
  }
  return std::nullopt;
}

}  // namespace ferncast
