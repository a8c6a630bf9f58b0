#include "service/Connection.h"

#include <cxxabi.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <typeinfo>

#include "Classes/Log.h"
#include "Classes/Unicode.h"

namespace ferncast {
namespace {

constexpr int kListenBacklog = 64;
constexpr std::uint64_t kListenerEvent = 0;

// What the SIGTERM handler of Connection::retireOnTermination needs, kept where a signal handler
// may read it.
namespace termination {
volatile sig_atomic_t requested = 0;
volatile sig_atomic_t operationRunning = 0;
volatile sig_atomic_t lockFd = -1;  // of the registered name, once the name is ours
char socketPath[sizeof(sockaddr_un::sun_path)];
int pipeFd = -1;
unsigned graceSeconds = 15;

void onSignal(int) {
  int savedErrno = errno;
  struct sigaction defaults {};
  defaults.sa_handler = SIG_DFL;
  sigaction(SIGTERM, &defaults, nullptr);  // the next one ends the process
  requested = 1;
  if (lockFd >= 0) {
    // Give up the name now: the socket first, so that the next holder's is never removed.
    unlink(socketPath);
    flock(lockFd, LOCK_UN);
  }
  if (operationRunning) raise(SIGTERM);  // delivered with the default action on return
  alarm(graceSeconds);
  ssize_t ignored = write(pipeFd, "x", 1);
  (void)ignored;
  errno = savedErrno;
}

}  // namespace termination

// The readable name of an exception's dynamic type, such as "std::runtime_error".
std::string typeNameOf(const std::exception& e) {
  int status = 0;
  char* name = abi::__cxa_demangle(typeid(e).name(), nullptr, nullptr, &status);
  std::string result = status == 0 && name ? name : typeid(e).name();
  std::free(name);
  return result;
}

std::string secondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", seconds);
  return text;
}

}  // namespace

// ---- Connection ----

Connection::Connection() : loop_(RunLoop::current()) {
  epoll_ = epoll_create1(EPOLL_CLOEXEC);
  if (epoll_ < 0) throw std::system_error(errno, std::generic_category(), "epoll_create1");
  source_ = loop_.addSource(epoll_, [this] { handleEvents(); });
}

Connection::~Connection() {
  loop_.remove(source_);
  if (deadlineTimer_) loop_.remove(*deadlineTimer_);
  if (registrationTimer_) loop_.remove(*registrationTimer_);
  for (auto& entry : clients_)
    close(entry.second.fd);
  if (listener_ >= 0) {
    close(listener_);
    unlink(socketPath_.c_str());  // still ours: the lock is held until the next line
  }
  if (lock_ >= 0) close(lock_);
  close(epoll_);
  if (terminationSource_) {
    loop_.remove(*terminationSource_);
    signal(SIGTERM, SIG_DFL);
    termination::lockFd = -1;
    termination::pipeFd = -1;
    close(terminationPipe_[0]);
    close(terminationPipe_[1]);
  }
}

void Connection::setReplyTimeout(double seconds) {
  replyTimeout_ = seconds;
  if (handlesTermination_) {
    termination::graceSeconds = static_cast<unsigned>(std::clamp(std::ceil(seconds), 1.0, 1e6));
  }
}

void Connection::publishName() {
  std::memcpy(termination::socketPath, socketPath_.c_str(), socketPath_.size() + 1);
  std::atomic_signal_fence(std::memory_order_seq_cst);  // the path before the descriptor
  termination::lockFd = lock_;
}

void Connection::retireOnTermination() {
  if (handlesTermination_ || pipe2(terminationPipe_, O_CLOEXEC | O_NONBLOCK) != 0) return;
  handlesTermination_ = true;
  termination::pipeFd = terminationPipe_[1];
  setReplyTimeout(replyTimeout_);
  if (listener_ >= 0) publishName();
  terminationSource_ = loop_.addSource(terminationPipe_[0], [this] { retire(); });
  struct sigaction action {};
  action.sa_handler = termination::onSignal;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGTERM, &action, nullptr);
}

