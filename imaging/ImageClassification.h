// What kind of image a file or a blob is, from its name, classic file type or first bytes
// (the class operations of NSImage(NSImageQuillExtensions) that decide before any decoding).
//
// Extensions compare case-insensitively, classic types ("'PDF '": apostrophe, four characters,
// apostrophe) exactly. Absent arguments (nil) are nullopt; every predicate answers false for
// them. Only pathExtensionForData looks at content (at most 1024 bytes); the file predicates
// read a file's name, its classic type (classicFileTypeOfPath) and, for isUTIImageFile, its
// content type (Classes/ContentTypes.h). Safe on any thread; the type lists are built once.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/PropertyList.h"

namespace ferncast {

using OptionalString = std::optional<std::u16string_view>;

// Every extension the image decoders read here (asked of libvips at first use, with the
// formats given to ImageMagick and "pdf"), the classic types of those formats, then "jpe",
// "JPE", "ps", "PS", "eps", "EPS", "ai", "AI".
const std::vector<std::u16string>& ImageFileTypes();
// "'PDF '", "pdf", "PDF", "ps", "PS", "eps", "EPS", "ai", "AI".
std::vector<std::u16string> PDFFileTypes();
// "pdfd", "PDFD".
std::vector<std::u16string> PDFBundleTypes();

// "jpeg", "jpg", "jpe", "jp2", "gif", "png".
bool isWebImageExtension(OptionalString extension);
// The extension is in ImageFileTypes, or the (non-empty) type is, exactly.
bool isImageExtension(OptionalString extension, OptionalString type);
bool isImageFile(OptionalString path);
// The file's content type conforms to an image type that the decoders read.
bool isUTIImageFile(OptionalString path);
// "ps", "eps", "ai".
bool isPostScriptExtension(OptionalString extension);
bool isPostScriptFile(OptionalString path);
// Type "'PDF '", extension "pdf", or PostScript: shown through the PDF path.
bool isPDFExtension(OptionalString extension, OptionalString type);
bool isPDFFile(OptionalString path);
// Type "'PDF '" or extension "pdf" only.
bool isRealPDFExtension(OptionalString extension, OptionalString type);
bool isRealPDFFile(OptionalString path);
// "pdfd".
bool isPDFBundleExtension(OptionalString extension);
// By extension only; the folder is not inspected.
bool isPDFBundle(OptionalString path);

// The PDF to read for an item: a non-bundle path as it is; for a PDF bundle "X.pdfd" the file
// "X.pdf" inside when it exists, else the first "*.pdf" (any case) the folder lists, else the
// bundle path itself. nullopt for nullopt.
std::optional<std::u16string> pathToPDF(OptionalString path);

// The extension for a classic type ("'JPEG'" -> "jpeg"; unknown types nullopt), a MIME type
// ("image/x-portable-graymap" -> "pgm", "image/jpeg" -> "jpeg"; subtypes too short nullopt) or
// an extension (returned as it is). nullopt for nullopt or "".
std::optional<std::u16string> pathExtensionForType(OptionalString type);

// The extension that the first 1024 bytes suggest, by the first of these found anywhere in
// them: "%PDF" pdf, "ftypjp2" jp2, "\x89PNG" png, "GIF87"/"GIF89" gif, "JFIF"/"JPEG" jpeg,
// "TIFF" tiff, "Photoshop" psd. nullopt for fewer than 4 bytes or no match.
std::optional<std::u16string> pathExtensionForData(const std::optional<Data>& data);

}  // namespace ferncast
