// File wrappers: a regular file, a folder of named children or a symbolic link held in memory,
// the stand-in for NSFileWrapper. An RTFD package is a directory wrapper holding "TXT.rtf" and one
// child per attachment; a text attachment holds the wrapper of its file.
//
// FileWrapper is a plain value: copies are deep, any thread may use its own. Names are UTF-16 here
// and UTF-8 on disk and in serialized data.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Classes/PropertyList.h"

namespace ferncast {

struct FileWrapper {
  enum class Type : std::uint8_t { kRegularFile, kDirectory, kSymbolicLink };

  Type type = Type::kRegularFile;
  // The name under which the wrapper is filed in its parent directory (unique there); for a
  // wrapper of its own, the name it was read or written under. Empty when it has none.
  std::u16string filename;
  // The name the wrapper would like; directories make it unique when they add the wrapper.
  std::u16string preferredFilename;
  // A regular file's bytes, or a symbolic link's destination as UTF-8.
  Data contents;
  // A directory's children, in the order they were added or read; their filenames are unique.
  std::vector<FileWrapper> children;
  // The serialized directory-information record ("." in serialized data) as it was read, kept so
  // that data read and written again stays the same; empty when there was none. Never interpreted.
  Data directoryInfo;

  static FileWrapper regularFile(Data contents, std::u16string preferredFilename = {});
  static FileWrapper directory();
  static FileWrapper symbolicLink(std::string destination, std::u16string preferredFilename = {});

  bool isRegularFile() const { return type == Type::kRegularFile; }
  bool isDirectory() const { return type == Type::kDirectory; }
  bool isSymbolicLink() const { return type == Type::kSymbolicLink; }

  // Adds a child to a directory under its preferred filename ("Attachment" when it has none),
  // made unique the platform's way: the first free "<n>__#$!@%!#__<name>" for n = 1, 2, ... when
  // the name is taken. Returns the name used, which becomes the child's filename.
  std::u16string addFileWrapper(FileWrapper child);
  // The child filed under `name`, or null.
  const FileWrapper* child(std::u16string_view name) const;

  // Same type, preferred filename, contents, and children filed under the same names in the same
  // order that are equal in turn. The wrapper's own filename and directoryInfo are not compared.
  bool operator==(const FileWrapper& other) const;
};

// ---- The serialized representation (RTFD data) ----
//
// "rtfd" and the version 0 as a 32-bit word, then the serializer stream (Serializer.h) of one
// dictionary: a directory has one entry per child (data for a file or link, a dictionary for a
// folder); a lone file has its bytes under ".."; the preferred filename, when there is one, goes
// under "__@PreferredName@__" (NEXTSTEP bytes, "?" for what they cannot hold) and
// "__@UTF8PreferredName@__"; a kept directoryInfo goes under ".".
Data serializedRepresentation(const FileWrapper& wrapper);

// The wrapper of serialized data, with the 8-byte header or without it (the pasteboard form: a
// buffer that does not start with "rtfd" and a 0 byte is read whole as the stream). nullopt for
// fewer than 8 bytes, a header whose version is not 0, a stream that does not hold a dictionary,
// or a child whose name is not valid UTF-8 or not a valid filename (isValidFilename) or appears
// twice. ".DS_Store" entries are left out. A symbolic link comes back as a regular file holding
// its destination: links are never made from data. Children's preferred filenames are their names.
std::optional<FileWrapper> fileWrapperWithSerializedRepresentation(
    std::span<const std::uint8_t> data);

// Chooses unique filenames for new children of one directory as addFileWrapper does, in constant
// time per name, for adding many children at once. It knows the children the directory had when
// it was made and the names it has handed out since.
class UniqueFilenames {
 public:
  explicit UniqueFilenames(const FileWrapper& directory);
  std::u16string take(std::u16string_view preferredFilename);

 private:
  std::unordered_set<std::u16string> taken_;
  std::unordered_map<std::u16string, std::size_t> nextNumber_;
};

// True when `name` may name a child on disk: not empty, not "." or "..", no "/" and no NUL.
bool isValidFilename(std::u16string_view name);

}  // namespace ferncast
