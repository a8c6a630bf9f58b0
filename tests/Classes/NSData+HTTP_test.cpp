#include "Classes/NSData+HTTP.h"

#include <gtest/gtest.h>

#include <string>

#include "Classes/Json.h"

namespace ferncast {
namespace {

Data bytesOf(std::string_view text) {
  return Data(text.begin(), text.end());
}

std::string json(const std::optional<Dictionary>& fields) {
  return fields ? toJson(*fields) : "nil";
}

std::string part(std::string_view disposition, std::string_view content,
                 std::string_view extraHeaders = "") {
  return "Content-Disposition: form-data;" + std::string(disposition) + "\r\n" +
         std::string(extraHeaders) + "\r\n" + std::string(content) + "\r\n";
}

// A body as a browser sends it: each part after "--boundary\r\n", then "--boundary--\r\n".
std::string body(std::initializer_list<std::string> parts, std::string_view boundary = "B0UND") {
  std::string text;
  for (const std::string& p : parts)
    text += "--" + std::string(boundary) + "\r\n" + p;
  return text + "--" + std::string(boundary) + "--\r\n";
}

TEST(FormData, ReadsABrowserBody) {
  // As Chrome sends a form with a text field, an empty field and a file.
  const std::string boundary = "----WebKitFormBoundary7MA4YWxkTrZu0gW";
  std::string binary;
  for (int i = 0; i < 256; ++i)
    binary += static_cast<char>(i);
  binary += "\r\n\r\n--not-the-boundary\r\n";
  const std::string text =
      body({part(" name=\"title\"", "Hello, world"), part(" name=\"empty\"", ""),
            part(" name=\"upload\"; filename=\"caf\xC3\xA9.bin\"", binary,
                 "Content-Type: application/octet-stream\r\n")},
           boundary);
  auto fields = formDataUsingBoundary(bytesOf(text), u"----WebKitFormBoundary7MA4YWxkTrZu0gW");
  ASSERT_TRUE(fields);
  ASSERT_EQ(fields->size(), 4u);
  EXPECT_EQ(fields->at(u"title"), Value(bytesOf("Hello, world")));
  EXPECT_EQ(fields->at(u"empty"), Value(Data{}));
  EXPECT_EQ(fields->at(u"upload"), Value(bytesOf(binary)));
  EXPECT_EQ(fields->at(u"upload_filename"), Value(u"caf\u00E9.bin"));
}

TEST(FormData, BodiesWithADefectGiveNil) {
  const std::string good = body({part(" name=\"a\"", "1")});
  const std::string cases[] = {
      "",
      // The last line must be "--" and a line break.
      good.substr(0, good.size() - 2),
      good.substr(0, good.size() - 4) + "\r\n",
      good.substr(0, good.size() - 2) + "\n",
      good.substr(0, good.size() - 4) + "--\n\r",
      good + "epilogue",
      good + "\r\n",
      // Not longer than the delimiter plus four bytes.
      "--B0UND--\r\n",
  };
  for (const std::string& text : cases)
    EXPECT_EQ(json(formDataUsingBoundary(bytesOf(text), u"B0UND")), "nil") << text;
  EXPECT_EQ(json(formDataUsingBoundary(bytesOf("x--B0UND--\r\n"), u"B0UND")), "{}");
}

TEST(FormData, MalformedPartsArePassedOver) {
  const struct {
    std::string part;
    const char* why;
  } cases[] = {
      {"content-disposition: form-data; name=\"a\"\r\n\r\nv\r\n", "prefix is case-sensitive"},
      {"Content-Disposition: attachment; name=\"a\"\r\n\r\nv\r\n", "not form-data"},
      {"Content-Type: text/plain\r\n" + part(" name=\"a\"", "v"), "disposition not first"},
      {"Content-Disposition: form-data; name=\"a\"\r\nv\r\n", "no blank line"},
      {"Content-Disposition: form-data; name=\"a\"\r\n\r\n", "blank line is the closing break"},
      {"Content-Disposition: form-data; name=\"a\"\r\n\r\nv", "no closing line break"},
      {"Content-Disposition: form-data;", "disposition prefix only"},
      {"Content-Disposition: form-data; name=\"\xC3\x28\"\r\n\r\nv\r\n", "header not UTF-8"},
  };
  for (const auto& c : cases) {
    const std::string text = body({c.part, part(" name=\"ok\"", "fine")});
    EXPECT_EQ(json(formDataUsingBoundary(bytesOf(text), u"B0UND")), R"({"ok":{"data":"ZmluZQ=="}})")
        << c.why;
  }
}

TEST(FormData, ReadsNamesAndFileNamesAsWholeParameters) {
  const std::pair<std::string, const char*> cases[] = {
      // A file name without a name yields only the "_filename" key.
      {part(" filename=\"only.txt\"", "x"), R"({"_filename":"only.txt"})"},
      {part(" filename=\"a.txt\"; name=\"f\"", "x"),
       R"({"f":{"data":"eA=="},"f_filename":"a.txt"})"},
      {part(" name=\"f\"; filename=\"a.txt\"", "x"),
       R"({"f":{"data":"eA=="},"f_filename":"a.txt"})"},
      {part(" filename=\"name=evil\"", "x"), R"({"_filename":"name=evil"})"},
      // Extra blanks (and a tab) after "form-data;" are skipped.
      {part("    name=\"spaced\"", "x"), R"({"spaced":{"data":"eA=="}})"},
      {part("\t name=\"tab\"", "x"), R"({"tab":{"data":"eA=="}})"},
      {part("name=\"tight\"", "x"), R"({"tight":{"data":"eA=="}})"},
      // Names are matched in any case; an empty quoted name is no name.
      {part(" NAME=\"upper\"", "x"), R"({"upper":{"data":"eA=="}})"},
      {part(" name=\"\"", "x"), "{}"},
      // The content keeps inner line breaks and blank lines.
      {part(" name=\"t\"", "a\r\n\r\nb"), R"({"t":{"data":"YQ0KDQpi"}})"},
      {part(" name=\"caf\xC3\xA9\"", "x"), R"({"café":{"data":"eA=="}})"},
  };
  for (const auto& [p, expected] : cases)
    EXPECT_EQ(json(formDataUsingBoundary(bytesOf(body({p})), u"B0UND")), expected) << p;
}

TEST(FormData, ALaterFieldReplacesAnEarlierOne) {
  const std::string text = body({part(" name=\"a\"; filename=\"1\"", "first"),
                                 part(" name=\"a\"; filename=\"2\"", "second")});
  EXPECT_EQ(json(formDataUsingBoundary(bytesOf(text), u"B0UND")),
            R"({"a":{"data":"c2Vjb25k"},"a_filename":"2"})");
}

TEST(FormData, DelimitersAndLineBreaks) {
  // No line break after a delimiter: the part starts right there.
  EXPECT_EQ(json(formDataUsingBoundary(
                bytesOf("--B0UND" + part(" name=\"a\"", "1") + "--B0UND--\r\n"), u"B0UND")),
            R"({"a":{"data":"MQ=="}})");
  // A bare line feed after the delimiter spoils the part.
  EXPECT_EQ(json(formDataUsingBoundary(
                bytesOf("--B0UND\n" + part(" name=\"a\"", "1") + "--B0UND--\r\n"), u"B0UND")),
            "{}");
  // A preamble before the first delimiter is passed over; a body without the delimiter is empty.
  EXPECT_EQ(json(formDataUsingBoundary(bytesOf("preamble\r\n" + body({part(" name=\"a\"", "1")})),
                                       u"B0UND")),
            R"({"a":{"data":"MQ=="}})");
  EXPECT_EQ(json(formDataUsingBoundary(bytesOf(body({part(" name=\"a\"", "1")})), u"OTHER")), "{}");
  // The boundary is compared as UTF-8 bytes.
  EXPECT_EQ(json(formDataUsingBoundary(bytesOf(body({part(" name=\"a\"", "1")}, "\xC3\xA9x")),
                                       u"\u00E9x")),
            R"({"a":{"data":"MQ=="}})");
}

TEST(StringUsingEncoding, DecodesTheReceiver) {
  EXPECT_EQ(stringUsingUTF8Encoding(bytesOf("caf\xC3\xA9")), u"caf\u00E9");
  EXPECT_EQ(stringUsingUTF8Encoding(bytesOf("caf\xE9")), std::nullopt);
  EXPECT_EQ(stringUsingEncoding(bytesOf("caf\xE9"), NSISOLatin1StringEncoding), u"caf\u00E9");
  EXPECT_EQ(stringUsingEncoding(bytesOf("x"), NSSymbolStringEncoding), std::nullopt);
}

}  // namespace
}  // namespace ferncast
