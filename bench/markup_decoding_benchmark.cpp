// The markup decoder over a set of pages in sixteen character sets, each declaring its charset in
// a meta tag, against the usual Linux pair: uchardet guessing the charset from the bytes and
// glibc's iconv converting. A third run decodes each page once with ICU and the right converter
// named: the floor for any decoder that reads the page.
//
// The pages are made here: a few sentences per language repeated into a page of markup of about
// 64 KB, converted by glibc's iconv (not by the code under test). Counters report the share of
// pages each side decoded exactly right. "--write-pages DIR" writes the set to DIR (one file per
// charset) for bench/markup_decoding_peers.sh and exits.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ucnv.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "markup/MarkupDecoding.h"

#ifdef FERNCAST_HAVE_UCHARDET
#include <uchardet.h>
#endif

namespace {

struct Language {
  const char* charset;  // as the page declares it, and glibc's name for it
  const char* icuName;
  const char* sentence;
};

const Language kLanguages[] = {
    {"Shift_JIS", "Shift_JIS", "日本語のウェブページです。東京の天気は晴れ、気温は二十度。"},
    {"EUC-JP", "EUC-JP", "日本語のウェブページです。東京の天気は晴れ、気温は二十度。"},
    {"ISO-2022-JP", "ISO-2022-JP", "日本語の電子メールです。明日の会議は十時から。"},
    {"GB2312", "GB2312", "这是一个中文网页。今天北京的天气很好，气温二十度。"},
    {"GBK", "GBK", "這是一個中文網頁。今天北京的天氣很好。"},
    {"BIG5", "Big5", "這是一個繁體中文網頁。今天台北的天氣很好，氣溫二十度。"},
    {"EUC-KR", "EUC-KR", "한국어 웹 페이지입니다. 오늘 서울의 날씨는 맑습니다."},
    {"windows-1251", "windows-1251", "Это русская веб-страница. Сегодня в Москве солнечно."},
    {"KOI8-R", "KOI8-R", "Это русская веб-страница. Сегодня в Москве солнечно."},
    {"ISO-8859-2", "ISO-8859-2", "Příliš žluťoučký kůň úpěl ďábelské ódy. Dnes je hezky."},
    {"windows-1250", "windows-1250", "Zażółć gęślą jaźń. Dzisiaj w Warszawie jest słonecznie."},
    {"ISO-8859-7", "ISO-8859-7", "Αυτή είναι μια ελληνική ιστοσελίδα. Σήμερα έχει ήλιο."},
    {"windows-1256", "windows-1256", "هذه صفحة ويب عربية. الطقس اليوم مشمس في القاهرة."},
    {"ISO-8859-1", "ISO-8859-1", "Voilà une page française. Aujourd'hui il fait beau à Paris."},
    {"windows-1252", "windows-1252", "Grüße aus Köln – heute „sonnig“, morgen Regen."},
    {"UTF-8", "UTF-8", "Grüße, 世界, мир, κόσμος — a page in UTF-8."},
};

struct Page {
  std::string charset;
  std::string icuName;
  std::string bytes;
  std::u16string text;  // what a right decoding gives
};

std::optional<std::string> iconvConvert(const std::string& input, const char* to,
                                        const char* from) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
  std::string out(input.size() * 4 + 64, '\0');
  char* in = const_cast<char*>(input.data());
  std::size_t inLeft = input.size();
  char* outPointer = out.data();
  std::size_t outLeft = out.size();
  std::size_t result = iconv(cd, &in, &inLeft, &outPointer, &outLeft);
  if (result != static_cast<std::size_t>(-1)) {
    result = iconv(cd, nullptr, nullptr, &outPointer, &outLeft);
  }
  iconv_close(cd);
  if (result == static_cast<std::size_t>(-1)) return std::nullopt;
  out.resize(static_cast<std::size_t>(outPointer - out.data()));
  return out;
}

std::string pageMarkup(const Language& language) {
  std::string html =
      "<!DOCTYPE html>\n<html><head>\n<meta http-equiv=\"Content-Type\" content=\"text/html; "
      "charset=" +
      std::string(language.charset) +
      "\">\n<title>Page</title>\n<link rel=\"stylesheet\" href=\"/style.css\">\n"
      "<script>var x = 1; if (x < 2) { x = 2; }</script>\n</head>\n<body class=\"article\">\n";
  for (int i = 0; html.size() < 64 * 1024; ++i) {
    html += "<div class=\"paragraph\" id=\"p" + std::to_string(i) + "\"><p>" + language.sentence +
            " <a href=\"/page/" + std::to_string(i) + "\">" + language.sentence + "</a></p>" +
            "<p><b>" + language.sentence + "</b> " + language.sentence + "</p></div>\n";
  }
  return html + "</body></html>\n";
}

