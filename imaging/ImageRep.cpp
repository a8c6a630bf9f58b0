#include "imaging/ImageRep.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "imaging/Image.h"
#include "imaging/PDFDocument.h"
#include "imaging/PostScript.h"
#include "imaging/RasterSource.h"

namespace ferncast {
namespace {

// libvips reports 1 pixel per millimetre when a file states no resolution.
constexpr double kUnknownPixelsPerMillimetre = 1.0;

constexpr struct {
  std::string_view name;
  ImageRepClass repClass;
} kClassNames[] = {
    {"NSImageRep", ImageRepClass::kImageRep},
    {"NSBitmapImageRep", ImageRepClass::kBitmap},
    {"NSIconRefBitmapImageRep", ImageRepClass::kIconRefBitmap},
    {"NSCachedImageRep", ImageRepClass::kCached},
    {"NSPDFImageRep", ImageRepClass::kPDF},
    {"NSEPSImageRep", ImageRepClass::kEPS},
    {"NSPICTImageRep", ImageRepClass::kPICT},
};

std::uint16_t bigEndian16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}

}  // namespace

// --- ImageRep ------------------------------------------------------------------------------------

std::optional<ImageRepClass> imageRepClassNamed(std::string_view name) {
  for (const auto& entry : kClassNames)
    if (entry.name == name) return entry.repClass;
  return std::nullopt;
}

ImageRep::ImageRep(ImageRepClass repClass, Size size, int pixelsWide, int pixelsHigh)
    : class_(repClass), size_(size), pixelsWide_(pixelsWide), pixelsHigh_(pixelsHigh) {}

ImageRep::~ImageRep() = default;

bool ImageRep::isKindOfClass(ImageRepClass kind) const {
  if (kind == ImageRepClass::kImageRep || kind == class_) return true;
  return kind == ImageRepClass::kBitmap && class_ == ImageRepClass::kIconRefBitmap;
}

// --- Pixels --------------------------------------------------------------------------------------

double dotsPerInch(double pixelsPerMillimetre) {
  if (!(pixelsPerMillimetre > 0) || !std::isfinite(pixelsPerMillimetre) ||
      std::fabs(pixelsPerMillimetre - kUnknownPixelsPerMillimetre) < 1e-9)
    return 72;
  return pixelsPerMillimetre * 25.4;
}

Size pointSize(int width, int height, double dpiWidth, double dpiHeight) {
  return {static_cast<float>(width * 72.0 / dpiWidth),
          static_cast<float>(height * 72.0 / dpiHeight)};
}

std::shared_ptr<RasterSource> RasterSource::fromBytes(std::shared_ptr<const Data> bytes,
                                                      vips::Loader loader, int page,
                                                      const vips::ImageRef& header) {
  if (!header) return nullptr;
  const std::int64_t width = header.width(), height = header.height();
  if (width < 1 || height < 1) return nullptr;
  if (width * height > kMaxPixels && !vips::shrinksOnLoad(loader)) return nullptr;
  auto source = std::make_shared<RasterSource>();
  source->bytes = std::move(bytes);
  source->loader = loader;
  source->page = page;
  source->width = static_cast<int>(width);
  source->height = static_cast<int>(height);
  source->alpha = vips_image_hasalpha(header.get());
  source->dpiWidth = dotsPerInch(vips_image_get_xres(header.get()));
  source->dpiHeight = dotsPerInch(vips_image_get_yres(header.get()));
  return source;
}

std::shared_ptr<RasterSource> RasterSource::fromImage(VipsImage* image) {
  vips::ImageRef srgb = vips::toSRGB8(image);
  if (!srgb) return nullptr;
  vips::ImageRef pixels = vips::materialize(srgb.get());
  if (!pixels) return nullptr;
  auto source = std::make_shared<RasterSource>();
  source->width = pixels.width();
  source->height = pixels.height();
  source->alpha = vips_image_hasalpha(pixels.get());
  source->memory = std::move(pixels);
  return source;
}

vips::ImageRef RasterSource::full() const {
  if (memory) return vips::ImageRef::retain(memory.get());
  if (std::int64_t{width} * height > kMaxPixels) return {};
  vips::ImageRef image = vips::openImage(bytes->data(), bytes->size(), loader, page);
  if (!image) return {};
  vips::ImageRef srgb = vips::toSRGB8(image.get());
  return srgb ? vips::materialize(srgb.get()) : vips::ImageRef();
}

