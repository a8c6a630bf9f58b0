#include "tools/ferncast_main.h"

#include <signal.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "tools/ferncast_cli.h"

namespace ferncast::cli {

std::vector<Area>& registeredAreas();

int runFerncast(int argc, char** argv, std::span<const AreaName> elsewhere) {
  signal(SIGPIPE, SIG_IGN);  // a closed pipe becomes a write error, reported with status 2
  CLI::App app{"ferncast: text, markup and document tools of the Ferncast helper", "ferncast"};
  app.require_subcommand(1);
  // Several source files may add commands to one area; the first one names it.
  std::map<std::string, CLI::App*> areas;
  for (const Area& area : registeredAreas()) {
    CLI::App*& sub = areas[area.name];
    if (!sub) {
      sub = app.add_subcommand(area.name, area.description);
      if (!area.leaf) sub->require_subcommand(1);
    }
    area.addCommands(*sub);
  }
  for (const AreaName& area : elsewhere) {
    if (!areas.count(area.name)) app.add_subcommand(area.name, area.description);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return kUsage;
  } catch (const Exit& e) {
    if (e.what()[0]) std::fprintf(stderr, "ferncast: %s\n", e.what());
    return e.status;
  }
  return kSuccess;
}

}  // namespace ferncast::cli
