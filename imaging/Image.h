// Image: the platform image object (NSImage) with its ordered list of representations, the
// look-ups over that list, sizes, rendering at a size and encoding.
//
// An image made by reference to a file reads the file when it is first asked about its size or
// representations; other images are complete when made. The representation is chosen by content:
// PDF ("%PDF" in the first KiB), PostScript ("%!PS" or a DOS EPS header), PICT (a picture header
// in a file named .pict/.pct/.pic, or a version-2 picture after a 512-byte header), else the
// trusted libvips decoders (JPEG, PNG, GIF, WebP, TIFF, JPEG 2000, HEIF, JPEG XL, SVG, PNM,
// Radiance; BMP, ICO, PSD and SGI through ImageMagick).
//
// Limits: images above kMaxPixels are refused unless their decoder shrinks while loading (JPEG,
// WebP, SVG), and then only renderings that stay below the limit are made; nothing is ever
// decoded at more than kMaxPixels. Failure is an empty answer (null image, nullopt data, NO),
// never an exception. An Image is used by one thread at a time; different images (even sharing
// representations read-only) may be used on different threads.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/PropertyList.h"
#include "imaging/ImageGeometry.h"
#include "imaging/ImageRep.h"

namespace ferncast {

// The platform's image interpolation (NSImageInterpolation). Rendering maps none to nearest
// neighbour, low to bilinear, high and default to Lanczos 3 (after shrink-on-load where the
// decoder offers it).
enum class ImageInterpolation : int { kDefault = 0, kNone = 1, kLow = 2, kHigh = 3 };

inline constexpr std::int64_t kMaxPixels = 100'000'000;

class Image {
 public:
  using RepList = std::vector<std::shared_ptr<ImageRep>>;

  // --- Making images ---------------------------------------------------------------------------

  // An empty image of the given size, without representations (a drawing target).
  explicit Image(Size size = {});
  ~Image();
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  // The image of a file, read when first needed. Null for an empty path; a file that cannot be
  // read or decoded gives an image without representations (isReallyValid is false).
  [[nodiscard]] static std::unique_ptr<Image> imageByReferencingFile(std::u16string_view path);
  // The image of a file, read now; null when it cannot be read or holds no image.
  [[nodiscard]] static std::unique_ptr<Image> imageWithContentsOfFile(std::u16string_view path);
  // The image of encoded bytes; null when no representation can be made of them.
  [[nodiscard]] static std::unique_ptr<Image> imageWithData(Data data);
  // imageWithCGImageRef: an image of the bitmap's pixel size (points equal pixels) holding it;
  // null for a null bitmap or one without pixels.
  [[nodiscard]] static std::unique_ptr<Image> imageWithBitmap(
      std::shared_ptr<BitmapImageRep> bitmap);
  // The same over 8-bit pixels (see BitmapImageRep::imageRepWithPixels), e.g. a movie frame.
  [[nodiscard]] static std::unique_ptr<Image> imageWithPixels(int width, int height, int bands,
                                                              const std::uint8_t* pixels,
                                                              std::size_t length,
                                                              std::size_t bytesPerRow);
  // initWithDownloadedData:cachedSeparately: the bytes of a possibly unfinished download; null
  // unless every row of the image is there.
  [[nodiscard]] static std::unique_ptr<Image> imageWithDownloadedData(const Data& data,
                                                                      bool cachedSeparately);

  // --- Thumbnails ----------------------------------------------------------------------------

  // A thumbnail of the image in a file, its longer side at most `maxSize` pixels, never
  // enlarged. With `alwaysFromImage` false and an embedded EXIF thumbnail in the file, it is made
  // from that one (the main image is not decoded); otherwise the main image is decoded shrunk
  // while loading where its decoder can. `withTransform` applies the EXIF orientation, so the
  // result is upright. When `properties` is given it is set to nullopt first, then to the
  // properties of the main image (imaging/ImageProperties.h) when a thumbnail comes back.
  // Null for an empty path, an unreadable file, a file that is no image, a `maxSize` below 1.
  [[nodiscard]] static std::unique_ptr<Image> thumbnailForFile(
      std::u16string_view path, int maxSize, bool alwaysFromImage, bool withTransform,
      std::optional<Dictionary>* properties);
  // The same over bytes already in memory (the file's contents).
  [[nodiscard]] static std::unique_ptr<Image> thumbnailForData(
      const Data& data, int maxSize, bool alwaysFromImage, bool withTransform,
      std::optional<Dictionary>* properties);
  // The same with both flags false and no properties.
  [[nodiscard]] static std::unique_ptr<Image> thumbnailForFile(std::u16string_view path,
                                                               int maxSize) {
    return thumbnailForFile(path, maxSize, false, false, nullptr);
  }

