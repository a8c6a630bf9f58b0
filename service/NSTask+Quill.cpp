#include "service/NSTask+Quill.h"

#include "Classes/Log.h"

namespace ferncast {

bool launchTaskAndWaitUntilExitWithLaunchPath(std::u16string_view path,
                                              std::vector<std::u16string> arguments) {
  Task task;
  task.setLaunchPath(std::u16string(path));
  task.setArguments(std::move(arguments));
  return launchAndWaitUntilExit(task);
}

bool launchAndWaitUntilExit(Task& task) {
  if (!task.launch()) {
    logException("launchAndWaitUntilExit", "NSTask", "NSInvalidArgumentException",
                 task.launchError());
    return false;
  }
  task.waitUntilExit();
  return task.terminationStatus() == 0;
}

}  // namespace ferncast
