// The helper connection against bare Unix sockets, measured in the same run:
//   - round trip of a trivial call (supportsFile: on a missing path) against an echo of the same
//     request bytes through a bare socket to another process (goal: within 2x);
//   - a 16 MiB data reply (goal: at least 1 GB/s), beside the same bytes streamed bare.
// Prints the ratios at the end. The helper is ferncast-test-helper, which is FerncastHelper
// with extra operations (here "dataOfLength:"), registered under a name of this run.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>
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
    if (!task_.launch()) std::abort();
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

 private:
  std::u16string name_;
  Task task_;
  std::shared_ptr<Proxy> proxy_;
};

Helper* helper;
BareSocketPeer* peer;

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

// Keeps each benchmark's median time per iteration, in seconds, for the ratios (the medians of
// five repetitions, so that a burst of load on the machine does not decide them).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.aggregate_name != "median") continue;
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
    std::printf("round trip: helper %.1f us, bare echo %.1f us: %.2fx (goal: at most 2x)\n",
                helperTrip * 1e6, bareTrip * 1e6, helperTrip / bareTrip);
  }
  if (helperData > 0 && bareData > 0) {
    std::printf(
        "16 MiB reply: helper %.2f GB/s (goal: at least 1), bare stream %.2f GB/s: "
        "%.2fx the bare time\n",
        kLargeReply / helperData / 1e9, kLargeReply / bareData / 1e9, helperData / bareData);
  }
  benchmark::Shutdown();
}
