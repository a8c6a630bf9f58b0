// Shared by the service tests: helper processes started for a test, raw sockets to them, and a
// runtime folder of the test process's own, so that helpers under the fixed name meet no other.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Classes/Unicode.h"
#include "service/Connection.h"
#include "service/Task.h"
#include "service/Transport.h"

namespace ferncast::testing {

inline const std::string kHelperPath = FERNCAST_BINARY_DIR "/tools/ferncast-helper";
inline const std::string kTestHelperPath = FERNCAST_BINARY_DIR "/service/ferncast-test-helper";

// A registered name no other test process uses.
inline std::u16string uniqueName() {
  static int counter = 0;
  return utf8ToUtf16("FerncastTest-" + std::to_string(getpid()) + "-" + std::to_string(++counter));
}

// Points XDG_RUNTIME_DIR at a fresh private folder for this process and the helpers it starts,
// and removes it when the process ends. Done once, before any test runs.
inline const std::string& ownRuntimeFolder() {
  static const std::string folder = [] {
    std::string path = ::testing::TempDir() + "ferncast-runtime-XXXXXX";
    if (!mkdtemp(path.data())) return std::string();
    setenv("XDG_RUNTIME_DIR", path.c_str(), 1);
    static const std::string removed = path;
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(removed, ignored);
    });
    return path;
  }();
  return folder;
}
inline const bool kOwnRuntimeFolder = !ownRuntimeFolder().empty();

// The proxy of `name`, polled for up to two seconds.
inline std::shared_ptr<Proxy> waitForProxy(std::u16string_view name) {
  for (int i = 0; i < 200; ++i) {
    if (auto proxy = Proxy::rootProxyForConnectionWithRegisteredName(name)) return proxy;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return nullptr;
}

// A helper process for one test, its standard error kept in a file; terminated at the end.
class HelperProcess {
 public:
  struct Settings {
    std::string executable = kTestHelperPath;
    std::u16string name;              // registered name (test helper only)
    std::string mode;                 // "", "silent" or "squat" (test helper only)
    std::string timeout = "15";       // the connection's time-outs (test helper only)
    std::string idle = "60";          // the connection's idle time-out (test helper only)
    std::string squatPath;            // "squat": where to listen
    std::vector<std::string> prefix;  // a program that runs the helper, such as setpriv
  };

  explicit HelperProcess(Settings settings) : settings_(std::move(settings)) {
    log_ = std::filesystem::path(::testing::TempDir()) /
           ("helper-" + std::to_string(getpid()) + "-" + std::to_string(++count_) + ".log");
    int err = open(log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    setenv("FERNCAST_TEST_HELPER_NAME", utf16ToUtf8(settings_.name).c_str(), 1);
    setenv("FERNCAST_TEST_HELPER_MODE", settings_.mode.c_str(), 1);
    setenv("FERNCAST_TEST_HELPER_TIMEOUT", settings_.timeout.c_str(), 1);
    setenv("FERNCAST_TEST_HELPER_IDLE", settings_.idle.c_str(), 1);
    setenv("FERNCAST_TEST_HELPER_SQUAT", settings_.squatPath.c_str(), 1);
    std::vector<std::string> command = settings_.prefix;
    command.push_back(settings_.executable);
    task_.setLaunchPath(utf8ToUtf16(command[0]));
    std::vector<std::u16string> arguments;
    for (std::size_t i = 1; i < command.size(); ++i)
      arguments.push_back(utf8ToUtf16(command[i]));
    task_.setArguments(std::move(arguments));
    task_.setStandardError(err);
    task_.setEndsWithLauncher(true);
    task_.launch();
    close(err);
  }
  ~HelperProcess() {
    task_.terminate();
    task_.waitUntilExit(5);
    std::error_code ignored;
    std::filesystem::remove(log_, ignored);
  }

  Task& task() { return task_; }
  pid_t pid() const { return task_.processIdentifier(); }
  std::string log() const {
    std::ifstream in(log_);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  // Waits up to two seconds for `text` to appear in the log.
  bool waitForLog(const std::string& text) const {
    for (int i = 0; i < 200; ++i) {
      if (log().find(text) != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

 private:
  static inline int count_ = 0;
  Settings settings_;
  Task task_;
  std::filesystem::path log_;
};

// The peak resident memory of a process in kilobytes, or -1.
inline long peakResidentKilobytes(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  }
  return -1;
}

// A blocking socket connected to the socket at `path`, or to the endpoint of `name`, without any
// check; -1 when nothing listens there.
inline int connectPath(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (path.size() >= sizeof address.sun_path || fd < 0) return -1;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  timeval limit{5, 0};  // a test that waits longer has failed anyway
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  return fd;
}
inline int connectRaw(std::u16string_view name) {
  auto endpoint = endpointFor(name);
  return endpoint ? connectPath(endpoint->socketPath) : -1;
}

inline bool sendRaw(int fd, const std::vector<std::uint8_t>& bytes) {
  return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

// What the other end sends until it closes: the bytes, and whether it closed (end of stream or
// reset) rather than the read timing out.
struct Received {
  std::vector<std::uint8_t> bytes;
  bool closed = false;
};
inline Received receiveUntilClosed(int fd) {
  Received received;
  std::uint8_t buffer[65536];
  for (;;) {
    ssize_t n = recv(fd, buffer, sizeof buffer, 0);
    if (n > 0) {
      received.bytes.insert(received.bytes.end(), buffer, buffer + n);
      continue;
    }
    received.closed = n == 0 || errno == ECONNRESET;
    return received;
  }
}

// Reads one reply frame from a blocking socket; nullopt when the connection closes first.
inline std::optional<Reply> receiveReply(int fd) {
  std::vector<std::uint8_t> frame(kFrameHeaderLength);
  auto readExactly = [fd](std::uint8_t* p, std::size_t n) {
    while (n > 0) {
      ssize_t got = recv(fd, p, n, 0);
      if (got <= 0) return false;
      p += got;
      n -= static_cast<std::size_t>(got);
    }
    return true;
  };
  if (!readExactly(frame.data(), kFrameHeaderLength)) return std::nullopt;
  auto length = frameBodyLength(frame.data());
  if (!length) return std::nullopt;
  frame.resize(kFrameHeaderLength + *length);
  if (!readExactly(frame.data() + kFrameHeaderLength, *length)) return std::nullopt;
  return decodeReply(frame.data() + kFrameHeaderLength, *length);
}

}  // namespace ferncast::testing
