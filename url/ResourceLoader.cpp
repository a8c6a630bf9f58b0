#include "url/ResourceLoader.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "Classes/Unicode.h"
#include "url/AsciiCase.h"

namespace ferncast {
namespace {

using Clock = std::chrono::steady_clock;

int hexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// "%XX" escapes decoded; other code units (ASCII in a URL) copied as bytes.
Data percentDecoded(std::u16string_view s) {
  Data bytes;
  bytes.reserve(s.size());
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == u'%' && i + 2 < s.size() && hexValue(s[i + 1]) >= 0 && hexValue(s[i + 2]) >= 0) {
      bytes.push_back(static_cast<std::uint8_t>(hexValue(s[i + 1]) * 16 + hexValue(s[i + 2])));
      i += 2;
    } else {
      bytes.push_back(static_cast<std::uint8_t>(s[i]));
    }
  }
  return bytes;
}

int base64Value(std::uint8_t c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+' || c == '-') return 62;
  if (c == '/' || c == '_') return 63;
  return -1;
}

// Standard or URL-safe base64; white space skipped, padding optional. nullopt for any other byte.
std::optional<Data> base64Decoded(const Data& text) {
  Data bytes;
  bytes.reserve(text.size() / 4 * 3 + 3);
  unsigned bits = 0;
  int count = 0;
  bool padding = false;
  for (std::uint8_t c : text) {
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
    if (c == '=') {
      padding = true;
      continue;
    }
    int value = base64Value(c);
    if (value < 0 || padding) return std::nullopt;
    bits = (bits << 6) | static_cast<unsigned>(value);
    if (++count == 4) {
      bytes.push_back(static_cast<std::uint8_t>(bits >> 16));
      bytes.push_back(static_cast<std::uint8_t>(bits >> 8));
      bytes.push_back(static_cast<std::uint8_t>(bits));
      bits = 0;
      count = 0;
    }
  }
  if (count == 1) return std::nullopt;
  if (count == 2) bytes.push_back(static_cast<std::uint8_t>(bits >> 4));
  if (count == 3) {
    bytes.push_back(static_cast<std::uint8_t>(bits >> 10));
    bytes.push_back(static_cast<std::uint8_t>(bits >> 2));
  }
  return bytes;
}

// A regular file's bytes, at most `limit`; nullopt with `error` set otherwise.
std::optional<Data> readFile(const std::string& path, std::size_t limit, std::string& error) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    error = "cannot open";
    return std::nullopt;
  }
  struct stat status;
  std::optional<Data> bytes;
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    error = "not a file";
  } else if (static_cast<std::size_t>(status.st_size) > limit) {
    error = "too large";
  } else {
    bytes.emplace(static_cast<std::size_t>(status.st_size));
    std::size_t done = 0;
    while (done < bytes->size()) {
      ssize_t n = read(fd, bytes->data() + done, bytes->size() - done);
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
    bytes->resize(done);
  }
  close(fd);
  return bytes;
}

void ensureCurl() {
  static const bool initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  (void)initialised;
}

struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct ListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct MultiDeleter {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};

// One HTTP load in flight: the current hop of the request for results[slot].
struct Transfer {
  std::size_t slot;
  std::unique_ptr<CURL, EasyDeleter> easy;
  std::unique_ptr<curl_slist, ListDeleter> resolve;
  Data body;
  std::size_t limit;
  bool tooLarge = false;
};

std::size_t collectBody(char* data, std::size_t size, std::size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  std::size_t n = size * count;
  if (transfer->body.size() + n > transfer->limit) {
    transfer->tooLarge = true;
    return 0;  // aborts the transfer
  }
  transfer->body.insert(transfer->body.end(), data, data + n);
  return n;
}

std::chrono::milliseconds remaining(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return std::max(left, std::chrono::milliseconds(0));
}

class Loader {
 public:
  Loader(const ResourceLoaderOptions& options, std::vector<LoadedResource>& results)
      : options_(options), results_(results) {}

  void run() {
    for (std::size_t slot = 0; slot < results_.size(); ++slot)
      startLocal(slot);
    if (pending_.empty()) return;
    ensureCurl();
    multi_.reset(curl_multi_init());
    if (!multi_) {
      for (std::size_t slot : pending_)
        fail(slot, "cannot load");
      return;
    }
    curl_multi_setopt(multi_.get(), CURLMOPT_MAX_TOTAL_CONNECTIONS,
                      static_cast<long>(std::max(1, options_.maxConnections)));
    for (std::size_t slot : pending_)
      startHop(slot, results_[slot].url);
    pending_.clear();
    loop();
  }

