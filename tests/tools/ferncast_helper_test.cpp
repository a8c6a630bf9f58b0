// "ferncast helper" as a user runs it: it reaches the helper (launching one for the command when
// none runs), prints the reply as JSON, and exits 1 for nil or NO, 2 for usage errors and 3
// when the helper cannot be reached.
#include <gtest/gtest.h>
#include <sched.h>
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

#include "tests/tools/RunFerncast.h"

namespace {

namespace fs = std::filesystem;
using ferncast::cli_test::Outcome;

constexpr const char* kHelper = FERNCAST_BINARY_DIR "/tools/ferncast-helper";

class HelperCommand : public ferncast::cli_test::FerncastTest {
 protected:
  void SetUp() override {
    // The helper's name is per user: a network namespace of our own keeps other helpers away.
    static const bool isolated = unshare(CLONE_NEWNET) == 0;
    if (!isolated) GTEST_SKIP() << "needs a network namespace of its own";
    FerncastTest::SetUp();
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
  auto listening = [] {
    std::ifstream table("/proc/net/unix");
    std::string text{std::istreambuf_iterator<char>(table), std::istreambuf_iterator<char>()};
    return text.find("@FerncastHelper32/") != std::string::npos;
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

TEST_F(HelperCommand, UnreachableHelperExitsThree) {
  // A copy of the command with no helper beside it.
  fs::path lonely = directory_ / "ferncast";
  fs::copy_file(kFerncast, lonely);
  Outcome outcome = runProgram(lonely.string(), "helper supportsFile /x");
  EXPECT_EQ(outcome.status, 3);
  EXPECT_NE(outcome.err.find("could not be reached"), std::string::npos) << outcome.err;
}

}  // namespace
