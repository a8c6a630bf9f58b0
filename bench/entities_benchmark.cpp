// Entity decoding and encoding over whole real pages (shared/corpus/articles/html/*.html.gz,
// inflated at start and read as UTF-8). Bytes processed are the pages' UTF-8 bytes, so the figures
// compare directly with peers that work on the same files (bench/entities_peers.sh).
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "markup/CharacterTables.h"
#include "markup/Entities.h"

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
  while ((n = gzread(file, buffer, sizeof buffer)) > 0)
    bytes.append(buffer, static_cast<std::size_t>(n));
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

// The general decoder as callers use it: a new string per page.
void BM_DecodeEntities(benchmark::State& state) {
  overPages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingEntitiesToCharacters(text));
  });
}
BENCHMARK(BM_DecodeEntities);

// The routine alone, into a buffer that is already there.
void BM_DecodeEntitiesIntoBuffer(benchmark::State& state) {
  std::vector<char16_t> buffer;
  overPages(state, [&buffer](const std::u16string& text) {
    buffer.resize(text.size());
    benchmark::DoNotOptimize(ferncast::convertEntities2Characters(text.data(), buffer.data(), 0,
                                                                  text.size(), true, false, false));
  });
}
BENCHMARK(BM_DecodeEntitiesIntoBuffer);

void BM_DecodeEntitiesNonUmlauted(benchmark::State& state) {
  overPages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(
        ferncast::stringByConvertingEntitiesToCharactersNonUmlauted(text, true));
  });
}
BENCHMARK(BM_DecodeEntitiesNonUmlauted);

void BM_DecodeStandardEntities(benchmark::State& state) {
  overPages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingStandardEntitiesToCharacters(text));
  });
}
BENCHMARK(BM_DecodeStandardEntities);

void BM_EncodeEntities(benchmark::State& state) {
  overPages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingCharactersToEntities(text));
  });
}
BENCHMARK(BM_EncodeEntities);

void BM_EncodeStandardEntities(benchmark::State& state) {
  overPages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingCharactersToStandardEntities(text));
  });
}
BENCHMARK(BM_EncodeStandardEntities);

void BM_EscapeJson(benchmark::State& state) {
  overPages(state, [](const std::u16string& text) {
    benchmark::DoNotOptimize(ferncast::stringByConvertingCharactersToJSON(text));
  });
}
BENCHMARK(BM_EscapeJson);

}  // namespace

BENCHMARK_MAIN();
