// Host names of the tests' own, so that no test depends on a name server or sends anything to a
// machine that is not this one: "near.test" is loopback, "far.test" a documentation (TEST-NET)
// address outside every network of this machine. Nothing is ever sent to the far address: loads
// of it are refused before any connection.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "url/NSURL+Internet.h"

namespace ferncast::test_support {

// A TEST-NET address that is not local here (the machine may itself sit on one of the ranges).
inline std::string remoteTestAddress() {
  std::vector<NetworkInterface> interfaces = networkInterfaces();
  for (const char* candidate : {"203.0.113.7", "198.51.100.7", "192.0.2.7"}) {
    IPAddress address = *IPAddress::parse(candidate);
    if (connectionFlagsForAddresses({&address, 1}, interfaces) == 0) return candidate;
  }
  ADD_FAILURE() << "every TEST-NET range is local here";
  return "203.0.113.7";
}

// "near.test" and "far.test" as above; other names are not found.
inline void addTestHosts(HostTableResolver& resolver) {
  resolver.addHostsFileText("127.0.0.1 near.test\n" + remoteTestAddress() + " far.test\n");
}

}  // namespace ferncast::test_support
