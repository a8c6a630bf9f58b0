// Feed pages: the page head, items, enclosures and the style-sheet swap.
#include "webcontent/Feed2Html.h"

#include <climits>
#include <fstream>
#include <iterator>
#include <mutex>

#include "Classes/Unicode.h"
#include "markup/MarkupDecoding.h"
#include "markup/chartables/NSString+QuillCompare.h"
#include "webcontent/FeedContext.h"
#include "webcontent/FeedDate.h"
#include "webcontent/HtmlExtensions.h"

namespace ferncast {
namespace {

constexpr std::u16string_view kPageStart =
    u"<html>\n<head>\n<meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\"/>\n";
constexpr std::u16string_view kLinkedStyleStart =
    u"<link rel=\"stylesheet\" type=\"text/css\" href=\"";
constexpr std::u16string_view kLinkedStyleEnd = u"\"/>\n";
constexpr std::u16string_view kHeadEnd = u"</head>\n<body>\n";
constexpr std::u16string_view kPageEnd = u"\n</body>\n</html>";
constexpr std::u16string_view kHeadOnlyEnd = u"\n</head>\n</html>";

std::mutex styleSheetMutex;
std::optional<std::u16string>& styleSheetSetting() {
  static std::optional<std::u16string> path;
  return path;
}

void appendEntities(std::u16string& output, std::u16string_view text) {
  output += stringByConvertingBufferToEntities(text.data(), text.size(), false);
}

// The file's contents when they are UTF-8.
std::optional<std::u16string> styleSheetContents(const std::u16string& path) {
  std::ifstream file(utf16ToUtf8(path), std::ios::binary);
  if (!file) return std::nullopt;
  std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) return std::nullopt;
  return initWithData(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(),
                      NSUTF8StringEncoding);
}

void appendInlineStyle(std::u16string& output, std::u16string_view css) {
  output += u"<style type=\"text/css\"><!--";
  output += css;
  output += u"--></style>\n";
}

// NSString's intValue: leading white space, a sign and digits, clamped to 32 bits.
long long intValue(std::u16string_view s) {
  std::size_t i = 0;
  while (i < s.size() && (s[i] == u' ' || s[i] == u'\t' || s[i] == u'\n' || s[i] == u'\r'))
    ++i;
  bool negative = i < s.size() && s[i] == u'-';
  if (i < s.size() && (s[i] == u'-' || s[i] == u'+')) ++i;
  long long value = 0;
  for (; i < s.size() && s[i] >= u'0' && s[i] <= u'9'; ++i)
    value = std::min<long long>(value * 10 + (s[i] - u'0'), INT_MAX + 1LL);
  value = negative ? -value : value;
  return std::clamp<long long>(value, INT_MIN, INT_MAX);
}

// NSString's lastPathComponent: the part after the last "/", trailing slashes ignored.
std::u16string_view lastPathComponent(std::u16string_view path) {
  while (path.size() > 1 && path.back() == u'/')
    path.remove_suffix(1);
  std::size_t slash = path.rfind(u'/');
  return slash == std::u16string_view::npos || path.size() == 1 ? path : path.substr(slash + 1);
}

void appendEnclosures(std::u16string& output, const Array& enclosures) {
  output += u"<div class=\"feed_enclosures\"><p>\n";
  for (const Value& value : enclosures) {
    const Dictionary* enclosure = value.as<Dictionary>();
    if (!enclosure) continue;
    auto text = [&](const char16_t* key) {
      auto entry = enclosure->find(key);
      const std::u16string* s =
          entry == enclosure->end() ? nullptr : entry->second.as<std::u16string>();
      return s ? std::u16string_view(*s) : std::u16string_view();
    };
    std::u16string_view url = text(u"url"), length = text(u"length");
    output += u"<a class=\"feed_enclosure\" href=\"";
    appendEntities(output, url);
    output += u"\">";
    appendEntities(output, lastPathComponent(url));
    output += u"</a>";
    if (!length.empty() && intValue(length) > 0) {
      output += u"&nbsp;(";
      appendEntities(output, length);
      output += containsAlphaCharacter(length) ? u")" : u" bytes)";
    }
    output += u"<br/>\n";
  }
  output += u"</p></div>\n</div>\n";
}

const std::u16string* stringFor(const Dictionary& item, const char16_t* key) {
  auto entry = item.find(key);
  return entry == item.end() ? nullptr : entry->second.as<std::u16string>();
}

// One dictionary as an item; date, author and enclosures only for display.
void AppendDictionary2Feed(std::u16string& output, const Dictionary& item, bool display) {
  const Array* enclosures = nullptr;
  if (display) {
    auto entry = item.find(u"enclosures");
    if (entry != item.end()) enclosures = entry->second.as<Array>();
  }
  feed::AppendItem2Feed(output, stringFor(item, u"title"), stringFor(item, u"content"),
                        stringFor(item, u"description"), stringFor(item, u"link"),
                        display ? stringFor(item, u"date") : nullptr,
                        display ? stringFor(item, u"author") : nullptr, enclosures);
}

std::u16string itemPage(const Dictionary& item, bool display, bool linkedStyleSheet) {
  std::u16string output;
  feed::CreateFeedHead(output, linkedStyleSheet, display);
  const std::u16string* author = stringFor(item, u"author");
  if (display && author && !author->empty()) {
    output += u"<meta name=\"author\" content=\"";
    appendEntities(output, *author);
    output += u"\"/>";
  }
  output += kHeadEnd;
  AppendDictionary2Feed(output, item, display);
  output += kPageEnd;
  return output;
}

std::u16string itemsPage(const Array& items, bool display) {
  std::u16string output;
  feed::CreateFeedHead(output, true, display);
  output += kHeadEnd;
  for (const Value& value : items) {
    if (const Dictionary* item = value.as<Dictionary>())
      AppendDictionary2Feed(output, *item, display);
  }
  output += kPageEnd;
  return output;
}

}  // namespace

