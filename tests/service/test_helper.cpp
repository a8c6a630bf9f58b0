// ferncast-test-helper: the helper's connection and FerncastHelper, plus operations and settings
// that only tests need. Unlike ferncast-helper it reads its environment:
//   FERNCAST_TEST_HELPER_NAME     the name to register (default "FerncastHelper32")
//   FERNCAST_TEST_HELPER_TIMEOUT  the connection's request and reply time-outs (default 15)
//   FERNCAST_TEST_HELPER_IDLE     the connection's idle time-out (default 60)
//   FERNCAST_TEST_HELPER_MODE     "silent": never register a name;
//                                 "squat": only listen on the socket path in
//                                 FERNCAST_TEST_HELPER_SQUAT, logging every byte count received
// It logs "registered" or "running without a name" once it has asked for its name.
// Operations besides QuillImExport, each answered with its ordinal among the answers that count
// (the test operations) unless said otherwise:
//   "ordinal"; "sleepFor:" (seconds, blocking; logs "sleeping"); "runLoopFor:" (seconds, running
//   the run loop);
//   "dataOfLength:" (bytes) -> data; "busyFor:" (seconds) -> YES; "stillBusy" -> Boolean;
//   "exitNow" (the process ends with status 3 while answering).
// supportsFile: raises for paths starting "/raise/" (named exception) and "/throw/" (a C++
// standard exception).
#include <errno.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include "Classes/Log.h"
#include "Classes/Unicode.h"
#include "service/Connection.h"
#include "service/FerncastHelper.h"
#include "service/NSRunLoop+Quill.h"
#include "service/RunLoop.h"
#include "service/Transport.h"

namespace {

using namespace ferncast;

double number(const Array& arguments) {
  if (arguments.size() == 1) {
    if (auto n = arguments[0].number()) return *n;
  }
  throw RemoteException("NSInvalidArgumentException", "one number expected");
}

class TestHelper final : public FerncastHelper {
 public:
  bool respondsToSelector(std::u16string_view selector) const override {
    for (auto known : {u"ordinal", u"sleepFor:", u"runLoopFor:", u"dataOfLength:", u"busyFor:",
                       u"stillBusy", u"exitNow"}) {
      if (selector == known) return true;
    }
    return FerncastHelper::respondsToSelector(selector);
  }

  std::optional<Value> invoke(std::u16string_view selector, Array arguments) override {
    if (selector == u"ordinal") return Value(++ordinal_);
    if (selector == u"sleepFor:") {
      NSLog("sleeping");
      std::this_thread::sleep_for(std::chrono::duration<double>(number(arguments)));
      return Value(++ordinal_);
    }
    if (selector == u"runLoopFor:") {
      runForTimeInterval(number(arguments));
      return Value(++ordinal_);
    }
    if (selector == u"dataOfLength:") {
      auto length = static_cast<std::size_t>(number(arguments));
      if (data_.size() != length) {
        data_.resize(length);
        for (std::size_t i = 0; i < length; ++i)
          data_[i] = static_cast<std::uint8_t>(i * 7);
      }
      return Value(data_);
    }
    if (selector == u"busyFor:") {
      busyUntil_ = std::chrono::steady_clock::now() +
                   std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                       std::chrono::duration<double>(number(arguments)));
      return Value(true);
    }
    if (selector == u"stillBusy") return Value(std::chrono::steady_clock::now() < busyUntil_);
    if (selector == u"exitNow") _exit(3);
    return FerncastHelper::invoke(selector, std::move(arguments));
  }

  bool supportsFile(std::u16string_view path) override {
    if (path.starts_with(u"/raise/"))
      throw RemoteException("NSRangeException", "raised on request");
    if (path.starts_with(u"/throw/")) throw std::out_of_range("thrown on request");
    return FerncastHelper::supportsFile(path);
  }

 private:
  std::int64_t ordinal_ = 0;
  Data data_;
  std::chrono::steady_clock::time_point busyUntil_;
};

// Listens on a socket path, as a stranger who got there first would, and answers nothing.
int squat(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (path.size() >= sizeof address.sun_path || fd < 0) return 1;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(fd, 8) != 0) {
    NSLog(std::string("cannot squat: ") + std::strerror(errno));
    return 1;
  }
  NSLog("squatting");
  for (;;) {
    int client = accept(fd, nullptr, nullptr);
    if (client < 0) continue;
    char buffer[4096];
    ssize_t n;
    while ((n = read(client, buffer, sizeof buffer)) > 0) {
      NSLog("received " + std::to_string(n) + " bytes");
    }
    close(client);
  }
}

std::string environment(const char* name, const char* fallback) {
  const char* value = std::getenv(name);
  return value ? value : fallback;
}

}  // namespace

int main() {
  std::u16string name = utf8ToUtf16(environment("FERNCAST_TEST_HELPER_NAME", "FerncastHelper32"));
  std::string mode = environment("FERNCAST_TEST_HELPER_MODE", "");
  if (mode == "squat") return squat(environment("FERNCAST_TEST_HELPER_SQUAT", ""));
  double timeout = std::stod(environment("FERNCAST_TEST_HELPER_TIMEOUT", "15"));
  Connection connection;
  TestHelper helper;
  connection.setRootObject(&helper);
  connection.setRequestTimeout(timeout);
  connection.setReplyTimeout(timeout);
  connection.setIdleTimeout(std::stod(environment("FERNCAST_TEST_HELPER_IDLE", "60")));
  connection.retireOnTermination();
  if (mode != "silent") {
    NSLog(connection.registerName(name) ? "registered" : "running without a name");
  }
  while (!connection.retired())
    RunLoop::current().runMode(kDefaultRunLoopMode, RunLoop::Clock::time_point::max());
  _exit(0);  // everything is delivered; the libraries' exit handlers would only delay the end
}
