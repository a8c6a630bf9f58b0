#include "webcontent/documents/AttributedString.h"

#include <algorithm>
#include <bit>
#include <functional>

namespace ferncast {
namespace {

void combine(std::size_t& seed, std::size_t value) {
  seed ^= value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
}

std::size_t hashDouble(double value) {
  return std::bit_cast<std::uint64_t>(value + 0.0);
}

std::size_t hashColor(const std::optional<Color>& color) {
  return color ? (1u << 24) | (color->red << 16) | (color->green << 8) | color->blue : 0;
}

// Consistent with operator== on Attributes: equal values hash equally (attachments by their
// wrapper's name and size only, which equal wrappers share).
std::size_t hashAttributes(const Attributes& a) {
  std::size_t seed = std::hash<std::u16string>()(a.font.family);
  combine(seed, hashDouble(a.font.pointSize));
  combine(seed, (a.font.bold ? 1 : 0) | (a.font.italic ? 2 : 0) | (a.strikethrough ? 4 : 0) |
                    (static_cast<std::size_t>(a.underline) << 3));
  combine(seed, hashColor(a.foregroundColor));
  combine(seed, hashColor(a.backgroundColor));
  combine(seed, std::hash<std::u16string>()(a.link));
  combine(seed, static_cast<std::size_t>(a.superscript));
  combine(seed, hashDouble(a.baselineOffset));
  const ParagraphStyle& p = a.paragraphStyle;
  combine(seed, static_cast<std::size_t>(p.alignment));
  for (double d : {p.firstLineHeadIndent, p.headIndent, p.tailIndent, p.lineSpacing,
                   p.lineHeightMultiple, p.paragraphSpacing, p.paragraphSpacingBefore}) {
    combine(seed, hashDouble(d));
  }
  for (const TabStop& tab : p.tabStops)
    combine(seed, hashDouble(tab.location));
  for (const TextList& list : p.textLists) {
    combine(seed, std::hash<std::u16string>()(list.markerFormat));
  }
  if (a.attachment && a.attachment->fileWrapper) {
    const FileWrapper& wrapper = *a.attachment->fileWrapper;
    combine(seed, std::hash<std::u16string>()(wrapper.preferredFilename));
    combine(seed, wrapper.contents.size());
  }
  return seed;
}

bool isParagraphSeparator(char16_t c) {
  return c == u'\n' || c == u'\r' || c == u'\u2029';
}

}  // namespace

bool TextAttachment::operator==(const TextAttachment& other) const {
  if (width != other.width || height != other.height) return false;
  if (fileWrapper == other.fileWrapper) return true;
  return fileWrapper && other.fileWrapper && *fileWrapper == *other.fileWrapper;
}

AttributedString::AttributedString(std::u16string_view text, const Attributes& attributes) {
  append(text, attributes);
}

std::uint32_t AttributedString::intern(const Attributes& attributes) {
  const std::size_t hash = hashAttributes(attributes);
  auto [first, last] = byHash_.equal_range(hash);
  for (auto it = first; it != last; ++it) {
    if (attributes_[it->second] == attributes) return it->second;
  }
  if (attributes_.size() >= kMaxDistinctAttributes) {
    return runs_.empty() ? 0 : runs_.back().attributes;
  }
  const auto index = static_cast<std::uint32_t>(attributes_.size());
  attributes_.push_back(attributes);
  byHash_.emplace(hash, index);
  return index;
}

void AttributedString::append(std::u16string_view text, const Attributes& attributes) {
  if (text.empty()) return;
  if (runs_.empty() || !(attributes_[runs_.back().attributes] == attributes)) {
    const std::uint32_t index = intern(attributes);
    if (runs_.empty() || runs_.back().attributes != index) runs_.push_back({text_.size(), index});
  }
  text_.append(text);
}

void AttributedString::append(const AttributedString& other) {
  for (std::size_t i = 0; i < other.runCount(); ++i) {
    const Run r = other.run(i);
    append(std::u16string_view(other.text_).substr(r.location, r.length), r.attributes);
  }
}

void AttributedString::appendAttachment(TextAttachment attachment, const Attributes& attributes) {
  Attributes withAttachment = attributes;
  withAttachment.attachment = std::move(attachment);
  append(std::u16string_view(&kAttachmentCharacter, 1), withAttachment);
}

AttributedString::Run AttributedString::run(std::size_t index) const {
  const std::size_t end = index + 1 < runs_.size() ? runs_[index + 1].location : text_.size();
  return {runs_[index].location, end - runs_[index].location, attributes_[runs_[index].attributes]};
}

const Attributes& AttributedString::attributesAtIndex(std::size_t index,
                                                      std::size_t* runIndex) const {
  auto it = std::upper_bound(runs_.begin(), runs_.end(), index,
                             [](std::size_t i, const RunStart& r) { return i < r.location; });
  const auto found = static_cast<std::size_t>(it - runs_.begin()) - 1;
  if (runIndex) *runIndex = found;
  return attributes_[runs_[found].attributes];
}

void AttributedString::setParagraphStyle(std::size_t location, std::size_t length,
                                         const ParagraphStyle& style) {
  location = std::min(location, text_.size());
  const std::size_t end = location + std::min(length, text_.size() - location);
  if (location == end) return;
  // The runs before and after the range stay; those inside get the new style, and neighbours
  // with equal attributes merge.
  std::vector<RunStart> rebuilt;
  auto push = [&rebuilt](std::size_t start, std::uint32_t attributes) {
    if (rebuilt.empty() || rebuilt.back().attributes != attributes) {
      rebuilt.push_back({start, attributes});
    }
  };
  for (std::size_t i = 0; i < runs_.size(); ++i) {
    const std::size_t start = runs_[i].location;
    const std::size_t stop = i + 1 < runs_.size() ? runs_[i + 1].location : text_.size();
    const std::uint32_t old = runs_[i].attributes;
    if (stop <= location || start >= end) {
      push(start, old);
      continue;
    }
    if (start < location) push(start, old);
    Attributes restyled = attributes_[old];
    restyled.paragraphStyle = style;
    push(std::max(start, location), intern(restyled));
    if (stop > end) push(end, old);
  }
  runs_ = std::move(rebuilt);
}

bool AttributedString::operator==(const AttributedString& other) const {
  if (text_ != other.text_ || runs_.size() != other.runs_.size()) return false;
  for (std::size_t i = 0; i < runs_.size(); ++i) {
    if (runs_[i].location != other.runs_[i].location ||
        !(attributes_[runs_[i].attributes] == other.attributes_[other.runs_[i].attributes])) {
      return false;
    }
  }
  return true;
}

Range paragraphRangeAt(std::u16string_view text, std::size_t index) {
  index = std::min(index, text.size());
  std::size_t start = index;
  while (start > 0 && !isParagraphSeparator(text[start - 1]))
    --start;
  std::size_t end = index;
  while (end < text.size() && !isParagraphSeparator(text[end]))
    ++end;
  if (end < text.size()) {
    ++end;
    if (text[end - 1] == u'\r' && end < text.size() && text[end] == u'\n') ++end;
  }
  return {start, end - start};
}

}  // namespace ferncast
