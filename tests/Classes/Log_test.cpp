#include "Classes/Log.h"

#include <gtest/gtest.h>

namespace ferncast {
namespace {

TEST(Log, ExceptionLineJoinsItsFieldsAndSymbolsWithLineFeeds) {
  EXPECT_EQ(exceptionLogLine("parseXmlWithHandler:context:mutable:", "NSString", "NSRangeException",
                             "index out of range", {"0 ferncast", "1 libc.so.6"}),
            "parseXmlWithHandler:context:mutable: (NSString):\nNSRangeException\nindex out of "
            "range\n0 ferncast\n1 libc.so.6");
  EXPECT_EQ(exceptionLogLine("op", "C", "N", "R", {}), "op (C):\nN\nR\n");
}

TEST(Log, SinkReceivesTheTextWithoutPrefix) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view text) { lines.emplace_back(text); });
  NSLog(u"Skipped: ä");
  logException("op", "C", "N", "R");
  setLogSink({});
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "Skipped: \xC3\xA4");
  EXPECT_EQ(lines[1], "op (C):\nN\nR\n");
}

}  // namespace
}  // namespace ferncast
