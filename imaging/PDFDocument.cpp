#include "imaging/PDFDocument.h"

extern "C" {
#include <mupdf/fitz.h>
#include <mupdf/pdf.h>
}

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <thread>

#include "Classes/Unicode.h"

namespace ferncast {
namespace {

using SteadyClock = std::chrono::steady_clock;

// MuPDF's errors are setjmp/longjmp: a C++ exception must never leave an fz_try block, or the
// context's try stack is left pushed. So MuPDF calls stay inside fz_try blocks that hold no C++
// work that can throw, and the C++ work happens on the MuPDF results outside them.

// --- A MuPDF allocator with a ceiling --------------------------------------------------------

struct AllocationBudget {
  std::size_t used = 0;
  std::size_t limit = PDFDocument::kMemoryLimit;
};

// Each block carries its size in front of it; 16 bytes keep the block aligned for any type.
constexpr std::size_t kHeader = 16;

void* budgetedMalloc(void* user, std::size_t size) {
  auto* budget = static_cast<AllocationBudget*>(user);
  if (size > budget->limit - budget->used) return nullptr;
  auto* block = static_cast<unsigned char*>(std::malloc(size + kHeader));
  if (block == nullptr) return nullptr;
  std::memcpy(block, &size, sizeof size);
  budget->used += size;
  return block + kHeader;
}

void budgetedFree(void* user, void* pointer) {
  if (pointer == nullptr) return;
  auto* budget = static_cast<AllocationBudget*>(user);
  auto* block = static_cast<unsigned char*>(pointer) - kHeader;
  std::size_t size;
  std::memcpy(&size, block, sizeof size);
  budget->used -= size;
  std::free(block);
}

void* budgetedRealloc(void* user, void* pointer, std::size_t size) {
  if (pointer == nullptr) return budgetedMalloc(user, size);
  auto* budget = static_cast<AllocationBudget*>(user);
  auto* block = static_cast<unsigned char*>(pointer) - kHeader;
  std::size_t old;
  std::memcpy(&old, block, sizeof old);
  if (size > old && size - old > budget->limit - budget->used) return nullptr;
  auto* grown = static_cast<unsigned char*>(std::realloc(block, size + kHeader));
  if (grown == nullptr) return nullptr;
  std::memcpy(grown, &size, sizeof size);
  budget->used = budget->used - old + size;
  return grown + kHeader;
}

// --- The watchdog that abandons pages past their deadline --------------------------------------

// One thread for the whole process, started on first use, sets the abort flag of each armed
// cookie whose deadline passes. MuPDF polls that flag while it interprets a page.
class Watchdog {
 public:
  static Watchdog& shared() {
    static Watchdog* watchdog = new Watchdog;  // lives as long as the process
    return *watchdog;
  }

  std::uint64_t arm(SteadyClock::time_point deadline, fz_cookie* cookie) {
    std::lock_guard lock(mutex_);
    if (!started_) {
      std::thread([this] { run(); }).detach();
      started_ = true;
    }
    const std::uint64_t ticket = next_++;
    armed_.emplace(ticket, Entry{deadline, cookie});
    changed_.notify_one();
    return ticket;
  }

  void disarm(std::uint64_t ticket) {
    std::lock_guard lock(mutex_);
    armed_.erase(ticket);
  }

 private:
  struct Entry {
    SteadyClock::time_point deadline;
    fz_cookie* cookie;
  };

