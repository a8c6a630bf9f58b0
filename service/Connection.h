// The helper connection (the stand-in for distributed objects' NSConnection and proxies), over the
// endpoint and frames of service/Transport.h.
//
// `Connection` is the helper's side: it vends one root object under a registered name and
// answers requests one at a time, in the order they arrive, across all of its clients.
// `Proxy` is the client's side: one socket to a helper's root object, with request and reply
// time-outs, on which calls are made.
#pragma once

#include <sys/types.h>

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

// The helper's side. Lives on one thread and is served by that thread's run loop, which it joins
// when made (its source keeps the loop waiting even while no name is registered).
//
// Clients whose user id differs from this process's effective user id are dropped on accept,
// before a byte is read. A frame that is oversized, malformed or no request closes that client's
// connection with a log line; a client whose request is not complete within the request time-out,
// or who does not take its reply within the reply time-out, is dropped likewise. Other clients
// are not affected. While the root object works on a request the connection's source is disabled,
// so that a nested run of the loop does not start another request.
class Connection {
 public:
  Connection();
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // The object that answers requests; not owned, must outlive the connection. Without one,
  // every request is answered "does not respond".
  void setRootObject(RemoteObject* root) { root_ = root; }

  // Starts listening on the endpoint of `name` for this user. False (logged nowhere; the caller
  // decides) when the name is taken, too long or the socket fails; the connection then stays
  // without a name but goes on serving the clients it has.
  bool registerName(std::u16string_view name);

  // How long a client may take to deliver a started request, and to take its reply.
  void setRequestTimeout(double seconds) { requestTimeout_ = seconds; }
  void setReplyTimeout(double seconds) { replyTimeout_ = seconds; }
  double requestTimeout() const { return requestTimeout_; }
  double replyTimeout() const { return replyTimeout_; }

 private:
  struct Client {
    int fd = -1;
    FrameReader reader{0};             // requests are small: large buffers go back at once
    std::optional<Deadline> deadline;  // while part of a request has arrived
  };

  void handleEvents();
  void acceptClients();
  void readFrom(std::uint64_t id, Client& client);
  void serve(std::uint64_t id, Client& client);
  void answer(Request& request, Reply& reply);
  void drop(std::uint64_t id, std::string_view why);
  void expireDeadlines();
  void scheduleDeadlineTimer();

  RunLoop& loop_;
  RemoteObject* root_ = nullptr;
  double requestTimeout_ = kDefaultTimeout;
  double replyTimeout_ = kDefaultTimeout;
  int epoll_ = -1;  // the listener and the clients; the one source in the run loop
  int listener_ = -1;
  RunLoop::Id source_ = 0;
  std::optional<RunLoop::Id> timer_;
  bool answering_ = false;
  std::uint64_t nextClient_ = 1;  // 0 stands for the listener in epoll events
  std::map<std::uint64_t, Client> clients_;
  std::deque<std::uint64_t> pending_;
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
  // nothing listens there, or when the listener belongs to another user (logged: a stranger who
  // took the name first gets no request).
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

  // False once the connection has closed; every later call fails with kClosed.
  bool isValid() const { return fd_ >= 0; }
  // The helper's process id as the connection saw it.
  pid_t processIdentifier() const { return peerProcess_; }

  // Sends one request and waits for its reply. Throws ConnectionError: kClosed at once when the
  // helper closes the connection or dies, kTimedOut after the time-outs, kProtocol for a
  // malformed reply or a request beyond the frame limits.
  Reply send(std::u16string_view selector, Array arguments);

  // `send`, with the reply turned into a result (nullopt for nil). Throws RemoteException for an
  // exception reply or when the object does not respond to the selector, and ConnectionError as
  // `send` does; with a protocol that declares the selector, std::invalid_argument (nothing sent)
  // for arguments of the wrong number or kinds and ConnectionError kProtocol for a result of the
  // wrong kind.
  std::optional<Value> perform(std::u16string_view selector, Array arguments);

 private:
  Proxy(int fd, pid_t peerProcess) : fd_(fd), peerProcess_(peerProcess) {}
  [[noreturn]] void fail(ConnectionError::Kind kind, const std::string& what);

  int fd_;
  pid_t peerProcess_;
  FrameReader reader_{kKeptReplyBuffer};
  std::int64_t sequence_ = 0;
  double requestTimeout_ = kDefaultTimeout;
  double replyTimeout_ = kDefaultTimeout;
  const Protocol* protocol_ = nullptr;
};

}  // namespace ferncast
