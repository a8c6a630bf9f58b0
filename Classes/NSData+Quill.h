// Small operations on data: uncached file reads, ASCII and RTF recognition, hex dumps to the log.
//
// Pure functions over the caller's bytes, safe on any thread (the dumps write through NSLog,
// which writes each message at once).
#pragma once

#include <optional>
#include <string_view>

#include "Classes/PropertyList.h"

namespace ferncast {

// The contents of the file at `path` (UTF-16, converted to UTF-8 for the file system), read and
// then dropped from the page cache (posix_fadvise POSIX_FADV_DONTNEED), so that reading many
// large files once does not push everything else out of memory. nullopt when the file cannot be
// opened or read; the error itself is not reported.
std::optional<Data> dataWithUncachedContentsOfFile(std::u16string_view path);

// The contents of a regular file (symbolic links followed), through the page cache as usual.
// nullopt for anything else (folders, devices, pipes, which are never waited on) and when the
// file cannot be read.
std::optional<Data> dataWithContentsOfRegularFile(std::u16string_view path);

// True when the data is not empty and every byte is in 32...127 or is one of the
// control bytes 3, 8, 9, 10, 12, 13. (Byte 3 counts as text and the vertical tab 11 does not.)
bool isAsciiData(const Data& data);

// True when "{\rtf" occurs anywhere in the data.
bool isRTFData(const Data& data);
// The same; when `isCocoaRTF` is not null it is set to whether "\cocoartf" follows that "{\rtf"
// (false when the data is not RTF).
bool isRTFData(const Data& data, bool* isCocoaRTF);

// Log a hex dump through NSLog, 16 bytes a line: the bytes as characters (bytes below 32 as
// blanks, others as the Latin-1 character of that value), padded to 16, ": ", then each byte as
// two lower-case hex digits and a blank. Data of up to 16 bytes is logged as that line, longer
// data with a line feed before and after. Empty data logs nothing.
void dump(const Data& data);
// Log the bytes as a C array declaration, "const unsigned char data[] = {\n\t0x.., ...\n};\n ",
// sixteen items a line, with a line feed before and after. Empty data logs nothing.
void dumpAsArray(const Data& data);

}  // namespace ferncast
