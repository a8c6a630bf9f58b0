// Private to webcontent/: the feed scan shared by item collection (FeedExtensions.cpp) and feed
// pages (Feed2Html.cpp). One handler, Feed2HTMLHandler, serves both; the context's mode chooses
// whether a finished item becomes a dictionary or is written to the page.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Classes/PropertyList.h"
#include "markup/XmlExtensions.h"
#include "url/URL.h"

namespace ferncast::feed {

enum class Mode { kItems, kHtml };

// Elements whose text is read between their opening and closing tags.
enum Field : std::size_t {
  kTitle,
  kDate,
  kDescription,
  kContent,
  kAuthor,
  kLink,
  kGuid,
  kCategory,
  kName,   // inside an author block
  kEmail,  // inside an author block
  kFieldCount
};

// An element being read: its content starts at `start`; `name` is its tag name, to match the
// closing tag; `depth` counts nested elements of the same name.
struct OpenElement {
  bool open = false;
  std::size_t start = 0;
  std::u16string_view name;
  std::size_t depth = 0;
};

struct Context {
  Mode mode = Mode::kItems;
  const URL* baseURL = nullptr;

  // Item mode.
  Array items;

  // The current item.
  bool inItem = false;
  std::optional<std::u16string> title, date, description, content, author, link;
  bool linkFromElement = false;  // the link came from a link element, not a guid
  bool guidIsPermaLink = true;
  std::optional<std::u16string> authorName, authorEmail;
  Array tags, enclosures;

  std::array<OpenElement, kFieldCount> elements;

  // Feed root and page state.
  bool rootFound = false;  // before any html, head or body tag (the scan stops at those)
  bool bodyOpen = false;
  std::u16string* output = nullptr;  // HTML mode
};

// The scanner handler (markup/XmlExtensions.h TagHandler) over a Context.
bool Feed2HTMLHandler(std::u16string_view string, char16_t* characters, std::size_t nameLocation,
                      std::size_t nameLength, std::size_t tagLocation, std::size_t tagLength,
                      std::size_t textLocation, TagKind kind, void* context);

// Drops whatever the context still holds (an unfinished item, open elements, collected items).
void ReleaseFeedContext(Context& context);

// An element's text (see FeedExtensions.h): CDATA insides as written, entities decoded elsewhere
// (keeping the standard four when the content holds markup), trimmed; nullopt when empty.
std::optional<std::u16string> GetFeedContent(std::u16string_view content);

// The page start and, when `withStyle` and a style sheet is set, its link or inline element.
void CreateFeedHead(std::u16string& output, bool linkedStyleSheet, bool withStyle);

// One item of a page. Absent values count as empty; `enclosures` may be null.
void AppendItem2Feed(std::u16string& output, const std::u16string* title,
                     const std::u16string* content, const std::u16string* description,
                     const std::u16string* link, const std::u16string* date,
                     const std::u16string* author, const Array* enclosures);

}  // namespace ferncast::feed
