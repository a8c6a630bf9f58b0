#include "markup/WebResource+WebKitAdditions.h"

#include <string_view>

#include "markup/MarkupDecoding.h"

namespace ferncast {
namespace {

bool startsWithIgnoringCase(std::u16string_view text, std::u16string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    char16_t c = text[i];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    if (c != prefix[i]) return false;
  }
  return true;
}

bool containsIgnoringCase(std::u16string_view text, std::u16string_view word) {
  for (std::size_t i = 0; i + word.size() <= text.size(); ++i) {
    if (startsWithIgnoringCase(text.substr(i), word)) return true;
  }
  return false;
}

// The markup MIME-type test of the URL utilities (isMarkupMIMEType in url/), which sit above this
// library: "text/..."; or "application/..." naming HTML, SGML, XML, RSD or Atom in any case, or
// RDF or RSS in lower case.
bool isMarkupType(std::u16string_view type) {
  if (startsWithIgnoringCase(type, u"text/")) return true;
  if (!startsWithIgnoringCase(type, u"application/")) return false;
  for (std::u16string_view word : {u"htm", u"sgml", u"xml", u"rsd", u"atom"}) {
    if (containsIgnoringCase(type, word)) return true;
  }
  return type.find(u"rdf") != std::u16string_view::npos ||
         type.find(u"rss") != std::u16string_view::npos;
}

}  // namespace

std::optional<std::u16string> documentSource(const WebResource& resource) {
  if (!isMarkupType(resource.MIMEType)) return std::nullopt;
  return stringWithMarkupData(resource.data, resource.textEncodingName, NSISOLatin1StringEncoding,
                              resource.URL);
}

}  // namespace ferncast
