// The web archive reader on any bytes, and the text, source and lookups of what it accepts.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "markup/WebArchive+SearchableText.h"
#include "markup/WebArchive+WebKitAdditions.h"
#include "markup/WebArchive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 262144) return 0;
  std::optional<ferncast::WebArchive> archive = ferncast::WebArchive::fromData(data, size);
  if (!archive) return 0;
  std::optional<std::u16string> source;
  ferncast::searchableTextAndSource(*archive, &source);
  const std::u16string& url = ferncast::baseURL(*archive);
  if (ferncast::subArchiveForURL(*archive, url) != &*archive) std::abort();
  if (ferncast::subresourceForURL(*archive, url) != &archive->mainResource()) std::abort();
  return 0;
}
