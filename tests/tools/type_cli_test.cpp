// "ferncast type", run as a user runs it.
#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <filesystem>
#include <string>

#include "tests/RunCommand.h"

namespace ferncast::testing {
namespace {

const std::string kFerncast = FERNCAST_BINARY_DIR "/tools/ferncast";

TEST(TypeCommand, PrintsTypeConformanceAndClassicType) {
  ScratchDirectory scratch("type_cli");
  const auto file = scratch.write("scan", std::string("%PDF-1.4\n%\xE2\xE3\xCF\xD3\n", 15));
  const std::string finderInfo = "PDF CARO" + std::string(24, '\0');
  const bool tagged = setxattr(file.c_str(), "user.com.apple.FinderInfo", finderInfo.data(),
                               finderInfo.size(), 0) == 0;
  const CommandResult result = runCommand(scratch, kFerncast + " type " + quoted(file));
  EXPECT_EQ(result.status, 0) << result.err;
  const std::string expected =
      std::string("{") + (tagged ? "\"classicType\":\"'PDF '\"," : "") +
      "\"conformsTo\":[\"public.data\",\"public.composite-content\",\"public.item\","
      "\"public.content\"],\"contentType\":\"com.adobe.pdf\"}\n";
  EXPECT_EQ(result.out, expected);
}

TEST(TypeCommand, MissingFileIsAnInputError) {
  ScratchDirectory scratch("type_cli");
  const CommandResult result = runCommand(scratch, kFerncast + " type " + quoted(scratch / "gone"));
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err.find("no such file"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace ferncast::testing
