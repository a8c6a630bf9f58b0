// The tag scanner over whole real pages (shared/corpus/articles/html/*.html.gz, inflated at start
// and read as UTF-8), with a handler that does nothing, next to the physical bound: a bare search
// for every "<" over the same UTF-16 buffers. Bytes processed are the pages' UTF-8 bytes, so the
// figures compare directly with peers that read the same files (bench/scanner_peers.sh).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "bench/ArticlePages.h"
#include "markup/chartables/CharacterTables.h"
#include "markup/CodeUnitSearch.h"
#include "markup/XmlExtensions.h"

namespace {

bool NothingHandler(std::u16string_view, char16_t*, std::size_t, std::size_t, std::size_t,
                    std::size_t, std::size_t, ferncast::TagKind, void*) {
  return false;
}

bool CountingHandler(std::u16string_view, char16_t*, std::size_t, std::size_t, std::size_t,
                     std::size_t, std::size_t, ferncast::TagKind, void* context) {
  ++*static_cast<std::size_t*>(context);
  return false;
}

// The scan as read-only callers run it: the page's own storage, a handler that does nothing.
void BM_ScanTags(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::GetTagsOfString(text, NothingHandler, nullptr, false));
  });
}
BENCHMARK(BM_ScanTags);

// The same on the scanner's private copy, as editing handlers have it.
void BM_ScanTagsMutable(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::GetTagsOfString(text, NothingHandler, nullptr, true));
  });
}
BENCHMARK(BM_ScanTagsMutable);

// Counting the calls, to report constructs per page.
void BM_ScanTagsCounting(benchmark::State& state) {
  std::size_t calls = 0;
  ferncast::bench::overArticlePages(state, [&calls](const std::u16string& text) {
    ferncast::GetTagsOfString(text, CountingHandler, &calls, false);
  });
  if (state.iterations() > 0) {
    state.counters["calls/pass"] =
        static_cast<double>(calls) / static_cast<double>(state.iterations());
  }
}
BENCHMARK(BM_ScanTagsCounting);

// The physical bound: every "<" found by the same vectorised unit search, nothing else.
void BM_FindEveryLessThan(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    std::size_t count = 0;
    const char16_t* end = text.data() + text.size();
    for (const char16_t* p = text.data(); (p = ferncast::findCodeUnit(p, end, u'<')) != end; ++p) {
      ++count;
    }
    benchmark::DoNotOptimize(count);
  });
}
BENCHMARK(BM_FindEveryLessThan);

}  // namespace

BENCHMARK_MAIN();
