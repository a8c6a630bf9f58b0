// Markup bytes to text and back: decoding with the charset named from outside (an HTTP content
// type or the caller), the charset declared inside the markup (a meta tag or the XML declaration)
// and the caller's default, judged by their counts of undecodable characters; file decoding;
// and encoding text back into its declared charset.
//
// Encodings are the numbers of markup/Charsets.h: string-encoding numbers (NSStringEncoding) for
// callers, extended numbers (CFStringEncoding) for single conversions. Conversions go through a
// fresh ICU converter each (Kamenický and KOI8-CS2 through markup/CzechEncodings.h); an encoding
// whose converter does not open is a failed attempt, never an error.
//
// Failure: decoders answer nullopt when nothing could be decoded; nothing throws on bad input.
// Results are new strings owned by the caller; views are read only during the call. Any thread
// may call (the character and converter tables are built once, thread-safely, on first use).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Classes/PropertyList.h"
#include "markup/Charsets.h"
#include "markup/NotFound.h"

namespace ferncast {

// ---- Single conversions ----

// Converts `length` bytes in `encoding` to at most `capacity` UTF-16 code units in `buffer`;
// undecodable input becomes U+FFFD. True with the number written in `outLength`; false (and 0)
// when the encoding cannot be opened or the output does not fit.
bool convertEncodingToUnicode(const std::uint8_t* bytes, std::size_t length,
                              CFStringEncoding encoding, char16_t* buffer, std::size_t capacity,
                              std::size_t* outLength);

// One decoding attempt into a buffer of max(length, 32) code units. nullopt when the conversion
// fails or produces nothing. `badCount` (may be null) receives the number of U+FFFD in the
// result, 0 on failure. A UTF-8 byte-order mark is dropped.
std::optional<std::u16string> tryToCreateStringWithEncoding(const std::uint8_t* data,
                                                            std::size_t length,
                                                            CFStringEncoding encoding,
                                                            std::size_t* badCount);

// Strict decoding, the way a string is made from data in a given encoding: nullopt when the
// encoding is unknown or unavailable, or when any byte sequence is invalid or unmapped in it. Empty
// data gives an empty string. -16 and -15 decode as Kamenický and KOI8-CS2. A UTF-8 byte-order
// mark is dropped; UTF-16 without one is read big-endian.
std::optional<std::u16string> initWithData(const std::uint8_t* bytes, std::size_t length,
                                           NSStringEncoding encoding);

// The extended encodings tried in order, first to yield any characters winning, when a page that
// declares Shift-JIS (or EUC-CN) cannot be decoded in it.
std::span<const CFStringEncoding> japaneseFallbackEncodings();
std::span<const CFStringEncoding> chineseFallbackEncodings();
// The first of `encodings` whose conversion yields characters, or nullopt; `usedEncoding` (may be
// null) receives it.
std::optional<std::u16string> firstStringOfEncodings(std::span<const std::uint8_t> data,
                                                     std::span<const CFStringEncoding> encodings,
                                                     CFStringEncoding* usedEncoding);

// ---- Declarations inside markup ----

// The charset declared before the body: a meta tag's CONTENT charset parameter
// ("text/html; charset=koi8-r") or its CHARSET attribute, with character entities decoded, or the
// ENCODING of the XML declaration. The empty string when there is none.
std::u16string markupCharset(std::u16string_view string);
// The range of the whole declaring tag, or (kNotFound, 0).
Range markupCharsetRange(std::u16string_view string);
// charset2NSStringEncoding of markupCharset (logs unknown names).
NSStringEncoding markupEncoding(std::u16string_view string);
// The encoding of a content type's charset parameter (headerCharset); kNoStringEncoding when
// there is none or it is unknown.
NSStringEncoding headerEncoding(std::u16string_view contentType);
// ISO Latin-1 when the markup declares Latin-1, else UTF-8: the encoding for URLs in the page.
NSStringEncoding defaultURLEncoding(std::u16string_view string);

// The text encoded in its declared charset. Characters that charset cannot hold are written as
// decimal character references ("&#269;"). With no usable declaration, the characters are turned
// into entities and the result is ASCII. Empty text gives empty data and ASCII. `usedEncoding`
// (may be null) receives the encoding written.
Data markupData(std::u16string_view string);
Data markupData(std::u16string_view string, NSStringEncoding* usedEncoding);

// ---- Decoding markup ----

// The main decoder. Empty data gives the empty string. A non-empty `encodingName` that names an
// available encoding replaces `defaultEncoding` as the declared encoding (and counts as given).
// The data is decoded with the declared encoding (U+FFFD for what does not decode); when that
// text declares another charset inside, the data is decoded again with it (a Windows-1251 claim
// drops the first reading and falls back to Windows-1250, a Big5 claim to Big5-HKSCS). The second
// reading wins unless a given name's reading has fewer U+FFFD, or is a clean UTF-8 reading shorter
// than a clean Latin-1 or Windows-1251 one. Pages declaring Shift-JIS or EUC-CN that cannot be
// decoded so go through the fallback chains above; last come strict decodings with the declared
// encoding and with the default. nullopt when all fail. `URL` is accepted and not used.
// `usedEncoding` (may be null) receives the encoding of the result (kNoStringEncoding for empty
// data or no result).
std::optional<std::u16string> stringWithMarkupData(std::span<const std::uint8_t> data,
                                                   std::u16string_view encodingName,
                                                   NSStringEncoding defaultEncoding,
                                                   std::u16string_view URL,
                                                   NSStringEncoding* usedEncoding = nullptr);
// With no name.
std::optional<std::u16string> stringWithMarkupData(std::span<const std::uint8_t> data,
                                                   NSStringEncoding defaultEncoding);
// With the name taken from a content type's charset parameter ("text/html; charset=EUC-JP").
std::optional<std::u16string> stringWithMarkupData(std::span<const std::uint8_t> data,
                                                   std::u16string_view contentType,
                                                   NSStringEncoding defaultEncoding);

// A file of markup: a binary property list ("bplist" at the start) is turned into an XML property
// list and read as UTF-8; anything else is decoded strictly with the default encoding and, when
// its markup declares another encoding, strictly with that one (Mac OS Roman standing in for
// UTF-8 that is not valid), falling back to the default. nullopt when the file cannot be read or
// nothing decodes. `path` is UTF-16, converted to UTF-8 for the file system.
std::optional<std::u16string> stringWithMarkupContentsOfFile(
    std::u16string_view path, NSStringEncoding defaultEncoding,
    NSStringEncoding* usedEncoding = nullptr);

}  // namespace ferncast
