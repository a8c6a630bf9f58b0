// The run loop and its time-interval extensions: sources, timers, modes, nesting.
#include "service/RunLoop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "service/NSRunLoop+Quill.h"

namespace ferncast {
namespace {

using Clock = RunLoop::Clock;
using std::chrono::milliseconds;

// A pipe whose read end is a run-loop source.
struct Pipe {
  Pipe() { EXPECT_EQ(pipe(fds), 0); }
  ~Pipe() {
    close(fds[0]);
    close(fds[1]);
  }
  void poke() { EXPECT_EQ(write(fds[1], "x", 1), 1); }
  void drain() {
    char c;
    EXPECT_EQ(read(fds[0], &c, 1), 1);
  }
  int fds[2];
};

TEST(RunLoop, NothingAttachedReturnsAtOnce) {
  RunLoop& loop = RunLoop::current();
  EXPECT_FALSE(loop.runMode(kDefaultRunLoopMode, Clock::now() + std::chrono::hours(1)));
  loop.run();  // returns: nothing attached
  EXPECT_FALSE(runMode(u"OtherMode", 3600));
}

TEST(RunLoop, TimersFireInOrderAndOnce) {
  RunLoop& loop = RunLoop::current();
  std::vector<int> fired;
  auto now = Clock::now();
  loop.addTimer(now + milliseconds(30), [&] { fired.push_back(3); });
  loop.addTimer(now + milliseconds(10), [&] { fired.push_back(1); });
  loop.addTimer(now + milliseconds(20), [&] { fired.push_back(2); });
  RunLoop::Id removed = loop.addTimer(now + milliseconds(15), [&] { fired.push_back(99); });
  loop.remove(removed);
  loop.run();  // ends when the last timer has fired
  EXPECT_EQ(fired, (std::vector<int>{1, 2, 3}));
}

TEST(RunLoop, TimersDueTogetherFireInDateOrder) {
  // As after the thread was busy: every timer is due when the loop runs.
  RunLoop& loop = RunLoop::current();
  std::vector<int> fired;
  auto past = Clock::now() - milliseconds(100);
  loop.addTimer(past + milliseconds(30), [&] { fired.push_back(3); });
  loop.addTimer(past + milliseconds(10), [&] { fired.push_back(1); });
  loop.addTimer(past + milliseconds(20), [&] { fired.push_back(2); });
  EXPECT_TRUE(loop.runMode(kDefaultRunLoopMode, Clock::now()));
  EXPECT_EQ(fired, (std::vector<int>{1, 2, 3}));
}

TEST(RunLoop, SourcesRunOnlyWhenReadyEnabledAndInTheirMode) {
  RunLoop& loop = RunLoop::current();
  Pipe pipe;
  int calls = 0;
  RunLoop::Id source = loop.addSource(pipe.fds[0], [&] {
    ++calls;
    pipe.drain();
  });
  EXPECT_TRUE(loop.runMode(kDefaultRunLoopMode, Clock::now() + milliseconds(10)));
  EXPECT_EQ(calls, 0) << "ran without input";
  pipe.poke();
  EXPECT_FALSE(runMode(u"OtherMode", 0.01)) << "the source belongs to the default mode";
  EXPECT_EQ(calls, 0);
  loop.setSourceEnabled(source, false);
  EXPECT_TRUE(loop.runMode(kDefaultRunLoopMode, Clock::now() + milliseconds(10)));
  EXPECT_EQ(calls, 0) << "a disabled source ran";
  loop.setSourceEnabled(source, true);
  EXPECT_TRUE(loop.runMode(kDefaultRunLoopMode, Clock::now() + std::chrono::seconds(5)));
  EXPECT_EQ(calls, 1);
  loop.remove(source);
}

TEST(RunLoop, HandlersMayRemoveThemselvesAndRunTheLoopAgain) {
  RunLoop& loop = RunLoop::current();
  Pipe pipe;
  RunLoop::Id source = 0;
  bool innerTimerFired = false;
  source = loop.addSource(pipe.fds[0], [&] {
    pipe.drain();
    loop.remove(source);
    loop.addTimer(Clock::now(), [&] { innerTimerFired = true; });
    runForTimeInterval(loop, 0.02);  // nested
  });
  pipe.poke();
  loop.run();
  EXPECT_TRUE(innerTimerFired);
}

TEST(RunLoop, IntervalsThatMakeNoDateRunNothing) {
  RunLoop& loop = RunLoop::current();
  bool fired = false;
  RunLoop::Id timer = loop.addTimer(Clock::now(), [&] { fired = true; });
  for (double bad : {std::nan(""), std::numeric_limits<double>::infinity()}) {
    runForTimeInterval(bad);
    EXPECT_FALSE(runMode(kDefaultRunLoopMode, bad));
    EXPECT_FALSE(fired);
  }
  EXPECT_FALSE(RunLoop::dateWithTimeIntervalSinceNow(std::nan("")));
  EXPECT_TRUE(RunLoop::dateWithTimeIntervalSinceNow(1e300));  // clamped, not overflowed
  runForTimeInterval(0.01);
  EXPECT_TRUE(fired);
  loop.remove(timer);
}

}  // namespace
}  // namespace ferncast
