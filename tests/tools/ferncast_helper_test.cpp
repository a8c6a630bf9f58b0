// "ferncast helper" as a user runs it: it reaches the helper (launching one for the command when
// none runs), prints the reply as JSON, and exits 1 for nil or NO, 2 for usage errors and 3
// when the helper cannot be reached.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/RunFerncast.h"

namespace {

namespace fs = std::filesystem;
using ferncast::cli_test::Outcome;

constexpr const char* kHelper = FERNCAST_BINARY_DIR "/tools/ferncast-helper";

class HelperCommand : public ferncast::cli_test::FerncastTest {
 protected:
  void SetUp() override {
    FerncastTest::SetUp();
    // The helper's name is per user: a runtime folder of our own keeps other helpers away.
    fs::create_directory(directory_ / "runtime");
    fs::permissions(directory_ / "runtime", fs::perms::owner_all);
    setenv("XDG_RUNTIME_DIR", path("runtime").c_str(), 1);
  }
};

TEST_F(HelperCommand, RepliesArePrintedAsJsonWithTheirStatus) {
  struct Row {
    const char* arguments;
    int status;
    const char* out;
  };
  const Row rows[] = {
      {"helper supportsFile /missing", 1, "false\n"},
      {"helper metaDataForFile missing.txt", 1, "null\n"},
      {"helper imageWithContentsOfFile /missing.png --string-from-pdf --spotlight", 1, "null\n"},
      {"helper RTFDWithHTML /dev/null --base http://example.com/ --charset utf-8", 1, "null\n"},
      {"helper writeRTFDData /dev/null out.rtfd", 1, "false\n"},
      {"helper PDFImageRepOfFile /missing.pdf --save-data saved", 1, "null\n"},
  };
  for (const Row& row : rows) {
    Outcome outcome = run(row.arguments);
    EXPECT_EQ(outcome.status, row.status) << row.arguments << "\n" << outcome.err;
    EXPECT_EQ(outcome.out, row.out) << row.arguments;
  }
}

TEST_F(HelperCommand, UsageErrorsExitTwo) {
  for (const char* arguments :
       {"helper supportsFile", "helper noSuchOperation /x", "helper writeRTFDData /dev/null",
        "helper attributed /nonexistent"}) {
    EXPECT_EQ(run(arguments).status, 2) << arguments;
  }
}

TEST_F(HelperCommand, RunningHelperIsUsedAndOneLaunchedForTheCommandEndsWithIt) {
  // Launched for the command: nothing is left listening afterwards.
  EXPECT_EQ(run("helper supportsFile /x").status, 1);
  auto listening = [this] {
    std::ifstream table("/proc/net/unix");
    std::string text{std::istreambuf_iterator<char>(table), std::istreambuf_iterator<char>()};
    return text.find(path("runtime/ferncast/FerncastHelper32")) != std::string::npos;
  };
  EXPECT_FALSE(listening());

  pid_t helper = fork();
  ASSERT_GE(helper, 0);
  if (helper == 0) {
    execl(kHelper, kHelper, nullptr);
    _exit(127);
  }
  for (int i = 0; i < 200 && !listening(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_TRUE(listening());
  EXPECT_EQ(run("helper supportsFile /x").status, 1);
  int status = 0;
  EXPECT_EQ(waitpid(helper, &status, WNOHANG), 0) << "the command ended a helper it found";
  kill(helper, SIGTERM);
  waitpid(helper, &status, 0);
}

TEST_F(HelperCommand, SimultaneousColdLaunchesAllGetTheirAnswer) {
  // Each command launches its own helper at the same moment; only one gets the name at first,
  // and a helper may be ended by its command while others use it. Beside this copy of the
  // command lies a helper with the connection alone, so that twenty start in a few seconds.
  fs::path ferncast = directory_ / "ferncast";
  fs::copy_file(kFerncast, ferncast);
  fs::create_symlink(FERNCAST_BINARY_DIR "/service/ferncast-light-helper",
                     directory_ / "ferncast-helper");
  std::vector<pid_t> commands;
  for (int i = 0; i < 20; ++i) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      int null = open("/dev/null", O_RDWR);
      dup2(null, STDIN_FILENO);
      dup2(null, STDOUT_FILENO);
      dup2(null, STDERR_FILENO);
      execl(ferncast.c_str(), "ferncast", "helper", "supportsFile", "/x", nullptr);
      _exit(127);
    }
    commands.push_back(pid);
  }
  int answered = 0;
  for (pid_t pid : commands) {
    int status = 0;
    waitpid(pid, &status, 0);
    answered += WIFEXITED(status) && WEXITSTATUS(status) == 1;
  }
  EXPECT_EQ(answered, 20) << "commands that got no answer exit 3";
}

TEST_F(HelperCommand, UnreachableHelperExitsThree) {
  // A copy of the command with no helper beside it.
  fs::path lonely = directory_ / "ferncast";
  fs::copy_file(kFerncast, lonely);
  Outcome outcome = runProgram(lonely.string(), "helper supportsFile /x");
  EXPECT_EQ(outcome.status, 3);
  EXPECT_NE(outcome.err.find("could not be reached"), std::string::npos) << outcome.err;
}

}  // namespace
