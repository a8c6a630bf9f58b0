// Entity decoding and encoding over whole real pages (shared/corpus/articles/html/*.html.gz,
// inflated at start and read as UTF-8). Bytes processed are the pages' UTF-8 bytes, so the figures
// compare directly with peers that work on the same files (bench/entities_peers.sh).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "bench/ArticlePages.h"
#include "markup/chartables/CharacterTables.h"
#include "markup/Entities.h"

namespace {

// The general decoder as callers use it: a new string per page.
void BM_DecodeEntities(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingEntitiesToCharacters(text));
  });
}
BENCHMARK(BM_DecodeEntities);

// The routine alone, into a buffer that is already there.
void BM_DecodeEntitiesIntoBuffer(benchmark::State& state) {
  std::vector<char16_t> buffer;
  ferncast::bench::overArticlePages(state, [&buffer](const std::u16string& text) {
    buffer.resize(text.size());
    benchmark::DoNotOptimize(ferncast::convertEntities2Characters(text.data(), buffer.data(), 0,
                                                                  text.size(), true, false, false));
  });
}
BENCHMARK(BM_DecodeEntitiesIntoBuffer);

void BM_DecodeEntitiesNonUmlauted(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(
        ferncast::stringByConvertingEntitiesToCharactersNonUmlauted(text, true));
  });
}
BENCHMARK(BM_DecodeEntitiesNonUmlauted);

void BM_DecodeStandardEntities(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingStandardEntitiesToCharacters(text));
  });
}
BENCHMARK(BM_DecodeStandardEntities);

void BM_EncodeEntities(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingCharactersToEntities(text));
  });
}
BENCHMARK(BM_EncodeEntities);

void BM_EncodeStandardEntities(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingCharactersToStandardEntities(text));
  });
}
BENCHMARK(BM_EncodeStandardEntities);

void BM_EscapeJson(benchmark::State& state) {
  ferncast::bench::overArticlePages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingCharactersToJSON(text));
  });
}
BENCHMARK(BM_EscapeJson);

}  // namespace

BENCHMARK_MAIN();
