#include "url/NSURL+Internet.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/TestHosts.h"

namespace ferncast {
namespace {

IPAddress address(std::string_view literal) {
  std::optional<IPAddress> parsed = IPAddress::parse(literal);
  EXPECT_TRUE(parsed) << literal;
  return parsed.value_or(IPAddress());
}

TEST(ConnectionFlags, HostIsOnlyAsLocalAsItsLeastLocalAddress) {
  // A machine on 10.1.2.3/24 and fd00::5/64 besides loopback.
  const std::vector<NetworkInterface> interfaces = {
      {address("127.0.0.1"), address("255.0.0.0")},
      {address("10.1.2.3"), address("255.255.255.0")},
      {address("fd00::5"), address("ffff:ffff:ffff:ffff::")},
  };
  struct Case {
    const char* why;
    std::vector<const char*> addresses;
    std::uint32_t flags;
  } cases[] = {
      {"loopback", {"127.0.0.1"}, kReachabilityIsDirect},
      {"all of 127/8 is loopback, interface or not", {"127.8.9.10"}, kReachabilityIsDirect},
      {"IPv6 loopback", {"::1"}, kReachabilityIsDirect},
      {"mapped IPv4 loopback", {"::ffff:127.0.0.1"}, kReachabilityIsDirect},
      {"the unspecified address reaches this machine", {"0.0.0.0"}, kReachabilityIsDirect},
      {"an interface's own address", {"10.1.2.3"}, kReachabilityIsDirect},
      {"a neighbour on the interface's network", {"10.1.2.99"}, kReachabilityIsLocalAddress},
      {"an IPv6 neighbour", {"fd00::9"}, kReachabilityIsLocalAddress},
      {"the next network over", {"10.1.3.1"}, 0},
      {"TEST-NET", {"192.0.2.7"}, 0},
      {"IPv6 documentation prefix", {"2001:db8::1"}, 0},
      {"a name with one remote address among local ones", {"127.0.0.1", "192.0.2.7"}, 0},
      {"direct and neighbour give the weaker flag",
       {"127.0.0.1", "10.1.2.99"},
       kReachabilityIsLocalAddress},
      {"no address at all", {}, 0},
  };
  for (const Case& c : cases) {
    std::vector<IPAddress> addresses;
    for (const char* literal : c.addresses)
      addresses.push_back(address(literal));
    EXPECT_EQ(connectionFlagsForAddresses(addresses, interfaces), c.flags) << c.why;
  }
}

TEST(ConnectionFlags, NoHostAndNoAnswerGiveNone) {
  HostTableResolver resolver(nullptr);
  EXPECT_EQ(connectionFlagsForHost(nullptr), 0u);
  EXPECT_EQ(connectionFlagsForHost(""), 0u);
  EXPECT_EQ(connectionFlagsForHost("unknown.test", resolver, kHostLookupTimeout), 0u);
}

TEST(IsLocalURL, JudgesHostsByTheirResolvedAddresses) {
  HostTableResolver resolver(nullptr);
  const std::string far = test_support::remoteTestAddress();
  resolver.addHostsFileText("# the test's own hosts\n" + far +
                            "   far.test   far-alias.test\n"
                            "127.0.0.1\tnear.test # comment\n"
                            "not-an-address broken.test\n");
  struct Case {
    const char16_t* url;
    bool local;
  } cases[] = {
      {u"file:///etc/hosts", true},
      {u"about:blank", true},    // no host
      {u"images/a.png", true},   // relative, no host
      {u"http:///a.png", true},  // empty host
      {u"http://near.test/a.png", true},
      {u"http://NEAR.test:8080/a.png", true},
      {u"http://127.0.0.1:9/a.png", true},
      {u"http://[::1]/a.png", true},
      {u"http://far.test/a.png", false},
      {u"http://far-alias.test/a.png", false},
      {u"http://broken.test/a.png", false},  // its line had no address: not resolved
      {u"http://unknown.test/a.png", false},
  };
  for (const Case& c : cases) {
    std::optional<URL> url = URL::URLWithString(c.url);
    ASSERT_TRUE(url);
    EXPECT_EQ(isLocalURL(*url, resolver, kHostLookupTimeout), c.local)
        << std::string(c.url, c.url + std::char_traits<char16_t>::length(c.url));
  }
}

TEST(IsLocalURL, SystemResolverFindsLocalhost) {
  EXPECT_NE(connectionFlagsForHost("localhost") & kReachabilityIsDirect, 0u);
  EXPECT_TRUE(isLocalURL(*URL::URLWithString(u"http://localhost:1/")));
}

TEST(IPAddress, ParsesLiteralsOnly) {
  EXPECT_EQ(address("[::1]").toString(), "::1");
  EXPECT_EQ(address("::ffff:10.0.0.1").toString(), "10.0.0.1");
  EXPECT_FALSE(address("::ffff:10.0.0.1").isIPv6);
  for (const char* bad : {"", "[]", "localhost", "256.1.1.1", "1.2.3", "::1%lo", "[::1"})
    EXPECT_FALSE(IPAddress::parse(bad)) << bad;
}

TEST(NetworkInterfaces, IncludeLoopback) {
  std::vector<NetworkInterface> interfaces = networkInterfaces();
  EXPECT_TRUE(std::any_of(interfaces.begin(), interfaces.end(), [](const auto& i) {
    return i.address == *IPAddress::parse("127.0.0.1");
  }));
}

}  // namespace
}  // namespace ferncast
