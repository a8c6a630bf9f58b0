// The read-only queries of HtmlExtensions.h.
#include <cmath>
#include <cstdlib>
#include <set>
#include <unordered_set>

#include "Classes/Log.h"
#include "Classes/Unicode.h"
#include "markup/Entities.h"
#include "markup/Html2Text.h"
#include "markup/chartables/NSString+Quill.h"
#include "url/NSString+URLNormalization.h"
#include "url/NSString+URLUtilities.h"
#include "url/NSURL+Quill.h"
#include "webcontent/HtmlExtensions.h"
#include "webcontent/HtmlScan.h"

namespace ferncast {

using html::scan;
using html::Tag;

namespace {

std::u16string trimmed(std::u16string_view s) {
  while (!s.empty() && html::isWhite(s.front()))
    s.remove_prefix(1);
  while (!s.empty() && html::isWhite(s.back()))
    s.remove_suffix(1);
  return std::u16string(s);
}

// Runs of line feeds (with white space between them) become one line feed; white space after the
// last feed of a run stays.
std::u16string removingMultipleFeeds(std::u16string_view s) {
  std::u16string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size();) {
    if (s[i] != u'\n') {
      out += s[i++];
      continue;
    }
    std::size_t lastFeed = i;
    for (std::size_t j = i + 1; j < s.size() && html::isWhite(s[j]); ++j)
      if (s[j] == u'\n') lastFeed = j;
    out += u'\n';
    i = lastFeed + 1;
  }
  return out;
}

void appendJoined(std::optional<std::u16string>& slot, std::u16string_view value) {
  if (slot) {
    *slot += u' ';
    *slot += value;
  } else {
    slot = std::u16string(value);
  }
}

// A meta tag's CONTENT with entities decoded; nullopt when absent or empty.
std::optional<std::u16string> decodedContent(const Tag& tag) {
  std::optional<std::u16string> content = tag.content();
  if (!content) return std::nullopt;
  std::u16string decoded = stringByConvertingEntitiesToCharacters(*content);
  if (decoded.empty()) return std::nullopt;
  return decoded;
}

bool isBody(const Tag& tag) {
  return tag.nameIs(u"body");
}

// getFavIcon: an opening "link" whose REL (13 or more units) contains "shortcut icon".
std::optional<std::u16string> favIconOfTag(const Tag& tag) {
  if (!tag.isOpening() || !tag.nameIs(u"link")) return std::nullopt;
  std::optional<std::u16string> rel = tag.attribute("REL");
  if (!rel || rel->size() < 13 || !containsNoCase(*rel, u"shortcut icon")) return std::nullopt;
  std::optional<std::u16string> href = tag.attribute("HREF");
  return href ? normalizedRelLink(*href) : std::nullopt;
}

std::vector<std::u16string> sorted(std::set<std::u16string>&& set) {
  return std::vector<std::u16string>(std::make_move_iterator(set.begin()),
                                     std::make_move_iterator(set.end()));
}

void addNormalized(std::set<std::u16string>& set, const std::optional<std::u16string>& link) {
  if (!link) return;
  if (std::optional<std::u16string> normalized = normalizedStringURL(*link))
    set.insert(std::move(*normalized));
}

// ---- Links ----

struct RetrieveLinksHandler {
  bool relNoFollow = false;
  LinkTestHandler test = nullptr;
  void* testContext = nullptr;
  std::optional<URL>* base = nullptr;
  std::optional<std::u16string> anchorText;
  std::optional<std::u16string> href;
  std::vector<std::u16string> links;
  std::unordered_set<std::u16string> seen;

  bool noFollow(const Tag& tag) const {
    if (!relNoFollow) return false;
    std::optional<std::u16string> rel = tag.attribute("REL");
    return rel && containsNoCase(*rel, u"nofollow");
  }

  void take(const std::optional<std::u16string>& link) {
    if (!link) return;
    std::optional<std::u16string> normalized = normalizedStringURL(*link);
    if (normalized && seen.insert(*normalized).second) links.push_back(std::move(*normalized));
  }