void Connection::retire() {
  char drained[16];
  while (read(terminationPipe_[0], drained, sizeof drained) > 0) {
  }
  if (retiring_) return;
  retiring_ = true;
  if (registrationTimer_) loop_.remove(*registrationTimer_);
  registrationTimer_.reset();
  if (listener_ >= 0) {
    // The signal handler removed the socket file and gave up the lock.
    epoll_ctl(epoll_, EPOLL_CTL_DEL, listener_, nullptr);
    close(listener_);
    listener_ = -1;
  }
  if (lock_ >= 0) {
    termination::lockFd = -1;
    close(lock_);
    lock_ = -1;
  }
  // Clients connected already are still served until they have been idle for kRetireLinger: one
  // that found the helper just before its name went may not have sent its request yet.
  auto now = Clock::now();
  for (auto& [id, client] : clients_) {
    if (client.state == Client::State::kReading && !client.reader.hasPartialFrame()) {
      client.since = now;
    }
  }
  scheduleDeadlineTimer();
}

bool Connection::registerName(std::u16string_view name) {
  if (listener_ >= 0 || registrationTimer_) return false;  // one name per connection
  if (!endpointFor(name)) {
    NSLog("No name is registered: \"" + utf16ToUtf8(name) + "\" cannot name a socket.");
    return false;
  }
  name_ = name;
  if (tryRegistering()) return true;
  retryRegistration();
  return false;
}

void Connection::retryRegistration() {
  auto date = *RunLoop::dateWithTimeIntervalSinceNow(kRegistrationRetry);
  registrationTimer_ = loop_.addTimer(date, [this] {
    registrationTimer_.reset();
    if (!tryRegistering()) retryRegistration();
  });
}

bool Connection::tryRegistering() {
  auto problem = [this](std::string why) {
    if (why != registrationProblem_) NSLog("No name is registered: " + why + ".");
    registrationProblem_ = std::move(why);
    return false;
  };
  auto endpoint = endpointFor(name_);
  if (!endpoint || termination::requested) return false;
  if (lock_ < 0) {
    std::string why;
    if (!preparePrivateFolder(endpoint->folder, why)) return problem(why);
    lock_ = open(endpoint->lockPath.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (lock_ < 0) return problem("cannot open " + endpoint->lockPath + ": " + strerror(errno));
  }
  if (flock(lock_, LOCK_EX | LOCK_NB) != 0) return false;  // held by a live helper
  // The name is ours: a socket file still there was left by a holder that has ended.
  unlink(endpoint->socketPath.c_str());
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0 ||
      bind(fd, reinterpret_cast<const sockaddr*>(&endpoint->address), endpoint->length) != 0 ||
      listen(fd, kListenBacklog) != 0) {
    std::string why = "cannot listen on " + endpoint->socketPath + ": " + strerror(errno);
    if (fd >= 0) close(fd);
    flock(lock_, LOCK_UN);
    return problem(why);
  }
  listener_ = fd;
  socketPath_ = endpoint->socketPath;
  if (handlesTermination_) publishName();
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = kListenerEvent;
  epoll_ctl(epoll_, EPOLL_CTL_ADD, listener_, &event);
  return true;
}

void Connection::handleEvents() {
  epoll_event events[64];
  int count = epoll_wait(epoll_, events, 64, 0);
  for (int i = 0; i < count; ++i) {
    ClientId id = events[i].data.u64;
    if (id == kListenerEvent) {
      acceptClients();
      continue;
    }
    auto found = clients_.find(id);
    if (found == clients_.end()) continue;
    Client& client = found->second;
    if (client.state == Client::State::kReading) {
      readFrom(id, client);
    } else if (client.state == Client::State::kWriting) {
      writeTo(id, client);
    } else if (events[i].events & (EPOLLHUP | EPOLLERR)) {
      drop(id, {});  // gone while its request waited: nobody to answer
    }
  }
  answerQueued();
  scheduleDeadlineTimer();
}