  void run() {
    std::unique_lock lock(mutex_);
    for (;;) {
      if (armed_.empty()) {
        changed_.wait(lock);
        continue;
      }
      auto earliest = SteadyClock::time_point::max();
      for (const auto& [ticket, entry] : armed_)
        earliest = std::min(earliest, entry.deadline);
      changed_.wait_until(lock, earliest);
      const auto now = SteadyClock::now();
      for (auto it = armed_.begin(); it != armed_.end();) {
        if (it->second.deadline <= now) {
          __atomic_store_n(&it->second.cookie->abort, 1, __ATOMIC_RELAXED);
          it = armed_.erase(it);
        } else {
          ++it;
        }
      }
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::uint64_t, Entry> armed_;
  std::uint64_t next_ = 1;
  bool started_ = false;
};

// A cookie armed with a deadline for the lifetime of the object.
class DeadlineCookie {
 public:
  explicit DeadlineCookie(const PDFDocument::Deadline& deadline) {
    if (!deadline) return;
    if (*deadline <= SteadyClock::now()) {
      cookie_.abort = 1;
      return;
    }
    ticket_ = Watchdog::shared().arm(*deadline, &cookie_);
  }
  ~DeadlineCookie() {
    if (ticket_ != 0) Watchdog::shared().disarm(ticket_);
  }
  DeadlineCookie(const DeadlineCookie&) = delete;
  DeadlineCookie& operator=(const DeadlineCookie&) = delete;

  fz_cookie* get() { return &cookie_; }
  bool aborted() const { return __atomic_load_n(&cookie_.abort, __ATOMIC_RELAXED) != 0; }

 private:
  fz_cookie cookie_{};
  std::uint64_t ticket_ = 0;
};

// --- Small helpers ------------------------------------------------------------------------------

struct StextPageDrop {
  fz_context* ctx;
  void operator()(fz_stext_page* page) const { fz_drop_stext_page(ctx, page); }
};
using StextPage = std::unique_ptr<fz_stext_page, StextPageDrop>;

void appendCodePoint(std::u16string& text, int c) {
  if (c < 0 || c > 0x10FFFF) return;
  if (c < 0x10000) {
    text.push_back(static_cast<char16_t>(c));
  } else {
    c -= 0x10000;
    text.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
    text.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
  }
}

// "ABCDEF+Times-Bold" -> "Times-Bold": a subset font's name starts with six capitals and "+".
std::string withoutSubsetPrefix(std::string name) {
  if (name.size() > 7 && name[6] == '+' &&
      std::all_of(name.begin(), name.begin() + 6, [](char c) { return c >= 'A' && c <= 'Z'; })) {
    name.erase(0, 7);
  }
  return name;
}

// "Times-Bold" -> "Times", "Arial,BoldItalic" -> "Arial".
std::string familyOfFontName(const std::string& name) {
  return name.substr(0, name.find_first_of("-,"));
}

std::vector<std::u16string> keywordsOf(std::u16string_view text) {
  std::vector<std::u16string> keywords;
  auto isSpace = [](char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; };
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find_first_of(u",;", start);
    if (end == std::u16string_view::npos) end = text.size();
    std::size_t first = start, last = end;
    while (first < last && isSpace(text[first]))
      ++first;
    while (last > first && isSpace(text[last - 1]))
      --last;
    if (last > first) keywords.emplace_back(text.substr(first, last - first));
    start = end + 1;
  }
  return keywords;
}

// Days from 1970-01-01 to a proleptic Gregorian date.
std::int64_t daysFromCivil(std::int64_t year, unsigned month, unsigned day) {
  year -= month <= 2;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const auto yearOfEra = static_cast<unsigned>(year - era * 400);
  const unsigned dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + static_cast<std::int64_t>(dayOfEra) - 719468;
}

}  // namespace

std::optional<Date> dateFromPDFDateString(std::string_view text) {
  std::size_t at = 0;
  auto skipSpaces = [&] {
    while (at < text.size() && text[at] == ' ')
      ++at;
  };
  skipSpaces();
  if (text.substr(at, 2) == "D:") at += 2;
  skipSpaces();
  // Reads exactly `digits` digits; nullopt (and nothing consumed) when they are not there.
  auto number = [&](int digits) -> std::optional<int> {
    if (at + digits > text.size()) return std::nullopt;
    int value = 0;
    for (int i = 0; i < digits; ++i) {
      const char c = text[at + i];
      if (c < '0' || c > '9') return std::nullopt;
      value = value * 10 + (c - '0');
    }
    at += digits;
    return value;
  };
  const auto year = number(4);
  if (!year) return std::nullopt;
  int parts[5] = {1, 1, 0, 0, 0};  // month, day, hour, minute, second
  for (int& part : parts) {
    const auto value = number(2);
    if (!value) break;
    part = *value;
  }
  const auto [month, day, hour, minute, second] = parts;
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
    return std::nullopt;
  }
  int offsetMinutes = 0;
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
    const int sign = text[at] == '-' ? -1 : 1;
    ++at;
    const auto offsetHours = number(2);
    if (offsetHours) {
      if (at < text.size() && text[at] == '\'') ++at;
      const int offsetMinute = number(2).value_or(0);
      if (*offsetHours > 23 || offsetMinute > 59) return std::nullopt;
      offsetMinutes = sign * (*offsetHours * 60 + offsetMinute);
    }
  }
  // "Z", "Z00'00'" and anything after the zone mean nothing more.
  const std::int64_t days =
      daysFromCivil(*year, static_cast<unsigned>(month), static_cast<unsigned>(day));
  const double seconds = static_cast<double>(days) * 86400.0 + hour * 3600.0 + minute * 60.0 +
                         second - offsetMinutes * 60.0;
  return Date{seconds};
}

