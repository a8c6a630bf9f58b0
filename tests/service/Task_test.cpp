// Child processes and the run-to-end helpers of NSTask(NSTaskQuillExtensions).
#include "service/Task.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "Classes/Log.h"
#include "service/NSTask+Quill.h"
#include "service/NSThread+Quill.h"

namespace ferncast {
namespace {

TEST(Task, SuccessIsExitStatusZeroExactly) {
  struct Row {
    std::u16string path;
    std::vector<std::u16string> arguments;
    bool success;
  };
  const Row rows[] = {
      {u"/bin/true", {}, true},
      {u"/bin/false", {}, false},
      {u"/bin/sh", {u"-c", u"exit 0"}, true},
      {u"/bin/sh", {u"-c", u"exit 7"}, false},
      {u"/bin/sh", {u"-c", u"kill -TERM $$"}, false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(launchTaskAndWaitUntilExitWithLaunchPath(row.path, row.arguments), row.success)
        << std::string(row.arguments.empty() ? "" : "sh -c");
  }
}

TEST(Task, TerminationStatusIsTheExitCodeOrTheSignal) {
  Task exits;
  exits.setLaunchPath(u"/bin/sh");
  exits.setArguments({u"-c", u"exit 7"});
  ASSERT_TRUE(exits.launch());
  exits.waitUntilExit();
  EXPECT_EQ(exits.terminationStatus(), 7);

  Task sleeps;
  sleeps.setLaunchPath(u"/bin/sleep");
  sleeps.setArguments({u"30"});
  ASSERT_TRUE(sleeps.launch());
  EXPECT_TRUE(sleeps.isRunning());
  EXPECT_FALSE(sleeps.waitUntilExit(0.05));
  sleeps.terminate();
  EXPECT_TRUE(sleeps.waitUntilExit(5));
  EXPECT_FALSE(sleeps.isRunning());
  EXPECT_EQ(sleeps.terminationStatus(), SIGTERM);
}

TEST(Task, LaunchFailuresAreReportedAndLogged) {
  std::string logged;
  setLogSink([&](std::string_view text) { logged += text; });
  EXPECT_FALSE(launchTaskAndWaitUntilExitWithLaunchPath(u"/nonexistent/program", {}));
  setLogSink({});
  EXPECT_EQ(logged.rfind("launchAndWaitUntilExit (NSTask):\nNSInvalidArgumentException\n", 0), 0u)
      << logged;

  Task once;
  once.setLaunchPath(u"/bin/true");
  ASSERT_TRUE(once.launch());
  EXPECT_FALSE(once.launch()) << "launched twice";
  Task noPath;
  EXPECT_FALSE(noPath.launch());
  EXPECT_FALSE(noPath.launchError().empty());
}

TEST(ProcessorQueries, AnswerInLinuxTerms) {
#if defined(__x86_64__)
  EXPECT_EQ(numberOfBits(), 64u);
#endif
  EXPECT_GE(numberOfAvailableCPUs(), 1u);
  EXPECT_GE(numberOfCPUs(), numberOfAvailableCPUs());
}

}  // namespace
}  // namespace ferncast
