// The .docx and .odt readers over their XML parts, without the zip: the first byte chooses the
// format, the rest is split at NUL bytes into the main part, the styles, the numbering (.docx) or
// meta data (.odt), and the relationships (.docx); a part named by a relationship or an image
// reference is found as "media" bytes. Checks that attachments stand only on attachment
// characters.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "webcontent/documents/OfficeDocuments.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > 65536) return 0;
  std::vector<std::string> parts(4);
  std::size_t index = 0;
  for (std::size_t i = 1; i < size; ++i) {
    if (data[i] == 0 && index + 1 < parts.size()) {
      ++index;
      continue;
    }
    parts[index] += static_cast<char>(data[i]);
  }
  const bool docx = (data[0] & 1) == 0;
  const char* names[4] = {"word/document.xml", "word/styles.xml", "word/numbering.xml",
                          "word/_rels/document.xml.rels"};
  const char* odtNames[4] = {"content.xml", "styles.xml", "meta.xml", "-"};
  ferncast::PackagePart part = [&](std::string_view name) -> std::optional<ferncast::Data> {
    for (int i = 0; i < 4; ++i) {
      if (name == (docx ? names[i] : odtNames[i]))
        return ferncast::Data(parts[i].begin(), parts[i].end());
    }
    return ferncast::Data{0x89, 'P', 'N', 'G'};
  };
  std::optional<ferncast::Document> document =
      docx ? ferncast::readOfficeOpenXML(part) : ferncast::readOpenDocumentText(part);
  if (!document) return 0;
  const ferncast::AttributedString& s = document->string;
  for (std::size_t r = 0; r < s.runCount(); ++r) {
    ferncast::AttributedString::Run run = s.run(r);
    if (run.attributes.attachment) {
      for (std::size_t i = run.location; i < run.location + run.length; ++i)
        check(s.string()[i] == ferncast::kAttachmentCharacter);
    }
  }
  return 0;
}