// --- The document -------------------------------------------------------------------------------

struct PDFDocument::State {
  AllocationBudget budget;
  fz_alloc_context allocator{};
  fz_context* ctx = nullptr;
  pdf_document* pdf = nullptr;
  // Counted once at opening: MuPDF may repair the file later on and count again differently.
  int pageCount = 0;
  // The page loaded last, kept for the next call on the same page.
  fz_page* page = nullptr;
  int pageIndex = -1;

  State() { allocator = {&budget, budgetedMalloc, budgetedRealloc, budgetedFree}; }
  ~State() {
    if (ctx == nullptr) return;
    fz_drop_page(ctx, page);
    if (pdf != nullptr) fz_drop_document(ctx, &pdf->super);
    fz_drop_context(ctx);
  }

  fz_document* document() const { return &pdf->super; }

  // The page at `index`, loaded once; null when it cannot be loaded.
  fz_page* loadPage(int index) {
    if (index < 0 || index >= pageCount) return nullptr;
    if (index == pageIndex) return page;
    fz_drop_page(ctx, page);
    page = nullptr;
    pageIndex = -1;
    fz_page* loaded = nullptr;
    fz_var(loaded);
    fz_try(ctx) {
      loaded = fz_load_page(ctx, document(), index);
    }
    fz_catch(ctx) {
      loaded = nullptr;
    }
    if (loaded != nullptr) {
      page = loaded;
      pageIndex = index;
    }
    return loaded;
  }

  // The structured text of a page, run under the deadline; null when it failed or was abandoned.
  StextPage textOfPage(int index, const Deadline& deadline) {
    fz_page* loaded = loadPage(index);
    if (loaded == nullptr) return StextPage(nullptr, StextPageDrop{ctx});
    DeadlineCookie cookie(deadline);
    if (cookie.aborted()) return StextPage(nullptr, StextPageDrop{ctx});
    fz_stext_page* text = nullptr;
    fz_device* device = nullptr;
    bool failed = false;
    fz_var(text);
    fz_var(device);
    fz_var(failed);
    fz_try(ctx) {
      fz_stext_options options{};  // ligatures expanded, white space as spaces
      text = fz_new_stext_page(ctx, fz_bound_page(ctx, loaded));
      device = fz_new_stext_device(ctx, text, &options);
      fz_run_page(ctx, loaded, device, fz_identity, cookie.get());
      fz_close_device(ctx, device);
    }
    fz_always(ctx) {
      fz_drop_device(ctx, device);
    }
    fz_catch(ctx) {
      failed = true;
    }
    StextPage result(text, StextPageDrop{ctx});
    if (failed || cookie.aborted()) result.reset();
    return result;
  }