void Connection::acceptClients() {
  for (;;) {
    int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR) continue;
      return;
    }
    // Checked before a byte is read: only this user's processes may talk to the helper.
    auto credentials = peerCredentials(fd);
    if (!credentials || credentials->uid != geteuid()) {
      NSLog("Refused a connection from user " +
            (credentials ? std::to_string(credentials->uid) : std::string("unknown")) + ".");
      close(fd);
      continue;
    }
    if (clients_.size() >= kMaxClients && !makeRoom()) {
      NSLog("Refused a connection: " + std::to_string(kMaxClients) +
            " clients are connected and each waits for an answer.");
      close(fd);
      continue;
    }
    ClientId id = nextClient_++;
    Client& client = clients_[id];
    client.fd = fd;
    client.since = client.lastActivity = Clock::now();
    epoll_event event{};
    event.events = client.events = EPOLLIN;
    event.data.u64 = id;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
  }
}

bool Connection::makeRoom() {
  std::optional<ClientId> idlest;
  Clock::time_point oldest = Clock::time_point::max();
  for (const auto& [id, client] : clients_) {
    bool waiting =
        client.state == Client::State::kQueued || client.state == Client::State::kAnswering;
    if (!waiting && client.lastActivity < oldest) {
      oldest = client.lastActivity;
      idlest = id;
    }
  }
  if (!idlest) return false;
  drop(*idlest, {});  // as routine as an idle time-out, and as silent: floods would fill the log
  return true;
}

void Connection::readFrom(ClientId id, Client& client) {
  bool started = client.reader.hasPartialFrame();
  std::size_t before = client.reader.bytesHeld();
  // Every client may hold one read chunk; beyond that, requests share kMaxHeldRequestBytes.
  std::size_t others = heldRequestBytes_ - client.held;
  std::size_t limit = others < kMaxHeldRequestBytes ? kMaxHeldRequestBytes - others : 0;
  FrameReader::Status status = client.reader.readAvailable(client.fd, limit);
  account(client);
  auto now = Clock::now();
  if (client.reader.bytesHeld() != before) client.lastActivity = now;
  switch (status) {
    case FrameReader::Status::kFrame:
      enqueue(id, client);
      break;
    case FrameReader::Status::kWouldBlock:
      if (!started && client.reader.hasPartialFrame()) client.since = now;
      break;
    case FrameReader::Status::kBadLength:
      drop(id, client.reader.announcedLength() == 0
                   ? "a frame header announces an empty frame."
                   : "a frame header announces " + std::to_string(client.reader.announcedLength()) +
                         " bytes, more than " + std::to_string(kMaxFrameLength) + ".");
      break;
    case FrameReader::Status::kOverLimit:
      drop(id, "requests of all clients would hold more than " +
                   std::to_string(kMaxHeldRequestBytes) + " bytes.");
      break;
    case FrameReader::Status::kClosed:
    case FrameReader::Status::kTimedOut:
      drop(id, client.reader.hasPartialFrame() ? "the request was cut short." : "");
      break;
  }
}

void Connection::writeTo(ClientId id, Client& client) {
  std::size_t before = client.writer.pendingBytes();
  FrameWriter::Status status = client.writer.writeAvailable(client.fd);
  if (client.writer.pendingBytes() != before) client.lastActivity = Clock::now();
  switch (status) {
    case FrameWriter::Status::kDone:
      resumeReading(id, client);
      break;
    case FrameWriter::Status::kWouldBlock:
      watch(id, client, EPOLLOUT);
      break;
    case FrameWriter::Status::kTimedOut:
    case FrameWriter::Status::kClosed:
      drop(id, {});
      break;
  }
}

void Connection::enqueue(ClientId id, Client& client) {
  client.state = Client::State::kQueued;
  watch(id, client, 0);  // nothing more is read from it until it has its answer
  queue_.push_back(id);
}

