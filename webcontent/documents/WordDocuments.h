// Word 97-2003 documents (.doc) for the document reader (DocumentReader.h): their text through
// antiword, run as a separate process so that a file that crashes or hangs it costs only that
// file. Paragraphs come out as lines; styles are not kept (antiword's text output has none).
//
// The process gets the file's path, no shell and no environment but PATH, and 15 seconds; its
// output is read up to 64 MiB. Any failure (no antiword, a crash, the time-out, no text) gives
// nullopt.
//
// Any thread may call.
#pragma once

#include <optional>

#include "webcontent/documents/DocumentReader.h"

namespace ferncast {

// An OLE compound file (D0 CF 11 E0 A1 B1 1A E1) whose extension is "doc" or "dot".
bool matchesWordDocument(const DocumentSource& source);
std::optional<Document> readWordDocument(const DocumentSource& source);

}  // namespace ferncast
