// NSString(Html2Text): the readable text of HTML, in one pass of the tag scanner.
//
// Tags, comments, scripts and styles are dropped; entities are decoded; blocks, list items, table
// rows and line breaks become line feeds so that words of different paragraphs or cells do not run
// together. The options:
//   entities      decode every character entity (Entities.h); without it, stdEntities decodes
//                 only "&quot;", "&amp;", "&lt;" and "&gt;"; with neither nothing is decoded.
//   nonUmlauted   fold accented letters to their base letters ("é" gives "e").
//   reformat      keep the line structure of the text runs: a blank line stays a paragraph break,
//                 a line starting with a space, "-", "/", ">" or "}" keeps its line feed, other
//                 wrapped lines are joined with a space. Without it all white space between words
//                 becomes one space and only the markup makes line breaks.
//   onlyBody      only the text inside <body> (and <noframes>) counts; a page without a body, or
//                 with an empty one, is converted whole instead.
//   removeJunk    leave out boilerplate (<nav> elements, and elements whose CLASS names
//                 navigation, menus, breadcrumbs, footers, cookie or consent banners, share or
//                 social bars, or comments), text in the body's background colour (<font color>
//                 equal to <body bgcolor>), and the page title; drop runaway text (more than
//                 20,000 code units without a line break, a run of more than 10,000 in a table
//                 cell, title or form control, of more than 3,500 in a link or heading) and report
//                 through `junkWarning` that the page carries runaway text, or long runs of
//                 separators inside boilerplate or hidden text.
//   googleTags    obey the search-appliance comments "<!-- googleoff: index|snippet|anchor|all
//                 -->" and "<!-- googleon: ... -->": text is left out while "index" is off, link
//                 text while "anchor" is off.
//   imageAlts     write an image's ALT text (or, without one, its TITLE), as a word of its own,
//                 where the image stands.
// Line feeds: two at p, h1-h9, hr, div, table and blockquote, one at br, li, dd, dt, dl, ol and
// ul, once text has been written since the last break; one before each table row. A space
// separates table cells and surrounds code and cite. Text in table cells, titles and form
// controls (option, button, label) stays on one line. Text inside noscript and noframes is left
// out; scripts, styles and comments never give text. The text never begins or ends with white
// space and holds at most one blank line in a row.
//
// When the markup has no text at all, the input itself is returned, markup included. Input of
// 0x10000000 code units or more (whose output buffer would reach 2 GB) is also returned as it is.
// Memory: an output buffer of 8 bytes per input code unit is reserved, of which only what the text
// needs is touched.
//
// Pure functions of their arguments; any thread may convert its own strings once the character
// tables exist (initCharacterTables).
#pragma once

#include <string>
#include <string_view>

namespace ferncast {

// Every entity decoded, no reformatting, the whole page, image alternative texts.
std::u16string stringByConvertingHtml2PlainText(std::u16string_view html);
// The same, reformatted.
std::u16string stringByConvertingHtml2ReformattedPlainText(std::u16string_view html);
std::u16string stringByConvertingHtml2PlainTextNonUmlauted(std::u16string_view html,
                                                           bool nonUmlauted);
std::u16string stringByConvertingHtml2PlainTextNonUmlauted(std::u16string_view html,
                                                           bool nonUmlauted, bool reformat,
                                                           bool onlyBody, bool googleTags);
std::u16string stringByConvertingHtml2PlainTextNonUmlauted(std::u16string_view html,
                                                           bool nonUmlauted, bool reformat,
                                                           bool onlyBody, bool googleTags,
                                                           bool imageAlts);
// `junkWarning`, when given, is set to whether junk was found (false when the input comes back
// unchanged).
std::u16string stringByConvertingHtml2PlainTextNonUmlauted(std::u16string_view html,
                                                           bool nonUmlauted, bool reformat,
                                                           bool onlyBody, bool removeJunk,
                                                           bool* junkWarning, bool googleTags,
                                                           bool imageAlts);
std::u16string stringByConvertingHtml2PlainTextEntities(std::u16string_view html, bool entities,
                                                        bool stdEntities, bool nonUmlauted,
                                                        bool reformat, bool onlyBody,
                                                        bool removeJunk, bool* junkWarning,
                                                        bool googleTags, bool imageAlts);

// The simplified conversion: the body's text runs, entities decoded, each preceded by one space
// (none before the first), white space inside the runs kept as it is, and no other layout; the
// whole page when it has no body text.
std::u16string stringByConvertingHtml2SimplifiedPlainText(std::u16string_view html);

}  // namespace ferncast
