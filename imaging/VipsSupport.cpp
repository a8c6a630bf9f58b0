#include "imaging/VipsSupport.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>

#include "imaging/Image.h"

namespace ferncast::vips {
namespace {

struct LoaderName {
  std::string_view nickname;  // the type name of the libvips source loader
  Loader loader;
};

// The source loaders we trust with outside bytes. Left out on purpose: the matrix and CSV
// loaders (they take plain text for images), the native .v format (raw, unbounded), FITS,
// OpenSlide and poppler's PDF (PDF goes through MuPDF).
constexpr LoaderName kTrustedLoaders[] = {
    {"VipsForeignLoadJpegSource", Loader::kJpeg}, {"VipsForeignLoadPngSource", Loader::kPng},
    {"VipsForeignLoadNsgifSource", Loader::kGif}, {"VipsForeignLoadWebpSource", Loader::kWebp},
    {"VipsForeignLoadTiffSource", Loader::kTiff}, {"VipsForeignLoadJp2kSource", Loader::kJp2k},
    {"VipsForeignLoadHeifSource", Loader::kHeif}, {"VipsForeignLoadJxlSource", Loader::kJxl},
    {"VipsForeignLoadSvgSource", Loader::kSvg},   {"VipsForeignLoadPpmSource", Loader::kPpm},
    {"VipsForeignLoadRadSource", Loader::kRad},
};

std::uint32_t littleEndian32(const std::uint8_t* p) {
  return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

// Formats we hand to ImageMagick, recognised by their headers before it sees a byte.
bool isMagickFormat(const std::uint8_t* b, std::size_t n) {
  if (n >= 26 && b[0] == 'B' && b[1] == 'M') {  // BMP: the DIB header sizes of its versions
    const std::uint32_t dib = littleEndian32(b + 14);
    return dib == 12 || dib == 40 || dib == 52 || dib == 56 || dib == 64 || dib == 108 ||
           dib == 124;
  }
  if (n >= 22 && b[0] == 0 && b[1] == 0 && (b[2] == 1 || b[2] == 2) && b[3] == 0 &&
      (b[4] | b[5]) != 0)
    return true;  // ICO and CUR with at least one entry
  if (n >= 26 && std::memcmp(b, "8BPS", 4) == 0 && b[4] == 0 && (b[5] == 1 || b[5] == 2))
    return true;                                    // PSD and PSB
  return n >= 512 && b[0] == 0x01 && b[1] == 0xDA;  // SGI
}

// The largest JPEG shrink-on-load factor (1, 2, 4, 8) that still gives at least width × height.
int jpegShrink(int fullWidth, int fullHeight, int width, int height) {
  int shrink = 1;
  while (shrink < 8 && fullWidth / (shrink * 2) >= width && fullHeight / (shrink * 2) >= height)
    shrink *= 2;
  return shrink;
}

// The bytes an encoder writes: `save(&buffer, &length)` returns libvips's status.
template <typename Save>
std::optional<Data> saved(Save save) {
  void* buffer = nullptr;
  std::size_t length = 0;
  const int status = save(&buffer, &length);
  if (status != 0 || !buffer || length == 0) {
    g_free(buffer);
    takeError();
    return std::nullopt;
  }
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  Data data(bytes, bytes + length);
  g_free(buffer);
  return data;
}

}  // namespace

void ensureVips() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (VIPS_INIT("ferncast") != 0) takeError();
    // Cached operations would keep the bytes of earlier requests alive.
    vips_cache_set_max(0);
  });
}

std::string takeError() {
  std::string text = vips_error_buffer();
  vips_error_clear();
  return text;
}

bool shrinksOnLoad(Loader loader) {
  return loader == Loader::kJpeg || loader == Loader::kWebp || loader == Loader::kSvg;
}

std::optional<Loader> findLoader(const std::uint8_t* bytes, std::size_t length) {
  ensureVips();
  if (!bytes || length == 0) return std::nullopt;
  VipsSource* source = vips_source_new_from_memory(bytes, length);
  const char* nickname = source ? vips_foreign_find_load_source(source) : nullptr;
  if (source) g_object_unref(source);
  takeError();
  if (nickname) {
    for (const LoaderName& trusted : kTrustedLoaders)
      if (trusted.nickname == nickname) return trusted.loader;
    return std::nullopt;
  }
  if (isMagickFormat(bytes, length)) return Loader::kMagick;
  return std::nullopt;
}

