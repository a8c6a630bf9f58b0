// NSURL(NSURLInternetExtensions): whether a URL names a resource on this machine or on one of its
// local networks. The HTML reader's resource-load hook lets only such loads through when remote
// requests are refused.
//
// A host is judged by its addresses: the resolver's answer (a literal address needs no lookup)
// compared with the addresses and netmasks of this machine's interfaces (getifaddrs). Lookups are
// bounded in time; a host that does not resolve in time has no addresses and so is not local.
//
// Threads: any thread may call. The system resolver runs each lookup on a worker thread of its
// own and stops waiting at the time-out; the lookup then finishes unseen.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "url/URL.h"

struct sockaddr;

namespace ferncast {

// Reachability flags, with the platform's values.
inline constexpr std::uint32_t kReachabilityIsLocalAddress = 1u << 16;  // 65536
inline constexpr std::uint32_t kReachabilityIsDirect = 1u << 17;        // 131072

// How long a host lookup may take when the caller does not say.
inline constexpr std::chrono::milliseconds kHostLookupTimeout{5000};

// An IPv4 or IPv6 address. IPv4-mapped IPv6 addresses ("::ffff:127.0.0.1") are kept as IPv4.
struct IPAddress {
  bool isIPv6 = false;
  std::array<std::uint8_t, 16> bytes{};  // network order; IPv4 uses the first 4

  // A literal ("192.0.2.7", "::1", "[::1]"); nullopt for anything else.
  static std::optional<IPAddress> parse(std::string_view literal);
  // The address as getaddrinfo/getifaddrs give it; nullopt for other families or null.
  static std::optional<IPAddress> fromSockaddr(const ::sockaddr* address);
  std::size_t size() const { return isIPv6 ? 16 : 4; }
  // "192.0.2.7", "::1".
  std::string toString() const;
  bool operator==(const IPAddress&) const = default;
};

// One address of one of this machine's interfaces.
struct NetworkInterface {
  IPAddress address;
  IPAddress netmask;
};

// The addresses of this machine's interfaces that are up, loopback included.
std::vector<NetworkInterface> networkInterfaces();

// Looks host names up.
class HostResolver {
 public:
  virtual ~HostResolver() = default;
  // The addresses of `host` (a name, or a literal address which answers itself), waiting at most
  // `timeout`; empty when it does not resolve in time.
  virtual std::vector<IPAddress> resolve(std::string_view host,
                                         std::chrono::milliseconds timeout) = 0;
};

// getaddrinfo on a worker thread per lookup. At most 16 lookups may be waited out at once; past
// that, new lookups give nothing until one finishes.
HostResolver& systemHostResolver();

// Answers the names of its table (exact, ASCII case ignored) and literal addresses itself, and
// asks `fallback` for other names (none when null). For hosts files of one's own.
class HostTableResolver : public HostResolver {
 public:
  explicit HostTableResolver(HostResolver* fallback) : fallback_(fallback) {}
  // Lines as in /etc/hosts: an address and its names; "#" starts a comment. Lines without a
  // valid address are skipped.
  void addHostsFileText(std::string_view text);
  void add(std::string_view name, IPAddress address);
  std::vector<IPAddress> resolve(std::string_view host, std::chrono::milliseconds timeout) override;

 private:
  HostResolver* fallback_;
  std::unordered_map<std::string, std::vector<IPAddress>> table_;
};

// The flags of a host with `addresses`, judged against `interfaces`: kReachabilityIsDirect when
// every address is loopback, unspecified ("0.0.0.0", "::") or an address of an interface;
// kReachabilityIsLocalAddress when every address is that or lies in the network of an interface
// (address and netmask); 0 otherwise, and for no addresses. A host is only as local as its least
// local address, since a connection may take any of them.
std::uint32_t connectionFlagsForAddresses(std::span<const IPAddress> addresses,
                                          std::span<const NetworkInterface> interfaces);

// The flags of `host` (UTF-8, a name or a literal address): resolved with `resolver` within
// `timeout` and judged against this machine's interfaces. 0 for a null or empty host.
std::uint32_t connectionFlagsForHost(const char* host);
std::uint32_t connectionFlagsForHost(const char* host, HostResolver& resolver,
                                     std::chrono::milliseconds timeout);

// A file URL, a URL without a host (or with an empty one), or one whose host has the local-address
// or the direct flag.
bool isLocalURL(const URL& url);
bool isLocalURL(const URL& url, HostResolver& resolver, std::chrono::milliseconds timeout);

}  // namespace ferncast
