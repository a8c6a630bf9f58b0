// HTML to plain text over whole real pages (shared/corpus/articles/html/*.html.gz, inflated at
// start and read as UTF-8), each variant next to the bare tag scan it rests on, and the searchable
// text of a framed web archive (shared/corpus/webarchive/psxdatacenter.webarchive, read from its
// bytes). Bytes processed are the pages' UTF-8 bytes (the archive's file bytes), so the figures
// compare with bench/html2text_peers.sh.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "bench/ArticlePages.h"
#include "markup/chartables/CharacterTables.h"
#include "markup/Html2Text.h"
#include "markup/WebArchive+SearchableText.h"
#include "markup/WebArchive.h"
#include "markup/XmlExtensions.h"

namespace {

bool NothingHandler(std::u16string_view, char16_t*, std::size_t, std::size_t, std::size_t,
                    std::size_t, std::size_t, ferncast::TagKind, void*) {
  return false;
}

// The bound: the scan alone, with a handler that does nothing.
void BM_ScanOnly(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::GetTagsOfString(text, NothingHandler, nullptr, false));
  });
}
BENCHMARK(BM_ScanOnly);

void BM_PlainText(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingHtml2PlainText(text));
  });
}
BENCHMARK(BM_PlainText);

void BM_ReformattedPlainText(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingHtml2ReformattedPlainText(text));
  });
}
BENCHMARK(BM_ReformattedPlainText);

void BM_PlainTextRemovingJunk(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    bool junk = false;
    benchmark::DoNotOptimize(ferncast::stringByConvertingHtml2PlainTextNonUmlauted(
        text, false, false, true, true, &junk, true, true));
  });
}
BENCHMARK(BM_PlainTextRemovingJunk);

void BM_SimplifiedPlainText(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingHtml2SimplifiedPlainText(text));
  });
}
BENCHMARK(BM_SimplifiedPlainText);

// Reading the archive, decoding its five pages and converting them.
void BM_WebArchiveSearchableText(benchmark::State& state) {
  std::ifstream in(FERNCAST_SHARED_DIR "/corpus/webarchive/psxdatacenter.webarchive",
                   std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (bytes.empty()) {
    state.SkipWithError("no corpus at " FERNCAST_SHARED_DIR "/corpus/webarchive");
    return;
  }
  ferncast::initCharacterTables();
  for (auto _ : state) {
    auto archive = ferncast::WebArchive::fromData(
        reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    benchmark::DoNotOptimize(ferncast::searchableText(*archive));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_WebArchiveSearchableText);

}  // namespace

BENCHMARK_MAIN();