ImageRef openImage(const std::uint8_t* bytes, std::size_t length, Loader loader, int page) {
  ensureVips();
  VipsImage* image = nullptr;
  if (loader == Loader::kMagick) {
    if (vips_magickload_buffer(const_cast<std::uint8_t*>(bytes), length, &image, "page", page,
                               "fail_on", VIPS_FAIL_ON_TRUNCATED, nullptr) != 0)
      image = nullptr;
  } else {
    VipsSource* source = vips_source_new_from_memory(bytes, length);
    if (source) {
      image = page > 0 ? vips_image_new_from_source(source, "", "page", page, "fail_on",
                                                    VIPS_FAIL_ON_TRUNCATED, nullptr)
                       : vips_image_new_from_source(source, "", "fail_on", VIPS_FAIL_ON_TRUNCATED,
                                                    nullptr);
      g_object_unref(source);
    }
  }
  if (!image) takeError();
  return ImageRef(image);
}

ImageRef decodePICT(const std::uint8_t* bytes, std::size_t length) {
  ensureVips();
  // ImageMagick recognises pictures only by their file name, so it reads a file of that name.
  const char* folder = std::getenv("TMPDIR");
  std::string path = std::string(folder && *folder ? folder : "/tmp") + "/ferncast-XXXXXX.pict";
  const int file = mkstemps(path.data(), 5);
  if (file < 0) return {};
  bool written = true;
  for (std::size_t done = 0; written && done < length;) {
    const ssize_t n = write(file, bytes + done, length - done);
    if (n < 0 && errno == EINTR) continue;
    written = n > 0;
    if (written) done += static_cast<std::size_t>(n);
  }
  close(file);
  ImageRef pixels;
  VipsImage* image = nullptr;
  if (written &&
      vips_magickload(path.c_str(), &image, "fail_on", VIPS_FAIL_ON_TRUNCATED, nullptr) == 0) {
    ImageRef header(image);
    if (std::int64_t{header.width()} * header.height() <= kMaxPixels)
      pixels = materialize(header.get());
  }
  unlink(path.c_str());
  takeError();
  return pixels;
}

int pageCount(VipsImage* image) {
  return std::max(1, vips_image_get_n_pages(image));
}

ImageRef thumbnail(const std::uint8_t* bytes, std::size_t length, Loader loader, int page,
                   int width, int height, VipsSize sizing, bool rotate, VipsImage* known) {
  ensureVips();
  if (width < 1 || height < 1) return {};
  // What the decoder will produce before resampling must stay under the limit.
  ImageRef header = known ? ImageRef::retain(known) : openImage(bytes, length, loader, page);
  if (!header) return {};
  const std::int64_t fullWidth = header.width(), fullHeight = header.height();
  std::int64_t decoded = fullWidth * fullHeight;
  if (loader == Loader::kJpeg) {
    const int shrink = jpegShrink(header.width(), header.height(), width, height);
    decoded = ((fullWidth + shrink - 1) / shrink) * ((fullHeight + shrink - 1) / shrink);
  } else if (loader == Loader::kWebp || loader == Loader::kSvg) {
    decoded = std::int64_t{width} * height;
  }
  if (decoded > kMaxPixels) return {};

  // The loader's options: libvips 8.14 passes its own fail_on to loaders only this way.
  const std::string loaderOptions =
      "fail_on=truncated" + (page > 0 ? ",page=" + std::to_string(page) : std::string());
  VipsImage* out = nullptr;
  int status;
  if (loader == Loader::kMagick) {
    status = vips_thumbnail_buffer(const_cast<std::uint8_t*>(bytes), length, &out, width, "height",
                                   height, "size", sizing, "no_rotate", !rotate, "option_string",
                                   loaderOptions.c_str(), nullptr);
  } else {
    VipsSource* source = vips_source_new_from_memory(bytes, length);
    status = source ? vips_thumbnail_source(source, &out, width, "height", height, "size", sizing,
                                            "no_rotate", !rotate, "option_string",
                                            loaderOptions.c_str(), nullptr)
                    : -1;
    if (source) g_object_unref(source);
  }
  if (status != 0) {
    takeError();
    return {};
  }
  ImageRef result(out);
  ImageRef srgb = toSRGB8(result.get());
  if (!srgb) return {};
  // A forced size is exact; the other modes round the shorter side, which is what they mean.
  if (sizing == VIPS_SIZE_FORCE && (srgb.width() != width || srgb.height() != height))
    srgb = resize(srgb.get(), width, height, VIPS_KERNEL_LANCZOS3);
  return srgb ? materialize(srgb.get()) : ImageRef();
}

