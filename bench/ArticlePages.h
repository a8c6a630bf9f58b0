// The article corpus as benchmark input: runs work over every page per iteration and reports
// throughput in the pages' UTF-8 bytes, so that figures compare with peers reading the same files.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "markup/chartables/CharacterTables.h"
#include "tests/Corpus.h"

namespace ferncast::bench {

// Calls `work(const std::u16string&)` on every article page per iteration; skips when the corpus
// is absent.
template <typename Work>
void overArticlePages(benchmark::State& state, Work work) {
  const corpus::Texts& pages = corpus::articleTexts();
  if (pages.texts.empty()) {
    state.SkipWithError("no article corpus under " FERNCAST_SHARED_DIR);
    return;
  }
  initCharacterTables();
  for (auto _ : state) {
    for (const std::u16string& page : pages.texts)
      work(page);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * pages.utf8Bytes));
  state.counters["pages"] = static_cast<double>(pages.texts.size());
}

}  // namespace ferncast::bench
