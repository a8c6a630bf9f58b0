// "ferncast rtf", "ferncast rtfd" and "ferncast document", run as a user runs them.
#include <string>

#include "tests/tools/RunFerncast.h"

namespace ferncast::cli_test {
namespace {

class DocumentCommands : public FerncastTest {};

constexpr const char kRTF[] =
    "{\\rtf1\\ansi\\ansicpg1252{\\info{\\title Notes}}caf\\'e9 {\\b bold}\\par second}";

TEST_F(DocumentCommands, RTFTextPrintsEachInputsText) {
  const std::string a = write("a.rtf", kRTF), b = write("b.rtf", "{\\rtf1 two}");
  Outcome one = run("rtf text '" + a + "'");
  EXPECT_EQ(one.status, 0) << one.err;
  EXPECT_EQ(one.out, "caf\xC3\xA9 bold\nsecond");
  Outcome both = run("rtf text '" + a + "' '" + b + "'");
  EXPECT_EQ(both.out, "caf\xC3\xA9 bold\nsecond\f\ntwo\f\n");
  EXPECT_EQ(run("rtf text", "{\\rtf1 piped}").out, "piped");
  Outcome notRTF = run("rtf text", "plain");
  EXPECT_EQ(notRTF.status, 1);
  EXPECT_NE(notRTF.err.find("not RTF"), std::string::npos);
  EXPECT_EQ(run("rtf text '" + path("absent") + "'").status, 2);
}

TEST_F(DocumentCommands, PackagesGoToDataAndBackUnchanged) {
  const std::string rtf = write("doc.rtf", kRTF);
  Outcome made = run("document rtfd '" + rtf + "' -o '" + path("doc.rtfd-data") + "'");
  ASSERT_EQ(made.status, 0) << made.err;
  EXPECT_NE(made.out.find("\"DocumentType\":\"NSRTF\""), std::string::npos) << made.out;
  EXPECT_NE(made.out.find("\"Title\":\"Notes\""), std::string::npos) << made.out;

  Outcome listed = run("rtfd list '" + path("doc.rtfd-data") + "'");
  EXPECT_EQ(listed.status, 0) << listed.err;
  EXPECT_TRUE(listed.out.starts_with("{\"entries\":[{\"name\":\"TXT.rtf\",\"size\":"))
      << listed.out;

  ASSERT_EQ(run("rtfd write '" + path("doc.rtfd-data") + "' '" + path("doc.rtfd") + "'").status, 0);
  ASSERT_EQ(run("rtfd pack '" + path("doc.rtfd") + "' -o '" + path("packed") + "'").status, 0);
  ASSERT_EQ(run("rtfd write '" + path("packed") + "' '" + path("again.rtfd") + "'").status, 0);
  EXPECT_EQ(read(path("again.rtfd/TXT.rtf")), read(path("doc.rtfd/TXT.rtf")));
  EXPECT_EQ(run("rtfd pack '" + path("again.rtfd") + "'").out, read(path("packed")));

  Outcome text = run("document text '" + path("again.rtfd") + "'");
  EXPECT_EQ(text.out, "caf\xC3\xA9 bold\nsecond");
}

TEST_F(DocumentCommands, WhatIsNoDocumentOrNoRTFDAnswersOne) {
  const std::string binary = write("b.bin", std::string("\x89PNG\r\n\x1a\n\0\0\0", 11));
  EXPECT_EQ(run("document rtfd '" + binary + "'").status, 1);
  EXPECT_EQ(run("document text '" + path("absent.txt") + "'").status, 1);
  EXPECT_EQ(run("rtfd list", "not RTFD data").status, 1);
  Outcome refused = run("rtfd write - '" + path("x.rtfd") + "'", "{\\rtf1 RTF is not RTFD}");
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(run("rtfd pack '" + path("absent.rtfd") + "'").status, 1);
  EXPECT_EQ(run("rtfd write").status, 2);
}

}  // namespace
}  // namespace ferncast::cli_test