  bool onTag(const Tag& tag) {
    if (anchorText) anchorText->append(tag.text());
    if (tag.nameLength == 4) {
      if (!tag.isOpening()) return false;
      if (!test && tag.nameIs(u"area")) {
        if (!noFollow(tag)) take(tag.attribute("HREF"));
      } else if (tag.nameIs(u"base")) {
        std::optional<std::u16string> baseHref = tag.attribute("HREF");
        if (baseHref && base) *base = baseURL(*baseHref);
      }
    } else if (tag.nameIs(u"a")) {
      if (!test) {
        if (tag.isOpening() && !noFollow(tag)) take(tag.attribute("HREF"));
      } else if (tag.isOpening()) {
        anchorText.reset();
        href.reset();
        if (noFollow(tag)) return false;
        href = tag.attribute("HREF");
        if (href) {
          anchorText.emplace();
          anchorText->reserve(128);
        }
      } else {
        if (anchorText && href && !href->empty() && test(*href, *anchorText, testContext))
          take(href);
        anchorText.reset();
        href.reset();
      }
    }
    return false;
  }
};

std::vector<std::u16string> retrieveLinks(std::u16string_view html, std::optional<URL>* baseURL,
                                          bool relNoFollow, LinkTestHandler test, void* context) {
  if (baseURL) baseURL->reset();
  RetrieveLinksHandler handler;
  handler.relNoFollow = relNoFollow;
  if (test && context) {
    handler.test = test;
    handler.testContext = context;
  }
  handler.base = baseURL;
  scan(html, handler, handler.test != nullptr);
  return std::move(handler.links);
}

// ContainingHandler: the anchor text holds the phrase (case-sensitive).
bool ContainingHandler(std::u16string_view, std::u16string_view text, void* context) {
  std::u16string_view phrase = *static_cast<std::u16string_view*>(context);
  if (text.empty()) return false;
  if (phrase.size() >= text.size()) return phrase == text;
  return text.find(phrase) != std::u16string_view::npos;
}

// ---- Frames and the page head ----

struct RetrieveLinksAndFramesHandler {
  bool links = false;
  bool feed = false;
  bool documentElement = false;
  HtmlHead head;
  std::optional<URL>* base = nullptr;
  std::set<std::u16string> result;

  void readMeta(const Tag& tag) {
    if (head.refresh) {
      std::optional<std::u16string> equiv = tag.attribute("HTTP-EQUIV");
      if (equiv && equalsNoCase(*equiv, u"refresh")) {
        *head.refresh = tag.content();
        return;
      }
    }
    if (!head.robots && !head.revisit) return;
    std::optional<std::u16string> name = tag.attribute("NAME");
    if (!name) return;
    if (head.robots && equalsNoCase(*name, u"robots")) {
      std::optional<std::u16string> content = tag.content();
      if (!content || content->empty()) return;
      std::optional<std::u16string>& robots = *head.robots;
      if (!robots) {
        robots = std::move(content);
      } else if (!equalsNoCase(*content, *robots)) {
        *robots += u',';
        *robots += *content;
      }
    } else if (head.revisit && equalsNoCase(*name, u"revisit-after")) {
      *head.revisit = tag.content();
    }
  }

