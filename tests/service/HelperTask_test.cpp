// The launcher with real helper processes: launching, polling for the name, reuse of a running
// helper, time-outs, busy waiting, termination, relaunch, and the parent-death signal.
#include "service/HelperTask.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>

#include "Classes/Log.h"
#include "Classes/Unicode.h"
#include "service/QuillImExport.h"
#include "tests/service/TestHelperProcess.h"

namespace ferncast {
namespace {

using namespace ferncast::testing;
using Clock = std::chrono::steady_clock;

bool processExists(pid_t pid) {
  return kill(pid, 0) == 0;
}

// Captures NSLog lines for the life of the object.
class LogCapture {
 public:
  LogCapture() {
    setLogSink([this](std::string_view text) { lines_ += std::string(text) + "\n"; });
  }
  ~LogCapture() { setLogSink({}); }
  const std::string& lines() const { return lines_; }

 private:
  std::string lines_;
};

// HelperTasks for the test helper under a name of this test; the helper reads the name from
// the environment it inherits.
class Launcher : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("FERNCAST_TEST_HELPER_NAME", utf16ToUtf8(name_).c_str(), 1);
    setenv("FERNCAST_TEST_HELPER_MODE", "", 1);
    setenv("FERNCAST_TEST_HELPER_TIMEOUT", "15", 1);
  }
  std::unique_ptr<HelperTask> make(double timeout = 0, const std::string& path = kTestHelperPath) {
    return HelperTask::initWithPath(utf8ToUtf16(path), name_, &kQuillImExport, timeout);
  }

  std::u16string name_ = uniqueName();
};

TEST(HelperTaskInit, EmptyPathOrNameIsRefusedWithALogLine) {
  struct Row {
    std::u16string path;
    std::u16string name;
  };
  const Row rows[] = {{u"", u"Name"}, {u"/bin/true", u""}, {u"", u""}};
  for (const Row& row : rows) {
    LogCapture log;
    EXPECT_FALSE(HelperTask::initWithPath(row.path, row.name));
    EXPECT_EQ(log.lines(), "Helper missing: " + utf16ToUtf8(row.name) + "\n");
  }
  auto helper = HelperTask::initWithPath(u"/bin/true", u"Name");
  ASSERT_TRUE(helper);
  EXPECT_EQ(helper->timeout(), 0.0);
  EXPECT_FALSE(helper->task());
}

TEST_F(Launcher, LaunchGivesAReadyProxyAndTheDestructorEndsTheHelper) {
  pid_t pid;
  {
    auto launcher = make();
    auto proxy = launcher->launch();
    ASSERT_TRUE(proxy);
    ASSERT_TRUE(launcher->task());
    pid = launcher->task()->processIdentifier();
    EXPECT_EQ(proxy->processIdentifier(), pid);
    EXPECT_EQ(proxy->protocolForProxy(), &kQuillImExport);
    EXPECT_FALSE(QuillImExportProxy(proxy).supportsFile(u"/missing"));
  }
  EXPECT_FALSE(processExists(pid));
}

TEST_F(Launcher, HelperThatExitsAtOnceGivesNilAndNoTask) {
  auto launcher = HelperTask::initWithPath(u"/bin/true", name_);
  LogCapture log;
  EXPECT_FALSE(launcher->launch());
  EXPECT_FALSE(launcher->task());
}

TEST_F(Launcher, MissingExecutableIsLoggedAndGivesNil) {
  auto launcher = make(0, "/nonexistent/helper");
  LogCapture log;
  EXPECT_FALSE(launcher->launch());
  EXPECT_FALSE(launcher->task());
  EXPECT_EQ(log.lines().rfind("launchUsingTimeout: (HelperTask):\nNSInvalidArgumentException\n", 0),
            0u)
      << log.lines();
}

TEST_F(Launcher, HelperThatNeverRegistersIsLeftRunningUntilTerminate) {
  setenv("FERNCAST_TEST_HELPER_MODE", "silent", 1);
  auto launcher = make();
  LogCapture log;
  auto started = Clock::now();
  EXPECT_FALSE(launcher->launch());
  EXPECT_GE(Clock::now() - started, std::chrono::milliseconds(1900)) << "polled too briefly";
  EXPECT_NE(log.lines().find("Connection to ferncast-test-helper failed."), std::string::npos)
      << log.lines();
  ASSERT_TRUE(launcher->task());
  pid_t pid = launcher->task()->processIdentifier();
  EXPECT_TRUE(launcher->task()->isRunning());
  launcher->terminate();
  EXPECT_FALSE(launcher->task());
  EXPECT_FALSE(processExists(pid));
}

TEST_F(Launcher, ProxyReusesTheRunningHelper) {
  auto owner = make();
  ASSERT_TRUE(owner->launch());
  pid_t pid = owner->task()->processIdentifier();
  auto user = make();
  auto proxy = user->proxy();
  ASSERT_TRUE(proxy);
  EXPECT_EQ(proxy->processIdentifier(), pid);
  EXPECT_FALSE(user->task()) << "launched a second helper";
  user.reset();
  EXPECT_TRUE(processExists(pid)) << "ended a helper it did not launch";
}

