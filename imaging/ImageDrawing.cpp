// Drawing images into new images, and their encodings.
//
// A drawing target is a canvas of 8-bit sRGB pixels with alpha, one pixel a point, transparent
// at first. Drawing an image into a rectangle renders its best representation at the
// rectangle's pixel size and puts the result there: bitmaps keep their alpha (the image's
// background colour is clear), PDF, EPS and PICT pages are drawn on white. The finished canvas
// becomes the target's cached representation.
#include <cmath>
#include <string>

#include "Classes/Log.h"
#include "imaging/Image.h"
#include "imaging/PDFDocument.h"
#include "imaging/RasterSource.h"

namespace ferncast {
namespace {

struct DrawingSettings {
  bool antialias = true;
  ImageInterpolation interpolation = ImageInterpolation::kDefault;
};

// A pixel count for a size in points: at least 1 for any positive size.
int pixels(float points) {
  return static_cast<int>(std::max(1.0f, std::ceil(points - 1e-3f)));
}

bool isUsableSize(Size size) {
  return size.width > 0 && size.height > 0 && std::isfinite(size.width) &&
         std::isfinite(size.height) &&
         static_cast<double>(pixels(size.width)) * pixels(size.height) <= kMaxPixels;
}

vips::ImageRef flattenedOnWhite(vips::ImageRef image) {
  if (!image || !vips_image_hasalpha(image.get())) return image;
  VipsArrayDouble* white = vips_array_double_newv(3, 255.0, 255.0, 255.0);
  VipsImage* out = nullptr;
  const int status = vips_flatten(image.get(), &out, "background", white, nullptr);
  vips_area_unref(VIPS_AREA(white));
  if (status != 0) {
    vips::takeError();
    return {};
  }
  return vips::ImageRef(out);
}

vips::ImageRef renderPDF(const PDFImageRep& pdf, int width, int height) {
  std::optional<PDFPageBitmap> page = pdf.document().renderPage(0, width, height);
  if (!page || page->width != width || page->height != height) return {};
  vips::ImageRef image(vips_image_new_from_memory_copy(page->rgb.data(), page->rgb.size(), width,
                                                       height, 3, VIPS_FORMAT_UCHAR));
  if (!image) {
    vips::takeError();
    return {};
  }
  image.get()->Type = VIPS_INTERPRETATION_sRGB;
  return image;
}

// The representation at width × height pixels, 8-bit sRGB with alpha, in memory.
vips::ImageRef renderRepresentation(ImageRep& rep, int width, int height,
                                    const DrawingSettings& settings) {
  vips::ImageRef layer;
  switch (rep.repClass()) {
    case ImageRepClass::kBitmap:
    case ImageRepClass::kIconRefBitmap:
    case ImageRepClass::kCached:
      return static_cast<RasterImageRep&>(rep).source()->render(width, height,
                                                                settings.interpolation);
    case ImageRepClass::kPDF:
      layer = renderPDF(static_cast<PDFImageRep&>(rep), width, height);
      break;
    case ImageRepClass::kEPS:
      if (auto pdf = static_cast<EPSImageRep&>(rep).initializePDFImageRep())
        layer = renderPDF(*pdf, width, height);
      break;
    case ImageRepClass::kPICT:
      layer = flattenedOnWhite(static_cast<PICTImageRep&>(rep).bitmap()->source()->render(
          width, height, settings.interpolation));
      break;
    case ImageRepClass::kImageRep:
      break;
  }
  if (!layer) return {};
  vips::ImageRef rgba = vips::toSRGBA8(layer.get());
  return rgba ? vips::materialize(rgba.get()) : vips::ImageRef();
}

class Canvas {
 public:
  Canvas(int width, int height) : height_(height) {
    VipsImage* clear = nullptr;
    if (vips_black(&clear, width, height, "bands", 4, nullptr) == 0) {
      pixels_ = vips::ImageRef(clear);
      pixels_.get()->Type = VIPS_INTERPRETATION_sRGB;
    } else {
      vips::takeError();
    }
  }

