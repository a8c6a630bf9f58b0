// Markup input of the feed, article and error-page commands: the bytes of FILE (or standard input
// for "-") as text. A UTF-32 or UTF-16 byte-order mark decides the encoding; other bytes go through
// the markup decoder (the declared charset, UTF-8 by default). Exit(kUsage) when the input cannot
// be read or decoded.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "markup/MarkupDecoding.h"
#include "tools/ferncast_cli.h"

namespace ferncast::cli {

inline std::u16string readMarkupInput(const std::string& path) {
  const std::string bytes = readInput(path);
  const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const std::string_view head(bytes.data(), std::min<std::size_t>(bytes.size(), 4));
  struct Mark {
    std::string_view bytes;
    NSStringEncoding encoding;
  };
  static constexpr Mark kMarks[] = {
      {std::string_view("\xFF\xFE\0\0", 4), NSUTF32LittleEndianStringEncoding},
      {std::string_view("\0\0\xFE\xFF", 4), NSUTF32BigEndianStringEncoding},
      {"\xFF\xFE", NSUTF16LittleEndianStringEncoding},
      {"\xFE\xFF", NSUTF16BigEndianStringEncoding},
  };
  std::optional<std::u16string> text;
  bool marked = false;
  for (const Mark& mark : kMarks) {
    if (head.starts_with(mark.bytes)) {
      marked = true;
      text =
          initWithData(data + mark.bytes.size(), bytes.size() - mark.bytes.size(), mark.encoding);
      break;
    }
  }
  if (!marked) {
    text = stringWithMarkupData(std::span<const std::uint8_t>(data, bytes.size()),
                                NSUTF8StringEncoding);
  }
  if (!text) {
    finish(kUsage, (path.empty() || path == "-" ? std::string("standard input") : path) +
                       ": cannot be decoded");
  }
  return std::move(*text);
}

}  // namespace ferncast::cli
