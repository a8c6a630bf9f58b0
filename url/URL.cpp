#include "url/URL.h"

#include <curl/curl.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

struct CurlUrlFree {
  void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
using CurlUrl = std::unique_ptr<CURLU, CurlUrlFree>;

constexpr unsigned kParseFlags = CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS;

bool isAsciiLetter(char16_t c) {
  return (c | 0x20) >= u'a' && (c | 0x20) <= u'z';
}
bool isAsciiDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}
bool isHexDigit(char16_t c) {
  return isAsciiDigit(c) || ((c | 0x20) >= u'a' && (c | 0x20) <= u'f');
}
int hexValue(char c) {
  return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
}

// Printable ASCII without the characters that may never stand in a URL, and only well-formed
// percent escapes.
bool hasOnlyURLCharacters(std::u16string_view s) {
  for (std::size_t i = 0; i < s.size(); ++i) {
    char16_t c = s[i];
    if (c <= 0x20 || c >= 0x7F) return false;
    switch (c) {
      case u'"':
      case u'<':
      case u'>':
      case u'\\':
      case u'^':
      case u'`':
      case u'{':
      case u'|':
      case u'}':
        return false;
      case u'%':
        if (i + 2 >= s.size() || !isHexDigit(s[i + 1]) || !isHexDigit(s[i + 2])) return false;
        break;
      default:
        break;
    }
  }
  return true;
}

// The length of the scheme before its ":", or 0 when the string does not start with one.
std::size_t schemeLength(std::u16string_view s) {
  if (s.empty() || !isAsciiLetter(s[0])) return 0;
  for (std::size_t i = 1; i < s.size(); ++i) {
    char16_t c = s[i];
    if (c == u':') return i;
    if (!isAsciiLetter(c) && !isAsciiDigit(c) && c != u'+' && c != u'-' && c != u'.') return 0;
  }
  return 0;
}

bool equalsIgnoringAsciiCase(std::u16string_view a, std::u16string_view lower) {
  if (a.size() != lower.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char16_t c = a[i] >= u'A' && a[i] <= u'Z' ? static_cast<char16_t>(a[i] | 0x20) : a[i];
    if (c != lower[i]) return false;
  }
  return true;
}

std::string narrow(std::u16string_view ascii) {
  return std::string(ascii.begin(), ascii.end());
}
std::u16string widen(std::string_view ascii) {
  return std::u16string(ascii.begin(), ascii.end());
}

std::optional<std::string> getPart(CURLU* handle, CURLUPart part) {
  char* value = nullptr;
  if (curl_url_get(handle, part, &value, 0) != CURLUE_OK || !value) return std::nullopt;
  std::string result(value);
  curl_free(value);
  return result;
}

std::optional<std::u16string> widened(const std::optional<std::string>& part) {
  if (!part) return std::nullopt;
  return widen(*part);
}

}  // namespace

std::optional<URL> URL::parse(std::u16string_view original) {
  if (original.empty() || !hasOnlyURLCharacters(original)) return std::nullopt;
  URL url;
  url.absolute_ = original;
  std::size_t schemeEnd = schemeLength(original);
  std::u16string_view rest = original;
  if (schemeEnd) {
    url.scheme_ = std::u16string(original.substr(0, schemeEnd));
    rest = original.substr(schemeEnd + 1);
  }
  std::u16string_view authority;
  if (rest.starts_with(u"//")) {
    authority = rest.substr(2, rest.find_first_of(u"/?#", 2) - 2);
  }
  if (!authority.empty() || (url.scheme_ && equalsIgnoringAsciiCase(*url.scheme_, u"file"))) {
    // A scheme-less "//host/path" reference borrows a scheme for the parse.
    std::string text = schemeEnd ? narrow(original) : "http:" + narrow(original);
    CurlUrl handle(curl_url());
    if (!handle ||
        curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), kParseFlags) != CURLUE_OK)
      return std::nullopt;
    url.hasAuthority_ = schemeEnd != 0;
    url.user_ = widened(getPart(handle.get(), CURLUPART_USER));
    url.password_ = widened(getPart(handle.get(), CURLUPART_PASSWORD));
    url.host_ = widened(getPart(handle.get(), CURLUPART_HOST));
    if (url.host_ && url.host_->empty()) url.host_.reset();
    if (auto port = getPart(handle.get(), CURLUPART_PORT)) url.port_ = std::atoi(port->c_str());
    url.path_ = widened(getPart(handle.get(), CURLUPART_PATH));
    url.query_ = widened(getPart(handle.get(), CURLUPART_QUERY));
    url.fragment_ = widened(getPart(handle.get(), CURLUPART_FRAGMENT));
    return url;
  }
  // No authority (or an empty one): path, "?" query and "#" fragment.
  if (rest.starts_with(u"//")) rest.remove_prefix(2);
  std::size_t hash = rest.find(u'#');
  if (hash != std::u16string_view::npos) {
    url.fragment_ = std::u16string(rest.substr(hash + 1));
    rest = rest.substr(0, hash);
  }
  std::size_t question = rest.find(u'?');
  if (question != std::u16string_view::npos) {
    url.query_ = std::u16string(rest.substr(question + 1));
    rest = rest.substr(0, question);
  }
  url.path_ = std::u16string(rest);
  return url;
}