TEST_F(Launcher, LaunchAcceptsOnlyTheHelperItStarted) {
  HelperProcess other({.name = name_});
  ASSERT_TRUE(waitForProxy(name_));
  auto launcher = make();
  auto launched = std::async(std::launch::async, [&] { return launcher->launch(); });
  // While the other helper holds the name, the launcher's own waits without it.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  other.task().terminate();
  auto proxy = launched.get();
  ASSERT_TRUE(proxy);
  EXPECT_EQ(proxy->processIdentifier(), launcher->task()->processIdentifier())
      << "accepted a helper it did not launch";
}

TEST_F(Launcher, PositiveTimeOutSetsBothAndZeroLeavesThem) {
  auto owner = make();
  ASSERT_TRUE(owner->launch());
  struct Row {
    double timeout;
    double expected;
  };
  for (Row row : {Row{0, kDefaultTimeout}, Row{-1, kDefaultTimeout}, Row{2.5, 2.5}}) {
    auto proxy = owner->launchedProxyUsingTimeout(row.timeout);
    ASSERT_TRUE(proxy);
    EXPECT_EQ(proxy->requestTimeout(), row.expected) << row.timeout;
    EXPECT_EQ(proxy->replyTimeout(), row.expected) << row.timeout;
  }
  owner->setTimeout(4);
  EXPECT_EQ(owner->launchedProxy()->replyTimeout(), 4);
}

TEST_F(Launcher, WaitUntilDoneWaitsWhileTheHelperIsBusy) {
  auto launcher = make();
  auto proxy = launcher->launch();
  ASSERT_TRUE(proxy);
  EXPECT_FALSE(launcher->stillBusy());
  proxy->perform(u"busyFor:", {Value(0.3)});
  EXPECT_TRUE(launcher->stillBusy());
  launcher->waitUntilDone(10);
  EXPECT_FALSE(launcher->stillBusy());
  // A time limit shorter than the work ends the wait first.
  proxy->perform(u"busyFor:", {Value(5.0)});
  launcher->waitUntilDone(0.2);
  EXPECT_TRUE(launcher->stillBusy());
}

TEST_F(Launcher, StillBusyIsNoForHelpersWithoutTheOperationAndWithoutHelper) {
  auto launcher = make();
  EXPECT_FALSE(launcher->stillBusy());
  launcher->waitUntilDone(1);
  auto real =
      HelperTask::initWithPath(utf8ToUtf16(kHelperPath), u"FerncastHelper32", &kQuillImExport);
  ASSERT_TRUE(real->launch());
  EXPECT_FALSE(real->stillBusy());
}

TEST_F(Launcher, KilledHelperFailsItsCallerAndRelaunches) {
  auto launcher = make(30);
  auto proxy = launcher->launch();
  ASSERT_TRUE(proxy);
  pid_t first = launcher->task()->processIdentifier();
  try {
    proxy->perform(u"exitNow", {});
    FAIL() << "no error";
  } catch (const ConnectionError& e) {
    EXPECT_EQ(e.kind(), ConnectionError::Kind::kClosed);
  }
  auto again = launcher->launch();
  ASSERT_TRUE(again);
  EXPECT_NE(launcher->task()->processIdentifier(), first);
  EXPECT_FALSE(QuillImExportProxy(again).supportsFile(u"/missing"));
}

TEST_F(Launcher, RelaunchEndsThePreviousHelperFirst) {
  auto launcher = make();
  ASSERT_TRUE(launcher->launch());
  pid_t first = launcher->task()->processIdentifier();
  auto proxy = launcher->launch();
  ASSERT_TRUE(proxy);
  EXPECT_FALSE(processExists(first));
  EXPECT_EQ(proxy->processIdentifier(), launcher->task()->processIdentifier());
}

TEST_F(Launcher, HelperEndsWithItsLauncher) {
  // Orphans come back to this process, so that the helper can be reaped and checked.
  ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  int report[2];
  ASSERT_EQ(pipe(report), 0);
  pid_t launcherProcess = fork();
  ASSERT_GE(launcherProcess, 0);
  if (launcherProcess == 0) {
    auto launcher = make();
    pid_t helper = launcher->launch() ? launcher->task()->processIdentifier() : -1;
    ssize_t ignored = write(report[1], &helper, sizeof helper);
    (void)ignored;
    _exit(0);  // no destructor runs: only the parent-death signal can end the helper
  }
  close(report[1]);
  pid_t helper = -1;
  ASSERT_EQ(read(report[0], &helper, sizeof helper), static_cast<ssize_t>(sizeof helper));
  close(report[0]);
  waitpid(launcherProcess, nullptr, 0);
  ASSERT_GT(helper, 0);
  int status = 0;
  ASSERT_EQ(waitpid(helper, &status, 0), helper);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "not ended by its SIGTERM";
}

}  // namespace
}  // namespace ferncast
