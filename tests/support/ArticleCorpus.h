// The article pages of the shared corpus (../shared/corpus/articles/html/*.html.gz), inflated,
// in file-name order. Empty when the corpus is not there.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Classes/NSData+zlib.h"

namespace ferncast::test_support {

struct ArticlePage {
  std::string name;
  Data html;
};

inline std::vector<ArticlePage> articlePages() {
  namespace fs = std::filesystem;
  const fs::path folder = fs::path(FERNCAST_SHARED_DIR) / "corpus" / "articles" / "html";
  std::vector<ArticlePage> pages;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    if (entry.path().extension() != ".gz") continue;
    std::ifstream in(entry.path(), std::ios::binary);
    std::string packed((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ArticlePage page{entry.path().filename().string(), {}};
    if (setDataByInflatingBytes(page.html, packed.data(), packed.size()))
      pages.push_back(std::move(page));
  }
  std::sort(pages.begin(), pages.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
  return pages;
}

}  // namespace ferncast::test_support
