// Task: a child process (the stand-in for NSTask), started with fork and exec.
//
// A Task is made, configured, launched once and then watched. Destroying it does not end a
// running child; a child that ends after its Task is gone is reaped by a later Task operation, so
// no zombie stays behind. One thread at a time per Task.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ferncast {

class Task {
 public:
  Task() = default;
  ~Task();
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  void setLaunchPath(std::u16string path) { launchPath_ = std::move(path); }
  void setArguments(std::vector<std::u16string> arguments) { arguments_ = std::move(arguments); }
  // Descriptors the child gets as standard output and error (duplicated at launch; they stay the
  // caller's). -1, the default, passes the parent's on.
  void setStandardOutput(int fd) { standardOutput_ = fd; }
  void setStandardError(int fd) { standardError_ = fd; }
  // Whether the child gets SIGTERM when the launching thread ends (Linux's parent-death signal,
  // which follows the thread that forked, not the whole process).
  void setEndsWithLauncher(bool ends) { endsWithLauncher_ = ends; }

  // Starts the child with the environment and working folder of this process. False, with
  // `launchError` saying why, when it could not be started (launched before, no path, exec failed).
  bool launch();
  const std::string& launchError() const { return launchError_; }

  bool isRunning();
  // Sends SIGTERM when running.
  void terminate();
  void waitUntilExit();
  // Waits at most `seconds`; whether the child has ended.
  bool waitUntilExit(double seconds);

  // The exit status, or the signal number when a signal ended the child; 0 before it ends.
  int terminationStatus() const { return terminationStatus_; }
  pid_t processIdentifier() const { return pid_; }

 private:
  // Records the child's end when `status` comes from waitpid.
  void ended(int status);

  std::u16string launchPath_;
  std::vector<std::u16string> arguments_;
  int standardOutput_ = -1;
  int standardError_ = -1;
  bool endsWithLauncher_ = false;
  pid_t pid_ = 0;
  bool running_ = false;
  int terminationStatus_ = 0;
  std::string launchError_;
};

}  // namespace ferncast
