// WebArchive(WebKitAdditions): recognising web archive files, and the source, base URL and
// resources of an archive.
//
// Pure functions of their arguments (the file functions read the file); any thread. Returned
// pointers point into the archive given and live as long as it does.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "markup/WebArchive.h"

namespace ferncast {

// The file-name extensions of web archives: "webarchive" and "WEBARCHIVE".
std::vector<std::u16string> webArchiveFileTypes();
// True when the extension is "webarchive" in any case.
bool isWebArchiveExtension(std::u16string_view extension);
// True when the path's extension (after the last "." of its last component) is a web archive's.
bool isWebArchiveFile(std::u16string_view path);

// The main resource's markup (documentSource of WebResource+WebKitAdditions.h).
std::optional<std::u16string> documentSource(const WebArchive& archive);
// The main resource's URL.
const std::u16string& baseURL(const WebArchive& archive);

// The markup of the archive in the file, and its base URL through `baseURL` when given. An empty
// path, an unreadable or empty file, or one that holds no archive gives nullopt, and `baseURL`
// then receives nullopt too.
std::optional<std::u16string> documentSourceOfFile(
    std::u16string_view path, std::optional<std::u16string>* baseURL = nullptr);

// The resource with this URL: the main resource, else the first matching subresource, else the
// first match inside the subframe archives, searched depth first in order; null when none has it.
const WebResource* subresourceForURL(const WebArchive& archive, std::u16string_view URL);
// The archive, the receiver or one nested in it (depth first, in order), whose main resource has
// this URL; null when none has it.
const WebArchive* subArchiveForURL(const WebArchive& archive, std::u16string_view URL);

}  // namespace ferncast
