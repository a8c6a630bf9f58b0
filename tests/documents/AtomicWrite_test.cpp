// Writing a package atomically: a writer killed with SIGKILL at 300 random moments never leaves a
// torn package behind, only the old one or the new one, and its leftovers go at the next write.
// The writes skip the flushes to disk, which guard against power failures, not kills, and would
// make the test wait on the disk.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Classes/Unicode.h"
#include "tests/ScratchDirectory.h"
#include "webcontent/documents/FileWrapperFiles.h"

namespace {

using namespace ferncast;
namespace fs = std::filesystem;

constexpr FileWrapperWriteOptions kNoFlush{.flush = false};

// A package of `files` files, each filled with `fill`, and a larger picture.
FileWrapper package(int files, std::uint8_t fill) {
  FileWrapper folder = FileWrapper::directory();
  for (int i = 0; i < files; ++i) {
    folder.addFileWrapper(FileWrapper::regularFile(Data(100 + static_cast<std::size_t>(i), fill),
                                                   u"f" + utf8ToUtf16(std::to_string(i))));
  }
  folder.addFileWrapper(FileWrapper::regularFile(Data(16384, fill), u"picture.png"));
  return folder;
}

// The children's names and contents, which is what a torn package would get wrong.
bool sameFiles(const FileWrapper& a, const FileWrapper& b) {
  if (a.children.size() != b.children.size()) return false;
  for (const FileWrapper& child : a.children) {
    const FileWrapper* other = b.child(child.filename);
    if (!other || other->contents != child.contents) return false;
  }
  return true;
}

// A process that writes the two packages in turn, `writes` times or for ever (0), and tells
// through `signal` when it starts writing and, when `reportFirst`, when its first write is done.
pid_t startWriter(const FileWrapper (&packages)[2], const std::u16string& destination,
                  unsigned writes, bool reportFirst, int signal) {
  const pid_t writer = fork();
  if (writer != 0) return writer;
  (void)!write(signal, "", 1);
  for (unsigned n = 0; writes == 0 || n < writes; ++n) {
    (void)writeFileWrapper(packages[n % 2 == 0 ? 1 : 0], destination, kNoFlush);
    if (n == 0 && reportFirst) (void)!write(signal, "", 1);
  }
  _exit(0);
}

TEST(AtomicWrite, AKilledWriterLeavesTheOldPackageOrTheNewNeverATornOne) {
  const ferncast::testing::ScratchDirectory folder("atomic");
  const std::u16string destination = utf8ToUtf16((folder / "p.rtfd").string());
  const FileWrapper packages[2] = {package(4, 'a'), package(2, 'b')};
  ASSERT_TRUE(writeFileWrapper(packages[0], destination, kNoFlush));

  // How long a fresh writer process takes for its first write: kills fall within two of those.
  std::chrono::microseconds firstWrite;
  {
    int pipe_[2];
    ASSERT_EQ(pipe(pipe_), 0);
    const pid_t writer = startWriter(packages, destination, 1, true, pipe_[1]);
    ASSERT_GT(writer, 0);
    close(pipe_[1]);
    char byte;
    ASSERT_EQ(read(pipe_[0], &byte, 1), 1);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(read(pipe_[0], &byte, 1), 1);
    firstWrite = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    close(pipe_[0]);
    waitpid(writer, nullptr, 0);
    ASSERT_TRUE(writeFileWrapper(packages[0], destination, kNoFlush));
  }
  const auto longest = 2 * firstWrite.count();

  std::mt19937 random(20240601);
  int seen[2] = {0, 0};
  for (int kill = 0; kill < 300; ++kill) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t writer = startWriter(packages, destination, 0, false, ready[1]);
    ASSERT_GT(writer, 0);
    close(ready[1]);
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % (longest + 1)));
    ::kill(writer, SIGKILL);
    int status = 0;
    waitpid(writer, &status, 0);

    std::optional<FileWrapper> left = fileWrapperWithPath(destination);
    ASSERT_TRUE(left) << "no package after kill " << kill;
    const bool old = sameFiles(*left, packages[0]), fresh = sameFiles(*left, packages[1]);
    ASSERT_TRUE(old || fresh) << "a torn package after kill " << kill;
    ++seen[fresh ? 1 : 0];
  }
  // The kills fell both before and after whole writes.
  EXPECT_GT(seen[0], 0);
  EXPECT_GT(seen[1], 0);

  // The next write clears what the killed writers left beside the package.
  ASSERT_TRUE(writeFileWrapper(packages[0], destination, kNoFlush));
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder.path())) {
    names.push_back(entry.path().filename().string());
  }
  EXPECT_EQ(names, std::vector<std::string>{"p.rtfd"});
}

}  // namespace
