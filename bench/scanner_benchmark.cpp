// The tag scanner over whole real pages (shared/corpus/articles/html/*.html.gz, inflated at start
// and read as UTF-8), with a handler that does nothing, next to the physical bound: a bare search
// for every "<" over the same UTF-16 buffers. Bytes processed are the pages' UTF-8 bytes, so the
// figures compare directly with peers that read the same files (bench/scanner_peers.sh).
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "markup/CharacterTables.h"
#include "markup/CodeUnitSearch.h"
#include "markup/XmlExtensions.h"

namespace {

struct Page {
  std::u16string text;
  std::size_t utf8Bytes;
};

std::string inflateFile(const std::filesystem::path& path) {
  std::string bytes;
  gzFile file = gzopen(path.c_str(), "rb");
  if (!file) return bytes;
  char buffer[65536];
  int n;
  while ((n = gzread(file, buffer, sizeof buffer)) > 0) {
    bytes.append(buffer, static_cast<std::size_t>(n));
  }
  gzclose(file);
  return bytes;
}

const std::vector<Page>& pages() {
  static const std::vector<Page> all = [] {
    std::vector<Page> result;
    const std::filesystem::path folder = FERNCAST_SHARED_DIR "/corpus/articles/html";
    std::error_code error;
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
      if (entry.path().string().ends_with(".html.gz")) paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    for (const auto& path : paths) {
      std::string bytes = inflateFile(path);
      result.push_back({ferncast::utf8ToUtf16(bytes), bytes.size()});
    }
    return result;
  }();
  return all;
}

// Runs `work` over every page per iteration; skips when the corpus is absent.
template <typename Work>
void overPages(benchmark::State& state, Work work) {
  const std::vector<Page>& all = pages();
  if (all.empty()) {
    state.SkipWithError("no corpus at " FERNCAST_SHARED_DIR "/corpus/articles/html");
    return;
  }
  ferncast::initCharacterTables();
  std::size_t bytes = 0;
  for (const Page& page : all)
    bytes += page.utf8Bytes;
  for (auto _ : state) {
    for (const Page& page : all)
      work(page.text);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  state.counters["pages"] = static_cast<double>(all.size());
}

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
  overPages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::GetTagsOfString(text, NothingHandler, nullptr, false));
  });
}
BENCHMARK(BM_ScanTags);

// The same on the scanner's private copy, as editing handlers have it.
void BM_ScanTagsMutable(benchmark::State& state) {
  overPages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::GetTagsOfString(text, NothingHandler, nullptr, true));
  });
}
BENCHMARK(BM_ScanTagsMutable);

// Counting the calls, to report constructs per page.
void BM_ScanTagsCounting(benchmark::State& state) {
  std::size_t calls = 0;
  overPages(state, [&calls](const std::u16string& text) {
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
  overPages(state, [](const std::u16string& text) {
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
