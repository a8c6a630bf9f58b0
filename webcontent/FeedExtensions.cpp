// Feed detection and the feed scan (Feed2HTMLHandler) in both of its modes.
#include "webcontent/FeedExtensions.h"

#include <string>

#include "markup/chartables/CharacterTables.h"
#include "markup/Entities.h"
#include "markup/chartables/NSString+Quill.h"
#include "markup/chartables/NSString+QuillCompare.h"
#include "markup/XmlExtensions.h"
#include "url/NSString+URLUtilities.h"
#include "webcontent/Feed2Html.h"
#include "webcontent/FeedContext.h"
#include "webcontent/FeedDate.h"
#include "webcontent/HtmlExtensions.h"

namespace ferncast {
namespace feed {
namespace {

// ---- Names ----

bool nameIs(std::u16string_view name, std::string_view upper) {
  return equalsNoCase(name, upper);
}

// What a tag name means to the feed scan.
enum class Role {
  kOther,
  kRoot,   // rss, rdf:RDF, feed
  kHtml,   // html, head, body
  kItem,   // item, entry
  kField,  // see Field
  kEnclosure,
};

struct Meaning {
  Role role = Role::kOther;
  Field field = kFieldCount;
};

Meaning meaningOf(std::u16string_view name) {
  auto field = [](Field f) { return Meaning{Role::kField, f}; };
  switch (name.size()) {
    case 3:
      if (nameIs(name, "RSS")) return {Role::kRoot};
      break;
    case 4:
      if (nameIs(name, "ITEM")) return {Role::kItem};
      if (nameIs(name, "LINK")) return field(kLink);
      if (nameIs(name, "GUID")) return field(kGuid);
      if (nameIs(name, "NAME")) return field(kName);
      if (nameIs(name, "FEED")) return {Role::kRoot};
      if (nameIs(name, "HTML") || nameIs(name, "HEAD") || nameIs(name, "BODY")) {
        return {Role::kHtml};
      }
      break;
    case 5:
      if (nameIs(name, "TITLE")) return field(kTitle);
      if (nameIs(name, "ENTRY")) return {Role::kItem};
      if (nameIs(name, "EMAIL")) return field(kEmail);
      break;
    case 6:
      if (nameIs(name, "AUTHOR")) return field(kAuthor);
      if (nameIs(name, "ISSUED")) return field(kDate);
      break;
    case 7:
      if (nameIs(name, "PUBDATE") || nameIs(name, "UPDATED") || nameIs(name, "DC:DATE")) {
        return field(kDate);
      }
      if (nameIs(name, "CONTENT")) return field(kContent);
      if (nameIs(name, "SUMMARY")) return field(kDescription);
      if (nameIs(name, "RDF:RDF")) return {Role::kRoot};
      break;
    case 8:
      if (nameIs(name, "CATEGORY")) return field(kCategory);
      break;
    case 9:
      if (nameIs(name, "PUBLISHED")) return field(kDate);
      if (nameIs(name, "ENCLOSURE")) return {Role::kEnclosure};
      break;
    case 10:
      if (nameIs(name, "DC:CREATOR")) return field(kAuthor);
      break;
    case 11:
      if (nameIs(name, "DESCRIPTION")) return field(kDescription);
      break;
    case 15:
      if (nameIs(name, "CONTENT:ENCODED")) return field(kContent);
      break;
  }
  return {};
}

// ---- Values ----

std::optional<std::u16string> standardAttribute(const char16_t* characters, Range range,
                                                std::string_view name) {
  std::optional<std::u16string> value = attributeOfTagCharacters(characters, range, name);
  if (value) value = stringByConvertingStandardEntitiesToCharacters(*value);
  return value;
}

std::optional<std::u16string>* slotOf(Context& c, Field field) {
  switch (field) {
    case kTitle:
      return &c.title;
    case kDate:
      return &c.date;
    case kDescription:
      return &c.description;
    case kContent:
      return &c.content;
    case kAuthor:
      return &c.author;
    default:
      return nullptr;
  }
}

// The clean-up of an item's link when the item ends.
std::u16string cleanLink(std::u16string link, const URL* baseURL) {
  if (baseURL && !link.empty() && link[0] == u'/') {
    if (std::optional<URL> relative = URL::URLWithString(link)) {
      if (std::optional<URL> absolute = relative->URLRelativeTo(*baseURL)) {
        link = absolute->absoluteString();
      }
    }
  }
  static constexpr std::u16string_view kRedirect = u"http://news.google.com/news/url?";
  if (startsWithNoCase(link, kRedirect)) {
    std::size_t target = link.find(u"&url=http", kRedirect.size());
    if (target != std::u16string::npos) {
      target += 5;
      std::size_t end = link.find(u"&cid=", target);
      link = link.substr(target, end == std::u16string::npos ? end : end - target);
    }
  }
  static constexpr std::u16string_view kAnchor = u"<a href=";
  if (startsWithNoCase(link, kAnchor)) {
    std::size_t start = kAnchor.size();
    std::size_t end;
    if (start < link.size() && (link[start] == u'"' || link[start] == u'\'')) {
      end = link.find(link[start], start + 1);
      ++start;
    } else {
      end = link.find_first_of(u" \t\r\n>", start);
    }
    link = link.substr(start, end == std::u16string::npos ? end : end - start);
  }
  return link;
}

void clearItem(Context& c) {
  c.title.reset();
  c.date.reset();
  c.description.reset();
  c.content.reset();
  c.author.reset();
  c.link.reset();
  c.linkFromElement = false;
  c.guidIsPermaLink = true;
  c.authorName.reset();
  c.authorEmail.reset();
  c.tags.clear();
  c.enclosures.clear();
  c.elements.fill(OpenElement());
}

const std::u16string kEmpty;

void finishItem(Context& c) {
  std::u16string link = cleanLink(c.link.value_or(kEmpty), c.baseURL);
  if (c.mode == Mode::kHtml) {
    AppendItem2Feed(*c.output, c.title ? &*c.title : nullptr, c.content ? &*c.content : nullptr,
                    c.description ? &*c.description : nullptr, &link, c.date ? &*c.date : nullptr,
                    c.author ? &*c.author : nullptr, &c.enclosures);
  } else {
    Dictionary item;
    item.emplace(u"title", c.title.value_or(kEmpty));
    item.emplace(u"description", c.description.value_or(kEmpty));
    item.emplace(u"content", c.content.value_or(kEmpty));
    item.emplace(u"author", c.author.value_or(kEmpty));
    if (!c.tags.empty()) item.emplace(u"tags", std::move(c.tags));
    if (!c.enclosures.empty()) item.emplace(u"enclosures", std::move(c.enclosures));
    if (c.date) {
      if (std::optional<Date> when = ferncast::date(*c.date)) item.emplace(u"calendarDate", *when);
    }
    item.emplace(u"date", c.date.value_or(kEmpty));
    item.emplace(u"link", std::move(link));
    c.items.emplace_back(std::move(item));
  }
  clearItem(c);
  c.inItem = false;
}

// The element `field` has been read: `text` is its content.
void finishElement(Context& c, Field field, std::u16string_view text) {
  std::optional<std::u16string> value = GetFeedContent(text);
  switch (field) {
    case kTitle:
      if (!c.inItem) {  // the feed's own title, while the page head is open
        if (value) {
          *c.output += u"<title>";
          std::u16string title =
              stringByConvertingBufferToEntities(value->data(), value->size(), false);
          *c.output += title;
          *c.output +=
              u"</title>\n</head>\n<body><div class=\"page_header\"><div "
              u"class=\"page_title\"><nobr>";
          *c.output += title;
          *c.output += u"</nobr></div></div>\n";
        } else {
          *c.output += u"</head>\n<body>\n";
        }
        c.bodyOpen = true;
        return;
      }
      break;
    case kAuthor:
      if (c.authorName && c.authorEmail) {
        value = *c.authorName + u" (" + *c.authorEmail + u")";
      } else if (c.authorName || c.authorEmail) {
        value = c.authorName ? std::move(c.authorName) : std::move(c.authorEmail);
      }
      c.authorName.reset();
      c.authorEmail.reset();
      c.elements[kName] = c.elements[kEmail] = OpenElement();
      break;
    case kLink:
      if (value && !c.linkFromElement) {
        c.link = std::move(value);
        c.linkFromElement = true;
      }
      return;
    case kGuid:
      if (value && c.guidIsPermaLink && !c.link && isRemoteWebKitStringURL(*value)) {
        c.link = std::move(value);
      }
      return;
    case kCategory:
      if (value) c.tags.emplace_back(*value);
      return;
    case kName:
      if (!c.authorName) c.authorName = std::move(value);
      return;
    case kEmail:
      if (!c.authorEmail) c.authorEmail = std::move(value);
      return;
    default:
      break;
  }
  std::optional<std::u16string>* slot = slotOf(c, field);
  if (slot && !*slot && value) *slot = std::move(value);
}

// Whether an opening tag of `field` starts reading an element now.
bool wantsElement(const Context& c, Field field) {
  switch (field) {
    case kTitle:
      return c.inItem ? !c.title : c.mode == Mode::kHtml && !c.bodyOpen;
    case kDate:
      return c.inItem && !c.date;
    case kDescription:
      return c.inItem && !c.description;
    case kContent:
      return c.inItem && !c.content;
    case kAuthor:
      return c.inItem && !c.author;
    case kLink:
      return c.inItem && !c.linkFromElement;
    case kGuid:
      return c.inItem && !c.link;
    case kCategory:
      return c.inItem;
    case kName:
    case kEmail:
      return c.elements[kAuthor].open;
    default:
      return false;
  }
}

// A link element: ignored for management RELs; its HREF, or else its text, is the link.
// True when the text is to be read.
bool linkElement(Context& c, const char16_t* characters, Range range) {
  if (std::optional<std::u16string> rel = attributeOfTagCharacters(characters, range, "REL")) {
    if (equalsNoCase(*rel, u"edit") || equalsNoCase(*rel, u"self") ||
        startsWithNoCase(*rel, u"service.")) {
      return false;
    }
  }
  if (std::optional<std::u16string> href = standardAttribute(characters, range, "HREF")) {
    c.link = std::move(href);
    c.linkFromElement = true;
    return false;
  }
  return true;
}

void openElement(Context& c, Field field, const char16_t* characters, Range range,
                 std::u16string_view name, bool selfClosing) {
  OpenElement& element = c.elements[field];
  if (element.open) {
    if (!selfClosing && equalsNoCase(element.name, name)) ++element.depth;
    return;
  }
  if (!wantsElement(c, field)) return;
  switch (field) {
    case kLink:
      if (!linkElement(c, characters, range)) return;
      break;
    case kGuid: {
      std::optional<std::u16string> permaLink =
          attributeOfTagCharacters(characters, range, "ISPERMALINK");
      c.guidIsPermaLink = !permaLink || !equalsNoCase(*permaLink, u"false");
      break;
    }
    case kCategory:
      if (std::optional<std::u16string> term = standardAttribute(characters, range, "TERM")) {
        c.tags.emplace_back(std::move(*term));
        return;
      }
      break;
    default:
      break;
  }
  if (selfClosing) return;
  element = {true, range.end(), name, 0};
}

void closeElement(Context& c, Field field, std::u16string_view string, std::size_t tagLocation,
                  std::u16string_view name) {
  OpenElement& element = c.elements[field];
  if (!element.open || !equalsNoCase(element.name, name)) return;
  if (element.depth) {
    --element.depth;
    return;
  }
  element.open = false;
  finishElement(c, field, string.substr(element.start, tagLocation - element.start));
}

void startItem(Context& c) {
  clearItem(c);
  c.inItem = true;
  if (c.mode == Mode::kHtml && !c.bodyOpen) {
    *c.output += u"</head>\n<body>\n";
    c.bodyOpen = true;
  }
}

}  // namespace

bool Feed2HTMLHandler(std::u16string_view string, char16_t* characters, std::size_t nameLocation,
                      std::size_t nameLength, std::size_t tagLocation, std::size_t tagLength,
                      std::size_t, TagKind kind, void* pointer) {
  if (kind != TagKind::kTag || nameLocation == kNotFound) return false;
  Context& c = *static_cast<Context*>(pointer);
  const std::u16string_view name = string.substr(nameLocation, nameLength);
  const Meaning meaning = meaningOf(name);
  if (meaning.role == Role::kOther) return false;

  const Range range{tagLocation, std::min(tagLength, string.size() - tagLocation)};
  const bool closing = range.length >= 3 && characters[tagLocation + 1] == u'/';
  const bool opening = range.length >= 3 && !closing;
  const bool selfClosing = opening && characters[range.end() - 2] == u'/';

  switch (meaning.role) {
    case Role::kRoot:
      c.rootFound = true;
      break;
    case Role::kHtml:
      // A page that begins as HTML is no feed: nothing of it would be used.
      return !c.rootFound;
    case Role::kItem:
      if (!c.rootFound) break;
      if (opening && !selfClosing) {
        startItem(c);
      } else if (closing && c.inItem) {
        finishItem(c);
      }
      break;
    case Role::kEnclosure:
      if (c.inItem && opening) {
        c.enclosures.emplace_back(dictionaryWithObjectsAndKeys(
            {{u"url", standardAttribute(characters, range, "URL")},
             {u"length", standardAttribute(characters, range, "LENGTH")}}));
      }
      break;
    case Role::kField:
      if (!c.rootFound) break;
      if (opening) {
        openElement(c, meaning.field, characters, range, name, selfClosing);
      } else if (closing) {
        closeElement(c, meaning.field, string, tagLocation, name);
      }
      break;
    case Role::kOther:
      break;
  }
  return false;
}

void ReleaseFeedContext(Context& context) {
  clearItem(context);
  context.inItem = false;
  context.items.clear();
}

namespace {

bool isSpace(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

// The end of a tag's attribute starting at `i` (its name, "=" and its value, quoted or not).
std::size_t attributeEnd(std::u16string_view tag, std::size_t i) {
  while (i < tag.size() && !isSpace(tag[i]) && tag[i] != u'=' && tag[i] != u'>' && tag[i] != u'/')
    ++i;
  std::size_t j = i;
  while (j < tag.size() && isSpace(tag[j]))
    ++j;
  if (j == tag.size() || tag[j] != u'=') return i;
  ++j;
  while (j < tag.size() && isSpace(tag[j]))
    ++j;
  if (j < tag.size() && (tag[j] == u'"' || tag[j] == u'\'')) {
    std::size_t close = tag.find(tag[j], j + 1);
    return close == std::u16string_view::npos ? tag.size() : close + 1;
  }
  while (j < tag.size() && !isSpace(tag[j]) && tag[j] != u'>')
    ++j;
  return j;
}

// Appends markup without its XML namespace declarations ("xmlns" and "xmlns:..." attributes),
// which mean nothing in HTML.
void appendWithoutNamespaceDeclarations(std::u16string& out, std::u16string_view markup) {
  char16_t quote = 0;
  bool inTag = false;
  for (std::size_t i = 0; i < markup.size(); ++i) {
    const char16_t c = markup[i];
    if (inTag && quote) {
      if (c == quote) quote = 0;
    } else if (inTag && (c == u'"' || c == u'\'')) {
      quote = c;
    } else if (inTag && c == u'>') {
      inTag = false;
    } else if (!inTag && c == u'<') {
      inTag = true;
    } else if (inTag && isSpace(c) && markup.substr(i + 1).starts_with(u"xmlns") &&
               i + 6 < markup.size() &&
               (markup[i + 6] == u'=' || markup[i + 6] == u':' || isSpace(markup[i + 6]))) {
      i = attributeEnd(markup, i + 1) - 1;
      continue;
    }
    out += c;
  }
}

}  // namespace

std::optional<std::u16string> GetFeedContent(std::u16string_view content) {
  static constexpr std::u16string_view kOpen = u"<![CDATA[", kClose = u"]]>";
  // Calls f(segment, isCData) for the runs outside and inside CDATA sections, in order.
  auto segments = [&](auto&& f) {
    std::size_t position = 0;
    while (position < content.size()) {
      std::size_t open = content.find(kOpen, position);
      f(content.substr(position, open == std::u16string_view::npos ? open : open - position),
        false);
      if (open == std::u16string_view::npos) return;
      std::size_t inside = open + kOpen.size();
      std::size_t close = content.find(kClose, inside);
      f(content.substr(inside, close == std::u16string_view::npos ? close : close - inside), true);
      if (close == std::u16string_view::npos) return;
      position = close + kClose.size();
    }
  };
  bool markup = false;
  segments([&](std::u16string_view segment, bool cdata) {
    if (!cdata && segment.find(u'<') != std::u16string_view::npos) markup = true;
  });
  const bool decode = content.size() >= 4;
  std::u16string text;
  text.reserve(content.size());
  segments([&](std::u16string_view segment, bool cdata) {
    std::size_t start = text.size();
    if (markup && !cdata) {
      appendWithoutNamespaceDeclarations(text, segment);
    } else {
      text += segment;
    }
    if (cdata || !decode || text.size() == start) return;
    std::size_t length = convertEntities2Characters(text.data() + start, text.data() + start, 0,
                                                    text.size() - start, !markup, false, false);
    text.resize(start + length);
  });
  const std::uint8_t* white = whiteCharacterSetRep();
  std::size_t begin = 0, end = text.size();
  while (begin < end && characterIsMember(white, text[begin]))
    ++begin;
  while (end > begin && characterIsMember(white, text[end - 1]))
    --end;
  if (begin == end) return std::nullopt;
  return text.substr(begin, end - begin);
}

}  // namespace feed

namespace {

// The feed root names: "rss", "rdf:RDF", "feed".
bool isRootName(std::u16string_view name) {
  return feed::nameIs(name, "RSS") || feed::nameIs(name, "RDF:RDF") || feed::nameIs(name, "FEED");
}

bool RetrieveFeedHandler(std::u16string_view string, char16_t*, std::size_t nameLocation,
                         std::size_t nameLength, std::size_t, std::size_t, std::size_t, TagKind,
                         void* context) {
  if (nameLocation == kNotFound) return false;
  const std::u16string_view name = string.substr(nameLocation, nameLength);
  if (isRootName(name)) {
    *static_cast<bool*>(context) = true;
    return true;
  }
  return feed::nameIs(name, "HTML") || feed::nameIs(name, "HEAD") || feed::nameIs(name, "BODY");
}

struct Completeness {
  bool found = false;
  bool complete = false;
};

bool RetrieveCompleteFeedHandler(std::u16string_view string, char16_t* characters,
                                 std::size_t nameLocation, std::size_t nameLength,
                                 std::size_t tagLocation, std::size_t tagLength, std::size_t,
                                 TagKind, void* context) {
  if (nameLocation == kNotFound || !isRootName(string.substr(nameLocation, nameLength))) {
    return false;
  }
  auto& result = *static_cast<Completeness*>(context);
  result.found = true;
  const std::size_t length = std::min(tagLength, string.size() - tagLocation);
  if (length >= 4 &&
      (characters[tagLocation + 1] == u'/' || characters[tagLocation + length - 2] == u'/')) {
    result.complete = true;
    return true;
  }
  return false;
}

}  // namespace

bool isFeed(std::u16string_view string) {
  bool found = false;
  parseXmlWithHandler(string, RetrieveFeedHandler, &found, false);
  return found;
}

bool isFeedComplete(std::u16string_view string, bool* complete) {
  Completeness result;
  parseXmlWithHandler(string, RetrieveCompleteFeedHandler, &result, false);
  if (complete) *complete = result.complete;
  return result.found;
}

Array getItemsOfFeed(std::u16string_view string, const std::optional<URL>& baseURL) {
  feed::Context context;
  context.mode = feed::Mode::kItems;
  context.baseURL = baseURL ? &*baseURL : nullptr;
  parseXmlWithHandler(string, feed::Feed2HTMLHandler, &context, false);
  Array items;
  if (context.rootFound) items = std::move(context.items);
  feed::ReleaseFeedContext(context);
  return items;
}

Array getItemsOfFeed(std::u16string_view string) {
  return getItemsOfFeed(string, std::nullopt);
}

bool isEmptyFeedItem(const Dictionary& item) {
  auto stringFor = [&](std::u16string_view key) -> const std::u16string* {
    auto entry = item.find(std::u16string(key));
    return entry == item.end() ? nullptr : entry->second.as<std::u16string>();
  };
  const std::u16string* text = stringFor(u"content");
  if (!text || text->empty()) text = stringFor(u"description");
  if (!text) return true;
  if (isWhiteString(*text)) return true;
  const std::u16string* title = stringFor(u"title");
  std::optional<std::u16string_view> titleView;
  if (title) titleView = *title;
  if (isEqualToStringNoCase(*text, titleView)) return true;
  if (title && equalStringsNoCaseUsingCharacterSetRep(*text, *title, alphaCharacterSetRep())) {
    return true;
  }
  std::optional<std::u16string> withoutFrames = stripTag(*text, "IFRAME");
  return withoutFrames && isEqualToStringNoCase(*withoutFrames, titleView);
}

}  // namespace ferncast
