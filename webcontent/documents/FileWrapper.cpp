#include "webcontent/documents/FileWrapper.h"

#include <algorithm>
#include <string>
#include <unordered_set>

#include "Classes/NSString+Encoding.h"
#include "Classes/Unicode.h"
#include "webcontent/documents/Serializer.h"

namespace ferncast {
namespace {

constexpr std::string_view kPreferredNameKey = "__@PreferredName@__";
constexpr std::string_view kUTF8PreferredNameKey = "__@UTF8PreferredName@__";
constexpr std::string_view kDirectoryInfoKey = ".";
constexpr std::string_view kFileContentsKey = "..";
constexpr std::uint8_t kHeader[4] = {'r', 't', 'f', 'd'};

SerializedObject dataObject(Data bytes) {
  SerializedObject object;
  object.type = SerializedObject::Type::kData;
  object.bytes = std::move(bytes);
  return object;
}

std::string utf8Name(std::u16string_view name) {
  return utf16ToUtf8(name);
}

SerializedObject serialized(const FileWrapper& wrapper, bool topLevel) {
  if (!wrapper.isDirectory() && !topLevel) return dataObject(wrapper.contents);
  SerializedObject dictionary;
  dictionary.type = SerializedObject::Type::kDictionary;
  auto add = [&dictionary](std::string key, SerializedObject value) {
    dictionary.keys.push_back(std::move(key));
    dictionary.values.push_back(std::move(value));
  };
  if (wrapper.isDirectory()) {
    for (const FileWrapper& child : wrapper.children) {
      add(utf8Name(child.filename), serialized(child, false));
    }
  } else {
    add(std::string(kFileContentsKey), dataObject(wrapper.contents));
  }
  if (topLevel && !wrapper.preferredFilename.empty()) {
    Data nextstep;
    for (char16_t c : wrapper.preferredFilename) {
      nextstep.push_back(c < 0x80 ? static_cast<std::uint8_t>(c) : '?');
    }
    const std::string utf8 = utf8Name(wrapper.preferredFilename);
    add(std::string(kPreferredNameKey), dataObject(std::move(nextstep)));
    add(std::string(kUTF8PreferredNameKey), dataObject(Data(utf8.begin(), utf8.end())));
  }
  if (!wrapper.directoryInfo.empty())
    add(std::string(kDirectoryInfoKey), dataObject(wrapper.directoryInfo));
  return dictionary;
}

std::optional<std::u16string> strictUtf8(std::string_view bytes) {
  return stringWithData(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(),
                        NSUTF8StringEncoding);
}

// The preferred filename stated in a dictionary, the UTF-8 form first; empty when none is usable.
std::u16string preferredName(const SerializedObject& dictionary) {
  const Data* utf8 = nullptr;
  const Data* nextstep = nullptr;
  for (std::size_t i = 0; i < dictionary.keys.size(); ++i) {
    if (dictionary.values[i].type != SerializedObject::Type::kData) continue;
    if (dictionary.keys[i] == kUTF8PreferredNameKey) utf8 = &dictionary.values[i].bytes;
    if (dictionary.keys[i] == kPreferredNameKey) nextstep = &dictionary.values[i].bytes;
  }
  std::optional<std::u16string> name;
  if (utf8) {
    name = strictUtf8(std::string_view(reinterpret_cast<const char*>(utf8->data()), utf8->size()));
  } else if (nextstep) {
    name = stringWithData(nextstep->data(), nextstep->size(), NSASCIIStringEncoding);
  }
  return name && isValidFilename(*name) ? *name : std::u16string();
}

std::optional<FileWrapper> wrapperOf(SerializedObject& dictionary) {
  FileWrapper wrapper = FileWrapper::directory();
  wrapper.preferredFilename = preferredName(dictionary);
  std::unordered_set<std::u16string> names;
  for (std::size_t i = 0; i < dictionary.keys.size(); ++i) {
    const std::string& key = dictionary.keys[i];
    SerializedObject& value = dictionary.values[i];
    if (key == kPreferredNameKey || key == kUTF8PreferredNameKey || key == ".DS_Store") continue;
    if (key == kDirectoryInfoKey) {
      if (value.type == SerializedObject::Type::kData)
        wrapper.directoryInfo = std::move(value.bytes);
      continue;
    }
    if (key == kFileContentsKey) {
      if (value.type != SerializedObject::Type::kData) return std::nullopt;
      wrapper.type = FileWrapper::Type::kRegularFile;
      wrapper.contents = std::move(value.bytes);
      continue;
    }
    std::optional<std::u16string> name = strictUtf8(key);
    if (!name || !isValidFilename(*name) || !names.insert(*name).second) return std::nullopt;
    FileWrapper child;
    if (value.type == SerializedObject::Type::kData) {
      child = FileWrapper::regularFile(std::move(value.bytes));
    } else if (value.type == SerializedObject::Type::kDictionary) {
      std::optional<FileWrapper> nested = wrapperOf(value);
      if (!nested) return std::nullopt;
      child = std::move(*nested);
    } else {
      return std::nullopt;
    }
    child.filename = *name;
    child.preferredFilename = *name;
    wrapper.children.push_back(std::move(child));
  }
  // A lone file has its contents under ".." and nothing else but names.
  if (wrapper.isRegularFile() && !wrapper.children.empty()) return std::nullopt;
  return wrapper;
}

}  // namespace

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

Data serializedRepresentation(const FileWrapper& wrapper) {
  Data out(kHeader, kHeader + 4);
  out.insert(out.end(), 4, 0);
  serializeObject(serialized(wrapper, true), out);
  return out;
}

std::optional<FileWrapper> fileWrapperWithSerializedRepresentation(
    std::span<const std::uint8_t> data) {
  if (data.size() < 8) return std::nullopt;
  if (std::equal(kHeader, kHeader + 4, data.begin()) && data[4] == 0) {
    if (data[5] != 0 || data[6] != 0 || data[7] != 0) return std::nullopt;
    data = data.subspan(8);
  }
  std::optional<SerializedObject> object = deserializeObject(data);
  if (!object || object->type != SerializedObject::Type::kDictionary) return std::nullopt;
  return wrapperOf(*object);
}

}  // namespace ferncast
