#include "url/ResourceLoader.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "Classes/Unicode.h"
#include "tests/LocalHttpServer.h"
#include "tests/TestHosts.h"

namespace ferncast {
namespace {

using test_support::LocalHttpServer;
using namespace std::chrono_literals;

URL url(const std::string& string) {
  std::optional<URL> result = URL::URLWithString(utf8ToUtf16(string));
  EXPECT_TRUE(result) << string;
  return result.value_or(*URL::URLWithString(u"about:blank"));
}

std::string text(const Data& data) {
  return std::string(data.begin(), data.end());
}

TEST(DecodeDataURL, Base64AndEscapedText) {
  struct Case {
    const char16_t* url;
    std::optional<std::string> bytes;
    const char16_t* type;
  } cases[] = {
      {u"data:image/png;base64,SGVsbG8=", "Hello", u"image/png"},
      {u"data:image/png;base64,SGVsbG8", "Hello", u"image/png"},  // padding left out
      {u"data:;base64,SGk=", "Hi", u"text/plain"},
      {u"data:text/plain;charset=utf-8,a%20b%2", "a b%2", u"text/plain"},
      {u"data:,", "", u"text/plain"},
      {u"DATA:image/gif;BASE64,R0lG", "GIF", u"image/gif"},
      {u"data:image/png;base64,SGV*bG8=", std::nullopt, u""},  // not base64
      {u"data:image/png;base64,S", std::nullopt, u""},         // one dangling digit
      {u"data:image/png;base64,SG=Vs", std::nullopt, u""},     // data after padding
      {u"data:no-comma", std::nullopt, u""},
      {u"http://x/,", std::nullopt, u""},
  };
  for (const Case& c : cases) {
    std::optional<ArchivedResource> decoded = decodeDataURL(c.url);
    ASSERT_EQ(decoded.has_value(), c.bytes.has_value()) << utf16ToUtf8(c.url);
    if (!decoded) continue;
    EXPECT_EQ(text(decoded->data), *c.bytes) << utf16ToUtf8(c.url);
    EXPECT_EQ(decoded->MIMEType, c.type);
  }
}

// Loads over HTTP from a server of the test's own on 127.0.0.1, with the hook that lets only
// local hosts through, as when remote requests are refused.
class HttpLoads : public ::testing::Test {
 protected:
  HttpLoads()
      : server_({
            {"/image.png", {200, "image/png", "PNGDATA"}},
            {"/missing.png", {404, "text/plain", "no"}},
            {"/large.bin", {200, "application/octet-stream", std::string(5000, 'x')}},
            {"/hang.png", {.hang = true}},
            {"/to-near", {302, "text/plain", "", "http://near.test:{port}/image.png"}},
            {"/to-far", {302, "text/plain", "", "http://far.test:{port}/image.png"}},
            {"/loop", {302, "text/plain", "", "/loop"}},
        }) {
    test_support::addTestHosts(resolver_);
  }

  ResourceLoaderOptions localOnly() {
    ResourceLoaderOptions options;
    options.resolver = &resolver_;
    options.hook = [this](const URL& request, HostResolver& resolver) -> std::optional<URL> {
      asked_.push_back(utf16ToUtf8(request.absoluteString()));
      if (!isLocalURL(request, resolver, kHostLookupTimeout)) return std::nullopt;
      return request;
    };
    return options;
  }

  LoadedResource load(const std::string& address, const ResourceLoaderOptions& options) {
    URL u = url(address);
    return loadResources({&u, 1}, options).at(0);
  }

