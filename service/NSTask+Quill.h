// NSTask(NSTaskQuillExtensions): running a program to its end. Blocks the calling thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "service/Task.h"

namespace ferncast {

// Launches `path` with `arguments` and waits until it ends; true exactly when it exited with
// status 0. A launch failure is logged with the exception log line and gives false.
bool launchTaskAndWaitUntilExitWithLaunchPath(std::u16string_view path,
                                              std::vector<std::u16string> arguments);

// Launches the configured `task` and waits until it ends; true exactly when it exited with
// status 0. A launch failure is logged with the exception log line and gives false.
bool launchAndWaitUntilExit(Task& task);

}  // namespace ferncast
