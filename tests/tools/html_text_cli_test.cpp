// "ferncast html text" run as a user runs it: decoding, options, several files, exit statuses.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/tools/RunFerncast.h"

namespace {

using ferncast::cli_test::Outcome;

namespace fs = std::filesystem;

class HtmlTextCommand : public ferncast::cli_test::FerncastTest {
 protected:
  // Runs "ferncast html text ARGUMENTS" with `input` on standard input.
  ferncast::cli_test::Outcome text(const std::string& arguments,
                                   const std::string& input = "") const {
    return run("html text " + arguments, input);
  }
};

TEST_F(HtmlTextCommand, DecodesByDeclarationOrGivenCharsetWithLatin1AsDefault) {
  const std::string latin1 = write("latin1.html", "<p>caf\xe9 &amp; cr&egrave;me</p>");
  const std::string declared = write("utf8.html", "<meta charset=utf-8><p>caf\xc3\xa9</p>");
  struct {
    std::string arguments, input, out;
  } cases[] = {
      {latin1, "", "caf\xc3\xa9 & cr\xc3\xa8me"},
      {declared, "", "caf\xc3\xa9"},
      {"-", "<p>caf\xe9</p>", "caf\xc3\xa9"},
      {"--charset UTF-8 -", "<p>caf\xc3\xa9</p>", "caf\xc3\xa9"},
      {"--charset windows-1251 -", "<p>\xcc\xee\xf1\xea\xe2\xe0</p>",
       "\xd0\x9c\xd0\xbe\xd1\x81\xd0\xba\xd0\xb2\xd0\xb0"},
      {"", "<p>from standard input</p>", "from standard input"},
  };
  for (const auto& c : cases) {
    Outcome run = text(c.arguments, c.input);
    EXPECT_EQ(run.status, 0) << c.arguments << run.err;
    EXPECT_EQ(run.out, c.out) << c.arguments;
  }
}

TEST_F(HtmlTextCommand, EachOptionReachesTheConversion) {
  const std::string page =
      write("page.html",
            "<html><head><title>T\xc3\xaftle</title></head><body bgcolor=#fff>"
            "<p>one\ntwo</p><!-- googleoff: index -->off<!-- googleon: index -->"
            "<img alt=Pic> &lt;x&gt; <font color=#FFF>hidden</font>"
            "<div class=site-footer>Footer</div></body></html>");
  struct {
    std::string options, out;
  } cases[] = {
      {"", "T\xc3\xaftle\n\none two\n\noff Pic <x> hidden\n\nFooter"},
      {"--reformat", "T\xc3\xaftle\n\none two\n\noff Pic <x> hidden\n\nFooter"},
      {"--only-body", "one two\n\noff Pic <x> hidden\n\nFooter"},
      {"--google-tags", "T\xc3\xaftle\n\none two\n\nPic <x> hidden\n\nFooter"},
      {"--remove-junk", "one two\n\noff Pic <x>"},
      {"--no-image-alts", "T\xc3\xaftle\n\none two\n\noff <x> hidden\n\nFooter"},
      {"--non-umlauted", "Title\n\none two\n\noff Pic <x> hidden\n\nFooter"},
      {"--no-entities", "T\xc3\xaftle\n\none two\n\noff Pic &lt;x&gt; hidden\n\nFooter"},
      {"--simple", "one\ntwo off  <x>  hidden Footer"},
  };
  for (const auto& c : cases) {
    Outcome run = text(c.options + " --charset utf-8 " + page);
    EXPECT_EQ(run.status, 0) << c.options << run.err;
    EXPECT_EQ(run.out, c.out) << c.options;
  }
}

TEST_F(HtmlTextCommand, SeveralFilesEndEachTextWithAFormFeedAndJunkFlagsGoToStandardError) {
  const std::string clean = write("clean.html", "<p>clean</p>");
  std::string runaway = "<p>";
  for (int i = 0; i < 5000; ++i)
    runaway += "word ";
  const std::string junk = write("junk.html", "<p>keep</p>" + runaway);
  Outcome run = text("--remove-junk --junk-flag " + clean + " " + junk);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "clean\f\nkeep\f\n");
  EXPECT_EQ(run.err, "junk: NO\njunk: YES\n");
  EXPECT_EQ(text(clean).out, "clean");
}

TEST_F(HtmlTextCommand, UnreadableInputAndConflictingOptionsAreUsageErrors) {
  Outcome missing =
      text(write("ok.html", "<p>x</p>") + " " + (directory_ / "missing.html").string());
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.err.find("missing.html"), std::string::npos);
  EXPECT_EQ(text("--simple --reformat -", "x").status, 2);
  EXPECT_EQ(text("--no-such-option -", "x").status, 2);
}

}  // namespace
