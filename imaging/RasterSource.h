// The pixels behind bitmap and cached representations. Private to imaging/.
//
// Either encoded bytes, decoded on demand by a trusted libvips loader, or 8-bit sRGB(A) pixels
// in memory. Immutable once made; may be read from several threads.
#pragma once

#include <cstdint>
#include <memory>

#include "Classes/PropertyList.h"
#include "imaging/Image.h"
#include "imaging/VipsSupport.h"

namespace ferncast {

struct RasterSource {
  // Encoded: the bytes, their decoder and the page.
  std::shared_ptr<const Data> bytes;
  vips::Loader loader = vips::Loader::kJpeg;
  int page = 0;
  // Decoded: pixels in memory (then `bytes` is null).
  vips::ImageRef memory;

  int width = 0;
  int height = 0;
  bool alpha = false;
  double dpiWidth = 72;
  double dpiHeight = 72;

  // The source of page `page` of encoded bytes: null when the header cannot be read, the image
  // has no pixels, or it is above kMaxPixels without a decoder that shrinks while loading.
  static std::shared_ptr<RasterSource> fromBytes(std::shared_ptr<const Data> bytes,
                                                 vips::Loader loader, int page,
                                                 const vips::ImageRef& header);
  // The source of pixels in memory (made 8-bit sRGB(A) first).
  static std::shared_ptr<RasterSource> fromImage(VipsImage* image);

  // The pixels at exactly width × height, 8-bit sRGB with alpha, in memory. Null when they
  // cannot be decoded or the decoding would exceed kMaxPixels.
  vips::ImageRef render(int targetWidth, int targetHeight, ImageInterpolation interpolation) const;
  // The pixels at full size, 8-bit sRGB(A), in memory; null above kMaxPixels.
  vips::ImageRef full() const;
};

// Dots per inch of a libvips resolution (pixels per millimetre); 72 when the file gave none.
double dotsPerInch(double pixelsPerMillimetre);

// The point size of pixels at a resolution (72 dpi: one point a pixel).
Size pointSize(int width, int height, double dpiWidth, double dpiHeight);

}  // namespace ferncast
