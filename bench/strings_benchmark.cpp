// Throughput of the string operations over the character tables, each against a reference on the
// same buffer; the ratios are printed after the usual table:
//   - fixAndNormalizeString on text that is already in form C, against ICU normalising it
//     unconditionally (what the quick check saves);
//   - removeMultipleSpacesAndFeeds, table look-ups and the word count, against memcpy.
#include <benchmark/benchmark.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "markup/chartables/CharacterTables.h"
#include "markup/chartables/NSString+Quill.h"

namespace {

using namespace ferncast;

constexpr std::size_t kTextUnits = 32 * 1024;  // 64 KB of UTF-16

// Sentences in form C, shuffled into one text of about kTextUnits code units.
std::u16string sampleText(const std::vector<std::u16string>& sentences, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_int_distribution<std::size_t> pick(0, sentences.size() - 1);
  std::u16string text;
  while (text.size() < kTextUnits)
    text += sentences[pick(random)];
  text.resize(kTextUnits);
  return text;
}

const std::u16string& europeanText() {
  static const std::u16string text =
      sampleText({u"Die Stra\u00DFe f\u00FChrt \u00FCber die Br\u00FCcke nach K\u00F6ln. ",
                  u"Le gar\u00E7on a mang\u00E9 une cr\u00E8me br\u00FBl\u00E9e \u00E0 Paris. ",
                  u"El ni\u00F1o pidi\u00F3 m\u00E1s caf\u00E9 en la estaci\u00F3n. ",
                  u"The quick brown fox jumps over the lazy dog. ",
                  u"Za\u017C\u00F3\u0142\u0107 g\u0119\u015Bl\u0105 ja\u017A\u0144 w \u0141odzi. "},
                 1);
  return text;
}

const std::u16string& mixedScriptText() {
  static const std::u16string text = sampleText(
      {u"\u0411\u044B\u0441\u0442\u0440\u0430\u044F \u043B\u0438\u0441\u0430 "
       u"\u043F\u0440\u044B\u0433\u0430\u0435\u0442. ",
       u"\u0397 \u03B3\u03C1\u03AE\u03B3\u03BF\u03C1\u03B7 \u03B1\u03BB\u03B5\u03C0\u03BF\u03CD. ",
       u"\u6771\u4EAC\u306F\u65E5\u672C\u306E\u9996\u90FD\u3067\u3059\u3002",
       u"\uD55C\uAD6D\uC5B4 \uD14D\uC2A4\uD2B8\uC785\uB2C8\uB2E4. ",
       u"The quick brown fox jumps over the lazy dog. "},
      2);
  return text;
}

// European text with runs of spaces, tabs and line ends between some words.
const std::u16string& spacedText() {
  static const std::u16string text = [] {
    std::mt19937 random(3);
    const std::u16string runs[] = {u" ", u" ", u" ", u"  ", u" \t", u"\n", u"\r\n \n", u"   "};
    std::uniform_int_distribution<std::size_t> pick(0, std::size(runs) - 1);
    std::u16string result;
    for (char16_t c : europeanText()) {
      if (c == u' ') {
        result += runs[pick(random)];
      } else {
        result += c;
      }
    }
    result.resize(kTextUnits);
    return result;
  }();
  return text;
}

using TextSource = const std::u16string& (*)();

void setBytes(benchmark::State& state, const std::u16string& text) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(text.size() * sizeof(char16_t)));
}

// --- Normalisation -------------------------------------------------------------------------------

void BM_FixAndNormalize(benchmark::State& state, TextSource sample) {
  std::u16string text = sample();
  for (auto _ : state) {
    fixAndNormalizeString(text);
    benchmark::DoNotOptimize(text.data());
  }
  setBytes(state, text);
}

void BM_IcuNormalize(benchmark::State& state, TextSource sample) {
  const std::u16string& text = sample();
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
  const icu::UnicodeString source(false, text.data(), static_cast<int32_t>(text.size()));
  for (auto _ : state) {
    icu::UnicodeString result = nfc->normalize(source, status);
    benchmark::DoNotOptimize(result.getBuffer());
  }
  if (U_FAILURE(status)) state.SkipWithError("ICU normalisation failed");
  setBytes(state, text);
}

// --- Against memcpy ------------------------------------------------------------------------------

