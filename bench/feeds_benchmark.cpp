// Throughput of feed item collection, feed pages, date reading and article decisions, counted in
// bytes of the UTF-8 input so that bench/feeds_peers.sh can set it against peers reading the same
// bytes. Feeds come from the folder named by FERNCAST_BENCH_FEEDS (all *.xml below it), else from
// the shared feed corpus; articles from the shared article corpus. Inputs are decoded to UTF-16
// once, before timing.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Classes/Json.h"
#include "Classes/NSData+zlib.h"
#include "Classes/Unicode.h"
#include "markup/chartables/CharacterTables.h"
#include "tests/Corpus.h"
#include "webcontent/Feed2Html.h"
#include "webcontent/FeedDate.h"
#include "webcontent/FeedExtensions.h"
#include "webcontent/Reader.h"

namespace {

using namespace ferncast;
namespace fs = std::filesystem;

using corpus::Texts;

const Texts& feeds() {
  static const Texts loaded = [] {
    // FERNCAST_BENCH_FEEDS names another folder of feeds (*.xml, searched recursively).
    const char* folder = std::getenv("FERNCAST_BENCH_FEEDS");
    Texts result = folder ? corpus::textsOf(corpus::files(fs::absolute(folder).string(), ".xml"))
                          : corpus::textsOf(corpus::files("feeds", ".xml"));
    initCharacterTables();
    setDateTimeFormatter([](const Date& d) { return utf8ToUtf16(iso8601(d)); });
    return result;
  }();
  return loaded;
}

const Texts& articles() {
  initCharacterTables();
  return corpus::articleTexts();
}

// Runs `work` over every text once per iteration; `work` answers a count to report.
template <typename Work>
void over(benchmark::State& state, const Texts& input, const char* counter, Work work) {
  if (input.texts.empty()) {
    state.SkipWithError("no input texts");
    return;
  }
  std::size_t count = 0;
  for (auto _ : state) {
    count = 0;
    for (const std::u16string& text : input.texts)
      count += work(text);
    benchmark::DoNotOptimize(count);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * input.utf8Bytes));
  state.counters[counter] = static_cast<double>(count);
  state.counters["inputs"] = static_cast<double>(input.texts.size());
}

void BM_getItemsOfFeed(benchmark::State& state) {
  over(state, feeds(), "items",
       [](const std::u16string& feed) { return getItemsOfFeed(feed).size(); });
}
BENCHMARK(BM_getItemsOfFeed);

void BM_feedsWithItems(benchmark::State& state) {
  over(state, feeds(), "feedsWithItems",
       [](const std::u16string& feed) { return std::size_t{!getItemsOfFeed(feed).empty()}; });
}
BENCHMARK(BM_feedsWithItems);

void BM_feedDisplayPage(benchmark::State& state) {
  over(state, feeds(), "pageUnits", [](const std::u16string& feed) {
    return stringByConvertingFeedToDisplayHTMLUsingLinkedStyleSheet(feed, true).size();
  });
}
BENCHMARK(BM_feedDisplayPage);

void BM_date(benchmark::State& state) {
  static const Texts dates = [] {
    Texts result;
    for (const char16_t* text :
         {u"Thu, 01 Jan 2004 19:48:21 GMT", u"Mon, 3 Jan 2005 12:00:00 +0000",
          u"2003-12-31T10:14:55.118-08:00", u"2003-12-31T10:14:55Z", u"Sun Nov  6 08:49:37 1994",
          u"Wed, 02 Oct 2002 08:00:00 EST", u"2002-10-17T17:00+01:00", u"not a date"}) {
      result.texts.emplace_back(text);
      result.utf8Bytes += result.texts.back().size();
    }
    return result;
  }();
  over(state, dates, "read",
       [](const std::u16string& text) { return std::size_t{date(text).has_value()}; });
}
BENCHMARK(BM_date);

void BM_possibleArticle(benchmark::State& state) {
  over(state, articles(), "accepted",
       [](const std::u16string& html) { return std::size_t{possibleArticle(html)}; });
}
BENCHMARK(BM_possibleArticle);

void BM_stripToArticle(benchmark::State& state) {
  over(state, articles(), "stripped",
       [](const std::u16string& html) { return std::size_t{stripToArticle(html).has_value()}; });
}
BENCHMARK(BM_stripToArticle);

}  // namespace

BENCHMARK_MAIN();
