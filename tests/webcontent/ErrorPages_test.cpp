// Error pages and rate-limit notices: every rule and phrase table, with the comparison style each
// one uses.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "Classes/Unicode.h"
#include "webcontent/ErrorPages.h"

namespace ferncast {
namespace {

using Text = std::optional<std::u16string_view>;

std::string describe(Text url, Text title, Text text) {
  auto show = [](Text t) { return t ? "\"" + utf16ToUtf8(*t) + "\"" : std::string("nil"); };
  return show(url) + " " + show(title) + " " + show(text);
}

TEST(RateLimitNotices, EveryPhraseMatchesByItsLettersOnly) {
  struct Case {
    Text text;
    bool notice;
  };
  const Case cases[] = {
      {u"You have exceeded the allowed page load frequency.", true},
      {u"you have exceeded the allowed page-load frequency", true},
      {u"  YOU HAVE EXCEEDED THE ALLOWED PAGE LOAD FREQUENCY!!! ", true},
      {u"Sorry. You have exceeded the allowed page load frequency. Come back later...", true},
      {u"You have exceeded the allowed page load frequency. Please try again in a minute.", true},
      // Digits are no letters: "15" does not take part.
      {u"You have exceeded the allowed page load frequency. Please reload the page in seconds.",
       true},
      {u"You have exceeded the allowed page load frequency. Wait a few seconds, then you can "
       u"refresh and continue.",
       true},
      {u"You have exceeded the allowed page load frequency. Please wait a few seconds before "
       u"reloading the page.",
       true},
      {u"Due to spam, we limit the number of times a page can be loaded. You have exceeded the "
       u"allowed page load frequency.",
       true},
      {u"You have exceeded the allowed page load frequency. Please wait a moment then try again. "
       u"Thank you.",
       true},
      {u"Woah, slow down! You have exceeded the allowed page load frequency.", true},
      {u"You have exceeded the allowed page load frequency. Goodbye.", false},
      {u"You have exceeded the allowed page load", false},
      {u"", false},
      {std::nullopt, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(exceededPageLoadFrequency(u"http://ignored/", c.text), c.notice)
        << describe(std::nullopt, std::nullopt, c.text);
    EXPECT_EQ(exceededPageLoadFrequency(std::nullopt, c.text), c.notice);
  }
}

TEST(ErrorPages, EveryRuleDecidesAsWritten) {
  struct Case {
    Text url, title, text;
    bool error;
  };
  const Case cases[] = {
      // Steps 1-2: an error title with an empty text, or a text that begins with an error title.
      {u"http://e/x", u"404 Not Found", u"", true},
      {u"http://e/x", u"404 Not Found", std::nullopt, true},
      {u"http://e/x", u"404 Not Found", u"The page you asked for has gone.", false},
      {u"http://e/x", u"404 Not Found", u"Not Found: the requested URL was not here", false},
      {u"http://e/x", u"404 Not Found", u"404 - not found! The requested URL", true},
      {u"http://e/x", u"404 Not Found", u"Forbidden. Go away.", false},
      {u"http://e/x", u"404 Not Found", u"Page not found", true},
      {u"http://e/x", u"403 Forbidden", u"403 Forbidden You don't have permission", true},
      {u"http://e/x", u"403 Access Denied", u"", true},
      {u"http://e/x", u"404 Page Not Found", u"", true},
      {u"http://e/x", u"404 File Not Found", u"", true},
      {u"http://e/x", u"404 Error File Not Found", u"", true},
      {u"http://e/x", u"Error 404 Page Not found", u"", true},
      {u"http://e/x", u"Sorry Page Not Found", u"", true},
      {u"http://e/x", u"Error 404", u"", true},
      // Letters-only prefix of the title; its end compared ignoring case.
      {u"http://e/x", u"404 - Not-Found!! | Example", u"", true},
      {u"http://e/x", u"Example Site: page not found", u"", true},
      {u"http://e/x", u"Example Site: page not found.", u"", false},
      {u"http://e/x", u"Example: Error 404", u"Sorry, this page is missing", false},
      // Step 2: a title match and a text that contains one of two phrases.
      {u"http://e/x", u"Error 404", u"Sorry: 404 not found", true},
      {u"http://e/x", u"Error 404", u"Sorry: 404 (page NOT found) here", true},
      {u"http://e/x", u"Welcome", u"Sorry: 404 Not Found", false},
      // Step 3.
      {u"http://e/x", u"Example - 404 page - Example", u"This page doesn't exist on this server.",
       true},
      {u"http://e/x", u"Example - 404 page - Example", u"Something else", false},
      // Step 4: ends with, ignoring case.
      {u"http://e/errors/403.PHP", u"Error: 403 access denied", u"Go away", true},
      {u"http://e/errors/403.php?x", u"Error: 403 access denied", u"Go away", false},
      // Step 5: the URL's end compared exactly.
      {u"http://e/error.php", u"La pagina solicitada no existe", u"texto", true},
      {u"http://e/ERROR.PHP", u"La pagina solicitada no existe", u"texto", false},
      // Step 6: no text, no further rules.
      {u"http://e/404.html", u"Welcome", u"", false},
      // Step 7: a URL with "/404", the first page name it ends with, and a not-found phrase.
      {u"http://e/404.HTML", std::nullopt, u"Die Seite wurde NICHT GEFUNDEN", true},
      {u"http://e/404.php", u"", u"Sorry, that does not exist", true},
      {u"http://e/404.htm", u"", u"It doesn't exist", true},
      {u"http://e/404.shtml", u"", u"Seite nicht vorhanden", true},
      {u"http://e/404-index.html", u"", u"Page not found", true},
      {u"http://e/404.html", u"", u"Welcome to our home page", false},
      {u"http://e/404/index.html", u"", u"Page not found", false},
      {u"http://e/x/404.aspx", u"", u"Page not found", false},
      {u"http://e/x/page404.html", u"", u"Page not found", false},  // no "/404"
      // Step 8: the whole text, letters and digits only.
      {std::nullopt, std::nullopt, u"Sorry, server is too busy. Please try again later!", true},
      {std::nullopt, std::nullopt, u"Sorry server is too busy please try again later 2", false},
      {std::nullopt, std::nullopt, std::nullopt, false},
      {u"", u"", u"", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(isErrorPage(c.url, c.title, c.text), c.error) << describe(c.url, c.title, c.text);
  }
}

}  // namespace
}  // namespace ferncast