void BM_Memcpy(benchmark::State& state) {
  const std::u16string& text = spacedText();
  std::u16string copy(text.size(), u'\0');
  for (auto _ : state) {
    std::memcpy(copy.data(), text.data(), text.size() * sizeof(char16_t));
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  setBytes(state, text);
}

// The operation works in place, so each round starts from a fresh copy (a memcpy, included).
void BM_RemoveMultipleSpacesAndFeeds(benchmark::State& state) {
  const std::u16string& text = spacedText();
  std::u16string work;
  work.reserve(text.size());
  for (auto _ : state) {
    work.assign(text);
    benchmark::DoNotOptimize(removeMultipleSpacesAndFeeds(work, state.range(0) != 0));
  }
  setBytes(state, text);
}

// One upper-case table look-up per code unit into a caller buffer.
void BM_UpperTableLookup(benchmark::State& state) {
  const std::u16string& text = spacedText();
  const char16_t* upper = initUpperCharsTable();
  std::u16string out(text.size(), u'\0');
  for (auto _ : state) {
    for (std::size_t i = 0; i < text.size(); ++i)
      out[i] = upper[text[i]];
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  setBytes(state, text);
}

// The whole string operation: a new string through the lower-case umlaut table.
void BM_LowercaseNonUmlautedString(benchmark::State& state) {
  const std::u16string& text = spacedText();
  initLowerUmlautsCharsTable();
  for (auto _ : state)
    benchmark::DoNotOptimize(lowercaseNonUmlautedString(text));
  setBytes(state, text);
}

// One bitmap look-up per code unit.
void BM_NumberOfWords(benchmark::State& state) {
  const std::u16string& text = spacedText();
  initCharacterTables();
  for (auto _ : state) {
    benchmark::DoNotOptimize(numberOfWordsOfCharacters(text.data(), text.size()));
  }
  setBytes(state, text);
}

BENCHMARK_CAPTURE(BM_FixAndNormalize, european, europeanText);
BENCHMARK_CAPTURE(BM_FixAndNormalize, mixedScripts, mixedScriptText);
BENCHMARK_CAPTURE(BM_IcuNormalize, european, europeanText);
BENCHMARK_CAPTURE(BM_IcuNormalize, mixedScripts, mixedScriptText);
BENCHMARK(BM_Memcpy);
BENCHMARK(BM_RemoveMultipleSpacesAndFeeds)->ArgName("feeds")->Arg(0)->Arg(1);
BENCHMARK(BM_UpperTableLookup);
BENCHMARK(BM_LowercaseNonUmlautedString);
BENCHMARK(BM_NumberOfWords);

// Keeps each benchmark's time per iteration and throughput for the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  // With --benchmark_repetitions the medians are kept, else the single run. CPU time, since
  // the machine may be shared.
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.error_occurred || !(run.run_type == Run::RT_Iteration || median)) continue;
      Result& result = results_[run.run_name.str()];
      result.seconds = run.GetAdjustedCPUTime();
      auto bytes = run.counters.find("bytes_per_second");
      result.gigabytesPerSecond = bytes == run.counters.end() ? 0 : bytes->second.value / 1e9;
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void printRatios() const {
    std::printf("\nRatios (higher is better):\n");
    for (const char* text : {"european", "mixedScripts"}) {
      ratio(std::string("BM_IcuNormalize/") + text, std::string("BM_FixAndNormalize/") + text,
            "fixAndNormalizeString on form-C text vs ICU normalize (goal >= 5)");
    }
    for (const char* name :
         {"BM_RemoveMultipleSpacesAndFeeds/feeds:0", "BM_RemoveMultipleSpacesAndFeeds/feeds:1",
          "BM_UpperTableLookup", "BM_LowercaseNonUmlautedString", "BM_NumberOfWords"}) {
      ratio("BM_Memcpy", name, "speed relative to memcpy (1.0 = as fast)");
    }
  }

 private:
  struct Result {
    double seconds = 0;
    double gigabytesPerSecond = 0;
  };

  // How many times faster `fast` ran than `reference` on the same bytes.
  void ratio(const std::string& reference, const std::string& fast, const char* what) const {
    auto r = results_.find(reference), f = results_.find(fast);
    if (r == results_.end() || f == results_.end() || f->second.seconds <= 0) return;
    std::printf("  %-42s %6.2f GB/s  %7.3fx  %s\n", fast.c_str(), f->second.gigabytesPerSecond,
                r->second.seconds / f->second.seconds, what);
  }

  std::map<std::string, Result> results_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios();
  benchmark::Shutdown();
  return 0;
}
