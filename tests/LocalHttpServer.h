// A small HTTP/1.0 server on 127.0.0.1 for tests: fixed responses by path, one connection at a
// time, stopped by its destructor. A route may hang: it reads the request and never answers.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ferncast::test_support {

class LocalHttpServer {
 public:
  struct Response {
    int status = 200;
    std::string contentType = "application/octet-stream";
    std::string body;
    std::string location;  // sent when not empty; "{port}" stands for the server's port
    bool hang = false;
  };

  explicit LocalHttpServer(std::map<std::string, Response> routes) : routes_(std::move(routes)) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (listener_ < 0 || bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(listener_, 16) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        pipe(wake_) != 0) {
      return;
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }

  ~LocalHttpServer() {
    if (thread_.joinable()) {
      (void)!write(wake_[1], "x", 1);
      thread_.join();
    }
    for (int fd : hanging_)
      close(fd);
    for (int fd : {listener_, wake_[0], wake_[1]})
      if (fd >= 0) close(fd);
  }

  // 0 when the server could not start.
  int port() const { return port_; }
  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }
  // Whether a connection to the server gets through. Not so in a process that another test moved
  // into a network namespace of its own, where loopback is down.
  bool reachable() const {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port_));
    bool ok = fd >= 0 && port_ != 0 &&
              connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    if (fd >= 0) close(fd);
    return ok;
  }
  // The paths asked for so far, in order.
  std::vector<std::string> requests() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> paths;
    for (const std::string& path : requests_)
      if (!path.empty()) paths.push_back(path);
    return paths;
  }

 private:
  void serve() {
    for (;;) {
      pollfd fds[2] = {{listener_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
      if (poll(fds, 2, -1) < 0) continue;
      if (fds[1].revents) return;
      int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (client >= 0) answer(client);
    }
  }

  void answer(int client) {
    std::string request;
    char buffer[4096];
    while (request.find("\r\n\r\n") == std::string::npos && request.size() < 65536) {
      pollfd fd = {client, POLLIN, 0};
      if (poll(&fd, 1, 2000) <= 0) break;
      ssize_t n = read(client, buffer, sizeof buffer);
      if (n <= 0) break;
      request.append(buffer, static_cast<std::size_t>(n));
    }
    std::size_t start = request.find(' ') + 1;
    std::string path = request.substr(start, request.find(' ', start) - start);
    {
      std::lock_guard lock(mutex_);
      requests_.push_back(path);
    }
    auto route = routes_.find(path);
    Response response = route != routes_.end() ? route->second : Response{404, "text/plain"};
    if (response.hang) {
      hanging_.push_back(client);
      return;
    }
    std::string reply = "HTTP/1.0 " + std::to_string(response.status) + " X\r\n" +
                        "Content-Type: " + response.contentType + "\r\n" +
                        "Content-Length: " + std::to_string(response.body.size()) + "\r\n";
    if (!response.location.empty()) {
      std::string location = response.location;
      std::size_t port = location.find("{port}");
      if (port != std::string::npos) location.replace(port, 6, std::to_string(port_));
      reply += "Location: " + location + "\r\n";
    }
    reply += "Connection: close\r\n\r\n" + response.body;
    for (std::size_t sent = 0; sent < reply.size();) {
      ssize_t n = send(client, reply.data() + sent, reply.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) break;
      sent += static_cast<std::size_t>(n);
    }
    close(client);
  }

  std::map<std::string, Response> routes_;
  int listener_ = -1;
  int wake_[2] = {-1, -1};
  int port_ = 0;
  std::thread thread_;
  std::vector<int> hanging_;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
};

}  // namespace ferncast::test_support
