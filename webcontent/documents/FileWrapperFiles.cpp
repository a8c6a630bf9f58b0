#include "webcontent/documents/FileWrapperFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }

 private:
  int fd_;
};

// ---- Reading ----

struct ReadBudget {
  const FileWrapperReadLimits& limits;
  std::size_t bytes = 0;
  std::size_t entries = 0;
};

bool readAll(int fd, Data& out, ReadBudget& budget) {
  std::uint8_t buffer[65536];
  for (;;) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    budget.bytes += static_cast<std::size_t>(n);
    if (budget.bytes > budget.limits.maxBytes) return false;
    out.insert(out.end(), buffer, buffer + n);
  }
}

std::optional<FileWrapper> readEntry(int directory, const std::string& name, std::size_t depth,
                                     ReadBudget& budget) {
  struct stat status;
  if (++budget.entries > budget.limits.maxEntries ||
      fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return std::nullopt;
  }
  FileWrapper wrapper;
  if (S_ISLNK(status.st_mode)) {
    char target[4096];
    const ssize_t n = readlinkat(directory, name.c_str(), target, sizeof target);
    if (n < 0 || static_cast<std::size_t>(n) == sizeof target) return std::nullopt;
    wrapper = FileWrapper::symbolicLink(std::string(target, static_cast<std::size_t>(n)));
  } else if (S_ISREG(status.st_mode)) {
    Descriptor fd(openat(directory, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!fd.valid()) return std::nullopt;
    wrapper = FileWrapper::regularFile({});
    if (!readAll(fd.get(), wrapper.contents, budget)) return std::nullopt;
  } else if (S_ISDIR(status.st_mode)) {
    if (depth > budget.limits.maxDepth) return std::nullopt;
    const int fd = openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return std::nullopt;
    DIR* listing = fdopendir(fd);
    if (!listing) {
      close(fd);
      return std::nullopt;
    }
    std::vector<std::string> names;
    while (const dirent* entry = readdir(listing)) {
      const std::string_view child = entry->d_name;
      if (child != "." && child != "..") names.emplace_back(child);
      if (names.size() > budget.limits.maxEntries) break;
    }
    std::sort(names.begin(), names.end());
    wrapper = FileWrapper::directory();
    for (const std::string& child : names) {
      std::optional<FileWrapper> read = readEntry(fd, child, depth + 1, budget);
      if (!read) {
        closedir(listing);
        return std::nullopt;
      }
      wrapper.children.push_back(std::move(*read));
    }
    closedir(listing);
  } else {
    return std::nullopt;
  }
  const std::size_t slash = name.find_last_of('/');
  wrapper.filename = utf8ToUtf16(slash == std::string::npos ? name : name.substr(slash + 1));
  wrapper.preferredFilename = wrapper.filename;
  return wrapper;
}

// ---- Writing ----

bool writeBytes(int fd, const Data& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

// Writes the children of a directory wrapper into the open folder `directory`.
bool writeChildren(int directory, const FileWrapper& wrapper, bool flush);

bool writeRegularFile(int fd, const FileWrapper& wrapper, bool flush) {
  return writeBytes(fd, wrapper.contents) && (!flush || fsync(fd) == 0);
}

bool writeFolder(int fd, const FileWrapper& wrapper, bool flush) {
  return writeChildren(fd, wrapper, flush) && (!flush || fsync(fd) == 0);
}

bool writeChildren(int directory, const FileWrapper& wrapper, bool flush) {
  for (const FileWrapper& child : wrapper.children) {
    if (!isValidFilename(child.filename)) return false;
    const std::string name = utf16ToUtf8(child.filename);
    if (child.isDirectory()) {
      if (mkdirat(directory, name.c_str(), 0777) != 0) return false;
      Descriptor fd(
          openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
      if (!fd.valid() || !writeFolder(fd.get(), child, flush)) return false;
    } else if (child.isSymbolicLink()) {
      const std::string target(child.contents.begin(), child.contents.end());
      if (symlinkat(target.c_str(), directory, name.c_str()) != 0) return false;
    } else {
      Descriptor fd(openat(directory, name.c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666));
      if (!fd.valid() || !writeRegularFile(fd.get(), child, flush)) return false;
    }
  }
  return true;
}

std::string temporaryPrefix(const std::string& base) {
  // Short enough that the whole name stays within NAME_MAX.
  return "." + base.substr(0, 200) + ".ferncast-";
}

void removeTree(const std::string& parent, const std::string& name) {
  std::error_code error;
  std::filesystem::remove_all(std::filesystem::path(parent) / name, error);
}

// Removes temporaries of writes of `base` whose writer process is gone.
void removeStaleTemporaries(const std::string& parent, int parentFd, const std::string& base) {
  const int fd = dup(parentFd);
  if (fd < 0) return;
  DIR* listing = fdopendir(fd);
  if (!listing) {
    close(fd);
    return;
  }
  const std::string prefix = temporaryPrefix(base);
  std::vector<std::string> stale;
  while (const dirent* entry = readdir(listing)) {
    const std::string_view name = entry->d_name;
    if (!name.starts_with(prefix)) continue;
    pid_t pid = 0;
    std::size_t i = prefix.size();
    for (; i < name.size() && name[i] >= '0' && name[i] <= '9' && pid < 100000000; ++i) {
      pid = pid * 10 + (name[i] - '0');
    }
    if (i < name.size() && name[i] == '-' && pid > 0 && pid != getpid() && kill(pid, 0) != 0 &&
        errno == ESRCH) {
      stale.emplace_back(name);
    }
  }
  closedir(listing);
  for (const std::string& name : stale)
    removeTree(parent, name);
}

// Moves `temporary` onto `base` in `parentFd`, swapping it with what is there. Afterwards the old
// contents, if any, are at `temporary`.
bool replace(int parentFd, const std::string& temporary, const std::string& base, bool& swapped) {
  swapped = false;
  if (renameat2(parentFd, temporary.c_str(), parentFd, base.c_str(), RENAME_NOREPLACE) == 0) {
    return true;
  }
  if (errno == EEXIST &&
      renameat2(parentFd, temporary.c_str(), parentFd, base.c_str(), RENAME_EXCHANGE) == 0) {
    swapped = true;
    return true;
  }
  if (errno != EINVAL) return false;
  // A file system without atomic exchange: move the old contents aside first. A crash between
  // the two renames leaves the old contents under the temporary's name.
  struct stat status;
  if (fstatat(parentFd, base.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return renameat(parentFd, temporary.c_str(), parentFd, base.c_str()) == 0;
  }
  const std::string aside = temporary + "-old";
  if (renameat(parentFd, base.c_str(), parentFd, aside.c_str()) != 0) return false;
  if (renameat(parentFd, temporary.c_str(), parentFd, base.c_str()) != 0) {
    renameat(parentFd, aside.c_str(), parentFd, base.c_str());
    return false;
  }
  renameat(parentFd, aside.c_str(), parentFd, temporary.c_str());
  swapped = true;
  return true;
}

}  // namespace

std::optional<FileWrapper> fileWrapperWithPath(std::u16string_view path,
                                               const FileWrapperReadLimits& limits) {
  std::string name = utf16ToUtf8(path);
  while (name.size() > 1 && name.back() == '/')
    name.pop_back();
  if (name.empty()) return std::nullopt;
  ReadBudget budget{limits};
  return readEntry(AT_FDCWD, name, 0, budget);
}

bool writeFileWrapper(const FileWrapper& wrapper, std::u16string_view path16,
                      const FileWrapperWriteOptions& options) {
  std::string path = utf16ToUtf8(path16);
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  const std::size_t slash = path.find_last_of('/');
  const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  const std::string parent =
      slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
  if (base.empty() || base == "." || base == "..") return false;
  Descriptor parentFd(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!parentFd.valid()) return false;
  removeStaleTemporaries(parent, parentFd.get(), base);

  const std::string prefix = temporaryPrefix(base) + std::to_string(getpid()) + "-";
  static constexpr char kLetters[] =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  std::random_device random;
  std::string temporary;
  bool written = false;
  for (int attempt = 0; attempt < 100 && temporary.empty(); ++attempt) {
    std::string candidate = prefix;
    for (int i = 0; i < 6; ++i)
      candidate.push_back(kLetters[random() % (sizeof kLetters - 1)]);
    if (wrapper.isDirectory()) {
      if (mkdirat(parentFd.get(), candidate.c_str(), 0777) == 0) {
        temporary = candidate;
        Descriptor fd(openat(parentFd.get(), candidate.c_str(),
                             O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
        written = fd.valid() && writeFolder(fd.get(), wrapper, options.flush);
      }
    } else if (wrapper.isSymbolicLink()) {
      const std::string target(wrapper.contents.begin(), wrapper.contents.end());
      if (symlinkat(target.c_str(), parentFd.get(), candidate.c_str()) == 0) {
        temporary = candidate;
        written = true;
      }
    } else {
      Descriptor fd(openat(parentFd.get(), candidate.c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666));
      if (fd.valid()) {
        temporary = candidate;
        written = writeRegularFile(fd.get(), wrapper, options.flush);
      }
    }
    if (temporary.empty() && errno != EEXIST) return false;
  }
  if (temporary.empty()) return false;
  bool swapped = false;
  if (!written || !replace(parentFd.get(), temporary, base, swapped)) {
    removeTree(parent, temporary);
    return false;
  }
  if (options.flush) fsync(parentFd.get());
  if (swapped) removeTree(parent, temporary);
  return true;
}

}  // namespace ferncast
