// Diagnostics: the stand-in for NSLog. One line per message on standard error, as
// "<program>[<pid>] <text>"; line feeds inside the text are kept, so a message may span lines.
// Thread-safe: each message is written with a single write call.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ferncast {

void NSLog(std::string_view text);
void NSLog(std::u16string_view text);

// The exception log line "%@ (%@):\n%@\n%@\n%@": operation, class of the receiver, exception
// name, reason and call-stack symbols joined by line feeds.
std::string exceptionLogLine(std::string_view operation, std::string_view className,
                             std::string_view exceptionName, std::string_view reason,
                             const std::vector<std::string>& callStackSymbols);

// Logs exceptionLogLine(...) through NSLog.
void logException(std::string_view operation, std::string_view className,
                  std::string_view exceptionName, std::string_view reason,
                  const std::vector<std::string>& callStackSymbols = {});

// Replaces where messages go (the text as passed to NSLog, without the prefix); an empty function
// restores standard error. For tests; not meant to be changed while other threads log.
void setLogSink(std::function<void(std::string_view)> sink);

}  // namespace ferncast
