#include "url/NSURL+Internet.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

char lowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

std::string lowerAscii(std::string_view s) {
  std::string lower(s);
  for (char& c : lower)
    c = lowerAscii(c);
  return lower;
}

bool isLoopbackOrUnspecified(const IPAddress& a) {
  if (!a.isIPv6)
    return a.bytes[0] == 127 || (a.bytes[0] | a.bytes[1] | a.bytes[2] | a.bytes[3]) == 0;
  for (int i = 0; i < 15; ++i)
    if (a.bytes[i] != 0) return false;
  return a.bytes[15] <= 1;  // "::" and "::1"
}

bool inNetwork(const IPAddress& a, const NetworkInterface& network) {
  if (a.isIPv6 != network.address.isIPv6 || a.isIPv6 != network.netmask.isIPv6) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if ((a.bytes[i] & network.netmask.bytes[i]) !=
        (network.address.bytes[i] & network.netmask.bytes[i])) {
      return false;
    }
  }
  return true;
}

// A lookup on a worker thread, shared between the thread and the waiter, who may leave first.
struct Lookup {
  std::mutex mutex;
  std::condition_variable finished;
  bool done = false;
  std::vector<IPAddress> addresses;
};

constexpr int kMaxPendingLookups = 16;
std::atomic<int> pendingLookups{0};

void runLookup(const std::shared_ptr<Lookup>& lookup, const std::string& host) {
  std::vector<IPAddress> addresses;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &list) == 0) {
    for (addrinfo* entry = list; entry; entry = entry->ai_next) {
      std::optional<IPAddress> address = IPAddress::fromSockaddr(entry->ai_addr);
      if (address && std::find(addresses.begin(), addresses.end(), *address) == addresses.end())
        addresses.push_back(*address);
    }
    freeaddrinfo(list);
  }
  std::lock_guard lock(lookup->mutex);
  lookup->addresses = std::move(addresses);
  lookup->done = true;
  lookup->finished.notify_all();
}

class SystemHostResolver : public HostResolver {
 public:
  std::vector<IPAddress> resolve(std::string_view host,
                                 std::chrono::milliseconds timeout) override {
    if (std::optional<IPAddress> literal = IPAddress::parse(host)) return {*literal};
    if (host.empty() || host.find('\0') != std::string_view::npos) return {};
    if (pendingLookups.fetch_add(1) >= kMaxPendingLookups) {
      --pendingLookups;
      return {};
    }
    auto lookup = std::make_shared<Lookup>();
    try {
      std::thread([lookup, name = std::string(host)] {
        runLookup(lookup, name);
        --pendingLookups;
      }).detach();
    } catch (const std::system_error&) {
      --pendingLookups;
      return {};
    }
    std::unique_lock lock(lookup->mutex);
    if (!lookup->finished.wait_for(lock, timeout, [&] { return lookup->done; })) return {};
    return lookup->addresses;
  }
};

}  // namespace

std::optional<IPAddress> IPAddress::parse(std::string_view literal) {
  if (literal.size() >= 2 && literal.front() == '[' && literal.back() == ']')
    literal = literal.substr(1, literal.size() - 2);
  if (literal.empty() || literal.size() > INET6_ADDRSTRLEN) return std::nullopt;
  std::string text(literal);
  IPAddress address;
  if (inet_pton(AF_INET, text.c_str(), address.bytes.data()) == 1) return address;
  in6_addr v6;
  if (inet_pton(AF_INET6, text.c_str(), &v6) != 1) return std::nullopt;
  sockaddr_in6 socketAddress{};
  socketAddress.sin6_family = AF_INET6;
  socketAddress.sin6_addr = v6;
  return fromSockaddr(reinterpret_cast<const sockaddr*>(&socketAddress));
}

std::optional<IPAddress> IPAddress::fromSockaddr(const sockaddr* socketAddress) {
  if (!socketAddress) return std::nullopt;
  IPAddress address;
  if (socketAddress->sa_family == AF_INET) {
    const auto* v4 = reinterpret_cast<const sockaddr_in*>(socketAddress);
    std::memcpy(address.bytes.data(), &v4->sin_addr, 4);
    return address;
  }
  if (socketAddress->sa_family != AF_INET6) return std::nullopt;
  const auto* v6 = reinterpret_cast<const sockaddr_in6*>(socketAddress);
  const std::uint8_t* bytes = v6->sin6_addr.s6_addr;
  static constexpr std::uint8_t kMappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  if (std::memcmp(bytes, kMappedPrefix, 12) == 0) {
    std::memcpy(address.bytes.data(), bytes + 12, 4);
    return address;
  }
  address.isIPv6 = true;
  std::memcpy(address.bytes.data(), bytes, 16);
  return address;
}

