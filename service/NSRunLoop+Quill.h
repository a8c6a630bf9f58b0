// NSRunLoop(NSRunLoopQuillExtensions): running a run loop for a time interval in seconds.
// Same thread rules as RunLoop.
#pragma once

#include <string_view>

#include "service/RunLoop.h"

namespace ferncast {

// Runs `loop` in the default mode until `seconds` from now; nothing is run when `seconds` is not
// finite.
void runForTimeInterval(RunLoop& loop, double seconds);
// Runs `loop` once in `mode` with the instant `seconds` from now as limit; its answer, or false
// when `seconds` is not finite.
bool runMode(RunLoop& loop, std::u16string_view mode, double seconds);

// The same on the calling thread's loop.
void runForTimeInterval(double seconds);
bool runMode(std::u16string_view mode, double seconds);

}  // namespace ferncast
