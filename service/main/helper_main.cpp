// ferncast-helper: the helper process. Vends one FerncastHelper under "FerncastHelper32" for
// the user who runs it and answers its requests one at a time until it is terminated. Reads no
// arguments or settings; the environment only for XDG_RUNTIME_DIR, where its name lies. A second
// instance, finding the name taken, runs on without a name and takes it when the first ends.
// SIGTERM ends it as Connection::retireOnTermination says.
#include <unistd.h>

#include "service/Connection.h"
#include "service/FerncastHelper.h"
#include "service/RunLoop.h"

int main() {
  using namespace ferncast;
  Connection connection;
  FerncastHelper helper;
  connection.setRootObject(&helper);
  connection.setRequestTimeout(15.0);
  connection.setReplyTimeout(15.0);
  connection.retireOnTermination();
  connection.registerName(kFerncastHelperName);  // a taken name is no reason to stop
  while (!connection.retired())
    RunLoop::current().runMode(kDefaultRunLoopMode, RunLoop::Clock::time_point::max());
  _exit(0);  // everything is delivered; the libraries' exit handlers would only delay the end
}