vips::ImageRef RasterSource::render(int targetWidth, int targetHeight,
                                    ImageInterpolation interpolation) const {
  if (targetWidth < 1 || targetHeight < 1 || std::int64_t{targetWidth} * targetHeight > kMaxPixels)
    return {};
  const VipsKernel kernel = interpolation == ImageInterpolation::kNone  ? VIPS_KERNEL_NEAREST
                            : interpolation == ImageInterpolation::kLow ? VIPS_KERNEL_LINEAR
                                                                        : VIPS_KERNEL_LANCZOS3;
  vips::ImageRef pixels;
  if (!memory && kernel == VIPS_KERNEL_LANCZOS3) {
    // Shrink while decoding, then resample to the exact size.
    pixels = vips::thumbnail(bytes->data(), bytes->size(), loader, page, targetWidth, targetHeight,
                             VIPS_SIZE_FORCE, false);
  } else {
    vips::ImageRef whole = full();
    if (whole) pixels = vips::resize(whole.get(), targetWidth, targetHeight, kernel);
  }
  if (!pixels) return {};
  vips::ImageRef rgba = vips::toSRGBA8(pixels.get());
  return rgba ? vips::materialize(rgba.get()) : vips::ImageRef();
}

RasterImageRep::RasterImageRep(ImageRepClass repClass, std::shared_ptr<const RasterSource> source)
    : ImageRep(repClass,
               pointSize(source->width, source->height, source->dpiWidth, source->dpiHeight),
               source->width, source->height),
      source_(std::move(source)) {}

RasterImageRep::~RasterImageRep() = default;

bool RasterImageRep::hasAlpha() const {
  return source_->alpha;
}

std::optional<Data> RasterImageRep::representationUsingType(BitmapImageFileType type,
                                                            float compression) const {
  vips::ImageRef pixels = source_->full();
  if (!pixels) return std::nullopt;
  return vips::encode(pixels.get(), type, compression);
}

std::optional<Data> RasterImageRep::TIFFRepresentation(TIFFCompression compression,
                                                       float /*factor*/) const {
  vips::ImageRef pixels = source_->full();
  if (!pixels) return std::nullopt;
  return vips::encodeTIFF(pixels.get(), compression);
}

std::optional<Data> RasterImageRep::data() const {
  vips::ImageRef pixels = source_->full();
  if (!pixels) return std::nullopt;
  return vips::pixelBytes(pixels.get());
}

BitmapImageRep::BitmapImageRep(std::shared_ptr<const RasterSource> source, ImageRepClass repClass)
    : RasterImageRep(repClass, std::move(source)) {}

CachedImageRep::CachedImageRep(std::shared_ptr<const RasterSource> source)
    : RasterImageRep(ImageRepClass::kCached, std::move(source)) {}

std::vector<std::shared_ptr<BitmapImageRep>> BitmapImageRep::imageRepsWithData(
    std::shared_ptr<const Data> bytes) {
  // The sizes of an icon or the pages of a TIFF: enough for any real file, few enough that a
  // hostile page count costs nothing.
  constexpr int kMaxPages = 32;
  std::vector<std::shared_ptr<BitmapImageRep>> reps;
  if (!bytes || bytes->empty()) return reps;
  const std::optional<vips::Loader> loader = vips::findLoader(bytes->data(), bytes->size());
  if (!loader) return reps;
  vips::ImageRef first = vips::openImage(bytes->data(), bytes->size(), *loader, 0);
  if (!first) return reps;
  const bool pagesAreImages = *loader == vips::Loader::kTiff || *loader == vips::Loader::kMagick;
  const int pages = pagesAreImages ? std::min(vips::pageCount(first.get()), kMaxPages) : 1;
  for (int page = 0; page < pages; ++page) {
    vips::ImageRef header =
        page == 0 ? std::move(first) : vips::openImage(bytes->data(), bytes->size(), *loader, page);
    if (auto source = RasterSource::fromBytes(bytes, *loader, page, header))
      reps.push_back(std::make_shared<BitmapImageRep>(std::move(source)));
  }
  return reps;
}

std::shared_ptr<BitmapImageRep> BitmapImageRep::imageRepWithPixels(int width, int height, int bands,
                                                                   const std::uint8_t* pixels,
                                                                   std::size_t length,
                                                                   std::size_t bytesPerRow) {
  vips::ensureVips();
  if (width < 1 || height < 1 || bands < 1 || bands > 4 || !pixels ||
      std::int64_t{width} * height > kMaxPixels ||
      bytesPerRow < static_cast<std::size_t>(width) * bands ||
      length < bytesPerRow * (static_cast<std::size_t>(height) - 1) +
                   static_cast<std::size_t>(width) * bands)
    return nullptr;
  // Pack the rows, then let libvips copy them.
  const std::size_t rowLength = static_cast<std::size_t>(width) * bands;
  Data packed(rowLength * static_cast<std::size_t>(height));
  for (int row = 0; row < height; ++row)
    std::memcpy(packed.data() + row * rowLength, pixels + row * bytesPerRow, rowLength);
  vips::ImageRef image(vips_image_new_from_memory_copy(packed.data(), packed.size(), width, height,
                                                       bands, VIPS_FORMAT_UCHAR));
  if (!image) {
    vips::takeError();
    return nullptr;
  }
  image.get()->Type = bands <= 2 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB;
  auto source = RasterSource::fromImage(image.get());
  return source ? std::make_shared<BitmapImageRep>(std::move(source)) : nullptr;
}