const std::vector<Page>& pages() {
  static const std::vector<Page> set = [] {
    std::vector<Page> made;
    for (const Language& language : kLanguages) {
      std::string html = pageMarkup(language);
      std::optional<std::string> bytes = iconvConvert(html, language.charset, "UTF-8");
      if (!bytes) {
        std::fprintf(stderr, "iconv cannot make a %s page\n", language.charset);
        std::exit(2);
      }
      made.push_back(
          {language.charset, language.icuName, std::move(*bytes), ferncast::utf8ToUtf16(html)});
    }
    return made;
  }();
  return set;
}

std::int64_t totalBytes() {
  std::int64_t total = 0;
  for (const Page& page : pages())
    total += static_cast<std::int64_t>(page.bytes.size());
  return total;
}

std::span<const std::uint8_t> bytesOf(const Page& page) {
  return {reinterpret_cast<const std::uint8_t*>(page.bytes.data()), page.bytes.size()};
}

void BM_MarkupDecoder(benchmark::State& state) {
  std::size_t right = 0;
  for (const Page& page : pages()) {
    right += ferncast::stringWithMarkupData(bytesOf(page), ferncast::NSISOLatin1StringEncoding) ==
             page.text;
  }
  for (auto _ : state) {
    for (const Page& page : pages()) {
      benchmark::DoNotOptimize(
          ferncast::stringWithMarkupData(bytesOf(page), ferncast::NSISOLatin1StringEncoding));
    }
  }
  state.SetBytesProcessed(state.iterations() * totalBytes());
  state.counters["right"] = static_cast<double>(right) / static_cast<double>(pages().size());
}
BENCHMARK(BM_MarkupDecoder)->Unit(benchmark::kMillisecond);

// One ICU conversion per page with the right converter named: no detection at all.
std::u16string icuDecode(const Page& page) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(page.icuName.c_str(), &status);
  std::u16string text(page.bytes.size() + 32, u'\0');
  int32_t length = ucnv_toUChars(converter, reinterpret_cast<UChar*>(text.data()),
                                 static_cast<int32_t>(text.size()), page.bytes.data(),
                                 static_cast<int32_t>(page.bytes.size()), &status);
  ucnv_close(converter);
  text.resize(U_SUCCESS(status) ? static_cast<std::size_t>(length) : 0);
  return text;
}

void BM_IcuKnownCharset(benchmark::State& state) {
  for (auto _ : state) {
    for (const Page& page : pages())
      benchmark::DoNotOptimize(icuDecode(page));
  }
  state.SetBytesProcessed(state.iterations() * totalBytes());
}
BENCHMARK(BM_IcuKnownCharset)->Unit(benchmark::kMillisecond);

#ifdef FERNCAST_HAVE_UCHARDET
// uchardet's guess, then glibc's iconv; a failed guess or conversion gives an empty text.
std::u16string uchardetIconv(uchardet_t detector, const Page& page) {
  uchardet_reset(detector);
  uchardet_handle_data(detector, page.bytes.data(), page.bytes.size());
  uchardet_data_end(detector);
  const char* charset = uchardet_get_charset(detector);
  if (!charset || !*charset) return {};
  std::optional<std::string> utf16 = iconvConvert(page.bytes, "UTF-16LE", charset);
  if (!utf16) return {};
  std::u16string text(utf16->size() / 2, u'\0');
  std::memcpy(text.data(), utf16->data(), text.size() * 2);
  return text;
}

void BM_UchardetIconv(benchmark::State& state) {
  uchardet_t detector = uchardet_new();
  std::size_t right = 0;
  for (const Page& page : pages())
    right += uchardetIconv(detector, page) == page.text;
  for (auto _ : state) {
    for (const Page& page : pages())
      benchmark::DoNotOptimize(uchardetIconv(detector, page));
  }
  uchardet_delete(detector);
  state.SetBytesProcessed(state.iterations() * totalBytes());
  state.counters["right"] = static_cast<double>(right) / static_cast<double>(pages().size());
}
BENCHMARK(BM_UchardetIconv)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], "--write-pages") == 0) {
      for (const Page& page : pages()) {
        std::ofstream(std::string(argv[i + 1]) + "/" + page.charset + ".html", std::ios::binary)
            << page.bytes;
      }
      return 0;
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
