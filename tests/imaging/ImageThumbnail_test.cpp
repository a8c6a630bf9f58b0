// Thumbnails of image files: orientation, embedded thumbnails, properties and hostile files.
#include <gtest/gtest.h>
#include <zlib.h>

#include <fstream>
#include <string>

#include "Classes/Unicode.h"
#include "imaging/Image.h"
#include "imaging/ImageProperties.h"
#include "tests/imaging/ImageTestFiles.h"
#include "tests/imaging/MediaTestFiles.h"

namespace ferncast {
namespace {

using namespace image_test;
using media_test::testFolder;
using media_test::writeFile;

std::u16string saved(const std::string& name, const Data& bytes) {
  const auto path = testFolder() / name;
  writeFile(path, std::string(bytes.begin(), bytes.end()));
  return utf8ToUtf16(path.string());
}

Decoded pixelsOf(const Image& image) {
  std::optional<Data> tiff = image.TIFFRepresentation();
  return tiff ? decode(*tiff) : Decoded{};
}

// Where a stored pixel appears once the EXIF orientation is applied (stored size w × h).
std::pair<int, int> displayed(int orientation, int x, int y, int w, int h) {
  switch (orientation) {
    case 2:
      return {w - 1 - x, y};
    case 3:
      return {w - 1 - x, h - 1 - y};
    case 4:
      return {x, h - 1 - y};
    case 5:
      return {y, x};
    case 6:
      return {h - 1 - y, x};
    case 7:
      return {h - 1 - y, w - 1 - x};
    case 8:
      return {y, w - 1 - x};
    default:
      return {x, y};
  }
}

TEST(ThumbnailOrientation, EveryExifOrientationComesOutUpright) {
  // Upright: 64 × 32, red in the top-left quarter, white elsewhere.
  auto upright = [](int x, int y) { return x < 32 && y < 16 ? kRed : kWhite; };
  for (int orientation = 1; orientation <= 8; ++orientation) {
    const bool turned = orientation >= 5;
    const int w = turned ? 32 : 64, h = turned ? 64 : 32;
    const TestImage stored = makeImage(w, h, false, [&](int x, int y) {
      const auto [X, Y] = displayed(orientation, x, y, w, h);
      return upright(X, Y);
    });
    const std::u16string path = saved("orientation" + std::to_string(orientation) + ".jpg",
                                      jpegWithOrientation(stored, orientation));

    std::optional<Dictionary> properties;
    auto image = Image::thumbnailForFile(path, 256, true, true, &properties);
    ASSERT_TRUE(image) << orientation;
    const Decoded pixels = pixelsOf(*image);
    ASSERT_EQ(pixels.width, 64) << orientation;
    ASSERT_EQ(pixels.height, 32) << orientation;
    EXPECT_TRUE(near(pixels.at(8, 4), kRed)) << orientation;
    EXPECT_TRUE(near(pixels.at(56, 4), kWhite)) << orientation;
    EXPECT_TRUE(near(pixels.at(8, 28), kWhite)) << orientation;
    ASSERT_TRUE(properties);
    EXPECT_EQ((*properties)[kImagePropertyOrientation], Value(orientation));
    EXPECT_EQ((*properties)[kImagePropertyPixelWidth], Value(w));  // as stored

    auto unturned = Image::thumbnailForFile(path, 256, true, false, nullptr);
    ASSERT_TRUE(unturned);
    EXPECT_EQ(unturned->pixelSize(), (Size{static_cast<float>(w), static_cast<float>(h)}));
  }
}

TEST(ThumbnailSource, EmbeddedThumbnailUnlessAlwaysFromImage) {
  const Data thumbnail = encode(solidImage(160, 120, kRed), ".jpg");
  const Data plain = encode(solidImage(400, 300, kBlue), ".jpg");
  const std::u16string upright = saved("embedded.jpg", withEmbeddedThumbnail(plain, thumbnail));
  const std::u16string turned =
      saved("embedded6.jpg",
            withEmbeddedThumbnail(jpegWithOrientation(solidImage(400, 300, kBlue), 6), thumbnail));
  const struct {
    const char* name;
    const std::u16string& path;
    int maxSize;
    bool alwaysFromImage, withTransform;
    Size size;
    Pixel colour;
  } cases[] = {
      {"embedded, not enlarged", upright, 256, false, true, {160, 120}, kRed},
      {"embedded, shrunk", upright, 100, false, true, {100, 75}, kRed},
      {"main image", upright, 256, true, true, {256, 192}, kBlue},
      {"embedded, turned upright", turned, 256, false, true, {120, 160}, kRed},
      {"embedded, as stored", turned, 256, false, false, {160, 120}, kRed},
      {"main image, turned upright", turned, 256, true, true, {192, 256}, kBlue},
  };
  for (const auto& c : cases) {
    auto image =
        Image::thumbnailForFile(c.path, c.maxSize, c.alwaysFromImage, c.withTransform, nullptr);
    ASSERT_TRUE(image) << c.name;
    EXPECT_EQ(image->pixelSize(), c.size) << c.name;
    EXPECT_TRUE(near(pixelsOf(*image).at(5, 5), c.colour)) << c.name;
  }
}

TEST(ThumbnailSize, SmallImagesAreNeverEnlarged) {
  const std::pair<Size, Size> cases[] = {
      {{100, 50}, {100, 50}},
      {{256, 256}, {256, 256}},
      {{1000, 500}, {256, 128}},
      {{300, 1200}, {64, 256}},
  };
  for (const auto& [source, expected] : cases) {
    const auto path = saved("size.png", encode(solidImage(static_cast<int>(source.width),
                                                          static_cast<int>(source.height), kRed),
                                               ".png"));
    auto image = Image::thumbnailForFile(path, 256);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->pixelSize(), expected) << source.width << "x" << source.height;
  }
}

TEST(ThumbnailProperties, UseThePlatformKeysAndNumbers) {
  const Data tagged = withMetadata(encode(solidImage(400, 300, kBlue), ".jpg"), [](auto& image) {
    Exiv2::ExifData& exif = image.exifData();
    exif["Exif.Image.Make"] = "Ferncast";
    exif["Exif.Image.Model"] = "Test Camera";
    exif["Exif.Photo.ExposureTime"] = Exiv2::URational(1, 250);
    exif["Exif.Photo.FNumber"] = Exiv2::URational(28, 10);
    exif["Exif.Photo.ISOSpeedRatings"] = std::uint16_t{200};
    exif["Exif.Photo.DateTimeOriginal"] = "2024:05:01 12:00:00";
    exif["Exif.GPSInfo.GPSLatitudeRef"] = "N";
    exif["Exif.GPSInfo.GPSLatitude"] = "48/1 51/1 30/1";
    exif["Exif.GPSInfo.GPSLongitudeRef"] = "E";
    exif["Exif.GPSInfo.GPSLongitude"] = "2/1 17/1 40/1";
    exif["Exif.GPSInfo.GPSAltitude"] = Exiv2::URational(35, 1);
    Exiv2::IptcData& iptc = image.iptcData();
    Exiv2::StringValue keyword("alpha");
    iptc.add(Exiv2::IptcKey("Iptc.Application2.Keywords"), &keyword);
    keyword.read("beta");
    iptc.add(Exiv2::IptcKey("Iptc.Application2.Keywords"), &keyword);
    iptc["Iptc.Application2.Caption"] = "A caption";
  });
  std::optional<Dictionary> properties;
  ASSERT_TRUE(Image::thumbnailForFile(saved("tagged.jpg", tagged), 256, false, true, &properties));
  ASSERT_TRUE(properties);
  Dictionary& p = *properties;
  EXPECT_EQ(p[kImagePropertyPixelWidth], Value(400));
  EXPECT_EQ(p[kImagePropertyPixelHeight], Value(300));
  EXPECT_EQ(p[kImagePropertyColorModel], Value(u"RGB"));
  EXPECT_EQ(p[kImagePropertyDepth], Value(8));
  EXPECT_EQ(p[kImagePropertyHasAlpha], Value(false));
  EXPECT_EQ(p[kImagePropertyOrientation], Value(1));  // libvips writes one
  const Value& tiff = p[kImagePropertyTIFFDictionary];
  EXPECT_EQ(*valueForKey(tiff, u"Make"), Value(u"Ferncast"));
  EXPECT_EQ(*valueForKey(tiff, u"Model"), Value(u"Test Camera"));
  const Value& exif = p[kImagePropertyExifDictionary];
  EXPECT_DOUBLE_EQ(*valueForKey(exif, u"ExposureTime")->number(), 0.004);
  EXPECT_DOUBLE_EQ(*valueForKey(exif, u"FNumber")->number(), 2.8);
  EXPECT_EQ(*valueForKey(exif, u"ISOSpeedRatings"), Value(Array{Value(200)}));
  EXPECT_EQ(*valueForKey(exif, u"DateTimeOriginal"), Value(u"2024:05:01 12:00:00"));
  const Value& gps = p[kImagePropertyGPSDictionary];
  EXPECT_NEAR(*valueForKey(gps, u"Latitude")->number(), 48.858333, 1e-6);
  EXPECT_EQ(*valueForKey(gps, u"LatitudeRef"), Value(u"N"));
  EXPECT_NEAR(*valueForKey(gps, u"Longitude")->number(), 2.294444, 1e-6);
  EXPECT_DOUBLE_EQ(*valueForKey(gps, u"Altitude")->number(), 35.0);
  const Value& iptc = p[kImagePropertyIPTCDictionary];
  EXPECT_EQ(*valueForKey(iptc, u"Keywords"), Value(Array{Value(u"alpha"), Value(u"beta")}));
  EXPECT_EQ(*valueForKey(iptc, u"Caption/Abstract"), Value(u"A caption"));
}

TEST(ThumbnailProperties, ColourModelAlphaAndGrey) {
  const TestImage grey = makeImage(20, 10, false, [](int x, int) {
    return Pixel{x * 10, x * 10, x * 10, 255};
  });
  VipsImage* single = nullptr;
  vips_extract_band(grey.image, &single, 0, nullptr);
  TestImage greyBand(single);
  greyBand.image->Type = VIPS_INTERPRETATION_B_W;
  const struct {
    const char* name;
    Data bytes;
    const char16_t* model;
    bool alpha;
  } cases[] = {
      {"alpha.png", encode(solidImage(20, 10, {0, 0, 0, 0}, true), ".png"), u"RGB", true},
      {"grey.png", encode(greyBand, ".png"), u"Gray", false},
  };
  for (const auto& c : cases) {
    const std::optional<Dictionary> p = imagePropertiesOfData(c.bytes.data(), c.bytes.size());
    ASSERT_TRUE(p) << c.name;
    EXPECT_EQ(p->at(kImagePropertyColorModel), Value(c.model)) << c.name;
    EXPECT_EQ(p->at(kImagePropertyHasAlpha), Value(c.alpha)) << c.name;
  }
}

// A PNG chunk with its length and CRC.
std::string chunk(const std::string& type, const std::string& body) {
  std::string out;
  for (int shift = 24; shift >= 0; shift -= 8)
    out += static_cast<char>((body.size() >> shift) & 0xFF);
  const std::string typed = type + body;
  out += typed;
  const uLong crc =
      crc32(0, reinterpret_cast<const Bytef*>(typed.data()), static_cast<uInt>(typed.size()));
  for (int shift = 24; shift >= 0; shift -= 8)
    out += static_cast<char>((crc >> shift) & 0xFF);
  return out;
}

// A grey PNG of zeros: `rows` rows of compressed data for a header that claims width × height.
std::string zeroPNG(std::uint32_t width, std::uint32_t height, std::uint32_t rows) {
  std::string header;
  for (std::uint32_t value : {width, height})
    for (int shift = 24; shift >= 0; shift -= 8)
      header += static_cast<char>((value >> shift) & 0xFF);
  header += std::string("\x08\x00\x00\x00\x00", 5);  // 8-bit grey
  const std::string raw(static_cast<std::size_t>(rows) * (width + 1), '\0');
  uLongf length = compressBound(static_cast<uLong>(raw.size()));
  std::string compressed(length, '\0');
  compress2(reinterpret_cast<Bytef*>(compressed.data()), &length,
            reinterpret_cast<const Bytef*>(raw.data()), static_cast<uLong>(raw.size()), 9);
  compressed.resize(length);
  return "\x89PNG\r\n\x1a\n" + chunk("IHDR", header) + chunk("IDAT", compressed) +
         chunk("IEND", "");
}

std::size_t peakResidentBytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmHWM:", 0) == 0) return std::stoul(line.substr(6)) * 1024;
  return 0;
}

