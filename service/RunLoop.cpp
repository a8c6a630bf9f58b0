#include "service/RunLoop.h"

#include <errno.h>
#include <poll.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

namespace ferncast {

RunLoop& RunLoop::current() {
  thread_local RunLoop loop;
  return loop;
}

std::optional<RunLoop::Clock::time_point> RunLoop::dateWithTimeIntervalSinceNow(double seconds) {
  constexpr double kCentury = 100 * 365.25 * 86400;
  if (!std::isfinite(seconds)) return std::nullopt;
  seconds = std::clamp(seconds, -kCentury, kCentury);
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

RunLoop::Id RunLoop::add(Entry entry) {
  Id id = nextId_++;
  entries_.emplace(id, std::move(entry));
  return id;
}

RunLoop::Id RunLoop::addSource(int fd, std::function<void()> handler, std::u16string_view mode) {
  return add(Entry{fd, {}, std::move(handler), std::u16string(mode)});
}

void RunLoop::setSourceEnabled(Id source, bool enabled) {
  auto found = entries_.find(source);
  if (found != entries_.end()) found->second.enabled = enabled;
}

RunLoop::Id RunLoop::addTimer(Clock::time_point fireDate, std::function<void()> handler,
                              std::u16string_view mode) {
  return add(Entry{-1, fireDate, std::move(handler), std::u16string(mode)});
}

void RunLoop::remove(Id id) {
  entries_.erase(id);
}

bool RunLoop::runMode(std::u16string_view mode, Clock::time_point limitDate) {
  std::vector<pollfd> fds;
  std::vector<Id> sources;
  Clock::time_point wakeUp = limitDate;
  bool attached = false;
  for (const auto& [id, entry] : entries_) {
    if (entry.mode != mode) continue;
    attached = true;
    if (entry.fd < 0) {
      wakeUp = std::min(wakeUp, entry.fireDate);
    } else if (entry.enabled) {
      fds.push_back(pollfd{entry.fd, POLLIN, 0});
      sources.push_back(id);
    }
  }
  if (!attached) return false;

  int timeout = -1;
  if (wakeUp != Clock::time_point::max()) {
    auto now = Clock::now();
    auto ms =
        wakeUp <= now ? 0 : std::chrono::ceil<std::chrono::milliseconds>(wakeUp - now).count();
    timeout = static_cast<int>(std::min<long long>(ms, INT_MAX));
  }
  int ready = poll(fds.data(), fds.size(), timeout);
  if (ready < 0 && errno != EINTR) return true;

  // Handlers may change the entries: look each one up again, and call a copy of its handler.
  for (std::size_t i = 0; ready > 0 && i < fds.size(); ++i) {
    if (!fds[i].revents) continue;
    auto found = entries_.find(sources[i]);
    if (found == entries_.end() || !found->second.enabled) continue;
    auto handler = found->second.handler;
    handler();
  }
  auto now = Clock::now();
  std::vector<std::pair<Clock::time_point, Id>> due;
  for (const auto& [id, entry] : entries_) {
    if (entry.fd < 0 && entry.mode == mode && entry.fireDate <= now)
      due.emplace_back(entry.fireDate, id);
  }
  // Timers that fell due together (the thread was busy or descheduled) fire in date order.
  std::sort(due.begin(), due.end());
  for (auto [date, id] : due) {
    auto found = entries_.find(id);
    if (found == entries_.end()) continue;
    auto handler = std::move(found->second.handler);
    entries_.erase(found);
    handler();
  }
  return true;
}

void RunLoop::runUntilDate(Clock::time_point limitDate) {
  while (Clock::now() < limitDate && runMode(kDefaultRunLoopMode, limitDate)) {
  }
}

void RunLoop::run() {
  while (runMode(kDefaultRunLoopMode, Clock::time_point::max())) {
  }
}

}  // namespace ferncast
