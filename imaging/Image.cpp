#include "imaging/Image.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "Classes/Log.h"
#include "Classes/NSData+Quill.h"
#include "Classes/NSString+Paths.h"
#include "Classes/Unicode.h"
#include "imaging/PostScript.h"
#include "imaging/RasterSource.h"
#include "markup/chartables/NSString+Quill.h"

namespace ferncast {

std::u16string stringFromSize(Size size) {
  return sizeString(size.width, size.height);
}

std::u16string stringFromRect(Rect rect) {
  return u"{" + sizeString(rect.origin.x, rect.origin.y) + u", " +
         sizeString(rect.size.width, rect.size.height) + u"}";
}

// Chooses representations by content.
class ImageLoader {
 public:
  static Image::RepList representationsOfData(Data data, std::u16string_view extension) {
    Image::RepList reps;
    const std::size_t head = std::min<std::size_t>(data.size(), 1024);
    const std::string_view start(reinterpret_cast<const char*>(data.data()), head);
    if (start.find("%PDF-") != std::string_view::npos) {
      if (auto pdf = PDFImageRep::imageRepWithData(std::move(data))) reps.push_back(pdf);
      return reps;
    }
    if (readPostScriptProgram(data)) {
      if (auto eps = EPSImageRep::imageRepWithData(std::move(data))) reps.push_back(eps);
      return reps;
    }
    if (isPICTExtension(extension) || isPICTWithHeader(data)) {
      if (auto pict = PICTImageRep::imageRepWithData(data)) {
        reps.push_back(pict);
        return reps;
      }
    }
    for (auto& bitmap : BitmapImageRep::imageRepsWithData(std::make_shared<Data>(std::move(data))))
      reps.push_back(std::move(bitmap));
    return reps;
  }

  static void load(const Image& image) {
    if (!image.pendingPath_) return;
    const std::u16string path = std::move(*image.pendingPath_);
    image.pendingPath_.reset();
    if (std::optional<Data> data = dataWithContentsOfRegularFile(path))
      image.representations_ = representationsOfData(std::move(*data), pathExtension(path));
  }

