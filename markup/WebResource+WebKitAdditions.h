// WebResource(WebKitAdditions): the markup text of one resource of a web archive.
//
// Pure functions of their arguments; any thread.
#pragma once

#include <optional>
#include <string>

#include "markup/WebArchive.h"

namespace ferncast {

// The resource's markup as a string, decoded with its text-encoding name (ISO Latin-1 when it
// names none or an unknown one, unless the markup declares its own charset); nullopt when its
// MIME type is not a markup type ("text/...", or "application/..." naming HTML, SGML, XML, RSD,
// Atom, RDF or RSS) or when the bytes cannot be decoded.
std::optional<std::u16string> documentSource(const WebResource& resource);

}  // namespace ferncast
