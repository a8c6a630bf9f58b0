// ferncast-helper: the helper process. Vends one FerncastHelper under "FerncastHelper32" for
// the user who runs it and answers its requests one at a time until it is terminated. Reads no
// arguments, environment or settings. A second instance, finding the name taken, runs on without
// a name.
#include "service/Connection.h"
#include "service/FerncastHelper.h"
#include "service/RunLoop.h"

int main() {
  using namespace ferncast;
  Connection connection;
  FerncastHelper helper;
  connection.setRootObject(&helper);
  connection.registerName(kFerncastHelperName);  // a taken name is no reason to stop
  connection.setRequestTimeout(15.0);
  connection.setReplyTimeout(15.0);
  for (;;)
    RunLoop::current().run();
}