namespace feed {

void CreateFeedHead(std::u16string& output, bool linkedStyleSheet, bool withStyle) {
  output += kPageStart;
  if (!withStyle) return;
  std::optional<std::u16string> path = linkableFeedStyleSheet();
  if (!path) return;
  if (linkedStyleSheet) {
    if (std::optional<URL> url = URL::fileURLWithPath(*path)) {
      output += kLinkedStyleStart;
      appendEntities(output, url->absoluteString());
      output += kLinkedStyleEnd;
    }
  } else if (std::optional<std::u16string> css = styleSheetContents(*path)) {
    appendInlineStyle(output, *css);
  }
}

void AppendItem2Feed(std::u16string& output, const std::u16string* title,
                     const std::u16string* content, const std::u16string* description,
                     const std::u16string* link, const std::u16string* date,
                     const std::u16string* author, const Array* enclosures) {
  const std::u16string* text = content && !content->empty() ? content : description;
  std::u16string dateLine;
  if (date && !date->empty()) {
    if (std::optional<Date> when = ferncast::date(*date)) {
      dateLine = stringFromDate(*when);
      if (author && !author->empty()) dateLine = *author + u" - " + dateLine;
    }
  }
  std::u16string body = text ? *text : std::u16string();
  if (std::optional<std::u16string> stripped = stripTag(body, "IFRAME"))
    body = std::move(*stripped);
  if (std::optional<std::u16string> stripped = stripTag(body, "SPAN")) body = std::move(*stripped);

  output += u"\n<div class=\"feed_header\">";
  const bool linked = link && !link->empty();
  if (linked) {
    output += u"<a class=\"feed_link\" href=\"";
    appendEntities(output, *link);
    output += u"\">";
  }
  if (title) appendEntities(output, *title);
  if (linked) output += u"</a>";
  output += u"<br/>";
  if (!dateLine.empty()) {
    output += u"<font class=\"feed_date\">";
    appendEntities(output, dateLine);
    output += u"</font>";
  }
  output += u"</div><div class=\"feed_article\">\n";
  output += body;
  output += u"\n";
  if (enclosures && !enclosures->empty()) {
    appendEnclosures(output, *enclosures);
  } else {
    output += u"</div>\n";
  }
}

}  // namespace feed

void setLinkableFeedStyleSheet(std::optional<std::u16string> path) {
  std::lock_guard<std::mutex> lock(styleSheetMutex);
  styleSheetSetting() = std::move(path);
}

