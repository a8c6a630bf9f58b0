// The text system's document reader (initWithPath:documentAttributes:): the attributed string
// of a file, with the document attributes its format states, the format chosen by the file's
// content first and by its extension second.
//
// The formats are the rows of one table (documentReaders()), each a content test, extensions
// and a read function: RTFD (a package folder or flat data), RTF, Safari web archives, .docx,
// .odt, .doc, HTML, and plain text last, since its content test accepts almost any text. A new
// format is one more row, placed before plain text.
//
// Pure functions of the file; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Classes/PropertyList.h"
#include "webcontent/documents/AttributedString.h"

namespace ferncast {

// Files larger than this are not read.
inline constexpr std::size_t kMaxDocumentBytes = std::size_t(512) << 20;

// What a reader is given.
struct DocumentSource {
  std::u16string_view path;
  const Data* data = nullptr;     // the file's bytes; null when the path is a folder
  std::u16string_view extension;  // lower-case, without the dot; empty when there is none
};

struct Document {
  AttributedString string;
  Dictionary documentAttributes;
};

struct DocumentFormat {
  const char* name;  // "RTF", "RTFD", "WebArchive", "PlainText", ...
  // True when the content shows the format (for a folder, what it holds).
  bool (*matchesContent)(const DocumentSource& source);
  // Lower-case extensions that name the format.
  std::span<const std::u16string_view> extensions;
  // The document, or nullopt when the source does not hold one after all.
  std::optional<Document> (*read)(const DocumentSource& source);
};

// The formats in the order their content tests are tried.
std::span<const DocumentFormat> documentReaders();

// The attributed string of the file or package at `path`: the first format whose content test
// accepts it and that reads it; failing that, the first format named by the extension that reads
// it. `documentAttributes`, when given, receives the document's attributes, with "DocumentType"
// always set. nullopt when the path cannot be read, is larger than kMaxDocumentBytes, or no format
// reads it.
std::optional<AttributedString> initWithPath(std::u16string_view path,
                                             Dictionary* documentAttributes);

}  // namespace ferncast