  bool onTag(const Tag& tag) {
    if (tag.nameIs(u"html") || tag.nameIs(u"head") || isBody(tag)) {
      documentElement = true;
    } else if (!documentElement &&
               (tag.nameIs(u"rss") || tag.nameIs(u"feed") || tag.nameIs(u"rdf:rdf"))) {
      feed = true;
    }
    bool opening = tag.isOpening();
    if (opening && (tag.nameIs(u"frame") || tag.nameIs(u"iframe"))) {
      addNormalized(result, tag.attribute("SRC"));
    } else if (tag.nameIs(u"title")) {
      if (head.title && tag.isClosed()) *head.title = std::u16string(tag.text());
    } else if (tag.nameIs(u"meta")) {
      readMeta(tag);
    } else if (tag.nameIs(u"link")) {
      if (head.favIcon && !*head.favIcon) *head.favIcon = favIconOfTag(tag);
    } else if (opening && links && (tag.nameIs(u"a") || tag.nameIs(u"area"))) {
      addNormalized(result, tag.attribute("HREF"));
    } else if (opening && tag.nameIs(u"base")) {
      std::optional<std::u16string> href = tag.attribute("HREF");
      if (href && base) *base = baseURL(*href);
    }
    return false;
  }
};

std::vector<std::u16string> retrieveLinksAndFrames(std::u16string_view html, bool links,
                                                   bool* frameSet, std::optional<URL>* baseURL,
                                                   const HtmlHead& head) {
  if (frameSet) *frameSet = false;
  if (baseURL) baseURL->reset();
  for (auto* place : {head.favIcon, head.title, head.refresh, head.robots, head.revisit})
    if (place) place->reset();
  if (head.isFeed) *head.isFeed = false;
  RetrieveLinksAndFramesHandler handler;
  handler.links = links;
  handler.head = head;
  handler.base = baseURL;
  scan(html, handler);
  if (head.isFeed) *head.isFeed = handler.feed;
  return sorted(std::move(handler.result));
}

// ---- Resources ----

struct RetrieveImagesHandler {
  std::set<std::u16string> result;
  bool onTag(const Tag& tag) {
    if (!tag.isOpening()) return false;
    if (tag.nameIs(u"img")) {
      addNormalized(result, tag.attribute("SRC"));
    } else if (tag.nameIs(u"body")) {
      addNormalized(result, tag.attribute("BACKGROUND"));
    } else if (tag.nameIs(u"link")) {
      std::optional<std::u16string> rel = tag.attribute("REL");
      if (!rel || rel->size() < 4) return false;
      if (!containsNoCase(*rel, u"icon") && !containsNoCase(*rel, u"image")) return false;
      std::optional<std::u16string> href = tag.attribute("HREF");
      if (!href) return false;
      if (std::optional<std::u16string> link = normalizedRelLink(*href))
        result.insert(std::move(*link));
    }
    return false;
  }
};

struct RetrieveSheetsAndScriptsHandler {
  std::set<std::u16string> result;

  // addSheetOrScriptToSet: the SRC, or the quoted text after "@import" in the opening tag.
  void addSheetOrScript(const Tag& tag) {
    if (std::optional<std::u16string> src = tag.attribute("SRC")) {
      addNormalized(result, src);
      return;
    }
    std::u16string_view whole = tag.whole();
    std::u16string_view opening = whole.substr(0, whole.find(u'>') + 1);
    std::size_t import = findNoCase(opening, u"@import");
    if (import == std::u16string_view::npos) return;
    std::size_t open = opening.find(u'"', import);
    if (open == std::u16string_view::npos) return;
    std::size_t close = opening.find(u'"', open + 1);
    if (close == std::u16string_view::npos) return;
    addNormalized(result, std::u16string(opening.substr(open + 1, close - open - 1)));
  }

  bool onTag(const Tag& tag) {
    if (!tag.isOpening()) return false;
    if (tag.nameIs(u"link")) {
      std::optional<std::u16string> rel = tag.attribute("REL");
      if (!rel || rel->size() < 5) return false;
      if (!containsNoCase(*rel, u"style") && !containsNoCase(*rel, u"sheet") &&
          !containsNoCase(*rel, u"script"))
        return false;
      std::optional<std::u16string> href = tag.attribute("HREF");
      if (!href) return false;
      if (std::optional<std::u16string> link = normalizedRelLink(*href))
        result.insert(std::move(*link));
    } else if (tag.nameIs(u"style") || tag.nameIs(u"script")) {
      addSheetOrScript(tag);
    }
    return false;
  }
};

struct RetrieveObjectsHandler {
  std::set<std::u16string> result;
  bool onTag(const Tag& tag) {
    if (tag.isOpening() && (tag.nameIs(u"object") || tag.nameIs(u"embed")))
      addNormalized(result, tag.attribute("HREF"));
    return false;
  }
};

// ---- Single values ----

struct RetrieveFavIconHandler {
  std::optional<std::u16string> result;
  bool onTag(const Tag& tag) {
    result = favIconOfTag(tag);
    return result.has_value();
  }
};

struct RetrieveTitleHandler {
  std::u16string title;
  bool onTag(const Tag& tag) {
    if (isBody(tag)) return true;
    if (tag.nameIs(u"title") && tag.isClosed()) {
      title = tag.text();
      return true;
    }
    return false;
  }
};

struct RetrieveDateHandler {
  std::optional<std::u16string> result;

  static bool isDateName(std::u16string_view name) {
    for (std::u16string_view whole : {u"date", u"pdate", u"updated", u"dategen", u"displaydate"})
      if (equalsNoCase(name, whole)) return true;
    for (std::u16string_view start : {u"date.", u"dc.date"})
      if (startsWithNoCase(name, start)) return true;
    for (std::u16string_view end : {u"_date", u"pubDate", u"publicationDate", u"publishDate"})
      if (endsWithNoCase(name, end)) return true;
    return false;
  }

