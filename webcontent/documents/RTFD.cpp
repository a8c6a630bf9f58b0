#include "webcontent/documents/RTFD.h"

#include <cstring>
#include <unordered_map>
#include <vector>

#include "webcontent/documents/FileWrapperFiles.h"
#include "webcontent/documents/RTF.h"

namespace ferncast {
namespace {

constexpr std::u16string_view kTextFileName = u"TXT.rtf";

}  // namespace

bool isRTFDData(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 8 && std::memcmp(bytes.data(), "rtfd\0\0\0\0", 8) == 0;
}

std::optional<AttributedString> initWithRTFDFileWrapper(const FileWrapper& package,
                                                        Dictionary* documentAttributes) {
  if (!package.isDirectory()) return std::nullopt;
  const FileWrapper* text = package.child(kTextFileName);
  if (!text || !text->isRegularFile()) return std::nullopt;
  std::optional<AttributedString> string =
      initWithRTF(text->contents, documentAttributes, &package);
  if (string && documentAttributes) {
    (*documentAttributes)[std::u16string(kDocumentTypeDocumentAttribute)] =
        std::u16string(kRTFDTextDocumentType);
  }
  return string;
}

std::optional<AttributedString> initWithRTFD(std::span<const std::uint8_t> data,
                                             Dictionary* documentAttributes) {
  std::optional<FileWrapper> package = fileWrapperWithSerializedRepresentation(data);
  if (!package) return std::nullopt;
  return initWithRTFDFileWrapper(*package, documentAttributes);
}

FileWrapper RTFDFileWrapperFromRange(const AttributedString& string,
                                     const Dictionary& documentAttributes) {
  FileWrapper package = FileWrapper::directory();
  FileWrapper text = FileWrapper::regularFile({}, std::u16string(kTextFileName));
  text.filename = text.preferredFilename;
  package.children.push_back(std::move(text));
  UniqueFilenames names(package);
  std::vector<std::u16string> attachmentNames;
  std::unordered_map<const FileWrapper*, std::u16string> stored;
  for (std::size_t r = 0; r < string.runCount(); ++r) {
    const AttributedString::Run run = string.run(r);
    const std::optional<TextAttachment>& attachment = run.attributes.attachment;
    if (!attachment || !attachment->fileWrapper) continue;
    for (std::size_t i = run.location; i < run.location + run.length; ++i) {
      if (string.string()[i] != kAttachmentCharacter) continue;
      const FileWrapper* wrapper = attachment->fileWrapper.get();
      auto [it, added] = stored.emplace(wrapper, std::u16string());
      if (added) {
        FileWrapper child = *wrapper;
        it->second =
            names.take(child.preferredFilename.empty() ? child.filename : child.preferredFilename);
        child.filename = child.preferredFilename = it->second;
        package.children.push_back(std::move(child));
      }
      attachmentNames.push_back(it->second);
    }
  }
  package.children.front().contents = RTFFromRange(string, documentAttributes, attachmentNames);
  return package;
}

Data RTFDFromRange(const AttributedString& string, const Dictionary& documentAttributes) {
  return serializedRepresentation(RTFDFileWrapperFromRange(string, documentAttributes));
}

bool writeRTFD(std::span<const std::uint8_t> data, std::u16string_view path) {
  Dictionary documentAttributes;
  std::optional<AttributedString> string = initWithRTFD(data, &documentAttributes);
  return string && writeFileWrapper(RTFDFileWrapperFromRange(*string, documentAttributes), path);
}

}  // namespace ferncast
