// "ferncast markup charset" and "ferncast markup decode", run as a user runs them: exit statuses,
// output and messages.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/tools/RunFerncast.h"

namespace {

using ferncast::cli_test::Outcome;

namespace fs = std::filesystem;

class MarkupCharsetCommand : public ferncast::cli_test::FerncastTest {
 protected:
  // Runs "ferncast markup ARGUMENTS" with `input` on standard input.
  ferncast::cli_test::Outcome markup(const std::string& arguments,
                                     const std::string& input = "") const {
    return run("markup " + arguments, input);
  }
};

TEST_F(MarkupCharsetCommand, NamesPrintBothNumbersAndTheConverter) {
  struct Case {
    const char* name;
    const char* json;
    int status;
  };
  const Case cases[] = {
      {"windows-1251", R"({"cf":1282,"converter":"ibm-5347_P100-1998","ns":11})", 0},
      {"Shift_JIS", R"({"cf":2561,"converter":"ibm-943_P15A-2003","ns":8})", 0},
      {"gb2312", R"({"cf":2352,"converter":"ibm-1383_P110-1999","ns":2147486000})", 0},
      {"x-kam-cs", R"({"cf":40961,"converter":null,"ns":-16})", 0},
      {"koi8-cs2", R"({"cf":40962,"converter":null,"ns":-15})", 0},
      {"x-mac-japanese", R"({"cf":1,"converter":null,"ns":-1})", 1},
      {"x-user-defined", R"({"cf":4294967295,"converter":null,"ns":-1})", 1},
  };
  for (const Case& c : cases) {
    Outcome run = markup(std::string("charset '") + c.name + "'");
    EXPECT_EQ(run.status, c.status) << c.name;
    EXPECT_EQ(run.out, std::string(c.json) + "\n") << c.name;
  }
}

TEST_F(MarkupCharsetCommand, UnknownNamesAreLogged) {
  Outcome run = markup("charset x-user-defined");
  EXPECT_NE(run.err.find("Unknown/Unsupported encoding: x-user-defined"), std::string::npos);
  run = markup("charset auto");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "");
}

TEST_F(MarkupCharsetCommand, DecodeFollowsTheMetaTag) {
  const std::string page = "<meta charset=windows-1251><p>\xCF\xF0\xE8\xE2\xE5\xF2</p>";
  Outcome run = markup("decode", page);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "<meta charset=windows-1251><p>Привет</p>");

  run = markup("decode --report -", page);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            R"({"converter":"ibm-5347_P100-1998","encoding":11,"markupCharset":"windows-1251",)"
            R"("replacementCharacters":0})"
            "\n");
}

TEST_F(MarkupCharsetCommand, DecodeTakesTheCharsetFromOutside) {
  const std::string bytes = "<p>\xC6\xFC\xCB\xDC</p>";  // "日本" in EUC-JP
  Outcome run = markup("decode --charset EUC-JP", bytes);
  EXPECT_EQ(run.out, "<p>日本</p>");
  run = markup("decode --content-type 'text/html; charset=\"euc-jp\"'", bytes);
  EXPECT_EQ(run.out, "<p>日本</p>");
  run = markup("decode --default-encoding utf-8 --report", "<p>caf\xE9</p>");
  EXPECT_EQ(run.out,
            R"({"converter":"UTF-8","encoding":4,"markupCharset":"","replacementCharacters":1})"
            "\n");
}

TEST_F(MarkupCharsetCommand, FileArgumentUsesTheFileDecoderWithLatin1) {
  const fs::path file = write("page.html", "<meta charset=koi8-r><p>\xF0\xD2\xC9\xD7\xC5\xD4</p>");
  Outcome run = markup("decode '" + file.string() + "'");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "<meta charset=koi8-r><p>Привет</p>");
  const fs::path latin1 = write("latin1.html", "<p>K\xF6ln</p>");
  EXPECT_EQ(markup("decode '" + latin1.string() + "'").out, "<p>Köln</p>");
}

TEST_F(MarkupCharsetCommand, FailuresHaveTheirStatuses) {
  Outcome run = markup("decode '" + (directory_ / "missing.html").string() + "'");
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("missing.html"), std::string::npos);
  run = markup("decode --default-encoding klingon", "x");
  EXPECT_EQ(run.status, 2);
  run = markup("decode --charset utf-8 --content-type text/html", "x");
  EXPECT_EQ(run.status, 2);
  // A strict UTF-8 default that fails and no declaration: nothing decodes.
  const fs::path bad = write("bad.html", "caf\xE9");
  run = markup("decode --default-encoding utf-8 '" + bad.string() + "'");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  // Empty input decodes to empty text.
  run = markup("decode");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
}

}  // namespace
