// The HTML reader: a page as rich text with attachments, the way the platform's HTML reader lays
// it out, in one pass of the tag scanner (markup/XmlExtensions.h). No document tree is built and
// no script runs.
//
// Layout:
//   - Blocks (p, div, headings, lists, blockquote, pre, tables, sections, ...) end paragraphs; a
//     paragraph takes the paragraph style of the block it starts in. p and headings get spacing,
//     headings sizes by level and bold; blockquote and nested lists are indented.
//   - b/strong bold; i/em/cite/var/dfn italic; u/ins underlined; s/strike/del struck through;
//     sup/sub raised or lowered; code/tt/kbd/samp and pre in Courier (pre keeps its white space);
//     small/big; font (color, size, face); mark highlighted; a with HREF carries the link (resolved
//     against the base URL), underlined in link blue.
//   - List items start with their marker as text ("\t•\t", "\t3.\t") and carry the lists they are
//     in; table cells are separated by tabs and rows by line feeds, th is bold.
//   - br is a line feed, hr an empty paragraph.
//   - The page's <style> rules and style attributes apply as far as CssSubset.h reads them; class
//     and id selectors match. head, script, style, template, noscript, elements with the HIDDEN
//     attribute and those styled display: none or visibility: hidden give no text.
//   - White space collapses as in HTML; entities are decoded.
//   - img (and a background image set in a style attribute) becomes an attachment holding the
//     loaded bytes when they load and are an image; otherwise the ALT text (or nothing) stands.
//
// Images are resolved against the page's <base href> or else the base URL, and loaded after the
// layout, all at once, through url/ResourceLoader.h. The whole reading ends at the deadline: the
// layout stops where it is, loads still running fail, and what was laid out is the result.
//
// Document attributes: "DocumentType" "NSHTML", "CharacterEncoding" (the encoding read), and,
// when the page has them, "Title" (<title>), "Author", "Keywords" and "Comment" (the meta
// description).
//
// Threads: a call works on its own data; any thread may read once the character tables exist
// (initCharacterTables).
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/PropertyList.h"
#include "url/ResourceLoader.h"
#include "url/URL.h"
#include "webcontent/documents/AttributedString.h"

namespace ferncast {

struct HtmlReaderOptions {
  // Relative links and images resolve against this (unless the page has a <base href>).
  std::optional<URL> baseURL;
  // The character set to decode with; empty: the declared or detected one.
  std::u16string textEncodingName;
  // When set, images are loaded through these options (hook, resolver, archive); when not, no
  // image is loaded and each shows its alternative text. Their deadline is replaced by ours.
  std::optional<ResourceLoaderOptions> resources;
  // The end of the whole reading; none: no limit.
  std::optional<std::chrono::steady_clock::time_point> deadline;
};

struct HtmlReading {
  AttributedString string;
  Dictionary documentAttributes;
  // One entry per image load asked for, in page order.
  std::vector<LoadedResource> loads;
};

// Reads HTML bytes. nullopt when there are none, they do not decode, or the page gives neither
// text nor attachments.
std::optional<HtmlReading> readHTML(std::span<const std::uint8_t> data,
                                    const HtmlReaderOptions& options);
// Reads HTML that is already text; textEncodingName is not used.
std::optional<HtmlReading> readHTMLString(std::u16string_view html,
                                          const HtmlReaderOptions& options);

}  // namespace ferncast
