// Throughput of the link query and of tag stripping over real pages (the article corpus), counted
// in bytes of the UTF-8 pages so that bench/html_queries_peers.sh can set it against peers that
// read the same bytes. The pages are decoded to UTF-16 once, before timing.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Classes/NSData+zlib.h"
#include "Classes/Unicode.h"
#include "bench/ArticlePages.h"
#include "markup/chartables/CharacterTables.h"
#include "webcontent/HtmlExtensions.h"

namespace {

using namespace ferncast;

template <typename Query>
void run(benchmark::State& state, Query query) {
  bench::overArticlePages(
      state, [&](const std::u16string& page) { benchmark::DoNotOptimize(query(page)); });
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