std::string IPAddress::toString() const {
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(isIPv6 ? AF_INET6 : AF_INET, bytes.data(), text, sizeof text);
  return text;
}

std::vector<NetworkInterface> networkInterfaces() {
  std::vector<NetworkInterface> interfaces;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return interfaces;
  for (ifaddrs* entry = list; entry; entry = entry->ifa_next) {
    if (!(entry->ifa_flags & IFF_UP)) continue;
    std::optional<IPAddress> address = IPAddress::fromSockaddr(entry->ifa_addr);
    std::optional<IPAddress> netmask = IPAddress::fromSockaddr(entry->ifa_netmask);
    if (address && netmask && address->isIPv6 == netmask->isIPv6)
      interfaces.push_back({*address, *netmask});
  }
  freeifaddrs(list);
  return interfaces;
}

HostResolver& systemHostResolver() {
  static SystemHostResolver resolver;
  return resolver;
}

void HostTableResolver::addHostsFileText(std::string_view text) {
  while (!text.empty()) {
    std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    line = line.substr(0, line.find('#'));
    std::vector<std::string_view> words;
    std::size_t i = 0;
    while (i < line.size()) {
      while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r'))
        ++i;
      std::size_t start = i;
      while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r')
        ++i;
      if (i > start) words.push_back(line.substr(start, i - start));
    }
    if (words.size() < 2) continue;
    std::optional<IPAddress> address = IPAddress::parse(words[0]);
    if (!address) continue;
    for (std::size_t k = 1; k < words.size(); ++k)
      add(words[k], *address);
  }
}

void HostTableResolver::add(std::string_view name, IPAddress address) {
  table_[lowerAscii(name)].push_back(address);
}

std::vector<IPAddress> HostTableResolver::resolve(std::string_view host,
                                                  std::chrono::milliseconds timeout) {
  if (std::optional<IPAddress> literal = IPAddress::parse(host)) return {*literal};
  auto found = table_.find(lowerAscii(host));
  if (found != table_.end()) return found->second;
  return fallback_ ? fallback_->resolve(host, timeout) : std::vector<IPAddress>();
}

std::uint32_t connectionFlagsForAddresses(std::span<const IPAddress> addresses,
                                          std::span<const NetworkInterface> interfaces) {
  if (addresses.empty()) return 0;
  std::uint32_t flags = kReachabilityIsDirect;
  for (const IPAddress& address : addresses) {
    bool onThisMachine = isLoopbackOrUnspecified(address) ||
                         std::any_of(interfaces.begin(), interfaces.end(),
                                     [&](const auto& i) { return i.address == address; });
    if (onThisMachine) continue;
    bool onLocalNetwork = std::any_of(interfaces.begin(), interfaces.end(),
                                      [&](const auto& i) { return inNetwork(address, i); });
    if (!onLocalNetwork) return 0;
    flags = kReachabilityIsLocalAddress;
  }
  return flags;
}

std::uint32_t connectionFlagsForHost(const char* host) {
  return connectionFlagsForHost(host, systemHostResolver(), kHostLookupTimeout);
}

std::uint32_t connectionFlagsForHost(const char* host, HostResolver& resolver,
                                     std::chrono::milliseconds timeout) {
  if (!host || !*host) return 0;
  std::vector<IPAddress> addresses = resolver.resolve(host, timeout);
  if (addresses.empty()) return 0;
  return connectionFlagsForAddresses(addresses, networkInterfaces());
}

bool isLocalURL(const URL& url) {
  return isLocalURL(url, systemHostResolver(), kHostLookupTimeout);
}

bool isLocalURL(const URL& url, HostResolver& resolver, std::chrono::milliseconds timeout) {
  if (url.isFileURL() || !url.host() || url.host()->empty()) return true;
  std::string host = utf16ToUtf8(*url.host());
  return (connectionFlagsForHost(host.c_str(), resolver, timeout) &
          (kReachabilityIsLocalAddress | kReachabilityIsDirect)) != 0;
}

}  // namespace ferncast
