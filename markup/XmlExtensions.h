// The tag scanner and the accessors that read tags straight from their characters.
//
// GetTagsOfString walks the UTF-16 code units of a text once and calls a handler for every markup
// construct it finds: tags, comments, bracket sections ("<![CDATA[...]]>", "<![endif]-->") and
// whole script and style elements. Nothing is validated and no tree is built; every input is
// scanned to its end. The accessors below read a tag's name and attributes from the characters
// without allocating (the range forms) or into a new string.
//
// Positions and lengths count UTF-16 code units; kNotFound (markup/NotFound.h) marks a missing
// position. Case-insensitive comparisons use the upper-case table of
// markup/chartables/CharacterTables.h. Nothing here throws on bad input: answers are nullopt,
// false, an empty collection or a (kNotFound, 0) range.
//
// Threads: no state is kept between calls; any thread may scan its own text. The character
// tables must have been built once (initCharacterTables) before scans start on several threads
// at once.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/PropertyList.h"
#include "markup/NotFound.h"

namespace ferncast {

// What a handler call reports; the numbers are fixed (tools print them).
enum class TagKind : int {
  kEndOfText = 0,  // the final call: the text after the last construct
  kTag = 1,        // "<...>", including end tags, "<!DOCTYPE ...>", "<?xml ...?>", whole scripts
  kComment = 2,    // "<!--...-->", "<!-...->"
  kSection = 3,    // "<![...]>", "<![...]-->"
};

// Called once per construct, in text order, then once more at the end of the text.
//   string        the scanned text: a view of `characters` with the text's length.
//   characters    the scanned code units; every position below indexes them.
//   nameLocation  first code unit of the tag name; kNotFound when the construct has none
//                 (comments, sections, the final call, tags without a letter).
//   nameLength    the name's length; 0 when there is none.
//   tagLocation   the construct's "<"; the text length for the final call.
//   tagLength     from "<" through ">" inclusive; 0 for the final call. A script or style element
//                 whose end tag lacks its ">" reaches ONE PAST THE END of the text: clip it to
//                 string.size() before reading.
//   textLocation  start of the text run before the construct: 0 at first, then one past the end
//                 of the previous construct (never beyond the text length). The run is
//                 [textLocation, tagLocation).
//   kind          see TagKind.
//   context       the caller's pointer, passed through.
// Returning true stops the scan at once (no further calls, not even the final one); false goes on.
// Handlers keep their state in the context. `characters` may be written only in a scan started
// with isMutable true (it is then the scanner's private copy), and only before the end of the
// construct being reported: the scan reads on from there.
using TagHandler = bool (*)(std::u16string_view string, char16_t* characters,
                            std::size_t nameLocation, std::size_t nameLength,
                            std::size_t tagLocation, std::size_t tagLength,
                            std::size_t textLocation, TagKind kind, void* context);

// Scans `string` and calls `handler` as described above. False, without any call, when the text
// is empty, the handler null, the text as long as kNotFound or longer, or (isMutable) its private
// copy cannot be made (a byte size of 0x7FFFFFFF or more, or a failed allocation). True
// otherwise, also when the handler stopped the scan.
// isMutable: the handler will change the caller's string (through its context) while the scan
// runs, or wants to write into `characters`. The scanner then works on a snapshot taken at the
// start, and all positions refer to it; otherwise it reads the caller's storage in place, which
// must stay unchanged during the scan.
// Exceptions thrown by the handler pass through (the copy is freed); see parseXmlWithHandler.
bool GetTagsOfString(std::u16string_view string, TagHandler handler, void* context, bool isMutable);

// GetTagsOfString guarded against the handler's faults: an exception derived from std::exception
// is caught, logged with logException (operation "parseXmlWithHandler:context:mutable:", class
// "NSString", the exception's type name, what(), no call stack) and answered with false. Other
// exceptions (non-std types, forced unwinding) pass through.
bool parseXmlWithHandler(std::u16string_view string, TagHandler handler, void* context,
                         bool isMutable);

// Our strings always keep their characters in one contiguous buffer that scans can read in place,
// so there is nothing to optimise: the text is returned as it is.
inline std::u16string_view optimizedXml(std::u16string_view string) {
  return string;
}

// ---- Collectors (one scan each, not mutable) ----

// Every construct's full text from "<" to ">", in order (a script running past the end is cut at
// the end of the text).
std::vector<std::u16string> getXmlTags(std::u16string_view string);
// Every non-empty text run between constructs, in order.
std::vector<std::u16string> getXmlContents(std::u16string_view string);
// One dictionary per handler call, the final one included: "Tag" holds the construct's text (the
// empty string for the final call), "Content" the text run before it, only when not empty.
std::vector<Dictionary> getXml(std::u16string_view string);
// The entries of a getXml dictionary; the empty string when absent.
std::u16string xmlTag(const Dictionary& entry);
std::u16string xmlContent(const Dictionary& entry);

// Range forms: one entry per handler call, the final call included; the tag ranges exactly as
// reported (see tagLength), the text ranges as (textLocation, tagLocation - textLocation), empty
// ones included. They answer the number of calls. Should growing a range list fail, that list is
// emptied and stays empty while the count still rises.
std::size_t getXmlTags(std::u16string_view string, std::vector<Range>& tagRanges);
std::size_t getXmlContents(std::u16string_view string, std::vector<Range>& textRanges);
std::size_t getXml(std::u16string_view string, std::vector<Range>& tagRanges,
                   std::vector<Range>& textRanges);

// ---- Tag predicates ----
// The character forms read `characters` over `range`, which must lie inside the buffer; the string
// forms clip their range to the string (a location past the end reads as an empty construct).

// At least 3 units and the one after "<" is not "/" (self-closing tags are open too).
bool isTagOpenCharacters(const char16_t* characters, Range range);
bool isTagOpen(std::u16string_view string);
bool isTagOpenInRange(std::u16string_view string, Range range);
// At least 4 units and "/" after "<" or before the final ">".
bool isTagClosedCharacters(const char16_t* characters, Range range);
bool isTagClosed(std::u16string_view string);
bool isTagClosedInRange(std::u16string_view string, Range range);
// At least 7 units beginning "<![".
bool isMetaTag(std::u16string_view string);
bool isMetaTagInRange(std::u16string_view string, Range range);
// At least 7 units beginning "<!-".
bool isRemarkTag(std::u16string_view string);
bool isRemarkTagInRange(std::u16string_view string, Range range);

// ---- Tag names ----
// The name by the scanner's rule: from the first letter (categories L and M) up to white space,
// "/", ">" or the end of the range; nullopt when there is no letter.
std::optional<std::u16string> nameOfTag(std::u16string_view string);
std::optional<std::u16string> nameOfTagInRange(std::u16string_view string, Range range);
std::optional<std::u16string> nameOfTagInStringRange(std::u16string_view string,
                                                     std::size_t location, std::size_t length);
// Also tell whether the tag opens and whether it closes: both false below 3 units; an end tag
// ("</") is closed only; any other is open, and closed too when "/" precedes the final ">".
std::optional<std::u16string> nameOfTag(std::u16string_view string, bool& isOpen, bool& isClosed);
std::optional<std::u16string> nameOfTagInRange(std::u16string_view string, Range range,
                                               bool& isOpen, bool& isClosed);

// ---- Attributes ----
// Character forms: `name` is ASCII and upper case ("HREF"). The walk covers the whole construct,
// skips quoted runs, and takes a candidate only when the unit before it is not alphanumeric, "-"
// or "_" ("SRC" is not found in "data-src=", and neither in "x_src="). The name, optional white
// space and "=" must follow; then further "=" and white space are skipped. A quoted value ends at
// its closing quote or at ">"; an unquoted one at white space or ">" ("/" belongs to it).
// Trailing white space is dropped, leading white space inside quotes kept; an empty value, a name
// not found or a construct not longer than the name plus 5 give nothing.
//
// metaContent changes how a quoted value ends, for meta CONTENT values that carry markup: "<meta"
// ends it, other "<" and ">" nest (a ">" at depth 0 past the first unit ends it), and with depth 1
// at the closing quote a trailing "<" or "</" is cut off.
// With outRange the value's range within `characters` (or (kNotFound, 0)) is stored there and
// nothing is allocated or returned; otherwise the value is returned as a new string.
std::optional<std::u16string> _attributeOfTagCharactersWithName(const char16_t* characters,
                                                                std::size_t location,
                                                                std::size_t length,
                                                                std::string_view name,
                                                                bool metaContent, Range* outRange);
std::optional<std::u16string> attributeOfTagCharacters(const char16_t* characters,
                                                       std::size_t length, std::string_view name);
std::optional<std::u16string> attributeOfTagCharacters(const char16_t* characters, Range range,
                                                       std::string_view name);
Range rangeOfAttributeOfTagCharacters(const char16_t* characters, std::size_t length,
                                      std::string_view name);
Range rangeOfAttributeOfTagCharacters(const char16_t* characters, Range range,
                                      std::string_view name);

// String forms: `name` is any text, upper-cased here. The same walk, except that "_" may precede
// the name, exactly one `assign` is taken, values end at `end` too, and the construct must be
// longer than the name plus `margin`. Tags use ("=", ">", margin 5), style declaration lists such
// as "width: 20px; height: 10px" use (":", ";", margin 1).
std::optional<std::u16string> _attributeOfStringWithName(std::u16string_view string,
                                                         std::size_t location, std::size_t length,
                                                         std::u16string_view name,
                                                         std::size_t margin, char16_t assign,
                                                         char16_t end);
std::optional<std::u16string> attributeOfTagWithName(std::u16string_view string,
                                                     std::u16string_view name);
std::optional<std::u16string> attributeOfTagInRange(std::u16string_view string, Range range,
                                                    std::u16string_view name);
std::optional<std::u16string> attributeOfStyleWithName(std::u16string_view string,
                                                       std::u16string_view name);
std::optional<std::u16string> attributeOfStyleInRange(std::u16string_view string, Range range,
                                                      std::u16string_view name);

// ---- Sizes and backgrounds ----

// The size a tag of at least 10 units declares: the leading integers of WIDTH and, when WIDTH is
// not 0, of HEIGHT (or of the misspelt HEIGH when HEIGHT gives 0); when WIDTH gives 0, the WIDTH
// and HEIGHT properties of its STYLE attribute instead. Writes both (0 for what was not found or
// not read) and answers whether the width is positive.
bool getTagWidth(int& width, int& height, const char16_t* characters, Range range);
bool getTagWidth(int& width, int& height, const char16_t* characters, std::size_t length);
bool getTagWidth(std::u16string_view string, int& width, int& height, Range range);
bool getTagWidth(std::u16string_view string, int& width, int& height);

// The image URL of an opening tag's STYLE attribute when that sets "background:" or
// "background-image:" together with "no-repeat": the text after the first "url(" up to the next
// ")", with balanced pairs of single quotes around it removed. nullopt otherwise (also when the
// ")" is missing).
std::optional<std::u16string> backgroundStyleURLOfTagCharacters(const char16_t* characters,
                                                                Range range);
std::optional<std::u16string> backgroundStyleURLOfTagCharacters(const char16_t* characters,
                                                                std::size_t length);

}  // namespace ferncast