std::optional<URL> URL::URLWithString(std::u16string_view string) {
  return parse(string);
}

std::optional<URL> URL::URLWithNormalizedStringURL(std::u16string_view string) {
  return parse(string);
}

std::optional<URL> URL::URLWithString(std::u16string_view string, const URL& base) {
  if (!string.empty()) {
    std::optional<URL> reference = parse(string);
    if (!reference) return std::nullopt;
    if (reference->scheme_) return reference;
  }
  if (!base.hasAuthority_) return std::nullopt;
  // libcurl resolves all but the empty and the fragment-only reference as RFC 3986 asks.
  std::u16string_view withoutFragment =
      std::u16string_view(base.absolute_).substr(0, base.absolute_.find(u'#'));
  if (string.empty()) return parse(withoutFragment);
  if (string[0] == u'#') return parse(std::u16string(withoutFragment) + std::u16string(string));
  CurlUrl handle(curl_url());
  if (!handle ||
      curl_url_set(handle.get(), CURLUPART_URL, narrow(base.absolute_).c_str(),
                   CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK ||
      curl_url_set(handle.get(), CURLUPART_URL, narrow(string).c_str(), CURLU_NON_SUPPORT_SCHEME) !=
          CURLUE_OK)
    return std::nullopt;
  std::optional<std::string> resolved = getPart(handle.get(), CURLUPART_URL);
  if (!resolved) return std::nullopt;
  return parse(widen(*resolved));
}

std::optional<URL> URL::URLRelativeTo(const URL& base) const {
  return URLWithString(absolute_, base);
}

std::optional<URL> URL::fileURLWithPath(std::u16string_view path) {
  if (path.empty()) return std::nullopt;
  std::string bytes = utf16ToUtf8(path);
  if (bytes[0] != '/') {
    std::unique_ptr<char, decltype(&std::free)> cwd(getcwd(nullptr, 0), &std::free);
    if (!cwd) return std::nullopt;
    std::string directory(cwd.get());
    if (directory.empty() || directory.back() != '/') directory += '/';
    bytes.insert(0, directory);
  }
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::u16string text = u"file://";
  for (unsigned char c : bytes) {
    bool keep = (c < 0x80 && (isAsciiLetter(c) || isAsciiDigit(c))) ||
                std::u16string_view(u"-._~/!$&'()*+,;=:@").find(c) != std::u16string_view::npos;
    if (keep) {
      text += static_cast<char16_t>(c);
    } else {
      text += u'%';
      text += static_cast<char16_t>(kHex[c >> 4]);
      text += static_cast<char16_t>(kHex[c & 15]);
    }
  }
  return parse(text);
}

std::u16string URL::resourceSpecifier() const {
  return scheme_ ? absolute_.substr(scheme_->size() + 1) : absolute_;
}

bool URL::isFileURL() const {
  return scheme_ && equalsIgnoringAsciiCase(*scheme_, u"file");
}

std::optional<std::string> URL::filePath() const {
  if (!isFileURL() || !path_) return std::nullopt;
  std::string decoded;
  decoded.reserve(path_->size());
  for (std::size_t i = 0; i < path_->size(); ++i) {
    char c = static_cast<char>((*path_)[i]);
    if (c == '%' && i + 2 < path_->size() && isHexDigit((*path_)[i + 1]) &&
        isHexDigit((*path_)[i + 2])) {
      c = static_cast<char>(hexValue(static_cast<char>((*path_)[i + 1])) * 16 +
                            hexValue(static_cast<char>((*path_)[i + 2])));
      i += 2;
      if (c == '\0') return std::nullopt;
    }
    decoded += c;
  }
  return decoded;
}

}  // namespace ferncast
