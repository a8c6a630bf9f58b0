// The helper connection against bare Unix sockets, measured in the same run:
//   - round trip of a trivial call (supportsFile: on a missing path) against an echo of the same
//     request bytes through a bare socket to another process (goal: at most 1.5x);
//   - a 16 MiB data reply (goal: at least 2 GB/s), beside the same bytes streamed bare;
//   - the same trivial call while another process attacks the helper with 64 idle connections,
//     4 clients that never read their (8 MiB) replies and a connect-and-close loop: the 99th
//     percentile of its latency (goal: at most 20 ms).
// Prints the figures at the end. The helper is ferncast-test-helper, which is FerncastHelper
// with extra operations (here "dataOfLength:"), registered under a name of this run.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Classes/Unicode.h"
#include "service/Connection.h"
#include "service/QuillImExport.h"
#include "service/Task.h"
#include "service/Transport.h"

namespace {

using namespace ferncast;

constexpr std::size_t kLargeReply = std::size_t{16} << 20;
constexpr char16_t kMissingPath[] = u"/nonexistent/benchmark/file.txt";

bool readExactly(int fd, std::uint8_t* p, std::size_t n) {
  while (n > 0) {
    ssize_t got = read(fd, p, n);
    if (got <= 0) return false;
    p += got;
    n -= static_cast<std::size_t>(got);
  }
  return true;
}

bool writeAll(int fd, const std::uint8_t* p, std::size_t n) {
  while (n > 0) {
    ssize_t put = write(fd, p, n);
    if (put <= 0) return false;
    p += put;
    n -= static_cast<std::size_t>(put);
  }
  return true;
}

// The baseline peer: another process on a socket pair. A request of length n (n != 1) is echoed;
// a single byte asks for kLargeReply bytes.
class BareSocketPeer {
 public:
  BareSocketPeer() {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) std::abort();
    pid_ = fork();
    if (pid_ == 0) {
      close(fds[0]);
      serve(fds[1]);
    }
    close(fds[1]);
    fd_ = fds[0];
  }
  ~BareSocketPeer() {
    close(fd_);
    waitpid(pid_, nullptr, 0);
  }
  int fd() const { return fd_; }

 private:
  [[noreturn]] static void serve(int fd) {
    std::vector<std::uint8_t> buffer(1 << 16);
    std::vector<std::uint8_t> large(kLargeReply, 7);
    for (;;) {
      ssize_t n = read(fd, buffer.data(), buffer.size());
      if (n <= 0) _exit(0);
      bool ok = n == 1 ? writeAll(fd, large.data(), large.size())
                       : writeAll(fd, buffer.data(), static_cast<std::size_t>(n));
      if (!ok) _exit(0);
    }
  }
  pid_t pid_;
  int fd_;
};

// The test helper, launched for this run.
class Helper {
 public:
  Helper() : name_(utf8ToUtf16("FerncastBenchmark-" + std::to_string(getpid()))) {
    setenv("FERNCAST_TEST_HELPER_NAME", utf16ToUtf8(name_).c_str(), 1);
    task_.setLaunchPath(utf8ToUtf16(FERNCAST_TEST_HELPER_PATH));
    task_.setEndsWithLauncher(true);
    int null = open("/dev/null", O_WRONLY | O_CLOEXEC);  // closed connections are logged
    task_.setStandardError(null);
    if (!task_.launch()) std::abort();
    close(null);
    for (int i = 0; i < 200 && !proxy_; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      proxy_ = Proxy::rootProxyForConnectionWithRegisteredName(name_);
    }
    if (!proxy_) std::abort();
  }
  ~Helper() {
    task_.terminate();
    task_.waitUntilExit(5);
  }
  Proxy& proxy() { return *proxy_; }
  std::shared_ptr<Proxy> shared() { return proxy_; }
  const std::u16string& name() const { return name_; }

 private:
  std::u16string name_;
  Task task_;
  std::shared_ptr<Proxy> proxy_;
};

Helper* helper;
BareSocketPeer* peer;
double hostileP99 = 0;

void BM_HelperRoundTrip(benchmark::State& state) {
  QuillImExportProxy ferncast(helper->shared());
  for (auto _ : state)
    benchmark::DoNotOptimize(ferncast.supportsFile(kMissingPath));
}
BENCHMARK(BM_HelperRoundTrip)
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();

void BM_BareEchoRoundTrip(benchmark::State& state) {
  auto request = encodeRequest({1, u"supportsFile:", {Value(kMissingPath)}})->joined();
  std::vector<std::uint8_t> back(request.size());
  for (auto _ : state) {
    if (!writeAll(peer->fd(), request.data(), request.size()) ||
        !readExactly(peer->fd(), back.data(), back.size())) {
      state.SkipWithError("echo failed");
      break;
    }
  }
}
BENCHMARK(BM_BareEchoRoundTrip)
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();

void BM_HelperDataReply16MiB(benchmark::State& state) {
  for (auto _ : state) {
    auto result = helper->proxy().perform(u"dataOfLength:", {Value(kLargeReply)});
    if (!result || !result->is<Data>() || result->as<Data>()->size() != kLargeReply) {
      state.SkipWithError("wrong reply");
      break;
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kLargeReply));
}
BENCHMARK(BM_HelperDataReply16MiB)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();