void Connection::resumeReading(ClientId id, Client& client) {
  client.state = Client::State::kReading;
  client.since = Clock::now();
  if (client.reader.hasFrame()) {
    enqueue(id, client);  // it sent the next one already: behind the others
  } else {
    watch(id, client, EPOLLIN);
  }
}

void Connection::answerQueued() {
  // One request at a time, also when the root object runs the loop while it works.
  if (answering_) return;
  while (!queue_.empty()) {
    ClientId id = queue_.front();
    queue_.pop_front();
    auto found = clients_.find(id);
    if (found == clients_.end()) continue;
    Client& client = found->second;
    auto request = decodeRequest(client.reader.body(), client.reader.bodyLength());
    client.reader.consumeFrame();
    account(client);
    if (!request) {
      drop(id, "the frame holds no well-formed request.");
      continue;
    }
    client.state = Client::State::kAnswering;
    answering_ = true;
    termination::operationRunning = 1;
    auto started = Clock::now();
    Reply reply = perform(*request);
    termination::operationRunning = 0;
    answering_ = false;
    // While the thread worked, no client could be served: that time counts against nobody.
    auto busy = Clock::now() - started;
    for (auto& entry : clients_)
      entry.second.since += busy;
    finishAnswer(id, std::move(reply));
  }
}

Reply Connection::perform(Request& request) {
  Reply reply;
  reply.sequence = request.sequence;
  if (!root_ || !root_->respondsToSelector(request.selector)) {
    reply.kind = Reply::Kind::kDoesNotRespond;
    return reply;
  }
  try {
    reply.result = root_->invoke(request.selector, std::move(request.arguments));
  } catch (const RemoteException& e) {
    reply.kind = Reply::Kind::kException;
    reply.exceptionName = e.name();
    reply.exceptionReason = e.reason();
  } catch (const std::exception& e) {
    reply.kind = Reply::Kind::kException;
    reply.exceptionName = typeNameOf(e);
    reply.exceptionReason = e.what();
  } catch (...) {
    reply.kind = Reply::Kind::kException;
    reply.exceptionName = "UnknownException";
    reply.exceptionReason = "An exception that is no std::exception.";
  }
  return reply;
}

void Connection::finishAnswer(ClientId id, Reply reply) {
  auto found = clients_.find(id);
  if (found == clients_.end()) return;  // dropped while its request was answered
  Client& client = found->second;
  std::int64_t sequence = reply.sequence;
  auto frame = encodeReply(std::move(reply));
  if (!frame) {
    Reply failure;
    failure.sequence = sequence;
    failure.kind = Reply::Kind::kException;
    failure.exceptionName = "NSInvalidArgumentException";
    failure.exceptionReason = "The result exceeds the limits of the connection.";
    frame = encodeReply(std::move(failure));
  }
  client.writer.push(std::move(*frame));
  client.state = Client::State::kWriting;
  client.since = Clock::now();
  writeTo(id, client);
}

void Connection::watch(ClientId id, Client& client, std::uint32_t events) {
  if (client.events == events) return;
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  epoll_ctl(epoll_, EPOLL_CTL_MOD, client.fd, &event);
  client.events = events;
}

void Connection::account(Client& client) {
  heldRequestBytes_ = heldRequestBytes_ - client.held + client.reader.bytesHeld();
  client.held = client.reader.bytesHeld();
}

void Connection::drop(ClientId id, std::string_view why) {
  auto found = clients_.find(id);
  if (found == clients_.end()) return;
  if (!why.empty()) NSLog("Closed a connection: " + std::string(why));
  heldRequestBytes_ -= found->second.held;
  epoll_ctl(epoll_, EPOLL_CTL_DEL, found->second.fd, nullptr);
  close(found->second.fd);
  clients_.erase(found);
}