ImageRef orient(VipsImage* image, int orientation) {
  if (orientation < 2 || orientation > 8) return ImageRef::retain(image);
  VipsImage* copy = nullptr;
  if (vips_copy(image, &copy, nullptr) != 0) {
    takeError();
    return {};
  }
  ImageRef tagged(copy);
  vips_image_set_int(tagged.get(), VIPS_META_ORIENTATION, orientation);
  VipsImage* upright = nullptr;
  if (vips_autorot(tagged.get(), &upright, nullptr) != 0) {
    takeError();
    return {};
  }
  ImageRef result(upright);
  return materialize(result.get());
}

ImageRef toSRGB8(VipsImage* image) {
  ImageRef current = ImageRef::retain(image);
  VipsImage* out = nullptr;
  const bool cmyk = vips_image_guess_interpretation(image) == VIPS_INTERPRETATION_CMYK;
  if (cmyk || vips_image_get_typeof(image, VIPS_META_ICC_NAME)) {
    if (vips_icc_transform(current.get(), &out, "srgb", "embedded", TRUE, "input_profile",
                           cmyk ? "cmyk" : "srgb", nullptr) == 0)
      current = ImageRef(out);
    else
      takeError();  // a broken profile: convert without it
  }
  if (vips_image_guess_interpretation(current.get()) != VIPS_INTERPRETATION_sRGB) {
    if (vips_colourspace(current.get(), &out, VIPS_INTERPRETATION_sRGB, nullptr) != 0) {
      takeError();
      return {};
    }
    current = ImageRef(out);
  }
  if (vips_image_get_format(current.get()) != VIPS_FORMAT_UCHAR) {
    if (vips_cast(current.get(), &out, VIPS_FORMAT_UCHAR, nullptr) != 0) {
      takeError();
      return {};
    }
    current = ImageRef(out);
  }
  const int bands = vips_image_get_bands(current.get());
  if (bands != 3 && bands != 4) {
    const int keep = bands > 4 ? 4 : bands;
    if (bands < 3 || vips_extract_band(current.get(), &out, 0, "n", keep, nullptr) != 0) {
      takeError();
      return {};
    }
    current = ImageRef(out);
  }
  return current;
}

ImageRef toSRGBA8(VipsImage* image) {
  ImageRef srgb = toSRGB8(image);
  if (!srgb || vips_image_get_bands(srgb.get()) == 4) return srgb;
  VipsImage* out = nullptr;
  if (vips_bandjoin_const1(srgb.get(), &out, 255, nullptr) != 0) {
    takeError();
    return {};
  }
  ImageRef withAlpha(out);
  withAlpha.get()->Type = VIPS_INTERPRETATION_sRGB;
  return withAlpha;
}

