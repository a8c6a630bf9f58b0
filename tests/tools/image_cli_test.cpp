// "ferncast image", run as a user runs it (through ferncast-media).
#include <gtest/gtest.h>

#include <string>

#include "tests/tools/RunFerncast.h"

namespace {

using ferncast::cli_test::Outcome;

const char kEPS[] =
    "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 0 0 100 50\n%%EndComments\n"
    "0 0 1 setrgbcolor 0 0 100 50 rectfill showpage\n";

class ImageCommand : public ferncast::cli_test::FerncastTest {
 protected:
  // A black image of width × height made by the vips command, saved as `name`.
  std::string blackImage(const std::string& name, int width, int height) {
    const std::string file = path(name);
    const Outcome made = runProgram("vips", "black '" + file + "' " + std::to_string(width) + " " +
                                                std::to_string(height) + " --bands 3");
    EXPECT_EQ(made.status, 0) << made.err;
    return file;
  }
};

TEST_F(ImageCommand, ThumbnailWritesTIFFAndReportsSizeAndProperties) {
  const std::string jpeg = blackImage("photo.jpg", 400, 300);
  const Outcome result =
      run("image thumbnail '" + jpeg + "' --max 100 -o '" + path("thumb.tif") + "'");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out.rfind("{\"pixelSize\":\"{100, 75}\",\"properties\":{", 0), 0u) << result.out;
  EXPECT_NE(result.out.find("\"PixelWidth\":400"), std::string::npos) << result.out;
  EXPECT_EQ(read(path("thumb.tif")).substr(0, 4), std::string("II*\0", 4));

  const Outcome toStandardOutput = run("image thumbnail '" + jpeg + "'");
  EXPECT_EQ(toStandardOutput.out.substr(0, 4), std::string("II*\0", 4));
  const Outcome none = run("image thumbnail '" + write("notes.txt", "words") + "' -o x.tif");
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "");
}

TEST_F(ImageCommand, InfoOfBitmapAndPostScript) {
  const Outcome png = run("image info '" + blackImage("square.png", 30, 20) + "'");
  EXPECT_EQ(png.status, 0) << png.err;
  EXPECT_EQ(png.out,
            "{\"alpha\":false,\"bounds\":\"{{0, 0}, {30, 20}}\",\"isBitmapImage\":true,"
            "\"isPDFImage\":false,\"pixelSize\":\"{30, 20}\",\"representations\":[\"bitmap\"],"
            "\"size\":\"{30, 20}\",\"valid\":true}\n");
  const Outcome eps = run("image info '" + write("drawing.eps", kEPS) + "'");
  EXPECT_EQ(eps.status, 0) << eps.err;
  EXPECT_EQ(eps.out,
            "{\"alpha\":true,\"bounds\":\"{{0, 0}, {100, 50}}\",\"isBitmapImage\":false,"
            "\"isPDFImage\":true,\"pixelSize\":\"{100, 50}\",\"representations\":[\"eps\"],"
            "\"size\":\"{100, 50}\",\"valid\":true}\n");
  EXPECT_EQ(run("image info '" + write("empty", "") + "'").status, 1);
}

TEST_F(ImageCommand, PDFOfPostScriptAndRenderings) {
  const std::string eps = write("drawing.eps", kEPS);
  const Outcome pdf = run("image pdf '" + eps + "' -o '" + path("out.pdf") + "'");
  EXPECT_EQ(pdf.status, 0) << pdf.err;
  EXPECT_EQ(read(path("out.pdf")).substr(0, 5), "%PDF-");
  EXPECT_EQ(run("image pdf '" + blackImage("a.png", 4, 4) + "' -o x.pdf").status, 1);

  const Outcome png =
      run("image render '" + eps + "' --box 40x40 --format png --interpolation high -o '" +
          path("r.png") + "'");
  EXPECT_EQ(png.status, 0) << png.err;
  EXPECT_EQ(read(path("r.png")).substr(0, 4), "\x89PNG");
  const Outcome header = runProgram("vipsheader", "'" + path("r.png") + "'");
  EXPECT_NE(header.out.find("40x20"), std::string::npos) << header.out;
  EXPECT_EQ(run("image render '" + eps + "' --box 0x40 -o x").status, 2);
  EXPECT_EQ(run("image render '" + eps + "' --box 4x4 --format gif -o x").status, 2);
}

TEST_F(ImageCommand, ClassifyAndExtensions) {
  const Outcome classify = run("image classify '" + write("scan.pdf", "%PDF-1.4\n") + "'");
  EXPECT_EQ(classify.status, 0) << classify.err;
  for (const char* part :
       {"\"contentType\":\"com.adobe.pdf\"", "\"isRealPDFFile\":true", "\"isImageFile\":true",
        "\"pathExtensionForData\":\"pdf\"", "\"classicType\":null", "\"isPostScriptFile\":false"})
    EXPECT_NE(classify.out.find(part), std::string::npos) << part << " in " << classify.out;

  const std::pair<std::string, Outcome> types[] = {
      {"\"'JPEG'\"", {0, "jpeg\n", ""}},
      {"image/x-portable-graymap", {0, "pgm\n", ""}},
      {"\"'XXXX'\"", {1, "", ""}},
  };
  for (const auto& [type, expected] : types) {
    const Outcome result = run("image extension-for-type " + type);
    EXPECT_EQ(result.status, expected.status) << type;
    EXPECT_EQ(result.out, expected.out) << type;
  }
  EXPECT_EQ(run("image extension-for-data -", "GIF89a...").out, "gif\n");
  EXPECT_EQ(run("image extension-for-data -", "nothing").status, 1);
}

}  // namespace