std::optional<std::u16string> linkableFeedStyleSheet() {
  std::lock_guard<std::mutex> lock(styleSheetMutex);
  return styleSheetSetting();
}

std::u16string stringByConvertingFeed(std::u16string_view feed, const std::optional<URL>& baseURL,
                                      bool linkedStyleSheet) {
  std::u16string output;
  output.reserve(feed.size());
  feed::CreateFeedHead(output, linkedStyleSheet, true);
  feed::Context context;
  context.mode = feed::Mode::kHtml;
  context.baseURL = baseURL ? &*baseURL : nullptr;
  context.output = &output;
  parseXmlWithHandler(feed, feed::Feed2HTMLHandler, &context, false);
  const bool found = context.rootFound, bodyOpen = context.bodyOpen;
  feed::ReleaseFeedContext(context);
  if (!found) return std::u16string(feed);
  output += bodyOpen ? kPageEnd : kHeadOnlyEnd;
  return output;
}

std::u16string stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(std::u16string_view feed,
                                                                        bool linkedStyleSheet) {
  return stringByConvertingFeed(feed, std::nullopt, linkedStyleSheet);
}

std::u16string stringByReplacingLinkedStyleSheet(std::u16string_view html) {
  static constexpr std::u16string_view kLocalFileStart =
      u"<link rel=\"stylesheet\" type=\"text/css\" href=\"file://";
  static constexpr std::u16string_view kEnd = u".feeds.stylesheet.css\"/>";
  std::size_t start = std::u16string_view::npos;
  for (std::size_t from = 0;
       (start = html.find(kLocalFileStart, from)) != std::u16string_view::npos; from = start + 1) {
    std::u16string_view rest = html.substr(start + kLocalFileStart.size());
    if (rest.starts_with(u"/") || rest.starts_with(u"localhost/")) break;
  }
  if (start == std::u16string_view::npos) return std::u16string(html);
  std::size_t end = html.find(kEnd, start + kLocalFileStart.size());
  if (end == std::u16string_view::npos) return std::u16string(html);
  end += kEnd.size();
  std::u16string output(html.substr(0, start));
  std::optional<std::u16string> path = linkableFeedStyleSheet();
  if (path) {
    if (std::optional<std::u16string> css = styleSheetContents(*path)) {
      appendInlineStyle(output, *css);
    }
  }
  output += html.substr(end);
  return output;
}

std::u16string stringByConvertingItemToSearchableHTML(const Dictionary& item) {
  return itemPage(item, false, true);
}

std::u16string stringByConvertingItemToDisplayHTML(const Dictionary& item) {
  return itemPage(item, true, true);
}

std::u16string stringByConvertingItemToDisplayHTMLUsingLinkedStyleSheet(const Dictionary& item,
                                                                        bool linkedStyleSheet) {
  return itemPage(item, true, linkedStyleSheet);
}

std::u16string stringByConvertingItemsToSearchableHTML(const Array& items) {
  return itemsPage(items, false);
}

std::u16string stringByConvertingItemsToDisplayHTML(const Array& items) {
  return itemsPage(items, true);
}

std::u16string stringByConvertingBufferToEntities(const char16_t* characters, std::size_t length,
                                                  bool highCharacters) {
  std::u16string output;
  if (!characters) return output;
  std::size_t run = 0;  // start of the run of characters copied as they are
  for (std::size_t i = 0; i < length; ++i) {
    const char16_t c = characters[i];
    std::u16string_view replacement;
    std::u16string number;
    if (highCharacters) {
      if (c < 128) continue;
      std::string digits = "&#" + std::to_string(static_cast<unsigned>(c)) + ";";
      number.assign(digits.begin(), digits.end());
      replacement = number;
    } else if (c == u'"') {
      replacement = u"&quot;";
    } else if (c == u'&') {
      replacement = u"&amp;";
    } else if (c == u'<') {
      replacement = u"&lt;";
    } else if (c == u'>') {
      replacement = u"&gt;";
    } else {
      continue;
    }
    if (output.empty()) output.reserve(length + 16);
    output.append(characters + run, i - run);
    output += replacement;
    run = i + 1;
  }
  if (run == 0) return std::u16string(characters, length);
  output.append(characters + run, length - run);
  return output;
}

}  // namespace ferncast