std::optional<Connection::Clock::time_point> Connection::deadlineOf(const Client& client) const {
  auto after = [&](double seconds) {
    return client.since + std::chrono::duration_cast<Clock::duration>(
                              std::chrono::duration<double>(std::clamp(seconds, 0.0, 1e9)));
  };
  switch (client.state) {
    case Client::State::kReading:
      if (client.reader.hasPartialFrame()) return after(requestTimeout_);
      return after(retiring_ ? kRetireLinger : idleTimeout_);
    case Client::State::kWriting:
      return after(replyTimeout_);
    case Client::State::kQueued:
    case Client::State::kAnswering:
      break;
  }
  return std::nullopt;
}

void Connection::expireDeadlines() {
  if (answering_) return;  // rescheduled once the answer is out
  auto now = Clock::now();
  std::vector<std::pair<ClientId, std::string>> late;
  for (const auto& [id, client] : clients_) {
    auto deadline = deadlineOf(client);
    if (!deadline || *deadline > now) continue;
    if (client.state == Client::State::kWriting) {
      late.emplace_back(id, "the reply was not taken within " + secondsText(replyTimeout_) + " s.");
    } else if (client.reader.hasPartialFrame()) {
      late.emplace_back(
          id, "the request was not complete within " + secondsText(requestTimeout_) + " s.");
    } else {
      late.emplace_back(id, "");  // idle: nothing worth a line
    }
  }
  for (const auto& [id, why] : late)
    drop(id, why);
  scheduleDeadlineTimer();
}

void Connection::scheduleDeadlineTimer() {
  std::optional<Clock::time_point> earliest;
  for (const auto& entry : clients_) {
    auto deadline = deadlineOf(entry.second);
    if (deadline && (!earliest || *deadline < *earliest)) earliest = deadline;
  }
  if (deadlineTimer_ && earliest && *earliest == deadlineTimerDate_) return;
  if (deadlineTimer_) loop_.remove(*deadlineTimer_);
  deadlineTimer_.reset();
  if (earliest) {
    deadlineTimerDate_ = *earliest;
    deadlineTimer_ = loop_.addTimer(*earliest, [this] {
      deadlineTimer_.reset();
      expireDeadlines();
    });
  }
}

// ---- Proxy ----

namespace {

struct Connected {
  int fd;
  pid_t pid;
};

// A non-blocking socket connected to the helper of this user registered under `name`.
std::optional<Connected> connectToHelper(std::u16string_view name) {
  auto endpoint = endpointFor(name);
  if (!endpoint) return std::nullopt;
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return std::nullopt;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&endpoint->address), endpoint->length) != 0) {
    close(fd);
    return std::nullopt;
  }
  // The folder keeps strangers out; should it not, talk only to a helper of our own user.
  auto credentials = peerCredentials(fd);
  if (!credentials || credentials->uid != geteuid()) {
    NSLog("Refused the endpoint of " + utf16ToUtf8(name) + ": it belongs to user " +
          (credentials ? std::to_string(credentials->uid) : std::string("unknown")) + ".");
    close(fd);
    return std::nullopt;
  }
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
  return Connected{fd, credentials->pid};
}

}  // namespace

std::shared_ptr<Proxy> Proxy::rootProxyForConnectionWithRegisteredName(std::u16string_view name) {
  auto connected = connectToHelper(name);
  if (!connected) return nullptr;
  return std::shared_ptr<Proxy>(new Proxy(connected->fd, connected->pid, std::u16string(name)));
}

Proxy::~Proxy() {
  if (fd_ >= 0) close(fd_);
}

void Proxy::fail(ConnectionError::Kind kind, const std::string& what) {
  close(fd_);
  fd_ = -1;
  throw ConnectionError(kind, what);
}

bool Proxy::reconnect() {
  // The helper closed the connection: it was idle too long, or the helper has ended. Only the
  // same process will do.
  auto connected = connectToHelper(name_);
  if (!connected) return false;
  if (connected->pid != peerProcess_) {
    close(connected->fd);
    return false;
  }
  close(fd_);
  fd_ = connected->fd;
  reader_.reset();
  return true;
}