  std::optional<std::string> metadata(const char* key) {
    char small[256];
    int length = -1;
    fz_var(length);
    fz_try(ctx) {
      length = fz_lookup_metadata(ctx, document(), key, small, sizeof small);
    }
    fz_catch(ctx) {
      length = -1;
    }
    if (length <= 0) return std::nullopt;
    if (static_cast<std::size_t>(length) <= sizeof small) return std::string(small);
    std::string large(static_cast<std::size_t>(length), '\0');
    int again = -1;
    fz_var(again);
    fz_try(ctx) {
      again = fz_lookup_metadata(ctx, document(), key, large.data(), length);
    }
    fz_catch(ctx) {
      again = -1;
    }
    if (again <= 0) return std::nullopt;
    large.resize(std::strlen(large.c_str()));
    return large;
  }
};

PDFDocument::PDFDocument(std::unique_ptr<State> state) : state_(std::move(state)) {}
PDFDocument::~PDFDocument() = default;

namespace {
void ignoreMessage(void*, const char*) {}
}  // namespace

std::unique_ptr<PDFDocument> PDFDocument::open(std::span<const std::uint8_t> bytes) {
  return openSource(bytes, nullptr);
}

std::unique_ptr<PDFDocument> PDFDocument::openFile(const std::string& path) {
  return openSource({}, path.c_str());
}

std::unique_ptr<PDFDocument> PDFDocument::openSource(std::span<const std::uint8_t> bytes,
                                                     const char* path) {
  auto state = std::make_unique<State>();
  state->ctx = fz_new_context(&state->allocator, nullptr, 64 << 20);
  if (state->ctx == nullptr) return nullptr;
  fz_context* ctx = state->ctx;
  // MuPDF's messages about damaged files are not ours to print.
  fz_set_error_callback(ctx, ignoreMessage, nullptr);
  fz_set_warning_callback(ctx, ignoreMessage, nullptr);
  fz_buffer* buffer = nullptr;
  fz_stream* stream = nullptr;
  pdf_document* pdf = nullptr;
  fz_var(buffer);
  fz_var(stream);
  fz_var(pdf);
  fz_try(ctx) {
    if (path != nullptr) {
      stream = fz_open_file(ctx, path);
    } else {
      buffer = fz_new_buffer_from_copied_data(ctx, bytes.data(), bytes.size());
      stream = fz_open_buffer(ctx, buffer);
    }
    pdf = pdf_open_document_with_stream(ctx, stream);
  }
  fz_always(ctx) {
    fz_drop_stream(ctx, stream);
    fz_drop_buffer(ctx, buffer);
  }
  fz_catch(ctx) {
    pdf = nullptr;
  }
  if (pdf == nullptr) return nullptr;
  state->pdf = pdf;
  int count = 0;
  fz_var(count);
  fz_try(ctx) {
    count = fz_count_pages(ctx, &pdf->super);
  }
  fz_catch(ctx) {
    count = 0;
  }
  state->pageCount = std::max(count, 0);
  return std::unique_ptr<PDFDocument>(new PDFDocument(std::move(state)));
}

int PDFDocument::pageCount() const {
  return state_->pageCount;
}

bool PDFDocument::isLocked() const {
  fz_context* ctx = state_->ctx;
  int locked = 0;
  fz_var(locked);
  fz_try(ctx) {
    locked = fz_needs_password(ctx, state_->document());
  }
  fz_catch(ctx) {
    locked = 1;
  }
  return locked != 0;
}