  HostTableResolver resolver_{nullptr};
  LocalHttpServer server_;
  std::vector<std::string> asked_;
};

TEST_F(HttpLoads, LocalHostsLoadAndRemoteOnesAreRefusedBeforeAnyConnection) {
  ASSERT_NE(server_.port(), 0);
  const std::string port = std::to_string(server_.port());
  struct Case {
    const char* why;
    std::string url;
    LoadOutcome outcome;
    std::string bytesOrError;
    int redirects;
  } cases[] = {
      {"loopback address", server_.url("/image.png"), LoadOutcome::kLoaded, "PNGDATA", 0},
      {"a name of the test's hosts resolving to loopback, connected to as resolved",
       "http://near.test:" + port + "/image.png", LoadOutcome::kLoaded, "PNGDATA", 0},
      {"a name resolving to a TEST-NET address", "http://far.test:" + port + "/image.png",
       LoadOutcome::kRefused, "", 0},
      {"a name that does not resolve", "http://unknown.test:" + port + "/image.png",
       LoadOutcome::kRefused, "", 0},
      {"a redirect from local to local", server_.url("/to-near"), LoadOutcome::kLoaded, "PNGDATA",
       1},
      {"a redirect from local to a refused address", server_.url("/to-far"), LoadOutcome::kRefused,
       "", 1},
      {"a server error", server_.url("/missing.png"), LoadOutcome::kFailed, "HTTP 404", 0},
      {"a redirect loop", server_.url("/loop"), LoadOutcome::kFailed, "too many redirects", 10},
  };
  for (const Case& c : cases) {
    LoadedResource result = load(c.url, localOnly());
    EXPECT_EQ(result.outcome, c.outcome) << c.why;
    EXPECT_EQ(result.outcome == LoadOutcome::kLoaded ? text(result.data) : result.error,
              c.bytesOrError)
        << c.why;
    EXPECT_EQ(result.redirects, c.redirects) << c.why;
  }
}

TEST_F(HttpLoads, EveryRedirectHopIsAskedAgain) {
  LoadedResource result = load(server_.url("/to-far"), localOnly());
  ASSERT_EQ(asked_.size(), 2u);
  EXPECT_EQ(asked_[0], server_.url("/to-far"));
  EXPECT_EQ(asked_[1], "http://far.test:" + std::to_string(server_.port()) + "/image.png");
  EXPECT_EQ(utf16ToUtf8(result.finalURL.absoluteString()), asked_[1]);
}

TEST_F(HttpLoads, WithoutHookEveryRequestGoesAhead) {
  ResourceLoaderOptions options;
  options.resolver = &resolver_;
  EXPECT_EQ(load(server_.url("/image.png"), options).outcome, LoadOutcome::kLoaded);
  EXPECT_TRUE(asked_.empty());
}

TEST_F(HttpLoads, OversizedResourcesFail) {
  ResourceLoaderOptions options = localOnly();
  options.maxResourceBytes = 1000;
  LoadedResource result = load(server_.url("/large.bin"), options);
  EXPECT_EQ(result.outcome, LoadOutcome::kFailed);
  EXPECT_EQ(result.error, "too large");
}

TEST_F(HttpLoads, ServerThatNeverAnswersEndsAtTheDeadlineWithTheOtherLoadsDone) {
  ResourceLoaderOptions options = localOnly();
  options.deadline = std::chrono::steady_clock::now() + 300ms;
  std::vector<URL> urls = {url(server_.url("/hang.png")), url(server_.url("/image.png"))};
  auto started = std::chrono::steady_clock::now();
  std::vector<LoadedResource> results = loadResources(urls, options);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
  EXPECT_EQ(results[0].outcome, LoadOutcome::kFailed);
  EXPECT_EQ(results[0].error, "timed out");
  EXPECT_EQ(results[1].outcome, LoadOutcome::kLoaded);
}

TEST_F(HttpLoads, EqualURLsAreLoadedOnce) {
  std::vector<URL> urls(3, url(server_.url("/image.png")));
  std::vector<LoadedResource> results = loadResources(urls, localOnly());
  ASSERT_EQ(results.size(), 3u);
  for (const LoadedResource& result : results)
    EXPECT_EQ(text(result.data), "PNGDATA");
  EXPECT_EQ(server_.requests().size(), 1u);
}

TEST(ResourceLoads, FilesAndArchives) {
  char directory[] = "/tmp/ferncast-loader-XXXXXX";
  ASSERT_TRUE(mkdtemp(directory));
  std::string file = std::string(directory) + "/a.png";
  FILE* f = fopen(file.c_str(), "w");
  fputs("FILEDATA", f);
  fclose(f);
  std::vector<URL> urls = {url("file://" + file), url("file://" + file + ".missing"),
                           url(std::string("file://") + directory), url("ftp://x/a.png")};
  std::vector<LoadedResource> results = loadResources(urls, {});
  EXPECT_EQ(text(results[0].data), "FILEDATA");
  EXPECT_EQ(results[1].outcome, LoadOutcome::kFailed);
  EXPECT_EQ(results[2].error, "not a file");
  EXPECT_EQ(results[3].error, "unsupported scheme");

  // A saved page's resources come from its archive alone.
  std::unordered_map<std::u16string, ArchivedResource> archive = {
      {u"http://far.test/a.png", {{'A'}, u"image/png"}}};
  ResourceLoaderOptions options;
  options.archive = &archive;
  urls = {url("http://far.test/a.png"), url("file://" + file)};
  results = loadResources(urls, options);
  EXPECT_EQ(text(results[0].data), "A");
  EXPECT_EQ(results[0].MIMEType, u"image/png");
  EXPECT_EQ(results[1].outcome, LoadOutcome::kFailed);
  unlink(file.c_str());
  rmdir(directory);
}

}  // namespace
}  // namespace ferncast
