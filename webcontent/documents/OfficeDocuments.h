// Word processing documents in zip packages for the document reader (DocumentReader.h):
// Office Open XML (.docx) and OpenDocument text (.odt), read with libzip and pugixml.
//
// What comes out: paragraphs with their alignment and indents; headings (sizes by level, bold)
// from the paragraph styles; bold, italic, underline, strike-through, super- and subscript, font
// size, family and colour from the character styles and direct formatting; list items with their
// markers ("\t•\t", "\t2.\t") and lists; tables with cells separated by tabs and rows by line
// feeds; tabs and line breaks; links; embedded pictures as attachments; and the core properties
// as document attributes (Title, Subject, Author, Keywords, Comment, Editor, CreationTime,
// ModificationTime, and Company for .docx). Notes, comments, deleted text and fields' codes are
// left out.
//
// Limits against hostile packages: parts larger than kMaxPartBytes, and documents nesting deeper
// than 256 elements, are not read further.
//
// Pure functions of their arguments; any thread.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "webcontent/documents/DocumentReader.h"

namespace ferncast {

inline constexpr std::size_t kMaxPartBytes = std::size_t(64) << 20;

// A package's parts by name ("word/document.xml"); nullopt when absent or unreadable.
using PackagePart = std::function<std::optional<Data>(std::string_view name)>;

// The document of a .docx or .odt package's parts; nullopt when the main part is missing or is
// not the right XML.
std::optional<Document> readOfficeOpenXML(const PackagePart& part);
std::optional<Document> readOpenDocumentText(const PackagePart& part);

// The same from the zip bytes.
std::optional<Document> readOfficeOpenXMLData(std::span<const std::uint8_t> zip);
std::optional<Document> readOpenDocumentTextData(std::span<const std::uint8_t> zip);

// Content tests for the reader table: a zip holding "word/document.xml", or a zip whose
// "mimetype" entry says "application/vnd.oasis.opendocument.text".
bool matchesOfficeOpenXML(const DocumentSource& source);
bool matchesOpenDocumentText(const DocumentSource& source);
std::optional<Document> readOfficeOpenXMLDocument(const DocumentSource& source);
std::optional<Document> readOpenDocumentTextDocument(const DocumentSource& source);

}  // namespace ferncast
