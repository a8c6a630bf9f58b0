// Image files for the image tests, made at test time with libvips and Exiv2, and a reader of
// the pixels that come back.
#pragma once

#include <gtest/gtest.h>
#include <vips/vips.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "Classes/PropertyList.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop

namespace ferncast::image_test {

using Pixel = std::array<int, 4>;  // red, green, blue, alpha

// An owned VipsImage for the tests.
struct TestImage {
  VipsImage* image = nullptr;
  explicit TestImage(VipsImage* adopted = nullptr) : image(adopted) {}
  TestImage(TestImage&& other) noexcept : image(other.image) { other.image = nullptr; }
  TestImage& operator=(TestImage&& other) noexcept {
    std::swap(image, other.image);
    return *this;
  }
  ~TestImage() {
    if (image) g_object_unref(image);
  }
};

// Pixels from a function of (x, y): 3 bands, or 4 when `alpha`.
template <typename Colour>
TestImage makeImage(int width, int height, bool alpha, Colour colour) {
  if (vips_init("image_test") != 0) ADD_FAILURE() << vips_error_buffer();
  const int bands = alpha ? 4 : 3;
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * height * bands);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Pixel p = colour(x, y);
      for (int b = 0; b < bands; ++b)
        pixels[(static_cast<std::size_t>(y) * width + x) * bands + b] =
            static_cast<std::uint8_t>(p[b]);
    }
  }
  TestImage image(vips_image_new_from_memory_copy(pixels.data(), pixels.size(), width, height,
                                                  bands, VIPS_FORMAT_UCHAR));
  image.image->Type = VIPS_INTERPRETATION_sRGB;
  return image;
}

inline TestImage solidImage(int width, int height, Pixel colour, bool alpha = false) {
  return makeImage(width, height, alpha, [&](int, int) { return colour; });
}

// The image encoded by the saver for `suffix` (".jpg[Q=95]", ".png", ".tif[compression=lzw]").
inline Data encode(const TestImage& image, const std::string& suffix) {
  void* buffer = nullptr;
  std::size_t length = 0;
  if (vips_image_write_to_buffer(image.image, suffix.c_str(), &buffer, &length, nullptr) != 0) {
    ADD_FAILURE() << vips_error_buffer();
    vips_error_clear();
    return {};
  }
  Data data(static_cast<std::uint8_t*>(buffer), static_cast<std::uint8_t*>(buffer) + length);
  g_free(buffer);
  return data;
}

// A JPEG whose EXIF says `orientation`.
inline Data jpegWithOrientation(const TestImage& image, int orientation) {
  VipsImage* copy = nullptr;
  vips_copy(image.image, &copy, nullptr);
  TestImage tagged(copy);
  vips_image_set_int(tagged.image, VIPS_META_ORIENTATION, orientation);
  return encode(tagged, ".jpg[Q=95]");
}

// Rewrites the metadata of encoded bytes with Exiv2: `edit` changes the image's metadata.
template <typename Edit>
Data withMetadata(const Data& bytes, Edit edit) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  Exiv2::Image::AutoPtr image =
      Exiv2::ImageFactory::open(bytes.data(), static_cast<long>(bytes.size()));
  image->readMetadata();
  edit(*image);
  image->writeMetadata();
  Exiv2::BasicIo& io = image->io();
  io.seek(0, Exiv2::BasicIo::beg);
  const Exiv2::DataBuf all = io.read(static_cast<long>(io.size()));
  return Data(all.pData_, all.pData_ + all.size_);
#pragma GCC diagnostic pop
}

// A JPEG with `thumbnail` (JPEG bytes) as its embedded EXIF thumbnail.
inline Data withEmbeddedThumbnail(const Data& jpeg, const Data& thumbnail) {
  return withMetadata(jpeg, [&](Exiv2::Image& image) {
    Exiv2::ExifThumb(image.exifData())
        .setJpegThumbnail(thumbnail.data(), static_cast<long>(thumbnail.size()));
  });
}

// The pixels of encoded bytes (8-bit), or an empty image when they do not decode.
struct Decoded {
  int width = 0, height = 0, bands = 0;
  std::vector<std::uint8_t> pixels;
  Pixel at(int x, int y) const {
    Pixel p{0, 0, 0, 255};
    for (int b = 0; b < bands && b < 4; ++b)
      p[b] = pixels[(static_cast<std::size_t>(y) * width + x) * bands + b];
    if (bands < 3) p = {p[0], p[0], p[0], bands == 2 ? p[1] : 255};
    return p;
  }
};

inline Decoded decode(const Data& bytes) {
  Decoded decoded;
  TestImage image(vips_image_new_from_buffer(bytes.data(), bytes.size(), "", nullptr));
  if (!image.image) {
    vips_error_clear();
    return decoded;
  }
  std::size_t length = 0;
  void* memory = vips_image_write_to_memory(image.image, &length);
  if (!memory || vips_image_get_format(image.image) != VIPS_FORMAT_UCHAR) {
    g_free(memory);
    vips_error_clear();
    return decoded;
  }
  decoded.width = vips_image_get_width(image.image);
  decoded.height = vips_image_get_height(image.image);
  decoded.bands = vips_image_get_bands(image.image);
  decoded.pixels.assign(static_cast<std::uint8_t*>(memory),
                        static_cast<std::uint8_t*>(memory) + length);
  g_free(memory);
  return decoded;
}

// Whether two colours are within `tolerance` in every channel (JPEG is lossy).
inline bool near(const Pixel& a, const Pixel& b, int tolerance = 40) {
  for (int i = 0; i < 4; ++i)
    if (std::abs(a[i] - b[i]) > tolerance) return false;
  return true;
}

inline constexpr Pixel kRed{230, 20, 20, 255};
inline constexpr Pixel kBlue{20, 20, 230, 255};
inline constexpr Pixel kWhite{255, 255, 255, 255};

}  // namespace ferncast::image_test