ImageRef resize(VipsImage* image, int width, int height, VipsKernel kernel) {
  if (width < 1 || height < 1) return {};
  if (vips_image_get_width(image) == width && vips_image_get_height(image) == height)
    return ImageRef::retain(image);
  const double horizontal = static_cast<double>(width) / vips_image_get_width(image);
  const double vertical = static_cast<double>(height) / vips_image_get_height(image);
  const bool alpha = vips_image_hasalpha(image);
  ImageRef current = ImageRef::retain(image);
  VipsImage* out = nullptr;
  auto step = [&](int status) {
    if (status != 0) {
      takeError();
      current = ImageRef();
      return false;
    }
    current = ImageRef(out);
    return true;
  };
  if (alpha && kernel != VIPS_KERNEL_NEAREST &&
      !step(vips_premultiply(current.get(), &out, nullptr)))
    return {};
  if (!step(vips_resize(current.get(), &out, horizontal, "vscale", vertical, "kernel", kernel,
                        nullptr)))
    return {};
  if (alpha && kernel != VIPS_KERNEL_NEAREST &&
      !step(vips_unpremultiply(current.get(), &out, nullptr)))
    return {};
  if (vips_image_get_format(current.get()) != VIPS_FORMAT_UCHAR &&
      !step(vips_cast(current.get(), &out, VIPS_FORMAT_UCHAR, nullptr)))
    return {};
  // Rounding may leave a pixel more or less: crop, then repeat the edge.
  if (current.width() > width || current.height() > height) {
    if (!step(vips_crop(current.get(), &out, 0, 0, std::min(width, current.width()),
                        std::min(height, current.height()), nullptr)))
      return {};
  }
  if (current.width() < width || current.height() < height) {
    if (!step(vips_embed(current.get(), &out, 0, 0, width, height, "extend", VIPS_EXTEND_COPY,
                         nullptr)))
      return {};
  }
  return current;
}

ImageRef materialize(VipsImage* image) {
  VipsImage* copy = vips_image_copy_memory(image);
  if (!copy) takeError();
  return ImageRef(copy);
}

std::optional<Data> encodeTIFF(VipsImage* image, TIFFCompression compression) {
  const VipsForeignTiffCompression code = compression == TIFFCompression::kLZW
                                              ? VIPS_FOREIGN_TIFF_COMPRESSION_LZW
                                              : VIPS_FOREIGN_TIFF_COMPRESSION_NONE;
  return saved([&](void** buffer, std::size_t* length) {
    return vips_tiffsave_buffer(image, buffer, length, "compression", code, nullptr);
  });
}

std::optional<Data> encode(VipsImage* image, BitmapImageFileType type, float compression) {
  const int quality = std::isfinite(compression)
                          ? std::clamp(static_cast<int>(std::lround(compression * 100.0f)), 1, 100)
                          : 75;
  ImageRef opaque;
  if ((type == BitmapImageFileType::kJPEG) && vips_image_hasalpha(image)) {
    VipsArrayDouble* white = vips_array_double_newv(3, 255.0, 255.0, 255.0);
    VipsImage* out = nullptr;
    const int status = vips_flatten(image, &out, "background", white, nullptr);
    vips_area_unref(VIPS_AREA(white));
    if (status != 0) {
      takeError();
      return std::nullopt;
    }
    opaque = ImageRef(out);
    image = opaque.get();
  }
  switch (type) {
    case BitmapImageFileType::kTIFF:
      return encodeTIFF(image, TIFFCompression::kNone);
    case BitmapImageFileType::kJPEG:
      return saved([&](void** buffer, std::size_t* length) {
        return vips_jpegsave_buffer(image, buffer, length, "Q", quality, nullptr);
      });
    case BitmapImageFileType::kPNG:
      return saved([&](void** buffer, std::size_t* length) {
        return vips_pngsave_buffer(image, buffer, length, nullptr);
      });
    case BitmapImageFileType::kGIF:
      return saved([&](void** buffer, std::size_t* length) {
        return vips_gifsave_buffer(image, buffer, length, nullptr);
      });
    case BitmapImageFileType::kJPEG2000:
      return saved([&](void** buffer, std::size_t* length) {
        return vips_jp2ksave_buffer(image, buffer, length, "Q", quality, nullptr);
      });
    case BitmapImageFileType::kBMP:
      // libvips has no BMP encoder of its own; ImageMagick writes it.
      return saved([&](void** buffer, std::size_t* length) {
        return vips_magicksave_buffer(image, buffer, length, "format", "bmp", nullptr);
      });
  }
  return std::nullopt;
}

std::optional<Data> pixelBytes(VipsImage* image) {
  std::size_t length = 0;
  void* memory = vips_image_write_to_memory(image, &length);
  return saved([&](void** buffer, std::size_t* size) {
    *buffer = memory;
    *size = length;
    return memory ? 0 : -1;
  });
}

}  // namespace ferncast::vips
