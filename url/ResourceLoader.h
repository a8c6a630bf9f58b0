// Loading the resources of a page (images, style sheets) for the HTML reader: "file:" URLs from
// disk, "data:" URLs decoded, "http:" and "https:" through libcurl, all HTTP loads of one call in
// parallel, or, for a saved page, only from the archive's resources.
//
// Every HTTP request and every redirect hop is first shown to the hook, which lets it go ahead
// (possibly changed) or refuses it; a redirect is judged by its new URL alone. The host of an
// allowed request is looked up once with the options' resolver, and libcurl connects only to the
// addresses so found, so that what the hook judged is what gets loaded. No proxy is used.
//
// The whole call ends at the deadline: loads still running then fail with "timed out". A failed
// or refused load gives no data; the caller falls back (an image's alternative text).
//
// Threads: a call works on the calling thread and keeps no state; any thread may call.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "Classes/PropertyList.h"
#include "url/NSURL+Internet.h"
#include "url/URL.h"

namespace ferncast {

// The hook asked before each HTTP request and redirect hop: the URL to load (usually `request`
// itself), or nullopt to refuse. `resolver` is the one whose addresses the load will use.
using ResourceLoadHook =
    std::function<std::optional<URL>(const URL& request, HostResolver& resolver)>;

// A resource of a saved page.
struct ArchivedResource {
  Data data;
  std::u16string MIMEType;
};

struct ResourceLoaderOptions {
  // Empty: every request goes ahead.
  ResourceLoadHook hook;
  // Looks up the hosts of HTTP loads; never null.
  HostResolver* resolver = &systemHostResolver();
  std::chrono::steady_clock::time_point deadline =
      std::chrono::steady_clock::now() + std::chrono::seconds(15);
  // When set, resources come from here alone, by absolute URL string: nothing is read from disk
  // or the network and the hook is not asked. Must outlive the call.
  const std::unordered_map<std::u16string, ArchivedResource>* archive = nullptr;
  // Larger resources fail ("too large").
  std::size_t maxResourceBytes = 32u << 20;
  int maxRedirects = 10;
  // HTTP loads at once.
  int maxConnections = 8;
};

enum class LoadOutcome { kLoaded, kRefused, kFailed };

struct LoadedResource {
  URL url;       // as asked for
  URL finalURL;  // the last hop: loaded from, refused or failed
  LoadOutcome outcome = LoadOutcome::kFailed;
  Data data;                // kLoaded only
  std::u16string MIMEType;  // as the server, data URL or archive says; may be empty
  std::string error;        // kFailed: why, in a few words ("HTTP 404", "timed out")
  int redirects = 0;
};

// Loads each of `urls` (no duplicates needed: equal URLs are loaded once and answered alike),
// returning one result per URL in the same order.
std::vector<LoadedResource> loadResources(std::span<const URL> urls,
                                          const ResourceLoaderOptions& options);

// The bytes and media type of a "data:" URL ("data:image/png;base64,..." or percent-escaped
// text); nullopt when the URL is not one or its base64 is broken. The media type defaults to
// "text/plain".
std::optional<ArchivedResource> decodeDataURL(std::u16string_view url);

}  // namespace ferncast
