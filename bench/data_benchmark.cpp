// Deflate, gzip and inflate through our API against zlib called directly on the same buffers.
// Input: the article corpus pages (decompressed at start-up), or generated text when the shared
// corpus is absent. Bytes processed are uncompressed bytes; the goal is "Ours" within 5 % of
// "Zlib" for each pair.
//
// The "Zlib" inflaters are given the inflated size, which our API does not know: one call with
// Z_FINISH into a buffer of that size. "ZlibStream16K" inflates into the same pre-sized buffer
// but in 16384-byte steps, as our API does, which makes zlib keep its window and shows what the
// steps themselves cost.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "Classes/NSData+zlib.h"
#include "tests/Corpus.h"

namespace {

using ferncast::Data;

struct Page {
  Data plain;
  Data zlib;  // zlib framing, default level
  Data gzip;  // gzip framing, default level
};

// Made with zlib directly, so that both inflaters read the same bytes.
Data compress(const Data& input, int windowBits) {
  z_stream stream{};
  deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
  Data out(deflateBound(&stream, input.size()) + 32);
  stream.next_in = const_cast<Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

std::vector<Data> corpusPages() {
  std::vector<Data> pages;
  for (const ferncast::corpus::File& page : ferncast::corpus::articlePages())
    pages.emplace_back(page.bytes.begin(), page.bytes.end());
  return pages;
}

// Markup-like text of typical page sizes, for machines without the corpus.
std::vector<Data> generatedPages() {
  static const char* kWords[] = {"<p>",  "</p>\n",          "the",  "article", "reads",
                                 "news", "<a href=\"/x\">", "</a>", "and",     "pages",
                                 "with", "links,"};
  std::mt19937 random(3);
  std::vector<Data> pages;
  for (int i = 0; i < 60; ++i) {
    Data page;
    const std::size_t size = 20000 + random() % 300000;
    while (page.size() < size) {
      const std::string word = std::string(kWords[random() % std::size(kWords)]) + " ";
      page.insert(page.end(), word.begin(), word.end());
    }
    pages.push_back(std::move(page));
  }
  return pages;
}

const std::vector<Page>& pages() {
  static const std::vector<Page> all = [] {
    std::vector<Data> plain = corpusPages();
    std::fprintf(
        stderr, "data_benchmark: %s\n",
        plain.empty() ? "shared corpus absent, using generated pages" : "article corpus pages");
    if (plain.empty()) plain = generatedPages();
    std::vector<Page> result;
    for (Data& page : plain) {
      Data zlib = compress(page, 15);
      Data gzip = compress(page, 31);
      result.push_back({std::move(page), std::move(zlib), std::move(gzip)});
    }
    return result;
  }();
  return all;
}

std::int64_t plainBytes() {
  std::int64_t total = 0;
  for (const Page& page : pages())
    total += static_cast<std::int64_t>(page.plain.size());
  return total;
}

// Direct zlib: one deflate call with Z_FINISH into a buffer of deflateBound's size.
Data zlibDeflate(const Data& input, int windowBits) {
  z_stream stream{};
  deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
  Data out(deflateBound(&stream, input.size()));
  stream.next_in = const_cast<Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

// Direct zlib: one inflate call into a buffer of the (known) inflated size.
Data zlibInflate(const Data& input, std::size_t inflatedSize) {
  z_stream stream{};
  inflateInit2(&stream, 47);
  Data out(inflatedSize);
  stream.next_in = const_cast<Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  inflate(&stream, Z_FINISH);
  inflateEnd(&stream);
  return out;
}

// Direct zlib in 16384-byte output steps into a buffer of the known inflated size.
Data zlibInflateInSteps(const Data& input, std::size_t inflatedSize) {
  z_stream stream{};
  inflateInit2(&stream, 47);
  Data out(inflatedSize);
  stream.next_in = const_cast<Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = out.data();
  int status = Z_OK;
  while (status == Z_OK && stream.total_out < inflatedSize) {
    stream.avail_out =
        static_cast<uInt>(std::min<std::size_t>(16384, inflatedSize - stream.total_out));
    status = inflate(&stream, Z_NO_FLUSH);
  }
  inflateEnd(&stream);
  return out;
}

void BM_DeflateOurs(benchmark::State& state) {
  for (auto _ : state) {
    for (const Page& page : pages())
      benchmark::DoNotOptimize(ferncast::dataByDeflatingData(page.plain));
  }
  state.SetBytesProcessed(state.iterations() * plainBytes());
}

void BM_DeflateZlib(benchmark::State& state) {
  for (auto _ : state) {
    for (const Page& page : pages())
      benchmark::DoNotOptimize(zlibDeflate(page.plain, 15));
  }
  state.SetBytesProcessed(state.iterations() * plainBytes());
}

void BM_GzipOurs(benchmark::State& state) {
  for (auto _ : state) {
    for (const Page& page : pages())
      benchmark::DoNotOptimize(ferncast::dataByGzippingData(page.plain));
  }
  state.SetBytesProcessed(state.iterations() * plainBytes());
}

void BM_GzipZlib(benchmark::State& state) {
  for (auto _ : state) {
    for (const Page& page : pages())
      benchmark::DoNotOptimize(zlibDeflate(page.plain, 31));
  }
  state.SetBytesProcessed(state.iterations() * plainBytes());
}

void BM_InflateOurs(benchmark::State& state) {
  for (auto _ : state) {
    for (const Page& page : pages())
      benchmark::DoNotOptimize(ferncast::dataByInflatingData(page.zlib));
  }
  state.SetBytesProcessed(state.iterations() * plainBytes());
}

void BM_InflateZlib(benchmark::State& state) {
  for (auto _ : state) {
    for (const Page& page : pages())
      benchmark::DoNotOptimize(zlibInflate(page.zlib, page.plain.size()));
  }
  state.SetBytesProcessed(state.iterations() * plainBytes());
}

void BM_InflateZlibStream16K(benchmark::State& state) {
  for (auto _ : state) {
    for (const Page& page : pages())
      benchmark::DoNotOptimize(zlibInflateInSteps(page.zlib, page.plain.size()));
  }
  state.SetBytesProcessed(state.iterations() * plainBytes());
}

void BM_InflateGzipOurs(benchmark::State& state) {
  for (auto _ : state) {
    for (const Page& page : pages())
      benchmark::DoNotOptimize(ferncast::dataByInflatingData(page.gzip));
  }
  state.SetBytesProcessed(state.iterations() * plainBytes());
}

void BM_InflateGzipZlib(benchmark::State& state) {
  for (auto _ : state) {
    for (const Page& page : pages())
      benchmark::DoNotOptimize(zlibInflate(page.gzip, page.plain.size()));
  }
  state.SetBytesProcessed(state.iterations() * plainBytes());
}

BENCHMARK(BM_DeflateOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeflateZlib)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GzipOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GzipZlib)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InflateOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InflateZlib)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InflateZlibStream16K)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InflateGzipOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InflateGzipZlib)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
