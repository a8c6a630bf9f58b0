// The tag scanner with every accessor applied to every reported construct. The input after its
// first byte is scanned twice: each byte as one code unit (so that plain HTML seeds and the
// dictionary work as they are) and the bytes as UTF-16 code units (an odd last byte dropped).
// The first byte picks the options: bit 0 a mutable scan whose handler scribbles over what was
// reported, bits 1-3 stop after that many calls (0: never).
// Checks: the reported positions keep their contract, the name accessor agrees with the
// scanner's name, attribute ranges lie inside their tag, the scribbling mutable scan reports the
// same calls as a read-only one, and the collectors count the same calls.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "markup/XmlExtensions.h"

namespace {

using namespace ferncast;

void check(bool condition) {
  if (!condition) std::abort();
}

struct Call {
  std::size_t nameLocation, nameLength, tagLocation, tagLength, textLocation;
  TagKind kind;
  bool operator==(const Call&) const = default;
};

struct Context {
  std::size_t stopAfter = 0;
  bool scribble = false;
  std::vector<Call> calls;
};

constexpr const char* kCharacterNames[] = {"HREF",   "SRC", "CONTENT",    "STYLE", "WIDTH",
                                           "HEIGHT", "A",   "HTTP-EQUIV", "X_Y"};
constexpr std::u16string_view kStringNames[] = {u"href", u"SRC", u"Width", u"a", u"x_y"};

void checkInside(Range value, Range tag) {
  if (!value.found()) return;
  check(value.length > 0 && value.location >= tag.location && value.end() <= tag.end());
}

// Every accessor over one construct; `tag` lies inside the text.
void applyAccessors(std::u16string_view text, const char16_t* characters, Range tag,
                    const Call& call) {
  bool isOpen = false;
  bool isClosed = false;
  std::optional<std::u16string> name = nameOfTagInRange(text, tag, isOpen, isClosed);
  if (call.kind == TagKind::kTag) {
    if (call.nameLocation == kNotFound) {
      check(!name);
    } else {
      check(name && *name == text.substr(call.nameLocation, call.nameLength));
    }
  }
  check(isOpen == isTagOpenCharacters(characters, tag));
  check(isOpen == isTagOpenInRange(text, tag));
  if (tag.length >= 4) check(isClosed == isTagClosedCharacters(characters, tag));
  check(isTagClosedInRange(text, tag) == isTagClosedCharacters(characters, tag));
  const bool meta = isMetaTagInRange(text, tag);
  const bool remark = isRemarkTagInRange(text, tag);
  check(!(meta && remark));

  for (const char* attribute : kCharacterNames) {
    const Range range = rangeOfAttributeOfTagCharacters(characters, tag, attribute);
    checkInside(range, tag);
    const std::optional<std::u16string> value =
        attributeOfTagCharacters(characters, tag, attribute);
    check(value.has_value() == range.found());
    if (value) check(*value == text.substr(range.location, range.length));
    Range metaRange;
    _attributeOfTagCharactersWithName(characters, tag.location, tag.length, attribute, true,
                                      &metaRange);
    checkInside(metaRange, tag);
    if (range.found() && std::string_view(attribute) == "STYLE") {
      for (std::u16string_view property : kStringNames) {
        attributeOfStyleInRange(text, range, property);
      }
    }
  }
  for (std::u16string_view attribute : kStringNames) {
    attributeOfTagInRange(text, tag, attribute);
  }
  int width = 0;
  int height = 0;
  const bool sized = getTagWidth(width, height, characters, tag);
  check(sized == (width > 0));
  check(getTagWidth(text, width, height, tag) == sized);
  if (std::optional<std::u16string> url = backgroundStyleURLOfTagCharacters(characters, tag)) {
    check(url->size() < tag.length);
  }
}

bool CheckingHandler(std::u16string_view text, char16_t* characters, std::size_t nameLocation,
                     std::size_t nameLength, std::size_t tagLocation, std::size_t tagLength,
                     std::size_t textLocation, TagKind kind, void* opaque) {
  auto& context = *static_cast<Context*>(opaque);
  const Call call{nameLocation, nameLength, tagLocation, tagLength, textLocation, kind};
  const std::size_t length = text.size();
  check(text.data() == characters);
  check(textLocation <= tagLocation && tagLocation <= length);
  if (!context.calls.empty()) {
    const Call& previous = context.calls.back();
    check(textLocation == std::min(previous.tagLocation + previous.tagLength, length));
  } else {
    check(textLocation == 0);
  }
  check((nameLocation == kNotFound) == (nameLength == 0));
  if (kind == TagKind::kEndOfText) {
    check(tagLocation == length && tagLength == 0 && nameLocation == kNotFound);
  } else {
    check(characters[tagLocation] == u'<' && tagLength >= 2);
    // Only a whole script or style element may reach one past the end.
    check(tagLocation + tagLength <= length ||
          (kind == TagKind::kTag && tagLocation + tagLength == length + 1));
  }
  if (nameLocation != kNotFound) {
    check(kind == TagKind::kTag && nameLocation > tagLocation &&
          nameLocation + nameLength < tagLocation + tagLength);
  }
  context.calls.push_back(call);

  const Range tag{tagLocation, std::min(tagLength, length - tagLocation)};
  if (kind != TagKind::kEndOfText) applyAccessors(text, characters, tag, call);
  if (context.scribble) std::fill(characters + textLocation, characters + tag.end(), u'x');
  return context.stopAfter != 0 && context.calls.size() == context.stopAfter;
}

bool CountingHandler(std::u16string_view, char16_t*, std::size_t, std::size_t, std::size_t,
                     std::size_t, std::size_t, TagKind, void* opaque) {
  ++*static_cast<std::size_t*>(opaque);
  return false;
}

void scanText(std::u16string_view input, std::uint8_t options) {
  // An exactly sized copy, so that any read past the end is caught.
  std::unique_ptr<char16_t[]> owned(new char16_t[input.size()]);
  std::copy(input.begin(), input.end(), owned.get());
  const std::u16string_view text(owned.get(), input.size());
  const std::size_t stopAfter = (options >> 1) & 7;

  Context reading;
  reading.stopAfter = stopAfter;
  const bool scanned = GetTagsOfString(text, CheckingHandler, &reading, false);
  check(scanned == !text.empty());
  if (!scanned) return;
  if (stopAfter == 0) check(reading.calls.back().kind == TagKind::kEndOfText);
  if (options & 1) {
    Context scribbling;
    scribbling.stopAfter = stopAfter;
    scribbling.scribble = true;
    check(parseXmlWithHandler(text, CheckingHandler, &scribbling, true));
    check(scribbling.calls == reading.calls);
  }
  // The text itself is never changed by a scan.
  check(std::equal(text.begin(), text.end(), input.begin()));

  std::size_t calls = 0;
  GetTagsOfString(text, CountingHandler, &calls, false);
  std::vector<Range> tags;
  std::vector<Range> texts;
  check(getXml(text, tags, texts) == calls && tags.size() == calls && texts.size() == calls);
  check(getXml(text).size() == calls);
  std::size_t constructs = 0;
  for (const Range& range : tags)
    constructs += range.length > 0;
  check(getXmlTags(text).size() == constructs);
  check(getXmlContents(text).size() <= calls);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > 65536) return 0;
  const std::uint8_t options = data[0];
  ++data;
  --size;
  scanText(std::u16string(data, data + size), options);
  std::u16string units(size / 2, u'\0');
  std::memcpy(units.data(), data, units.size() * sizeof(char16_t));
  scanText(units, options);
  return 0;
}
