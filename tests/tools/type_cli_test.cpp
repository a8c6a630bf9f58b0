// "ferncast type", run as a user runs it.
#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <string>

#include "tests/tools/RunFerncast.h"

namespace {

using TypeCommand = ferncast::cli_test::FerncastTest;

TEST_F(TypeCommand, PrintsTypeConformanceAndClassicType) {
  const std::string file = write("scan", std::string("%PDF-1.4\n%\xE2\xE3\xCF\xD3\n", 15));
  const std::string finderInfo = "PDF CARO" + std::string(24, '\0');
  const bool tagged = setxattr(file.c_str(), "user.com.apple.FinderInfo", finderInfo.data(),
                               finderInfo.size(), 0) == 0;
  const ferncast::cli_test::Outcome result = run("type '" + file + "'");
  EXPECT_EQ(result.status, 0) << result.err;
  const std::string expected =
      std::string("{") + (tagged ? "\"classicType\":\"'PDF '\"," : "") +
      "\"conformsTo\":[\"public.data\",\"public.composite-content\",\"public.item\","
      "\"public.content\"],\"contentType\":\"com.adobe.pdf\"}\n";
  EXPECT_EQ(result.out, expected);
}

TEST_F(TypeCommand, MissingFileIsAnInputError) {
  const ferncast::cli_test::Outcome result = run("type '" + path("gone") + "'");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err.find("no such file"), std::string::npos) << result.err;
}

}  // namespace
