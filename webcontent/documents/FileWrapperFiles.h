// File wrappers and the file system: reading a file, folder or symbolic link into a wrapper, and
// writing a wrapper so that it replaces what was at its path whole.
//
// Paths are UTF-16, converted to UTF-8 for the system. Any thread may call; when two writers
// replace one path at once, each replacement is whole and the last one stays.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "webcontent/documents/FileWrapper.h"

namespace ferncast {

struct FileWrapperReadLimits {
  std::size_t maxBytes = std::size_t(1) << 30;  // all regular files together
  std::size_t maxEntries = 100000;              // files, folders and links
  std::size_t maxDepth = 32;                    // folders inside the top one
};

// The wrapper of what is at `path`: a regular file, a folder with everything inside it (children
// in byte order of their names), or a symbolic link, which is not followed. Filename and
// preferred filename are the last component of the path, and so for every child. nullopt when
// something cannot be read, is neither file nor folder nor link, or the limits are passed.
std::optional<FileWrapper> fileWrapperWithPath(std::u16string_view path,
                                               const FileWrapperReadLimits& limits = {});

struct FileWrapperWriteOptions {
  // Flush every file and folder to the disk before the rename and the parent folder after it, so
  // that a power failure too leaves the old contents or the new. Killing the process needs no
  // flush for that: off only where speed matters more than a power failure (tests).
  bool flush = true;
};

// Writes the wrapper at `path`, replacing whatever is there (file, folder or package) as a whole:
// everything is written into a hidden temporary sibling (".<name>.ferncast-<pid>-XXXXXX"), flushed
// to disk (see FileWrapperWriteOptions), then renamed onto `path` in one step (swapped with what
// was there, which is then removed). A crash or kill at any moment leaves at `path` either the old
// contents or the new, never a mixture; it may leave the temporary sibling, which the next write of
// the same path removes once its process is gone. Files are made with mode 0666 and folders 0777,
// less the umask. False when anything fails; `path` is then unchanged.
[[nodiscard]] bool writeFileWrapper(const FileWrapper& wrapper, std::u16string_view path,
                                    const FileWrapperWriteOptions& options = {});

}  // namespace ferncast