void BM_BareStream16MiB(benchmark::State& state) {
  std::vector<std::uint8_t> large(kLargeReply);
  const std::uint8_t ask = 1;
  for (auto _ : state) {
    if (!writeAll(peer->fd(), &ask, 1) || !readExactly(peer->fd(), large.data(), large.size())) {
      state.SkipWithError("stream failed");
      break;
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kLargeReply));
}
BENCHMARK(BM_BareStream16MiB)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly();

// Another process that attacks the helper until it is destroyed: 64 connections that send
// nothing, 4 that ask for 8 MiB and never read, and a loop that connects and closes at once.
// Whatever the helper closes is opened again.
class HostileLoad {
 public:
  explicit HostileLoad(std::u16string_view name) {
    auto endpoint = endpointFor(name);
    if (!endpoint) std::abort();
    pid_ = fork();
    if (pid_ == 0) attack(*endpoint);
  }
  ~HostileLoad() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

 private:
  static int connectTo(const Endpoint& endpoint) {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&endpoint.address), endpoint.length) != 0) {
      close(fd);
      return -1;
    }
    return fd;
  }
  [[noreturn]] static void attack(const Endpoint& endpoint) {
    auto request = encodeRequest({1, u"dataOfLength:", {Value(8 << 20)}})->joined();
    std::vector<int> idle(64, -1), silent(4, -1);
    for (;;) {
      for (int& fd : idle) {
        if (fd >= 0 && isClosed(fd)) close(std::exchange(fd, -1));
        if (fd < 0) fd = connectTo(endpoint);
      }
      for (int& fd : silent) {
        if (fd >= 0 && isClosed(fd)) close(std::exchange(fd, -1));
        if (fd < 0 && (fd = connectTo(endpoint)) >= 0) {
          ssize_t ignored = send(fd, request.data(), request.size(), MSG_NOSIGNAL);
          (void)ignored;
        }
      }
      for (int i = 0; i < 100; ++i) {
        int fd = connectTo(endpoint);
        if (fd >= 0) close(fd);
      }
    }
  }
  static bool isClosed(int fd) {
    pollfd state{fd, POLLRDHUP, 0};
    return poll(&state, 1, 0) > 0 && (state.revents & (POLLRDHUP | POLLHUP | POLLERR));
  }

  pid_t pid_;
};

// The trivial call under the hostile load, timed one by one: percentiles of the latency.
void BM_HelperRoundTripUnderHostileLoad(benchmark::State& state) {
  HostileLoad attack(helper->name());
  auto proxy = Proxy::rootProxyForConnectionWithRegisteredName(helper->name());
  if (!proxy) {
    state.SkipWithError("no proxy");
    return;
  }
  QuillImExportProxy ferncast(proxy);
  std::vector<double> seconds;
  seconds.reserve(static_cast<std::size_t>(state.max_iterations));
  for (auto _ : state) {
    auto started = std::chrono::steady_clock::now();
    try {
      benchmark::DoNotOptimize(ferncast.supportsFile(kMissingPath));
    } catch (const std::exception& e) {
      state.SkipWithError(e.what());
      break;
    }
    seconds.push_back(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
  }
  if (seconds.empty()) return;
  std::sort(seconds.begin(), seconds.end());
  auto percentile = [&](double p) {
    return seconds[std::min(seconds.size() - 1, static_cast<std::size_t>(p * seconds.size()))];
  };
  state.counters["p50_ms"] = percentile(0.50) * 1e3;
  state.counters["p99_ms"] = percentile(0.99) * 1e3;
  state.counters["max_ms"] = seconds.back() * 1e3;
  hostileP99 = percentile(0.99);
}
BENCHMARK(BM_HelperRoundTripUnderHostileLoad)
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(3000)
    ->UseRealTime();

// Keeps each benchmark's median time per iteration, in seconds, for the ratios (the medians of
// five repetitions, so that a burst of load on the machine does not decide them).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.aggregate_name != "median" && run.repetitions > 1) continue;
      seconds_[run.run_name.function_name] =
          run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
    }
    ConsoleReporter::ReportRuns(runs);
  }
  double seconds(const std::string& name) const {
    auto found = seconds_.find(name);
    return found == seconds_.end() ? 0 : found->second;
  }

 private:
  std::map<std::string, double> seconds_;
};

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  benchmark::Initialize(&argc, argv);
  BareSocketPeer bare;
  Helper launched;
  peer = &bare;
  helper = &launched;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  double helperTrip = reporter.seconds("BM_HelperRoundTrip");
  double bareTrip = reporter.seconds("BM_BareEchoRoundTrip");
  double helperData = reporter.seconds("BM_HelperDataReply16MiB");
  double bareData = reporter.seconds("BM_BareStream16MiB");
  if (helperTrip > 0 && bareTrip > 0) {
    std::printf("round trip: helper %.1f us, bare echo %.1f us: %.2fx (goal: at most 1.5x)\n",
                helperTrip * 1e6, bareTrip * 1e6, helperTrip / bareTrip);
  }
  if (helperData > 0 && bareData > 0) {
    std::printf(
        "16 MiB reply: helper %.2f GB/s (goal: at least 2), bare stream %.2f GB/s: "
        "%.2fx the bare time\n",
        kLargeReply / helperData / 1e9, kLargeReply / bareData / 1e9, helperData / bareData);
  }
  if (hostileP99 > 0) {
    std::printf("under hostile load: p99 of the trivial call %.2f ms (goal: at most 20 ms)\n",
                hostileP99 * 1e3);
  }
  benchmark::Shutdown();
}
