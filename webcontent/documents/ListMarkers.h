// List items as the readers lay them out: the marker is text of the item's paragraph ("\t•\t",
// "\t3.\t"), and the paragraph carries the lists it is in with an indent per level.
//
// Pure functions; any thread.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "webcontent/documents/AttributedString.h"

namespace ferncast {

// Points of indent per list level (and per blockquote).
inline constexpr double kListIndentStep = 36;

// The marker of item `n` in a list with the platform's marker format ("{disc}", "{decimal}.",
// "{lower-roman}.", ...): "•", "◦", "▪" for the bullets, else the number in the format's style
// followed by ".". Roman numbers are clamped to 1...3999, letters count from "a" for 1.
std::u16string listMarker(std::u16string_view format, int n);

// Gives `style` the lists (outermost first) of an item at depth lists.size(): the lists, the
// hanging indent of that depth and tab stops for the marker and the text.
void setListParagraphStyle(ParagraphStyle& style, std::span<const TextList> lists);

}  // namespace ferncast
