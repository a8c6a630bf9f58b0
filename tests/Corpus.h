// The shared corpus of real files (FERNCAST_SHARED_DIR/corpus), read by tests and benchmarks.
// It may be absent: every function then answers empty, and callers skip. Gzip files are inflated
// with zlib's own gzip reader, so that our inflater can be checked against it.
#pragma once

#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/Unicode.h"

namespace ferncast::corpus {

// The folder `relative` inside the shared corpus ("articles/html", "feeds/wellformed", ...); an
// absolute path is taken as it is.
inline std::filesystem::path folder(std::string_view relative = "") {
  return std::filesystem::path(FERNCAST_SHARED_DIR) / "corpus" / relative;
}

inline bool present(std::string_view relative) {
  return std::filesystem::is_directory(folder(relative));
}

inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The bytes of a gzip file read with zlib's gzip reader; nil when it cannot be read whole.
inline std::optional<std::string> gunzipFile(const std::filesystem::path& path) {
  gzFile file = gzopen(path.c_str(), "rb");
  if (!file) return std::nullopt;
  std::string bytes;
  char buffer[65536];
  int n;
  while ((n = gzread(file, buffer, sizeof buffer)) > 0)
    bytes.append(buffer, static_cast<std::size_t>(n));
  gzclose(file);
  if (n < 0) return std::nullopt;
  return bytes;
}

struct File {
  std::filesystem::path path;
  std::string bytes;  // inflated when the name ends with ".gz"
};

// Every file below `relative` (searched recursively) whose name ends with `suffix`, sorted by
// path. Files whose names end with ".gz" come inflated.
inline std::vector<File> files(std::string_view relative, std::string_view suffix) {
  std::vector<std::filesystem::path> paths;
  std::error_code error;
  for (auto it = std::filesystem::recursive_directory_iterator(folder(relative), error);
       !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
    if (it->is_regular_file() && it->path().string().ends_with(suffix)) paths.push_back(it->path());
  }
  std::sort(paths.begin(), paths.end());
  std::vector<File> result;
  for (const std::filesystem::path& path : paths) {
    if (path.extension() == ".gz") {
      if (std::optional<std::string> bytes = gunzipFile(path))
        result.push_back({path, std::move(*bytes)});
    } else {
      result.push_back({path, readFile(path)});
    }
  }
  return result;
}

// The inflated pages of the article corpus (articles/html/*.html.gz), read once.
inline const std::vector<File>& articlePages() {
  static const std::vector<File> pages = files("articles/html", ".html.gz");
  return pages;
}

// Texts read as UTF-8 into UTF-16, with the count of their UTF-8 bytes (for throughput figures
// that compare with peers reading the same files).
struct Texts {
  std::vector<std::u16string> texts;
  std::size_t utf8Bytes = 0;
};

inline Texts textsOf(const std::vector<File>& files) {
  Texts result;
  for (const File& file : files) {
    result.texts.push_back(utf8ToUtf16(file.bytes));
    result.utf8Bytes += file.bytes.size();
  }
  return result;
}

// The article pages as UTF-16 texts, read once.
inline const Texts& articleTexts() {
  static const Texts texts = textsOf(articlePages());
  return texts;
}

}  // namespace ferncast::corpus
