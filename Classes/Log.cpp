#include "Classes/Log.h"

#include <errno.h>
#include <unistd.h>

#include <string>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

std::function<void(std::string_view)>& sink() {
  static std::function<void(std::string_view)> current;
  return current;
}

}  // namespace

void NSLog(std::string_view text) {
  if (auto& custom = sink()) {
    custom(text);
    return;
  }
  std::string line = program_invocation_short_name;
  line += '[';
  line += std::to_string(getpid());
  line += "] ";
  line += text;
  line += '\n';
  const char* p = line.data();
  std::size_t left = line.size();
  while (left > 0) {
    ssize_t written = write(STDERR_FILENO, p, left);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) break;
    p += written;
    left -= static_cast<std::size_t>(written);
  }
}

void NSLog(std::u16string_view text) {
  NSLog(utf16ToUtf8(text));
}

std::string exceptionLogLine(std::string_view operation, std::string_view className,
                             std::string_view exceptionName, std::string_view reason,
                             const std::vector<std::string>& callStackSymbols) {
  std::string line;
  line.append(operation).append(" (").append(className).append("):\n");
  line.append(exceptionName).append("\n").append(reason).append("\n");
  for (std::size_t i = 0; i < callStackSymbols.size(); ++i) {
    if (i) line += '\n';
    line += callStackSymbols[i];
  }
  return line;
}

void logException(std::string_view operation, std::string_view className,
                  std::string_view exceptionName, std::string_view reason,
                  const std::vector<std::string>& callStackSymbols) {
  NSLog(exceptionLogLine(operation, className, exceptionName, reason, callStackSymbols));
}

void setLogSink(std::function<void(std::string_view)> sink_) {
  sink() = std::move(sink_);
}

}  // namespace ferncast
