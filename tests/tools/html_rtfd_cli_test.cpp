// "ferncast html rtfd" as a user runs it: the package written, the loads reported on stderr.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/LocalHttpServer.h"
#include "tests/tools/RunFerncast.h"

namespace ferncast::cli_test {
namespace {

class HtmlRtfdCommand : public FerncastTest {
 protected:
  void SetUp() override {
    FerncastTest::SetUp();
    if (!server_.reachable()) GTEST_SKIP() << "loopback is unreachable in this process";
  }

  test_support::LocalHttpServer server_{{
      {"/a.png", {200, "image/png", std::string("\x89PNG\r\n\x1a\n", 8) + "picture"}},
  }};
};

TEST_F(HtmlRtfdCommand, WritesThePackageAndReportsEachLoad) {
  // The far image is an address outside this machine's networks: refused before any connection.
  const std::string page = write("page.html",
                                 "<h1>Title</h1><p>near <img src='/a.png' alt=NEAR> far "
                                 "<img src='http://203.0.113.9/b.png' alt=FAR></p>");
  Outcome o = run("html rtfd '" + page + "' --base '" + server_.url("/") + "' -o '" +
                  path("out.rtfd") + "'");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_TRUE(std::filesystem::is_regular_file(path("out.rtfd/TXT.rtf")));
  EXPECT_TRUE(std::filesystem::is_regular_file(path("out.rtfd/a.png")));
  EXPECT_NE(o.err.find("allowed"), std::string::npos) << o.err;
  EXPECT_NE(o.err.find("refused"), std::string::npos) << o.err;
  EXPECT_NE(o.err.find(server_.url("/a.png")), std::string::npos) << o.err;
  const std::string rtf = read(path("out.rtfd/TXT.rtf"));
  EXPECT_NE(rtf.find("FAR"), std::string::npos);
  EXPECT_EQ(rtf.find("NEAR"), std::string::npos) << "the loaded image replaces its alt text";
}

TEST_F(HtmlRtfdCommand, DataOnStandardOutputAndNilForEmptyPages) {
  const std::string page = write("page.html", "<p>caf\xE9</p>");
  Outcome o = run("html rtfd '" + page + "' --allow-remote --charset iso-8859-1 -o -");
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(o.out.substr(0, 4), "rtfd");
  EXPECT_EQ(run("html rtfd '" + write("empty.html", "<p> </p>") + "' -o -").status, 1);
  EXPECT_EQ(run("html rtfd '" + path("missing.html") + "' -o -").status, 2);
  EXPECT_EQ(run("html rtfd '" + page + "'").status, 2) << "-o is required";
}

// The document commands read HTML, .docx and .odt through the reader table.
TEST_F(FerncastTest, DocumentCommandsReadHtmlAndOfficeFiles) {
  const std::string html = write("page.html", "<html><title>T</title><p>Hello <b>page</b></p>");
  Outcome text = run("document text '" + html + "'");
  ASSERT_EQ(text.status, 0) << text.err;
  EXPECT_EQ(text.out, "Hello page\n");
  Outcome rtfd = run("document rtfd '" + html + "' -o '" + path("out.data") + "'");
  ASSERT_EQ(rtfd.status, 0) << rtfd.err;
  EXPECT_NE(rtfd.out.find("NSHTML"), std::string::npos) << rtfd.out;

  if (std::system("pandoc --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "no pandoc";
  const std::string markdown = write("in.md", "Some **office** words.\n");
  for (const char* extension : {"docx", "odt"}) {
    const std::string file = path(std::string("out.") + extension);
    ASSERT_EQ(std::system(("pandoc -o '" + file + "' '" + markdown + "'").c_str()), 0);
    Outcome office = run("document text '" + file + "'");
    ASSERT_EQ(office.status, 0) << extension << office.err;
    EXPECT_EQ(office.out, "Some office words.\n") << extension;
  }
}

}  // namespace
}  // namespace ferncast::cli_test