  bool onTag(const Tag& tag) {
    if (isBody(tag)) return true;
    if (!tag.nameIs(u"meta")) return false;
    std::optional<std::u16string> name = tag.attribute("NAME");
    if (!name || !isDateName(*name)) {
      std::optional<std::u16string> equiv = tag.attribute("HTTP-EQUIV");
      if (!equiv || !equalsNoCase(*equiv, u"last-modified")) return false;
    }
    result = decodedContent(tag);
    return result.has_value();
  }
};

struct RetrieveCanonicalURLHandler {
  std::optional<std::u16string> result;
  bool onTag(const Tag& tag) {
    if (isBody(tag)) return true;
    if (!tag.isOpening() || !tag.nameIs(u"link")) return false;
    std::optional<std::u16string> rel = tag.attribute("REL");
    if (!rel || !equalsNoCase(*rel, u"canonical")) return false;
    std::optional<std::u16string> href = tag.attribute("HREF");
    if (!href) return false;
    std::optional<std::u16string> normalized = normalizedStringURL(*href);
    if (!normalized || normalized->starts_with(u'#')) return false;
    result = std::move(normalized);
    return true;
  }
};

struct RetrieveBaseURLHandler {
  std::optional<URL> result;
  bool onTag(const Tag& tag) {
    if (isBody(tag)) return true;
    if (!tag.isOpening() || !tag.nameIs(u"base")) return false;
    std::optional<std::u16string> href = tag.attribute("HREF");
    if (!href) return false;
    result = baseURL(*href);
    return true;
  }
};

// ---- Meta data ----

struct RetrieveMetaAttributeHandler {
  std::string_view attribute;  // "NAME" or "HTTP-EQUIV"
  std::u16string_view first, second;
  std::optional<std::u16string> result;

  bool onTag(const Tag& tag) {
    if (isBody(tag)) return true;
    if (!tag.nameIs(u"meta")) return false;
    std::optional<std::u16string> value = tag.attribute(attribute);
    if (!value ||
        !(equalsNoCase(*value, first) || (!second.empty() && equalsNoCase(*value, second))))
      return false;
    if (std::optional<std::u16string> content = decodedContent(tag)) appendJoined(result, *content);
    return false;
  }
};

std::optional<std::u16string> retrieveMetaAttribute(std::u16string_view html,
                                                    std::string_view attribute,
                                                    std::u16string_view first,
                                                    std::u16string_view second = {}) {
  if (first.empty()) return std::nullopt;
  RetrieveMetaAttributeHandler handler{attribute, first, second, std::nullopt};
  scan(html, handler);
  return handler.result;
}

struct RetrieveMetaDataHandler {
  bool convert = false;
  std::map<std::u16string, std::u16string> result;

  bool onTag(const Tag& tag) {
    if (isBody(tag)) return true;
    if (!tag.nameIs(u"meta")) return false;
    std::optional<std::u16string> name = tag.attribute("NAME");
    if (!name) return false;
    std::optional<std::u16string> content = tag.content();
    if (!content) return false;
    if (convert) {
      std::u16string decoded = stringByConvertingEntitiesToCharacters(*content);
      if (decoded.find_first_of(u"<>") == std::u16string::npos) {
        removeMultipleSpacesAndFeeds(decoded, true);
        content = std::move(decoded);
      } else {
        content = removingMultipleFeeds(stringByConvertingHtml2PlainText(decoded));
      }
    }
    const char16_t* lower = initLowerCharsTable();
    for (char16_t& c : *name)
      c = lower[c];
    auto [entry, inserted] = result.try_emplace(std::move(*name), *content);
    if (!inserted) {
      entry->second += u' ';
      entry->second += *content;
    }
    return false;
  }
};

std::map<std::u16string, std::u16string> retrieveMetaData(std::u16string_view html, bool convert) {
  RetrieveMetaDataHandler handler;
  handler.convert = convert;
  scan(html, handler);
  return std::move(handler.result);
}

struct RetrieveKeywordsDescriptionTitleHandler {
  enum Slot { kKeywords, kDescription, kDCKeywords, kDCDescription, kTitle, kDCTitle, kIndexTitle };
  std::optional<std::u16string> slots[7];

