// ferncast-media: the areas of the ferncast command that need the imaging, PDF, movie, importer
// or document libraries. ferncast executes it with its own arguments for those areas.
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "tools/ferncast_cli.h"
#include "tools/ferncast_main.h"

namespace ferncast::cli {
std::vector<Area>& registeredAreas();
}

int main(int argc, char** argv) {
  using namespace ferncast::cli;
  std::set<std::string> listed, registered;
  for (const AreaName& area : kMediaAreas) listed.insert(area.name);
  for (const Area& area : registeredAreas()) registered.insert(area.name);
  if (listed != registered) {
    std::fprintf(stderr, "ferncast-media: kMediaAreas in tools/ferncast_main.h is out of date\n");
    return kUsage;
  }
  return runFerncast(argc, argv, {});
}
