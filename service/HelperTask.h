// HelperTask: the client side of a helper process. Launches a helper executable, finds the
// connection it registers under a name, hands out proxies of its root object, and ends the helper
// it launched: before each new launch, when a launch fails, on `terminate`, and when the
// HelperTask goes away. A helper it launched also ends when the launching thread ends (the
// parent-death signal), so none is left behind; a helper found running is used but never ended.
//
// Meant for one thread. `launchUsingTimeout` blocks for up to about two seconds while it polls
// for the helper's name; `waitUntilDone` for up to its argument.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "service/Connection.h"
#include "service/Protocol.h"
#include "service/Task.h"

namespace ferncast {

// How a HelperTask treats its helper. `protocol` (static data, not owned) is set on every proxy
// handed out; `timeout` (seconds) is the default of the operations without a time-out argument,
// 0 leaving the connection's time-outs as they are; `logging` keeps the helper's standard output
// and error (else they go to the null device).
struct HelperTaskOptions {
  const Protocol* protocol = nullptr;
  double timeout = 0;
  bool logging = false;
};

class HelperTask {
 public:
  // The helper executable at `path`, registering `name`. Null, after logging
  // "Helper missing: <name>", when the path or the name is empty.
  [[nodiscard]] static std::unique_ptr<HelperTask> initWithPath(std::u16string_view path,
                                                                std::u16string_view name,
                                                                const HelperTaskOptions& options);
  // The same, the missing options being null, 0 and false.
  [[nodiscard]] static std::unique_ptr<HelperTask> initWithPath(std::u16string_view path,
                                                                std::u16string_view name);
  [[nodiscard]] static std::unique_ptr<HelperTask> initWithPath(std::u16string_view path,
                                                                std::u16string_view name,
                                                                const Protocol* protocol);
  [[nodiscard]] static std::unique_ptr<HelperTask> initWithPath(std::u16string_view path,
                                                                std::u16string_view name,
                                                                const Protocol* protocol,
                                                                double timeout);
  [[nodiscard]] static std::unique_ptr<HelperTask> initWithPath(std::u16string_view path,
                                                                std::u16string_view name,
                                                                const Protocol* protocol,
                                                                double timeout, bool logging);

  // Ends the helper this object launched.
  ~HelperTask();
  HelperTask(const HelperTask&) = delete;
  HelperTask& operator=(const HelperTask&) = delete;

  // Ends any helper launched before, launches a new one and polls for its name 40 times at
  // 0.05-second intervals, accepting only the helper it launched (another helper holding the
  // name may be ended by its own launcher at any time; ours takes the name over when that one
  // ends). The proxy, prepared with `timeout`; null when the helper could not be launched
  // (logged), ended at once or while polling, or did not get the name in time (logged
  // "Connection to <executable> failed."; that helper is left running until `terminate`).
  [[nodiscard]] std::shared_ptr<Proxy> launch();
  [[nodiscard]] std::shared_ptr<Proxy> launchUsingTimeout(double timeout);
  // The proxy of a helper that is running already (launched by anyone), prepared with
  // `timeout`; null when none is reachable. Starts nothing.
  [[nodiscard]] std::shared_ptr<Proxy> launchedProxy();
  [[nodiscard]] std::shared_ptr<Proxy> launchedProxyUsingTimeout(double timeout);
  // launchedProxy, or else launch.
  [[nodiscard]] std::shared_ptr<Proxy> proxy();
  [[nodiscard]] std::shared_ptr<Proxy> proxyUsingTimeout(double timeout);
  // Sets both time-outs of `proxy` to `timeout` when it is positive, and the protocol when set.
  void _initProxy(Proxy& proxy, double timeout) const;

  // Whether the running helper says it is busy; false when none is reachable, it does not
  // respond to "stillBusy" or the question fails.
  [[nodiscard]] bool stillBusy();
  // Waits in 0.05-second steps while the running helper says it is busy, at most `seconds`.
  // Failures end the wait silently.
  void waitUntilDone(double seconds);
  // Ends the helper this object launched (SIGTERM, then up to a second for it to go, so that its
  // name is free for the next launch) and forgets it.
  void terminate();

  double timeout() const { return _timeout; }
  void setTimeout(double timeout) { _timeout = timeout; }
  // Take effect at the next launch.
  void enableLogging() { _logging = true; }
  void disableLogging() { _logging = false; }

  // The helper launched by this object, or null.
  Task* task() const { return _task.get(); }

 private:
  HelperTask() = default;
  // The answer to "stillBusy" on `proxy`; false for any other reply.
  static bool saysBusy(Proxy& proxy);

  std::unique_ptr<Task> _task;
  std::u16string _proxyName;
  std::u16string _path;
  double _timeout = 0;
  const Protocol* _protocol = nullptr;
  bool _logging = false;
};

}  // namespace ferncast
