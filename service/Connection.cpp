#include "service/Connection.h"

#include <cxxabi.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>
#include <typeinfo>

#include "Classes/Log.h"
#include "Classes/Unicode.h"

namespace ferncast {
namespace {

constexpr std::size_t kMaxClients = 64;
constexpr int kListenBacklog = 64;
constexpr std::uint64_t kListenerEvent = 0;

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
  if (timer_) loop_.remove(*timer_);
  for (auto& entry : clients_)
    close(entry.second.fd);
  if (listener_ >= 0) close(listener_);
  close(epoll_);
}

bool Connection::registerName(std::u16string_view name) {
  auto endpoint = endpointAddress(name, geteuid());
  if (!endpoint) return false;
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = kListenerEvent;
  if (bind(fd, reinterpret_cast<const sockaddr*>(&endpoint->address), endpoint->length) != 0 ||
      listen(fd, kListenBacklog) != 0) {
    close(fd);
    return false;
  }
  if (listener_ >= 0) {
    epoll_ctl(epoll_, EPOLL_CTL_DEL, listener_, nullptr);
    close(listener_);
  }
  listener_ = fd;
  epoll_ctl(epoll_, EPOLL_CTL_ADD, listener_, &event);
  return true;
}

void Connection::handleEvents() {
  epoll_event events[32];
  int count = epoll_wait(epoll_, events, 32, 0);
  for (int i = 0; i < count; ++i) {
    std::uint64_t id = events[i].data.u64;
    if (id == kListenerEvent) {
      acceptClients();
      continue;
    }
    auto found = clients_.find(id);
    if (found != clients_.end()) readFrom(id, found->second);
  }
  while (!pending_.empty()) {
    std::uint64_t id = pending_.front();
    pending_.pop_front();
    auto found = clients_.find(id);
    if (found != clients_.end()) serve(id, found->second);
  }
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
    if (clients_.size() >= kMaxClients) {
      NSLog("Refused a connection: " + std::to_string(kMaxClients) + " clients are connected.");
      close(fd);
      continue;
    }
    std::uint64_t id = nextClient_++;
    Client& client = clients_[id];
    client.fd = fd;
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = id;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
  }
}

void Connection::readFrom(std::uint64_t id, Client& client) {
  switch (client.reader.readAvailable(client.fd)) {
    case FrameReader::Status::kFrame:
      // Nothing more is read from this client until it has its answer: the queue is served
      // before the loop polls again, and the source is disabled while a request is answered.
      client.deadline.reset();
      pending_.push_back(id);
      break;
    case FrameReader::Status::kWouldBlock:
      if (client.reader.hasPartialFrame() && !client.deadline) {
        client.deadline = deadlineAfter(requestTimeout_);
      }
      break;
    case FrameReader::Status::kOversized:
      drop(id, "a frame header announces more than " + std::to_string(kMaxFrameLength) + " bytes.");
      break;
    default:
      drop(id, client.reader.hasPartialFrame() ? "the request was cut short." : "");
      break;
  }
}

void Connection::serve(std::uint64_t id, Client& client) {
  auto request = decodeRequest(client.reader.body(), client.reader.bodyLength());
  client.reader.consumeFrame();
  if (!request) {
    drop(id, "the frame holds no well-formed request.");
    return;
  }
  Reply reply;
  reply.sequence = request->sequence;
  answer(*request, reply);
  auto frame = encodeReply(std::move(reply));
  if (!frame) {
    Reply failure;
    failure.sequence = request->sequence;
    failure.kind = Reply::Kind::kException;
    failure.exceptionName = "NSInvalidArgumentException";
    failure.exceptionReason = "The result exceeds the limits of the connection.";
    frame = encodeReply(std::move(failure));
  }
  switch (sendFrame(client.fd, *frame, deadlineAfter(replyTimeout_))) {
    case IoStatus::kDone:
      break;
    case IoStatus::kTimedOut:
      drop(id, "the reply was not taken within " + secondsText(replyTimeout_) + " s.");
      return;
    case IoStatus::kClosed:
      drop(id, {});
      return;
  }
  if (client.reader.hasFrame()) {
    pending_.push_back(id);
  } else if (client.reader.hasPartialFrame()) {
    client.deadline = deadlineAfter(requestTimeout_);
  }
}

