#include "Classes/NSString+Paths.h"

namespace ferncast {
namespace {

// The path without trailing slashes; a path made only of slashes keeps one.
std::u16string_view withoutTrailingSlashes(std::u16string_view path) {
  while (path.size() > 1 && path.back() == u'/')
    path.remove_suffix(1);
  return path;
}

// The position of the extension's dot in the trimmed path, or npos.
std::size_t extensionDot(std::u16string_view trimmed) {
  const std::size_t slash = trimmed.rfind(u'/');
  const std::size_t start = slash == std::u16string_view::npos ? 0 : slash + 1;
  const std::size_t dot = trimmed.rfind(u'.');
  if (dot == std::u16string_view::npos || dot <= start || dot + 1 == trimmed.size())
    return std::u16string_view::npos;
  return dot;
}

}  // namespace

std::u16string_view lastPathComponent(std::u16string_view path) {
  const std::u16string_view trimmed = withoutTrailingSlashes(path);
  if (trimmed == u"/") return trimmed;
  const std::size_t slash = trimmed.rfind(u'/');
  return slash == std::u16string_view::npos ? trimmed : trimmed.substr(slash + 1);
}

std::u16string_view pathExtension(std::u16string_view path) {
  const std::u16string_view trimmed = withoutTrailingSlashes(path);
  const std::size_t dot = extensionDot(trimmed);
  return dot == std::u16string_view::npos ? std::u16string_view() : trimmed.substr(dot + 1);
}

std::u16string stringByDeletingPathExtension(std::u16string_view path) {
  const std::u16string_view trimmed = withoutTrailingSlashes(path);
  const std::size_t dot = extensionDot(trimmed);
  return std::u16string(dot == std::u16string_view::npos ? path : trimmed.substr(0, dot));
}

std::u16string stringByAppendingPathComponent(std::u16string_view path,
                                              std::u16string_view component) {
  while (!component.empty() && component.front() == u'/')
    component.remove_prefix(1);
  std::u16string joined(withoutTrailingSlashes(path));
  if (!joined.empty() && joined.back() != u'/') joined += u'/';
  joined += component;
  return joined;
}

std::u16string stringByAppendingPathExtension(std::u16string_view path,
                                              std::u16string_view extension) {
  std::u16string joined(withoutTrailingSlashes(path));
  joined += u'.';
  joined += extension;
  return joined;
}

}  // namespace ferncast