Dictionary PDFDocument::documentAttributes() const {
  Dictionary attributes;
  if (isLocked()) return attributes;
  static constexpr struct {
    const char* key;
    const char16_t* name;
  } kStrings[] = {{"info:Title", kPDFTitleAttribute},
                  {"info:Author", kPDFAuthorAttribute},
                  {"info:Subject", kPDFSubjectAttribute},
                  {"info:Creator", kPDFCreatorAttribute},
                  {"info:Producer", kPDFProducerAttribute}};
  for (const auto& [key, name] : kStrings) {
    if (auto text = state_->metadata(key); text && !text->empty()) {
      attributes.emplace(name, utf8ToUtf16(*text));
    }
  }
  if (auto text = state_->metadata("info:Keywords")) {
    Array keywords;
    for (std::u16string& keyword : keywordsOf(utf8ToUtf16(*text))) {
      keywords.emplace_back(std::move(keyword));
    }
    if (!keywords.empty()) attributes.emplace(kPDFKeywordsAttribute, std::move(keywords));
  }
  static constexpr struct {
    const char* key;
    const char16_t* name;
  } kDates[] = {{"info:CreationDate", kPDFCreationDateAttribute},
                {"info:ModDate", kPDFModificationDateAttribute}};
  for (const auto& [key, name] : kDates) {
    if (auto text = state_->metadata(key)) {
      if (auto date = dateFromPDFDateString(*text)) attributes.emplace(name, *date);
    }
  }
  return attributes;
}

std::optional<PDFRect> PDFDocument::mediaBox(int index) const {
  fz_page* page = state_->loadPage(index);
  if (page == nullptr) return std::nullopt;
  fz_context* ctx = state_->ctx;
  fz_rect box = fz_empty_rect;
  fz_var(box);
  fz_try(ctx) {
    if (pdf_page* pdfPage = pdf_page_from_fz_page(ctx, page)) {
      pdf_obj* mediaBox = pdf_dict_get_inheritable(ctx, pdfPage->obj, PDF_NAME(MediaBox));
      if (pdf_is_array(ctx, mediaBox)) box = pdf_to_rect(ctx, mediaBox);
    }
  }
  fz_catch(ctx) {
    box = fz_empty_rect;
  }
  // A page without a usable MediaBox is drawn on US Letter, as MuPDF itself does.
  if (fz_is_empty_rect(box)) box = fz_make_rect(0, 0, 612, 792);
  return PDFRect{std::min(box.x0, box.x1), std::min(box.y0, box.y1), std::abs(box.x1 - box.x0),
                 std::abs(box.y1 - box.y0)};
}

std::optional<PDFRect> PDFDocument::pageBounds(int index) const {
  fz_page* page = state_->loadPage(index);
  if (page == nullptr) return std::nullopt;
  fz_context* ctx = state_->ctx;
  fz_rect bounds = fz_empty_rect;
  fz_var(bounds);
  fz_try(ctx) {
    bounds = fz_bound_page(ctx, page);
  }
  fz_catch(ctx) {
    return std::nullopt;
  }
  return PDFRect{0, 0, bounds.x1 - bounds.x0, bounds.y1 - bounds.y0};
}

