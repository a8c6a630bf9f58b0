// Feed item collection and feed pages over arbitrary text (UTF-8 input, at most 64 KiB). Checks
// what holds for any input: items come only from feeds and always carry their six text keys, a
// string that is no feed is returned as it is, and the scan's own page lists exactly the items
// that the item dictionaries render to.
#include <cstddef>
#include <cstdint>
#include <string>

#include "Classes/Json.h"
#include "Classes/Unicode.h"
#include "markup/chartables/CharacterTables.h"
#include "webcontent/Feed2Html.h"
#include "webcontent/FeedDate.h"
#include "webcontent/FeedExtensions.h"

using namespace ferncast;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 64 * 1024) return 0;
  static bool initialised = [] {
    initCharacterTables();
    setDateTimeFormatter([](const Date& d) { return utf8ToUtf16(iso8601(d)); });
    return true;
  }();
  (void)initialised;
  const std::u16string feed = utf8ToUtf16({reinterpret_cast<const char*>(data), size});

  const bool isAFeed = isFeed(feed);
  bool complete = false;
  const bool found = isFeedComplete(feed, &complete);
  if (complete && !found) __builtin_trap();

  const Array items = getItemsOfFeed(feed, URL::URLWithString(u"http://example.com/feed/"));
  if (!items.empty() && !isAFeed) __builtin_trap();
  for (const Value& value : items) {
    const Dictionary* item = value.as<Dictionary>();
    if (!item) __builtin_trap();
    for (const char16_t* key :
         {u"title", u"description", u"content", u"author", u"date", u"link"}) {
      auto entry = item->find(key);
      if (entry == item->end() || !entry->second.is<std::u16string>()) __builtin_trap();
    }
    isEmptyFeedItem(*item);
    stringByConvertingItemToSearchableHTML(*item);
  }

  const std::u16string page = stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(feed, true);
  if (!isAFeed && page != feed) __builtin_trap();
  stringByReplacingLinkedStyleSheet(page);
  if (isAFeed) {
    // The list page's items appear, in full and last, in the feed's page.
    const std::u16string list = stringByConvertingItemsToDisplayHTML(getItemsOfFeed(feed));
    const std::size_t start = list.find(u"<body>\n") + 7;
    const std::u16string body = list.substr(start, list.size() - start - 16);
    if (!body.empty() && (page.size() < body.size() + 16 ||
                          page.compare(page.size() - 16 - body.size(), body.size(), body) != 0)) {
      __builtin_trap();
    }
  }
  stringByConvertingItemsToSearchableHTML(items);
  return 0;
}
