// Every HTML query and rewrite over arbitrary markup (UTF-8 input, at most 64 KiB). Checks the
// invariants that hold for any page: links come each once, removing with a pattern that matches
// nothing changes nothing, and strip-tag without a match answers "unchanged".
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Classes/Log.h"
#include "Classes/Unicode.h"
#include "markup/chartables/CharacterTables.h"
#include "webcontent/HtmlExtensions.h"

using namespace ferncast;

namespace {

bool KeepEvenLinks(std::u16string_view href, std::u16string_view, void*) {
  return href.size() % 2 == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 64 * 1024) return 0;
  static bool initialised = [] {
    initCharacterTables();
    setLogSink([](std::string_view) {});  // "Invalid base" lines
    return true;
  }();
  (void)initialised;
  std::u16string html = utf8ToUtf16({reinterpret_cast<const char*>(data), size});

  std::optional<URL> base;
  std::vector<std::u16string> links = htmlLinksBaseURL(html, &base);
  if (std::set<std::u16string>(links.begin(), links.end()).size() != links.size()) __builtin_trap();
  int context = 0;
  htmlLinksBaseURL(html, &base, KeepEvenLinks, &context);
  htmlLinksContaining(html, u"a", true, &base);
  for (const std::u16string& link : links)
    filterLink(link);

  std::optional<std::u16string> favIcon, title, refresh, robots, revisit;
  bool isFeed = false, frameSet = true;
  HtmlHead head{&favIcon, &title, &refresh, &robots, &revisit, &isFeed};
  htmlLinksAndFramesSet(html, &frameSet, &base, head);
  if (frameSet) __builtin_trap();
  if (revisit) revisitAfter(*revisit);
  htmlFramesSet(html, nullptr, nullptr, head);

  htmlImages(html);
  htmlStylesheetsAndScripts(html);
  htmlEmbeddedObjects(html);
  htmlFavIcon(html);
  normalizedHtmlTitle(html);
  htmlDate(html);
  htmlCanonicalURL(html);
  htmlBaseURL(html);
  htmlMetaAttributes(html);
  htmlMetaAttributesByConvertingEntitiesToCharacters(html);
  htmlMetaAttributeWithName(html, u"description");
  htmlMetaHTTPEquiv(html, u"refresh");
  std::optional<std::u16string> keywords, description, metaTitle, indexTitle;
  htmlMetaKeywords(html, &keywords, &description, &metaTitle, &indexTitle);
  isHTML(html);

  stringBySettingBaseURL(html, u"http://example.com/\"<>&");
  stringBySettingBaseURL(html, u"");
  stringByAddingBaseURL(html, u"http://example.com/");
  std::u16string text = stripTags(html);
  if (text.size() > html.size() * 2 + 1) __builtin_trap();
  if (stripTag(html, "\x01")) __builtin_trap();  // no tag name holds U+0001
  stripTag(html, "A");
  static const std::vector<std::u16string> kLongerThanAnyTag{std::u16string(70000, u'<')};
  if (*stripTagBodies(html, kLongerThanAnyTag, false) != html) __builtin_trap();
  stripTagBodies(html, {u"<div", u"<script", u"<"}, false);
  stripTagBodiesExcept(html, {u"<div", u"<p"});
  stripObjectsAndReplaceImages(html, true);
  stripObjectsAndReplaceImages(html, false);
  stripLinks(html);
  stripAttributesOfTag(html, "A");
  return 0;
}
