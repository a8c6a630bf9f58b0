#include "service/NSRunLoop+Quill.h"

namespace ferncast {

void runForTimeInterval(RunLoop& loop, double seconds) {
  if (auto date = RunLoop::dateWithTimeIntervalSinceNow(seconds)) loop.runUntilDate(*date);
}

bool runMode(RunLoop& loop, std::u16string_view mode, double seconds) {
  auto date = RunLoop::dateWithTimeIntervalSinceNow(seconds);
  return date && loop.runMode(mode, *date);
}

void runForTimeInterval(double seconds) {
  runForTimeInterval(RunLoop::current(), seconds);
}

bool runMode(std::u16string_view mode, double seconds) {
  return runMode(RunLoop::current(), mode, seconds);
}

}  // namespace ferncast
