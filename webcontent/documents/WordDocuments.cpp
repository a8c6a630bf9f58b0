#include "webcontent/documents/WordDocuments.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>

#include "Classes/Unicode.h"

extern char** environ;

namespace ferncast {
namespace {

constexpr std::chrono::seconds kTimeout{15};
constexpr std::size_t kMaxOutput = std::size_t(64) << 20;

// Runs `argv` and collects its standard output; nullopt when it cannot start, fails, or runs
// out of time or room.
std::optional<std::string> run(const char* const argv[]) {
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) return std::nullopt;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  char path[] = "PATH=/usr/local/bin:/usr/bin:/bin";
  char* environment[] = {path, nullptr};
  pid_t pid = -1;
  int spawned =
      posix_spawnp(&pid, argv[0], &actions, nullptr, const_cast<char* const*>(argv), environment);
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  if (spawned != 0) {
    close(out[0]);
    return std::nullopt;
  }
  std::string output;
  bool ok = true;
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  char buffer[65536];
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      ok = false;
      break;
    }
    pollfd fd = {out[0], POLLIN, 0};
    int ready = poll(&fd, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) continue;
    ssize_t n = read(out[0], buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    if (output.size() + static_cast<std::size_t>(n) > kMaxOutput) {
      ok = false;
      break;
    }
    output.append(buffer, static_cast<std::size_t>(n));
  }
  close(out[0]);
  if (!ok) kill(pid, SIGKILL);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!ok || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
  return output;
}

}  // namespace

bool matchesWordDocument(const DocumentSource& source) {
  static constexpr std::uint8_t kCompoundFile[] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
  return source.data && source.data->size() >= sizeof kCompoundFile &&
         std::memcmp(source.data->data(), kCompoundFile, sizeof kCompoundFile) == 0 &&
         (source.extension == u"doc" || source.extension == u"dot");
}

std::optional<Document> readWordDocument(const DocumentSource& source) {
  if (source.path.empty()) return std::nullopt;
  const std::string path = utf16ToUtf8(source.path);
  // -w 0: one line per paragraph; -m UTF-8.txt: UTF-8 output.
  const char* const argv[] = {"antiword",  "-t", "-w",         "0",    "-m",
                              "UTF-8.txt", "--", path.c_str(), nullptr};
  std::optional<std::string> text = run(argv);
  if (!text) return std::nullopt;
  std::u16string string = utf8ToUtf16(*text);
  while (!string.empty() && (string.back() == u'\n' || string.back() == u' '))
    string.pop_back();
  if (string.empty()) return std::nullopt;
  string += u'\n';
  Document document{AttributedString(string), {}};
  document.documentAttributes[std::u16string(kDocumentTypeDocumentAttribute)] =
      std::u16string(kDocFormatTextDocumentType);
  return document;
}

}  // namespace ferncast