Reply Proxy::send(std::u16string_view selector, Array arguments) {
  using Kind = ConnectionError::Kind;
  if (fd_ < 0) throw ConnectionError(Kind::kClosed, "The connection to the helper is closed.");
  std::int64_t sequence = ++sequence_;
  auto frame = encodeRequest(Request{sequence, std::u16string(selector), std::move(arguments)});
  if (!frame) {
    throw ConnectionError(Kind::kProtocol, "The request exceeds the limits of the connection.");
  }
  FrameWriter writer;
  writer.push(std::move(*frame));
  std::size_t whole = writer.pendingBytes();
  Deadline sendDeadline = deadlineAfter(requestTimeout_);
  FrameWriter::Status sent = writer.writeAll(fd_, sendDeadline);
  // Refused before a byte went out: the helper closed the idle connection. Nothing was
  // delivered, so the request may go again on a new one.
  if (sent == FrameWriter::Status::kClosed && writer.pendingBytes() == whole && reconnect()) {
    sent = writer.writeAll(fd_, sendDeadline);
  }
  switch (sent) {
    case FrameWriter::Status::kDone:
      break;
    case FrameWriter::Status::kTimedOut:
      // Part of the request may be out: the stream cannot be used again.
      fail(Kind::kTimedOut,
           "The helper did not take the request within " + secondsText(requestTimeout_) + " s.");
    case FrameWriter::Status::kWouldBlock:
    case FrameWriter::Status::kClosed:
      fail(Kind::kClosed, "The helper closed the connection.");
  }
  Deadline deadline = deadlineAfter(replyTimeout_);
  for (;;) {
    switch (reader_.readFrame(fd_, deadline)) {
      case FrameReader::Status::kFrame: {
        auto reply = decodeReply(reader_.body(), reader_.bodyLength());
        reader_.consumeFrame();
        if (!reply || reply->sequence > sequence) {
          fail(Kind::kProtocol, "The helper sent a malformed reply.");
        }
        if (reply->sequence == sequence) return std::move(*reply);
        break;  // the late reply to a request that timed out
      }
      case FrameReader::Status::kTimedOut: {
        std::string what = "The helper did not reply within " + secondsText(replyTimeout_) + " s.";
        if (reader_.hasPartialFrame()) fail(Kind::kTimedOut, what);  // stopped mid-frame
        throw ConnectionError(Kind::kTimedOut, what);
      }
      case FrameReader::Status::kBadLength:
      case FrameReader::Status::kOverLimit:
        fail(Kind::kProtocol, "The helper announced a reply outside the frame limits.");
      case FrameReader::Status::kWouldBlock:
      case FrameReader::Status::kClosed:
        fail(Kind::kClosed, "The helper closed the connection.");
    }
  }
}

std::optional<Value> Proxy::perform(std::u16string_view selector, Array arguments) {
  const OperationSignature* signature = protocol_ ? protocol_->operation(selector) : nullptr;
  if (signature && !argumentsConform(arguments, *signature)) {
    throw std::invalid_argument("The arguments do not match " + utf16ToUtf8(selector));
  }
  Reply reply = send(selector, std::move(arguments));
  switch (reply.kind) {
    case Reply::Kind::kDoesNotRespond:
      throw RemoteException("NSInvalidArgumentException",
                            "The helper does not respond to " + utf16ToUtf8(selector));
    case Reply::Kind::kException:
      throw RemoteException(std::move(reply.exceptionName), std::move(reply.exceptionReason));
    case Reply::Kind::kResult:
      break;
  }
  if (signature && !resultConforms(reply.result, signature->result)) {
    throw ConnectionError(
        ConnectionError::Kind::kProtocol,
        "The helper's result of " + utf16ToUtf8(selector) + " is not of the declared kind.");
  }
  return std::move(reply.result);
}

}  // namespace ferncast