 private:
  static bool isPICTExtension(std::u16string_view extension) {
    for (std::u16string_view pict : {u"pict", u"pct", u"pic"})
      if (isEqualToStringNoCase(extension, pict)) return true;
    return false;
  }
  static bool isPICTWithHeader(const Data& data) {
    return data.size() >= 528 && data[522] == 0x00 && data[523] == 0x11 && data[524] == 0x02 &&
           data[525] == 0xFF;
  }
};

// --- Making images -------------------------------------------------------------------------------

Image::Image(Size size) {
  if (size.width != 0 || size.height != 0) size_ = size;
}

Image::~Image() = default;

void Image::load() const {
  ImageLoader::load(*this);
}

std::unique_ptr<Image> Image::imageByReferencingFile(std::u16string_view path) {
  if (path.empty()) return nullptr;
  auto image = std::make_unique<Image>();
  image->pendingPath_ = std::u16string(path);
  return image;
}

std::unique_ptr<Image> Image::imageWithContentsOfFile(std::u16string_view path) {
  if (path.empty()) return nullptr;
  std::optional<Data> data = dataWithContentsOfRegularFile(path);
  if (!data) return nullptr;
  auto image = std::make_unique<Image>();
  image->representations_ =
      ImageLoader::representationsOfData(std::move(*data), pathExtension(path));
  if (image->representations_.empty()) return nullptr;
  return image;
}

std::unique_ptr<Image> Image::imageWithData(Data data) {
  auto image = std::make_unique<Image>();
  image->representations_ = ImageLoader::representationsOfData(std::move(data), u"");
  if (image->representations_.empty()) return nullptr;
  return image;
}

std::unique_ptr<Image> Image::imageWithBitmap(std::shared_ptr<BitmapImageRep> bitmap) {
  if (!bitmap || bitmap->pixelsWide() < 1 || bitmap->pixelsHigh() < 1) return nullptr;
  auto image = std::make_unique<Image>(
      Size{static_cast<float>(bitmap->pixelsWide()), static_cast<float>(bitmap->pixelsHigh())});
  image->addRepresentation(std::move(bitmap));
  return image;
}

std::unique_ptr<Image> Image::imageWithPixels(int width, int height, int bands,
                                              const std::uint8_t* pixels, std::size_t length,
                                              std::size_t bytesPerRow) {
  return imageWithBitmap(
      BitmapImageRep::imageRepWithPixels(width, height, bands, pixels, length, bytesPerRow));
}

std::unique_ptr<Image> Image::imageWithDownloadedData(const Data& data, bool cachedSeparately) {
  auto reps = BitmapImageRep::imageRepsWithData(std::make_shared<Data>(data));
  if (reps.empty()) return nullptr;
  std::shared_ptr<BitmapImageRep> bitmap = std::move(reps.front());
  // Every row must be there: decoding refuses truncated data.
  if (!bitmap->source()->full()) return nullptr;
  auto image = std::make_unique<Image>(
      Size{static_cast<float>(bitmap->pixelsWide()), static_cast<float>(bitmap->pixelsHigh())});
  image->setCachedSeparately(cachedSeparately);
  image->addRepresentation(std::move(bitmap));
  return image;
}

// --- State ---------------------------------------------------------------------------------------

Size Image::size() const {
  if (size_) return *size_;
  const RepList& reps = representations();
  return reps.empty() ? Size{} : reps.front()->size();
}

void Image::setSize(Size size) {
  load();
  size_ = size;
}

const Image::RepList& Image::representations() const {
  load();
  return representations_;
}

void Image::addRepresentation(std::shared_ptr<ImageRep> rep) {
  load();
  if (rep) representations_.push_back(std::move(rep));
}

void Image::removeRepresentation(const ImageRep* rep) {
  load();
  const auto found = std::find_if(representations_.begin(), representations_.end(),
                                  [rep](const auto& held) { return held.get() == rep; });
  if (found != representations_.end()) representations_.erase(found);
}

void Image::removeAllRepresentations() {
  load();
  while (!representations_.empty())
    representations_.pop_back();
}

// --- Inspections ---------------------------------------------------------------------------------

bool Image::isReallyValid() const {
  const Size points = size();
  return points.width > 0 && points.height > 0 && !representations().empty();
}

Size Image::pixelSize() const {
  int bestWidth = 0, bestHeight = 0;
  for (const auto& rep : representations()) {
    if (rep->pixelsWide() > bestWidth) {
      bestWidth = rep->pixelsWide();
      bestHeight = rep->pixelsHigh();
    }
  }
  if (bestWidth > 0) return {static_cast<float>(bestWidth), static_cast<float>(bestHeight)};
  return size();
}

bool Image::hasAlpha() const {
  for (const auto& rep : representations()) {
    const bool raster =
        rep->isKindOfClass(ImageRepClass::kBitmap) || rep->isKindOfClass(ImageRepClass::kCached);
    if (!raster || rep->hasAlpha()) return true;
  }
  return false;
}

float Image::aspectRatio() const {
  const Size points = size();
  return points.height > 0 ? points.width / points.height : 0;
}

Rect Image::bounds() {
  int bestWidth = 0, bestHeight = 0;
  for (const auto& rep : representations()) {
    if (rep->repClass() == ImageRepClass::kPDF)
      return std::static_pointer_cast<ferncast::PDFImageRep>(rep)->bounds();
    if (rep->repClass() == ImageRepClass::kEPS) {
      auto pdf = std::static_pointer_cast<ferncast::EPSImageRep>(rep)->initializePDFImageRep();
      return pdf ? pdf->bounds() : Rect{};
    }
    if (rep->pixelsWide() > bestWidth) {
      bestWidth = rep->pixelsWide();
      bestHeight = rep->pixelsHigh();
    }
  }
  if (bestWidth > 0)
    return {{0, 0}, {static_cast<float>(bestWidth), static_cast<float>(bestHeight)}};
  return {{0, 0}, size()};
}

// --- Sizes ---------------------------------------------------------------------------------------

Size Image::thumb(Size box, Size size) {
  if (size.width <= box.width && size.height <= box.height) return size;
  const float fullWidthHeight = box.width / size.width * size.height;
  Size fitted;
  if (fullWidthHeight > box.height) {
    fitted.height = std::floor(box.height);
    fitted.width = std::floor(box.height / size.height * size.width);
  } else {
    fitted.height = std::floor(fullWidthHeight);
    fitted.width = std::floor(box.width);
  }
  if (!(fitted.width > 0)) fitted.width = 1;
  if (!(fitted.height > 0)) fitted.height = 1;
  return fitted;
}

Size Image::scale(float factor, Size size) {
  if (!(factor > 0)) return size;
  return {std::floor(size.width * factor), std::floor(size.height * factor)};
}

void Image::scaleToThumbSize(Size box) {
  setScalesWhenResized(true);
  setSize(thumbSize(box));
}

// --- Representation look-ups ---------------------------------------------------------------------

std::shared_ptr<ImageRep> Image::imageRepOfClass(ImageRepClass kind) const {
  for (const auto& rep : representations())
    if (rep->isKindOfClass(kind)) return rep;
  return nullptr;
}

std::shared_ptr<ImageRep> Image::imageRepOfClassNamed(std::string_view className) const {
  const std::optional<ImageRepClass> kind = imageRepClassNamed(className);
  if (!kind) {
    NSLog("Class " + std::string(className) + " not found.");
    return nullptr;
  }
  return imageRepOfClass(*kind);
}

bool Image::isImageRepKindOfClass(ImageRepClass kind) const {
  const RepList& reps = representations();
  bool found = false;
  for (auto rep = reps.rbegin(); rep != reps.rend(); ++rep) {
    if ((*rep)->isKindOfClass(kind))
      found = true;
    else if (!(*rep)->isKindOfClass(ImageRepClass::kCached))
      return false;
  }
  return found;
}

std::shared_ptr<ferncast::PDFImageRep> Image::PDFImageRep() const {
  if (auto pdf = imageRepOfClass(ImageRepClass::kPDF))
    return std::dynamic_pointer_cast<ferncast::PDFImageRep>(pdf);
  if (auto eps = EPSImageRep()) return eps->PDFImageRep();
  return nullptr;
}

std::shared_ptr<ferncast::EPSImageRep> Image::EPSImageRep() const {
  return std::dynamic_pointer_cast<ferncast::EPSImageRep>(imageRepOfClass(ImageRepClass::kEPS));
}

std::shared_ptr<ferncast::PICTImageRep> Image::PICTImageRep() const {
  return std::dynamic_pointer_cast<ferncast::PICTImageRep>(imageRepOfClass(ImageRepClass::kPICT));
}

std::shared_ptr<BitmapImageRep> Image::bitmapImageRep() const {
  return std::dynamic_pointer_cast<BitmapImageRep>(imageRepOfClass(ImageRepClass::kBitmap));
}

std::shared_ptr<CachedImageRep> Image::cachedImageRep() const {
  return std::dynamic_pointer_cast<CachedImageRep>(imageRepOfClass(ImageRepClass::kCached));
}

std::shared_ptr<BitmapImageRep> Image::iconRefBitmapImageRep() const {
  return std::dynamic_pointer_cast<BitmapImageRep>(imageRepOfClassNamed("NSIconRefBitmapImageRep"));
}

bool Image::isPDFImage() const {
  return isImageRepKindOfClass(ImageRepClass::kPDF) ||
         imageRepOfClass(ImageRepClass::kEPS) != nullptr;
}

bool Image::isEPSImage() const {
  return isImageRepKindOfClass(ImageRepClass::kEPS);
}

bool Image::isPICTImage() const {
  return isImageRepKindOfClass(ImageRepClass::kPICT);
}

bool Image::isBitmapImage() const {
  return isImageRepKindOfClass(ImageRepClass::kBitmap);
}

bool Image::isIconRefBitmapImage() const {
  const std::optional<ImageRepClass> kind = imageRepClassNamed("NSIconRefBitmapImageRep");
  if (!kind) {
    NSLog("Class NSIconRefBitmapImageRep not found.");
    return false;
  }
  return isImageRepKindOfClass(*kind);
}

std::optional<Data> Image::bitmapImageRepData() const {
  std::shared_ptr<BitmapImageRep> bitmap = bitmapImageRep();
  if (!bitmap) return std::nullopt;
  return bitmap->data();
}

std::shared_ptr<ImageRep> Image::bestRepresentationForRect(Rect rect) const {
  const RepList& reps = representations();
  std::shared_ptr<ImageRep> covering, largest;
  for (const auto& rep : reps) {
    if (rep->pixelsWide() == 0) return rep;  // vector: draws well at any size
    if (rep->pixelsWide() >= rect.size.width && rep->pixelsHigh() >= rect.size.height &&
        (!covering || rep->pixelsWide() < covering->pixelsWide()))
      covering = rep;
    if (!largest || rep->pixelsWide() > largest->pixelsWide()) largest = rep;
  }
  return covering ? covering : largest;
}

std::u16string Image::pathExtensionForBestRepresentation() const {
  if (imageRepOfClass(ImageRepClass::kPDF)) return u"pdf";
  if (imageRepOfClass(ImageRepClass::kEPS)) return u"eps";
  if (imageRepOfClass(ImageRepClass::kPICT)) return u"pict";
  return u"tiff";
}

std::optional<Data> Image::bestRepresentationAndFileExtension(std::u16string* extension) const {
  std::optional<Data> data;
  std::u16string kind;
  if (auto pdf =
          std::dynamic_pointer_cast<ferncast::PDFImageRep>(imageRepOfClass(ImageRepClass::kPDF))) {
    data = pdf->PDFRepresentation();
    kind = u"pdf";
  } else if (auto eps = EPSImageRep()) {
    data = eps->EPSRepresentation();
    kind = u"eps";
  } else if (auto pict = PICTImageRep()) {
    data = pict->PICTRepresentation();
    kind = u"pict";
  } else {
    data = TIFFRepresentationUsingCompression(TIFFCompression::kLZW, 1.0f);
    kind = u"tiff";
  }
  if (extension) *extension = kind;
  return data;
}

}  // namespace ferncast
