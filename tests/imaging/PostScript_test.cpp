// PostScript programs: bounding boxes, conversion, and programs that must not cost more than
// their limits.
#include "imaging/PostScript.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "imaging/PDFDocument.h"

namespace ferncast {
namespace {

Data bytesOf(const std::string& text) {
  return Data(text.begin(), text.end());
}

std::string dosEPS(const std::string& postScript) {
  std::string header("\xC5\xD0\xD3\xC6", 4);
  auto little = [&](std::uint32_t value) {
    for (int i = 0; i < 4; ++i)
      header += static_cast<char>((value >> (8 * i)) & 0xFF);
  };
  little(30);
  little(static_cast<std::uint32_t>(postScript.size()));
  header.resize(30, '\0');
  return header + postScript + "binary preview follows";
}

TEST(PostScriptProgram, BoundingBoxFromTheCommentsThatCount) {
  const struct {
    const char* name;
    std::string bytes;
    bool program;
    std::optional<Rect> box;
  } cases[] = {
      {"plain", "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 10 20 110 70\n", true,
       Rect{{10, 20}, {100, 50}}},
      {"high resolution wins",
       "%!PS\r\n%%BoundingBox: 0 0 11 11\r\n"
       "%%HiResBoundingBox: 0.5 0.5 10.5 10.25\r\n",
       true, Rect{{0.5f, 0.5f}, {10, 9.75f}}},
      {"at end",
       "%!PS\n%%BoundingBox: (atend)\n%%EndComments\nshowpage\n"
       "%%Trailer\n%%BoundingBox: 0 0 30 40\n",
       true, Rect{{0, 0}, {30, 40}}},
      {"after the comments", "%!PS\n%%EndComments\n%%BoundingBox: 0 0 30 40\n", true, std::nullopt},
      {"empty box", "%!PS\n%%BoundingBox: 10 10 10 50\n", true, std::nullopt},
      {"garbage numbers", "%!PS\n%%BoundingBox: a b c d\n", true, std::nullopt},
      {"three numbers", "%!PS\n%%BoundingBox: 1 2 3\n", true, std::nullopt},
      {"control-D first", "\x04%!PS\n%%BoundingBox: 0 0 5 5\n", true, Rect{{0, 0}, {5, 5}}},
      {"DOS EPS", dosEPS("%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 8 9\n"), true,
       Rect{{0, 0}, {8, 9}}},
      {"DOS EPS pointing outside",
       std::string("\xC5\xD0\xD3\xC6\xFF\xFF\0\0\x10\0\0\0", 12) + std::string(40, ' '), false,
       std::nullopt},
      {"no PostScript", "%PDF-1.4\n", false, std::nullopt},
      {"empty", "", false, std::nullopt},
  };
  for (const auto& c : cases) {
    const std::optional<PostScriptProgram> program = readPostScriptProgram(bytesOf(c.bytes));
    EXPECT_EQ(program.has_value(), c.program) << c.name;
    if (program) {
      EXPECT_EQ(program->boundingBox, c.box) << c.name;
    }
  }
  EXPECT_EQ(readPostScriptProgram(bytesOf(dosEPS("%!PS\n")))->text, bytesOf("%!PS\n"));
}

TEST(PostScriptConversion, EPSBecomesAPDFPageOfItsBoundingBox) {
  const Data eps = bytesOf(
      "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 10 20 110 70\n%%EndComments\n"
      "0 0 1 setrgbcolor 10 20 100 50 rectfill showpage\n");
  const std::optional<Data> pdf = convertPostScriptToPDF(eps, std::chrono::seconds(20));
  ASSERT_TRUE(pdf);
  auto document = PDFDocument::open(*pdf);
  ASSERT_TRUE(document);
  EXPECT_EQ(document->pageCount(), 1);
  EXPECT_EQ(document->mediaBox(0), (PDFRect{0, 0, 100, 50}));
}

TEST(PostScriptConversion, HostileProgramsCostOnlyTheirLimits) {
  const struct {
    const char* name;
    std::string program;
    std::chrono::milliseconds limit;
    std::size_t memory;
  } cases[] = {
      {"endless loop", "%!PS\n%%BoundingBox: 0 0 10 10\n{} loop\n", std::chrono::milliseconds(500),
       kPostScriptMemoryLimit},
      {"memory eater", "%!PS\n%%BoundingBox: 0 0 10 10\n[ { 65000 string } loop ]\n",
       std::chrono::seconds(20), std::size_t{64} << 20},
      {"error", "%!PS\n%%BoundingBox: 0 0 10 10\nnosuchoperator\n", std::chrono::seconds(20),
       kPostScriptMemoryLimit},
      {"file access refused", "%!PS\n(/etc/passwd) (r) file\n", std::chrono::seconds(20),
       kPostScriptMemoryLimit},
  };
  for (const auto& c : cases) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(convertPostScriptToPDF(bytesOf(c.program), c.limit, c.memory)) << c.name;
    EXPECT_LT(std::chrono::steady_clock::now() - start, c.limit + std::chrono::seconds(5))
        << c.name;
  }
  EXPECT_FALSE(convertPostScriptToPDF({}, std::chrono::seconds(1)));
}

}  // namespace
}  // namespace ferncast