  explicit operator bool() const { return static_cast<bool>(pixels_); }

  // drawImageInRect: false when the image's representation cannot be drawn.
  bool draw(const Image& image, Rect rect, const DrawingSettings& settings) {
    std::shared_ptr<ImageRep> rep = image.bestRepresentationForRect(rect);
    if (!rep) return true;  // nothing to draw
    const int width = pixels(rect.size.width), height = pixels(rect.size.height);
    if (static_cast<double>(width) * height > kMaxPixels) return false;
    vips::ImageRef layer = renderRepresentation(*rep, width, height, settings);
    if (!layer) return false;
    // Points have their origin at the lower left, pixel rows at the top.
    const int x = static_cast<int>(std::lround(rect.origin.x));
    const int y = height_ - static_cast<int>(std::lround(rect.origin.y)) - height;
    VipsImage* out = nullptr;
    if (vips_insert(pixels_.get(), layer.get(), &out, x, y, nullptr) != 0) {
      vips::takeError();
      return false;
    }
    pixels_ = vips::ImageRef(out);
    return true;
  }

  std::shared_ptr<RasterSource> finish() {
    vips::ImageRef done = vips::materialize(pixels_.get());
    return done ? RasterSource::fromImage(done.get()) : nullptr;
  }

 private:
  int height_;
  vips::ImageRef pixels_;
};

enum class Holding { kCached, kBitmap };

// The image drawn into `from`-relative rectangle `drawRect` of a new image of `size`.
std::unique_ptr<Image> render(const Image& image, Size size, Rect drawRect,
                              const DrawingSettings& settings, Holding holding,
                              bool cachedSeparately, const char* operationToLog) {
  if (!isUsableSize(size)) return nullptr;
  vips::ensureVips();
  Canvas canvas(pixels(size.width), pixels(size.height));
  std::shared_ptr<RasterSource> drawn;
  if (canvas && canvas.draw(image, drawRect, settings)) drawn = canvas.finish();
  if (!drawn) {
    if (operationToLog)
      logException(operationToLog, "NSImage", "NSImageCacheException",
                   "The image could not be drawn: " + vips::takeError());
    return nullptr;
  }
  auto target = std::make_unique<Image>(size);
  target->setCachedSeparately(cachedSeparately);
  if (holding == Holding::kBitmap)
    target->addRepresentation(std::make_shared<BitmapImageRep>(std::move(drawn)));
  else
    target->addRepresentation(std::make_shared<CachedImageRep>(std::move(drawn)));
  return target;
}

Rect wholeRect(Size size) {
  return {{0, 0}, size};
}

// The rectangle to draw the whole image into so that its part `from` fills a target of `size`.
Rect rectShowing(const Image& image, Rect from, Size size) {
  const float horizontal = size.width / from.size.width;
  const float vertical = size.height / from.size.height;
  const Size whole = image.size();
  return {{-from.origin.x * horizontal, -from.origin.y * vertical},
          {whole.width * horizontal, whole.height * vertical}};
}

std::optional<Data> TIFFOf(const std::unique_ptr<Image>& image) {
  if (!image) return std::nullopt;
  return image->TIFFRepresentation();
}

}  // namespace

// --- Rendering -----------------------------------------------------------------------------------

std::unique_ptr<Image> Image::imageWithSize(Size size, bool cachedSeparately) const {
  return render(*this, size, wholeRect(size), {}, Holding::kCached, cachedSeparately,
                "initWithImage:size:cachedSeparately:");
}

std::unique_ptr<Image> Image::imageWithSize(Size size, bool antialias,
                                            ImageInterpolation interpolation,
                                            bool cachedSeparately) const {
  return render(*this, size, wholeRect(size), {antialias, interpolation}, Holding::kCached,
                cachedSeparately, nullptr);
}

std::unique_ptr<Image> Image::bitmapImageWithSize(Size size, bool cachedSeparately) const {
  return render(*this, size, wholeRect(size), {}, Holding::kBitmap, cachedSeparately,
                "initWithImage:size:cachedSeparately:");
}

std::unique_ptr<Image> Image::bitmapImageWithSize(Size size, bool antialias,
                                                  ImageInterpolation interpolation,
                                                  bool cachedSeparately) const {
  return render(*this, size, wholeRect(size), {antialias, interpolation}, Holding::kBitmap,
                cachedSeparately, nullptr);
}

std::unique_ptr<Image> Image::bitmapImageCachedSeparately(bool cachedSeparately) const {
  std::optional<Data> tiff = TIFFRepresentation();
  if (!tiff) return nullptr;
  std::unique_ptr<Image> image = imageWithData(std::move(*tiff));
  if (image) image->setCachedSeparately(cachedSeparately);
  return image;
}

// --- Encoding ------------------------------------------------------------------------------------

std::optional<Data> Image::TIFFRepresentation() const {
  return TIFFRepresentationUsingCompression(TIFFCompression::kNone, 1.0f);
}

std::optional<Data> Image::TIFFRepresentationUsingCompression(TIFFCompression compression,
                                                              float factor) const {
  for (const auto& rep : representations()) {
    if (rep->isKindOfClass(ImageRepClass::kBitmap) || rep->isKindOfClass(ImageRepClass::kCached))
      return static_cast<const RasterImageRep&>(*rep).TIFFRepresentation(compression, factor);
  }
  std::unique_ptr<Image> drawn =
      render(*this, size(), wholeRect(size()), {}, Holding::kCached, false, nullptr);
  if (!drawn) return std::nullopt;
  return drawn->TIFFRepresentationUsingCompression(compression, factor);
}

std::optional<Data> Image::TIFFRepresentationWithSize(Size size) const {
  return TIFFOf(render(*this, size, wholeRect(size), {}, Holding::kCached, false, nullptr));
}

std::optional<Data> Image::TIFFRepresentationWithSize(Size size, bool cachedSeparately) const {
  return TIFFOf(
      render(*this, size, wholeRect(size), {}, Holding::kCached, cachedSeparately, nullptr));
}

std::optional<Data> Image::TIFFRepresentationFromRect(Rect from) const {
  return TIFFRepresentationWithSize(from.size, from);
}

std::optional<Data> Image::TIFFRepresentationWithSize(Size size, Rect from) const {
  return TIFFRepresentationWithSize(size, from, false);
}

std::optional<Data> Image::TIFFRepresentationWithSize(Size size, Rect from,
                                                      bool cachedSeparately) const {
  if (!(from.size.width > 0) || !(from.size.height > 0)) return std::nullopt;
  return TIFFOf(render(*this, size, rectShowing(*this, from, size), {}, Holding::kCached,
                       cachedSeparately, nullptr));
}

std::optional<Data> Image::TIFFRepresentationWithSize(Size size, bool antialias,
                                                      ImageInterpolation interpolation,
                                                      bool /*cachedSeparately*/) const {
  return TIFFOf(render(*this, size, wholeRect(size), {antialias, interpolation}, Holding::kCached,
                       false, nullptr));
}

std::optional<Data> Image::representationUsingType(BitmapImageFileType type,
                                                   float compression) const {
  std::shared_ptr<ImageRep> best = bestRepresentationForRect(wholeRect(size()));
  if (!best) return std::nullopt;
  if (!best->isKindOfClass(ImageRepClass::kBitmap)) best = bitmapImageRep();
  if (!best) return std::nullopt;
  return static_cast<const BitmapImageRep&>(*best).representationUsingType(type, compression);
}

std::optional<Data> Image::snapshotData() const {
  if (std::shared_ptr<BitmapImageRep> bitmap = bitmapImageRep())
    return bitmap->representationUsingType(BitmapImageFileType::kJPEG, 0.75f);
  std::optional<Data> tiff = TIFFRepresentation();
  if (!tiff) return std::nullopt;
  auto reps = BitmapImageRep::imageRepsWithData(std::make_shared<Data>(std::move(*tiff)));
  if (reps.empty()) return std::nullopt;
  return reps.front()->representationUsingType(BitmapImageFileType::kJPEG, 0.75f);
}

}  // namespace ferncast