  bool onTag(const Tag& tag) {
    if (tag.nameIs(u"title")) {
      if (!slots[kTitle] && tag.isClosed()) slots[kTitle] = std::u16string(tag.text());
      return false;
    }
    if (!tag.nameIs(u"meta")) return false;
    std::optional<std::u16string> name = tag.attribute("NAME");
    if (!name || name->size() < 5 || name->size() > 14) return false;
    struct Rule {
      std::u16string_view name;
      Slot slot;
      bool joins;
    };
    static constexpr Rule kRules[] = {
        {u"keywords", kKeywords, true},
        {u"dc.keywords", kDCKeywords, true},
        {u"description", kDescription, true},
        {u"dc.description", kDCDescription, true},
        {u"title", kTitle, false},
        {u"dc.title", kDCTitle, false},
        {u"IndexTitle", kIndexTitle, false},
    };
    for (const Rule& rule : kRules) {
      if (!equalsNoCase(*name, rule.name)) continue;
      std::optional<std::u16string>& slot = slots[rule.slot];
      if (!rule.joins && slot) return false;
      if (std::optional<std::u16string> content = decodedContent(tag)) appendJoined(slot, *content);
      return false;
    }
    return false;
  }
};

}  // namespace

// ---- Links ----

std::vector<std::u16string> htmlLinksBaseURL(std::u16string_view html,
                                             std::optional<URL>* baseURL) {
  return retrieveLinks(html, baseURL, false, nullptr, nullptr);
}

std::vector<std::u16string> htmlLinksBaseURL(std::u16string_view html, std::optional<URL>* baseURL,
                                             LinkTestHandler handler, void* context) {
  return retrieveLinks(html, baseURL, false, handler, context);
}

std::vector<std::u16string> htmlLinksContaining(std::u16string_view html,
                                                std::u16string_view phrase, bool useRelNoFollow,
                                                std::optional<URL>* baseURL) {
  if (phrase.empty()) return retrieveLinks(html, baseURL, useRelNoFollow, nullptr, nullptr);
  return retrieveLinks(html, baseURL, useRelNoFollow, ContainingHandler, &phrase);
}

std::vector<std::u16string> filteredHtmlLinksBaseURL(std::u16string_view html,
                                                     std::optional<URL>* baseURL) {
  return htmlLinksBaseURL(html, baseURL);
}

std::vector<std::u16string> filteredHtmlLinksBaseURL(std::u16string_view html,
                                                     std::optional<URL>* baseURL,
                                                     LinkTestHandler handler, void* context) {
  return htmlLinksBaseURL(html, baseURL, handler, context);
}

std::vector<std::u16string> filteredHtmlLinksContaining(std::u16string_view html,
                                                        std::u16string_view phrase,
                                                        bool useRelNoFollow,
                                                        std::optional<URL>* baseURL) {
  return htmlLinksContaining(html, phrase, useRelNoFollow, baseURL);
}

bool filterLink(std::u16string_view link) {
  if (link.size() == 1)
    return std::u16string_view(u"#&-:").find(link[0]) != std::u16string_view::npos;
  std::size_t scheme = 0;
  while (scheme < link.size() &&
         (((link[scheme] | 0x20) >= u'a' && (link[scheme] | 0x20) <= u'z') || link[scheme] == u'-'))
    ++scheme;
  if (scheme == 0 || scheme >= link.size() || link[scheme] != u':') return false;
  std::size_t withColon = scheme + 1;
  if (withColon == link.size() || link[withColon] != u'/') return !isFeedStringURL(link);
  if (scheme >= 3 && scheme <= 12) {
    auto startsWithAny = [&](std::initializer_list<std::u16string_view> prefixes) {
      for (std::u16string_view prefix : prefixes)
        if (startsWithNoCase(link, prefix)) return true;
      return false;
    };
    switch (withColon) {
      case 4:
        if (startsWithAny({u"irc:", u"icq:", u"aim:"})) return true;
        break;
      case 5:
        if (startsWithAny({u"rdar:", u"data:"})) return true;
        break;
      case 6:
        if (startsWithAny({u"about:", u"ymsgr:", u"sword:"})) return true;
        break;
      case 7:
        if (startsWithAny({u"webcal:", u"callto:"})) return true;
        break;
      case 9:
        if (startsWithAny({u"sherlock:"})) return true;
        break;
      case 11:
        if (isJavaScriptStringURL(link) || startsWithAny({u"x-man-page:"})) return true;
        break;
      case 12:
        if (isAppleScriptStringURL(link)) return true;
        break;
      case 13:
        if (startsWithAny({u"quilladdress:"})) return true;
        break;
      default:
        break;
    }
  }
  return withColon >= 8 && startsWithNoCase(link, u"x-quill");
}