 private:
  void fail(std::size_t slot, std::string error) {
    results_[slot].outcome = LoadOutcome::kFailed;
    results_[slot].error = std::move(error);
  }

  // Loads that need no network; HTTP loads are queued in pending_.
  void startLocal(std::size_t slot) {
    LoadedResource& result = results_[slot];
    if (options_.archive) {
      auto found = options_.archive->find(result.url.absoluteString());
      if (found == options_.archive->end()) return fail(slot, "not in the archive");
      result.outcome = LoadOutcome::kLoaded;
      result.data = found->second.data;
      result.MIMEType = found->second.MIMEType;
      return;
    }
    const std::u16string& scheme = result.url.scheme().value_or(u"");
    if (ascii::equalsIgnoringCase(scheme, u"data")) {
      std::optional<ArchivedResource> decoded = decodeDataURL(result.url.absoluteString());
      if (!decoded) return fail(slot, "bad data URL");
      if (decoded->data.size() > options_.maxResourceBytes) return fail(slot, "too large");
      result.outcome = LoadOutcome::kLoaded;
      result.data = std::move(decoded->data);
      result.MIMEType = std::move(decoded->MIMEType);
    } else if (result.url.isFileURL()) {
      std::optional<std::string> path = result.url.filePath();
      if (!path) return fail(slot, "bad file URL");
      std::optional<Data> bytes = readFile(*path, options_.maxResourceBytes, result.error);
      if (!bytes) return fail(slot, result.error);
      result.outcome = LoadOutcome::kLoaded;
      result.data = std::move(*bytes);
    } else if (ascii::equalsIgnoringCase(scheme, u"http") ||
               ascii::equalsIgnoringCase(scheme, u"https")) {
      pending_.push_back(slot);
    } else {
      fail(slot, "unsupported scheme");
    }
  }