  // --- State ---------------------------------------------------------------------------------

  // The size in points: set, or else that of the first representation.
  Size size() const;
  void setSize(Size size);
  bool scalesWhenResized() const { return scalesWhenResized_; }
  void setScalesWhenResized(bool scales) { scalesWhenResized_ = scales; }
  bool cachedSeparately() const { return cachedSeparately_; }
  void setCachedSeparately(bool separately) { cachedSeparately_ = separately; }

  const RepList& representations() const;
  void addRepresentation(std::shared_ptr<ImageRep> rep);
  void removeRepresentation(const ImageRep* rep);
  // Removes every representation, last first.
  void removeAllRepresentations();

  // --- Inspections ---------------------------------------------------------------------------

  // Width and height above 0 and at least one representation.
  bool isReallyValid() const;
  // The pixel size of the widest representation (the first of equals); the point size when no
  // representation has pixels.
  Size pixelSize() const;
  // Whether drawing can leave transparent pixels: any vector representation, or any bitmap or
  // cached representation with alpha.
  bool hasAlpha() const;
  // Width / height of the size; 0 when the height is not above 0.
  float aspectRatio() const;
  // The rectangle of the image's content: the first PDF representation's bounds, or the first
  // EPS representation's (converting it), else origin 0,0 and the largest pixel size (or the
  // point size).
  Rect bounds();

  // --- Sizes ---------------------------------------------------------------------------------

  // The source size fitted into the box, never enlarged, each side at least 1 (thumb:forSize:).
  static Size thumb(Size box, Size size);
  // The size times the factor, floored; unchanged for a factor not above 0 (scale:forSize:).
  static Size scale(float factor, Size size);
  Size thumbSize(Size box) const { return thumb(box, pixelSize()); }
  Size scaledSize(float factor) const { return scale(factor, pixelSize()); }
  // Turns scaling on and sets the size to thumbSize(box).
  void scaleToThumbSize(Size box);

  // --- Representation look-ups -----------------------------------------------------------------

  // The first representation of the class or a subclass (getImageRepOfClass).
  std::shared_ptr<ImageRep> imageRepOfClass(ImageRepClass kind) const;
  // The same by platform class name; logs "Class %@ not found." and answers null for a name
  // that is no class.
  std::shared_ptr<ImageRep> imageRepOfClassNamed(std::string_view className) const;
  // True when some representation is of the class and every other is a cached one
  // (isImageRepKindOfClass).
  bool isImageRepKindOfClass(ImageRepClass kind) const;

  // The PDF representation, or that of a converted EPS representation; null otherwise.
  std::shared_ptr<ferncast::PDFImageRep> PDFImageRep() const;
  std::shared_ptr<ferncast::EPSImageRep> EPSImageRep() const;
  std::shared_ptr<ferncast::PICTImageRep> PICTImageRep() const;
  std::shared_ptr<BitmapImageRep> bitmapImageRep() const;
  std::shared_ptr<CachedImageRep> cachedImageRep() const;
  std::shared_ptr<BitmapImageRep> iconRefBitmapImageRep() const;

  bool isPDFImage() const;  // only PDF (beside cached ones), or any EPS representation
  bool isEPSImage() const;
  bool isPICTImage() const;
  bool isBitmapImage() const;
  bool isIconRefBitmapImage() const;
  bool isScalableImage() const { return isPDFImage() || isPICTImage(); }
  // The decoded pixels of bitmapImageRep() (RasterImageRep::data).
  std::optional<Data> bitmapImageRepData() const;

