// libvips behind the image representations: start-up, the trusted decoders, decoding at a size,
// conversion to 8-bit sRGB and the encoders. Private to imaging/.
//
// Every function reports failure with a null image or nullopt and leaves no libvips error
// behind (the error buffer is cleared). Safe on any thread once ensureVips() has run (each call
// below runs it).
#pragma once

#include <vips/vips.h>

#include <cstdint>
#include <optional>
#include <utility>

#include "Classes/PropertyList.h"
#include "imaging/ImageRep.h"

namespace ferncast::vips {

void ensureVips();

// An owned reference to a VipsImage.
class ImageRef {
 public:
  ImageRef() = default;
  explicit ImageRef(VipsImage* adopted) : image_(adopted) {}
  ImageRef(ImageRef&& other) noexcept : image_(std::exchange(other.image_, nullptr)) {}
  ImageRef& operator=(ImageRef&& other) noexcept {
    std::swap(image_, other.image_);
    return *this;
  }
  ~ImageRef() {
    if (image_) g_object_unref(image_);
  }
  // A new reference to an image held elsewhere.
  static ImageRef retain(VipsImage* image) {
    if (image) g_object_ref(image);
    return ImageRef(image);
  }
  VipsImage* get() const { return image_; }
  explicit operator bool() const { return image_ != nullptr; }
  int width() const { return vips_image_get_width(image_); }
  int height() const { return vips_image_get_height(image_); }

 private:
  VipsImage* image_ = nullptr;
};

// The decoders we let read outside bytes. ImageMagick only gets bytes that our own sniffing has
// recognised as BMP, ICO, PSD or SGI.
enum class Loader : std::uint8_t {
  kJpeg,
  kPng,
  kGif,
  kWebp,
  kTiff,
  kJp2k,
  kHeif,
  kJxl,
  kSvg,
  kPpm,
  kRad,
  kMagick,
};

// Whether the decoder can decode at a fraction of the full size (JPEG, WebP, SVG).
bool shrinksOnLoad(Loader loader);

// The trusted decoder for the bytes, nullopt when none reads them.
std::optional<Loader> findLoader(const std::uint8_t* bytes, std::size_t length);

// The image (page `page`) of the bytes, header read and pixels decoded lazily. The bytes must
// outlive the image. Truncated data fails when the pixels are read.
ImageRef openImage(const std::uint8_t* bytes, std::size_t length, Loader loader, int page = 0);

// The pixels of a PICT picture (with its 512-byte file header), decoded by ImageMagick into
// memory; null when it cannot decode them or they exceed kMaxPixels.
ImageRef decodePICT(const std::uint8_t* bytes, std::size_t length);

// The number of images (pages) that the loader reports for the opened image; 1 when none.
int pageCount(VipsImage* image);

// The bytes decoded at about width × height (shrink-on-load where the decoder offers it) and
// resized to exactly that size; `rotate` applies the EXIF orientation (the size is then that of
// the rotated image). 8-bit sRGB with or without alpha, in memory. Null when the bytes cannot be
// decoded or the decoding would exceed kMaxPixels. `header`, when given, is the image as
// openImage made it, which saves reading the header twice.
ImageRef thumbnail(const std::uint8_t* bytes, std::size_t length, Loader loader, int page,
                   int width, int height, VipsSize sizing, bool rotate,
                   VipsImage* header = nullptr);

// The image turned upright from an EXIF orientation (2 to 8; others leave it as it is).
ImageRef orient(VipsImage* image, int orientation);

// The image converted to 8-bit sRGB (3 bands, or 4 with alpha), its ICC profile applied.
ImageRef toSRGB8(VipsImage* image);
// The same with an opaque alpha band added when there is none.
ImageRef toSRGBA8(VipsImage* image);
// Resized to exactly width × height with the kernel; alpha premultiplied while resampling.
ImageRef resize(VipsImage* image, int width, int height, VipsKernel kernel);
// The pipeline computed into memory; null when decoding fails.
ImageRef materialize(VipsImage* image);

// Encoded bytes of an 8-bit sRGB(A) image.
std::optional<Data> encode(VipsImage* image, BitmapImageFileType type, float compression);
std::optional<Data> encodeTIFF(VipsImage* image, TIFFCompression compression);

// The raw bytes of an image in memory (rows packed, top first).
std::optional<Data> pixelBytes(VipsImage* image);

// Clears and returns libvips's error text.
std::string takeError();

}  // namespace ferncast::vips
