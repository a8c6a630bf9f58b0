// The fixture of the command-line tests: runs the built ferncast program as a user runs it, with
// bytes on standard input, and captures its exit status, standard output and standard error.
// Each test gets a temporary folder of its own for input files, removed when the test ends.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace ferncast::cli_test {

struct Outcome {
  int status;  // the exit status, or -1 when the program died of a signal
  std::string out;
  std::string err;
};

class FerncastTest : public ::testing::Test {
 protected:
  static constexpr const char* kFerncast = FERNCAST_BINARY_DIR "/tools/ferncast";

  void SetUp() override {
    ASSERT_EQ(access(kFerncast, X_OK), 0) << kFerncast << " is not built";
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    directory_ = std::filesystem::path(::testing::TempDir()) /
                 (std::string(test->test_suite_name()) + "_" + std::to_string(getpid()));
    std::filesystem::create_directories(directory_);
  }
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }

  // The path of `name` in the test's folder.
  std::string path(const std::string& name) const { return (directory_ / name).string(); }

  // Writes `bytes` to `name` in the test's folder and returns its path.
  std::string write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path(name);
  }

  static std::string read(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

  // Runs "ferncast ARGUMENTS" through the shell (quote arguments as for sh) with `input` on
  // standard input, in the C locale and UTC.
  Outcome run(const std::string& arguments, const std::string& input = "") const {
    return runProgram(kFerncast, arguments, input);
  }

  Outcome runProgram(const std::string& program, const std::string& arguments,
                     const std::string& input = "") const {
    const std::string in = write(".stdin", input), out = path(".stdout"), err = path(".stderr");
    const std::string command = "LC_ALL=C TZ=UTC '" + program + "' " + arguments + " < '" + in +
                                "' > '" + out + "' 2> '" + err + "'";
    const int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, read(out), read(err)};
  }

  std::filesystem::path directory_;
};

}  // namespace ferncast::cli_test
