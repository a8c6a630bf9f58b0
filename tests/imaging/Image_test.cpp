// The image model: sizes, representation look-ups, drawing and encoding.
#include "imaging/Image.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "Classes/Unicode.h"
#include "imaging/PDFDocument.h"
#include "tests/imaging/ImageTestFiles.h"
#include "tests/imaging/MediaTestFiles.h"

namespace ferncast {
namespace {

using namespace image_test;
using media_test::readFile;
using media_test::testFolder;
using media_test::writeFile;

const char kEPS[] =
    "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 10 20 110 70\n%%EndComments\n"
    "1 0 0 setrgbcolor 10 20 50 50 rectfill showpage\n%%EOF\n";

Data bytesOf(const std::string& text) {
  return Data(text.begin(), text.end());
}

Data pdfBytes() {
  static const std::string pdf =
      readFile(media_test::ghostscriptPDF("image_test_page",
                                          "<< /PageSize [200 100] >> setpagedevice "
                                          "1 0 0 setrgbcolor 0 0 20 20 rectfill showpage\n"));
  return bytesOf(pdf);
}

Decoded pixelsOf(const std::optional<Data>& tiff) {
  return tiff ? decode(*tiff) : Decoded{};
}

std::unique_ptr<Image> imageOf(const TestImage& pixels, const std::string& suffix = ".png") {
  return Image::imageWithData(encode(pixels, suffix));
}

TEST(ImageSizes, ThumbFitsIntoTheBoxWithoutEnlarging) {
  const Size box{256, 256};
  const std::pair<Size, Size> cases[] = {
      {{100, 50}, {100, 50}},   {{256, 256}, {256, 256}}, {{1000, 500}, {256, 128}},
      {{300, 1200}, {64, 256}}, {{3000, 2}, {256, 1}},    {{0, 0}, {0, 0}},
      {{2, 3000}, {1, 256}},
  };
  for (const auto& [source, fitted] : cases)
    EXPECT_EQ(Image::thumb(box, source), fitted) << source.width << "x" << source.height;
}

TEST(ImageSizes, ScaleFloorsAndIgnoresFactorsNotAboveZero) {
  EXPECT_EQ(Image::scale(0.5f, {101, 51}), (Size{50, 25}));
  EXPECT_EQ(Image::scale(0, {101, 51}), (Size{101, 51}));
  EXPECT_EQ(Image::scale(-2, {101, 51}), (Size{101, 51}));
}

TEST(ImageSizes, PixelSizeIsTheWidestRepresentation) {
  auto image = imageOf(solidImage(100, 100, kRed));
  ASSERT_TRUE(image);
  VipsImage* fine = nullptr;
  const TestImage big = solidImage(417, 417, kBlue);
  vips_copy(big.image, &fine, "xres", 300 / 25.4, "yres", 300 / 25.4, nullptr);
  auto other = Image::imageWithData(encode(TestImage(fine), ".png"));
  ASSERT_TRUE(other);
  image->addRepresentation(other->representations().front());
  EXPECT_EQ(image->pixelSize(), (Size{417, 417}));
  EXPECT_EQ(image->size(), (Size{100, 100}));
  EXPECT_NEAR(other->size().width, 417 * 72 / 300.0, 0.01);  // 300 dpi: fewer points

  auto pdf = Image::imageWithData(pdfBytes());
  ASSERT_TRUE(pdf);
  EXPECT_EQ(pdf->pixelSize(), (Size{200, 100}));  // vector: its point size
}

TEST(ImageRepresentations, LookUpsFollowKindAndOrder) {
  auto pdf = Image::imageWithData(pdfBytes());
  auto bitmap = imageOf(solidImage(10, 10, kRed));
  ASSERT_TRUE(pdf && bitmap);
  EXPECT_TRUE(pdf->isPDFImage());
  EXPECT_TRUE(pdf->hasAlpha());  // vector content counts as transparent
  EXPECT_EQ(pdf->bounds(), (Rect{{0, 0}, {200, 100}}));

  // Drawn once, an image keeps a cached representation beside its PDF.
  auto drawn = pdf->imageWithSize({20, 10}, false);
  ASSERT_TRUE(drawn);
  pdf->addRepresentation(drawn->cachedImageRep());
  EXPECT_TRUE(pdf->isPDFImage());
  EXPECT_TRUE(pdf->PDFImageRep());

  // A bitmap and a PDF: neither kind alone, both found.
  bitmap->addRepresentation(pdf->PDFImageRep());
  EXPECT_FALSE(bitmap->isPDFImage());
  EXPECT_FALSE(bitmap->isBitmapImage());
  EXPECT_TRUE(bitmap->PDFImageRep());
  EXPECT_TRUE(bitmap->bitmapImageRep());
  EXPECT_EQ(bitmap->pathExtensionForBestRepresentation(), u"pdf");

  // Only cached representations: of no other kind.
  Image cachedOnly({20, 10});
  cachedOnly.addRepresentation(drawn->cachedImageRep());
  EXPECT_FALSE(cachedOnly.isBitmapImage());
  EXPECT_FALSE(cachedOnly.isImageRepKindOfClass(ImageRepClass::kPDF));
  EXPECT_TRUE(cachedOnly.isImageRepKindOfClass(ImageRepClass::kCached));
  EXPECT_FALSE(Image().isImageRepKindOfClass(ImageRepClass::kBitmap));
  EXPECT_FALSE(cachedOnly.imageRepOfClassNamed("NSNoSuchImageRep"));
}

TEST(ImageRepresentations, EPSConvertsOnceWhenAskedAndCountsAsPDF) {
  auto image = Image::imageWithData(bytesOf(kEPS));
  ASSERT_TRUE(image);
  EXPECT_TRUE(image->isEPSImage());
  EXPECT_TRUE(image->isPDFImage());
  EXPECT_EQ(image->size(), (Size{100, 50}));
  EXPECT_FALSE(image->PDFImageRep());  // never drawn: not converted
  std::shared_ptr<EPSImageRep> eps = image->EPSImageRep();
  ASSERT_TRUE(eps);
  std::shared_ptr<PDFImageRep> pdf = eps->initializePDFImageRep();
  ASSERT_TRUE(pdf);
  EXPECT_EQ(image->PDFImageRep(), pdf);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(eps->initializePDFImageRep(), pdf);  // kept: no second conversion
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
  EXPECT_EQ(pdf->bounds(), (Rect{{0, 0}, {100, 50}}));
  std::u16string extension;
  EXPECT_EQ(image->bestRepresentationAndFileExtension(&extension), bytesOf(kEPS));
  EXPECT_EQ(extension, u"eps");

  // Beside a bitmap: a PDF image still, an EPS image no longer.
  auto mixed = imageOf(solidImage(10, 10, kRed));
  mixed->addRepresentation(eps);
  EXPECT_FALSE(mixed->isEPSImage());
  EXPECT_TRUE(mixed->isPDFImage());
}

TEST(ImageRepresentations, PICTDecodesThroughImageMagick) {
  void* buffer = nullptr;
  std::size_t length = 0;
  const TestImage pixels = solidImage(40, 30, kRed);
  ASSERT_EQ(vips_magicksave_buffer(pixels.image, &buffer, &length, "format", "PICT", nullptr), 0)
      << vips_error_buffer();
  const Data pict(static_cast<std::uint8_t*>(buffer), static_cast<std::uint8_t*>(buffer) + length);
  g_free(buffer);
  auto image = Image::imageWithData(pict);
  ASSERT_TRUE(image);
  EXPECT_TRUE(image->isPICTImage());
  EXPECT_TRUE(image->isScalableImage());
  EXPECT_EQ(image->size(), (Size{40, 30}));
  EXPECT_EQ(image->bestRepresentation(), pict);
  const Decoded drawn = pixelsOf(image->TIFFRepresentationWithSize({20, 15}));
  ASSERT_EQ(drawn.width, 20);
  EXPECT_TRUE(near(drawn.at(10, 7), kRed));
}

TEST(ImageDrawing, BitmapsKeepAlphaAndVectorPagesLandOnWhite) {
  auto halves =
      imageOf(makeImage(100, 50, false, [](int x, int) { return x < 50 ? kRed : kBlue; }));
  ASSERT_TRUE(halves);
  const Decoded scaled = pixelsOf(
      halves->TIFFRepresentationWithSize({50, 25}, true, ImageInterpolation::kHigh, false));
  ASSERT_EQ(scaled.width, 50);
  ASSERT_EQ(scaled.height, 25);
  EXPECT_TRUE(near(scaled.at(5, 12), kRed));
  EXPECT_TRUE(near(scaled.at(45, 12), kBlue));

  auto transparent = imageOf(solidImage(20, 20, {0, 0, 0, 0}, true));
  const Decoded clear = pixelsOf(transparent->TIFFRepresentationWithSize({10, 10}));
  ASSERT_EQ(clear.width, 10);
  EXPECT_EQ(clear.at(5, 5)[3], 0);

  auto page = Image::imageWithData(pdfBytes());
  const Decoded paper = pixelsOf(page->TIFFRepresentationWithSize({200, 100}));
  ASSERT_EQ(paper.width, 200);
  EXPECT_EQ(paper.at(150, 20), kWhite);          // empty page area: opaque white
  EXPECT_TRUE(near(paper.at(5, 95), kRed, 60));  // the square at the lower left
}

TEST(ImageDrawing, InterpolationNoneKeepsOnlySourceColours) {
  auto checks = imageOf(makeImage(2, 2, false, [](int x, int y) {
    return (x + y) % 2 ? kWhite : Pixel{0, 0, 0, 255};
  }));
  auto countGreys = [&](ImageInterpolation interpolation) {
    const Decoded big =
        pixelsOf(checks->TIFFRepresentationWithSize({8, 8}, true, interpolation, false));
    int greys = 0;
    for (int y = 0; y < big.height; ++y)
      for (int x = 0; x < big.width; ++x)
        greys += big.at(x, y)[0] != 0 && big.at(x, y)[0] != 255;
    return greys;
  };
  EXPECT_EQ(countGreys(ImageInterpolation::kNone), 0);
  EXPECT_GT(countGreys(ImageInterpolation::kHigh), 0);
}

TEST(ImageDrawing, SizesWithoutPixelsOrTooManyGiveNothing) {
  auto image = imageOf(solidImage(10, 10, kRed));
  for (Size size : {Size{0, 10}, Size{10, 0}, Size{-5, 10}, Size{20000, 20000}}) {
    EXPECT_FALSE(image->imageWithSize(size, true, ImageInterpolation::kHigh, false));
    EXPECT_FALSE(image->TIFFRepresentationWithSize(size));
  }
}

// The value of TIFF tag `tag` in the first IFD of little- or big-endian TIFF bytes; -1 if absent.
long tiffTag(const Data& tiff, int tag) {
  if (tiff.size() < 8) return -1;
  const bool little = tiff[0] == 'I';
  auto read = [&](std::size_t at, int bytes) {
    long value = 0;
    for (int i = 0; i < bytes; ++i)
      value |= static_cast<long>(tiff[at + (little ? i : bytes - 1 - i)]) << (8 * i);
    return value;
  };
  const std::size_t ifd = static_cast<std::size_t>(read(4, 4));
  const long entries = read(ifd, 2);
  for (long i = 0; i < entries; ++i) {
    const std::size_t entry = ifd + 2 + static_cast<std::size_t>(i) * 12;
    if (read(entry, 2) == tag) return read(entry + 8, 2);
  }
  return -1;
}

TEST(ImageEncoding, BestRepresentationIsLZWTIFFForBitmaps) {
  auto image = imageOf(solidImage(30, 20, kRed));
  std::u16string extension;
  const std::optional<Data> best = image->bestRepresentationAndFileExtension(&extension);
  ASSERT_TRUE(best);
  EXPECT_EQ(extension, u"tiff");
  EXPECT_EQ(tiffTag(*best, 259), 5);                         // LZW
  EXPECT_EQ(tiffTag(*image->TIFFRepresentation(), 259), 1);  // plain
  EXPECT_EQ(decode(*best).width, 30);

  auto pdf = Image::imageWithData(pdfBytes());
  EXPECT_EQ(pdf->bestRepresentationAndFileExtension(&extension), pdfBytes());
  EXPECT_EQ(extension, u"pdf");
}

TEST(ImageEncoding, EveryFileTypeWritesItsOwnFormat) {
  auto image = imageOf(solidImage(30, 20, kRed, true));
  const std::pair<BitmapImageFileType, std::string> cases[] = {
      {BitmapImageFileType::kTIFF, "II*"},    {BitmapImageFileType::kBMP, "BM"},
      {BitmapImageFileType::kGIF, "GIF8"},    {BitmapImageFileType::kJPEG, "\xFF\xD8\xFF"},
      {BitmapImageFileType::kPNG, "\x89PNG"}, {BitmapImageFileType::kJPEG2000, ""},
  };
  for (const auto& [type, signature] : cases) {
    const std::optional<Data> data = image->representationUsingType(type, 0.8f);
    ASSERT_TRUE(data) << static_cast<int>(type);
    const std::string head(data->begin(), data->begin() + std::min(data->size(), signature.size()));
    EXPECT_EQ(head, signature) << static_cast<int>(type);
    EXPECT_EQ(decode(*data).width, 30) << static_cast<int>(type);
  }
  const std::optional<Data> jpeg = image->snapshotData();
  ASSERT_TRUE(jpeg);
  EXPECT_EQ(decode(*jpeg).bands, 3);  // alpha flattened

  // A drawn image holds a cached representation only, which is no bitmap.
  auto drawn = image->imageWithSize({10, 10}, false);
  EXPECT_FALSE(drawn->representationUsingType(BitmapImageFileType::kPNG, 1));
  auto bitmap = image->bitmapImageWithSize({10, 10}, false);
  EXPECT_TRUE(bitmap->representationUsingType(BitmapImageFileType::kPNG, 1));
}

TEST(ImageMaking, FromPixelsFilesAndDownloads) {
  const std::uint8_t pixels[] = {255, 0,   0, 0,   0,   255, 9, 9,  // two pixels and row padding
                                 0,   255, 0, 255, 255, 255, 9, 9};
  auto image = Image::imageWithPixels(2, 2, 3, pixels, sizeof pixels, 8);
  ASSERT_TRUE(image);
  const Decoded back = pixelsOf(image->TIFFRepresentation());
  EXPECT_EQ(back.at(1, 0), (Pixel{0, 0, 255, 255}));
  EXPECT_EQ(back.at(0, 1), (Pixel{0, 255, 0, 255}));
  EXPECT_FALSE(Image::imageWithPixels(2, 2, 3, pixels, 10, 8));  // too few bytes
  EXPECT_FALSE(Image::imageWithPixels(0, 2, 3, pixels, sizeof pixels, 8));
  EXPECT_FALSE(Image::imageWithPixels(2, 2, 5, pixels, sizeof pixels, 8));

  const Data jpeg = encode(makeImage(64, 64, false,
                                     [](int x, int y) {
                                       return Pixel{x * 4, y * 4, 128, 255};
                                     }),
                           ".jpg");
  EXPECT_TRUE(Image::imageWithDownloadedData(jpeg, true));
  EXPECT_FALSE(
      Image::imageWithDownloadedData(Data(jpeg.begin(), jpeg.begin() + jpeg.size() / 2), true));

  // By reference, the file is read when first needed.
  const auto path = testFolder() / "later.png";
  auto lazy = Image::imageByReferencingFile(utf8ToUtf16(path.string()));
  ASSERT_TRUE(lazy);
  const Data png = encode(solidImage(12, 8, kBlue), ".png");
  writeFile(path, std::string(png.begin(), png.end()));
  EXPECT_TRUE(lazy->isReallyValid());
  EXPECT_EQ(lazy->size(), (Size{12, 8}));
  auto missing = Image::imageByReferencingFile(u"/nonexistent/x.png");
  ASSERT_TRUE(missing);
  EXPECT_FALSE(missing->isReallyValid());
  EXPECT_FALSE(Image::imageWithData(bytesOf("no image at all")));
  EXPECT_FALSE(Image::imageWithData({}));
}

}  // namespace
}  // namespace ferncast
