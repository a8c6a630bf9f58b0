// RTF and RTFD over the article corpus: each page's text (Html2Text, reformatted) made into an
// attributed string with a bold word in seven, then written as RTF, read back, and packed as
// RTFD data. Bytes processed are RTF bytes, so the reading figure compares with
// bench/rtf_peers.sh.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bench/ArticlePages.h"
#include "markup/Html2Text.h"
#include "webcontent/documents/FileWrapper.h"
#include "webcontent/documents/RTF.h"
#include "webcontent/documents/RTFD.h"

namespace {

using namespace ferncast;

struct Documents {
  std::vector<AttributedString> strings;
  std::vector<Data> rtf;
  std::size_t rtfBytes = 0;
};

const Documents& documents() {
  static const Documents all = [] {
    Documents result;
    initCharacterTables();
    Attributes plain, bold;
    bold.font.bold = true;
    for (const std::u16string& page : corpus::articleTexts().texts) {
      const std::u16string text = stringByConvertingHtml2ReformattedPlainText(page);
      AttributedString string;
      std::size_t start = 0, words = 0;
      while (start < text.size()) {
        std::size_t end = text.find(u' ', start);
        end = end == std::u16string::npos ? text.size() : end + 1;
        string.append(std::u16string_view(text).substr(start, end - start),
                      ++words % 7 == 0 ? bold : plain);
        start = end;
      }
      result.rtf.push_back(RTFFromRange(string, {}));
      result.rtfBytes += result.rtf.back().size();
      result.strings.push_back(std::move(string));
    }
    return result;
  }();
  return all;
}

void BM_ReadRTF(benchmark::State& state) {
  const Documents& all = documents();
  if (all.rtf.empty()) return state.SkipWithError("no article corpus under " FERNCAST_SHARED_DIR);
  for (auto _ : state) {
    for (const Data& rtf : all.rtf) benchmark::DoNotOptimize(initWithRTF(rtf, nullptr));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * all.rtfBytes));
}
BENCHMARK(BM_ReadRTF);

void BM_WriteRTF(benchmark::State& state) {
  const Documents& all = documents();
  if (all.rtf.empty()) return state.SkipWithError("no article corpus under " FERNCAST_SHARED_DIR);
  for (auto _ : state) {
    for (const AttributedString& string : all.strings) {
      benchmark::DoNotOptimize(RTFFromRange(string, {}));
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * all.rtfBytes));
}
BENCHMARK(BM_WriteRTF);

// RTFD data made and read back as a package.
void BM_RTFDData(benchmark::State& state) {
  const Documents& all = documents();
  if (all.rtf.empty()) return state.SkipWithError("no article corpus under " FERNCAST_SHARED_DIR);
  for (auto _ : state) {
    for (const AttributedString& string : all.strings) {
      const Data data = RTFDFromRange(string, {});
      benchmark::DoNotOptimize(fileWrapperWithSerializedRepresentation(data));
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * all.rtfBytes));
}
BENCHMARK(BM_RTFDData);

}  // namespace

BENCHMARK_MAIN();
