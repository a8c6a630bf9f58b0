#include "imaging/PostScript.h"

#include <fcntl.h>
#include <ghostscript/iapi.h>
#include <ghostscript/ierrors.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace ferncast {
namespace {

// --- Reading the program ---------------------------------------------------------------------

constexpr std::size_t kHeaderScanLimit = 64 * 1024;  // the comments a bounding box may sit in
constexpr std::size_t kTrailerScanLimit = 64 * 1024;

std::uint32_t littleEndian32(const std::uint8_t* p) {
  return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

// Four numbers after a comment's colon: "0 0 612 792", as a rectangle of positive size.
std::optional<Rect> parseBox(std::string_view text) {
  double values[4];
  const char* p = text.data();
  const char* end = p + text.size();
  for (double& value : values) {
    while (p < end && (*p == ' ' || *p == '\t'))
      ++p;
    if (p < end && *p == '+') ++p;
    const auto [next, error] = std::from_chars(p, end, value);
    if (error != std::errc() || !std::isfinite(value) || std::fabs(value) > 1e7)
      return std::nullopt;
    p = next;
  }
  const double width = values[2] - values[0], height = values[3] - values[1];
  if (!(width > 0) || !(height > 0)) return std::nullopt;
  return Rect{{static_cast<float>(values[0]), static_cast<float>(values[1])},
              {static_cast<float>(width), static_cast<float>(height)}};
}

// The value of the last "%%<name>:" comment starting a line in [begin, end), or nullopt.
std::optional<std::string_view> lastComment(std::string_view text, std::string_view name,
                                            bool stopAtEndComments) {
  std::optional<std::string_view> found;
  std::size_t lineStart = 0;
  while (lineStart < text.size()) {
    std::size_t lineEnd = text.find_first_of("\r\n", lineStart);
    if (lineEnd == std::string_view::npos) lineEnd = text.size();
    const std::string_view line = text.substr(lineStart, lineEnd - lineStart);
    if (stopAtEndComments && line.rfind("%%EndComments", 0) == 0) break;
    if (line.size() > name.size() + 3 && line.rfind("%%", 0) == 0 &&
        line.substr(2, name.size()) == name && line[2 + name.size()] == ':')
      found = line.substr(3 + name.size());
    lineStart = lineEnd + 1;
  }
  return found;
}

std::optional<Rect> findBoundingBox(std::string_view program) {
  const std::string_view header = program.substr(0, kHeaderScanLimit);
  const std::string_view trailer =
      program.substr(program.size() - std::min(program.size(), kTrailerScanLimit));
  for (std::string_view name : {"HiResBoundingBox", "BoundingBox"}) {
    std::optional<std::string_view> value = lastComment(header, name, true);
    if (value && value->find("(atend)") != std::string_view::npos)
      value = lastComment(trailer, name, false);
    if (value) {
      if (std::optional<Rect> box = parseBox(*value)) return box;
    }
  }
  return std::nullopt;
}

// --- The conversion child ----------------------------------------------------------------------

struct ChildStreams {
  const Data* input;
  std::size_t offset;
};

int readProgram(void* handle, char* buffer, int length) {
  auto* streams = static_cast<ChildStreams*>(handle);
  const std::size_t count = std::min<std::size_t>(static_cast<std::size_t>(length),
                                                  streams->input->size() - streams->offset);
  std::memcpy(buffer, streams->input->data() + streams->offset, count);
  streams->offset += count;
  return static_cast<int>(count);
}

int discardMessages(void*, const char*, int length) {
  return length;
}

// Runs in the child: converts and exits, never returns. Ghostscript writes the PDF to its
// standard output, which is the pipe; its messages go nowhere.
[[noreturn]] void convertInChild(const Data& postScript, int output) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (dup2(output, STDOUT_FILENO) < 0 || nowhere < 0 || dup2(nowhere, STDERR_FILENO) < 0) _exit(1);
  ChildStreams streams{&postScript, 0};
  void* instance = nullptr;
  int status = 1;
  if (gsapi_new_instance(&instance, &streams) >= 0) {
    gsapi_set_stdio(instance, readProgram, nullptr, discardMessages);
    gsapi_set_arg_encoding(instance, GS_ARG_ENCODING_UTF8);
    const char* arguments[] = {
        "gs",
        "-dSAFER",
        "-dBATCH",
        "-dNOPAUSE",
        "-dQUIET",
        "-sDEVICE=pdfwrite",
        "-dEPSCrop",
        "-dAutoRotatePages=/None",
        "-sOutputFile=-",
        "-",
    };
    const int code = gsapi_init_with_args(instance, static_cast<int>(std::size(arguments)),
                                          const_cast<char**>(arguments));
    const int exitCode = gsapi_exit(instance);
    if ((code == 0 || code == gs_error_Quit) && exitCode == 0) status = 0;
    gsapi_delete_instance(instance);
  }
  std::fflush(stdout);
  _exit(status);
}

std::size_t residentBytes(pid_t child) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/statm", static_cast<int>(child));
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return 0;
  char text[128] = {};
  const ssize_t n = read(file, text, sizeof text - 1);
  close(file);
  if (n <= 0) return 0;
  unsigned long size = 0, resident = 0;
  if (std::sscanf(text, "%lu %lu", &size, &resident) != 2) return 0;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

std::optional<PostScriptProgram> readPostScriptProgram(const Data& bytes) {
  PostScriptProgram program;
  if (bytes.size() >= 30 && bytes[0] == 0xC5 && bytes[1] == 0xD0 && bytes[2] == 0xD3 &&
      bytes[3] == 0xC6) {
    const std::size_t offset = littleEndian32(bytes.data() + 4);
    const std::size_t length = littleEndian32(bytes.data() + 8);
    if (offset > bytes.size() || length > bytes.size() - offset) return std::nullopt;
    program.text.assign(bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                        bytes.begin() + static_cast<std::ptrdiff_t>(offset + length));
  } else {
    program.text = bytes;
  }
  std::string_view text(reinterpret_cast<const char*>(program.text.data()), program.text.size());
  if (!text.empty() && text[0] == '\x04') text.remove_prefix(1);
  if (text.rfind("%!PS", 0) != 0) return std::nullopt;
  program.boundingBox = findBoundingBox(text);
  return program;
}

std::optional<Data> convertPostScriptToPDF(const Data& postScript,
                                           std::chrono::milliseconds timeLimit,
                                           std::size_t memoryLimit) {
  constexpr std::size_t kMaxOutput = std::size_t{512} << 20;
  const auto deadline = std::chrono::steady_clock::now() + timeLimit;
  if (postScript.empty()) return std::nullopt;
  int pipeEnds[2];
  if (pipe2(pipeEnds, O_CLOEXEC) != 0) return std::nullopt;
  const pid_t child = fork();
  if (child < 0) {
    close(pipeEnds[0]);
    close(pipeEnds[1]);
    return std::nullopt;
  }
  if (child == 0) {
    close(pipeEnds[0]);
    convertInChild(postScript, pipeEnds[1]);
  }
  close(pipeEnds[1]);

  Data output;
  bool failed = false;
  std::array<std::uint8_t, 64 * 1024> buffer;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0 || residentBytes(child) > memoryLimit) {
      failed = true;
      break;
    }
    pollfd readable{pipeEnds[0], POLLIN, 0};
    const int ready = poll(&readable, 1, static_cast<int>(std::min<long long>(left.count(), 20)));
    if (ready < 0 && errno != EINTR) {
      failed = true;
      break;
    }
    if (ready <= 0) continue;
    const ssize_t n = read(pipeEnds[0], buffer.data(), buffer.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      failed = true;
      break;
    }
    if (n == 0) break;  // the child closed its end: done
    output.insert(output.end(), buffer.begin(), buffer.begin() + n);
    if (output.size() > kMaxOutput) {
      failed = true;
      break;
    }
  }
  close(pipeEnds[0]);

  // The child has closed the pipe or is to be stopped; it must be reaped in every case.
  if (failed) kill(child, SIGKILL);
  int status = 0;
  for (;;) {
    const pid_t reaped = waitpid(child, &status, failed ? 0 : WNOHANG);
    if (reaped == child) break;
    if (reaped < 0) {
      if (errno == EINTR) continue;
      failed = true;
      break;
    }
    // Still running after closing its output.
    if (std::chrono::steady_clock::now() >= deadline) {
      failed = true;
      kill(child, SIGKILL);
    } else {
      usleep(1000);
    }
  }
  if (failed || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;

  // Anything printed before the PDF header is not part of it.
  const std::string_view text(reinterpret_cast<const char*>(output.data()),
                              std::min<std::size_t>(output.size(), 1024));
  const std::size_t header = text.find("%PDF-");
  if (header == std::string_view::npos) return std::nullopt;
  output.erase(output.begin(), output.begin() + static_cast<std::ptrdiff_t>(header));
  return output;
}

}  // namespace ferncast
