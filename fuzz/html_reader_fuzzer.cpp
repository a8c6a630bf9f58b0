// The HTML reader without network: bytes decoded as markup and laid out; images load only from
// data: URLs (HTTP loads are refused by the hook, file: URLs have nowhere to come from as there
// is no base). Checks what the reader promises: attachments stand only on attachment characters,
// every image asked for is answered, and the text stays within a small multiple of the input
// (list markers and tabs are the only text the reader adds).
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "webcontent/documents/HtmlReader.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 65536) return 0;
  ferncast::HtmlReaderOptions options;
  options.resources.emplace();
  options.resources->hook = [](const ferncast::URL&,
                               ferncast::HostResolver&) -> std::optional<ferncast::URL> {
    return std::nullopt;
  };
  std::optional<ferncast::HtmlReading> reading = ferncast::readHTML({data, size}, options);
  if (!reading) return 0;
  const ferncast::AttributedString& s = reading->string;
  check(s.length() > 0);
  check(s.length() <= 16 * size + 64);
  for (std::size_t r = 0; r < s.runCount(); ++r) {
    ferncast::AttributedString::Run run = s.run(r);
    if (run.attributes.attachment) {
      for (std::size_t i = run.location; i < run.location + run.length; ++i)
        check(s.string()[i] == ferncast::kAttachmentCharacter);
    }
  }
  for (const ferncast::LoadedResource& load : reading->loads) {
    std::u16string scheme = load.url.scheme().value_or(u"");
    for (char16_t& c : scheme)
      if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c | 0x20);
    check(load.outcome != ferncast::LoadOutcome::kLoaded || scheme == u"data");
  }
  return 0;
}
