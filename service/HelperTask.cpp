#include "service/HelperTask.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "Classes/Log.h"
#include "Classes/Unicode.h"

namespace ferncast {
namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(50);
constexpr int kPolls = 40;
constexpr double kPollSeconds = 0.05;
constexpr double kTerminateGrace = 1.0;

std::u16string lastPathComponent(std::u16string_view path) {
  auto slash = path.rfind(u'/');
  return std::u16string(slash == std::u16string_view::npos ? path : path.substr(slash + 1));
}

}  // namespace

std::unique_ptr<HelperTask> HelperTask::initWithPath(std::u16string_view path,
                                                     std::u16string_view name,
                                                     const HelperTaskOptions& options) {
  if (path.empty() || name.empty()) {
    NSLog(u"Helper missing: " + std::u16string(name));
    return nullptr;
  }
  std::unique_ptr<HelperTask> helper(new HelperTask);
  helper->_timeout = options.timeout;
  helper->_logging = options.logging;
  helper->_protocol = options.protocol;
  helper->_proxyName = name;
  helper->_path = path;
  return helper;
}

std::unique_ptr<HelperTask> HelperTask::initWithPath(std::u16string_view path,
                                                     std::u16string_view name) {
  return initWithPath(path, name, HelperTaskOptions{});
}

std::unique_ptr<HelperTask> HelperTask::initWithPath(std::u16string_view path,
                                                     std::u16string_view name,
                                                     const Protocol* protocol) {
  return initWithPath(path, name, HelperTaskOptions{.protocol = protocol});
}

std::unique_ptr<HelperTask> HelperTask::initWithPath(std::u16string_view path,
                                                     std::u16string_view name,
                                                     const Protocol* protocol, double timeout) {
  return initWithPath(path, name, HelperTaskOptions{.protocol = protocol, .timeout = timeout});
}

std::unique_ptr<HelperTask> HelperTask::initWithPath(std::u16string_view path,
                                                     std::u16string_view name,
                                                     const Protocol* protocol, double timeout,
                                                     bool logging) {
  return initWithPath(path, name, {.protocol = protocol, .timeout = timeout, .logging = logging});
}

HelperTask::~HelperTask() {
  terminate();
}

std::shared_ptr<Proxy> HelperTask::launch() {
  return launchUsingTimeout(_timeout);
}

std::shared_ptr<Proxy> HelperTask::launchUsingTimeout(double timeout) {
  terminate();
  _task = std::make_unique<Task>();
  int nullDevice = -1;
  if (!_logging) {
    nullDevice = open("/dev/null", O_WRONLY | O_CLOEXEC);
    _task->setStandardOutput(nullDevice);
    _task->setStandardError(nullDevice);
  }
  _task->setLaunchPath(_path);
  _task->setEndsWithLauncher(true);
  bool launched = _task->launch();
  if (nullDevice >= 0) close(nullDevice);
  if (!launched) {
    logException("launchUsingTimeout:", "HelperTask", "NSInvalidArgumentException",
                 _task->launchError());
    terminate();
    return nullptr;
  }

  std::shared_ptr<Proxy> proxy;
  if (_task->isRunning()) {
    for (int poll = 0; poll < kPolls && !proxy; ++poll) {
      std::this_thread::sleep_for(kPollInterval);
      proxy = Proxy::rootProxyForConnectionWithRegisteredName(_proxyName);
      // Another helper may hold the name: its launcher may end it at any time.
      if (proxy && proxy->processIdentifier() != _task->processIdentifier()) proxy.reset();
      if (!_task->isRunning()) break;  // it ended while we waited
    }
    if (proxy) {
      _initProxy(*proxy, timeout);
    } else {
      NSLog(u"Connection to " + lastPathComponent(_path) + u" failed.");
    }
  }
  if (!_task->isRunning()) {
    _task.reset();
    return nullptr;
  }
  return proxy;
}

std::shared_ptr<Proxy> HelperTask::launchedProxy() {
  return launchedProxyUsingTimeout(_timeout);
}

std::shared_ptr<Proxy> HelperTask::launchedProxyUsingTimeout(double timeout) {
  auto proxy = Proxy::rootProxyForConnectionWithRegisteredName(_proxyName);
  if (proxy) _initProxy(*proxy, timeout);
  return proxy;
}

std::shared_ptr<Proxy> HelperTask::proxy() {
  return proxyUsingTimeout(_timeout);
}

std::shared_ptr<Proxy> HelperTask::proxyUsingTimeout(double timeout) {
  if (auto proxy = launchedProxyUsingTimeout(timeout)) return proxy;
  return launchUsingTimeout(timeout);
}

void HelperTask::_initProxy(Proxy& proxy, double timeout) const {
  if (timeout > 0) {
    proxy.setRequestTimeout(timeout);
    proxy.setReplyTimeout(timeout);
  }
  if (_protocol) proxy.setProtocolForProxy(_protocol);
}

bool HelperTask::saysBusy(Proxy& proxy) {
  Reply reply = proxy.send(u"stillBusy", {});
  return reply.kind == Reply::Kind::kResult && reply.result && reply.result->is<bool>() &&
         *reply.result->as<bool>();
}

bool HelperTask::stillBusy() {
  auto proxy = launchedProxy();
  if (!proxy) return false;
  try {
    return saysBusy(*proxy);
  } catch (const std::exception&) {
    return false;
  }
}

void HelperTask::waitUntilDone(double seconds) {
  auto proxy = launchedProxy();
  if (!proxy) return;
  try {
    if (!saysBusy(*proxy)) return;
    double elapsed = 0;
    do {
      std::this_thread::sleep_for(kPollInterval);
      elapsed += kPollSeconds;
    } while (seconds > elapsed && saysBusy(*proxy));
  } catch (...) {
  }
}

void HelperTask::terminate() {
  if (!_task) return;
  if (_task->isRunning()) {
    _task->terminate();
    _task->waitUntilExit(kTerminateGrace);
  }
  _task.reset();
}

}  // namespace ferncast
