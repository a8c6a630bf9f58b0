// ferncast-light-helper: the helper's connection alone, without the libraries of the real
// operations, so that it starts in a moment: for tests that start many helpers at once. It
// registers "FerncastHelper32" (or FERNCAST_TEST_HELPER_NAME), answers "supportsFile:" with NO
// and every other selector "does not respond", and ends on SIGTERM as the real helper does.
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "Classes/Unicode.h"
#include "service/Connection.h"
#include "service/Protocol.h"
#include "service/RunLoop.h"

namespace {

using namespace ferncast;

class SupportsNothing final : public RemoteObject {
 public:
  bool respondsToSelector(std::u16string_view selector) const override {
    return selector == u"supportsFile:";
  }
  std::optional<Value> invoke(std::u16string_view, Array) override { return Value(false); }
};

}  // namespace

int main() {
  const char* name = std::getenv("FERNCAST_TEST_HELPER_NAME");
  Connection connection;
  SupportsNothing root;
  connection.setRootObject(&root);
  connection.retireOnTermination();
  connection.registerName(name && *name ? utf8ToUtf16(name) : u"FerncastHelper32");
  while (!connection.retired())
    RunLoop::current().runMode(kDefaultRunLoopMode, RunLoop::Clock::time_point::max());
  _exit(0);  // everything is delivered; the libraries' exit handlers would only delay the end
}