void Connection::answer(Request& request, Reply& reply) {
  if (!root_ || !root_->respondsToSelector(request.selector)) {
    reply.kind = Reply::Kind::kDoesNotRespond;
    return;
  }
  // No other request starts while this one is answered, even when the object runs the loop.
  answering_ = true;
  loop_.setSourceEnabled(source_, false);
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
  loop_.setSourceEnabled(source_, true);
  answering_ = false;
}

void Connection::drop(std::uint64_t id, std::string_view why) {
  auto found = clients_.find(id);
  if (found == clients_.end()) return;
  if (!why.empty()) NSLog("Closed a connection: " + std::string(why));
  epoll_ctl(epoll_, EPOLL_CTL_DEL, found->second.fd, nullptr);
  close(found->second.fd);
  clients_.erase(found);
}

void Connection::expireDeadlines() {
  if (answering_) return;  // rescheduled once the answer is out
  auto now = std::chrono::steady_clock::now();
  std::vector<std::uint64_t> late;
  for (const auto& [id, client] : clients_) {
    if (client.deadline && *client.deadline <= now) late.push_back(id);
  }
  for (std::uint64_t id : late) {
    drop(id, "the request was not complete within " + secondsText(requestTimeout_) + " s.");
  }
  scheduleDeadlineTimer();
}

void Connection::scheduleDeadlineTimer() {
  if (timer_) loop_.remove(*timer_);
  timer_.reset();
  std::optional<Deadline> earliest;
  for (const auto& entry : clients_) {
    const auto& deadline = entry.second.deadline;
    if (deadline && (!earliest || *deadline < *earliest)) earliest = deadline;
  }
  if (earliest) {
    timer_ = loop_.addTimer(*earliest, [this] {
      timer_.reset();
      expireDeadlines();
    });
  }
}

// ---- Proxy ----

std::shared_ptr<Proxy> Proxy::rootProxyForConnectionWithRegisteredName(std::u16string_view name) {
  auto endpoint = endpointAddress(name, geteuid());
  if (!endpoint) return nullptr;
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return nullptr;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&endpoint->address), endpoint->length) != 0) {
    close(fd);
    return nullptr;
  }
  // Anyone can bind an abstract address first: talk only to a helper of our own user.
  auto credentials = peerCredentials(fd);
  if (!credentials || credentials->uid != geteuid()) {
    NSLog("Refused the endpoint of " + utf16ToUtf8(name) + ": it belongs to user " +
          (credentials ? std::to_string(credentials->uid) : std::string("unknown")) + ".");
    close(fd);
    return nullptr;
  }
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
  return std::shared_ptr<Proxy>(new Proxy(fd, credentials->pid));
}

Proxy::~Proxy() {
  if (fd_ >= 0) close(fd_);
}

void Proxy::fail(ConnectionError::Kind kind, const std::string& what) {
  close(fd_);
  fd_ = -1;
  throw ConnectionError(kind, what);
}

Reply Proxy::send(std::u16string_view selector, Array arguments) {
  using Kind = ConnectionError::Kind;
  if (fd_ < 0) throw ConnectionError(Kind::kClosed, "The connection to the helper is closed.");
  std::int64_t sequence = ++sequence_;
  auto frame = encodeRequest(Request{sequence, std::u16string(selector), std::move(arguments)});
  if (!frame) {
    throw ConnectionError(Kind::kProtocol, "The request exceeds the limits of the connection.");
  }
  switch (sendFrame(fd_, *frame, deadlineAfter(requestTimeout_))) {
    case IoStatus::kDone:
      break;
    case IoStatus::kTimedOut:
      // Part of the request may be out: the stream cannot be used again.
      fail(Kind::kTimedOut,
           "The helper did not take the request within " + secondsText(requestTimeout_) + " s.");
    case IoStatus::kClosed:
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
      case FrameReader::Status::kOversized:
        fail(Kind::kProtocol, "The helper announced a reply beyond the frame limit.");
      default:
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
