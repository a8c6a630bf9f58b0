// The "ferncast markup tags" and "ferncast markup attribute" commands, run as a user runs them.
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
};

class MarkupCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(access(kFerncast, X_OK), 0) << kFerncast << " is not built";
    directory_ = fs::path(::testing::TempDir()) / ("markup_cli_test_" + std::to_string(getpid()));
    fs::create_directories(directory_);
  }
  void TearDown() override {
    std::error_code error;
    fs::remove_all(directory_, error);
  }

  fs::path write(const std::string& name, const std::string& bytes) const {
    const fs::path path = directory_ / name;
    std::ofstream(path, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
  }

  // Runs "ferncast markup ARGS" with `input` on standard input; standard error is dropped.
  Result markup(const std::string& arguments, const std::string& input = "") const {
    const fs::path in = write("stdin", input);
    const fs::path out = directory_ / "stdout";
    const std::string command = std::string(kFerncast) + " markup " + arguments + " < '" +
                                in.string() + "' > '" + out.string() + "' 2>/dev/null";
    const int raw = std::system(command.c_str());
    std::ifstream stream(out, std::ios::binary);
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1,
            std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>())};
  }

  static constexpr const char* kFerncast = FERNCAST_BINARY_DIR "/tools/ferncast";
  fs::path directory_;
};

TEST_F(MarkupCommand, TagsPrintsOneLinePerCallInTheFixedKeyOrder) {
  const Result result = markup("tags", "a<b>c");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "{\"kind\":1,\"name\":\"b\",\"nameLocation\":2,\"nameLength\":1,\"tagLocation\":1,"
            "\"tagLength\":3,\"textLocation\":0}\n"
            "{\"kind\":0,\"name\":null,\"nameLocation\":2147483647,\"nameLength\":0,"
            "\"tagLocation\":5,\"tagLength\":0,\"textLocation\":4}\n");
}

TEST_F(MarkupCommand, TagsCountsUtf16UnitsAndReadsFiles) {
  // "𝄞" is two UTF-16 code units; "é" one.
  const fs::path file = write("page.html", "\xF0\x9D\x84\x9E<\xC3\xA9 x='>'><!--c");
  const Result result = markup("tags '" + file.string() + "'");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "{\"kind\":1,\"name\":\"\xC3\xA9\",\"nameLocation\":3,\"nameLength\":1,"
            "\"tagLocation\":2,\"tagLength\":9,\"textLocation\":0}\n"
            "{\"kind\":2,\"name\":null,\"nameLocation\":2147483647,\"nameLength\":0,"
            "\"tagLocation\":11,\"tagLength\":5,\"textLocation\":11}\n"
            "{\"kind\":0,\"name\":null,\"nameLocation\":2147483647,\"nameLength\":0,"
            "\"tagLocation\":16,\"tagLength\":0,\"textLocation\":16}\n");
}

TEST_F(MarkupCommand, TagsOfEmptyInputPrintNothing) {
  const Result result = markup("tags -");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
}

TEST_F(MarkupCommand, UnreadableInputIsAUsageError) {
  EXPECT_EQ(markup("tags /nonexistent/page.html").status, 2);
  EXPECT_EQ(markup("attribute HREF /nonexistent/page.html").status, 2);
  EXPECT_EQ(markup("attribute").status, 2);
}

TEST_F(MarkupCommand, AttributeOfTheFirstTagInAnyCase) {
  const Result result = markup("attribute href", "text<!-- <a href=no> --><a HREF = 'x y '>");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "x y\n");
  // Only the first tag is asked.
  EXPECT_EQ(markup("attribute src", "<p><img src=a>").status, 1);
  EXPECT_EQ(markup("attribute src", "no tags").status, 1);
}

TEST_F(MarkupCommand, StylePropertyOfTheWholeInput) {
  const Result result = markup("attribute Height --style", "width: 20px; height:10px");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "10px\n");
  EXPECT_EQ(markup("attribute color --style", "background-color: red").status, 1);
}

}  // namespace
