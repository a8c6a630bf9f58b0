// Content types: uniform type identifiers ("public.jpeg") of files and extensions, their
// conformance tree, and classic four-character file types.
//
// A file's content type comes from our extension table first; a regular file whose extension is
// missing or not in the table is judged by its bytes through libmagic, and what neither knows gets
// a "dyn." identifier that encodes its extension (or MIME type) and conforms to "public.data".
// Directories are "public.folder" unless their extension names a package type ("rtfd", "app",
// "mdimporter", ...).
//
// Identifiers are compared exactly (they are ASCII and lower case by convention); extensions
// case-insensitively. All functions are safe on any thread: the tables are constant data indexed
// on first use, and the libmagic handle is opened once and used under a lock.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ferncast {

// The content type of the item at `path` (symbolic links followed); nullopt when nothing exists
// there or it cannot be examined. Reads at most what libmagic reads from the start of a file.
[[nodiscard]] std::optional<std::u16string> contentTypeOfPath(std::u16string_view path);

// The content type that the extension (without the dot, any case) names for a file: the table's
// type, a "dyn." identifier conforming to "public.data" for an extension the table lacks, and
// "public.data" for the empty extension.
[[nodiscard]] std::u16string contentTypeForExtension(std::u16string_view extension);

// Whether `type` is `parent` or conforms to it through the tree ("public.jpeg" conforms to
// "public.image", "public.data", "public.item" and "public.content"). Unknown types conform only
// to themselves; "dyn." identifiers to what they encode.
[[nodiscard]] bool contentTypeConformsTo(std::u16string_view type, std::u16string_view parent);

// `type` followed by every type it conforms to, nearest first (breadth-first, each once):
// "public.jpeg", "public.image", "public.data", "public.content", "public.item". An unknown type
// gives just itself.
[[nodiscard]] std::vector<std::u16string> contentTypeConformanceChain(std::u16string_view type);

// The classic four-character file type of the file at `path` in its quoted six-character form
// ("'PDF '"), from the first four bytes of the extended attribute "user.com.apple.FinderInfo"
// (kept by netatalk, Samba and `rsync -X` on files copied from a Mac; bytes above 127 read as Mac
// Roman). nullopt for a file without that attribute, with four zero bytes there, for anything
// but a regular file, and for a missing path.
[[nodiscard]] std::optional<std::u16string> classicFileTypeOfPath(std::u16string_view path);

}  // namespace ferncast
