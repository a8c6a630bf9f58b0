// Image representations: the pieces an Image is made of (NSImageRep and its subclasses).
//
//   BitmapImageRep  pixels, decoded by libvips from encoded bytes (lazily) or held in memory
//   CachedImageRep  the pixels that drawing an image produced
//   PDFImageRep     PDF bytes and their first page (MuPDF), drawn on white
//   EPSImageRep     PostScript bytes and their bounding box; converted to PDF once, on demand,
//                   through Ghostscript
//   PICTImageRep    PICT bytes, decoded through ImageMagick by libvips
//
// Representations are immutable once made, except that an EPS representation keeps the PDF
// representation of its first conversion. They are shared (`std::shared_ptr`) between the images
// that hold them; a representation may be used by one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "Classes/PropertyList.h"
#include "imaging/ImageGeometry.h"

namespace ferncast {

class PDFDocument;
class PDFImageRep;

// The representation classes, for kind-of look-ups. Every class is a kind of kImageRep; the
// icon-reference bitmap is also a kind of kBitmap.
enum class ImageRepClass : std::uint8_t {
  kImageRep,
  kBitmap,
  kIconRefBitmap,
  kCached,
  kPDF,
  kEPS,
  kPICT,
};

// The class of a platform class name ("NSBitmapImageRep", "NSCachedImageRep", "NSPDFImageRep",
// "NSEPSImageRep", "NSPICTImageRep", "NSIconRefBitmapImageRep", "NSImageRep"); nullopt for others.
[[nodiscard]] std::optional<ImageRepClass> imageRepClassNamed(std::string_view name);

// The platform's bitmap file types (NSBitmapImageFileType).
enum class BitmapImageFileType : int {
  kTIFF = 0,
  kBMP = 1,
  kGIF = 2,
  kJPEG = 3,
  kPNG = 4,
  kJPEG2000 = 5,
};

// TIFF compression codes of the platform (NSTIFFCompression): none 1, LZW 5.
enum class TIFFCompression : int { kNone = 1, kLZW = 5 };

class ImageRep {
 public:
  virtual ~ImageRep();
  ImageRep(const ImageRep&) = delete;
  ImageRep& operator=(const ImageRep&) = delete;

  ImageRepClass repClass() const { return class_; }
  // Whether the representation is of `kind` or of a subclass of it.
  bool isKindOfClass(ImageRepClass kind) const;

  // The size in points at which the representation draws by default.
  Size size() const { return size_; }
  // Pixel dimensions; 0 for vector representations (PDF, EPS, PICT), which have none.
  int pixelsWide() const { return pixelsWide_; }
  int pixelsHigh() const { return pixelsHigh_; }
  // Whether the pixels carry an alpha channel (false for vector representations).
  virtual bool hasAlpha() const { return false; }

 protected:
  ImageRep(ImageRepClass repClass, Size size, int pixelsWide, int pixelsHigh);

 private:
  ImageRepClass class_;
  Size size_;
  int pixelsWide_;
  int pixelsHigh_;
};

// Pixels of a bitmap or cached representation. The implementation lives in imaging/ (libvips);
// nothing outside the folder sees it.
struct RasterSource;

class RasterImageRep : public ImageRep {
 public:
  ~RasterImageRep() override;
  bool hasAlpha() const override;

  // The image in `type`: TIFF (uncompressed), BMP, GIF, JPEG (quality = compression factor
  // 0...1), PNG or JPEG 2000; alpha is flattened on white where the format has none. nullopt
  // when the pixels cannot be decoded or the encoder fails.
  [[nodiscard]] std::optional<Data> representationUsingType(BitmapImageFileType type,
                                                            float compression) const;
  // TIFF with the given compression (the factor is accepted for the platform's signature; LZW
  // and none ignore it).
  [[nodiscard]] std::optional<Data> TIFFRepresentation(
      TIFFCompression compression = TIFFCompression::kNone, float factor = 1.0f) const;

  // A copy of the decoded pixels: 8-bit samples, sRGB (3 bands) or sRGB with alpha (4 bands),
  // rows packed top first. nullopt when they cannot be decoded or exceed the pixel limit.
  [[nodiscard]] std::optional<Data> data() const;

  const std::shared_ptr<const RasterSource>& source() const { return source_; }

 protected:
  RasterImageRep(ImageRepClass repClass, std::shared_ptr<const RasterSource> source);

