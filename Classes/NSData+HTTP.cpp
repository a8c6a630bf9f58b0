#include "Classes/NSData+HTTP.h"

#include <cstdint>
#include <string>

#include "Classes/NSString+HeaderFields.h"
#include "Classes/Unicode.h"

namespace ferncast {
namespace {

constexpr std::string_view kDisposition = "Content-Disposition: form-data;";
constexpr std::string_view kLineBreak = "\r\n";
constexpr std::string_view kBlankLine = "\r\n\r\n";
constexpr std::string_view kFinalDashes = "--\r\n";
// The disposition prefix and the part's closing line break at least.
constexpr std::size_t kMinimumPartLength = 33;

// Adds the fields of one part (the bytes between two delimiters) when it is well formed.
void readPart(std::string_view part, Dictionary& fields) {
  if (part.size() < kMinimumPartLength || !part.starts_with(kDisposition) ||
      !part.ends_with(kLineBreak)) {
    return;
  }
  std::size_t headerStart = kDisposition.size();
  while (headerStart < part.size() && (part[headerStart] == ' ' || part[headerStart] == '\t'))
    ++headerStart;
  const std::size_t contentEnd = part.size() - kLineBreak.size();
  const std::size_t blankLine = part.find(kBlankLine, headerStart);
  // The blank line must end no later than where the closing line break begins.
  if (blankLine == std::string_view::npos || blankLine + kBlankLine.size() > contentEnd) return;
  const std::size_t contentStart = blankLine + kBlankLine.size();

  const auto header =
      stringWithData(reinterpret_cast<const std::uint8_t*>(part.data() + headerStart),
                     contentStart - headerStart, NSUTF8StringEncoding);
  if (!header) return;
  const auto name = headerFieldNamed(*header, u"NAME", u'"', FieldNameMatch::kWholeName);
  const auto fileName = headerFieldNamed(*header, u"FILENAME", u'"', FieldNameMatch::kWholeName);
  if (name) {
    const auto* content = reinterpret_cast<const std::uint8_t*>(part.data() + contentStart);
    fields[*name] = Data(content, content + (contentEnd - contentStart));
  }
  if (fileName) fields[name.value_or(u"") + u"_filename"] = *fileName;
}

}  // namespace

std::optional<Dictionary> formDataUsingBoundary(const Data& data, std::u16string_view boundary) {
  const std::string delimiter = "--" + utf16ToUtf8(boundary);
  const std::string_view body(reinterpret_cast<const char*>(data.data()), data.size());
  if (body.size() <= delimiter.size() + kFinalDashes.size() || !body.ends_with(kFinalDashes)) {
    return std::nullopt;
  }
  const std::size_t scanEnd = body.size() - kFinalDashes.size();
  Dictionary fields;
  std::size_t position = 0;
  while (position < scanEnd) {
    const std::size_t found = body.find(delimiter, position);
    if (found == std::string_view::npos) break;
    readPart(body.substr(position, found - position), fields);
    position = found + delimiter.size();
    if (body.substr(position, kLineBreak.size()) == kLineBreak) position += kLineBreak.size();
  }
  return fields;
}

std::optional<std::u16string> stringUsingUTF8Encoding(const Data& data) {
  return stringUsingEncoding(data, NSUTF8StringEncoding);
}

std::optional<std::u16string> stringUsingEncoding(const Data& data, NSStringEncoding encoding) {
  return stringWithData(data.data(), data.size(), encoding);
}

}  // namespace ferncast