std::optional<std::u16string_view> pathExtensionForBitmapImageFileType(int type) {
  switch (type) {
    case 0:
      return u"tiff";
    case 1:
      return u"bmp";
    case 2:
      return u"gif";
    case 3:
      return u"jpg";
    case 4:
      return u"png";
    case 5:
      return u"jp2";
    default:
      return std::nullopt;
  }
}

// --- PDF -----------------------------------------------------------------------------------------

PDFImageRep::PDFImageRep(Data pdf, std::unique_ptr<PDFDocument> document, Size size)
    : ImageRep(ImageRepClass::kPDF, size, 0, 0),
      pdf_(std::move(pdf)),
      document_(std::move(document)) {}

PDFImageRep::~PDFImageRep() = default;

std::shared_ptr<PDFImageRep> PDFImageRep::imageRepWithData(Data pdf) {
  std::unique_ptr<PDFDocument> document = PDFDocument::open(pdf);
  if (!document || document->pageCount() < 1) return nullptr;
  const std::optional<PDFRect> bounds = document->pageBounds(0);
  if (!bounds || !(bounds->width > 0) || !(bounds->height > 0)) return nullptr;
  const Size size{static_cast<float>(bounds->width), static_cast<float>(bounds->height)};
  return std::shared_ptr<PDFImageRep>(new PDFImageRep(std::move(pdf), std::move(document), size));
}

int PDFImageRep::pageCount() const {
  return document_->pageCount();
}

// --- EPS -----------------------------------------------------------------------------------------

EPSImageRep::EPSImageRep(Data postScript, Rect boundingBox)
    : ImageRep(ImageRepClass::kEPS, boundingBox.size, 0, 0),
      postScript_(std::move(postScript)),
      boundingBox_(boundingBox) {}

std::shared_ptr<EPSImageRep> EPSImageRep::imageRepWithData(Data postScript) {
  std::optional<PostScriptProgram> program = readPostScriptProgram(postScript);
  if (!program || !program->boundingBox) return nullptr;
  return std::shared_ptr<EPSImageRep>(
      new EPSImageRep(std::move(program->text), *program->boundingBox));
}

std::shared_ptr<PDFImageRep> EPSImageRep::initializePDFImageRep(
    std::chrono::milliseconds timeLimit) {
  if (pdfImageRep_ || converted_) return pdfImageRep_;
  converted_ = true;
  std::optional<Data> pdf = convertPostScriptToPDF(postScript_, timeLimit);
  if (pdf) pdfImageRep_ = PDFImageRep::imageRepWithData(std::move(*pdf));
  return pdfImageRep_;
}

std::optional<Data> EPSImageRep::PDFRepresentation() const {
  if (!pdfImageRep_) return std::nullopt;
  return pdfImageRep_->PDFRepresentation();
}

// --- PICT ----------------------------------------------------------------------------------------

PICTImageRep::PICTImageRep(Data pict, Rect frame, std::shared_ptr<BitmapImageRep> bitmap)
    : ImageRep(ImageRepClass::kPICT, frame.size, 0, 0),
      pict_(std::move(pict)),
      boundingBox_(frame),
      bitmap_(std::move(bitmap)) {}

std::shared_ptr<PICTImageRep> PICTImageRep::imageRepWithData(Data pict) {
  // A picture starts with its size (2 bytes) and frame (top, left, bottom, right), after a
  // 512-byte header in files; the version opcode follows the frame.
  std::size_t start;
  if (pict.size() >= 528 && bigEndian16(pict.data() + 522) == 0x0011)
    start = 512;
  else if (pict.size() >= 16 && bigEndian16(pict.data() + 10) == 0x0011)
    start = 0;
  else
    return nullptr;
  const auto top = static_cast<std::int16_t>(bigEndian16(pict.data() + start + 2));
  const auto left = static_cast<std::int16_t>(bigEndian16(pict.data() + start + 4));
  const auto bottom = static_cast<std::int16_t>(bigEndian16(pict.data() + start + 6));
  const auto right = static_cast<std::int16_t>(bigEndian16(pict.data() + start + 8));
  if (right <= left || bottom <= top) return nullptr;
  // ImageMagick expects the file header; give it one.
  Data withHeader;
  if (start == 0) withHeader.assign(512, 0);
  withHeader.insert(withHeader.end(), pict.begin(), pict.end());
  vips::ImageRef pixels = vips::decodePICT(withHeader.data(), withHeader.size());
  auto source = pixels ? RasterSource::fromImage(pixels.get()) : nullptr;
  if (!source) return nullptr;
  const Rect frame{{static_cast<float>(left), static_cast<float>(top)},
                   {static_cast<float>(right - left), static_cast<float>(bottom - top)}};
  return std::shared_ptr<PICTImageRep>(new PICTImageRep(
      std::move(pict), frame, std::make_shared<BitmapImageRep>(std::move(source))));
}

}  // namespace ferncast
