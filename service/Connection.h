// The helper connection (the stand-in for distributed objects' NSConnection and proxies), over the
// endpoint and frames of service/Transport.h.
//
// `Connection` is the helper's side: it vends one root object under a registered name and
// answers requests one at a time, in the order they arrive, across all of its clients.
// `Proxy` is the client's side: one socket to a helper's root object, with request and reply
// time-outs, on which calls are made.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "service/Protocol.h"
#include "service/RunLoop.h"
#include "service/Transport.h"

namespace ferncast {

// Default request and reply time-out of both sides, in seconds.
inline constexpr double kDefaultTimeout = 15.0;
// How long the helper keeps a connection on which nothing happens, in seconds.
inline constexpr double kDefaultIdleTimeout = 60.0;

// The helper's side. Lives on one thread and is served by that thread's run loop, which it joins
// when made (its source keeps the loop waiting even while no name is registered).
//
// Requests are answered one at a time, in the order they arrive, across all clients; a client's
// next request joins the queue once its previous reply is out. Replies are written as each
// client's socket takes them, so the thread never waits for one client. While the root object
// works on a request (even when it runs the loop itself) no other request starts, but clients
// are still accepted, read and written.
//
// Clients are dropped, with a log line, and others are not affected:
// - a client of another user than this process's effective user, on accept, before a byte is
//   read;
// - a frame that announces a bad length, holds no request, or does not arrive whole within the
//   request time-out;
// - a reply not taken whole within the reply time-out;
// - a frame that would take the bytes held for unanswered requests of all clients over
//   kMaxHeldRequestBytes.
// Without a log line, a connection on which nothing happens for the idle time-out is closed, and
// so is the one idle longest when kMaxClients are connected and another arrives; a Proxy finds
// its helper again by itself. Time spent answering does not count against anyone's time-outs.
class Connection {
 public:
  static constexpr std::size_t kMaxClients = 64;
  static constexpr std::size_t kMaxHeldRequestBytes = 2 * kMaxFrameLength;
  // While another process holds the name, it is asked for again this often, in seconds.
  static constexpr double kRegistrationRetry = 0.02;
  // How long a retiring connection keeps an idle client, in seconds.
  static constexpr double kRetireLinger = 0.5;

  Connection();
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // The object that answers requests; not owned, must outlive the connection. Without one,
  // every request is answered "does not respond".
  void setRootObject(RemoteObject* root) { root_ = root; }

  // Takes `name` for this user: locks the name's lock file, removes a socket left by a holder
  // that is gone, and listens. False when another process holds the name, or the name or its
  // folder cannot be used (logged once); the connection then goes on serving the clients it has
  // and asks again every kRegistrationRetry seconds, so that it takes the name as soon as the
  // holder ends. Once taken, the name is kept until the connection is destroyed.
  bool registerName(std::u16string_view name);

  // For the helper process, whose launcher ends it with SIGTERM (one connection per process may
  // do this). The first SIGTERM gives up the name at once, so that a new helper can take it. If
  // an operation is running then, the process ends at once: the operation may hang, and the
  // launcher means to be rid of it. Otherwise the connection retires: it accepts no one new, but
  // its clients are still answered until each has been idle for kRetireLinger (one that found
  // the helper just before the name went may not have sent its request yet), and `retired`
  // turns true once all are gone; SIGALRM ends the process if that takes longer than the reply
  // time-out. A second SIGTERM ends the process at once.
  void retireOnTermination();
  bool retired() const { return retiring_ && clients_.empty(); }

  // How long a client may take to deliver a started request, to take its reply, and to do
  // nothing at all.
  void setRequestTimeout(double seconds) { requestTimeout_ = seconds; }
  void setReplyTimeout(double seconds);
  void setIdleTimeout(double seconds) { idleTimeout_ = seconds; }
  double requestTimeout() const { return requestTimeout_; }
  double replyTimeout() const { return replyTimeout_; }
  double idleTimeout() const { return idleTimeout_; }

 private:
  using Clock = std::chrono::steady_clock;
  using ClientId = std::uint64_t;

  struct Client {
    enum class State { kReading, kQueued, kAnswering, kWriting };
    int fd = -1;
    State state = State::kReading;
    std::uint32_t events = 0;  // what epoll watches for
    FrameReader reader{0};     // requests are small: large buffers go back at once
    FrameWriter writer;
    Clock::time_point since;         // start of the idle time, the request or the reply
    Clock::time_point lastActivity;  // when bytes last moved either way
    std::size_t held = 0;            // the reader's bytes counted in heldRequestBytes_
  };

  void handleEvents();
  void acceptClients();
  bool makeRoom();
  void readFrom(ClientId id, Client& client);
  void writeTo(ClientId id, Client& client);
  void enqueue(ClientId id, Client& client);
  void resumeReading(ClientId id, Client& client);
  // Answers queued requests one after another, unless one is being answered.
  void answerQueued();
  // The reply to a request; exceptions of the root object become exception replies.
  Reply perform(Request& request);
  // Queues the reply of the request being answered for `id`, which may be gone by now.
  void finishAnswer(ClientId id, Reply reply);
  void watch(ClientId id, Client& client, std::uint32_t events);
  void account(Client& client);
  void drop(ClientId id, std::string_view why);
  std::optional<Clock::time_point> deadlineOf(const Client& client) const;
  void expireDeadlines();
  void scheduleDeadlineTimer();
  bool tryRegistering();
  void retryRegistration();
  void retire();
  // Tells the SIGTERM handler where the registered name lies.
  void publishName();