std::optional<URL> baseURL(std::u16string_view href) {
  std::optional<std::u16string> normalized = normalizedStringURL(href);
  if (!normalized || normalized->starts_with(u'#')) return std::nullopt;
  std::optional<URL> url = URL::URLWithNormalizedStringURL(*normalized);
  if (url && isRemoteWebKitURL(*url)) return url;
  NSLog(u"Invalid base: " + *normalized);
  return std::nullopt;
}

// ---- Frames and the page head ----

std::vector<std::u16string> htmlFramesBaseURL(std::u16string_view html,
                                              std::optional<URL>* baseURL) {
  return retrieveLinksAndFrames(html, false, nullptr, baseURL, {});
}

std::vector<std::u16string> htmlFramesSet(std::u16string_view html, bool* frameSet,
                                          std::optional<URL>* baseURL) {
  return retrieveLinksAndFrames(html, false, frameSet, baseURL, {});
}

std::vector<std::u16string> htmlFramesSet(std::u16string_view html, bool* frameSet,
                                          std::optional<URL>* baseURL, const HtmlHead& head) {
  return retrieveLinksAndFrames(html, false, frameSet, baseURL, head);
}

std::vector<std::u16string> htmlLinksAndFramesBaseURL(std::u16string_view html,
                                                      std::optional<URL>* baseURL) {
  return retrieveLinksAndFrames(html, true, nullptr, baseURL, {});
}

std::vector<std::u16string> htmlLinksAndFramesSet(std::u16string_view html, bool* frameSet,
                                                  std::optional<URL>* baseURL) {
  return retrieveLinksAndFrames(html, true, frameSet, baseURL, {});
}

std::vector<std::u16string> htmlLinksAndFramesSet(std::u16string_view html, bool* frameSet,
                                                  std::optional<URL>* baseURL,
                                                  const HtmlHead& head) {
  return retrieveLinksAndFrames(html, true, frameSet, baseURL, head);
}

std::optional<double> revisitAfter(std::u16string_view value) {
  std::string text = utf16ToUtf8(value);
  const char* start = text.c_str();
  while (*start == ' ' || *start == '\t')
    ++start;
  if (!(*start >= '0' && *start <= '9') && *start != '.') return std::nullopt;
  char* end = nullptr;
  double number = std::strtod(start, &end);
  if (end == start || !std::isfinite(number)) return std::nullopt;
  std::u16string unit = trimmed(utf8ToUtf16(end));
  constexpr double kDay = 86400;
  struct Unit {
    std::u16string_view prefix;
    double seconds;
  };
  static constexpr Unit kUnits[] = {{u"s", 1},         {u"mi", 60},      {u"h", 3600},
                                    {u"d", kDay},      {u"w", 7 * kDay}, {u"mo", 30 * kDay},
                                    {u"y", 365 * kDay}};
  if (unit.empty()) return number * kDay;
  for (const Unit& u : kUnits)
    if (startsWithNoCase(unit, u.prefix)) return number * u.seconds;
  return std::nullopt;
}

// ---- Resources ----

std::vector<std::u16string> htmlImages(std::u16string_view html) {
  RetrieveImagesHandler handler;
  scan(html, handler);
  return sorted(std::move(handler.result));
}

std::vector<std::u16string> htmlStylesheetsAndScripts(std::u16string_view html) {
  RetrieveSheetsAndScriptsHandler handler;
  scan(html, handler);
  return sorted(std::move(handler.result));
}

std::vector<std::u16string> htmlEmbeddedObjects(std::u16string_view html) {
  RetrieveObjectsHandler handler;
  scan(html, handler);
  return sorted(std::move(handler.result));
}

// ---- Single values ----

std::optional<std::u16string> htmlFavIcon(std::u16string_view html) {
  RetrieveFavIconHandler handler;
  scan(html, handler);
  return handler.result;
}

std::u16string htmlTitle(std::u16string_view html) {
  RetrieveTitleHandler handler;
  scan(html, handler);
  return std::move(handler.title);
}

