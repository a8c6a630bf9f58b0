// Windows, DOS and Mac code pages as RTF names them (\ansicpg, \cpg, \fcharset, \mac, \pc),
// decoded through ICU converters.
//
// Single-byte code pages decode through a 256-entry table built once per process (thread-safely)
// and kept; multi-byte ones (932, 936, 949, 950) through a converter that each decoder opens for
// itself. A code page ICU cannot open decodes as Windows-1252.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace ferncast {

inline constexpr int kDefaultCodePage = 1252;

// The code page of an RTF font charset (\fcharsetN); `documentCodePage` for ANSI (0), default (1)
// and unknown charsets.
int codePageOfCharset(int charset, int documentCodePage);

// The table of a single-byte code page, or null when the code page has multi-byte characters.
const std::array<char16_t, 256>* singleByteTable(int codePage);

// Decodes bytes of one code page, keeping a multi-byte converter open between calls. Not
// thread-safe; one per reader.
class CodePageDecoder {
 public:
  CodePageDecoder();
  ~CodePageDecoder();
  CodePageDecoder(const CodePageDecoder&) = delete;
  CodePageDecoder& operator=(const CodePageDecoder&) = delete;

  // Appends the text of `bytes` in `codePage` to `out`; undecodable bytes become U+FFFD.
  void decode(int codePage, const std::uint8_t* bytes, std::size_t length, std::u16string& out);

 private:
  struct Converter;
  std::unique_ptr<Converter> converter_;
};

}  // namespace ferncast
