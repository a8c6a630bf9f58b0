// RTFD: rich text with attachments. The package is a folder holding "TXT.rtf" and one file per
// attachment, which the RTF names with \NeXTGraphic; RTFD data is that folder serialized
// (FileWrapper.h), as the platform puts it on the pasteboard and in replies.
//
// Pure functions of their arguments (writeRTFD writes its path); any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "Classes/PropertyList.h"
#include "webcontent/documents/AttributedString.h"
#include "webcontent/documents/FileWrapper.h"

namespace ferncast {

// True when the bytes start with the header of serialized RTFD data ("rtfd", version 0).
bool isRTFDData(std::span<const std::uint8_t> bytes);

// The attributed string of an RTFD package: a folder with "TXT.rtf". Attachments keep the name
// they wanted (a name made unique, "1__#$!@%!#__dot.gif", gives back "dot.gif"), and all
// references to one file share one wrapper. `documentAttributes` receives those of the RTF with
// "DocumentType" "NSRTFD". nullopt for anything but a folder holding a "TXT.rtf" that is RTF.
std::optional<AttributedString> initWithRTFDFileWrapper(const FileWrapper& package,
                                                        Dictionary* documentAttributes);
// The same for RTFD data (with its header or in the pasteboard form).
std::optional<AttributedString> initWithRTFD(std::span<const std::uint8_t> data,
                                             Dictionary* documentAttributes);

// The RTFD package of the whole string: "TXT.rtf" first, then each attachment's file under its
// preferred name made unique (an attachment whose wrapper appears several times is stored once).
FileWrapper RTFDFileWrapperFromRange(const AttributedString& string,
                                     const Dictionary& documentAttributes);
// Its serialized data.
Data RTFDFromRange(const AttributedString& string, const Dictionary& documentAttributes);

// Reads RTFD data and writes its package at `path`, replacing what is there whole
// (FileWrapperFiles.h writeFileWrapper). False, with nothing written, when the data is not RTFD
// or the writing fails.
[[nodiscard]] bool writeRTFD(std::span<const std::uint8_t> data, std::u16string_view path);

}  // namespace ferncast
