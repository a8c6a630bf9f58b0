#include "service/Task.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>

#include "Classes/Unicode.h"

extern char** environ;

namespace ferncast {
namespace {

// Children whose Task went away while they ran; reaped when they end.
std::mutex abandonedLock;
std::vector<pid_t>& abandoned() {
  static std::vector<pid_t> pids;
  return pids;
}

void reapAbandoned() {
  std::lock_guard<std::mutex> lock(abandonedLock);
  std::erase_if(abandoned(), [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
}

}  // namespace

Task::~Task() {
  if (isRunning()) {
    std::lock_guard<std::mutex> lock(abandonedLock);
    abandoned().push_back(pid_);
  }
  reapAbandoned();
}

bool Task::launch() {
  reapAbandoned();
  if (pid_ != 0) {
    launchError_ = "The task was launched before.";
    return false;
  }
  if (launchPath_.empty()) {
    launchError_ = "No launch path is set.";
    return false;
  }
  // Everything the child needs is made before fork: between fork and exec it only calls
  // async-signal-safe functions.
  std::string path = utf16ToUtf8(launchPath_);
  std::vector<std::string> texts{path};
  for (const auto& argument : arguments_)
    texts.push_back(utf16ToUtf8(argument));
  std::vector<char*> argv;
  for (auto& text : texts)
    argv.push_back(text.data());
  argv.push_back(nullptr);

  int report[2];  // the child writes errno here when exec fails; closed by a successful exec
  if (pipe2(report, O_CLOEXEC) != 0) {
    launchError_ = std::string("pipe2: ") + strerror(errno);
    return false;
  }
  pid_t parent = getpid();
  pid_t pid = fork();
  if (pid < 0) {
    launchError_ = std::string("fork: ") + strerror(errno);
    close(report[0]);
    close(report[1]);
    return false;
  }
  if (pid == 0) {
    close(report[0]);
    if (endsWithLauncher_) {
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      if (getppid() != parent) _exit(127);  // the launcher ended before the signal was set
    }
    if (standardOutput_ >= 0) dup2(standardOutput_, STDOUT_FILENO);
    if (standardError_ >= 0) dup2(standardError_, STDERR_FILENO);
    // Start the child with default signal handling, whatever the launcher ignores or blocks.
    struct sigaction defaults {};
    defaults.sa_handler = SIG_DFL;
    sigaction(SIGPIPE, &defaults, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execve(path.c_str(), argv.data(), environ);
    int error = errno;
    ssize_t ignored = write(report[1], &error, sizeof error);
    (void)ignored;
    _exit(127);
  }
  close(report[1]);
  int error = 0;
  ssize_t n;
  do {
    n = read(report[0], &error, sizeof error);
  } while (n < 0 && errno == EINTR);
  close(report[0]);
  pid_ = pid;
  if (n == static_cast<ssize_t>(sizeof error)) {
    int status = 0;
    waitpid(pid, &status, 0);
    ended(status);
    launchError_ = "Cannot launch " + path + ": " + strerror(error);
    return false;
  }
  running_ = true;
  return true;
}

void Task::ended(int status) {
  running_ = false;
  terminationStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
}

bool Task::isRunning() {
  if (!running_) return false;
  int status = 0;
  pid_t result = waitpid(pid_, &status, WNOHANG);
  if (result == pid_) ended(status);
  if (result < 0 && errno == ECHILD) running_ = false;
  return running_;
}

void Task::terminate() {
  if (isRunning()) kill(pid_, SIGTERM);
}

void Task::waitUntilExit() {
  while (running_) {
    int status = 0;
    pid_t result = waitpid(pid_, &status, 0);
    if (result == pid_) {
      ended(status);
    } else if (result < 0 && errno != EINTR) {
      running_ = false;
    }
  }
}

bool Task::waitUntilExit(double seconds) {
  auto deadline = std::chrono::steady_clock::now() +
                  std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                      std::chrono::duration<double>(std::clamp(seconds, 0.0, 1e9)));
  while (isRunning()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace ferncast
