// The "ferncast entities" commands, run as a user runs them: exit statuses and output bytes.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/tools/RunFerncast.h"

namespace {

using ferncast::cli_test::Outcome;

namespace fs = std::filesystem;

class EntitiesCommand : public ferncast::cli_test::FerncastTest {
 protected:
  // Runs "ferncast entities ARGUMENTS" with `input` on standard input.
  ferncast::cli_test::Outcome entities(const std::string& arguments,
                                       const std::string& input = "") const {
    return run("entities " + arguments, input);
  }
};

struct Case {
  const char* arguments;
  const char* input;
  const char* output;
};

// Catches a command wired to the wrong conversion or flag, and output that gains or loses bytes
// (a trailing line feed passes through untouched).
TEST_F(EntitiesCommand, EachCommandConvertsItsInput) {
  const Case cases[] = {
      {"decode", "caf&eacute; &lt;b&gt; &#x1F600;\n", "café <b> &#x1F600;\n"},
      {"decode -", "caf&eacute; &lt;b&gt;", "café <b>"},
      {"decode --standard", "&quot;x&quot;", "\"x\""},
      {"decode --no-standard", "caf&eacute; &lt;b&gt; &#60;", "café &lt;b&gt; &#60;"},
      {"decode --numeric-only", "&eacute;&#233;&amp;", "&eacute;é&"},
      {"decode --non-umlauted", "caf&eacute; naïve", "cafe naive"},
      {"decode --no-standard --numeric-only --non-umlauted", "&Eacute;&#201;&lt;É",
       "&Eacute;E&lt;E"},
      {"decode", "&lt", "&lt"},
      {"decode", "", ""},
      {"decode-standard", "&lt;b&gt; &gt;; &eacute;", "<b> &gt;; &eacute;"},
      {"encode", "café <€> 😀", "caf&eacute; <&euro;> &#55357;&#56832;"},
      {"encode-high", "café <€>", "caf&#233; <&#8364;>"},
      {"encode-standard", "a \"b\" & <c>", "a &quot;b&quot; &amp; &lt;c&gt;"},
      {"json", "say \"hi\"\t/ é\n", "say \\\"hi\\\"\\t\\/ é\\n"},
  };
  for (const Case& c : cases) {
    Outcome result = entities(c.arguments, c.input);
    EXPECT_EQ(result.status, 0) << c.arguments << ": " << result.err;
    EXPECT_EQ(result.out, c.output) << c.arguments;
    EXPECT_EQ(result.err, "") << c.arguments;
  }
}

TEST_F(EntitiesCommand, ReadsAFileArgument) {
  const fs::path file = write("input.html", "&copy; 2024 &mdash; &#169;");
  Outcome result = entities("decode '" + file.string() + "'");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "© 2024 — ©");
}

// Invalid UTF-8 is read as U+FFFD, never a failure.
TEST_F(EntitiesCommand, InvalidUtf8BecomesReplacementCharacters) {
  Outcome result = entities("encode-high",
                            "a\xff\xfe"
                            "b");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "a&#65533;&#65533;b");
}

TEST_F(EntitiesCommand, UsageErrorsAndUnreadableFilesExitWithTwo) {
  for (const std::string arguments :
       {"decode --no-such-option", "frobnicate", "decode '/nonexistent/input.html'", "json a b"}) {
    Outcome result = entities(arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_FALSE(result.err.empty()) << arguments;
    EXPECT_EQ(result.out, "") << arguments;
  }
}

}  // namespace