  // The representation that draws best into a rectangle of this size: a vector one when there
  // is one, else the smallest bitmap or cached one that covers it (the largest when none does).
  std::shared_ptr<ImageRep> bestRepresentationForRect(Rect rect) const;

  // "pdf", "eps", "pict" or "tiff": the kind of the most faithful representation.
  std::u16string pathExtensionForBestRepresentation() const;
  // The image's data in that form: PDF bytes, EPS bytes, PICT bytes, or a TIFF (LZW) of the
  // whole image; `extension` (when given) receives the matching extension.
  std::optional<Data> bestRepresentationAndFileExtension(std::u16string* extension) const;
  std::optional<Data> bestRepresentation() const { return bestRepresentationAndFileExtension({}); }

  // --- Rendering -------------------------------------------------------------------------------
  // Each draws the image (drawImageInRect) into a new image of `size` points (one pixel a point)
  // that holds the result as a cached representation. Sizes with a side not above 0, or above
  // kMaxPixels, give null.

  // Default antialiasing and interpolation; a drawing failure is logged with the exception log
  // line and gives null.
  std::unique_ptr<Image> imageWithSize(Size size, bool cachedSeparately) const;
  std::unique_ptr<Image> imageWithSize(Size size, bool antialias, ImageInterpolation interpolation,
                                       bool cachedSeparately) const;
  std::unique_ptr<Image> thumbForSize(Size box, bool cachedSeparately) const {
    return imageWithSize(thumbSize(box), cachedSeparately);
  }
  std::unique_ptr<Image> thumbForSize(Size box, bool antialias, ImageInterpolation interpolation,
                                      bool cachedSeparately) const {
    return imageWithSize(thumbSize(box), antialias, interpolation, cachedSeparately);
  }
  // The same, holding a bitmap representation instead of the cached one.
  std::unique_ptr<Image> bitmapImageWithSize(Size size, bool cachedSeparately) const;
  std::unique_ptr<Image> bitmapImageWithSize(Size size, bool antialias,
                                             ImageInterpolation interpolation,
                                             bool cachedSeparately) const;
  // A new image holding a bitmap of this image at its own size (bitmapImageCachedSeparately:,
  // copyOfBitmapImageCachedSeparately:).
  std::unique_ptr<Image> bitmapImageCachedSeparately(bool cachedSeparately) const;

  // --- Encoding --------------------------------------------------------------------------------

  // TIFF of the image: its first bitmap or cached representation, or else the image drawn at
  // its size. LZW when asked (the factor is ignored by both compressions).
  std::optional<Data> TIFFRepresentation() const;
  std::optional<Data> TIFFRepresentationUsingCompression(TIFFCompression compression,
                                                         float factor) const;
  // TIFF of the image drawn at `size`, or of the part `from` (in the image's points) drawn at
  // `size` (the part's own size when no size is given).
  std::optional<Data> TIFFRepresentationWithSize(Size size) const;
  std::optional<Data> TIFFRepresentationWithSize(Size size, bool cachedSeparately) const;
  std::optional<Data> TIFFRepresentationFromRect(Rect from) const;
  std::optional<Data> TIFFRepresentationWithSize(Size size, Rect from) const;
  std::optional<Data> TIFFRepresentationWithSize(Size size, Rect from, bool cachedSeparately) const;
  // TIFF of the image drawn at `size` under those settings; `cachedSeparately` is accepted and
  // ignored.
  std::optional<Data> TIFFRepresentationWithSize(Size size, bool antialias,
                                                 ImageInterpolation interpolation,
                                                 bool cachedSeparately) const;
  // The best representation for the image's own bounds, as a bitmap (the first bitmap
  // representation when the best is none), encoded in `type`.
  std::optional<Data> representationUsingType(BitmapImageFileType type, float compression) const;
  // JPEG at 0.75 of the first bitmap representation, or of the image's TIFF when it has none.
  std::optional<Data> snapshotData() const;

 private:
  friend class ImageLoader;
  void load() const;

  mutable RepList representations_;
  mutable std::optional<std::u16string> pendingPath_;  // a referenced file not read yet
  std::optional<Size> size_;
  bool scalesWhenResized_ = false;
  bool cachedSeparately_ = false;
};

}  // namespace ferncast
