// The "ferncast entities" commands, run as a user runs them: exit statuses and output bytes.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

namespace fs = std::filesystem;

struct Result {
  int status;
  std::string out;
  std::string err;
};

class EntitiesCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(access(kFerncast, X_OK), 0) << kFerncast << " is not built";
    directory_ = fs::path(::testing::TempDir()) / ("entities_cli_test_" + std::to_string(getpid()));
    fs::create_directories(directory_);
  }
  void TearDown() override {
    std::error_code error;
    fs::remove_all(directory_, error);
  }

  fs::path write(const std::string& name, const std::string& bytes) const {
    fs::path path = directory_ / name;
    std::ofstream(path, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
  }

  static std::string read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  // Runs "ferncast entities ARGS" with `input` on standard input.
  Result run(const std::string& arguments, const std::string& input = "") const {
    const fs::path in = write("stdin", input);
    const fs::path out = directory_ / "stdout", err = directory_ / "stderr";
    const std::string command = std::string(kFerncast) + " entities " + arguments + " < '" +
                                in.string() + "' > '" + out.string() + "' 2> '" + err.string() +
                                "'";
    const int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, read(out), read(err)};
  }

  static constexpr const char* kFerncast = FERNCAST_BINARY_DIR "/tools/ferncast";
  fs::path directory_;
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
    Result result = run(c.arguments, c.input);
    EXPECT_EQ(result.status, 0) << c.arguments << ": " << result.err;
    EXPECT_EQ(result.out, c.output) << c.arguments;
    EXPECT_EQ(result.err, "") << c.arguments;
  }
}

TEST_F(EntitiesCommand, ReadsAFileArgument) {
  const fs::path file = write("input.html", "&copy; 2024 &mdash; &#169;");
  Result result = run("decode '" + file.string() + "'");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "© 2024 — ©");
}

// Invalid UTF-8 is read as U+FFFD, never a failure.
TEST_F(EntitiesCommand, InvalidUtf8BecomesReplacementCharacters) {
  Result result = run("encode-high",
                      "a\xff\xfe"
                      "b");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "a&#65533;&#65533;b");
}

TEST_F(EntitiesCommand, UsageErrorsAndUnreadableFilesExitWithTwo) {
  for (const std::string arguments :
       {"decode --no-such-option", "frobnicate", "decode '/nonexistent/input.html'", "json a b"}) {
    Result result = run(arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_FALSE(result.err.empty()) << arguments;
    EXPECT_EQ(result.out, "") << arguments;
  }
}

}  // namespace
