// Throughput of the link query and of tag stripping over real pages (the article corpus), counted
// in bytes of the UTF-8 pages so that bench/html_queries_peers.sh can set it against peers that
// read the same bytes. The pages are decoded to UTF-16 once, before timing.
#include <benchmark/benchmark.h>
#include <dirent.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Classes/NSData+zlib.h"
#include "Classes/Unicode.h"
#include "markup/CharacterTables.h"
#include "webcontent/HtmlExtensions.h"

namespace {

using namespace ferncast;

struct Pages {
  std::vector<std::u16string> texts;
  std::size_t utf8Bytes = 0;
};

const Pages& pages() {
  static const Pages loaded = [] {
    Pages result;
    std::string directory = FERNCAST_SHARED_DIR "/corpus/articles/html";
    std::vector<std::string> names;
    if (DIR* dir = opendir(directory.c_str())) {
      while (dirent* entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name.ends_with(".html.gz")) names.push_back(name);
      }
      closedir(dir);
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
      std::ifstream file(directory + "/" + name, std::ios::binary);
      Data bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
      if (std::optional<Data> html = dataByInflatingData(bytes)) {
        result.utf8Bytes += html->size();
        result.texts.push_back(
            utf8ToUtf16({reinterpret_cast<const char*>(html->data()), html->size()}));
      }
    }
    initCharacterTables();
    return result;
  }();
  return loaded;
}

template <typename Query>
void run(benchmark::State& state, Query query) {
  const Pages& corpus = pages();
  if (corpus.texts.empty()) {
    state.SkipWithError("no corpus under " FERNCAST_SHARED_DIR "/corpus/articles/html");
    return;
  }
  for (auto _ : state) {
    for (const std::u16string& page : corpus.texts)
      benchmark::DoNotOptimize(query(page));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * corpus.utf8Bytes));
  state.counters["pages"] = static_cast<double>(corpus.texts.size());
}

void BM_htmlLinksBaseURL(benchmark::State& state) {
  run(state, [](const std::u16string& page) {
    std::optional<URL> base;
    return htmlLinksBaseURL(page, &base).size();
  });
}
BENCHMARK(BM_htmlLinksBaseURL)->Unit(benchmark::kMillisecond);

void BM_stripTags(benchmark::State& state) {
  run(state, [](const std::u16string& page) { return stripTags(page).size(); });
}
BENCHMARK(BM_stripTags)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