  RunLoop& loop_;
  RemoteObject* root_ = nullptr;
  double requestTimeout_ = kDefaultTimeout;
  double replyTimeout_ = kDefaultTimeout;
  double idleTimeout_ = kDefaultIdleTimeout;
  int epoll_ = -1;  // the listener and the clients; the one source in the run loop
  int listener_ = -1;
  int lock_ = -1;  // the name's lock file, locked once the name is ours
  std::u16string name_;
  std::string socketPath_;           // of the registered name
  std::string registrationProblem_;  // last one logged
  RunLoop::Id source_ = 0;
  std::optional<RunLoop::Id> deadlineTimer_;
  Clock::time_point deadlineTimerDate_;
  std::optional<RunLoop::Id> registrationTimer_;
  bool answering_ = false;
  bool handlesTermination_ = false;
  bool retiring_ = false;
  int terminationPipe_[2] = {-1, -1};  // written by the SIGTERM handler
  std::optional<RunLoop::Id> terminationSource_;
  ClientId nextClient_ = 1;  // 0 stands for the listener in epoll events
  std::map<ClientId, Client> clients_;
  std::deque<ClientId> queue_;  // clients with a whole request, in arrival order
  std::size_t heldRequestBytes_ = 0;
};

// A failure of the connection itself rather than of the remote operation.
class ConnectionError : public std::runtime_error {
 public:
  enum class Kind {
    kTimedOut,  // no whole reply within the time-outs; the connection may still be used
    kClosed,    // the helper closed the connection or died; the proxy is no longer valid
    kProtocol,  // a message broke the frame limits or the protocol's declared types
  };
  ConnectionError(Kind kind, const std::string& what) : std::runtime_error(what), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

// The client's side: a proxy of a helper's root object (the stand-in for NSDistantObject). One
// thread at a time. It keeps the buffer of its largest reply (up to kKeptReplyBuffer bytes) for
// the next ones.
class Proxy {
 public:
  static constexpr std::size_t kKeptReplyBuffer = std::size_t{32} << 20;

  // Connects to the root object registered under `name` for this user on this host; null when
  // nothing listens there, or when the listener belongs to another user (logged: such a listener
  // gets no request).
  static std::shared_ptr<Proxy> rootProxyForConnectionWithRegisteredName(std::u16string_view name);

  ~Proxy();
  Proxy(const Proxy&) = delete;
  Proxy& operator=(const Proxy&) = delete;

  // Seconds allowed to send a request and to wait for its reply; kDefaultTimeout until set.
  void setRequestTimeout(double seconds) { requestTimeout_ = seconds; }
  void setReplyTimeout(double seconds) { replyTimeout_ = seconds; }
  double requestTimeout() const { return requestTimeout_; }
  double replyTimeout() const { return replyTimeout_; }

  // Declares the operations' types (not owned; static data). Calls of declared operations are
  // checked against it on both ways.
  void setProtocolForProxy(const Protocol* protocol) { protocol_ = protocol; }
  const Protocol* protocolForProxy() const { return protocol_; }

  // False once the connection has failed; every later call fails with kClosed. A connection
  // that the helper closed while it was idle is made again, to the same helper process, by the
  // next call.
  bool isValid() const { return fd_ >= 0; }
  // The helper's process id as the connection saw it.
  pid_t processIdentifier() const { return peerProcess_; }

  // Sends one request and waits for its reply. Throws ConnectionError: kClosed at once when the
  // helper closes the connection or dies, kTimedOut after the time-outs, kProtocol for a
  // malformed reply or a request beyond the frame limits.
  [[nodiscard]] Reply send(std::u16string_view selector, Array arguments);

  // `send`, with the reply turned into a result (nullopt for nil). Throws RemoteException for an
  // exception reply or when the object does not respond to the selector, and ConnectionError as
  // `send` does; with a protocol that declares the selector, std::invalid_argument (nothing sent)
  // for arguments of the wrong number or kinds and ConnectionError kProtocol for a result of the
  // wrong kind.
  std::optional<Value> perform(std::u16string_view selector, Array arguments);

 private:
  Proxy(int fd, pid_t peerProcess, std::u16string name)
      : fd_(fd), peerProcess_(peerProcess), name_(std::move(name)) {}
  [[noreturn]] void fail(ConnectionError::Kind kind, const std::string& what);
  // Connects again after the helper closed the connection; false when the same helper process
  // does not answer the name any more.
  bool reconnect();

  int fd_;
  pid_t peerProcess_;
  std::u16string name_;
  FrameReader reader_{kKeptReplyBuffer};
  std::int64_t sequence_ = 0;
  double requestTimeout_ = kDefaultTimeout;
  double replyTimeout_ = kDefaultTimeout;
  const Protocol* protocol_ = nullptr;
};

}  // namespace ferncast
