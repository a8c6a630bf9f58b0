// The "ferncast markup tags" and "ferncast markup attribute" commands, run as a user runs them.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/tools/RunFerncast.h"

namespace {

using ferncast::cli_test::Outcome;

namespace fs = std::filesystem;

class MarkupCommand : public ferncast::cli_test::FerncastTest {
 protected:
  // Runs "ferncast markup ARGUMENTS" with `input` on standard input.
  ferncast::cli_test::Outcome markup(const std::string& arguments,
                                     const std::string& input = "") const {
    return run("markup " + arguments, input);
  }
};

TEST_F(MarkupCommand, TagsPrintsOneLinePerCallInTheFixedKeyOrder) {
  const Outcome result = markup("tags", "a<b>c");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "{\"kind\":1,\"name\":\"b\",\"nameLocation\":2,\"nameLength\":1,\"tagLocation\":1,"
            "\"tagLength\":3,\"textLocation\":0}\n"
            "{\"kind\":0,\"name\":null,\"nameLocation\":2147483647,\"nameLength\":0,"
            "\"tagLocation\":5,\"tagLength\":0,\"textLocation\":4}\n");
}

TEST_F(MarkupCommand, TagsCountsUtf16UnitsAndReadsFiles) {
  // "𝄞" is two UTF-16 code units; "é" one.
  const fs::path file = write("page.html", "\xF0\x9D\x84\x9E<\xC3\xA9 x='>'><!--c");
  const Outcome result = markup("tags '" + file.string() + "'");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "{\"kind\":1,\"name\":\"\xC3\xA9\",\"nameLocation\":3,\"nameLength\":1,"
            "\"tagLocation\":2,\"tagLength\":9,\"textLocation\":0}\n"
            "{\"kind\":2,\"name\":null,\"nameLocation\":2147483647,\"nameLength\":0,"
            "\"tagLocation\":11,\"tagLength\":5,\"textLocation\":11}\n"
            "{\"kind\":0,\"name\":null,\"nameLocation\":2147483647,\"nameLength\":0,"
            "\"tagLocation\":16,\"tagLength\":0,\"textLocation\":16}\n");
}

TEST_F(MarkupCommand, TagsOfEmptyInputPrintNothing) {
  const Outcome result = markup("tags -");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
}

TEST_F(MarkupCommand, UnreadableInputIsAUsageError) {
  EXPECT_EQ(markup("tags /nonexistent/page.html").status, 2);
  EXPECT_EQ(markup("attribute HREF /nonexistent/page.html").status, 2);
  EXPECT_EQ(markup("attribute").status, 2);
}

TEST_F(MarkupCommand, AttributeOfTheFirstTagInAnyCase) {
  const Outcome result = markup("attribute href", "text<!-- <a href=no> --><a HREF = 'x y '>");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "x y\n");
  // Only the first tag is asked.
  EXPECT_EQ(markup("attribute src", "<p><img src=a>").status, 1);
  EXPECT_EQ(markup("attribute src", "no tags").status, 1);
}

TEST_F(MarkupCommand, StylePropertyOfTheWholeInput) {
  const Outcome result = markup("attribute Height --style", "width: 20px; height:10px");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "10px\n");
  EXPECT_EQ(markup("attribute color --style", "background-color: red").status, 1);
}

}  // namespace