TEST(ThumbnailBadInput, GivesNoThumbnailAndNoProperties) {
  const Data jpeg =
      encode(makeImage(400, 300, false,
                       [](int x, int y) {
                         return Pixel{(x * 7) % 256, (y * 13) % 256, (x * y) % 256, 255};
                       }),
             ".jpg");
  const std::string text = "just some words, no image\n";
  const struct {
    const char* name;
    std::string bytes;
  } cases[] = {
      {"empty", ""},
      {"text", text},
      {"truncated.jpg", std::string(jpeg.begin(), jpeg.begin() + jpeg.size() / 2)},
      {"huge-header.png", zeroPNG(65535, 65535, 4)},
      {"bomb-over-the-limit.png", zeroPNG(10001, 10001, 10001)},
      {"binary", std::string("\x7f"
                             "ELF\x02\x01\x01\0\0\0\0\0\0\0\0\0",
                             16)},
  };
  for (const auto& c : cases) {
    const auto path = testFolder() / c.name;
    writeFile(path, c.bytes);
    std::optional<Dictionary> properties = Dictionary{};
    EXPECT_FALSE(Image::thumbnailForFile(utf8ToUtf16(path.string()), 256, false, true, &properties))
        << c.name;
    EXPECT_FALSE(properties) << c.name;
  }
  std::optional<Dictionary> properties = Dictionary{};
  EXPECT_FALSE(Image::thumbnailForFile(utf8ToUtf16((testFolder() / "missing").string()), 256, false,
                                       true, &properties));
  EXPECT_FALSE(properties);
  EXPECT_FALSE(Image::thumbnailForFile(utf8ToUtf16(testFolder().string()), 256));
  EXPECT_FALSE(Image::thumbnailForFile(u"", 256));
  const std::u16string good = saved("good.png", encode(solidImage(10, 10, kRed), ".png"));
  EXPECT_FALSE(Image::thumbnailForFile(good, 0));
}

TEST(ThumbnailBadInput, BombUnderTheLimitStaysInBoundedMemory) {
  const auto path = testFolder() / "bomb.png";
  writeFile(path, zeroPNG(7000, 7000, 7000));  // 49 megapixels in about 50 KB
  const std::size_t before = peakResidentBytes();
  auto image = Image::thumbnailForFile(utf8ToUtf16(path.string()), 256);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->pixelSize(), (Size{256, 256}));
  // Decoding whole would take 49 MB for the pixels alone; streaming needs a few rows.
  EXPECT_LT(peakResidentBytes() - before, std::size_t{40} << 20);
}

}  // namespace
}  // namespace ferncast
