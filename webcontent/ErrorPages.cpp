#include "webcontent/ErrorPages.h"

#include <array>

#include "markup/chartables/CharacterTables.h"
#include "markup/chartables/NSString+QuillCompare.h"

namespace ferncast {
namespace {

constexpr std::array<std::u16string_view, 9> kRateLimitPhrases = {
    u"You have exceeded the allowed page load frequency.",
    u"Sorry. You have exceeded the allowed page load frequency. Come back later...",
    u"You have exceeded the allowed page load frequency. Please try again in a minute.",
    u"You have exceeded the allowed page load frequency. Please reload the page in 15 seconds.",
    u"You have exceeded the allowed page load frequency. Wait a few seconds, then you can refresh "
    u"and continue.",
    u"You have exceeded the allowed page load frequency. Please wait a few seconds before "
    u"reloading the page.",
    u"Due to spam, we limit the number of times a page can be loaded. You have exceeded the "
    u"allowed page load frequency.",
    u"You have exceeded the allowed page load frequency. Please wait a moment then try again. "
    u"Thank you.",
    u"Woah, slow down! You have exceeded the allowed page load frequency.",
};

constexpr std::array<std::u16string_view, 10> kErrorTitles = {
    u"403 Forbidden",
    u"403 Access Denied",
    u"404 Not Found",
    u"404 Page Not Found",
    u"404 File Not Found",
    u"404 Error File Not Found",
    u"Error 404 Page Not found",
    u"Page Not Found",
    u"Sorry Page Not Found",
    u"Error 404",
};

constexpr std::array<std::u16string_view, 5> kNotFoundPages = {
    u"/404.php", u"/404.htm", u"/404.html", u"/404.shtml", u"/404-index.html",
};

constexpr std::array<const char*, 5> kNotFoundPhrases = {
    "not found", "does not exist", "doesn't exist", "nicht gefunden", "nicht vorhanden",
};

}  // namespace

bool exceededPageLoadFrequency(std::optional<std::u16string_view>,
                               std::optional<std::u16string_view> text) {
  if (!text || text->empty()) return false;
  for (std::u16string_view phrase : kRateLimitPhrases)
    if (equalStringsNoCaseUsingCharacterSetRep(*text, phrase, alphaCharacterSetRep())) return true;
  return false;
}

bool isErrorPage(std::optional<std::u16string_view> urlArgument,
                 std::optional<std::u16string_view> titleArgument,
                 std::optional<std::u16string_view> textArgument) {
  const std::u16string_view url = urlArgument.value_or(u"");
  const std::u16string_view title = titleArgument.value_or(u"");
  const std::u16string_view text = textArgument.value_or(u"");
  const std::uint8_t* alphaNum = alphaNumCharacterSetRep();

  if (!title.empty()) {
    bool titleMatched = false, textMatched = false;
    for (std::u16string_view entry : kErrorTitles) {
      if (!titleMatched) {
        titleMatched = hasPrefixNoCaseUsingCharacterSetRep(title, entry, alphaNum) ||
                       endsWithNoCase(title, entry);
      }
      if (text.empty() || hasPrefixNoCaseUsingCharacterSetRep(text, entry, alphaNum)) {
        textMatched = true;
      }
    }
    if (titleMatched) {
      if (textMatched) return true;
      if (!text.empty() && (containsNoCase(text, u"404 Not Found") ||
                            containsNoCase(text, u"404 (Page not found)"))) {
        return true;
      }
    }
    if (containsNoCase(title, u"- 404 page -") && !text.empty() &&
        containsNoCase(text, u"page doesn't exist on this server")) {
      return true;
    }
    if (endsWithNoCase(url, u"/403.php") && containsNoCase(title, u"403 Access Denied")) {
      return true;
    }
    if (url.ends_with(u"/error.php") && containsNoCase(title, u"solicitada no existe")) {
      return true;
    }
  }
  if (text.empty()) return false;
  if (url.find(u"/404") != std::u16string_view::npos) {
    for (std::u16string_view page : kNotFoundPages) {
      if (!endsWithNoCase(url, page)) continue;
      if (containsSubCStrings(text, kNotFoundPhrases, false)) return true;
      break;
    }
  }
  return equalStringsNoCaseUsingCharacterSetRep(
      text, u"Sorry server is too busy please try again later", alphaNum);
}

}  // namespace ferncast
