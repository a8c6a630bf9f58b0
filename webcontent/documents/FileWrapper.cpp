#include "webcontent/documents/FileWrapper.h"

#include <string>

namespace ferncast {

FileWrapper FileWrapper::regularFile(Data contents, std::u16string preferredFilename) {
  FileWrapper wrapper;
  wrapper.type = Type::kRegularFile;
  wrapper.contents = std::move(contents);
  wrapper.preferredFilename = std::move(preferredFilename);
  return wrapper;
}

FileWrapper FileWrapper::directory() {
  FileWrapper wrapper;
  wrapper.type = Type::kDirectory;
  return wrapper;
}

FileWrapper FileWrapper::symbolicLink(std::string destination, std::u16string preferredFilename) {
  FileWrapper wrapper;
  wrapper.type = Type::kSymbolicLink;
  wrapper.contents.assign(destination.begin(), destination.end());
  wrapper.preferredFilename = std::move(preferredFilename);
  return wrapper;
}

std::u16string FileWrapper::addFileWrapper(FileWrapper newChild) {
  std::u16string name = UniqueFilenames(*this).take(newChild.preferredFilename);
  newChild.filename = name;
  children.push_back(std::move(newChild));
  return name;
}

UniqueFilenames::UniqueFilenames(const FileWrapper& directory) {
  for (const FileWrapper& child : directory.children)
    taken_.insert(child.filename);
}

std::u16string UniqueFilenames::take(std::u16string_view preferredFilename) {
  std::u16string name(isValidFilename(preferredFilename) ? preferredFilename : u"Attachment");
  if (taken_.insert(name).second) return name;
  for (std::size_t& n = nextNumber_[name];;) {
    std::u16string candidate;
    for (char c : std::to_string(++n))
      candidate.push_back(static_cast<char16_t>(c));
    candidate += u"__#$!@%!#__";
    candidate += name;
    if (taken_.insert(candidate).second) return candidate;
  }
}

const FileWrapper* FileWrapper::child(std::u16string_view name) const {
  for (const FileWrapper& c : children) {
    if (c.filename == name) return &c;
  }
  return nullptr;
}

bool FileWrapper::operator==(const FileWrapper& other) const {
  if (type != other.type || preferredFilename != other.preferredFilename ||
      contents != other.contents || children.size() != other.children.size()) {
    return false;
  }
  for (std::size_t i = 0; i < children.size(); ++i) {
    if (children[i].filename != other.children[i].filename || !(children[i] == other.children[i])) {
      return false;
    }
  }
  return true;
}

bool isValidFilename(std::u16string_view name) {
  if (name.empty() || name == u"." || name == u"..") return false;
  return name.find_first_of(std::u16string_view(u"/\0", 2)) == std::u16string_view::npos;
}

}  // namespace ferncast
