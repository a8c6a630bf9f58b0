#include "markup/WebArchive.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Classes/Unicode.h"
#include "markup/WebArchive+SearchableText.h"
#include "markup/WebArchive+WebKitAdditions.h"
#include "markup/WebResource+WebKitAdditions.h"
#include "tests/Corpus.h"

namespace ferncast {
namespace {

const std::string kCorpus = corpus::folder("webarchive/").string();

Data bytesOf(std::string_view text) {
  return Data(text.begin(), text.end());
}

Dictionary resource(std::u16string url, std::u16string mime, std::string_view data,
                    std::u16string encoding = u"UTF-8") {
  Dictionary d{{u"WebResourceURL", Value(std::move(url))},
               {u"WebResourceData", Value(bytesOf(data))}};
  if (!mime.empty()) d[u"WebResourceMIMEType"] = Value(std::move(mime));
  if (!encoding.empty()) d[u"WebResourceTextEncodingName"] = Value(std::move(encoding));
  return d;
}

Dictionary archiveOf(Dictionary main, Array subresources = {}, Array subframes = {}) {
  Dictionary root{{u"WebMainResource", Value(std::move(main))}};
  if (!subresources.empty()) root[u"WebSubresources"] = Value(std::move(subresources));
  if (!subframes.empty()) root[u"WebSubframeArchives"] = Value(std::move(subframes));
  return root;
}

std::optional<WebArchive> read(const Value& plist) {
  std::vector<std::uint8_t> bytes = binaryPropertyList(plist);
  return WebArchive::fromData(bytes.data(), bytes.size());
}

std::optional<WebArchive> readCorpus(const std::string& name) {
  return WebArchive::fromFile(utf8ToUtf16(kCorpus + name));
}

#define SKIP_WITHOUT_CORPUS() \
  if (!std::filesystem::exists(kCorpus)) GTEST_SKIP() << "no shared corpus at " << kCorpus

// --- Reading the format -------------------------------------------------------------------------

TEST(WebArchiveReading, KeepsEveryFieldOfMainResourceSubresourcesAndSubframes) {
  Dictionary main = resource(u"http://a/", u"text/html", "<p>a</p>");
  main[u"WebResourceFrameName"] = Value(u"");
  Dictionary image = resource(u"http://a/i.png", u"image/png", "\x89PNG", u"");
  image[u"WebResourceResponse"] = Value(Data{1, 2});
  Dictionary frame = resource(u"http://a/f.html", u"text/html", "<p>f</p>", u"ISO-8859-1");
  frame[u"WebResourceFrameName"] = Value(u"left");
  auto archive = read(Value(archiveOf(main, {Value(image)}, {Value(archiveOf(frame))})));
  ASSERT_TRUE(archive);
  EXPECT_EQ(archive->mainResource().URL, u"http://a/");
  EXPECT_EQ(archive->mainResource().MIMEType, u"text/html");
  EXPECT_EQ(archive->mainResource().textEncodingName, u"UTF-8");
  EXPECT_EQ(archive->mainResource().data, bytesOf("<p>a</p>"));
  ASSERT_EQ(archive->subresources().size(), 1u);
  EXPECT_EQ(archive->subresources()[0].MIMEType, u"image/png");
  EXPECT_EQ(archive->subresources()[0].textEncodingName, u"");
  ASSERT_EQ(archive->subframeArchives().size(), 1u);
  const WebResource& frameMain = archive->subframeArchives()[0].mainResource();
  EXPECT_EQ(frameMain.frameName, u"left");
  EXPECT_EQ(frameMain.textEncodingName, u"ISO-8859-1");
}

// Archives WebKit refuses must give nullopt, never a half-read archive.
TEST(WebArchiveReading, RefusesArchivesThatBreakTheFormat) {
  Dictionary good = resource(u"http://a/", u"text/html", "x");
  Dictionary noMime = resource(u"http://a/", u"", "x");
  Dictionary noData = good;
  noData.erase(u"WebResourceData");
  Dictionary noURL = good;
  noURL.erase(u"WebResourceURL");
  Dictionary urlNotString = good;
  urlNotString[u"WebResourceURL"] = Value(3);
  Dictionary dataNotData = good;
  dataNotData[u"WebResourceData"] = Value(u"x");
  Dictionary mimeNotString = good;
  mimeNotString[u"WebResourceMIMEType"] = Value(Data{});
  Dictionary responseNotData = good;
  responseNotData[u"WebResourceResponse"] = Value(u"r");
  Dictionary subresourcesNotArray = archiveOf(good);
  subresourcesNotArray[u"WebSubresources"] = Value(good);
  Dictionary subframesNotArray = archiveOf(good);
  subframesNotArray[u"WebSubframeArchives"] = Value(u"x");
  struct Case {
    const char* fault;
    Value plist;
  } cases[] = {
      {"root is no dictionary", Value(Array{Value(archiveOf(good))})},
      {"no main resource", Value(Dictionary{{u"WebSubresources", Value(Array{Value(good)})}})},
      {"main resource is no dictionary", Value(Dictionary{{u"WebMainResource", Value(u"x")}})},
      {"main resource without MIME type", Value(archiveOf(noMime))},
      {"main resource without data", Value(archiveOf(noData))},
      {"main resource without URL", Value(archiveOf(noURL))},
      {"URL is no string", Value(archiveOf(urlNotString))},
      {"data is no data", Value(archiveOf(dataNotData))},
      {"MIME type is no string", Value(archiveOf(mimeNotString))},
      {"response is no data", Value(archiveOf(responseNotData))},
      {"subresources are no array", Value(subresourcesNotArray)},
      {"a subresource is no dictionary", Value(archiveOf(good, {Value(good), Value(u"x")}))},
      {"subframes are no array", Value(subframesNotArray)},
  };
  for (const Case& c : cases)
    EXPECT_FALSE(read(c.plist)) << c.fault;
}

TEST(WebArchiveReading, LeavesOutInvalidSubresourcesAndSubframesOnly) {
  Dictionary good = resource(u"http://a/", u"text/html", "x");
  Dictionary noURL = resource(u"http://a/b", u"image/png", "x");
  noURL.erase(u"WebResourceURL");
  Dictionary noMime = resource(u"http://a/c", u"", "x");
  auto archive = read(Value(
      archiveOf(good, {Value(noURL), Value(noMime)},
                {Value(archiveOf(noMime)), Value(u"not an archive"), Value(archiveOf(good))})));
  ASSERT_TRUE(archive);
  // A subresource may lack a MIME type; a subframe's main resource may not.
  ASSERT_EQ(archive->subresources().size(), 1u);
  EXPECT_EQ(archive->subresources()[0].URL, u"http://a/c");
  EXPECT_EQ(archive->subframeArchives().size(), 1u);
}

TEST(WebArchiveReading, RefusesBytesThatAreNoPropertyList) {
  // The last one is {"a\0b": 1}: a key with a NUL, which must be refused, not abort.
  const std::string inputs[] = {
      "", "bplist00", "<html>not a plist</html>", std::string("bplist00\0\0\0\xff\xff\xff", 14),
      std::string("bplist00\xd1\x01\x02\x53\x61\x00\x62\x10\x01\x08\x0b\x0f\0\0\0\0\0\0\x01"
                  "\x01\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x11",
                  52)};
  for (const std::string& input : inputs) {
    EXPECT_FALSE(
        WebArchive::fromData(reinterpret_cast<const std::uint8_t*>(input.data()), input.size()))
        << input;
  }
  EXPECT_FALSE(WebArchive::fromData(nullptr, 0));
  EXPECT_FALSE(WebArchive::fromFile(u"/nonexistent/page.webarchive"));
  EXPECT_FALSE(WebArchive::fromFile(u""));
}

TEST(WebArchiveReading, AcceptsXmlPropertyLists) {
  std::string xml = xmlPropertyList(Value(archiveOf(resource(u"http://a/", u"text/html", "x"))));
  auto archive =
      WebArchive::fromData(reinterpret_cast<const std::uint8_t*>(xml.data()), xml.size());
  ASSERT_TRUE(archive);
  EXPECT_EQ(archive->mainResource().URL, u"http://a/");
}

// --- Real archives written by Safari ----------------------------------------------------------

struct ExpectedResource {
  std::u16string URL;
  std::u16string frameName;
  std::size_t bytes;
  std::size_t subresources;
};

void expectMain(const WebArchive& archive, const ExpectedResource& expected) {
  const WebResource& main = archive.mainResource();
  EXPECT_EQ(main.URL, expected.URL);
  EXPECT_EQ(main.MIMEType, u"text/html");
  EXPECT_EQ(main.textEncodingName, u"UTF-8");
  EXPECT_EQ(main.frameName, expected.frameName);
  EXPECT_EQ(main.data.size(), expected.bytes);
  EXPECT_EQ(archive.subresources().size(), expected.subresources);
}

TEST(WebArchiveCorpus, ReadsEveryArchiveWithItsResourcesAndFrames) {
  SKIP_WITHOUT_CORPUS();
  auto wikipedia = readCorpus("Wikipedia.webarchive");
  ASSERT_TRUE(wikipedia);
  expectMain(*wikipedia, {u"https://en.wikipedia.org/wiki/Main_Page", u"", 128606, 25});
  EXPECT_TRUE(wikipedia->subframeArchives().empty());

  auto crouton = readCorpus("crouton.webarchive");
  ASSERT_TRUE(crouton);
  expectMain(*crouton, {u"https://crouton.net/", u"", 134, 1});

  auto psx = readCorpus("psxdatacenter.webarchive");
  ASSERT_TRUE(psx);
  expectMain(*psx, {u"http://psxdatacenter.com/ntsc-j_list.html", u"", 2171, 0});
  const ExpectedResource frames[] = {
      {u"http://psxdatacenter.com/banner.html", u"<!--frame1-->", 782, 2},
      {u"http://psxdatacenter.com/nav.html", u"<!--frame2-->", 12524, 16},
      {u"http://psxdatacenter.com/jbanner.html", u"jbanner", 20324, 29},
      {u"http://psxdatacenter.com/jlist.html", u"jlist", 1929687, 0},
  };
  ASSERT_EQ(psx->subframeArchives().size(), std::size(frames));
  for (std::size_t i = 0; i < std::size(frames); ++i) {
    SCOPED_TRACE(i);
    expectMain(psx->subframeArchives()[i], frames[i]);
    EXPECT_TRUE(psx->subframeArchives()[i].subframeArchives().empty());
  }
}

std::string fileContents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(WebArchiveCorpus, ResourceBytesAreTheSavedFilesByteForByte) {
  SKIP_WITHOUT_CORPUS();
  auto crouton = readCorpus("crouton.webarchive");
  ASSERT_TRUE(crouton);
  EXPECT_EQ(crouton->mainResource().data,
            bytesOf(fileContents(kCorpus + "crouton-expected/_unnamed_index.shtml")));
  ASSERT_EQ(crouton->subresources().size(), 1u);
  EXPECT_EQ(crouton->subresources()[0].data,
            bytesOf(fileContents(kCorpus + "crouton-expected/crouton.png")));
}

TEST(WebArchiveCorpus, SearchableTextHasEachFramesTextAfterTheMainPage) {
  SKIP_WITHOUT_CORPUS();
  std::optional<std::u16string> url, source;
  auto text =
      searchableTextOfFile(utf8ToUtf16(kCorpus + "psxdatacenter.webarchive"), &url, &source);
  ASSERT_TRUE(text);
  EXPECT_EQ(*url, u"http://psxdatacenter.com/ntsc-j_list.html");
  ASSERT_TRUE(source);
  EXPECT_NE(source->find(u"<frameset"), std::u16string::npos);
  EXPECT_EQ(text->substr(0, 2), u"\n\n");
  EXPECT_EQ(text->find(u'<'), std::u16string::npos) << "markup leaked into the text";
  // The game list frame is the last one; its titles come after the navigation frame's text.
  std::size_t nav = text->find(u"NTSC-J");
  std::size_t game = text->rfind(u"SLPS");
  ASSERT_NE(nav, std::u16string::npos);
  ASSERT_NE(game, std::u16string::npos);
  EXPECT_LT(nav, game);

  auto wikipedia = searchableTextOfFile(utf8ToUtf16(kCorpus + "Wikipedia.webarchive"));
  ASSERT_TRUE(wikipedia);
  EXPECT_NE(wikipedia->find(u"Wikipedia"), std::u16string::npos);
  EXPECT_EQ(wikipedia->find(u"<div"), std::u16string::npos);
}

// --- Categories -------------------------------------------------------------------------------

TEST(WebArchiveFiles, RecognisesTheExtensionInAnyCase) {
  struct {
    std::u16string_view path;
    bool isArchive;
  } cases[] = {
      {u"page.webarchive", true},  {u"page.WebArchive", true},     {u"/a/b.WEBARCHIVE", true},
      {u"/a/b.webarchive/", true}, {u"page.webarchive.gz", false}, {u"webarchive", false},
      {u"/a/.webarchive", false},  {u"/a.webarchive/b", false},    {u"", false},
      {u"page.webarchiv", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(isWebArchiveFile(c.path), c.isArchive) << utf16ToUtf8(c.path);
  }
  for (const std::u16string& type : webArchiveFileTypes())
    EXPECT_TRUE(isWebArchiveExtension(type));
  EXPECT_FALSE(isWebArchiveExtension(u""));
}

WebArchive framedArchive() {
  Dictionary main =
      resource(u"http://a/", u"text/html", "<html><body><p>Main page</p></body></html>");
  Dictionary left = resource(u"http://a/left", u"text/html", "<body>Left frame</body>");
  Dictionary inner =
      resource(u"http://a/inner", u"application/xhtml+xml", "<body>Inner frame</body>");
  Dictionary right = resource(u"http://a/right", u"text/html", "<body>Right frame</body>");
  Dictionary image = resource(u"http://a/i.png", u"image/png", "\x89PNG", u"");
  Dictionary frameImage = resource(u"http://a/f.png", u"image/png", "\x89PNG", u"");
  Value plist(archiveOf(main, {Value(image)},
                        {Value(archiveOf(left, {Value(frameImage)}, {Value(archiveOf(inner))})),
                         Value(archiveOf(right))}));
  return *read(plist);
}

TEST(WebArchiveLookup, FindsResourcesAndArchivesDepthFirst) {
  WebArchive archive = framedArchive();
  EXPECT_EQ(subresourceForURL(archive, u"http://a/"), &archive.mainResource());
  EXPECT_EQ(subresourceForURL(archive, u"http://a/i.png"), &archive.subresources()[0]);
  const WebArchive& left = archive.subframeArchives()[0];
  EXPECT_EQ(subresourceForURL(archive, u"http://a/f.png"), &left.subresources()[0]);
  EXPECT_EQ(subresourceForURL(archive, u"http://a/inner"),
            &left.subframeArchives()[0].mainResource());
  EXPECT_EQ(subresourceForURL(archive, u"http://a/missing"), nullptr);

  EXPECT_EQ(subArchiveForURL(archive, u"http://a/"), &archive);
  EXPECT_EQ(subArchiveForURL(archive, u"http://a/inner"), &left.subframeArchives()[0]);
  EXPECT_EQ(subArchiveForURL(archive, u"http://a/right"), &archive.subframeArchives()[1]);
  // A subresource is no archive.
  EXPECT_EQ(subArchiveForURL(archive, u"http://a/i.png"), nullptr);
  EXPECT_EQ(baseURL(archive), u"http://a/");
}

TEST(WebArchiveText, FramesFollowTheMainPageEachAfterTwoLineFeeds) {
  std::optional<std::u16string> source;
  std::u16string text = searchableTextAndSource(framedArchive(), &source);
  EXPECT_EQ(text, u"\n\nMain page\n\nLeft frame\n\nInner frame\n\nRight frame");
  EXPECT_EQ(source, u"<html><body><p>Main page</p></body></html>");

  std::u16string appended = u"before";
  appendSearchableTextTo(framedArchive(), appended);
  EXPECT_EQ(appended, u"before" + text);
}

TEST(WebArchiveText, ResourcesThatAreNoMarkupHaveNoSourceAndNoText) {
  auto image = read(Value(archiveOf(resource(u"http://a/i.png", u"image/png", "<p>not text</p>"))));
  ASSERT_TRUE(image);
  EXPECT_EQ(documentSource(*image), std::nullopt);
  EXPECT_EQ(searchableText(*image), u"");

  struct {
    std::u16string mime;
    bool markup;
  } cases[] = {
      {u"text/html", true},           {u"text/plain", true},
      {u"TEXT/HTML", true},           {u"application/xhtml+xml", true},
      {u"application/rss+xml", true}, {u"application/atom+xml", true},
      {u"application/rdf+xml", true}, {u"application/x-rss", true},
      {u"application/RSS", false},    {u"application/json", false},
      {u"image/svg+xml", false},      {u"texts/html", false},
  };
  for (const auto& c : cases) {
    WebResource r{bytesOf("<b>x</b>"), u"http://a/", c.mime, u"", u""};
    EXPECT_EQ(documentSource(r).has_value(), c.markup) << utf16ToUtf8(c.mime);
  }
}

TEST(WebArchiveText, DecodesByTheResourcesEncodingNameWithLatin1AsDefault) {
  WebResource utf8{bytesOf("<body>caf\xc3\xa9</body>"), u"http://a/", u"text/html", u"UTF-8", u""};
  EXPECT_EQ(documentSource(utf8), u"<body>café</body>");
  WebResource unnamed{bytesOf("<body>caf\xe9</body>"), u"http://a/", u"text/html", u"", u""};
  EXPECT_EQ(documentSource(unnamed), u"<body>café</body>");
}

TEST(WebArchiveFiles, FileEntryPointsAnswerForTheArchiveAndResetOutArguments) {
  std::filesystem::path path = std::filesystem::path(testing::TempDir()) / "framed.webarchive";
  Value plist(archiveOf(resource(u"http://a/", u"text/html", "<body>Hello</body>")));
  std::vector<std::uint8_t> bytes = binaryPropertyList(plist);
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  std::u16string file = utf8ToUtf16(path.string());
  std::optional<std::u16string> url, source;
  EXPECT_EQ(searchableTextOfFile(file, &url, &source), u"\n\nHello");
  EXPECT_EQ(url, u"http://a/");
  EXPECT_EQ(source, u"<body>Hello</body>");
  EXPECT_EQ(searchableTextOfFile(file), u"\n\nHello");
  url.reset();
  EXPECT_EQ(documentSourceOfFile(file, &url), u"<body>Hello</body>");
  EXPECT_EQ(url, u"http://a/");

  for (std::u16string_view bad : {u"", u"/nonexistent/x.webarchive"}) {
    EXPECT_EQ(searchableTextOfFile(bad, &url, &source), std::nullopt);
    EXPECT_EQ(url, std::nullopt);
    EXPECT_EQ(source, std::nullopt);
    url = u"stale";
    EXPECT_EQ(documentSourceOfFile(bad, &url), std::nullopt);
    EXPECT_EQ(url, std::nullopt);
  }
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace ferncast