std::optional<std::u16string> PDFDocument::pageString(int index, Deadline deadline) const {
  StextPage text = state_->textOfPage(index, deadline);
  if (!text) return std::nullopt;
  std::u16string result;
  try {
    bool firstLine = true;
    for (fz_stext_block* block = text->first_block; block != nullptr; block = block->next) {
      if (block->type != FZ_STEXT_BLOCK_TEXT) continue;
      for (fz_stext_line* line = block->u.t.first_line; line != nullptr; line = line->next) {
        if (!firstLine) result.push_back(u'\n');
        firstLine = false;
        for (fz_stext_char* ch = line->first_char; ch != nullptr; ch = ch->next) {
          appendCodePoint(result, ch->c);
        }
      }
    }
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
  return result;
}

std::optional<std::vector<PDFTextRun>> PDFDocument::textRuns(Deadline deadline) const {
  if (isLocked()) return std::nullopt;
  fz_context* ctx = state_->ctx;
  std::vector<PDFTextRun> runs;
  try {
    fz_font* runFont = nullptr;
    for (int index = 0, count = pageCount(); index < count; ++index) {
      StextPage text = state_->textOfPage(index, deadline);
      if (!text) {
        if (deadline && SteadyClock::now() >= *deadline) return std::nullopt;
        continue;
      }
      for (fz_stext_block* block = text->first_block; block != nullptr; block = block->next) {
        if (block->type != FZ_STEXT_BLOCK_TEXT) continue;
        for (fz_stext_line* line = block->u.t.first_line; line != nullptr; line = line->next) {
          for (fz_stext_char* ch = line->first_char; ch != nullptr; ch = ch->next) {
            if (runs.empty() || ch->font != runFont || ch->size != runs.back().fontSize) {
              PDFTextRun run;
              if (ch->font != nullptr) {
                run.fontName = withoutSubsetPrefix(fz_font_name(ctx, ch->font));
                run.fontFamily = familyOfFontName(run.fontName);
                run.bold = fz_font_is_bold(ctx, ch->font) != 0;
                run.italic = fz_font_is_italic(ctx, ch->font) != 0;
              }
              run.fontSize = ch->size;
              runs.push_back(std::move(run));
              runFont = ch->font;
            }
            appendCodePoint(runs.back().text, ch->c);
          }
          if (!runs.empty()) runs.back().text.push_back(u'\n');
        }
      }
      // The fonts belong to this page's text; the next page starts a new run.
      runFont = nullptr;
    }
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
  return runs;
}

std::optional<PDFPageBitmap> PDFDocument::renderPage(int index, int width, int height,
                                                     Deadline deadline) const {
  if (width <= 0 || height <= 0 || static_cast<std::int64_t>(width) * height > kMaxRenderPixels) {
    return std::nullopt;
  }
  fz_page* page = state_->loadPage(index);
  if (page == nullptr) return std::nullopt;
  fz_context* ctx = state_->ctx;
  DeadlineCookie cookie(deadline);
  if (cookie.aborted()) return std::nullopt;
  fz_pixmap* pixmap = nullptr;
  fz_device* device = nullptr;
  bool failed = false;
  fz_var(pixmap);
  fz_var(device);
  fz_var(failed);
  fz_try(ctx) {
    const fz_rect bounds = fz_bound_page(ctx, page);
    const float pageWidth = bounds.x1 - bounds.x0, pageHeight = bounds.y1 - bounds.y0;
    if (pageWidth <= 0 || pageHeight <= 0) fz_throw(ctx, FZ_ERROR_GENERIC, "empty page");
    const fz_matrix transform = fz_concat(
        fz_translate(-bounds.x0, -bounds.y0),
        fz_scale(static_cast<float>(width) / pageWidth, static_cast<float>(height) / pageHeight));
    pixmap = fz_new_pixmap(ctx, fz_device_rgb(ctx), width, height, nullptr, 0);
    fz_clear_pixmap_with_value(ctx, pixmap, 0xFF);
    device = fz_new_draw_device(ctx, fz_identity, pixmap);
    fz_run_page(ctx, page, device, transform, cookie.get());
    fz_close_device(ctx, device);
  }
  fz_always(ctx) {
    fz_drop_device(ctx, device);
  }
  fz_catch(ctx) {
    failed = true;
  }
  std::optional<PDFPageBitmap> bitmap;
  if (!failed && !cookie.aborted()) {
    try {
      bitmap.emplace();
      bitmap->width = width;
      bitmap->height = height;
      const std::size_t row = static_cast<std::size_t>(width) * 3;
      bitmap->rgb.resize(row * static_cast<std::size_t>(height));
      const unsigned char* samples = fz_pixmap_samples(ctx, pixmap);
      const std::ptrdiff_t stride = fz_pixmap_stride(ctx, pixmap);
      for (int y = 0; y < height; ++y) {
        std::memcpy(bitmap->rgb.data() + row * static_cast<std::size_t>(y), samples + stride * y,
                    row);
      }
    } catch (const std::bad_alloc&) {
      bitmap.reset();
    }
  }
  fz_drop_pixmap(ctx, pixmap);
  return bitmap;
}

}  // namespace ferncast
