// Multipart form-data bodies (as a browser sends them for multipart/form-data) and decoding of
// data as text.
//
// Pure functions over the caller's bytes; results are new values owned by the caller. Any thread
// may call them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Classes/NSString+Encoding.h"
#include "Classes/PropertyList.h"

namespace ferncast {

// The named fields of a multipart body whose delimiter is "--" + `boundary` (in UTF-8).
//
// The body must be longer than the delimiter plus 4 bytes and end with "--\r\n", else nullopt.
// Each stretch between delimiters is a part; only parts that begin with
// "Content-Disposition: form-data;", end with "\r\n" and have a header that ends with a blank
// line before that closing line break are read; other stretches (the preamble, malformed parts)
// are passed over, and so is a part whose header is not valid UTF-8. A part's "name" and "filename"
// parameters are read with the double quote as quotation character, matching whole parameter names
// (so "name" is not found inside "filename"). A part with a name stores its content bytes as Data
// under the name; a part with a file name stores the file name as a string under
// "<name>_filename" (just "_filename" when the part has no name). A later field replaces an
// earlier one of the same name. Scanning stops at the first stretch without a following
// delimiter.
std::optional<Dictionary> formDataUsingBoundary(const Data& body, std::u16string_view boundary);

// The data decoded as UTF-8, or nullopt when it is not valid UTF-8 (see stringWithData).
std::optional<std::u16string> stringUsingUTF8Encoding(const Data& data);
// The data decoded in `encoding`, or nullopt when the encoding is not known or the bytes are not
// valid in it (see stringWithData).
std::optional<std::u16string> stringUsingEncoding(const Data& data, NSStringEncoding encoding);

}  // namespace ferncast
