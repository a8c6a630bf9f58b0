// The "ferncast text" commands as a user runs them: output bytes, exit statuses and messages.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/tools/RunFerncast.h"

namespace {

using ferncast::cli_test::Outcome;

namespace fs = std::filesystem;


using TextCommand = ferncast::cli_test::FerncastTest;

struct Row {
  const char* arguments;
  std::string input;
  std::string output;
};

TEST_F(TextCommand, VerbsTransformUtf8Text) {
  const Row rows[] = {
      {"text normalize", "e\xCC\x81", "\xC3\xA9"},
      {"text normalize -", "e\xCC\x81", "\xC3\xA9"},
      {"text normalize --form D", "\xC3\xA9", "e\xCC\x81"},
      {"text normalize --form KC --lowercase", "\xEF\xAC\x81 \xC3\x89", "fi \xC3\xA9"},
      {"text normalize --form KD --lowercase", "\xC3\x89", "e\xCC\x81"},
      {"text fix", "\xF0\x9F\x98\x80|", "  |"},  // outside the BMP: two spaces
      {"text fold",
       "Gr\xC3\xBC\xC3\x9F"
       "e",
       "Gru\xC3\x9F"
       "e"},
      {"text fold --upper", "e\xCC\x81t\xC3\xA9", "ETE"},
      {"text fold --ascii", "na\xC3\xAFve \xE2\x82\xAC", "naive  "},
      {"text fold --ascii --lower",
       "\xC3\x87"
       "A VA",
       "ca va"},
      {"text ligatures", "\xEF\xAC\x85 \xEF\xAC\x83", "ft ffi"},
      {"text collapse", "a \t\n b\t", "a \n b "},
      {"text collapse --feeds", "a \t\n b\t", "a b "},
      {"text words", "two w\xC3\xB6rds, 42", "3\n"},
      {"text words", "", "0\n"},
  };
  for (const Row& row : rows) {
    const Outcome result = run(row.arguments, row.input);
    EXPECT_EQ(result.status, 0) << row.arguments << ": " << result.err;
    EXPECT_EQ(result.out, row.output) << row.arguments;
  }
}

// Invalid UTF-8 is read as U+FFFD, one per ill-formed part, never a failure.
TEST_F(TextCommand, InvalidUtf8BecomesReplacementCharacters) {
  const std::string replacement = "\xEF\xBF\xBD";
  Outcome fixed = run("text fix", "a\xFF\xC3");
  EXPECT_EQ(fixed.status, 0);
  EXPECT_EQ(fixed.out, "a" + replacement + replacement);
  Outcome folded = run("text fold --ascii", "\xED\xA0\x80z");
  EXPECT_EQ(folded.status, 0);
  EXPECT_EQ(folded.out, "   z");
  Outcome words = run("text words",
                      "a\xFF"
                      "b");
  EXPECT_EQ(words.status, 0);
  EXPECT_EQ(words.out, "2\n");
}

TEST_F(TextCommand, UsageErrorsAndUnreadableInputExitWithTwo) {
  const char* usage[] = {
      "text",                          // no verb
      "text normalize --form X",       // unknown form
      "text fold --lower --upper",     // exclusive options
      "text words /nonexistent/file",  // unreadable input
      "text collapse --tabs",          // unknown option
  };
  for (const char* arguments : usage) {
    const Outcome result = run(arguments, "text");
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_EQ(result.out, "") << arguments;
    EXPECT_NE(result.err, "") << arguments;
  }
}

}  // namespace
