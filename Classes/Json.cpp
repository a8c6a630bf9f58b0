#include "Classes/Json.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

void appendEscaped(std::string& out, std::string_view utf8) {
  static const char kHex[] = "0123456789abcdef";
  out += '"';
  for (char c : utf8) {
    auto u = static_cast<unsigned char>(c);
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      default:
        if (u < 0x20) {
          out += "\\u00";
          out += kHex[u >> 4];
          out += kHex[u & 15];
        } else {
          out += c;
        }
    }
  }
  out += '"';
}

template <typename Real>
void appendReal(std::string& out, Real real) {
  if (!std::isfinite(real)) {
    out += "null";
    return;
  }
  char buffer[64];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, real);
  out.append(buffer, result.ptr);
}

void append(std::string& out, const Value& value) {
  struct Visitor {
    std::string& out;
    void operator()(const Null&) { out += "null"; }
    void operator()(bool b) { out += b ? "true" : "false"; }
    void operator()(std::int64_t i) { out += std::to_string(i); }
    void operator()(float f) { appendReal(out, f); }
    void operator()(double d) { appendReal(out, d); }
    void operator()(const std::u16string& s) { appendEscaped(out, utf16ToUtf8(s)); }
    void operator()(const Data& d) {
      out += "{\"data\":\"";
      out += base64(d.data(), d.size());
      out += "\"}";
    }
    void operator()(const Date& d) {
      out += "{\"date\":\"";
      out += iso8601(d);
      out += "\"}";
    }
    void operator()(const Array& a) {
      out += '[';
      for (std::size_t i = 0; i < a.size(); ++i) {
        if (i) out += ',';
        append(out, a[i]);
      }
      out += ']';
    }
    void operator()(const Dictionary& d) {
      out += '{';
      bool first = true;
      for (const auto& [key, item] : d) {
        if (!first) out += ',';
        first = false;
        appendEscaped(out, utf16ToUtf8(key));
        out += ':';
        append(out, item);
      }
      out += '}';
    }
  };
  std::visit(Visitor{out}, value.storage());
}

}  // namespace

std::string toJson(const Value& value) {
  std::string out;
  append(out, value);
  return out;
}

std::string jsonString(std::u16string_view text) {
  return jsonString(utf16ToUtf8(text));
}

std::string jsonString(std::string_view utf8) {
  std::string out;
  appendEscaped(out, utf8);
  return out;
}

std::string base64(const std::uint8_t* bytes, std::size_t length) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((length + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= length; i += 3) {
    std::uint32_t n = bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2];
    out += kAlphabet[n >> 18];
    out += kAlphabet[(n >> 12) & 63];
    out += kAlphabet[(n >> 6) & 63];
    out += kAlphabet[n & 63];
  }
  if (std::size_t rest = length - i) {
    std::uint32_t n = bytes[i] << 16 | (rest == 2 ? bytes[i + 1] << 8 : 0);
    out += kAlphabet[n >> 18];
    out += kAlphabet[(n >> 12) & 63];
    out += rest == 2 ? kAlphabet[(n >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

std::string iso8601(const Date& date) {
  double whole = std::floor(date.secondsSince1970);
  auto millis = static_cast<int>(std::lround((date.secondsSince1970 - whole) * 1000));
  if (millis == 1000) whole += 1, millis = 0;
  std::time_t seconds = static_cast<std::time_t>(whole);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char buffer[48];
  std::size_t n = std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S", &parts);
  std::string out(buffer, n);
  if (millis) {
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03d", millis);
    out += fraction;
  }
  out += 'Z';
  return out;
}

}  // namespace ferncast
