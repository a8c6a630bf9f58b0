// RTF: a reader for what real files hold and a writer in the platform's dialect.
//
// Reading covers platform-written RTF, word-processor RTF (LibreOffice, Word, WordPad) and old
// Mac RTF: the \ansicpg, \mac and \pc code pages and the font charsets through ICU; \uN with its
// \ucN fallbacks; \bin; \* destinations skipped unless known; PNG and JPEG pictures (\pict) as
// attachments, other picture kinds left out; fields shown by their results, hyperlinks as links;
// table cells separated by tabs and rows by line feeds; list markers (\listtext, \pntext) as
// text; headers, footers, footnotes, annotations, style sheets and hidden text left out; and
// \NeXTGraphic attachments taken from the RTFD package the RTF comes in. Any bytes are safe:
// groups deeper than kMaxRTFDepth are read as part of their parent, and the text never has more
// characters than the input has bytes.
//
// Writing follows the RTF the platform writes: \cocoartf header, font and colour tables, \info
// for the document attributes, paragraph and character formatting as control words, \uN (with
// \uc0) for characters outside Windows-1252, hyperlinks as HYPERLINK fields, and attachments as
// \NeXTGraphic references to files of the package.
//
// Pure functions of their arguments; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "Classes/PropertyList.h"
#include "webcontent/documents/AttributedString.h"
#include "webcontent/documents/FileWrapper.h"

namespace ferncast {

inline constexpr std::size_t kMaxRTFDepth = 256;
// The \cocoartf version the writer states.
inline constexpr int kCocoaRTFVersion = 2761;

// True when the bytes start with "{\rtf", after white space or a UTF-8 byte-order mark.
bool isRTF(std::span<const std::uint8_t> bytes);

// The attributed string of RTF bytes; nullopt when they are not RTF (isRTF). When given,
// `documentAttributes` receives "DocumentType" "NSRTF", "CocoaRTFVersion" for platform-written
// RTF, the \info fields (Title, Author, Subject, Keywords, Comment, Editor, Company, Copyright,
// CreationTime, ModificationTime) and the page and view settings (PaperSize, the margins,
// ViewSize, ViewZoom, ViewMode, DefaultTabInterval) that the RTF states. RTF times carry no zone:
// they are read as UTC. `package`, when given, is the RTFD folder whose files \NeXTGraphic names.
std::optional<AttributedString> initWithRTF(std::span<const std::uint8_t> rtf,
                                            Dictionary* documentAttributes,
                                            const FileWrapper* package = nullptr);

// The RTF of the whole string with the document attributes named above (others are ignored).
// Attachments are left out, since RTF has no place for their files.
Data RTFFromRange(const AttributedString& string, const Dictionary& documentAttributes);
// The same for an RTFD package: the i-th attachment of the string, in text order, becomes a
// \NeXTGraphic reference to `attachmentNames[i]`; attachments without a name are left out.
Data RTFFromRange(const AttributedString& string, const Dictionary& documentAttributes,
                  std::span<const std::u16string> attachmentNames);

}  // namespace ferncast
