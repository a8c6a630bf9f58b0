#include "tools/ferncast_cli.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include "Classes/Json.h"
#include "Classes/Unicode.h"

namespace ferncast::cli {

std::vector<Area>& registeredAreas() {
  static std::vector<Area> areas;
  return areas;
}

RegisterArea::RegisterArea(Area area) {
  registeredAreas().push_back(area);
}

void finish(int status, std::string message) {
  throw Exit(status, std::move(message));
}

std::string readInput(const std::string& path) {
  bool standardInput = path.empty() || path == "-";
  int fd = standardInput ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) finish(kUsage, path + ": " + strerror(errno));
  std::string bytes;
  char buffer[65536];
  for (;;) {
    ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      int error = errno;
      if (!standardInput) close(fd);
      finish(kUsage,
             (standardInput ? std::string("standard input") : path) + ": " + strerror(error));
    }
    if (n == 0) break;
    bytes.append(buffer, static_cast<std::size_t>(n));
  }
  if (!standardInput) close(fd);
  return bytes;
}

std::u16string readTextInput(const std::string& path) {
  return utf8ToUtf16(readInput(path));
}

std::u16string argumentText(const std::string& argument) {
  return utf8ToUtf16(argument);
}

void writeOutput(std::string_view bytes) {
  const char* p = bytes.data();
  std::size_t left = bytes.size();
  while (left > 0) {
    ssize_t n = write(STDOUT_FILENO, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) finish(kUsage, std::string("standard output: ") + strerror(errno));
    p += n;
    left -= static_cast<std::size_t>(n);
  }
}

void writeText(std::u16string_view text) {
  writeOutput(utf16ToUtf8(text));
}

void printJson(const Value& value) {
  writeOutput(toJson(value) + "\n");
}

}  // namespace ferncast::cli