  // Asks the hook about `url`, the next hop of the request in `slot`, and starts loading it.
  void startHop(std::size_t slot, const URL& url) {
    LoadedResource& result = results_[slot];
    result.finalURL = url;
    if (remaining(options_.deadline).count() == 0) return fail(slot, "timed out");
    URL request = url;
    if (options_.hook) {
      std::optional<URL> allowed = options_.hook(url, *options_.resolver);
      if (!allowed) {
        result.outcome = LoadOutcome::kRefused;
        return;
      }
      request = *allowed;
      result.finalURL = request;
    }
    if (!isHTTPScheme(request)) return fail(slot, "unsupported scheme");
    auto transfer = std::make_unique<Transfer>();
    transfer->slot = slot;
    transfer->limit = options_.maxResourceBytes;
    transfer->easy.reset(curl_easy_init());
    if (!transfer->easy) return fail(slot, "cannot load");
    if (!pinAddresses(*transfer, request)) return fail(slot, "host not found");
    CURL* easy = transfer->easy.get();
    std::string address = utf16ToUtf8(request.absoluteString());
    curl_easy_setopt(easy, CURLOPT_URL, address.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE,
                     static_cast<curl_off_t>(options_.maxResourceBytes));
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS,
                     std::max<long>(1, static_cast<long>(remaining(options_.deadline).count())));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, collectBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer.get());
    curl_easy_setopt(easy, CURLOPT_PRIVATE, transfer.get());
    if (curl_multi_add_handle(multi_.get(), easy) != CURLM_OK) return fail(slot, "cannot load");
    transfers_.push_back(std::move(transfer));
  }

  static bool isHTTPScheme(const URL& url) {
    const std::u16string& scheme = url.scheme().value_or(u"");
    return url.host() && (ascii::equalsIgnoringCase(scheme, u"http") ||
                          ascii::equalsIgnoringCase(scheme, u"https"));
  }

  // Looks the host up once and tells libcurl to connect only there. Literal addresses need no
  // look-up. False when the host has no address.
  bool pinAddresses(Transfer& transfer, const URL& url) {
    std::string host = utf16ToUtf8(*url.host());
    if (IPAddress::parse(host)) return true;
    std::vector<IPAddress> addresses = options_.resolver->resolve(
        host, std::min(kHostLookupTimeout, remaining(options_.deadline)));
    if (addresses.empty()) return false;
    int port = url.port().value_or(ascii::equalsIgnoringCase(*url.scheme(), u"https") ? 443 : 80);
    std::string entry = host + ":" + std::to_string(port) + ":";
    for (std::size_t i = 0; i < addresses.size(); ++i) {
      std::string text = addresses[i].toString();
      entry += (i ? "," : "") + (addresses[i].isIPv6 ? "[" + text + "]" : text);
    }
    transfer.resolve.reset(curl_slist_append(nullptr, entry.c_str()));
    if (!transfer.resolve) return false;
    curl_easy_setopt(transfer.easy.get(), CURLOPT_RESOLVE, transfer.resolve.get());
    return true;
  }

  void loop() {
    while (!transfers_.empty()) {
      auto left = remaining(options_.deadline);
      if (left.count() == 0) break;
      int running = 0;
      curl_multi_perform(multi_.get(), &running);
      int queued = 0;
      while (CURLMsg* message = curl_multi_info_read(multi_.get(), &queued)) {
        if (message->msg == CURLMSG_DONE) finish(message->easy_handle, message->data.result);
      }
      if (transfers_.empty()) break;
      int ready = 0;
      curl_multi_poll(multi_.get(), nullptr, 0,
                      static_cast<int>(std::min<long long>(left.count(), 100)), &ready);
    }
    for (auto& transfer : transfers_) {
      curl_multi_remove_handle(multi_.get(), transfer->easy.get());
      fail(transfer->slot, "timed out");
    }
    transfers_.clear();
  }

  void finish(CURL* easy, CURLcode code) {
    Transfer* found = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIVATE, &found);
    auto owner = std::find_if(transfers_.begin(), transfers_.end(),
                              [&](const auto& t) { return t.get() == found; });
    if (owner == transfers_.end()) return;
    std::unique_ptr<Transfer> transfer = std::move(*owner);
    transfers_.erase(owner);
    curl_multi_remove_handle(multi_.get(), easy);
    const std::size_t slot = transfer->slot;
    LoadedResource& result = results_[slot];
    if (code != CURLE_OK) {
      if (transfer->tooLarge || code == CURLE_FILESIZE_EXCEEDED) return fail(slot, "too large");
      if (code == CURLE_OPERATION_TIMEDOUT) return fail(slot, "timed out");
      return fail(slot, curl_easy_strerror(code));
    }
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    char* location = nullptr;
    curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &location);
    if (status >= 300 && status < 400 && location) {
      if (result.redirects >= options_.maxRedirects) return fail(slot, "too many redirects");
      std::optional<URL> next = URL::URLWithString(utf8ToUtf16(location));
      if (!next) return fail(slot, "bad redirect");
      ++result.redirects;
      return startHop(slot, *next);
    }
    if (status < 200 || status >= 300) return fail(slot, "HTTP " + std::to_string(status));
    char* type = nullptr;
    curl_easy_getinfo(easy, CURLINFO_CONTENT_TYPE, &type);
    result.outcome = LoadOutcome::kLoaded;
    result.data = std::move(transfer->body);
    if (type) result.MIMEType = utf8ToUtf16(type);
  }

  const ResourceLoaderOptions& options_;
  std::vector<LoadedResource>& results_;
  std::vector<std::size_t> pending_;
  std::unique_ptr<CURLM, MultiDeleter> multi_;
  std::vector<std::unique_ptr<Transfer>> transfers_;
};

}  // namespace

std::optional<ArchivedResource> decodeDataURL(std::u16string_view url) {
  if (!ascii::startsWithIgnoringCase(url, u"data:")) return std::nullopt;
  std::size_t comma = url.find(u',');
  if (comma == std::u16string_view::npos) return std::nullopt;
  std::u16string_view header = url.substr(5, comma - 5);
  bool base64 = ascii::endsWithIgnoringCase(header, u";base64");
  if (base64) header.remove_suffix(7);
  ArchivedResource resource;
  std::size_t semicolon = header.find(u';');
  std::u16string_view type = header.substr(0, semicolon);
  resource.MIMEType = type.empty() ? u"text/plain" : std::u16string(type);
  Data bytes = percentDecoded(url.substr(comma + 1));
  if (!base64) {
    resource.data = std::move(bytes);
    return resource;
  }
  std::optional<Data> decoded = base64Decoded(bytes);
  if (!decoded) return std::nullopt;
  resource.data = std::move(*decoded);
  return resource;
}

std::vector<LoadedResource> loadResources(std::span<const URL> urls,
                                          const ResourceLoaderOptions& options) {
  // Equal URLs share one load.
  std::vector<LoadedResource> unique;
  std::vector<std::size_t> slotOf;
  std::unordered_map<std::u16string, std::size_t> slots;
  for (const URL& url : urls) {
    auto [it, added] = slots.emplace(url.absoluteString(), unique.size());
    if (added) unique.push_back({url, url});
    slotOf.push_back(it->second);
  }
  Loader(options, unique).run();
  std::vector<LoadedResource> results;
  results.reserve(urls.size());
  for (std::size_t slot : slotOf)
    results.push_back(unique[slot]);
  return results;
}

}  // namespace ferncast
