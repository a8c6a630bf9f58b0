// WebArchive(SearchableText): the plain text of a saved web page for indexing.
//
// The text of an archive is that of its main resource's markup (only the body, reformatted,
// through Html2Text.h) followed by the text of each subframe archive in document order, every
// non-empty part preceded by two line feeds. A main resource that is no markup gives no part.
//
// Pure functions of their arguments (the file function reads the file); any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "markup/WebArchive.h"

namespace ferncast {

// The archive's text; empty when no resource has any. Starts with two line feeds otherwise.
std::u16string searchableText(const WebArchive& archive);
// The same, and the archive's markup source (documentSource) through `source` when given.
std::u16string searchableTextAndSource(const WebArchive& archive,
                                       std::optional<std::u16string>* source);
// Appends the archive's text to `text`.
void appendSearchableTextTo(const WebArchive& archive, std::u16string& text);

// The text of the archive in the file, and through the out-arguments that are given its base URL
// and its markup source. An empty path, an unreadable or empty file, or one that holds no
// archive gives nullopt, and the out-arguments then receive nullopt too.
std::optional<std::u16string> searchableTextOfFile(std::u16string_view path,
                                                   std::optional<std::u16string>* baseURL = nullptr,
                                                   std::optional<std::u16string>* source = nullptr);

}  // namespace ferncast
