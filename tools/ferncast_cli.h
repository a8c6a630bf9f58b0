// Shared plumbing of the ferncast command: area registration, input, output and exit statuses.
//
// Each area (text, data, markup, ...) lives in tools/ferncast_<area>[_<theme>].cpp and registers
// itself with a file-scope `RegisterArea`; several files may register commands in one area.
// Commands report through `Status` codes:
//   0 success or YES, 1 a negative answer (nil, NO, not found), 2 usage or unreadable input,
//   3 the helper could not be reached or timed out.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Classes/PropertyList.h"

namespace ferncast::cli {

enum Status : int { kSuccess = 0, kNegative = 1, kUsage = 2, kUnreachable = 3 };

struct Area {
  const char* name;
  const char* description;
  // Adds the area's commands to its subcommand. Each command's callback calls `finish`.
  void (*addCommands)(CLI::App& area);
  // A leaf area is itself the command ("ferncast error-page [options]"): addCommands gives the
  // subcommand its options and callback instead of verbs.
  bool leaf = false;
};

struct RegisterArea {
  explicit RegisterArea(Area area);
};

// Ends the running command with a status and, when not empty, a one-line message on standard
// error (prefixed "ferncast: "). Throws; main turns it into the exit status.
struct Exit : std::runtime_error {
  Exit(int code, std::string message) : std::runtime_error(std::move(message)), status(code) {}
  int status;
};
[[noreturn]] void finish(int status, std::string message = {});

// The bytes of a file, or of standard input for "-" or an empty path; Exit(kUsage) when unreadable.
std::string readInput(const std::string& path);
// The same bytes as UTF-16 text (UTF-8 input; invalid sequences become U+FFFD).
std::u16string readTextInput(const std::string& path);
// A command-line argument as UTF-16 text.
std::u16string argumentText(const std::string& argument);

// Writes all bytes to standard output; Exit(kUsage) when that fails.
void writeOutput(std::string_view bytes);
void writeText(std::u16string_view text);
// The JSON rendering of a value, followed by a line feed.
void printJson(const Value& value);

}  // namespace ferncast::cli
