// ferncast <area> <verb> [options] [FILE|-]: every capability of the library and the helper.
// The areas of tools/media/ are served by ferncast-media, installed beside this program.
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <string>
#include <string_view>

#include "tools/ferncast_cli.h"
#include "tools/ferncast_main.h"

namespace {

// Replaces this process with ferncast-media from the folder of this executable.
int runMedia(char** argv) {
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  std::string path = n > 0 ? std::string(self, static_cast<std::size_t>(n)) : std::string();
  path = path.substr(0, path.find_last_of('/') + 1) + "ferncast-media";
  execv(path.c_str(), argv);
  std::fprintf(stderr, "ferncast: %s: %s\n", path.c_str(), strerror(errno));
  return ferncast::cli::kUsage;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace ferncast::cli;
  if (argc > 1) {
    for (const AreaName& area : kMediaAreas) {
      if (std::string_view(argv[1]) == area.name) return runMedia(argv);
    }
  }
  return runFerncast(argc, argv, kMediaAreas);
}
