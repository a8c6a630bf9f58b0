#include "Classes/Unicode.h"

#include <cstdint>
#include <cstdio>

namespace ferncast {

std::u16string utf8ToUtf16(std::string_view utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
  const auto* end = p + utf8.size();
  while (p < end) {
    unsigned char lead = *p;
    if (lead < 0x80) {
      out.push_back(lead);
      ++p;
      continue;
    }
    // Length and the allowed range of the second byte (which excludes overlong forms,
    // surrogates and values above U+10FFFF), as in the Unicode standard's table 3-7.
    int length = 0;
    unsigned char low = 0x80, high = 0xBF;
    std::uint32_t code = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2, code = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3, code = lead & 0x0F;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4, code = lead & 0x07;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    } else {
      out.push_back(0xFFFD);
      ++p;
      continue;
    }
    int taken = 1;
    bool valid = true;
    for (; taken < length; ++taken) {
      if (p + taken >= end) {
        valid = false;
        break;
      }
      unsigned char next = p[taken];
      unsigned char lo = taken == 1 ? low : 0x80, hi = taken == 1 ? high : 0xBF;
      if (next < lo || next > hi) {
        valid = false;
        break;
      }
      code = (code << 6) | (next & 0x3F);
    }
    p += taken;
    if (!valid) {
      out.push_back(0xFFFD);
    } else if (code >= 0x10000) {
      code -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(code));
    }
  }
  return out;
}

std::string utf16ToUtf8(std::u16string_view utf16) {
  std::string out;
  out.reserve(utf16.size() + utf16.size() / 2);
  for (std::size_t i = 0; i < utf16.size(); ++i) {
    std::uint32_t code = utf16[i];
    if (code < 0x80) {
      out.push_back(static_cast<char>(code));
      continue;
    }
    if (code >= 0xD800 && code <= 0xDFFF) {
      bool paired = code <= 0xDBFF && i + 1 < utf16.size() && utf16[i + 1] >= 0xDC00 &&
                    utf16[i + 1] <= 0xDFFF;
      if (paired) {
        code = 0x10000 + ((code - 0xD800) << 10) + (utf16[++i] - 0xDC00);
      } else {
        code = 0xFFFD;
      }
    }
    if (code < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (code >> 6)));
    } else if (code < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (code >> 12)));
      out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (code >> 18)));
      out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    }
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  }
  return out;
}

std::u16string sizeString(double width, double height) {
  char buffer[96];
  std::snprintf(buffer, sizeof buffer, "{%.17g, %.17g}", width, height);
  return utf8ToUtf16(buffer);
}

}  // namespace ferncast