 private:
  std::shared_ptr<const RasterSource> source_;
};

class BitmapImageRep : public RasterImageRep {
 public:
  // One representation per image in the bytes (the pages of a TIFF, the sizes of an icon), read
  // lazily: only the headers are read here; the bytes are shared, not copied. Empty when the
  // bytes are no image that the trusted decoders read, or when an image is above the pixel
  // limit and its decoder cannot shrink while loading.
  [[nodiscard]] static std::vector<std::shared_ptr<BitmapImageRep>> imageRepsWithData(
      std::shared_ptr<const Data> bytes);

  // A representation over 8-bit pixels: `bands` 1 (grey), 2 (grey, alpha), 3 (RGB) or 4 (RGB,
  // alpha), rows of `bytesPerRow` bytes, top row first. The pixels are copied. Null for sizes
  // that are not positive, above the pixel limit, or larger than `pixels`.
  [[nodiscard]] static std::shared_ptr<BitmapImageRep> imageRepWithPixels(
      int width, int height, int bands, const std::uint8_t* pixels, std::size_t length,
      std::size_t bytesPerRow);

  explicit BitmapImageRep(std::shared_ptr<const RasterSource> source,
                          ImageRepClass repClass = ImageRepClass::kBitmap);
};

class CachedImageRep : public RasterImageRep {
 public:
  explicit CachedImageRep(std::shared_ptr<const RasterSource> source);
};

class PDFImageRep : public ImageRep {
 public:
  // Null when the bytes are no PDF or the PDF has no page.
  [[nodiscard]] static std::shared_ptr<PDFImageRep> imageRepWithData(Data pdf);
  ~PDFImageRep() override;

  // The PDF bytes the representation was made from.
  const Data& PDFRepresentation() const { return pdf_; }
  // The first page's bounds (its crop box as drawn), origin 0,0.
  Rect bounds() const { return {{0, 0}, size()}; }
  int pageCount() const;
  // The open document; used by drawing.
  const PDFDocument& document() const { return *document_; }

 private:
  PDFImageRep(Data pdf, std::unique_ptr<PDFDocument> document, Size size);
  Data pdf_;
  std::unique_ptr<PDFDocument> document_;
};

class EPSImageRep : public ImageRep {
 public:
  // Null when the bytes hold no PostScript ("%!PS" at the start, or the binary header of a DOS
  // EPS file) with a %%BoundingBox comment.
  [[nodiscard]] static std::shared_ptr<EPSImageRep> imageRepWithData(Data postScript);

  // The PostScript bytes (of a DOS EPS file: its PostScript section).
  const Data& EPSRepresentation() const { return postScript_; }
  // The bounding box from the %%BoundingBox comment (or %%HiResBoundingBox when present).
  Rect boundingBox() const { return boundingBox_; }

  // The PDF representation of the converted program: converts it through Ghostscript (cropped
  // to the bounding box) on the first call and keeps the result, failure included, so later
  // calls return at once. Null when the conversion fails or takes longer than `timeLimit`.
  std::shared_ptr<ferncast::PDFImageRep> initializePDFImageRep(
      std::chrono::milliseconds timeLimit = kDefaultTimeLimit);
  // The PDF representation as it stands: null until initializePDFImageRep has converted.
  const std::shared_ptr<ferncast::PDFImageRep>& PDFImageRep() const { return pdfImageRep_; }
  // The PDF bytes of PDFImageRep(), nullopt when there is none.
  std::optional<Data> PDFRepresentation() const;

  static constexpr std::chrono::milliseconds kDefaultTimeLimit{20'000};

 private:
  EPSImageRep(Data postScript, Rect boundingBox);
  Data postScript_;
  Rect boundingBox_;
  bool converted_ = false;
  std::shared_ptr<ferncast::PDFImageRep> pdfImageRep_;
};

class PICTImageRep : public ImageRep {
 public:
  // Null when the bytes are no PICT picture (with or without the 512-byte file header) or when
  // ImageMagick cannot decode it.
  [[nodiscard]] static std::shared_ptr<PICTImageRep> imageRepWithData(Data pict);

  const Data& PICTRepresentation() const { return pict_; }
  // The picture frame from the PICT header.
  Rect boundingBox() const { return boundingBox_; }
  // The decoded pixels, made when the representation was.
  const std::shared_ptr<BitmapImageRep>& bitmap() const { return bitmap_; }

 private:
  PICTImageRep(Data pict, Rect frame, std::shared_ptr<BitmapImageRep> bitmap);
  Data pict_;
  Rect boundingBox_;
  std::shared_ptr<BitmapImageRep> bitmap_;
};

// The file extension of a bitmap file type: "tiff", "bmp", "gif", "jpg", "png", "jp2"; nullopt
// for any other value.
[[nodiscard]] std::optional<std::u16string_view> pathExtensionForBitmapImageFileType(int type);

}  // namespace ferncast
