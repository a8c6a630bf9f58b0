#include "url/QueryParameters.h"

#include "markup/chartables/CharacterTables.h"
#include "url/NSString+URLUtilities.h"

namespace ferncast {
namespace {

// One pair of the query: [nameStart, nameEnd) "=" [valueStart, valueEnd).
struct Pair {
  std::size_t nameStart, nameEnd, valueStart, valueEnd;
};

// Calls `visit(pair)` for each pair from `start` on until it returns true.
template <typename Visit>
void scanPairs(std::u16string_view s, std::size_t start, Visit visit) {
  const std::uint8_t* alphaNum = alphaNumCharacterSetRep();
  std::size_t length = s.size();
  std::size_t i = start;
  for (;;) {
    while (i < length && !characterIsMember(alphaNum, s[i]))
      ++i;
    if (i >= length) return;
    std::size_t equals = s.find(u'=', i);
    if (equals == std::u16string_view::npos) return;
    std::size_t valueEnd = s.find_first_of(u"&;", equals + 1);
    if (valueEnd == std::u16string_view::npos) valueEnd = length;
    if (visit(Pair{i, equals, equals + 1, valueEnd})) return;
    i = valueEnd + 1;
  }
}

bool scans(std::u16string_view s, std::size_t start) {
  return !s.empty() && start < s.size();
}

bool scansFor(std::u16string_view s, std::u16string_view name, std::size_t start) {
  return scans(s, start) && !name.empty() && name.size() < s.size();
}

bool isNamed(std::u16string_view s, const Pair& pair, std::u16string_view name) {
  return s.substr(pair.nameStart, pair.nameEnd - pair.nameStart) == name;
}

}  // namespace

std::optional<std::u16string> queryParamNamed(std::u16string_view string, std::u16string_view name,
                                              std::size_t start,
                                              std::optional<std::u16string_view> replacement) {
  if (!scansFor(string, name, start)) {
    if (replacement) return std::u16string(string);
    return std::nullopt;
  }
  std::optional<Pair> found;
  scanPairs(string, start, [&](const Pair& pair) {
    if (pair.valueEnd > pair.valueStart && isNamed(string, pair, name)) found = pair;
    return found.has_value();
  });
  if (!replacement) {
    if (!found) return std::nullopt;
    return std::u16string(string.substr(found->valueStart, found->valueEnd - found->valueStart));
  }
  std::u16string result(string);
  if (found) result.replace(found->valueStart, found->valueEnd - found->valueStart, *replacement);
  return result;
}

bool containsQueryParamNamed(std::u16string_view string, std::u16string_view name,
                             std::size_t start) {
  if (!scansFor(string, name, start)) return false;
  bool found = false;
  scanPairs(string, start, [&](const Pair& pair) { return found = isNamed(string, pair, name); });
  return found;
}

std::optional<QueryParameters> queryParams(std::u16string_view string, std::size_t start) {
  if (!scans(string, start)) return std::nullopt;
  QueryParameters parameters;
  scanPairs(string, start, [&](const Pair& pair) {
    if (pair.valueEnd > pair.valueStart) {
      parameters.insert_or_assign(
          std::u16string(string.substr(pair.nameStart, pair.nameEnd - pair.nameStart)),
          std::u16string(string.substr(pair.valueStart, pair.valueEnd - pair.valueStart)));
    }
    return false;
  });
  return parameters;
}

std::size_t numberOfQueryParams(std::u16string_view string, std::size_t start) {
  if (!scans(string, start)) return 0;
  std::size_t count = 0;
  scanPairs(string, start, [&](const Pair&) {
    ++count;
    return false;
  });
  return count;
}

void appendParameter(std::u16string& urlString, std::u16string_view name,
                     std::u16string_view value) {
  if (name.empty() || value.empty()) return;
  urlString += urlString.find(u'?') == std::u16string::npos ? u'?' : u'&';
  urlString += name;
  urlString += u'=';
  urlString += stringByAddingPercentEscapesToURL(value, u"", u":/?&;@#");
}

}  // namespace ferncast
