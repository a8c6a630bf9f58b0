// HTML files and Safari web archives for the document reader (DocumentReader.h), through the HTML
// reader (HtmlReader.h).
//
// An HTML file is read with its own folder as the base: its images load from disk (file: URLs)
// or from data: URLs, never from the network. A web archive's page is read with the main
// resource's URL as the base and character set, its images coming from the archive's
// subresources alone.
//
// Pure functions of their arguments; any thread.
#pragma once

#include <optional>
#include <string>
#include <unordered_set>

#include "markup/WebArchive.h"
#include "webcontent/documents/DocumentReader.h"

namespace ferncast {

// The start of the bytes (after a byte-order mark and white space) is a doctype, a comment or an
// html, head or body tag, or the first KiB holds an html or body tag.
bool matchesHTMLContent(const DocumentSource& source);
// The document of an HTML file; nullopt when the page gives nothing.
std::optional<Document> readHTMLDocument(const DocumentSource& source);
// The main resource's page laid out with the archive's images; "DocumentType" "NSWebArchive".
// `shown` (may be null) receives the URLs, as the archive writes them, of the subresources that
// the page shows. nullopt when the main resource gives nothing as HTML.
std::optional<Document> readWebArchiveHTML(const WebArchive& archive,
                                           std::unordered_set<std::u16string>* shown);

}  // namespace ferncast
