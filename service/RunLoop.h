// A thread's run loop (the stand-in for NSRunLoop): file-descriptor input sources and one-shot
// timers, each attached in one mode, waited on with poll(2) and handled on the thread that runs
// the loop.
//
// One loop per thread (`current`), used only by that thread. Handlers may add and remove sources
// and timers, and may run the loop again (nested); the helper's connection disables its own
// source while it answers a request, so that requests stay queued during such nested runs.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace ferncast {

inline constexpr std::u16string_view kDefaultRunLoopMode = u"kCFRunLoopDefaultMode";

class RunLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Id = std::uint64_t;

  // The calling thread's loop, made on first use.
  static RunLoop& current();

  // The instant `seconds` from now; nullopt when `seconds` is not finite. Clamped to a century.
  static std::optional<Clock::time_point> dateWithTimeIntervalSinceNow(double seconds);

  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  // Calls `handler` whenever `fd` is readable (or has hung up) while the loop runs in `mode`.
  // The descriptor stays the caller's; remove the source before closing it.
  Id addSource(int fd, std::function<void()> handler,
               std::u16string_view mode = kDefaultRunLoopMode);
  // A disabled source stays attached (the loop still waits) but is not polled.
  void setSourceEnabled(Id source, bool enabled);
  // Calls `handler` once, at the first run in `mode` at or after `fireDate`.
  Id addTimer(Clock::time_point fireDate, std::function<void()> handler,
              std::u16string_view mode = kDefaultRunLoopMode);
  // Detaches a source or a timer; unknown ids are ignored.
  void remove(Id id);

  // Runs once in `mode`: waits until a source is ready or a timer is due, handles them, and
  // returns; or returns when `limitDate` passes. False at once when nothing is attached in `mode`.
  bool runMode(std::u16string_view mode, Clock::time_point limitDate);
  // Runs in the default mode until `limitDate` or until nothing is attached.
  void runUntilDate(Clock::time_point limitDate);
  // Runs in the default mode until nothing is attached.
  void run();

 private:
  RunLoop() = default;

  struct Entry {
    int fd = -1;  // -1 for a timer
    Clock::time_point fireDate;
    std::function<void()> handler;
    std::u16string mode;
    bool enabled = true;
  };

  Id add(Entry entry);

  std::map<Id, Entry> entries_;
  Id nextId_ = 1;
};

}  // namespace ferncast