std::u16string normalizedHtmlTitle(std::u16string_view html) {
  std::u16string title = htmlTitle(html);
  if (title.empty()) return title;
  return trimmed(stringByConvertingEntitiesToCharacters(title));
}

std::optional<std::u16string> htmlDate(std::u16string_view html) {
  RetrieveDateHandler handler;
  scan(html, handler);
  return handler.result;
}

std::optional<std::u16string> htmlCanonicalURL(std::u16string_view html) {
  RetrieveCanonicalURLHandler handler;
  scan(html, handler);
  return handler.result;
}

std::optional<URL> htmlBaseURL(std::u16string_view html) {
  RetrieveBaseURLHandler handler;
  scan(html, handler);
  return handler.result;
}

// ---- Meta data ----

std::map<std::u16string, std::u16string> htmlMetaAttributes(std::u16string_view html) {
  return retrieveMetaData(html, false);
}

std::map<std::u16string, std::u16string> htmlMetaAttributesByConvertingEntitiesToCharacters(
    std::u16string_view html) {
  return retrieveMetaData(html, true);
}

std::optional<std::u16string> htmlMetaAttributeWithName(std::u16string_view html,
                                                        std::u16string_view name) {
  return retrieveMetaAttribute(html, "NAME", name);
}

std::optional<std::u16string> htmlMetaHTTPEquiv(std::u16string_view html,
                                                std::u16string_view name) {
  return retrieveMetaAttribute(html, "HTTP-EQUIV", name);
}

std::optional<std::u16string> htmlMetaTitle(std::u16string_view html) {
  return retrieveMetaAttribute(html, "NAME", u"title", u"dc.title");
}

std::optional<std::u16string> htmlMetaIndexTitle(std::u16string_view html) {
  return retrieveMetaAttribute(html, "NAME", u"IndexTitle");
}

std::optional<std::u16string> htmlMetaKeywords(std::u16string_view html) {
  return retrieveMetaAttribute(html, "NAME", u"keywords", u"dc.keywords");
}

std::optional<std::u16string> htmlMetaDescription(std::u16string_view html) {
  return retrieveMetaAttribute(html, "NAME", u"description", u"dc.description");
}

std::optional<std::u16string> htmlMetaDate(std::u16string_view html) {
  return retrieveMetaAttribute(html, "NAME", u"date", u"dc.date");
}

std::optional<std::u16string> htmlMetaAuthor(std::u16string_view html) {
  return retrieveMetaAttribute(html, "NAME", u"author", u"dc.author");
}

std::optional<std::u16string> htmlMetaCopyright(std::u16string_view html) {
  return retrieveMetaAttribute(html, "NAME", u"copyright", u"dc.rights");
}

std::optional<std::u16string> htmlMetaRefresh(std::u16string_view html) {
  return retrieveMetaAttribute(html, "HTTP-EQUIV", u"refresh");
}

void htmlMetaKeywords(std::u16string_view html, std::optional<std::u16string>* keywords,
                      std::optional<std::u16string>* description,
                      std::optional<std::u16string>* title,
                      std::optional<std::u16string>* indexTitle) {
  using Handler = RetrieveKeywordsDescriptionTitleHandler;
  if (!keywords && !description && !title && !indexTitle) return;
  Handler handler;
  scan(html, handler);
  auto either = [&](Handler::Slot first, Handler::Slot second) {
    return handler.slots[first] ? handler.slots[first] : handler.slots[second];
  };
  if (keywords) *keywords = either(Handler::kKeywords, Handler::kDCKeywords);
  if (description) *description = either(Handler::kDescription, Handler::kDCDescription);
  if (title) *title = either(Handler::kDCTitle, Handler::kTitle);
  if (indexTitle) *indexTitle = handler.slots[Handler::kIndexTitle];
}

bool isHTML(std::u16string_view string) {
  while (!string.empty() && html::isWhite(string.front()))
    string.remove_prefix(1);
  while (!string.empty() && html::isWhite(string.back()))
    string.remove_suffix(1);
  if (string.size() < 6 || string.front() != u'<' || string.back() != u'>') return false;
  return findNoCase(string, u"<!DOCTYPE HTML") != std::u16string_view::npos ||
         findNoCase(string, u"<HTML") != std::u16string_view::npos ||
         findNoCase(string, u"<TITLE>") != std::u16string_view::npos;
}

}  // namespace ferncast
