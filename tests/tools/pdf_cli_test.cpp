// "ferncast pdf info|text", run as a user runs them.
#include <gtest/gtest.h>

#include <string>

#include "tests/RunCommand.h"
#include "tests/imaging/MediaTestFiles.h"

namespace ferncast::testing {
namespace {

const std::string kFerncast = FERNCAST_BINARY_DIR "/tools/ferncast";

constexpr const char kTwoPages[] = R"(%!PS
<< /PageSize [400 300] >> setpagedevice
[ /Title (Command Test) /Keywords (one;two) /DOCINFO pdfmark
/Times-Roman findfont 12 scalefont setfont
72 200 moveto (Page one.) show showpage
72 200 moveto (Page two.) show showpage
)";

TEST(PDFCommand, InfoPrintsCountLockAttributesAndMediaBox) {
  ScratchDirectory scratch("pdf_cli");
  const auto pdf = media_test::ghostscriptPDF("two_pages", kTwoPages);
  ASSERT_FALSE(pdf.empty()) << "gs could not make the test file";
  const CommandResult result = runCommand(scratch, kFerncast + " pdf info " + quoted(pdf));
  EXPECT_EQ(result.status, 0) << result.err;
  for (const char* part : {"\"pageCount\":2", "\"locked\":false", "\"mediaBox\":\"{400, 300}\"",
                           "\"Title\":\"Command Test\"", "\"Keywords\":[\"one\",\"two\"]",
                           "\"CreationDate\":{\"date\":"}) {
    EXPECT_NE(result.out.find(part), std::string::npos) << part << " in " << result.out;
  }
}

TEST(PDFCommand, TextPrintsEachPageFollowedByALineFeed) {
  ScratchDirectory scratch("pdf_cli");
  const auto pdf = media_test::ghostscriptPDF("two_pages", kTwoPages);
  ASSERT_FALSE(pdf.empty());
  for (const char* budget : {"", " --budget 0", " --budget 30"}) {
    const CommandResult result =
        runCommand(scratch, kFerncast + " pdf text" + budget + " " + quoted(pdf));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "Page one.\nPage two.\n") << budget;
  }
}

TEST(PDFCommand, NilAnswersExitOneAndUnreadableInputTwo) {
  ScratchDirectory scratch("pdf_cli");
  const auto notPDF = scratch.write("note.txt", "plain words");
  const auto noPages =
      scratch.write("empty.pdf", media_test::handmadePDF({"<< /Type /Catalog /Pages 2 0 R >>",
                                                          "<< /Type /Pages /Kids [] /Count 0 >>"}));
  const struct {
    std::string arguments;
    int status;
    const char* message;
  } rows[] = {
      {"info " + quoted(notPDF), 1, "not a PDF"},
      {"text " + quoted(notPDF), 1, "not a PDF"},
      {"text " + quoted(noPages), 1, "no pages"},
      {"info " + quoted(scratch / "missing.pdf"), 2, "No such file"},
  };
  for (const auto& row : rows) {
    const CommandResult result = runCommand(scratch, kFerncast + " pdf " + row.arguments);
    EXPECT_EQ(result.status, row.status) << row.arguments;
    EXPECT_EQ(result.out, "") << row.arguments;
    EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
  }
  const CommandResult empty = runCommand(scratch, kFerncast + " pdf info " + quoted(noPages));
  EXPECT_EQ(empty.status, 0);
  EXPECT_NE(empty.out.find("\"mediaBox\":\"{0, 0}\""), std::string::npos) << empty.out;
}

}  // namespace
}  // namespace ferncast::testing
