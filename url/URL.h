// URL: our stand-in for NSURL. A parsed, immutable URL value built on libcurl's URL API.
//
// A URL keeps the string it was made from (`absoluteString`) and its components as written; no
// component is percent-decoded (except `filePath`). Parsing:
//   - The string must be printable ASCII: no space, no control or non-ASCII character, none of
//     " < > \ ^ ` { | }, and every "%" followed by two hexadecimal digits. Anything else is not a
//     URL (nullopt): escape such characters first (see NSString+URLUtilities.h and
//     NSString+URLNormalization.h).
//   - A scheme is a letter followed by letters, digits, "+", "-" or "." and a ":". Without one
//     the string is a relative reference.
//   - "scheme://authority..." (a non-empty authority) and every "file:" URL are parsed by libcurl,
//     which checks host and port; what it rejects is not a URL.
//   - Everything else ("mailto:a@b.c", "feed:http://x/", "javascript:f()", "http:path",
//     "http:///path", relative paths) is split into path, query and fragment without a host.
//
// URLs are values: copy freely, any thread. Nothing here throws on bad input.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ferncast {

class URL {
 public:
  // NSURL URLWithString: -- nullopt when the string is not a URL (rules above).
  static std::optional<URL> URLWithString(std::u16string_view string);
  // URLWithString:relativeToURL: followed by absoluteURL: `string` resolved against `base` by the
  // rules of RFC 3986. A string with a scheme stands for itself. nullopt when `string` is not a
  // URL, or when it is relative and `base` has no authority (a "mailto:" base, say).
  static std::optional<URL> URLWithString(std::u16string_view string, const URL& base);
  // URLWithNormalizedStringURL: a URL from a string that is already normalised (escaped, trimmed);
  // the same parse as URLWithString, nullopt when the string is not a valid URL.
  static std::optional<URL> URLWithNormalizedStringURL(std::u16string_view string);
  // fileURLWithPath: "file://" and the percent-escaped path; a relative path is taken relative to
  // the current directory. nullopt for an empty path or when the current directory is unknown.
  static std::optional<URL> fileURLWithPath(std::u16string_view path);

  // URLRelativeTo: this URL, when relative, resolved against `base` (as URLWithString above).
  std::optional<URL> URLRelativeTo(const URL& base) const;

  const std::u16string& absoluteString() const { return absolute_; }
  // Components as written, without their delimiters; nullopt when the URL has none. An empty
  // host counts as none.
  const std::optional<std::u16string>& scheme() const { return scheme_; }
  const std::optional<std::u16string>& user() const { return user_; }
  const std::optional<std::u16string>& password() const { return password_; }
  const std::optional<std::u16string>& host() const { return host_; }
  const std::optional<int>& port() const { return port_; }
  const std::optional<std::u16string>& path() const { return path_; }
  const std::optional<std::u16string>& query() const { return query_; }
  const std::optional<std::u16string>& fragment() const { return fragment_; }
  // Everything after "scheme:" (the whole string for a relative reference).
  std::u16string resourceSpecifier() const;

  // The scheme is "file" (any case).
  bool isFileURL() const;
  // The local path of a file URL as UTF-8 bytes, percent-escapes decoded; nullopt for other URLs
  // and for paths that decode to a NUL byte.
  std::optional<std::string> filePath() const;

  bool operator==(const URL& other) const { return absolute_ == other.absolute_; }

 private:
  URL() = default;
  // Parses `ascii` (already checked to be printable ASCII) as written in `original`.
  static std::optional<URL> parse(std::u16string_view original);

  std::u16string absolute_;
  std::optional<std::u16string> scheme_, user_, password_, host_, path_, query_, fragment_;
  std::optional<int> port_;
  bool hasAuthority_ = false;  // parsed by libcurl: resolvable as a base
};

}  // namespace ferncast
