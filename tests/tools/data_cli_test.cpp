// The "ferncast data" commands, run as a user runs them: exit statuses, output and messages.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>

#include "tests/tools/RunFerncast.h"

namespace {

using ferncast::cli_test::Outcome;

namespace fs = std::filesystem;

class DataCommand : public ferncast::cli_test::FerncastTest {
 protected:
  // Runs "ferncast data ARGUMENTS" with `input` on standard input.
  ferncast::cli_test::Outcome data(const std::string& arguments,
                                   const std::string& input = "") const {
    return run("data " + arguments, input);
  }
};

std::string sampleText() {
  std::string text;
  for (int i = 0; i < 5000; ++i)
    text += "line " + std::to_string(i) + ": the quick brown fox\n";
  return text;
}

bool oneLineMessage(const std::string& err) {
  return !err.empty() && err.find('\n') == err.size() - 1;
}

TEST_F(DataCommand, GzipOutputIsReadByTheGzipTool) {
  const std::string text = sampleText();
  for (const char* level : {"", "--level 1 ", "--level 9 ", "--level 0 ", "--level 42 "}) {
    Outcome gzip = data(std::string("gzip ") + level + "-", text);
    ASSERT_EQ(gzip.status, 0) << level << gzip.err;
    write("out.gz", gzip.out);
    ASSERT_EQ(std::system(("gzip -dc '" + path("out.gz") + "' > '" + path("plain") + "'").c_str()),
              0);
    EXPECT_EQ(read(path("plain")), text) << level;
  }
  EXPECT_EQ(data("gzip --level 0", text).out, data("gzip --level 1", text).out);
  EXPECT_EQ(data("gzip --level 12", text).out, data("gzip --level 9", text).out);
}

TEST_F(DataCommand, DeflateAndInflateRoundTrip) {
  const std::string text = sampleText();
  Outcome deflate = data("deflate " + write("text", text));
  ASSERT_EQ(deflate.status, 0);
  EXPECT_LT(deflate.out.size(), text.size() / 4);
  Outcome inflate = data("inflate", deflate.out);
  EXPECT_EQ(inflate.status, 0);
  EXPECT_EQ(inflate.out, text);
  // gzip framing is detected by the same command.
  Outcome inflateGzip = data("inflate -", data("gzip", text).out);
  EXPECT_EQ(inflateGzip.status, 0);
  EXPECT_EQ(inflateGzip.out, text);
}

TEST_F(DataCommand, BadCompressedInputPrintsNothingAndExitsOne) {
  const std::string text = sampleText();
  const std::string gzip = data("gzip", text).out;
  const std::string zlib = data("deflate", text).out;
  std::mt19937 random(9);
  std::string junk(4000, '\0');
  for (char& c : junk)
    c = static_cast<char>(random());
  const std::pair<std::string, const char*> cases[] = {
      {gzip.substr(0, gzip.size() / 2), "truncated gzip"},
      {gzip.substr(0, gzip.size() - 1), "gzip without its last byte"},
      {zlib.substr(0, 10), "truncated zlib"},
      {gzip + "junk", "gzip with trailing junk"},
      {zlib + gzip, "two streams"},
      {junk, "random bytes"},
      {text, "uncompressed text"},
      {"", "nothing"},
  };
  for (const auto& [input, why] : cases) {
    Outcome inflate = data("inflate", input);
    EXPECT_EQ(inflate.status, 1) << why;
    EXPECT_EQ(inflate.out, "") << why;
    EXPECT_TRUE(oneLineMessage(inflate.err)) << why << ": " << inflate.err;
  }
  for (const char* command : {"gzip", "deflate"}) {
    Outcome empty = data(command, "");
    EXPECT_EQ(empty.status, 1) << command;
    EXPECT_EQ(empty.out, "") << command;
    EXPECT_TRUE(oneLineMessage(empty.err)) << command;
  }
}

TEST_F(DataCommand, FormPrintsTheFieldsAsJson) {
  const std::string body =
      "--XyZ\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\nvalue\r\n"
      "--XyZ\r\nContent-Disposition: form-data;  filename=\"f.txt\"\r\n"
      "Content-Type: text/plain\r\n\r\nhi\r\n--XyZ--\r\n";
  Outcome form = data("form --boundary XyZ " + write("body", body));
  EXPECT_EQ(form.status, 0) << form.err;
  EXPECT_EQ(form.out, "{\"_filename\":\"f.txt\",\"a\":{\"data\":\"dmFsdWU=\"}}\n");

  Outcome noFinalLine = data("form --boundary XyZ -", body.substr(0, body.size() - 2));
  EXPECT_EQ(noFinalLine.status, 1);
  EXPECT_EQ(noFinalLine.out, "");
  EXPECT_TRUE(oneLineMessage(noFinalLine.err));
}

TEST_F(DataCommand, PredicatesAnswerWithTheExitStatus) {
  const std::tuple<const char*, std::string, int> cases[] = {
      {"is-ascii", "plain text\n", 0},   {"is-ascii", "caf\xC3\xA9", 1}, {"is-ascii", "", 1},
      {"is-rtf", "{\\rtf1\\ansi x}", 0}, {"is-rtf", "<html>", 1},
  };
  for (const auto& [command, input, status] : cases) {
    Outcome run = data(command, input);
    EXPECT_EQ(run.status, status) << command << " " << input;
    EXPECT_EQ(run.out, "");
  }
}

TEST_F(DataCommand, UsageAndUnreadableInputExitTwo) {
  const char* cases[] = {
      "inflate /nonexistent/file",
      "gzip --level x",
      "deflate --level",
      "form",  // no boundary
      "form --boundary B /nonexistent/file",
      "is-rtf /nonexistent/file",
      "unzip",
      "",
  };
  for (const char* arguments : cases) {
    Outcome run = data(arguments, "x");
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_EQ(run.out, "") << arguments;
    EXPECT_FALSE(run.err.empty()) << arguments;
  }
}

}  // namespace
