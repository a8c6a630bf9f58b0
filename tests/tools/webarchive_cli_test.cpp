// "ferncast webarchive" run as a user runs it: text, source, URL and info of archives.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "Classes/PropertyList.h"
#include "tests/tools/RunFerncast.h"

namespace {

namespace fs = std::filesystem;
using ferncast::Array;
using ferncast::Data;
using ferncast::Dictionary;
using ferncast::Value;
using ferncast::cli_test::Outcome;

Value resource(std::u16string url, std::u16string mime, std::string data,
               std::u16string frame = u"") {
  return Dictionary{{u"WebResourceURL", Value(std::move(url))},
                    {u"WebResourceMIMEType", Value(std::move(mime))},
                    {u"WebResourceFrameName", Value(std::move(frame))},
                    {u"WebResourceTextEncodingName", Value(u"UTF-8")},
                    {u"WebResourceData", Value(Data(data.begin(), data.end()))}};
}

class WebArchiveCommand : public ferncast::cli_test::FerncastTest {
 protected:
  std::string writeArchive(const std::string& name, const Value& plist) const {
    std::vector<std::uint8_t> bytes = ferncast::binaryPropertyList(plist);
    return write(name, std::string(bytes.begin(), bytes.end()));
  }
  Outcome webarchive(const std::string& arguments) const { return run("webarchive " + arguments); }
};

TEST_F(WebArchiveCommand, AnswersTextSourceURLAndInfoOfAFramedArchive) {
  Value frame = Dictionary{
      {u"WebMainResource", resource(u"http://a/f", u"text/html", "<body>Frame</body>", u"left")}};
  const std::string file = writeArchive(
      "framed.webarchive",
      Dictionary{{u"WebMainResource", resource(u"http://a/", u"text/html", "<p>Main</p>")},
                 {u"WebSubresources", Array{resource(u"http://a/i.png", u"image/png", "PNG")}},
                 {u"WebSubframeArchives", Array{frame}}});
  struct {
    std::string verb, out;
  } cases[] = {
      {"text", "\n\nMain\n\nFrame"},
      {"source", "<p>Main</p>"},
      {"url", "http://a/\n"},
      {"info",
       "{\"mainResource\":{\"MIMEType\":\"text/html\",\"URL\":\"http://a/\",\"frameName\":\"\","
       "\"length\":11,\"textEncodingName\":\"UTF-8\"},\"subframeArchives\":[{\"mainResource\":{"
       "\"MIMEType\":\"text/html\",\"URL\":\"http://a/f\",\"frameName\":\"left\",\"length\":18,"
       "\"textEncodingName\":\"UTF-8\"},\"subframeArchives\":[],\"subresources\":[]}],"
       "\"subresources\":[{\"MIMEType\":\"image/png\",\"URL\":\"http://a/i.png\",\"frameName\":"
       "\"\",\"length\":3,\"textEncodingName\":\"UTF-8\"}]}\n"},
  };
  for (const auto& c : cases) {
    Outcome run = webarchive(c.verb + " " + file);
    EXPECT_EQ(run.status, 0) << c.verb << run.err;
    EXPECT_EQ(run.out, c.out) << c.verb;
  }
}

TEST_F(WebArchiveCommand, NoArchiveIsANegativeAnswerAndAMissingFileAUsageError) {
  const std::string page = write("page.html", "<p>not an archive</p>");
  const std::string image = writeArchive(
      "image.webarchive",
      Dictionary{{u"WebMainResource", resource(u"http://a/i", u"image/png", "<p>bytes</p>")}});
  for (const char* verb : {"text", "source", "url", "info"}) {
    Outcome run = webarchive(std::string(verb) + " " + page);
    EXPECT_EQ(run.status, 1) << verb;
    EXPECT_TRUE(run.out.empty()) << verb;
    EXPECT_NE(run.err.find("no web archive"), std::string::npos) << verb;
    EXPECT_EQ(webarchive(std::string(verb) + " " + (directory_ / "missing").string()).status, 2)
        << verb;
  }
  EXPECT_EQ(webarchive("source " + image).status, 1);
  Outcome text = webarchive("text " + image);
  EXPECT_EQ(text.status, 0);
  EXPECT_EQ(text.out, "");
}

}  // namespace
