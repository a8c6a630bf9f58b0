// Runs a built program of this project the way a user runs it, for the command-line tests.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "tests/ScratchDirectory.h"

namespace ferncast::testing {

struct CommandResult {
  int status;  // the exit status, or -1 when the program did not exit normally
  std::string out;
  std::string err;
};

// Runs `command` (a shell command line; quote its arguments) with standard output and error
// captured in files of `scratch`.
inline CommandResult runCommand(const ScratchDirectory& scratch, const std::string& command) {
  const std::string out = (scratch / "command.out").string();
  const std::string err = (scratch / "command.err").string();
  const int raw = std::system((command + " > '" + out + "' 2> '" + err + "'").c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ScratchDirectory::read(out),
          ScratchDirectory::read(err)};
}

// A path in single quotes for a shell command line.
inline std::string quoted(const std::filesystem::path& path) {
  std::string text = "'";
  for (char c : path.string())
    text += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return text + "'";
}

}  // namespace ferncast::testing
